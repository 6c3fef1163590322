// Framework boundary: the record that describes one feature.
//
// FeatureInfo is a value type with deep-copying members, filled by the
// framework from its configuration and passed by value to the factory and to
// Feature's constructor. The plug-in reads `ignoreList` and `meterInfos` only.
#pragma once

#include <string>
#include <unordered_map>
#include <vector>

// One meter description. Only the leading name is read by the plug-in.
struct MeterInfo {
  std::string name;
  std::vector<std::string> params;  // framework-specific, passed through
};

struct FeatureInfo {
  std::string name;
  std::unordered_map<std::string, std::string> configs;
  std::unordered_map<std::string, std::vector<std::string>> appLists;
  // A trigger whose component contains any entry as a substring is ignored.
  std::vector<std::string> ignoreList;
  std::vector<std::vector<std::string>> profiles;
  // The meters the framework runs for this feature.
  std::vector<MeterInfo> meterInfos;
  std::string libraryName;
};

// Framework-side state of one feature, handed by reference to MetaMeter.
struct FeatureState {
  std::string featureName;
  int asyncEventsHandled = 0;
};

// Result record of FeatureLocator::getData; the plug-in reads `value` only.
struct featureData {
  int value = 0;
  std::string detail;
};
