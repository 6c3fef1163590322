// Makes a feature known to the framework when the library is loaded: adds
// its key and factory to the framework's class registry.
#pragma once

#include "framework/Feature.h"

class FeatureRegistrar {
 public:
  // Runs at library load, on the loading thread. Creates the registry map
  // when no plug-in has yet (max load factor 1.0); keeps an existing entry
  // for `key` (the first registration wins). Holds FeatureRegistry::mMutex
  // for the whole check-and-insert.
  FeatureRegistrar(const char* key, FeatureRegistry::Factory factory);
};
