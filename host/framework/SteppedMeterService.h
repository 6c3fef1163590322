// Meters on the virtual clock: each Start() finishes `latency` later, when
// the stepped runner calls DeliverDue(). Runs due at the same time are
// delivered in the order they were started; a run started with a shorter
// latency may finish before an earlier, longer one. Used on one thread (the
// stepped runner's).
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>

#include "host/framework/MeterService.h"

class SteppedMeterService : public MeterService {
 public:
  explicit SteppedMeterService(std::chrono::milliseconds latency = std::chrono::milliseconds(50));

  void SetLatency(std::chrono::milliseconds latency);
  // While set, Start() throws std::runtime_error("meter service unavailable"),
  // as a framework whose meter service died would.
  void SetStartFailure(bool failing);
  void Start(MetaMeter& meter) override;
  // Delivers every run due at or before `now`.
  void DeliverDue(std::chrono::nanoseconds now);
  std::optional<std::chrono::nanoseconds> NextDue() const;
  void DropPending();

 private:
  std::chrono::milliseconds mLatency;
  bool mStartFailing = false;
  // Due time -> meter, in due order; equal keys keep their start order.
  std::multimap<std::chrono::nanoseconds, MetaMeter*> mRuns;
};
