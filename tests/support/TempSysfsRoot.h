// A temporary sysfs root for node writes: a fresh directory holding
// sys/kernel/sched_penalty/parameters/, installed as HostEnv's root for the
// life of the object and removed afterwards.
#pragma once

#include <string>

#include "tests/support/TempFolder.h"

class TempSysfsRoot {
 public:
  TempSysfsRoot();
  ~TempSysfsRoot();

  const std::string& path() const { return mFolder.path(); }
  // Content of the node `nodePath` ("/sys/..."), or "<missing>".
  std::string Read(const std::string& nodePath) const;
  // Removes or recreates the node directory (a module that is not loaded).
  void RemoveNodeDirectory();
  void CreateNodeDirectory();

 private:
  TempFolder mFolder;
};
