// The host framework: the order in which the stepped runner calls a feature
// (the simulator and the end-to-end tests read their timelines from it), the
// threaded runner's threads, the meter services, the locator, the process
// lookup and the plug-in loader's errors. A probe feature logs every call.
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "framework/AsyncEvent.h"
#include "framework/MetaMeter.h"
#include "host/framework/FeatureRunner.h"
#include "host/framework/FrameRateSource.h"
#include "host/framework/HostLocator.h"
#include "host/framework/HostProcesses.h"
#include "host/framework/PluginLoader.h"
#include "host/framework/SteppedRunner.h"
#include "host/platform/HostEnv.h"

namespace {

using std::chrono::milliseconds;

enum Trigger { kStart = 1, kStop = 2, kMeasure = 3 };

int64_t NowMs() {
  return std::chrono::duration_cast<milliseconds>(
             gorv::HostEnv::Get().NowMonotonic().time_since_epoch())
      .count();
}

// What a probe saw, in order, with the thread it ran on. Thread-safe.
class CallLog {
 public:
  void Add(const std::string& line) {
    std::lock_guard<std::mutex> lock(mMutex);
    mLines.push_back(line);
    mThreads.push_back(std::this_thread::get_id());
    mChanged.notify_all();
  }
  std::vector<std::string> Lines() {
    std::lock_guard<std::mutex> lock(mMutex);
    return mLines;
  }
  // Waits (bounded, so that a broken runner fails instead of hanging) until
  // `count` lines start with `prefix`; returns the thread of the last one.
  std::thread::id WaitFor(const std::string& prefix, size_t count) {
    std::unique_lock<std::mutex> lock(mMutex);
    std::thread::id last;
    bool reached = mChanged.wait_for(lock, std::chrono::seconds(20), [&] {
      size_t seen = 0;
      for (size_t i = 0; i < mLines.size(); ++i) {
        if (mLines[i].rfind(prefix, 0) == 0 && ++seen == count) last = mThreads[i];
      }
      return seen >= count;
    });
    EXPECT_TRUE(reached) << "waiting for " << count << " x " << prefix;
    return last;
  }

 private:
  std::mutex mMutex;
  std::condition_variable mChanged;
  std::vector<std::string> mLines;
  std::vector<std::thread::id> mThreads;
};

class ProbeMeter : public MetaMeter {
 public:
  ProbeMeter(Feature& feature, CallLog& log)
      : MetaMeter(feature.featureInfo, feature.featureState), mLog(log) {}
  bool writeToDataBase(std::vector<Meter*> meters) override {
    std::string line = "meters@" + std::to_string(NowMs());
    for (Meter* meter : meters) {
      line += " " + meter->name;
      if (auto* fps = dynamic_cast<FpsMeter*>(meter)) line += "=" + std::to_string(fps->getFps());
    }
    mLog.Add(line);
    if (onDeliver) onDeliver();
    return true;
  }
  std::function<void()> onDeliver;

 private:
  CallLog& mLog;
};

// Trigger 1 starts a session (meters, periodic work), 2 stops it, 3 only
// runs the meters.
class ProbeFeature : public Feature {
 public:
  ProbeFeature(FeatureInfo info, CallLog& log) : Feature(std::move(info)), mLog(log) {
    metaMeter = new ProbeMeter(*this, log);
    periodicInterval = 200;
    periodicEnabled = true;
  }
  ~ProbeFeature() override {
    delete metaMeter;
    mLog.Add("destroyed");
  }
  void runAsync(AsyncTriggerPayload payload) override {
    mLog.Add("trigger " + std::to_string(payload.triggerId) + "@" + std::to_string(NowMs()));
    if (payload.triggerId != kStop) metaMeter->handleAsync(payload);
    if (payload.triggerId == kMeasure) return;
    {
      std::lock_guard<std::mutex> lock(periodicMutex);
      periodicActive = payload.triggerId == kStart;
    }
    periodicWake.notify_all();
  }
  void runAsyncPeriodic(std::atomic<bool> const& /*stop*/) override {
    mLog.Add("round@" + std::to_string(NowMs()));
  }
  ProbeMeter& meter() { return *static_cast<ProbeMeter*>(metaMeter); }

