#include "host/platform/HostEnv.h"

#include <android-base/properties.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace gorv {

Env* Env::Default() { return &HostEnv::Get(); }

HostEnv& HostEnv::Get() {
  static HostEnv* env = new HostEnv();  // never destroyed: used until exit
  return *env;
}

HostEnv::HostEnv() { Reset(); }

void HostEnv::Reset() {
  std::lock_guard<std::mutex> lock(mMutex);
  mVirtualClock = false;
  mVirtualNow = std::chrono::nanoseconds(0);
  mPerfLockFailing = false;
  mPerfLockFailureValue = -1;
  mNextPerfHandle = 1;
  mHeldPerfLocks.clear();
  mAlwaysTagEnabled = true;
  mRecordEvents = true;
  mEvents.clear();
  mListeners.clear();
  const char* root = std::getenv("GORV_SYSFS_ROOT");
  mSysfsRoot = root != nullptr ? root : "";
}

void HostEnv::UseVirtualClock(std::chrono::nanoseconds start) {
  std::lock_guard<std::mutex> lock(mMutex);
  mVirtualClock = true;
  mVirtualNow = start;
}

void HostEnv::UseRealClock() {
  std::lock_guard<std::mutex> lock(mMutex);
  mVirtualClock = false;
}

void HostEnv::AdvanceClock(std::chrono::nanoseconds by) {
  std::lock_guard<std::mutex> lock(mMutex);
  mVirtualNow += by;
}

void HostEnv::SetClock(std::chrono::nanoseconds now) {
  std::lock_guard<std::mutex> lock(mMutex);
  mVirtualNow = now;
}

std::chrono::steady_clock::time_point HostEnv::NowMonotonic() {
  std::lock_guard<std::mutex> lock(mMutex);
  return nowLocked();
}

std::chrono::steady_clock::time_point HostEnv::nowLocked() const {
  if (!mVirtualClock) return std::chrono::steady_clock::now();
  return std::chrono::steady_clock::time_point(
      std::chrono::duration_cast<std::chrono::steady_clock::duration>(mVirtualNow));
}

int HostEnv::PropertyGet(const char* key, char* value, const char* defaultValue) {
  std::string text = android::base::GetProperty(key, defaultValue != nullptr ? defaultValue : "");
  size_t length = std::min(text.size(), static_cast<size_t>(kPropValueMax - 1));
  std::memcpy(value, text.data(), length);
  value[length] = '\0';
  return static_cast<int>(length);
}

std::string HostEnv::PerfGetProp(const char* key, const char* defaultValue) {
  return android::base::GetProperty(key, defaultValue != nullptr ? defaultValue : "");
}

int HostEnv::PerfLockAcqRel(int /*handle*/, int /*durationMs*/, int* list, int numArgs,
                            int /*reserved*/) {
  HostEvent event{HostEvent::Kind::PerfLockAcquire, "", "", 0, -1, {}, 0};
  try {
    if (list != nullptr && numArgs > 0) event.resources.assign(list, list + numArgs);
  } catch (...) {
    // Only the record of the request is incomplete.
  }
  {
    std::lock_guard<std::mutex> lock(mMutex);
    if (mPerfLockFailing) {
      event.handle = mPerfLockFailureValue;
    } else {
      event.handle = mNextPerfHandle++;
      mHeldPerfLocks.push_back(event.handle);
    }
  }
  int32_t handle = event.handle;
  Record(std::move(event));
  return handle;
}

int HostEnv::PerfLockRel(int handle) {
  int result = -1;
  {
    std::lock_guard<std::mutex> lock(mMutex);
    auto held = std::find(mHeldPerfLocks.begin(), mHeldPerfLocks.end(), handle);
    if (held != mHeldPerfLocks.end()) {
      mHeldPerfLocks.erase(held);
      result = 0;
    }
  }
  Record(HostEvent{HostEvent::Kind::PerfLockRelease, "", "", 0, handle, {}, 0});
  return result;
}

void HostEnv::SetPerfLockFailure(bool failing, int32_t failureValue) {
  std::lock_guard<std::mutex> lock(mMutex);
  mPerfLockFailing = failing;
  mPerfLockFailureValue = failureValue;
}

std::vector<int32_t> HostEnv::HeldPerfLocks() const {
  std::lock_guard<std::mutex> lock(mMutex);
  return mHeldPerfLocks;
}

uint64_t HostEnv::TraceEnabledTags() {
  std::lock_guard<std::mutex> lock(mMutex);
  return mAlwaysTagEnabled ? kTraceTagAlways : 0;
}

