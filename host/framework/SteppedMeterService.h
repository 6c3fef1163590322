// Meters on the virtual clock: each Start() finishes `latency` later, when
// the stepped runner calls DeliverDue(). Runs are delivered in the order
// they were started. Used on one thread (the stepped runner's).
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
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
  struct Run {
    std::chrono::nanoseconds due;
    MetaMeter* meter;
  };
  std::chrono::milliseconds mLatency;
  bool mStartFailing = false;
  std::deque<Run> mRuns;  // in start order; latency is fixed, so also due order
};
