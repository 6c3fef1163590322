#include "host/framework/PluginLoader.h"

#include <dlfcn.h>

#include <mutex>

bool PluginLoader::Load(const std::string& path, std::string* error) {
  // A plug-in stays loaded until the process exits, as in the framework: the
  // handle is never closed, so it is not kept.
  // cppcheck-suppress leakReturnValNotUsed
  if (dlopen(path.c_str(), RTLD_NOW | RTLD_GLOBAL) != nullptr) return true;
  const char* reason = dlerror();
  if (error != nullptr) *error = "cannot load " + path + ": " + (reason ? reason : "unknown error");
  return false;
}

Feature* PluginLoader::Create(const std::string& key, const FeatureInfo& info, std::string* error) {
  FeatureRegistry::Factory factory = nullptr;
  {
    std::lock_guard<std::mutex> lock(FeatureRegistry::mMutex);
    if (FeatureRegistry::classList != nullptr) {
      auto found = FeatureRegistry::classList->find(key);
      if (found != FeatureRegistry::classList->end()) factory = found->second;
    }
  }
  if (factory == nullptr) {
    if (error != nullptr) *error = "no feature registered under \"" + key + "\"";
    return nullptr;
  }
  Feature* feature = factory(info);
  if (feature == nullptr && error != nullptr)
    *error = "the factory of \"" + key + "\" returned null";
  return feature;
}