void HostEnv::SetTraceAlwaysTagEnabled(bool enabled) {
  std::lock_guard<std::mutex> lock(mMutex);
  mAlwaysTagEnabled = enabled;
}

void HostEnv::TraceInt(const char* name, int32_t value) {
  RecordTrace(HostEvent::Kind::TraceCounter, name, value);
}

void HostEnv::TraceBegin(const char* name) { RecordTrace(HostEvent::Kind::TraceBegin, name, 0); }

void HostEnv::TraceEnd() { RecordTrace(HostEvent::Kind::TraceEnd, "", 0); }

void HostEnv::RecordTrace(HostEvent::Kind kind, const char* name, int64_t value) {
  try {
    Record(HostEvent{kind, name, "", value, -1, {}, 0});
  } catch (...) {
    // As Record: the trace call itself never fails.
  }
}

void HostEnv::SetSysfsRoot(const std::string& root) {
  std::lock_guard<std::mutex> lock(mMutex);
  mSysfsRoot = root;
}

std::string HostEnv::SysfsRoot() const {
  std::lock_guard<std::mutex> lock(mMutex);
  return mSysfsRoot;
}

NodeFile::Outcome HostEnv::WriteNode(const std::string& path, const char* text, size_t length) {
  char hostPath[PATH_MAX];
  bool observed = false;
  {
    std::lock_guard<std::mutex> lock(mMutex);
    int size = std::snprintf(hostPath, sizeof(hostPath), "%s%s", mSysfsRoot.c_str(), path.c_str());
    // A path the kernel could not take either.
    if (size < 0 || static_cast<size_t>(size) >= sizeof(hostPath)) {
      return NodeFile::Outcome::kUnopened;
    }
    observed = mRecordEvents || !mListeners.empty();
  }
  NodeFile::Outcome outcome = NodeFile::Write(hostPath, text, length);
  if (observed && outcome == NodeFile::Outcome::kWritten) {
    try {
      Record(HostEvent{HostEvent::Kind::NodeWrite, path, std::string(text, length), 0, -1, {}, 0});
    } catch (...) {
      // As Record: out of memory, the record of the write is lost.
    }
  }
  return outcome;
}

void HostEnv::Record(HostEvent event) {
  // Stands in for C calls that cannot throw: out of memory, the record of
  // the effect is lost, never the caller's flow.
  try {
    std::vector<Listener> listeners;
    {
      std::lock_guard<std::mutex> lock(mMutex);
      event.timeNs = nowLocked().time_since_epoch().count();
      if (mRecordEvents) mEvents.push_back(event);
      if (mListeners.empty()) return;
      for (const auto& entry : mListeners) listeners.push_back(entry.second);
    }
    for (const Listener& listener : listeners) listener(event);
  } catch (...) {
  }
}

std::vector<HostEvent> HostEnv::Events() const {
  std::lock_guard<std::mutex> lock(mMutex);
  return mEvents;
}

std::vector<HostEvent> HostEnv::eventsOf(std::initializer_list<HostEvent::Kind> kinds) const {
  std::vector<HostEvent> selected;
  for (const HostEvent& event : Events()) {
    if (std::find(kinds.begin(), kinds.end(), event.kind) != kinds.end()) selected.push_back(event);
  }
  return selected;
}

std::vector<HostEvent> HostEnv::PerfLockCalls() const {
  return eventsOf({HostEvent::Kind::PerfLockAcquire, HostEvent::Kind::PerfLockRelease});
}

std::vector<HostEvent> HostEnv::TraceEvents() const {
  return eventsOf(
      {HostEvent::Kind::TraceCounter, HostEvent::Kind::TraceBegin, HostEvent::Kind::TraceEnd});
}

std::vector<HostEvent> HostEnv::NodeWrites() const {
  return eventsOf({HostEvent::Kind::NodeWrite});
}

void HostEnv::SetRecordEvents(bool record) {
  std::lock_guard<std::mutex> lock(mMutex);
  mRecordEvents = record;
}

void HostEnv::ClearEvents() {
  std::lock_guard<std::mutex> lock(mMutex);
  mEvents.clear();
}

int HostEnv::AddListener(Listener listener) {
  std::lock_guard<std::mutex> lock(mMutex);
  int id = mNextListenerId++;
  mListeners.emplace_back(id, std::move(listener));
  return id;
}

void HostEnv::RemoveListener(int id) {
  std::lock_guard<std::mutex> lock(mMutex);
  mListeners.erase(std::remove_if(mListeners.begin(), mListeners.end(),
                                  [id](const auto& entry) { return entry.first == id; }),
                   mListeners.end());
}

}  // namespace gorv
