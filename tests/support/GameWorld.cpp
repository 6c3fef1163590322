#include "tests/support/GameWorld.h"

#include <android-base/properties.h>
#include <gtest/gtest.h>

#include "host/framework/FrameRateSource.h"
#include "host/framework/HostLocator.h"
#include "host/framework/HostProcesses.h"
#include "host/framework/PluginLoader.h"
#include "host/platform/HostEnv.h"

GameWorld::GameWorld() {
  static const bool loaded = [] {
    std::string error;
    bool ok = PluginLoader::Load(GORV_PLUGIN_PATH, &error);
    EXPECT_TRUE(ok) << error;
    return ok;
  }();
  EXPECT_TRUE(loaded);
  gorv::HostEnv::Get().Reset();
  mSysfs = std::make_unique<TempSysfsRoot>();
  android::base::SetProperty("ro.vendor.perf.gorv", "true");
  android::base::SetProperty("vendor.debug.trace.gorv", "");
  HostLocator::SetCurrent(&HostLocator::Get());
  HostLocator::Get().Clear();
  HostLocator::Get().SetClass(kGame, 2);
  HostLocator::Get().SetClass(kMail, 0);
  HostProcesses::Get().UseTable({{kGame, kGamePid}});
  FrameRateSource::Get().SetConstant(60.0f);
}

GameWorld::~GameWorld() { HostProcesses::Get().UseProc(); }

FeatureInfo GameWorld::Info() { return {"GORV", {}, {}, {}, {}, {{"Fps", {}}}, ""}; }

Feature* GameWorld::CreateFeature(const FeatureInfo& info) {
  std::string error;
  Feature* feature = PluginLoader::Create("GORV", info, &error);
  EXPECT_NE(feature, nullptr) << error;
  return feature;
}

AsyncTriggerPayload GameWorld::Trigger(int id, const std::string& component, int value) {
  AsyncTriggerPayload payload;
  payload.triggerId = id;
  payload.component = component;
  payload.triggerValue = value;
  return payload;
}

std::vector<std::string> GameWorld::Effects() {
  std::vector<std::string> lines;
  for (const gorv::HostEvent& event : gorv::HostEnv::Get().Events()) {
    std::string line = std::to_string(event.timeNs / 1000000) + " ";
    switch (event.kind) {
      case gorv::HostEvent::Kind::NodeWrite:
        line += event.name.substr(event.name.rfind('/') + 1) + "=" + event.text;
        break;
      case gorv::HostEvent::Kind::PerfLockAcquire:
        line += "acquire " + std::to_string(event.handle);
        break;
      case gorv::HostEvent::Kind::PerfLockRelease:
        line += "release " + std::to_string(event.handle);
        break;
      default:
        continue;  // trace events are checked where they matter
    }
    lines.push_back(line);
  }
  return lines;
}
