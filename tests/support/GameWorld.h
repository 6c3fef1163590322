// The world an end-to-end test runs the plug-in in: the loaded libgorv.so,
// system properties, the classifier and process tables, the frame-rate
// source and a temporary sysfs root. Each test gets a fresh world.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "framework/Feature.h"
#include "tests/support/TempSysfsRoot.h"

class GameWorld {
 public:
  static constexpr const char* kGame = "com.example.game";
  static constexpr const char* kGameComponent = "com.example.game/.Main";
  static constexpr int kGamePid = 4242;
  static constexpr const char* kMail = "com.example.mail";

  // Loads libgorv.so once per process (failing the test if it cannot be),
  // resets the host platform and framework, enables the feature, classifies
  // kGame as a game (pid kGamePid) and kMail as not, and sets the frame
  // rate to 60.
  GameWorld();
  ~GameWorld();

  // A FeatureInfo as the framework builds it for GORV: one "Fps" meter.
  static FeatureInfo Info();
  // Creates the feature through the registry, as the framework does.
  Feature* CreateFeature(const FeatureInfo& info = Info());

  static AsyncTriggerPayload Trigger(int id, const std::string& component, int value = 0);

  // Every effect on the platform so far, one line each, e.g.
  // "1000 target_pid=4242", "1000 acquire 1", "5000 release 1".
  static std::vector<std::string> Effects();

  TempSysfsRoot& sysfs() { return *mSysfs; }

 private:
  std::unique_ptr<TempSysfsRoot> mSysfs;
};
