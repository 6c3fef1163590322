#include "sim/output/OutputFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>

#include "sim/SystemError.h"
#include "sim/TextEscape.h"
#include "sim/output/HeldOutput.h"
#include "sim/run/Interrupts.h"

namespace {

bool MayBlock(int fd) {
  struct stat about {};
  return fstat(fd, &about) != 0 || !S_ISREG(about.st_mode);
}

std::string NameOf(const std::string& path) {
  return path == "-" ? "standard output" : TextEscape::Terminal(path);
}

}  // namespace

OutputFile::Buffer::Buffer(int fd) : mFd(fd), mWaits(MayBlock(fd)) {
  setp(mData, mData + sizeof(mData));
}

ssize_t OutputFile::Buffer::WriteSome(const char* data, size_t size) {
  if (!mWaits) return write(mFd, data, size);
  if (!Interrupts::WaitWritable(mFd, Interrupts::kGraceMs)) {
    mFailure = kStalled;
    return -1;
  }
  // Room for PIPE_BUF bytes is what a pipe that polls writable promises.
  ssize_t wrote = write(mFd, data, std::min<size_t>(size, PIPE_BUF));
  if (wrote < 0 && errno == EAGAIN) errno = EINTR;  // a non-blocking file: wait again
  return wrote;
}

bool OutputFile::Buffer::Flush() {
  const char* data = pbase();
  size_t size = static_cast<size_t>(pptr() - pbase());
  while (size > 0 && mFailure == 0) {
    ssize_t wrote = WriteSome(data, size);
    if (mFailure != 0) break;
    if (wrote < 0 && errno == EINTR) continue;
    if (wrote <= 0) {
      mFailure = wrote < 0 ? errno : EIO;
      break;
    }
    data += wrote;
    size -= static_cast<size_t>(wrote);
  }
  setp(mData, mData + sizeof(mData));
  return mFailure == 0;
}

OutputFile::Buffer::int_type OutputFile::Buffer::overflow(int_type c) {
  if (!Flush() && mFailure != 0) return traits_type::eof();
  if (!traits_type::eq_int_type(c, traits_type::eof())) {
    *pptr() = traits_type::to_char_type(c);
    pbump(1);
  }
  return traits_type::not_eof(c);
}

std::streamsize OutputFile::Buffer::xsputn(const char* data, std::streamsize size) {
  for (std::streamsize done = 0; done < size;) {
    if (pptr() == epptr() && !Flush()) return done;
    std::streamsize room = epptr() - pptr();
    std::streamsize part = std::min(room, size - done);
    std::memcpy(pptr(), data + done, static_cast<size_t>(part));
    pbump(static_cast<int>(part));
    done += part;
  }
  return size;
}

std::unique_ptr<OutputFile> OutputFile::Open(const std::string& path, std::string* error) {
  // A thread whose standard output is held writes "-" to the held file.
  HeldOutput* held = path == "-" ? HeldOutput::Current() : nullptr;
  int fd = held != nullptr ? held->NewDescriptor()
           : path == "-"   ? STDOUT_FILENO
                           : open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) {
    *error = "cannot write " + NameOf(path) + ": " + SystemError::Text(errno);
    return nullptr;
  }
  return std::unique_ptr<OutputFile>(new OutputFile(path, fd, held));
}

OutputFile::OutputFile(std::string path, int fd, const HeldOutput* held)
    : mPath(std::move(path)), mHeld(held), mBuffer(fd), mStream(&mBuffer) {}

bool OutputFile::PipeClosed() const {
  return mBuffer.failure() == EPIPE || (mHeld != nullptr && mHeld->StdoutClosed());
}

OutputFile::~OutputFile() {
  std::string ignored;
  Close(&ignored);
}

bool OutputFile::Close(std::string* error) {
  if (mClosed) return mBuffer.failure() == 0;
  mClosed = true;
  mBuffer.Flush();
  int failure = mBuffer.failure();
  if (mBuffer.fd() != STDOUT_FILENO && close(mBuffer.fd()) != 0 && failure == 0) failure = errno;
  if (failure == 0) return true;
  *error = "cannot write " + NameOf(mPath) + ": " +
           (failure == Buffer::kStalled ? "nothing read it for a second after the interrupt"
                                        : SystemError::Text(failure));
  return false;
}
