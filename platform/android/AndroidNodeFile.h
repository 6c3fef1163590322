// A sysfs node opened on the device: a text output stream on the node's path.
#pragma once

#include <fstream>
#include <memory>
#include <string>

#include "platform/NodeFile.h"

namespace gorv {

class AndroidNodeFile : public NodeFile {
 public:
  // Null when the node cannot be opened for writing.
  static std::unique_ptr<NodeFile> Open(const std::string& path);
  // Closing flushes the text to the node in one write.
  ~AndroidNodeFile() override = default;
  void Write(const std::string& text) override;

 private:
  AndroidNodeFile() = default;
  std::ofstream mStream;
};

}  // namespace gorv
