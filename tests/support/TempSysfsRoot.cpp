#include "tests/support/TempSysfsRoot.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "host/platform/HostEnv.h"

namespace {
constexpr const char* kNodeDirectory = "/sys/kernel/sched_penalty/parameters";
}  // namespace

TempSysfsRoot::TempSysfsRoot() {
  std::string pattern = (std::filesystem::temp_directory_path() / "gorv-sysfs-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
  mPath = pattern;
  CreateNodeDirectory();
  gorv::HostEnv::Get().SetSysfsRoot(mPath);
}

TempSysfsRoot::~TempSysfsRoot() {
  gorv::HostEnv::Get().SetSysfsRoot("");
  std::error_code ignored;
  std::filesystem::remove_all(mPath, ignored);
}

std::string TempSysfsRoot::Read(const std::string& nodePath) const {
  std::ifstream in(mPath + nodePath, std::ios::binary);
  if (!in) return "<missing>";
  std::ostringstream content;
  content << in.rdbuf();
  return content.str();
}

void TempSysfsRoot::RemoveNodeDirectory() { std::filesystem::remove_all(mPath + kNodeDirectory); }

void TempSysfsRoot::CreateNodeDirectory() {
  std::filesystem::create_directories(mPath + kNodeDirectory);
}
