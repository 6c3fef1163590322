#include "sim/input/InputFile.h"

#include <android-base/unique_fd.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "sim/SystemError.h"
#include "sim/TextEscape.h"

namespace {

const char* KindOf(mode_t mode) {
  if (S_ISDIR(mode)) return "a folder";
  if (S_ISFIFO(mode)) return "a FIFO";
  if (S_ISCHR(mode) || S_ISBLK(mode)) return "a device";
  if (S_ISSOCK(mode)) return "a socket";
  return nullptr;
}

std::string TooLarge(const std::string& name, const std::string& what, size_t maxBytes) {
  return name + ": the " + what + " is larger than " + std::to_string(maxBytes >> 20) + " MiB";
}

}  // namespace

bool InputFile::Read(const std::string& path, const std::string& what, size_t maxBytes,
                     std::string* bytes, std::string* error) {
  // One byte past the limit, so that a file that grew meanwhile is noticed.
  return Read(path, what, maxBytes, maxBytes + 1, bytes, error);
}

bool InputFile::Read(const std::string& path, const std::string& what, size_t maxBytes,
                     size_t headBytes, std::string* bytes, std::string* error) {
  std::string name = TextEscape::Terminal(path);
  // Non-blocking, so that opening a FIFO without a writer returns at once.
  android::base::unique_fd file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  struct stat status {};
  if (file.get() < 0 || fstat(file.get(), &status) != 0) {
    *error = name + ": cannot open the " + what + " (" + SystemError::Text(errno) + ")";
    return false;
  }
  if (const char* kind = KindOf(status.st_mode)) {
    *error = name + ": the " + what + " is " + kind + ", not a regular file";
    return false;
  }
  if (static_cast<uint64_t>(status.st_size) > maxBytes) {
    *error = TooLarge(name, what, maxBytes);
    return false;
  }
  bytes->clear();
  bytes->reserve(std::min(static_cast<size_t>(status.st_size), headBytes));
  char buffer[1 << 16];
  while (bytes->size() < headBytes) {
    ssize_t got = read(file.get(), buffer, std::min(sizeof(buffer), headBytes - bytes->size()));
    if (got == 0) return true;
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) {
      *error = name + ": cannot read the " + what + " (" + SystemError::Text(errno) + ")";
      return false;
    }
    if (bytes->size() + static_cast<size_t>(got) > maxBytes) {  // the file grew meanwhile
      *error = TooLarge(name, what, maxBytes);
      return false;
    }
    bytes->append(buffer, static_cast<size_t>(got));
  }
  return true;
}
