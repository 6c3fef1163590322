#include "sim/run/EventRecorder.h"

#include <android/log.h>

#include <algorithm>
#include <atomic>
#include <map>

#include "host/platform/HostEnv.h"

namespace {
std::atomic<EventRecorder*> gRecorder{nullptr};
}  // namespace

struct RecorderHooks {
  static void OnLog(const __android_logger_data* data, const char* message) {
    EventRecorder* recorder = gRecorder.load();
    if (recorder == nullptr) return;
    SimEvent event;
    event.kind = SimEvent::Kind::Log;
    event.priority = data->priority;
    event.name = data->tag != nullptr ? data->tag : "";
    event.text = message != nullptr ? message : "";
    recorder->Record(std::move(event));
  }

  static void OnPlatform(EventRecorder* recorder, const gorv::HostEvent& effect) {
    // The platform's effects as the run's events; a trace section's end is
    // not one (its begin is).
    using Host = gorv::HostEvent::Kind;
    static const std::map<Host, SimEvent::Kind> kKinds = {
        {Host::NodeWrite, SimEvent::Kind::Node},
        {Host::PerfLockAcquire, SimEvent::Kind::LockAcquire},
        {Host::PerfLockRelease, SimEvent::Kind::LockRelease},
        {Host::TraceCounter, SimEvent::Kind::Counter},
        {Host::TraceBegin, SimEvent::Kind::TraceSection},
    };
    auto kind = kKinds.find(effect.kind);
    if (kind == kKinds.end()) return;
    // The fields a kind does not use are empty in the platform's effect.
    SimEvent event;
    event.kind = kind->second;
    event.text = effect.text;
    event.value = effect.value;
    event.resources = effect.resources;
    event.name = effect.name;
    event.handle = effect.handle;
    recorder->Record(std::move(event));
  }
};

EventRecorder::EventRecorder(int64_t originNs, int64_t endMs, RunSink& sink)
    : mOriginNs(originNs), mEndMs(endMs), mSink(sink) {
  gRecorder.store(this);
  __android_log_set_logger(&RecorderHooks::OnLog);
  mListenerId = gorv::HostEnv::Get().AddListener(
      [this](const gorv::HostEvent& effect) { RecorderHooks::OnPlatform(this, effect); });
}

EventRecorder::~EventRecorder() {
  gorv::HostEnv::Get().RemoveListener(mListenerId);
  __android_log_set_logger(__android_log_stderr_logger);
  gRecorder.store(nullptr);
}

void EventRecorder::RecordTrigger(const AsyncTriggerPayload& payload) {
  SimEvent event;
  event.kind = SimEvent::Kind::Trigger;
  event.value = payload.triggerId;
  event.triggerValue = payload.triggerValue;
  event.name = payload.component;
  Record(std::move(event));
}

void EventRecorder::Record(SimEvent event) {
  std::lock_guard<std::mutex> lock(mMutex);
  // Stamped under the lock, so that times never decrease.
  event.tMs = std::min(NowMs(), mEndMs);
  mSink.Event(event);
}

int64_t EventRecorder::NowMs() const {
  int64_t now = gorv::HostEnv::Get().NowMonotonic().time_since_epoch().count();
  return (now - mOriginNs) / 1000000;
}
