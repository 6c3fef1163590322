// The host world a session fuzz input runs in: libgorv.so loaded once, as
// the framework loads it, a sysfs root of the process's own, and the
// switches of the host framework and platform that an input may flip
// (properties, classifier, process table, node directory, perf lock, meter
// service, frame rate). Single-threaded.
#pragma once

#include <cstdint>
#include <string>

#include "framework/Feature.h"
#include "host/framework/HostLocator.h"

class SessionWorld {
 public:
  static constexpr const char* kGame = "com.example.game";
  static constexpr const char* kMail = "com.example.mail";

  // Loads the plug-in and makes the sysfs root; aborts when either fails.
  // The root is removed when the fuzzer exits normally.
  static SessionWorld& Get();

  // Back to a healthy world: the feature enabled, tracing off, the game
  // classified 2 with pid 4242, nodes present, perf locks granted, 60 fps.
  // Listeners of HostEnv are dropped.
  void Reset();

  // Creates the feature through the class registry (null when the factory
  // returns null). Exceptions from its constructor propagate.
  Feature* CreateFeature(const FeatureInfo& info);

  void SetEnabledProperty(const std::string& value);
  void SetTraceProperty(const std::string& value);
  void SetGameClass(int appClass);
  void SetGamePid(int32_t pid);
  void SetLocatorFailure(HostLocator::Failure failure);
  void SetNodesPresent(bool present);
  void SetFrameRate(float fps);

 private:
  SessionWorld();
  ~SessionWorld();
  std::string NodeDirectory() const;

  std::string mRoot;
};
