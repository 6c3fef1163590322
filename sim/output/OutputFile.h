// An output the user asked for (a file, or "-" for standard output), written
// through a stream whose first failed write is remembered with its reason,
// so that no output is lost silently: disk full, a closed standard output,
// an I/O error. A write to a closed pipe (piping into head) is remembered
// as such, for the caller to end the run quietly. A write never blocks for
// good: on a pipe or terminal it waits for room or a caught signal
// (Interrupts); after a signal, a reader that takes nothing for a second
// stalls the output, which is then given up. On a thread whose standard
// output is held (HeldOutput), "-" is the held file, and standard output
// closing later counts as a closed pipe. Single-threaded.
#pragma once

#include <memory>
#include <ostream>
#include <streambuf>
#include <string>

class HeldOutput;

class OutputFile {
 public:
  // Opens (creating or truncating) `path` now; null and `error` set
  // ("cannot write PATH: reason") when it cannot be.
  static std::unique_ptr<OutputFile> Open(const std::string& path, std::string* error);
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  std::ostream& stream() { return mStream; }
  // Flushes and closes (standard output stays open, flushed). False and
  // `error` set when any write failed, or the close did.
  bool Close(std::string* error);
  // A write met a closed pipe (or the held standard output's did).
  bool PipeClosed() const;

 private:
  // Buffers writes to a descriptor; the first failure's errno is kept and
  // later writes are dropped.
  class Buffer : public std::streambuf {
   public:
    explicit Buffer(int fd);
    // The failure of an output given up as stalled (not an errno value).
    static constexpr int kStalled = -1;
    int fd() const { return mFd; }
    int failure() const { return mFailure; }
    bool Flush();

   protected:
    int_type overflow(int_type c) override;
    std::streamsize xsputn(const char* data, std::streamsize size) override;
    int sync() override { return Flush() ? 0 : -1; }

   private:
    // Writes part of `data`: what a non-regular file takes without
    // blocking. The count written, or -1 with errno set (kStalled kept).
    ssize_t WriteSome(const char* data, size_t size);
    int mFd;
    bool mWaits;  // not a regular file: a write may block
    int mFailure = 0;
    char mData[1 << 16];
  };

  OutputFile(std::string path, int fd, const HeldOutput* held);
  std::string mPath;
  const HeldOutput* mHeld;  // "-" on a thread whose standard output is held; else null
  Buffer mBuffer;
  std::ostream mStream;
  bool mClosed = false;
};
