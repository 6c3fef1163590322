// How the host framework runs a feature's meters. MetaMeter::handleAsync
// hands its request to the installed service, which later delivers the
// finished meters through MetaMeter::writeToDataBase: one meter per
// description of the feature's meterInfos, in order, an FpsMeter (reading
// FrameRateSource at completion time) for "Fps" and a plain Meter otherwise.
#pragma once

#include <chrono>

class MetaMeter;

class MeterService {
 public:
  virtual ~MeterService() = default;

  // The service MetaMeter::handleAsync uses; null: meters never finish.
  static MeterService* Installed();
  static void Install(MeterService* service);

  // Starts one run of `meter`'s meters. Must not block on the delivering
  // thread.
  virtual void Start(MetaMeter& meter) = 0;

 protected:
  // Builds the finished meters and calls writeToDataBase on the caller's
  // thread.
  static void Deliver(MetaMeter& meter, std::chrono::nanoseconds now);
};
