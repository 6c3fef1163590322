// One open kernel node (a sysfs file) being written.
#pragma once

#include <string>

namespace gorv {

class NodeFile {
 public:
  // Closing flushes what was written to the node in one write. Write and
  // close errors are not reported: sysfs nodes report them only through
  // the kernel log.
  virtual ~NodeFile() = default;
  // Appends `text` to the buffered content.
  virtual void Write(const std::string& text) = 0;
};

}  // namespace gorv
