// The plug-in's one seam to the platform: clock, properties, performance lock,
// system trace and kernel node files.
//
// Feature code calls Env::Default() and never the platform directly. The
// binding is chosen at link time: the device build compiles
// platform/android/AndroidEnv.cpp into libgorv (the real Android and perf
// daemon calls); the host build links libgorv against host/platform, whose
// HostEnv offers a virtual clock, an in-process property store, a perf-lock
// recorder, a trace recorder and a sysfs root directory.
//
// Every method may be called from any of the framework's threads at once.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/NodeFile.h"

namespace gorv {

class Env {
 public:
  // Longest property value, terminator included (Android's PROP_VALUE_MAX).
  static constexpr int kPropValueMax = 92;
  // Bit of the "always" trace tag in TraceEnabledTags().
  static constexpr uint64_t kTraceTagAlways = 1;

  virtual ~Env() = default;

  // The platform binding linked into the process. Never null; not owned.
  static Env* Default();

  // Monotonic clock.
  virtual std::chrono::steady_clock::time_point NowMonotonic() = 0;

  // property_get: copies the value of `key` (or `defaultValue` when unset;
  // may be null) into `value` (kPropValueMax bytes) and returns its length.
  virtual int PropertyGet(const char* key, char* value, const char* defaultValue) = 0;
  // perf_get_prop of the perf daemon client: the value or `defaultValue`.
  virtual std::string PerfGetProp(const char* key, const char* defaultValue) = 0;

  // perf_lock_acq_rel / perf_lock_rel. `list` holds `numArgs` ints
  // (resource opcode, value, ...); duration 0 means until released.
  // Returns the handle (1 or more) or a failure value.
  virtual int PerfLockAcqRel(int handle, int durationMs, int* list, int numArgs, int reserved) = 0;
  virtual int PerfLockRel(int handle) = 0;

  // System trace (atrace_*).
  virtual uint64_t TraceEnabledTags() = 0;
  virtual void TraceInt(const char* name, int32_t value) = 0;
  virtual void TraceBegin(const char* name) = 0;
  virtual void TraceEnd() = 0;

  // Writes the `length` bytes at `text` to the kernel node `path` in one
  // write (NodeFile::Write: created if missing, truncated if present).
  // `path` is the node's name on a device; a host binding may place it
  // elsewhere. Allocates nothing unless a host binding records the write.
  virtual NodeFile::Outcome WriteNode(const std::string& path, const char* text, size_t length) = 0;
};

}  // namespace gorv
