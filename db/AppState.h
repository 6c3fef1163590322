// One row of the framework's application-state table.
#pragma once

#include <cstdint>
#include <string>

struct AppState {
  // 0: a new row, inserted; otherwise the row id to update. Bound as a
  // 32-bit parameter: only the low 32 bits reach SQLite.
  int64_t rowid = 0;
  // 2147483647 means not set: the parameter is left as last bound.
  int32_t intcol1 = 2147483647;
  std::string appName;   // empty means not set
  std::string rsvdName;  // empty means not set
  uint8_t blob[4] = {};  // always written, as 4 bytes
};
