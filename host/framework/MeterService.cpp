#include "host/framework/MeterService.h"

#include <atomic>
#include <memory>
#include <vector>

#include "framework/MetaMeter.h"
#include "host/framework/FrameRateSource.h"

namespace {
std::atomic<MeterService*> gInstalled{nullptr};
}  // namespace

MeterService* MeterService::Installed() { return gInstalled.load(); }
void MeterService::Install(MeterService* service) { gInstalled.store(service); }

void MeterService::Deliver(MetaMeter& meter, std::chrono::nanoseconds now) {
  std::vector<std::unique_ptr<Meter>> owned;
  std::vector<Meter*> finished;
  for (const MeterInfo& info : meter.featureInfo().meterInfos) {
    if (info.name == "Fps") {
      owned.push_back(std::make_unique<FpsMeter>(info.name, FrameRateSource::Get().ValueAt(now)));
    } else {
      owned.push_back(std::make_unique<Meter>(info.name));
    }
    finished.push_back(owned.back().get());
  }
  meter.writeToDataBase(finished);
}

MetaMeter::MetaMeter(FeatureInfo const& info, FeatureState& state) : mInfo(info), mState(state) {}
MetaMeter::~MetaMeter() = default;

bool MetaMeter::handleAsync(AsyncTriggerPayload const& /*payload*/) {
  ++mState.asyncEventsHandled;
  MeterService* service = MeterService::Installed();
  if (service == nullptr) return false;
  service->Start(*this);
  return true;
}

void* MetaMeter::getMeterSnapshot() { return nullptr; }
