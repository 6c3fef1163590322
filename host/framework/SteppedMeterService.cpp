#include "host/framework/SteppedMeterService.h"

#include <stdexcept>
#include <vector>

#include "host/platform/HostEnv.h"

SteppedMeterService::SteppedMeterService(std::chrono::milliseconds latency) : mLatency(latency) {}

void SteppedMeterService::SetLatency(std::chrono::milliseconds latency) { mLatency = latency; }

void SteppedMeterService::SetStartFailure(bool failing) { mStartFailing = failing; }

void SteppedMeterService::Start(MetaMeter& meter) {
  if (mStartFailing) throw std::runtime_error("meter service unavailable");
  std::chrono::nanoseconds now = gorv::HostEnv::Get().NowMonotonic().time_since_epoch();
  mRuns.emplace(now + mLatency, &meter);
}

void SteppedMeterService::DeliverDue(std::chrono::nanoseconds now) {
  // Runs started during a delivery finish later, never in this call.
  std::vector<MetaMeter*> due;
  for (auto run = mRuns.begin(); run != mRuns.end() && run->first <= now; run = mRuns.erase(run)) {
    due.push_back(run->second);
  }
  for (MetaMeter* meter : due) Deliver(*meter, now);
}

std::optional<std::chrono::nanoseconds> SteppedMeterService::NextDue() const {
  if (mRuns.empty()) return std::nullopt;
  return mRuns.begin()->first;
}

void SteppedMeterService::DropPending() { mRuns.clear(); }
