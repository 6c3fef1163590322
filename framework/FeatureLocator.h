// Framework boundary: lookups into the framework's other features and tables.
#pragma once

#include <string>

#include "framework/FeatureInfo.h"

class FeatureLocator {
 public:
  virtual ~FeatureLocator();
  // Fills out.value with what feature `key` knows about `app`; for key
  // "AppClassifier" the value is the application's class (2: a game).
  // May throw.
  virtual void getData(std::string& key, std::string& app, featureData& out, int flags);
};
