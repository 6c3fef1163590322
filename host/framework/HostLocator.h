// The host framework's FeatureLocator: answers "AppClassifier" lookups from a
// table (package -> class; unknown packages are class 0) and can be told to
// throw, as a locator whose backing feature failed would.
#pragma once

#include <map>
#include <mutex>
#include <string>

#include "framework/FeatureLocator.h"

class HostLocator : public FeatureLocator {
 public:
  enum class Failure { None, StdException, OtherException };

  // The instance the Feature base hands to new features; the process-wide
  // HostLocator by default, null after SetCurrent(nullptr).
  static FeatureLocator* Current();
  static void SetCurrent(FeatureLocator* locator);
  static HostLocator& Get();

  void SetClass(const std::string& package, int appClass);
  void Clear();  // empties the table and stops throwing
  void SetFailure(Failure failure);

  // Thread-safe.
  void getData(std::string& key, std::string& app, featureData& out, int flags) override;

 private:
  std::mutex mMutex;
  std::map<std::string, int> mClasses;  // guarded by mMutex
  Failure mFailure = Failure::None;     // guarded by mMutex
};
