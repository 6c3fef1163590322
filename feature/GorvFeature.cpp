#include "feature/GorvFeature.h"

#include <array>
#include <charconv>
#include <cstddef>
#include <exception>
#include <new>
#include <utility>

#include "action/GorvAction.h"
#include "data/GorvDataManager.h"
#include "framework/AsyncEvent.h"
#include "framework/FeatureLocator.h"
#include "intervals/GorvIntervalsCounter.h"
#include "meter/GorvMetaMeter.h"
#include "platform/Env.h"
#include "platform/Log.h"

namespace {
constexpr const char* kTag = "GORV_FEATURE";
}  // namespace

GorvFeature::GorvFeature(FeatureInfo info)
    : Feature(std::move(info)),
      mTraceEnabled(false),
      mFpsHintApplied(false),
      mDataManager(nullptr),
      mIntervalsCounter(nullptr),
      mTriggerPayload(),
      mEnabled(false),
      mGameActive(false),
      mFpsHint(-1),
      mAction(nullptr) {
  gorv::Env* env = gorv::Env::Default();
  mEnabled = env->PerfGetProp("ro.vendor.perf.gorv", "false") == "true";
  if (!mEnabled) return;

  char trace[gorv::Env::kPropValueMax] = {};
  if (env->PropertyGet("vendor.debug.trace.gorv", trace, nullptr) >= 1 && trace[0] == '1') {
    mTraceEnabled = true;
  }
  try {
    buildComponents();
  } catch (...) {
    // The destructor does not run for a constructor that throws.
    destroyComponents();
    throw;
  }
}

void GorvFeature::buildComponents() {
  GorvMetaMeter* meter = new (std::nothrow) GorvMetaMeter(*this);
  metaMeter = meter;
  if (meter == nullptr) {
    GORV_LOG(kTag, "GorvFeature", "MetaMeter is not available\n");
    return;
  }
  mIntervalsCounter = new (std::nothrow) GorvIntervalsCounter();
  if (mIntervalsCounter == nullptr) return;
  mDataManager = new (std::nothrow) GorvDataManager(meter, meter->mMeterRequests);
  if (mDataManager == nullptr) return;
  mAction = new (std::nothrow) GorvAction(*this);
  if (mAction == nullptr) return;
  mDataManager->dataRegistryComp(mIntervalsCounter);
  setPeriodicThreadInterval();
  GORV_LOG(kTag, "GorvFeature", "Initialized  %s(rev. %s)", kName, kRevision);
}

GorvFeature::~GorvFeature() {
  periodicEnabled = false;
  destroyComponents();
}

void GorvFeature::destroyComponents() {
  delete metaMeter;
  metaMeter = nullptr;
  delete mIntervalsCounter;
  mIntervalsCounter = nullptr;
  delete mDataManager;
  mDataManager = nullptr;
  delete mAction;
  mAction = nullptr;
}

void GorvFeature::setPeriodicThreadInterval() {
  if (mIntervalsCounter == nullptr) return;
  int32_t interval = mIntervalsCounter->mWakeUpTime;
  periodicInterval.store(interval);
  if (interval >= 0) periodicEnabled = true;
}

void GorvFeature::runAsync(AsyncTriggerPayload payload) {
  if (!mEnabled || mDataManager == nullptr) return;
  // Declared outside the handler so that the handler's reset still runs
  // under the lock; locked inside it, because locking can throw too.
  std::unique_lock<std::mutex> lock(mCoreMutex, std::defer_lock);
  try {
    lock.lock();
    std::string package = payload.component.substr(0, payload.component.find('/'));
    if (isIgnored(payload.component)) return;
    switch (payload.triggerId) {
      case kTriggerStart:
      case kTriggerStartAlt:
        handleStart(payload, package);
        break;
      case kTriggerStop:
      case kTriggerStopAlt:
        handleStop(payload, package);
        break;
      case kTriggerFpsHint:
        handleFpsHint(payload);
        break;
      case kTriggerVendorHintDisable:
        handleVendorHintDisable(payload);
        break;
      default:
        break;
    }
  } catch (const std::exception& e) {
    GORV_LOG(kTag, "runAsync", "Corrupted execution state- exception %s\n", e.what());
    resetAfterFailure(lock);
  } catch (...) {
    GORV_LOG(kTag, "runAsync", "Corrupted execution state - Reseting All\n ");
    resetAfterFailure(lock);
  }
}

bool GorvFeature::isIgnored(const std::string& component) const {
  for (const std::string& entry : featureInfo.ignoreList) {
    if (component.find(entry) != std::string::npos) return true;
  }
  return false;
}

void GorvFeature::handleStart(AsyncTriggerPayload& payload, std::string& package) {
  if (!isGame(package)) return;
  if (mGameActive.load(std::memory_order_acquire)) return;
  adoptPayload(payload, package);
  int32_t pid = getGamePid(package);
  if (pid >= 1) {
    mPidNodePath = kPidNode;
    updateSysNodes(mPidNodePath, pid);
  }
  mGameActive.store(true, std::memory_order_release);
  resetParams();
  if (mAction != nullptr) mAction->applyAction();
  periodicActive.store(true, std::memory_order_release);
  periodicWake.notify_all();
  metaMeter->handleAsync(mTriggerPayload);
  if (mDataManager != nullptr) mDataManager->setTriggerPayload(mTriggerPayload);
}

