#include "host/framework/SteppedRunner.h"

#include <algorithm>
#include <utility>

#include "host/platform/HostEnv.h"

namespace {
std::chrono::nanoseconds Ms(int64_t ms) { return std::chrono::milliseconds(ms); }
}  // namespace

SteppedRunner::SteppedRunner(std::chrono::milliseconds meterLatency) : mMeters(meterLatency) {
  gorv::HostEnv::Get().UseVirtualClock(Ms(0));
  MeterService::Install(&mMeters);
}

SteppedRunner::~SteppedRunner() {
  DestroyFeature();
  if (MeterService::Installed() == &mMeters) MeterService::Install(nullptr);
}

void SteppedRunner::Adopt(Feature* feature) { mFeature.reset(feature); }

void SteppedRunner::ScheduleAction(int64_t atMs, std::function<void()> action) {
  mActions.emplace(atMs, std::move(action));
}

void SteppedRunner::ScheduleTrigger(int64_t atMs, AsyncTriggerPayload payload) {
  mTriggers.emplace(atMs, std::move(payload));
}

void SteppedRunner::SetStepObserver(std::function<void(int64_t nowMs)> observer) {
  mStepObserver = std::move(observer);
}

void SteppedRunner::TriggerNow(AsyncTriggerPayload payload) { Deliver(std::move(payload)); }

void SteppedRunner::RunUntil(int64_t untilMs) {
  for (std::optional<int64_t> next = NextEventMs(); next && *next <= untilMs;
       next = NextEventMs()) {
    Step(*next);
  }
  mNowMs = std::max(mNowMs, untilMs);
  gorv::HostEnv::Get().SetClock(Ms(mNowMs));
  if (mStepObserver) mStepObserver(mNowMs);
}

std::optional<int64_t> SteppedRunner::NextEventMs() const {
  std::optional<int64_t> next;
  auto consider = [&next](int64_t at) { next = next ? std::min(*next, at) : at; };
  if (!mActions.empty()) consider(mActions.begin()->first);
  if (!mTriggers.empty()) consider(mTriggers.begin()->first);
  if (mRoundDueMs) consider(*mRoundDueMs);
  if (std::optional<std::chrono::nanoseconds> due = mMeters.NextDue()) {
    // Meter runs finish on the first millisecond at or after they are due.
    consider((due->count() + 999999) / 1000000);
  }
  return next;
}

void SteppedRunner::Step(int64_t atMs) {
  mNowMs = std::max(mNowMs, atMs);
  gorv::HostEnv::Get().SetClock(Ms(mNowMs));
  if (mStepObserver) mStepObserver(mNowMs);
  for (auto it = mActions.begin(); it != mActions.end() && it->first <= atMs;
       it = mActions.erase(it)) {
    it->second();
  }
  while (!mTriggers.empty() && mTriggers.begin()->first <= atMs) {
    AsyncTriggerPayload payload = std::move(mTriggers.begin()->second);
    mTriggers.erase(mTriggers.begin());
    Deliver(std::move(payload));
  }
  mMeters.DeliverDue(Ms(atMs));
  if (mRoundDueMs && *mRoundDueMs <= atMs) RunRound();
}

void SteppedRunner::Deliver(AsyncTriggerPayload payload) {
  if (!mFeature) return;
  mFeature->runAsync(std::move(payload));
  if (mFeature->periodicActive.load() && mFeature->periodicEnabled && !mRoundDueMs) {
    mRoundDueMs = mNowMs + mFeature->periodicInterval.load();
  }
}

void SteppedRunner::RunRound() {
  mRoundDueMs.reset();
  if (!mFeature->periodicActive.load()) return;
  mFeature->runAsyncPeriodic(std::atomic<bool>{false});
  if (mFeature->periodicActive.load()) mRoundDueMs = mNowMs + mFeature->periodicInterval.load();
}

void SteppedRunner::DestroyFeature() {
  mMeters.DropPending();
  mFeature.reset();
  mRoundDueMs.reset();
}
