// A plug-in that misbehaves on purpose, for the simulator's tests of how a
// run ends: registered under "GORV" as libgorv.so is, chosen with
// GORV_PLUGIN. On each trigger it does what the property rogue.on_trigger
// says: "throw" throws a std::runtime_error, "throw-int" throws an int,
// "segv" raises SIGSEGV; "hang" never returns; "descriptors" logs what its process's descriptors
// above the standard streams are ("descriptors: pipe memfd:NAME ..."), for
// the tests of what a run's process inherits; anything else does nothing.
#include <android-base/properties.h>
#include <log/log.h>
#include <unistd.h>

#include <climits>
#include <csignal>
#include <mutex>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>

#include "framework/Feature.h"

namespace {

// Each open descriptor above 2 by kind, sorted: a memory file's name,
// "other" or "pipe".
std::string DescribeDescriptors() {
  std::multiset<std::string> kinds;
  for (int fd = STDERR_FILENO + 1; fd < 1024; ++fd) {
    char target[PATH_MAX] = {};
    std::string link = "/proc/self/fd/" + std::to_string(fd);
    if (readlink(link.c_str(), target, sizeof(target) - 1) < 0) continue;
    std::string what = target;
    if (what.rfind("pipe:", 0) == 0) what = "pipe";
    if (what.rfind("/memfd:", 0) != 0 && what != "pipe") what = "other";
    kinds.insert(what);
  }
  std::string text;
  for (const std::string& kind : kinds) text += " " + kind;
  return text;
}

class RogueFeature : public Feature {
 public:
  explicit RogueFeature(FeatureInfo info) : Feature(std::move(info)) {}
  void runAsync(AsyncTriggerPayload /*payload*/) override {
    std::string action = android::base::GetProperty("rogue.on_trigger", "");
    if (action == "throw") throw std::runtime_error("the rogue refuses its trigger");
    if (action == "throw-int") throw 42;
    if (action == "segv") std::raise(SIGSEGV);
    while (action == "hang") pause();
    if (action == "descriptors") {
      __android_log_print(ANDROID_LOG_INFO, "ROGUE", "descriptors:%s",
                          DescribeDescriptors().c_str());
    }
  }
  void runAsyncPeriodic(std::atomic<bool> const& /*stop*/) override {}
};

Feature* CreateRogue(FeatureInfo info) { return new RogueFeature(std::move(info)); }

}  // namespace

// Registered as the real plug-in registers itself, when the library loads.
__attribute__((constructor)) static void RegisterRogue() {
  std::lock_guard<std::mutex> lock(FeatureRegistry::mMutex);
  if (FeatureRegistry::classList == nullptr)
    FeatureRegistry::classList = new FeatureRegistry::Map();
  FeatureRegistry::classList->emplace("GORV", &CreateRogue);
}
