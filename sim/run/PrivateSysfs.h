// The run's private folder: the plug-in's "/sys/..." nodes live beneath it,
// and nothing outside it is ever created, written or removed. Made with
// mkdtemp, as an absolute path, under the base folder (BaseFolder());
// removed, with everything in it, when the object goes, by path (known
// names first), so that removing it takes no descriptor: it goes also when
// descriptors are short. Single-threaded (one run's thread, or its faults).
#pragma once

#include <memory>
#include <string>

class PrivateSysfs {
 public:
  // The scheduler module's node folder as the plug-in names it.
  static constexpr const char* kNodeDirectory = "/sys/kernel/sched_penalty/parameters";

  // Where private folders go: $GORV_SIM_SYSFS_DIR when set and not empty;
  // else /dev/shm when it is a writable memory file system, as sysfs is;
  // else $TMPDIR, or /tmp when TMPDIR is unset or empty.
  static std::string BaseFolder();

  // Null and `error` set ("cannot make a private folder under DIR (reason);
  // set GORV_SIM_SYSFS_DIR to a writable folder") when the base folder is
  // full (no blocks or no inodes), not writable, or a node file cannot be
  // written there: a run never goes on with nodes that would fail. Nothing
  // is left behind then.
  static std::unique_ptr<PrivateSysfs> Make(std::string* error);
  ~PrivateSysfs();
  PrivateSysfs(const PrivateSysfs&) = delete;
  PrivateSysfs& operator=(const PrivateSysfs&) = delete;

  const std::string& path() const { return mPath; }
  // The node folder appears or disappears (the nodes-present and
  // nodes-missing faults).
  void CreateNodes();
  void RemoveNodes();
  // Another process's folder at `path` (the run's process uses the one
  // gorv-sim made): used as its own, never removed from here.
  static std::unique_ptr<PrivateSysfs> Borrow(std::string path);

 private:
  PrivateSysfs(std::string path, bool owned) : mPath(std::move(path)), mOwned(owned) {}
  // 0, or the errno value that says why a node file cannot be written.
  int CheckNodes() const;
  std::string mPath;  // absolute
  bool mOwned;        // removed when the object goes
};
