// The host framework: the order in which the stepped runner calls a feature
// (the simulator and the end-to-end tests read their timelines from it), the
// threaded runner's threads, the meter services, the locator, the process
// lookup and the plug-in loader's errors. A probe feature logs every call.
#include <fcntl.h>
#include <gtest/gtest.h>
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

TEST_F(HostFrameworkTest, SteppedRoundsFollowPeriodicActive) {
  SteppedRunner runner;
  ProbeFeature* feature = Adopt(runner);
  runner.ScheduleTrigger(0, Payload(kStart));
  runner.ScheduleTrigger(450, Payload(kStop));
  runner.RunUntil(599);
  EXPECT_EQ(runner.PendingRoundMs(), std::optional<int64_t>(600));
  // The round due while inactive does not run and schedules nothing.
  runner.RunUntil(2000);
  EXPECT_FALSE(runner.PendingRoundMs().has_value());

  // A quick stop and restart keeps the round that was pending.
  runner.ScheduleTrigger(3000, Payload(kStart));
  runner.ScheduleTrigger(3050, Payload(kStop));
  runner.ScheduleTrigger(3100, Payload(kStart));
  // The feature changes its interval; the next round uses it.
  runner.ScheduleAction(3300, [feature] { feature->periodicInterval = 50; });
  runner.RunUntil(3400);

  std::vector<std::string> rounds;
  for (const std::string& line : mLog.Lines()) {
    if (line.rfind("round", 0) == 0) rounds.push_back(line);
  }
  EXPECT_EQ(rounds,
            (std::vector<std::string>{"round@200", "round@400", "round@3200", "round@3400"}));
  EXPECT_EQ(runner.PendingRoundMs(), std::optional<int64_t>(3450));

  // A feature that has not enabled periodic work gets no rounds.
  feature->periodicEnabled = false;
  runner.ScheduleTrigger(3410, Payload(kStop));
  runner.ScheduleTrigger(3500, Payload(kStart));
  runner.RunUntil(5000);
  EXPECT_FALSE(runner.PendingRoundMs().has_value());
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

TEST_F(HostFrameworkTest, MetersNeedAServiceAndAServiceCanFail) {
  auto feature = std::make_unique<ProbeFeature>(ProbeInfo(), mLog);
  EXPECT_FALSE(feature->meter().handleAsync(Payload(kMeasure)));
  SteppedRunner runner;
  EXPECT_TRUE(feature->meter().handleAsync(Payload(kMeasure)));
  runner.meters().SetStartFailure(true);
  EXPECT_THROW(feature->meter().handleAsync(Payload(kMeasure)), std::runtime_error);
  EXPECT_EQ(feature->featureState.asyncEventsHandled, 3);
  EXPECT_EQ(feature->featureState.featureName, "PROBE");
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

TEST_F(HostFrameworkTest, LocatorTableFailuresAndTheFeatureBaseDefault) {
  HostLocator& locator = HostLocator::Get();
  locator.SetClass("com.example.game", 2);
  std::string classifier = "AppClassifier";
  std::string other = "Other";
  std::string game = "com.example.game";
  std::string unknown = "com.example.unknown";
  featureData out;
  out.value = 9;
  locator.getData(classifier, game, out, 0);
  EXPECT_EQ(out.value, 2);
  locator.getData(classifier, unknown, out, 0);
  EXPECT_EQ(out.value, 0);
  out.value = 9;
  locator.getData(other, game, out, 0);
  EXPECT_EQ(out.value, 0);

  locator.SetFailure(HostLocator::Failure::StdException);
  EXPECT_THROW(locator.getData(classifier, game, out, 0), std::runtime_error);
  locator.SetFailure(HostLocator::Failure::OtherException);
  EXPECT_THROW(locator.getData(classifier, game, out, 0), int);
  locator.Clear();
  locator.getData(classifier, game, out, 0);
  EXPECT_EQ(out.value, 0);

  EXPECT_EQ(ProbeFeature(ProbeInfo(), mLog).locator, &locator);
  HostLocator::SetCurrent(nullptr);
  EXPECT_EQ(ProbeFeature(ProbeInfo(), mLog).locator, nullptr);
}

// A process named `name` (cat with that argv[0], reading a pipe) that lives
// as long as the object. The constructor returns once the child has exec'd,
// so /proc shows the new command line.
class ChildProcess {
 public:
  explicit ChildProcess(const std::string& name) {
    int input[2];
    int execd[2];
    if (pipe(input) != 0) return;
    if (pipe2(execd, O_CLOEXEC) != 0) return;
    mPid = fork();
    if (mPid == 0) {
      dup2(input[0], STDIN_FILENO);
      close(input[1]);
      execl("/bin/cat", name.c_str(), static_cast<char*>(nullptr));
      _exit(127);
    }
    close(input[0]);
    close(execd[1]);
    mInput = input[1];
    char byte;
    // End of file: the child has exec'd (the pipe closed on exec).
    while (read(execd[0], &byte, 1) > 0) {
    }
    close(execd[0]);
  }
  ~ChildProcess() {
    if (mInput >= 0) close(mInput);
    if (mPid > 0) waitpid(mPid, nullptr, 0);
  }
  pid_t pid() const { return mPid; }

 private:
  pid_t mPid = -1;
  int mInput = -1;
};

TEST_F(HostFrameworkTest, ProcessesAreFoundByTheirFirstCommandLineArgument) {
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
  EXPECT_EQ(HostProcesses::ScanProc(proc.string(), "game"), -1);
  EXPECT_EQ(HostProcesses::ScanProc(proc.string(), ""), -1);
  EXPECT_EQ(HostProcesses::ScanProc((proc / "missing").string(), "com.example.game"), -1);
  std::filesystem::remove_all(proc);

  // By default the real /proc: a child whose command line is a package
  // name is found.
  std::string package = "com.example.probe" + std::to_string(getpid());
  ChildProcess child(package);
  ASSERT_GT(child.pid(), 0);
  EXPECT_EQ(AsyncEvent::getPid(package), child.pid());
  HostProcesses::Get().UseTable({{"com.example.game", 4242}});
  std::string game = "com.example.game";
  EXPECT_EQ(AsyncEvent::getPid(game), 4242);
  EXPECT_EQ(AsyncEvent::getPid(package), -1);
  HostProcesses::Get().UseProc();
  EXPECT_EQ(AsyncEvent::getPid(package), child.pid());
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
