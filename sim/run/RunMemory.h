// A run's memory file, shared by gorv-sim and the run's process: a small
// block both map (the virtual time reached, the request to stop), then the
// run's request (RunRequest). gorv-sim makes it and passes its descriptor
// to the run's process, which opens it. Owns the descriptor and the
// mapping; Shared is read and written by both processes at once (atomics
// only).
#pragma once

#include <android-base/unique_fd.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

class RunMemory {
 public:
  struct Shared {
    std::atomic<int64_t> clockMs{0};  // the virtual time reached, ms
    std::atomic<bool> stop{false};    // gorv-sim asks the run to stop
  };

  // A memory file (close-on-exec) holding a fresh Shared and `request`.
  // Null and `error` set when it cannot be made.
  static std::unique_ptr<RunMemory> Make(const std::string& request, std::string* error);
  // The run's process: maps the file `fd` (taking it) and reads its
  // request. Null and `error` set when `fd` is not such a file.
  static std::unique_ptr<RunMemory> Open(int fd, std::string* request, std::string* error);

  ~RunMemory();
  RunMemory(const RunMemory&) = delete;
  RunMemory& operator=(const RunMemory&) = delete;

  Shared& shared() const { return *mShared; }
  int fd() const { return mFd.get(); }

 private:
  RunMemory(android::base::unique_fd fd, Shared* shared) : mFd(std::move(fd)), mShared(shared) {}
  static Shared* Map(int fd);

  android::base::unique_fd mFd;
  Shared* mShared;
};
