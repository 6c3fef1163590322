// What of the host framework no session notices: the order of calls at one
// instant (which the simulator's timelines are read from), the process scan
// of a /proc-like tree and the plug-in loader's errors.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "framework/MetaMeter.h"
#include "host/framework/HostLocator.h"
#include "host/framework/HostProcesses.h"
#include "host/framework/PluginLoader.h"
#include "host/framework/SteppedRunner.h"
#include "host/platform/HostEnv.h"
#include "tests/support/GameWorld.h"
#include "tests/support/TempFolder.h"

namespace {

using Lines = std::vector<std::string>;

std::string Now() {
  return "@" + std::to_string(gorv::HostEnv::Get().NowMonotonic().time_since_epoch() /
                              std::chrono::milliseconds(1));
}

class ProbeMeter : public MetaMeter {
 public:
  ProbeMeter(Feature& feature, Lines& log)
      : MetaMeter(feature.featureInfo, feature.featureState), mLog(log) {}
  bool writeToDataBase(std::vector<Meter*> meters) override {
    mLog.push_back("meters" + Now() + " " + std::to_string(meters.size()));
    return true;
  }

 private:
  Lines& mLog;
};

// Any trigger starts the meters and the periodic work.
class ProbeFeature : public Feature {
 public:
  explicit ProbeFeature(Lines& log) : Feature(GameWorld::Info()), mLog(log) {
    metaMeter = new ProbeMeter(*this, log);
    periodicInterval = 200;
    periodicEnabled = true;
    periodicActive = true;
  }
  ~ProbeFeature() override {
    delete metaMeter;
    mLog.push_back("destroyed");
  }
  void runAsync(AsyncTriggerPayload payload) override {
    mLog.push_back("trigger " + std::to_string(payload.triggerId) + Now());
    metaMeter->handleAsync(payload);
  }
  void runAsyncPeriodic(std::atomic<bool> const& /*stop*/) override {
    mLog.push_back("round" + Now());
  }

 private:
  Lines& mLog;
};

AsyncTriggerPayload Payload(int id) { return GameWorld::Trigger(id, ""); }

TEST(HostFrameworkTest, SteppedOrderAtOneInstantIsActionsTriggersMetersThenTheRound) {
  gorv::HostEnv::Get().Reset();
  Lines log;
  SteppedRunner runner(std::chrono::milliseconds(200));
  runner.Adopt(new ProbeFeature(log));
  runner.ScheduleTrigger(0, Payload(1));
  runner.ScheduleTrigger(200, Payload(2));
  runner.ScheduleTrigger(200, Payload(3));
  runner.ScheduleAction(200, [&log] { log.push_back("fault" + Now()); });
  runner.RunUntil(400);
  EXPECT_EQ(log, (Lines{"trigger 1@0", "fault@200", "trigger 2@200", "trigger 3@200",
                        "meters@200 1", "round@200", "meters@400 1", "meters@400 1", "round@400"}));
}

TEST(HostFrameworkTest, RoundsFollowTheIntervalAndOnlyAnEnabledFeatureGetsThem) {
  Lines log;
  SteppedRunner runner;
  auto* feature = new ProbeFeature(log);
  runner.Adopt(feature);
  runner.ScheduleTrigger(0, Payload(1));
  // The round after the next uses a new interval.
  runner.ScheduleAction(300, [feature] { feature->periodicInterval = 50; });
  runner.ScheduleAction(480, [feature] { feature->periodicEnabled = false; });
  runner.ScheduleAction(490, [feature] { feature->periodicActive = false; });
  runner.ScheduleAction(600, [feature] { feature->periodicActive = true; });
  runner.ScheduleTrigger(600, Payload(1));
  runner.RunUntil(1000);
  // Destroying the feature drops the meter runs under way.
  runner.TriggerNow(Payload(1));
  runner.DestroyFeature();
  runner.RunUntil(2000);
  EXPECT_EQ(log, (Lines{"trigger 1@0", "meters@50 1", "round@200", "round@400", "round@450",
                        "trigger 1@600", "meters@650 1", "trigger 1@1000", "destroyed"}));
}

TEST(HostFrameworkTest, ProcessesAreFoundByTheFirstArgumentOfTheirCommandLine) {
  TempFolder proc;
  const std::pair<const char*, std::string> processes[] = {
      {"self", std::string("com.example.game\0", 17)},
      {"12", std::string("com.example.game.helper\0--x\0", 28)},
      {"17", std::string("com.example\0game\0", 17)},
      {"31", std::string("com.example.game\0--child\0", 25)},
      {"40", ""}};
  for (const auto& [pid, cmdline] : processes) proc.Write(std::string(pid) + "/cmdline", cmdline);
  const std::pair<const char*, int> lookups[] = {{"com.example.game", 31},
                                                 {"com.example", 17},
                                                 {"com.example.game.h", -1},
                                                 {"game", -1},
                                                 {"", -1}};
  for (const auto& [package, pid] : lookups) {
    EXPECT_EQ(HostProcesses::ScanProc(proc.path(), package), pid) << package;
  }
  EXPECT_EQ(HostProcesses::ScanProc(proc.path() + "/missing", "com.example"), -1);
}

// The registry's factory signature takes the record by value.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
Feature* NullFactory(FeatureInfo) { return nullptr; }

TEST(HostFrameworkTest, LoaderErrorsSayWhatIsMissingAndTheClassifierAnswersUnderItsOwnKeyOnly) {
  HostLocator::Get().Clear();
  std::string game = "com.example.game";
  HostLocator::Get().SetClass(game, 2);
  featureData out;
  for (std::string key : {"AppClassifier", "Other"}) HostLocator::Get().getData(key, game, out, 0);
  EXPECT_EQ(out.value, 0);

  std::string error;
  EXPECT_EQ(PluginLoader::Create("NOPE", GameWorld::Info(), &error), nullptr);
  EXPECT_EQ(error, "no feature registered under \"NOPE\"");
  {
    std::lock_guard<std::mutex> lock(FeatureRegistry::mMutex);
    if (FeatureRegistry::classList == nullptr)
      FeatureRegistry::classList = new FeatureRegistry::Map();
    (*FeatureRegistry::classList)["NULL"] = &NullFactory;
  }
  EXPECT_EQ(PluginLoader::Create("NULL", GameWorld::Info(), &error), nullptr);
  EXPECT_EQ(error, "the factory of \"NULL\" returned null");
}

}  // namespace
