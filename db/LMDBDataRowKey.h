// Selects rows of the application-state table by the fields that are set.
#pragma once

#include <cstdint>
#include <string>

struct LMDBDataRowKey {
  int32_t intcol1 = 2147483647;  // 2147483647 means not set
  std::string appName;           // empty means not set
  std::string rsvdName;          // empty means not set
};
