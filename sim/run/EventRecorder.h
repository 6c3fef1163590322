// Collects what the plug-in does during a run: the host platform's effects
// (node writes, lock calls, trace events) and the plug-in's log lines
// (through liblog's logger), each stamped with the run's clock and handed to
// a sink at once (nothing is kept). Effects after `endMs` (a real-time run
// being stopped) are stamped endMs. Thread-safe: the sink is called under
// the recorder's lock, one event at a time. One recorder at a time.
#pragma once

#include <cstdint>
#include <mutex>

#include "framework/AsyncTriggerPayload.h"
#include "sim/output/RunSink.h"

class EventRecorder {
 public:
  // `originNs`: monotonic time of the run's 0. `sink` must outlive the
  // recorder; only its Event() is called.
  EventRecorder(int64_t originNs, int64_t endMs, RunSink& sink);
  ~EventRecorder();  // detaches from the platform and from liblog
  EventRecorder(const EventRecorder&) = delete;
  EventRecorder& operator=(const EventRecorder&) = delete;

  void RecordTrigger(const AsyncTriggerPayload& payload);

 private:
  friend struct RecorderHooks;
  void Record(SimEvent event);
  int64_t NowMs() const;

  const int64_t mOriginNs;
  const int64_t mEndMs;
  int mListenerId;
  std::mutex mMutex;
  RunSink& mSink;  // guarded by mMutex
};
