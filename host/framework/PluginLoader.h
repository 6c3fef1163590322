// Loads a feature plug-in the way the framework does: dlopen the library
// (its static registration adds its key to the class registry), then create
// the feature through the registered factory.
#pragma once

#include <string>

#include "framework/Feature.h"

class PluginLoader {
 public:
  // Loads `path`; false and `error` set when it cannot be loaded. The
  // library stays loaded for the life of the process, like the framework's
  // plug-ins: factories in the registry point into it.
  static bool Load(const std::string& path, std::string* error);
  // Creates the feature registered under `key` (e.g. "GORV") from `info`.
  // Null and `error` set when the key is not registered or the factory
  // returned null. Exceptions from the feature's constructor propagate.
  static Feature* Create(const std::string& key, const FeatureInfo& info, std::string* error);
};
