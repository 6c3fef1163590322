// The run's private folder: the plug-in's "/sys/..." nodes live beneath it,
// and nothing outside it is ever created, written or removed. Made with
// mkdtemp under $TMPDIR (or /tmp when TMPDIR is unset or empty), as an
// absolute path; removed, with everything in it, when the object goes.
// Single-threaded (the simulator's main thread, or its faults).
#pragma once

#include <memory>
#include <string>

class PrivateSysfs {
 public:
  // The scheduler module's node folder as the plug-in names it.
  static constexpr const char* kNodeDirectory = "/sys/kernel/sched_penalty/parameters";

  // Null and `error` set ("cannot make a private folder under DIR: reason")
  // when the folder cannot be made; nothing is written then.
  static std::unique_ptr<PrivateSysfs> Make(std::string* error);
  ~PrivateSysfs();
  PrivateSysfs(const PrivateSysfs&) = delete;
  PrivateSysfs& operator=(const PrivateSysfs&) = delete;

  const std::string& path() const { return mPath; }
  // The node folder appears or disappears (the nodes-present and
  // nodes-missing faults).
  void CreateNodes();
  void RemoveNodes();
  // Forgets the folder without removing it: a forked child calls this so
  // that only the parent removes it.
  void Release() { mPath.clear(); }

 private:
  explicit PrivateSysfs(std::string path) : mPath(std::move(path)) {}
  std::string mPath;  // absolute, never empty while owned
};
