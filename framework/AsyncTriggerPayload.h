// Framework boundary: one trigger event handed to Feature::runAsync.
//
// Default-constructible and copy-assignable member by member. The plug-in reads
// triggerId, triggerValue and component; the rest is framework data that it
// copies unchanged.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

struct AsyncTriggerPayload {
  int32_t triggerId = 0;
  // The trigger's argument: an FPS value for 4221, the disable flag for 4222.
  int32_t triggerValue = 0;
  // "package/activity"; the text before the first '/' is the package name.
  std::string component;
  // 48 bytes of framework data.
  int64_t timestampNs = 0;
  int64_t sequence = 0;
  int32_t pid = -1;
  int32_t uid = -1;
  int32_t displayId = 0;
  int32_t flags = 0;
  int32_t reserved[4] = {};
  // Framework list of 4-byte values.
  std::vector<int32_t> args;
  // 8 bytes of framework data.
  int64_t cookie = 0;
};
static_assert(sizeof(int64_t) * 2 + sizeof(int32_t) * 8 == 48, "framework data is 48 bytes");
