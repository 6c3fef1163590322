// Process lookups of the host framework (AsyncEvent::getPid): by default the
// running process whose command line is the package name, found in /proc as
// the platform does; or, for tests and the simulator, a fixed table.
#pragma once

#include <map>
#include <mutex>
#include <string>

class HostProcesses {
 public:
  static HostProcesses& Get();

  // From now on answer from `table` (packages not in it: -1).
  void UseTable(std::map<std::string, int> table);
  // From now on scan /proc.
  void UseProc();

  // Thread-safe.
  int PidOf(const std::string& package);

  // The pid of the process whose first command-line argument is `package`
  // under `procRoot`, or -1.
  static int ScanProc(const std::string& procRoot, const std::string& package);

 private:
  std::mutex mMutex;
  bool mUseTable = false;             // guarded by mMutex
  std::map<std::string, int> mTable;  // guarded by mMutex
};
