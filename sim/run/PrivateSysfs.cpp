#include "sim/run/PrivateSysfs.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>

#include "feature/GorvFeature.h"
#include "sim/SystemError.h"
#include "sim/TextEscape.h"

namespace {

constexpr const char* kNodes[] = {GorvFeature::kPidNode, GorvFeature::kFpsNode};

std::string Variable(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr ? value : "";
}

bool IsWritableMemoryFolder(const char* path) {
  struct statfs about {};
  return statfs(path, &about) == 0 && about.f_type == TMPFS_MAGIC && access(path, W_OK) == 0;
}

// 0 when a folder can be made in `folder`, else the errno value that says
// why not. A file system that counts no inodes at all (f_files 0) is not
// full of them.
int RoomIn(const std::string& folder) {
  struct stat kind {};
  if (stat(folder.c_str(), &kind) != 0) return errno;
  if (!S_ISDIR(kind.st_mode)) return ENOTDIR;
  struct statvfs about {};
  if (statvfs(folder.c_str(), &about) != 0) return errno;
  if (about.f_bavail == 0 || (about.f_files != 0 && about.f_favail == 0)) return ENOSPC;
  return access(folder.c_str(), W_OK | X_OK) == 0 ? 0 : errno;
}

// Writes a byte to `path` (creating it) and empties it again.
int TryNode(const std::string& path) {
  int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) return errno;
  int failure = write(fd, "0", 1) == 1 && ftruncate(fd, 0) == 0 ? 0 : errno;
  if (close(fd) != 0 && failure == 0) failure = errno;
  return failure;
}

}  // namespace

std::string PrivateSysfs::BaseFolder() {
  std::string chosen = Variable("GORV_SIM_SYSFS_DIR");
  if (!chosen.empty()) return chosen;
  if (IsWritableMemoryFolder("/dev/shm")) return "/dev/shm";
  std::string tmpdir = Variable("TMPDIR");
  return tmpdir.empty() ? "/tmp" : tmpdir;
}

std::unique_ptr<PrivateSysfs> PrivateSysfs::Make(std::string* error) {
  std::string base = BaseFolder();
  std::error_code failed;
  std::filesystem::path absolute = std::filesystem::absolute(base, failed);
  std::string pattern = (absolute / "gorv-sim-XXXXXX").string();
  int reason = failed ? failed.value() : RoomIn(absolute.string());
  std::unique_ptr<PrivateSysfs> sysfs;
  if (reason == 0 && mkdtemp(pattern.data()) == nullptr) reason = errno;
  if (reason == 0) {
    sysfs.reset(new PrivateSysfs(pattern, true));
    sysfs->CreateNodes();
    reason = sysfs->CheckNodes();
  }
  if (reason == 0) return sysfs;
  *error = "cannot make a private folder under " + TextEscape::Terminal(base) + " (" +
           SystemError::Text(reason) + "); set GORV_SIM_SYSFS_DIR to a writable folder";
  return nullptr;
}

int PrivateSysfs::CheckNodes() const {
  for (const char* node : kNodes) {
    if (int failure = TryNode(mPath + node); failure != 0) return failure;
  }
  return 0;
}

std::unique_ptr<PrivateSysfs> PrivateSysfs::Borrow(std::string path) {
  return std::unique_ptr<PrivateSysfs>(new PrivateSysfs(std::move(path), false));
}

PrivateSysfs::~PrivateSysfs() {
  if (!mOwned || mPath.empty()) return;
  RemoveNodes();
  // The folders above the nodes, deepest first; rmdir takes no descriptor.
  std::string folder = mPath + kNodeDirectory;
  while (folder.size() > mPath.size()) {
    folder.erase(folder.rfind('/'));
    rmdir(folder.c_str());
  }
  if (rmdir(mPath.c_str()) == 0 || errno == ENOENT) return;
  std::error_code ignored;  // something unexpected in it
  std::filesystem::remove_all(mPath, ignored);
}

void PrivateSysfs::CreateNodes() {
  std::error_code ignored;
  if (!mPath.empty()) std::filesystem::create_directories(mPath + kNodeDirectory, ignored);
}

void PrivateSysfs::RemoveNodes() {
  if (mPath.empty()) return;
  for (const char* node : kNodes) unlink((mPath + node).c_str());
  if (rmdir((mPath + kNodeDirectory).c_str()) == 0 || errno == ENOENT) return;
  std::error_code ignored;
  std::filesystem::remove_all(mPath + kNodeDirectory, ignored);
}
