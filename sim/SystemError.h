// The text of an errno value, safe to call from any thread (strerror is
// not: the simulator's runs and outputs may report errors concurrently).
#pragma once

#include <string>

namespace SystemError {

// "No such file or directory" for ENOENT; "error N" for an unknown value.
std::string Text(int errnum);

}  // namespace SystemError
