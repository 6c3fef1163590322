#include "fuzz/SessionChecker.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace {

constexpr const char* kFpsNode = "/sys/kernel/sched_penalty/parameters/fps";
constexpr const char* kPidNode = "/sys/kernel/sched_penalty/parameters/target_pid";
const std::set<int32_t> kTargets = {0, 20, 25, 30, 35, 40, 60, 90, 120, 144};
const std::vector<int32_t> kLockRequest = {0x44800000, 1};

// The decimal integer that is the whole of `text`.
bool ParseNodeValue(const std::string& text, int32_t* value) {
  if (text.empty()) return false;
  char* end = nullptr;
  errno = 0;
  long parsed = std::strtol(text.c_str(), &end, 10);
  if (errno != 0 || *end != '\0' || parsed < INT32_MIN || parsed > INT32_MAX) return false;
  *value = static_cast<int32_t>(parsed);
  return true;
}

}  // namespace

SessionChecker::SessionChecker()
    : mListener(gorv::HostEnv::Get().AddListener(
          [this](const gorv::HostEvent& event) { OnEffect(event); })) {}

SessionChecker::~SessionChecker() { gorv::HostEnv::Get().RemoveListener(mListener); }

void SessionChecker::ExpectNoLockHeld(const char* when) const {
  if (!mHeld.empty() || !gorv::HostEnv::Get().HeldPerfLocks().empty()) {
    Fail(std::string("a perf lock is still held ") + when);
  }
}

void SessionChecker::Fail(const std::string& what) {
  std::fprintf(stderr, "==gorv-fuzz== %s\n", what.c_str());
  std::abort();
}

void SessionChecker::OnEffect(const gorv::HostEvent& event) {
  switch (event.kind) {
    case gorv::HostEvent::Kind::NodeWrite:
      CheckNode(event);
      break;
    case gorv::HostEvent::Kind::PerfLockAcquire:
      CheckAcquire(event);
      break;
    case gorv::HostEvent::Kind::PerfLockRelease:
      CheckRelease(event);
      break;
    default:
      break;
  }
}

void SessionChecker::CheckNode(const gorv::HostEvent& event) const {
  int32_t value = 0;
  if (!ParseNodeValue(event.text, &value)) {
    Fail("node " + event.name + " received \"" + event.text + "\", not a decimal integer");
  }
  if (event.name == kFpsNode) {
    if (kTargets.count(value) == 0 && mHints.count(value) == 0) {
      Fail("fps node received " + event.text + ", neither a target nor a hint");
    }
  } else if (event.name == kPidNode) {
    if (value < 1 || mPids.count(value) == 0) {
      Fail("pid node received " + event.text + ", not the game's pid");
    }
  } else {
    Fail("write to an unknown node " + event.name);
  }
}

void SessionChecker::CheckAcquire(const gorv::HostEvent& event) {
  if (event.resources != kLockRequest) Fail("perf lock requested with another resource list");
  if (event.handle < 1) return;  // a failed acquisition holds nothing
  if (!mHeld.empty()) {
    Fail("perf lock " + std::to_string(event.handle) + " taken while " +
         std::to_string(*mHeld.begin()) + " is held");
  }
  mHeld.insert(event.handle);
}

void SessionChecker::CheckRelease(const gorv::HostEvent& event) {
  if (mHeld.erase(event.handle) == 0) {
    Fail("perf lock " + std::to_string(event.handle) + " released but not held");
  }
}
