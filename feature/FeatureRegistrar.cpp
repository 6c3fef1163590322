#include "feature/FeatureRegistrar.h"

#include <mutex>
#include <new>

#include "feature/GorvFeature.h"
#include "platform/Log.h"

FeatureRegistrar::FeatureRegistrar(const char* key, FeatureRegistry::Factory factory) {
  std::lock_guard<std::mutex> lock(FeatureRegistry::mMutex);
  if (FeatureRegistry::classList == nullptr) {
    FeatureRegistry::Map* map = new (std::nothrow) FeatureRegistry::Map();
    if (map == nullptr) {
      GORV_LOG("FeatureRegistry", "Registry", "getMap() returned nullptr, Class %s not registered",
               key);
      return;
    }
    map->max_load_factor(1.0f);
    FeatureRegistry::classList = map;
  }
  FeatureRegistry::classList->emplace(key, factory);
}

namespace {
// The plug-in's one registration, run when libgorv.so is loaded.
const FeatureRegistrar gGorvRegistrar(GorvFeature::kName,
                                      &createClassObj<Feature, FeatureInfo, GorvFeature>);
}  // namespace
