#include "platform/android/AndroidEnv.h"

#include <cutils/properties.h>
#include <cutils/trace.h>

#include "platform/android/PerfClient.h"

// Declared by cutils/trace.h inside inline functions only, so not visible
// here (which clang-tidy does not see).
// NOLINTBEGIN(readability-redundant-declaration)
extern "C" void atrace_begin_body(const char* name);
extern "C" void atrace_end_body();
extern "C" void atrace_int_body(const char* name, int32_t value);
// NOLINTEND(readability-redundant-declaration)

namespace gorv {

Env* Env::Default() {
  static AndroidEnv* env = new AndroidEnv();  // used until the process exits
  return env;
}

std::chrono::steady_clock::time_point AndroidEnv::NowMonotonic() {
  return std::chrono::steady_clock::now();
}

int AndroidEnv::PropertyGet(const char* key, char* value, const char* defaultValue) {
  return property_get(key, value, defaultValue);
}

std::string AndroidEnv::PerfGetProp(const char* key, const char* defaultValue) {
  return perf_get_prop(key, defaultValue).value;
}

int AndroidEnv::PerfLockAcqRel(int handle, int durationMs, int* list, int numArgs, int reserved) {
  return perf_lock_acq_rel(handle, durationMs, list, numArgs, reserved);
}

int AndroidEnv::PerfLockRel(int handle) { return perf_lock_rel(handle); }

uint64_t AndroidEnv::TraceEnabledTags() { return atrace_get_enabled_tags(); }

void AndroidEnv::TraceInt(const char* name, int32_t value) { atrace_int_body(name, value); }

void AndroidEnv::TraceBegin(const char* name) { atrace_begin_body(name); }

void AndroidEnv::TraceEnd() { atrace_end_body(); }

NodeFile::Outcome AndroidEnv::WriteNode(const std::string& path, const char* text, size_t length) {
  return NodeFile::Write(path.c_str(), text, length);
}

}  // namespace gorv
