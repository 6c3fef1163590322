#include "fuzz/SessionWorld.h"

#include <android-base/properties.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "host/framework/FrameRateSource.h"
#include "host/framework/HostProcesses.h"
#include "host/framework/PluginLoader.h"
#include "host/platform/HostEnv.h"

namespace {
[[noreturn]] void Die(const std::string& what) {
  std::fprintf(stderr, "session fuzzer: %s\n", what.c_str());
  std::abort();
}
}  // namespace

SessionWorld& SessionWorld::Get() {
  static SessionWorld world;  // lives until the fuzzer exits
  return world;
}

SessionWorld::SessionWorld() {
  std::string error;
  if (!PluginLoader::Load(GORV_PLUGIN_PATH, &error)) Die(error);
  // Nodes on a memory file system: a disk's directory and file operations
  // would cap the fuzzer at about a hundred executions per second.
  std::error_code noShm;
  std::filesystem::path base = std::filesystem::is_directory("/dev/shm", noShm)
                                   ? std::filesystem::path("/dev/shm")
                                   : std::filesystem::temp_directory_path();
  std::string pattern = (base / "gorv-fuzz-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) Die("cannot make a sysfs root");
  mRoot = pattern;
}

SessionWorld::~SessionWorld() {
  std::error_code ignored;
  std::filesystem::remove_all(mRoot, ignored);
}

void SessionWorld::Reset() {
  gorv::HostEnv& env = gorv::HostEnv::Get();
  env.Reset();
  env.SetRecordEvents(false);
  env.SetSysfsRoot(mRoot);
  SetNodesPresent(true);
  SetEnabledProperty("true");
  SetTraceProperty("");
  HostLocator::SetCurrent(&HostLocator::Get());
  HostLocator::Get().Clear();
  HostLocator::Get().SetClass(kMail, 0);
  SetGameClass(2);
  SetGamePid(4242);
  SetFrameRate(60.0f);
}

Feature* SessionWorld::CreateFeature(const FeatureInfo& info) {
  std::string error;
  return PluginLoader::Create("GORV", info, &error);
}

void SessionWorld::SetEnabledProperty(const std::string& value) {
  android::base::SetProperty("ro.vendor.perf.gorv", value);
}

void SessionWorld::SetTraceProperty(const std::string& value) {
  android::base::SetProperty("vendor.debug.trace.gorv", value);
}

void SessionWorld::SetGameClass(int appClass) { HostLocator::Get().SetClass(kGame, appClass); }

void SessionWorld::SetGamePid(int32_t pid) { HostProcesses::Get().UseTable({{kGame, pid}}); }

void SessionWorld::SetLocatorFailure(HostLocator::Failure failure) {
  HostLocator::Get().SetFailure(failure);
}

void SessionWorld::SetNodesPresent(bool present) {
  std::error_code ignored;
  if (present) {
    std::filesystem::create_directories(NodeDirectory(), ignored);
  } else {
    std::filesystem::remove_all(NodeDirectory(), ignored);
  }
}

void SessionWorld::SetFrameRate(float fps) { FrameRateSource::Get().SetConstant(fps); }

std::string SessionWorld::NodeDirectory() const {
  return mRoot + "/sys/kernel/sched_penalty/parameters";
}
