#include "sim/run/RunMemory.h"

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <new>
#include <utility>

#include "sim/SystemError.h"

namespace {

// Where the request starts in the file: past Shared, whatever the page size.
constexpr off_t kRequestAt = 4096;
static_assert(sizeof(RunMemory::Shared) <= kRequestAt);
static_assert(std::atomic<int64_t>::is_always_lock_free && std::atomic<bool>::is_always_lock_free,
              "Shared is used by two processes: its atomics must not take a lock");

bool WriteAt(int fd, const std::string& data, off_t at) {
  for (size_t done = 0; done < data.size();) {
    ssize_t wrote =
        pwrite(fd, data.data() + done, data.size() - done, at + static_cast<off_t>(done));
    if (wrote < 0 && errno == EINTR) continue;
    if (wrote <= 0) return false;
    done += static_cast<size_t>(wrote);
  }
  return true;
}

bool ReadAt(int fd, std::string* data, off_t at) {
  for (size_t done = 0; done < data->size();) {
    ssize_t got =
        pread(fd, data->data() + done, data->size() - done, at + static_cast<off_t>(done));
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return false;
    done += static_cast<size_t>(got);
  }
  return true;
}

}  // namespace

RunMemory::Shared* RunMemory::Map(int fd) {
  void* block = mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  return block == MAP_FAILED ? nullptr : static_cast<Shared*>(block);
}

std::unique_ptr<RunMemory> RunMemory::Make(const std::string& request, std::string* error) {
  android::base::unique_fd fd(memfd_create("gorv-sim run", MFD_CLOEXEC));
  bool made = fd.ok() &&
              ftruncate(fd.get(), kRequestAt + static_cast<off_t>(request.size())) == 0 &&
              WriteAt(fd.get(), request, kRequestAt);
  Shared* shared = made ? Map(fd.get()) : nullptr;
  if (shared == nullptr) {
    *error = "cannot make the run's memory: " + SystemError::Text(errno);
    return nullptr;
  }
  new (shared) Shared();
  return std::unique_ptr<RunMemory>(new RunMemory(std::move(fd), shared));
}

std::unique_ptr<RunMemory> RunMemory::Open(int fd, std::string* request, std::string* error) {
  android::base::unique_fd file(fd);
  struct stat status {};
  if (fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode) || status.st_size < kRequestAt) {
    *error = "descriptor " + std::to_string(fd) + " is not a run's memory";
    return nullptr;
  }
  request->resize(static_cast<size_t>(status.st_size - kRequestAt));
  Shared* shared = ReadAt(file.get(), request, kRequestAt) ? Map(file.get()) : nullptr;
  if (shared == nullptr) {
    *error = "cannot read the run's memory: " + SystemError::Text(errno);
    return nullptr;
  }
  return std::unique_ptr<RunMemory>(new RunMemory(std::move(file), shared));
}

RunMemory::~RunMemory() { munmap(mShared, sizeof(Shared)); }
