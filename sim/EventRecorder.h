// Collects what the plug-in does during a run: the host platform's effects
// (node writes, lock calls, trace events) and the plug-in's log lines
// (through liblog's logger), each stamped with the run's clock. Thread-safe;
// one recorder at a time.
#pragma once

#include <cstdint>
#include <functional>
#include <mutex>
#include <vector>

#include "framework/AsyncTriggerPayload.h"
#include "sim/SimEvent.h"

class EventRecorder {
 public:
  // `originNs`: monotonic time of the run's 0.
  explicit EventRecorder(int64_t originNs);
  ~EventRecorder();  // detaches from the platform and from liblog

  void RecordTrigger(const AsyncTriggerPayload& payload);
  std::vector<SimEvent> Events() const;

 private:
  friend struct RecorderHooks;
  void Record(SimEvent event);
  int64_t NowMs() const;

  const int64_t mOriginNs;
  int mListenerId;
  mutable std::mutex mMutex;
  std::vector<SimEvent> mEvents;  // guarded by mMutex, in order
};
