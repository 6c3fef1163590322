// Fuzzes whole game sessions: the input is decoded into the feature's
// configuration and then a sequence of framework events on the virtual
// clock — triggers of any id, value and component (the handled ids
// included), time passing (periodic rounds, meter completions), extra
// periodic calls at arbitrary times, meter readings of any float (NaN,
// infinities, negatives) and faults of the platform and framework. The
// feature is libgorv.so loaded through the class registry and driven by the
// host framework's stepped runner, as in the end-to-end tests.
//
// After each input: nothing crashed, no exception reached the framework, the
// effects kept the rules of SessionChecker, no perf lock is held once an
// accepted stop has ended the session, and none once the feature is gone.
#include <android/log.h>
#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <exception>
#include <limits>
#include <string>

#include "fuzz/SessionChecker.h"
#include "fuzz/SessionWorld.h"
#include "host/framework/SteppedRunner.h"
#include "host/platform/HostEnv.h"

namespace {

constexpr int32_t kStart = 4097;
constexpr int32_t kStop = 4098;
constexpr int32_t kHandledIds[] = {4097, 4098, 4099, 4100, 4221, 4222};
constexpr int32_t kFpsHint = 4221;
constexpr const char* kGameComponent = "com.example.game/.Main";
constexpr int kMaxSteps = 200;
// Virtual time with periodic rounds running, per input: 50 rounds, enough
// to fill the history several times over and move the lock both ways.
constexpr int64_t kRoundBudgetMs = 10000;
// Virtual time stays far below the 24.8 days at which a timer's checked
// millisecond accumulator ends the process by design.
constexpr int64_t kMaxMs = int64_t{1} << 30;

// Every line the plug-in logs goes out at error priority under one tag.
void CheckLogLine(const __android_logger_data* data, const char* message) {
  if (data->priority != ANDROID_LOG_ERROR || data->tag == nullptr ||
      std::strcmp(data->tag, "ANDR-PERF-LM") != 0 || message == nullptr) {
    SessionChecker::Fail(std::string("log line off the plug-in's format: ") +
                         (message != nullptr ? message : "(null)"));
  }
}

FeatureInfo DecodeConfiguration(FuzzedDataProvider& input, SessionWorld& world) {
  if (input.ConsumeIntegralInRange(0, 15) == 0) {
    world.SetEnabledProperty(input.PickValueInArray({"false", "TRUE", "true ", ""}));
  }
  world.SetTraceProperty(input.PickValueInArray({"", "1", "0", "10"}));
  FeatureInfo info;
  info.name = "GORV";
  switch (input.ConsumeIntegralInRange(0, 3)) {
    case 0:
      info.meterInfos = {{"Fps", {}}};
      break;
    case 1:
      break;  // no meters at all
    case 2:
      info.meterInfos = {{"Fps", {}}, {"Fps", {}}, {"Gpu", {}}};
      break;
    default:
      info.meterInfos = {{"Gpu", {}}, {"fps", {}}, {"Fps ", {}}};
      break;
  }
  if (input.ConsumeIntegralInRange(0, 3) == 0) {
    info.ignoreList.push_back(input.ConsumeRandomLengthString(12));
  }
  return info;
}

std::string DecodeComponent(FuzzedDataProvider& input) {
  switch (input.ConsumeIntegralInRange(0, 6)) {
    case 0:
      return kGameComponent;
    case 1:
      return SessionWorld::kGame;
    case 2:
      return std::string(SessionWorld::kGame) + "/";
    case 3:
      return "com.example.mail/.Inbox";
    case 4:
      return "";
    case 5:
      return "/";
    default:
      return input.ConsumeRandomLengthString(24);
  }
}

AsyncTriggerPayload DecodeTrigger(FuzzedDataProvider& input) {
  AsyncTriggerPayload payload;
  payload.triggerId =
      input.ConsumeBool() ? input.PickValueInArray(kHandledIds) : input.ConsumeIntegral<int32_t>();
  switch (input.ConsumeIntegralInRange(0, 2)) {
    case 0:
      payload.triggerValue = input.ConsumeIntegralInRange(-2, 3);
      break;
    case 1:
      payload.triggerValue = input.ConsumeIntegralInRange(0, 200);
      break;
    default:
      payload.triggerValue = input.ConsumeIntegral<int32_t>();
      break;
  }
  payload.component = DecodeComponent(input);
  return payload;
}

float DecodeFrameRate(FuzzedDataProvider& input) {
  constexpr float kInf = std::numeric_limits<float>::infinity();
  switch (input.ConsumeIntegralInRange(0, 2)) {
    case 0:
      return input.PickValueInArray({std::numeric_limits<float>::quiet_NaN(), kInf, -kInf, 0.0f,
                                     -0.0f, -1.0f, std::numeric_limits<float>::denorm_min(),
                                     std::numeric_limits<float>::max(), 15.0f, 21.0f, 145.0f,
                                     145.5f});
    case 1:
      return input.ConsumeFloatingPointInRange(-10.0f, 300.0f);
    default: {
      uint32_t bits = input.ConsumeIntegral<uint32_t>();
      float fps = 0.0f;
      std::memcpy(&fps, &bits, sizeof fps);
      return fps;
    }
  }
}

// Lets virtual time pass: rounds, meter completions and scheduled work run.
// Long idle stretches only while no periodic round is pending, and at most
// `roundBudgetMs` of virtual time with rounds running over the whole input:
// a few hundred rounds reach every state of the history and the lock, and
// an input that asked for hours of play would cost seconds of fuzzing.
void Advance(FuzzedDataProvider& input, SteppedRunner& runner, int64_t& roundBudgetMs) {
  int64_t by = 0;
  switch (input.ConsumeIntegralInRange(0, 3)) {
    case 0:
      break;
    case 1:
      by = input.ConsumeIntegralInRange<int64_t>(1, 250);
      break;
    case 2:
      by = input.ConsumeIntegralInRange<int64_t>(250, 5000);
      break;
    default:
      by = runner.PendingRoundMs() ? input.ConsumeIntegralInRange<int64_t>(5000, 60000)
                                   : input.ConsumeIntegralInRange<int64_t>(5000, 100000000);
      break;
  }
  if (runner.PendingRoundMs()) {
    by = std::min(by, roundBudgetMs);
    roundBudgetMs -= by;
  }
  if (runner.NowMs() + by <= kMaxMs) runner.RunUntil(runner.NowMs() + by);
}

void Fault(FuzzedDataProvider& input, SessionWorld& world, SteppedRunner& runner,
           SessionChecker& checker) {
  switch (input.ConsumeIntegralInRange(0, 6)) {
    case 0:
      world.SetNodesPresent(input.ConsumeBool());
      break;
    case 1:
      gorv::HostEnv::Get().SetPerfLockFailure(input.ConsumeBool(),
                                              input.PickValueInArray({-1, 0, -22}));
      break;
    case 2:
      runner.meters().SetStartFailure(input.ConsumeBool());
      break;
    case 3:
      world.SetLocatorFailure(
          input.PickValueInArray({HostLocator::Failure::None, HostLocator::Failure::StdException,
                                  HostLocator::Failure::OtherException}));
      break;
    case 4:
      world.SetGameClass(input.PickValueInArray({2, 0, 1, 3, -1}));
      break;
    case 5: {
      int32_t pid =
          input.PickValueInArray<int32_t>({4242, -1, 0, 1, 777, std::numeric_limits<int32_t>::max(),
                                           std::numeric_limits<int32_t>::min()});
      checker.AllowPid(pid);
      world.SetGamePid(pid);
      break;
    }
    default:
      gorv::HostEnv::Get().SetTraceAlwaysTagEnabled(input.ConsumeBool());
      break;
  }
}

void Act(FuzzedDataProvider& input, SessionWorld& world, SteppedRunner& runner,
         SessionChecker& checker) {
  switch (input.ConsumeIntegralInRange(0, 9)) {
    case 0:
    case 1:
    case 2:
    case 3: {
      AsyncTriggerPayload payload = DecodeTrigger(input);
      if (payload.triggerId == kFpsHint) checker.AllowHint(payload.triggerValue);
      runner.TriggerNow(std::move(payload));
      break;
    }
    case 4:
      world.SetFrameRate(DecodeFrameRate(input));
      break;
    case 5:
      runner.meters().SetLatency(std::chrono::milliseconds(input.ConsumeIntegralInRange(0, 2000)));
      break;
    case 6:
      // The framework's periodic thread calls once more, at any moment.
      if (runner.feature() != nullptr) runner.feature()->runAsyncPeriodic(std::atomic<bool>{true});
      break;
    default:
      Fault(input, world, runner, checker);
      break;
  }
}

bool Ignored(const FeatureInfo& info, const std::string& component) {
  for (const std::string& entry : info.ignoreList) {
    if (component.find(entry) != std::string::npos) return true;
  }
  return false;
}

void RunSession(FuzzedDataProvider& input, SessionWorld& world, SessionChecker& checker) {
  FeatureInfo info = DecodeConfiguration(input, world);
  SteppedRunner runner(std::chrono::milliseconds(input.ConsumeIntegralInRange(0, 1000)));
  runner.Adopt(world.CreateFeature(info));
  if (input.ConsumeBool()) {
    AsyncTriggerPayload start;
    start.triggerId = kStart;
    start.component = kGameComponent;
    runner.TriggerNow(start);
  }
  int64_t roundBudgetMs = kRoundBudgetMs;
  for (int step = 0; step < kMaxSteps && input.remaining_bytes() > 0; ++step) {
    Advance(input, runner, roundBudgetMs);
    Act(input, world, runner, checker);
  }
  // The game leaves the foreground in a healthy world; unless the ignore list
  // hides it, the stop is accepted and the session is over.
  world.SetLocatorFailure(HostLocator::Failure::None);
  world.SetGameClass(2);
  AsyncTriggerPayload stop;
  stop.triggerId = kStop;
  stop.component = kGameComponent;
  runner.TriggerNow(stop);
  runner.RunUntil(runner.NowMs() + 1000);
  if (!Ignored(info, kGameComponent)) checker.ExpectNoLockHeld("after the session stopped");
  runner.DestroyFeature();
  checker.ExpectNoLockHeld("after the feature was destroyed");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  SessionWorld::Get();
  __android_log_set_logger(CheckLogLine);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider input(data, size);
  SessionWorld& world = SessionWorld::Get();
  world.Reset();
  SessionChecker checker;
  checker.AllowPid(4242);
  try {
    RunSession(input, world, checker);
  } catch (const std::exception& e) {
    SessionChecker::Fail(std::string("exception reached the framework: ") + e.what());
  } catch (...) {
    SessionChecker::Fail("exception of unknown type reached the framework");
  }
  return 0;
}
