// Framework boundary: process lookups for trigger events.
#pragma once

#include <string>

class AsyncEvent {
 public:
  // The pid of the running process of `package`, or a negative value.
  static int getPid(std::string& package);
};
