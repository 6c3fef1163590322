#include "host/framework/HostProcesses.h"

#include <dirent.h>

#include <cctype>
#include <fstream>
#include <memory>
#include <utility>

#include "framework/AsyncEvent.h"

int AsyncEvent::getPid(std::string& package) { return HostProcesses::Get().PidOf(package); }

HostProcesses& HostProcesses::Get() {
  static HostProcesses* processes = new HostProcesses();  // lives until exit
  return *processes;
}

void HostProcesses::UseTable(std::map<std::string, int> table) {
  std::lock_guard<std::mutex> lock(mMutex);
  mUseTable = true;
  mTable = std::move(table);
}

void HostProcesses::UseProc() {
  std::lock_guard<std::mutex> lock(mMutex);
  mUseTable = false;
  mTable.clear();
}

int HostProcesses::PidOf(const std::string& package) {
  {
    std::lock_guard<std::mutex> lock(mMutex);
    if (mUseTable) {
      auto found = mTable.find(package);
      return found == mTable.end() ? -1 : found->second;
    }
  }
  return ScanProc("/proc", package);
}

int HostProcesses::ScanProc(const std::string& procRoot, const std::string& package) {
  std::unique_ptr<DIR, int (*)(DIR*)> dir(opendir(procRoot.c_str()), closedir);
  if (!dir || package.empty()) return -1;
  // readdir is safe on a stream of one's own; readdir_r is the deprecated one.
  // cppcheck-suppress readdirCalled
  while (dirent* entry = readdir(dir.get())) {
    std::string name = entry->d_name;
    if (name.empty() || !std::isdigit(static_cast<unsigned char>(name[0]))) continue;
    std::ifstream cmdline(procRoot + "/" + name + "/cmdline", std::ios::binary);
    std::string first;
    if (std::getline(cmdline, first, '\0') && first == package) return std::stoi(name);
  }
  return -1;
}
