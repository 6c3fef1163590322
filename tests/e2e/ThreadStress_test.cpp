// The plug-in under the framework's three threads at once: a trigger thread
// fed with random triggers for several packages, a periodic thread calling
// every millisecond and a meter thread finishing meters with random frame
// rates. Run it under ThreadSanitizer to check the locking; every build
// checks the outcome.
#include <gtest/gtest.h>

#include <limits>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "host/framework/FeatureRunner.h"
#include "host/framework/FrameRateSource.h"
#include "host/framework/HostLocator.h"
#include "host/framework/HostProcesses.h"
#include "host/platform/HostEnv.h"
#include "tests/support/GameWorld.h"
#include "tests/support/LogCapture.h"

namespace {

constexpr int kTriggers = 100000;

// Frame rates drawn at random from every band and beyond (NaN included),
// whichever thread asks.
void UseRandomFrameRates() {
  FrameRateSource::Get().SetFunction([](std::chrono::nanoseconds) {
    constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
    static const float kRates[] = {0.0f,  -5.0f, 14.0f,  24.0f,  30.0f,  44.0f, 59.0f,
                                   61.0f, 90.0f, 118.0f, 144.0f, 200.0f, kNaN};
    thread_local std::mt19937 random(7);
    return kRates[random() % (sizeof(kRates) / sizeof(kRates[0]))];
  });
}

// Posts kTriggers random triggers for games, non-games and unknown
// packages, then a stop for the game; adds each hinted frame rate to
// `allowed`, the values the fps node may hold.
void PostRandomTriggers(FeatureRunner& runner, std::set<std::string>& allowed) {
  const std::vector<std::string> components = {GameWorld::kGameComponent, "com.example.racer",
                                               "com.example.racer/.Race", GameWorld::kMail,
                                               "com.example.unknown/.Main"};
  const int ids[] = {4097, 4098, 4099, 4100, 4221, 4222, 4222, 1};
  std::mt19937 random(1234);
  for (int i = 0; i < kTriggers; ++i) {
    int id = ids[random() % 8];
    int value = id == 4222 ? static_cast<int>(random() % 3) : static_cast<int>(random() % 160) - 10;
    if (id == 4221 && value >= 1) allowed.insert(std::to_string(value));
    runner.Post(GameWorld::Trigger(id, components[random() % components.size()], value));
  }
  runner.Post(GameWorld::Trigger(4098, GameWorld::kGameComponent));
}

// Many locks taken and fps writes made, each a bucket or a hinted value.
void ExpectEffectsWithin(const std::set<std::string>& allowed) {
  int acquired = 0;
  for (const gorv::HostEvent& call : gorv::HostEnv::Get().PerfLockCalls()) {
    acquired += call.kind == gorv::HostEvent::Kind::PerfLockAcquire;
  }
  EXPECT_GT(acquired, 100);
  int fpsWrites = 0;
  for (const gorv::HostEvent& write : gorv::HostEnv::Get().NodeWrites()) {
    if (write.name != "/sys/kernel/sched_penalty/parameters/fps") continue;
    ++fpsWrites;
    EXPECT_TRUE(allowed.count(write.text)) << "unexpected fps node value " << write.text;
  }
  EXPECT_GT(fpsWrites, 100);
}

TEST(ThreadStressTest, RandomTriggersAgainstThePeriodicAndMeterThreads) {
  GameWorld world;
  LogCapture logs;  // also keeps 100 000 lines off stderr
  HostLocator::Get().SetClass("com.example.racer", 2);
  HostProcesses::Get().UseTable({{GameWorld::kGame, 4242}, {"com.example.racer", 4343}});
  UseRandomFrameRates();
  std::set<std::string> allowed = {"0", "20", "25", "30", "35", "40", "60", "90", "120", "144"};
  {
    FeatureRunner runner(std::chrono::milliseconds(1), world.CreateFeature());
    runner.feature()->periodicInterval = 1;
    PostRandomTriggers(runner, allowed);
    runner.WaitUntilIdle();
    // The last stop has been handled: whatever was acquired is released.
    EXPECT_TRUE(gorv::HostEnv::Get().HeldPerfLocks().empty());
    runner.Stop();
  }
  EXPECT_TRUE(gorv::HostEnv::Get().HeldPerfLocks().empty());
  ExpectEffectsWithin(allowed);
  for (const std::string& message : logs.Messages()) {
    EXPECT_EQ(message.find("exception"), std::string::npos) << message;
  }
}

}  // namespace