 private:
  CallLog& mLog;
};

FeatureInfo ProbeInfo() {
  FeatureInfo info;
  info.name = "PROBE";
  info.meterInfos = {{"Cpu", {}}, {"Fps", {}}, {"Fps ", {}}};
  return info;
}

AsyncTriggerPayload Payload(int id) {
  AsyncTriggerPayload payload;
  payload.triggerId = id;
  return payload;
}

class HostFrameworkTest : public ::testing::Test {
 protected:
  void SetUp() override {
    gorv::HostEnv::Get().Reset();
    HostLocator::SetCurrent(&HostLocator::Get());
    HostLocator::Get().Clear();
    // The frame rate is the virtual time in tenths of a second.
    FrameRateSource::Get().SetFunction(
        [](std::chrono::nanoseconds now) { return static_cast<float>(now / milliseconds(100)); });
  }
  void TearDown() override { FrameRateSource::Get().SetConstant(0.0f); }

  ProbeFeature* Adopt(SteppedRunner& runner) {
    auto* feature = new ProbeFeature(ProbeInfo(), mLog);
    runner.Adopt(feature);
    return feature;
  }

  CallLog mLog;
};

TEST_F(HostFrameworkTest, SteppedOrderAtOneInstantIsFaultsTriggersMetersThenTheRound) {
  SteppedRunner runner(milliseconds(200));
  Adopt(runner);
  runner.ScheduleTrigger(0, Payload(kStart));
  runner.ScheduleTrigger(200, Payload(kMeasure));
  runner.ScheduleTrigger(200, Payload(kMeasure));
  runner.ScheduleAction(200, [this] { mLog.Add("fault@" + std::to_string(NowMs())); });
  runner.RunUntil(400);
  EXPECT_EQ(mLog.Lines(),
            (std::vector<std::string>{"trigger 1@0", "fault@200", "trigger 3@200", "trigger 3@200",
                                      "meters@200 Cpu Fps=2.000000 Fps ", "round@200",
                                      "meters@400 Cpu Fps=4.000000 Fps ",
                                      "meters@400 Cpu Fps=4.000000 Fps ", "round@400"}));
  EXPECT_EQ(runner.NowMs(), 400);
  EXPECT_EQ(NowMs(), 400);
}

TEST_F(HostFrameworkTest, SteppedRoundsFollowPeriodicActiveAndTheInterval) {
  SteppedRunner runner;
  ProbeFeature* feature = Adopt(runner);
  runner.ScheduleTrigger(0, Payload(kStart));
  // The feature changes its interval; the round after the next uses it.
  runner.ScheduleAction(300, [feature] { feature->periodicInterval = 50; });
  runner.ScheduleTrigger(470, Payload(kStop));
  runner.RunUntil(2000);
  // The round due at 500 while inactive does not run and schedules nothing.
  EXPECT_FALSE(runner.PendingRoundMs().has_value());
  // A feature that has not enabled periodic work gets no rounds.
  feature->periodicEnabled = false;
  runner.ScheduleTrigger(2100, Payload(kStart));
  runner.RunUntil(3000);
  EXPECT_FALSE(runner.PendingRoundMs().has_value());
  std::vector<std::string> rounds;
  for (const std::string& line : mLog.Lines()) {
    if (line.rfind("round", 0) == 0) rounds.push_back(line);
  }
  EXPECT_EQ(rounds, (std::vector<std::string>{"round@200", "round@400", "round@450"}));
}

TEST_F(HostFrameworkTest, SteppedMetersFinishAfterTheirLatencyEachRunOnItsOwn) {
  SteppedRunner runner(milliseconds(150));
  Adopt(runner);
  runner.ScheduleTrigger(0, Payload(kMeasure));
  runner.ScheduleTrigger(100, Payload(kMeasure));
  runner.ScheduleAction(120, [&runner] { runner.meters().SetLatency(milliseconds(10)); });
  runner.ScheduleTrigger(130, Payload(kMeasure));
  runner.RunUntil(1000);
  EXPECT_EQ(mLog.Lines(),
            (std::vector<std::string>{
                "trigger 3@0", "trigger 3@100", "trigger 3@130", "meters@140 Cpu Fps=1.000000 Fps ",
                "meters@150 Cpu Fps=1.000000 Fps ", "meters@250 Cpu Fps=2.000000 Fps "}));

  // Destroying the feature drops the runs under way: no call reaches it
  // afterwards.
  runner.TriggerNow(Payload(kMeasure));
  runner.DestroyFeature();
  EXPECT_EQ(runner.feature(), nullptr);
  runner.ScheduleTrigger(1100, Payload(kStart));
  runner.RunUntil(2000);
  EXPECT_EQ(mLog.Lines().back(), "destroyed");
}

TEST_F(HostFrameworkTest, ThreadedRunnerUsesItsOwnThreadsAndNeverBlocksOnTheMeterThread) {
  std::mutex gateMutex;
  std::condition_variable gateChanged;
  bool gateOpen = false;
  auto* feature = new ProbeFeature(ProbeInfo(), mLog);
  feature->periodicInterval = 1;
  // The first delivery holds the meter thread until the test opens the gate.
  feature->meter().onDeliver = [&] {
    std::unique_lock<std::mutex> lock(gateMutex);
    gateChanged.wait(lock, [&] { return gateOpen; });
  };
  {
    FeatureRunner runner(milliseconds(0), feature);
    runner.Post(Payload(kMeasure));
    std::thread::id meterThread = mLog.WaitFor("meters@", 1);
    // With the meter thread busy, more triggers still start their meters.
    runner.Post(Payload(kMeasure));
    runner.Post(Payload(kStart));
    runner.WaitUntilIdle();
    std::thread::id triggerThread = mLog.WaitFor("trigger ", 3);
    {
      std::lock_guard<std::mutex> lock(gateMutex);
      gateOpen = true;
    }
    gateChanged.notify_all();
    EXPECT_EQ(mLog.WaitFor("meters@", 3), meterThread);
    std::thread::id periodicThread = mLog.WaitFor("round@", 3);
    EXPECT_NE(triggerThread, std::this_thread::get_id());
    EXPECT_NE(meterThread, triggerThread);
    EXPECT_NE(periodicThread, triggerThread);
    EXPECT_NE(periodicThread, meterThread);

    runner.Stop();
    EXPECT_EQ(runner.feature(), nullptr);
    EXPECT_EQ(mLog.Lines().back(), "destroyed");
    runner.Stop();
  }
  std::vector<std::string> triggers;
  for (const std::string& line : mLog.Lines()) {
    if (line.rfind("trigger", 0) == 0) triggers.push_back(line.substr(0, 9));
  }
  EXPECT_EQ(triggers, (std::vector<std::string>{"trigger 3", "trigger 3", "trigger 1"}));
}

TEST_F(HostFrameworkTest, MeterServicesLocatorAndProcesses) {
  // Meters need a service, and a service can fail.
  auto feature = std::make_unique<ProbeFeature>(ProbeInfo(), mLog);
  EXPECT_FALSE(feature->meter().handleAsync(Payload(kMeasure)));
  {
    SteppedRunner runner;
    EXPECT_TRUE(feature->meter().handleAsync(Payload(kMeasure)));
    runner.meters().SetStartFailure(true);
    EXPECT_THROW(feature->meter().handleAsync(Payload(kMeasure)), std::runtime_error);
  }
  EXPECT_EQ(feature->featureState.asyncEventsHandled, 3);
  EXPECT_EQ(feature->featureState.featureName, "PROBE");

  // The classifier answers under "AppClassifier" only; the failures are
  // the two kinds of exception; a feature gets the current locator.
  HostLocator& locator = HostLocator::Get();
  locator.SetClass("com.example.game", 2);
  std::string classifier = "AppClassifier";
  std::string other = "Other";
  std::string game = "com.example.game";
  featureData out;
  locator.getData(classifier, game, out, 0);
  EXPECT_EQ(out.value, 2);
  locator.getData(other, game, out, 0);
  EXPECT_EQ(out.value, 0);
  locator.SetFailure(HostLocator::Failure::StdException);
  EXPECT_THROW(locator.getData(classifier, game, out, 0), std::runtime_error);
  locator.SetFailure(HostLocator::Failure::OtherException);
  EXPECT_THROW(locator.getData(classifier, game, out, 0), int);
  locator.Clear();  // no classes, no failure
  locator.getData(classifier, game, out, 0);
  EXPECT_EQ(out.value, 0);
  EXPECT_EQ(feature->locator, &locator);
  HostLocator::SetCurrent(nullptr);
  EXPECT_EQ(ProbeFeature(ProbeInfo(), mLog).locator, nullptr);

  // Processes are found by the first argument of their command line: in a
  // table, in a /proc-like tree, or by default in the real /proc.
  std::filesystem::path proc =
      std::filesystem::temp_directory_path() / ("gorv-proc-" + std::to_string(getpid()));
  auto process = [&proc](const std::string& pid, const std::string& cmdline) {
    std::filesystem::create_directories(proc / pid);
    std::ofstream(proc / pid / "cmdline", std::ios::binary) << cmdline;
  };
  process("self", std::string("com.example.game\0", 17));
  process("12", std::string("com.example.game.helper\0--x\0", 28));
  process("17", std::string("com.example\0game\0", 17));
  process("31", std::string("com.example.game\0--child\0", 25));
  process("40", "");
  EXPECT_EQ(HostProcesses::ScanProc(proc.string(), "com.example.game"), 31);
  EXPECT_EQ(HostProcesses::ScanProc(proc.string(), "com.example"), 17);
  EXPECT_EQ(HostProcesses::ScanProc(proc.string(), "com.example.game.h"), -1);
  EXPECT_EQ(HostProcesses::ScanProc(proc.string(), "game"), -1);
  EXPECT_EQ(HostProcesses::ScanProc(proc.string(), ""), -1);
  EXPECT_EQ(HostProcesses::ScanProc((proc / "missing").string(), "com.example.game"), -1);
  std::filesystem::remove_all(proc);

  // A child named after a package: cat, echoing what the test writes to it.
  // Once the echo is back, the child has exec'd and /proc shows its
  // command line.
  std::string package = "com.example.probe" + std::to_string(getpid());
  int input[2];
  int output[2];
  ASSERT_EQ(pipe(input), 0);
  ASSERT_EQ(pipe(output), 0);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, input[0], STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
  for (int fd : {input[0], input[1], output[0], output[1]}) {
    posix_spawn_file_actions_addclose(&actions, fd);
  }
  char* argv[] = {package.data(), nullptr};
  pid_t child = -1;
  ASSERT_EQ(posix_spawn(&child, "/bin/cat", &actions, nullptr, argv, nullptr), 0);
  posix_spawn_file_actions_destroy(&actions);
  char echo = 'x';
  ASSERT_EQ(write(input[1], &echo, 1), 1);
  ASSERT_EQ(read(output[0], &echo, 1), 1);
  EXPECT_EQ(AsyncEvent::getPid(package), child);
  HostProcesses::Get().UseTable({{game, 4242}});
  EXPECT_EQ(AsyncEvent::getPid(game), 4242);
  EXPECT_EQ(AsyncEvent::getPid(package), -1);
  HostProcesses::Get().UseProc();
  EXPECT_EQ(AsyncEvent::getPid(package), child);
  for (int fd : {input[0], input[1], output[0], output[1]}) close(fd);
  waitpid(child, nullptr, 0);
}

// The registry's factory signature takes the record by value.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
Feature* NullFactory(FeatureInfo) { return nullptr; }

TEST_F(HostFrameworkTest, LoaderErrorsSayWhatIsMissing) {
  std::string error;
  EXPECT_FALSE(PluginLoader::Load("/nonexistent/libnothing.so", &error));
  EXPECT_EQ(error.rfind("cannot load /nonexistent/libnothing.so: ", 0), 0u) << error;
  EXPECT_NE(error.find("No such file or directory"), std::string::npos) << error;

  EXPECT_EQ(PluginLoader::Create("NOPE", ProbeInfo(), &error), nullptr);
  EXPECT_EQ(error, "no feature registered under \"NOPE\"");
  {
    std::lock_guard<std::mutex> lock(FeatureRegistry::mMutex);
    if (FeatureRegistry::classList == nullptr)
      FeatureRegistry::classList = new FeatureRegistry::Map();
    (*FeatureRegistry::classList)["NULL"] = &NullFactory;
  }
  EXPECT_EQ(PluginLoader::Create("NULL", ProbeInfo(), &error), nullptr);
  EXPECT_EQ(error, "the factory of \"NULL\" returned null");
}

}  // namespace
