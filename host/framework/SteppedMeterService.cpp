#include "host/framework/SteppedMeterService.h"

#include <stdexcept>

#include "host/platform/HostEnv.h"

SteppedMeterService::SteppedMeterService(std::chrono::milliseconds latency) : mLatency(latency) {}

void SteppedMeterService::SetLatency(std::chrono::milliseconds latency) { mLatency = latency; }

void SteppedMeterService::SetStartFailure(bool failing) { mStartFailing = failing; }

void SteppedMeterService::Start(MetaMeter& meter) {
  if (mStartFailing) throw std::runtime_error("meter service unavailable");
  std::chrono::nanoseconds now = gorv::HostEnv::Get().NowMonotonic().time_since_epoch();
  mRuns.push_back(Run{now + mLatency, &meter});
}

void SteppedMeterService::DeliverDue(std::chrono::nanoseconds now) {
  // Runs started during a delivery finish later, never in this call.
  while (!mRuns.empty() && mRuns.front().due <= now) {
    Run run = mRuns.front();
    mRuns.pop_front();
    Deliver(*run.meter, now);
  }
}

std::optional<std::chrono::nanoseconds> SteppedMeterService::NextDue() const {
  if (mRuns.empty()) return std::nullopt;
  return mRuns.front().due;
}

void SteppedMeterService::DropPending() { mRuns.clear(); }
