#include "tests/support/TempSysfsRoot.h"

#include <filesystem>

#include "host/platform/HostEnv.h"

namespace {
constexpr const char* kNodeDirectory = "/sys/kernel/sched_penalty/parameters";
}  // namespace

TempSysfsRoot::TempSysfsRoot() {
  CreateNodeDirectory();
  gorv::HostEnv::Get().SetSysfsRoot(path());
}

TempSysfsRoot::~TempSysfsRoot() { gorv::HostEnv::Get().SetSysfsRoot(""); }

std::string TempSysfsRoot::Read(const std::string& nodePath) const {
  if (!std::filesystem::exists(path() + nodePath)) return "<missing>";
  return mFolder.Read(nodePath.substr(1));
}

void TempSysfsRoot::RemoveNodeDirectory() { std::filesystem::remove_all(path() + kNodeDirectory); }

void TempSysfsRoot::CreateNodeDirectory() {
  std::filesystem::create_directories(path() + kNodeDirectory);
}
