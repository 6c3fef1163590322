#include "host/framework/HostLocator.h"

#include <atomic>
#include <stdexcept>

namespace {
std::atomic<FeatureLocator*> gCurrent{&HostLocator::Get()};
}  // namespace

FeatureLocator::~FeatureLocator() = default;

void FeatureLocator::getData(std::string& /*key*/, std::string& /*app*/, featureData& out,
                             int /*flags*/) {
  out.value = 0;
}

FeatureLocator* HostLocator::Current() { return gCurrent.load(); }
void HostLocator::SetCurrent(FeatureLocator* locator) { gCurrent.store(locator); }

HostLocator& HostLocator::Get() {
  static HostLocator* locator = new HostLocator();  // lives until exit
  return *locator;
}

void HostLocator::SetClass(const std::string& package, int appClass) {
  std::lock_guard<std::mutex> lock(mMutex);
  mClasses[package] = appClass;
}

void HostLocator::Clear() {
  std::lock_guard<std::mutex> lock(mMutex);
  mClasses.clear();
  mFailure = Failure::None;
}

void HostLocator::SetFailure(Failure failure) {
  std::lock_guard<std::mutex> lock(mMutex);
  mFailure = failure;
}

void HostLocator::getData(std::string& key, std::string& app, featureData& out, int /*flags*/) {
  std::lock_guard<std::mutex> lock(mMutex);
  if (mFailure == Failure::StdException) throw std::runtime_error("classifier unavailable");
  if (mFailure == Failure::OtherException) throw 7;
  out.value = 0;
  if (key != "AppClassifier") return;
  auto found = mClasses.find(app);
  if (found != mClasses.end()) out.value = found->second;
}
