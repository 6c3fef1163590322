#include "sim/run/PrivateSysfs.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "sim/SystemError.h"
#include "sim/TextEscape.h"

std::unique_ptr<PrivateSysfs> PrivateSysfs::Make(std::string* error) {
  const char* tmpdir = std::getenv("TMPDIR");
  std::string base = tmpdir != nullptr && *tmpdir != '\0' ? tmpdir : "/tmp";
  std::error_code ignored;
  std::filesystem::path absolute = std::filesystem::absolute(base, ignored);
  std::string pattern = (absolute / "gorv-sim-XXXXXX").string();
  if (ignored || absolute.empty() || mkdtemp(pattern.data()) == nullptr) {
    int reason = ignored ? ignored.value() : errno;
    *error = "cannot make a private folder under " + TextEscape::Terminal(base) + " (" +
             SystemError::Text(reason) + "); set TMPDIR to a writable folder";
    return nullptr;
  }
  std::unique_ptr<PrivateSysfs> sysfs(new PrivateSysfs(pattern));
  sysfs->CreateNodes();
  return sysfs;
}

PrivateSysfs::~PrivateSysfs() {
  std::error_code ignored;
  if (!mPath.empty()) std::filesystem::remove_all(mPath, ignored);
}

void PrivateSysfs::CreateNodes() {
  std::error_code ignored;
  if (!mPath.empty()) std::filesystem::create_directories(mPath + kNodeDirectory, ignored);
}

void PrivateSysfs::RemoveNodes() {
  std::error_code ignored;
  if (!mPath.empty()) std::filesystem::remove_all(mPath + kNodeDirectory, ignored);
}
