// A plug-in that misbehaves on purpose, for the simulator's tests of how a
// run ends: registered under "GORV" as libgorv.so is, chosen with
// GORV_PLUGIN. On each trigger it does what the property rogue.on_trigger
// says: "throw" throws a std::runtime_error, "throw-int" throws an int,
// "segv" raises SIGSEGV; anything else does nothing.
#include <android-base/properties.h>

#include <csignal>
#include <mutex>
#include <stdexcept>
#include <string>
#include <utility>

#include "framework/Feature.h"

namespace {

class RogueFeature : public Feature {
 public:
  explicit RogueFeature(FeatureInfo info) : Feature(std::move(info)) {}
  void runAsync(AsyncTriggerPayload /*payload*/) override {
    std::string action = android::base::GetProperty("rogue.on_trigger", "");
    if (action == "throw") throw std::runtime_error("the rogue refuses its trigger");
    if (action == "throw-int") throw 42;
    if (action == "segv") std::raise(SIGSEGV);
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
