// Framework boundary: meters run by the framework for a feature.
//
// The framework owns every Meter; a feature sees them only during
// MetaMeter::writeToDataBase.
#pragma once

#include <string>

class Meter {
 public:
  explicit Meter(std::string meterName);
  virtual ~Meter();

  std::string name;  // identifies the meter, e.g. "Fps"
};

// The frame-rate meter. The framework guarantees that a Meter named "Fps"
// is an FpsMeter.
class FpsMeter : public Meter {
 public:
  FpsMeter(std::string meterName, float measuredFps);
  ~FpsMeter() override;

  // Frames per second measured by this run of the meter.
  float getFps();

 private:
  float mMeasuredFps;
};
