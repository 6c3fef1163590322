// The device binding of the platform seam: the Android and perf daemon
// calls themselves. Compiled into libgorv by the device build only.
#pragma once

#include "platform/Env.h"

namespace gorv {

class AndroidEnv : public Env {
 public:
  std::chrono::steady_clock::time_point NowMonotonic() override;
  int PropertyGet(const char* key, char* value, const char* defaultValue) override;
  std::string PerfGetProp(const char* key, const char* defaultValue) override;
  int PerfLockAcqRel(int handle, int durationMs, int* list, int numArgs, int reserved) override;
  int PerfLockRel(int handle) override;
  uint64_t TraceEnabledTags() override;
  void TraceInt(const char* name, int32_t value) override;
  void TraceBegin(const char* name) override;
  void TraceEnd() override;
  // Writes the sysfs node `path` itself.
  NodeFile::Outcome WriteNode(const std::string& path, const char* text, size_t length) override;
};

}  // namespace gorv
