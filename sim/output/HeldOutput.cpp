#include "sim/output/HeldOutput.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <iostream>
#include <memory>

#include "sim/output/OutputFile.h"

namespace {

thread_local HeldOutput* tCurrent = nullptr;

// Copies the file `fd` from its start into `out`.
void CopyFile(int fd, std::ostream& out) {
  char data[1 << 16];
  for (off_t offset = 0;;) {
    ssize_t got = pread(fd, data, sizeof(data), offset);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0 || !out.write(data, got)) return;
    offset += got;
  }
}

}  // namespace

HeldOutput::HeldOutput(const std::atomic<bool>& stdoutClosed)
    : mStdoutClosed(stdoutClosed), mFd(memfd_create("gorv-sim held output", MFD_CLOEXEC)) {
  if (mFd < 0) mFailure = errno;
}

HeldOutput::~HeldOutput() {
  if (mFd >= 0) close(mFd);
}

HeldOutput* HeldOutput::Current() { return tCurrent; }

HeldOutput::Scope::Scope(HeldOutput& held) { tCurrent = &held; }

HeldOutput::Scope::~Scope() { tCurrent = nullptr; }

int HeldOutput::NewDescriptor() const {
  if (mFd < 0) {
    errno = mFailure;
    return -1;
  }
  return fcntl(mFd, F_DUPFD_CLOEXEC, 0);
}

bool HeldOutput::WriteOut(bool* pipeClosed, std::string* error) {
  bool written = false;
  *pipeClosed = StdoutClosed();
  if (!*pipeClosed && mFd >= 0) {
    std::unique_ptr<OutputFile> out = OutputFile::Open("-", error);
    if (out) CopyFile(mFd, out->stream());
    written = out && out->Close(error);
    *pipeClosed = out && out->PipeClosed();
  }
  std::cerr << mErrors.str() << std::flush;
  return written || mFd < 0;
}
