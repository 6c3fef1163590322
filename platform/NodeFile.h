// Writing one kernel node (a sysfs file) the way the kernel expects a value
// to arrive: open, one write, close. Both platform bindings write through it.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cstddef>

namespace gorv {

class NodeFile {
 public:
  enum class Outcome { kUnopened, kFailed, kWritten };

  // Opens `path` for writing (created if missing, truncated if present),
  // writes the `length` bytes at `text` in one write and closes the file.
  // kUnopened when the node cannot be opened; kFailed when the write or the
  // close failed (a sysfs node reports why only in the kernel log). Takes
  // no lock and allocates nothing; any thread.
  static Outcome Write(const char* path, const char* text, size_t length) {
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-vararg,hicpp-vararg)
    int fd = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (fd < 0) return Outcome::kUnopened;
    bool whole = write(fd, text, length) == static_cast<ssize_t>(length);
    bool closed = close(fd) == 0;
    return whole && closed ? Outcome::kWritten : Outcome::kFailed;
  }
};

}  // namespace gorv
