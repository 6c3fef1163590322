// The host binding of the platform seam (gorv::Env), with the switches that
// tests and the simulator steer:
//  - clock: the real steady clock, or a virtual clock moved by hand;
//  - properties: android-base's in-process store (android::base::SetProperty);
//  - perf lock: a recorder handing out handles 1, 2, 3, ... that records every
//    call and can be told to fail;
//  - trace: a recorder whose "always" tag can be switched off;
//  - nodes: written beneath a sysfs root directory (GORV_SYSFS_ROOT, or one set
//    here), so "/sys/kernel/..." becomes "<root>/sys/kernel/...";
//  - listeners: every observable effect (node write, lock call, trace event)
//    is reported, in order, to the registered listeners.
// All methods are thread-safe.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <mutex>
#include <string>
#include <vector>

#include "platform/Env.h"

namespace gorv {

// One observable effect of the plug-in on the platform.
struct HostEvent {
  enum class Kind {
    NodeWrite,
    PerfLockAcquire,
    PerfLockRelease,
    TraceCounter,
    TraceBegin,
    TraceEnd
  };
  Kind kind;
  std::string name;                // node path as the feature knows it, or trace name
  std::string text;                // text written to a node
  int64_t value = 0;               // trace counter value
  int32_t handle = -1;             // perf lock: result of acquire, argument of release
  std::vector<int32_t> resources;  // perf lock acquire: the request list
  int64_t timeNs = 0;              // monotonic time of the effect (virtual or real)
};

class HostEnv : public Env {
 public:
  using Listener = std::function<void(const HostEvent&)>;

  // The process-wide instance; Env::Default() returns it in host builds.
  static HostEnv& Get();

  // Back to the defaults: real clock, perf lock succeeding with handles
  // starting at 1, always tag enabled, no recorded events, no listeners,
  // sysfs root from GORV_SYSFS_ROOT. Properties are not touched.
  void Reset();

  // Clock.
  void UseVirtualClock(std::chrono::nanoseconds start = std::chrono::nanoseconds(0));
  void UseRealClock();
  void AdvanceClock(std::chrono::nanoseconds by);
  void SetClock(std::chrono::nanoseconds now);

  // Perf lock: while failing, acquisitions return `failureValue`.
  void SetPerfLockFailure(bool failing, int32_t failureValue = -1);
  std::vector<HostEvent> PerfLockCalls() const;  // acquires and releases, in order
  // Handles acquired and not yet released.
  std::vector<int32_t> HeldPerfLocks() const;

  // Trace.
  void SetTraceAlwaysTagEnabled(bool enabled);
  std::vector<HostEvent> TraceEvents() const;

  // Nodes. An empty root means "as given" (the device's own paths).
  void SetSysfsRoot(const std::string& root);
  std::string SysfsRoot() const;
  std::vector<HostEvent> NodeWrites() const;

  // Whether effects are kept for Events() (listeners are told either way);
  // benchmarks switch it off so that long runs do not grow the record.
  void SetRecordEvents(bool record);
  // Every effect, in order.
  std::vector<HostEvent> Events() const;
  void ClearEvents();
  // Returns an id for RemoveListener. Listeners run on the thread of the
  // effect, outside the env's lock.
  int AddListener(Listener listener);
  void RemoveListener(int id);

  // Env.
  std::chrono::steady_clock::time_point NowMonotonic() override;
  int PropertyGet(const char* key, char* value, const char* defaultValue) override;
  std::string PerfGetProp(const char* key, const char* defaultValue) override;
  int PerfLockAcqRel(int handle, int durationMs, int* list, int numArgs, int reserved) override;
  int PerfLockRel(int handle) override;
  uint64_t TraceEnabledTags() override;
  void TraceInt(const char* name, int32_t value) override;
  void TraceBegin(const char* name) override;
  void TraceEnd() override;
  // Writes "<root><path>" and reports a whole write under `path`. Allocates
  // only to report, when events are recorded or listeners are registered.
  NodeFile::Outcome WriteNode(const std::string& path, const char* text, size_t length) override;

 private:
  HostEnv();
  // Never throws: these stand in for C calls.
  void Record(HostEvent event);
  void RecordTrace(HostEvent::Kind kind, const char* name, int64_t value);
  std::chrono::steady_clock::time_point nowLocked() const;
  std::vector<HostEvent> eventsOf(std::initializer_list<HostEvent::Kind> kinds) const;

  mutable std::mutex mMutex;
  bool mVirtualClock = false;                        // guarded by mMutex
  std::chrono::nanoseconds mVirtualNow{0};           // guarded by mMutex
  bool mPerfLockFailing = false;                     // guarded by mMutex
  int32_t mPerfLockFailureValue = -1;                // guarded by mMutex
  int32_t mNextPerfHandle = 1;                       // guarded by mMutex
  std::vector<int32_t> mHeldPerfLocks;               // guarded by mMutex
  bool mAlwaysTagEnabled = true;                     // guarded by mMutex
  std::string mSysfsRoot;                            // guarded by mMutex
  bool mRecordEvents = true;                         // guarded by mMutex
  std::vector<HostEvent> mEvents;                    // guarded by mMutex
  std::vector<std::pair<int, Listener>> mListeners;  // guarded by mMutex
  int mNextListenerId = 1;                           // guarded by mMutex
};

}  // namespace gorv