void GorvFeature::handleStop(AsyncTriggerPayload& payload, std::string& package) {
  if (!isGame(package)) return;
  if (!mGameActive.load(std::memory_order_acquire)) return;
  adoptPayload(payload, package);
  periodicActive.store(false, std::memory_order_release);
  mGameActive.store(false, std::memory_order_release);
  mFpsHintApplied = false;
  mFpsHint = -1;
  if (mAction != nullptr) mAction->reset();
  resetParams();
  // The data manager keeps replaying the last start event.
  metaMeter->handleAsync(mTriggerPayload);
}

void GorvFeature::adoptPayload(AsyncTriggerPayload& payload, std::string& package) {
  mTriggerPayload = payload;
  mTriggerPayload.component = package;
}

void GorvFeature::handleFpsHint(AsyncTriggerPayload& payload) {
  mFpsHint = payload.triggerValue;
  if (mFpsHint < 1) return;
  mFpsNodePath = kFpsNode;
  if (updateSysNodes(mFpsNodePath, mFpsHint) == 0) mFpsHintApplied = true;
}

void GorvFeature::handleVendorHintDisable(AsyncTriggerPayload& payload) {
  if (mAction == nullptr) return;
  int32_t disable = payload.triggerValue;
  std::atomic<bool>& disabled = mAction->mDisabled;
  if (disabled.load(std::memory_order_acquire) && disable == 0) {
    GORV_LOG(kTag, "runAsync", "VENDOR_HINT_DISABLE - true, disable:%d", disable);
    disabled.store(false, std::memory_order_release);
  } else if (!disabled.load(std::memory_order_acquire) && disable == 1) {
    GORV_LOG(kTag, "runAsync", "VENDOR_HINT_DISABLE -false, disable:%d", disable);
    mAction->reset();
    disabled.store(true, std::memory_order_release);
  } else {
    GORV_LOG(kTag, "runAsync", "Invalid VENDOR_HINT_DISABLE value %d", disable);
  }
}

bool GorvFeature::isGame(std::string& package) const {
  std::string key = "AppClassifier";
  featureData result;
  result.value = 0;
  if (locator == nullptr) return false;
  try {
    locator->getData(key, package, result, 0);
    return result.value == kAppClassGame;
  } catch (const std::exception& e) {
    GORV_LOG(kTag, "isGame", "isGame- exception %s\n", e.what());
  } catch (...) {
    GORV_LOG(kTag, "isGame", "isGame-  execution exception\n ");
  }
  return false;
}

int32_t GorvFeature::getGamePid(std::string& package) const {
  int32_t pid = AsyncEvent::getPid(package);
  if (pid < 0) {
    GORV_LOG(kTag, "getGamePid", "Fail to start -Pid is %d for %s\n", pid, package.c_str());
  }
  return pid;
}

void GorvFeature::resetParams() {
  if (mDataManager != nullptr) mDataManager->reset();
  if (mAction != nullptr) mAction->reset();
  // Resets copies of the timers: they keep their phase, so a new session's
  // first analysis follows the running schedule.
  if (mIntervalsCounter != nullptr) mIntervalsCounter->reset();
}

void GorvFeature::resetAfterFailure(const std::unique_lock<std::mutex>& lock) {
  // Without the lock (it is the lock that failed) the other thread may be in
  // the components: they are left alone.
  if (!lock.owns_lock()) return;
  try {
    resetParams();
  } catch (...) {
    // Nothing may reach the framework; the next trigger resets again.
  }
}

void GorvFeature::runAsyncPeriodic(std::atomic<bool> const& /*stop*/) {
  std::unique_lock<std::mutex> lock(mCoreMutex, std::defer_lock);
  try {
    lock.lock();
    if (!mEnabled || !mGameActive.load(std::memory_order_acquire) || mAction == nullptr) {
      GORV_LOG(kTag, "runAsyncPeriodic", "Improper Initialization");
      return;
    }
    runDueTasks();
  } catch (const std::exception& e) {
    resetAfterFailure(lock);
    GORV_LOG(kTag, "runAsyncPeriodic", "runAsyncPeriodic- exception %s\n", e.what());
  } catch (...) {
    resetAfterFailure(lock);
    GORV_LOG(kTag, "runAsyncPeriodic", "runAsyncPeriodic -  execution exception\n ");
  }
  if (lock.owns_lock()) mDueTasks.clear();
}

void GorvFeature::runDueTasks() {
  mIntervalsCounter->syncWakeUpTime(mDueTasks);
  for (const IntervalCallback& task : mDueTasks) {
    IntervalCallback run = task;
    run(nullptr);
  }
}

int32_t GorvFeature::updateSysNodes(std::string& path, int32_t value) const {
  // Room for "-2147483648"; to_chars writes no terminator.
  std::array<char, 12> text{};
  char* end = std::to_chars(text.data(), text.data() + text.size(), value).ptr;
  size_t length = static_cast<size_t>(end - text.data());
  if (gorv::Env::Default()->WriteNode(path, text.data(), length) ==
      gorv::NodeFile::Outcome::kUnopened) {
    GORV_LOG(kTag, "updateSysNodes", "Unable to open %s file", path.c_str());
    return -1;
  }
  // A failed write is left to the kernel log, as a stream's error would be.
  return 0;
}

int32_t GorvFeature::onConfigChanged() { return 0; }

int32_t GorvFeature::getParam(int32_t /*id*/, int32_t /*flags*/, int32_t* out) {
  if (out != nullptr) *out = -1;
  return 0;
}

int32_t GorvFeature::getDefaultParam(int32_t /*id*/, int32_t /*flags*/, int32_t* out) {
  if (out != nullptr) *out = -1;
  return 0;
}

int32_t GorvFeature::onSuspend() { return 0; }

int32_t GorvFeature::onResume() { return 0; }
