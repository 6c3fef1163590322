// A kernel node opened on the host: a regular file beneath the sysfs root.
#pragma once

#include <fstream>
#include <memory>
#include <string>

#include "platform/NodeFile.h"

namespace gorv {

class HostEnv;

class HostNodeFile : public NodeFile {
 public:
  // Opens `hostPath` for writing (truncating). Null when it cannot be
  // opened. `nodePath` is the node's name as the feature knows it; the
  // write is reported to `env` under that name.
  static std::unique_ptr<NodeFile> Open(HostEnv& env, const std::string& hostPath,
                                        const std::string& nodePath);
  // Closes the file and reports the write when the stream stayed good.
  ~HostNodeFile() override;
  void Write(const std::string& text) override;

 private:
  HostNodeFile(HostEnv& env, std::string nodePath);

  HostEnv& mEnv;
  std::string mNodePath;
  std::ofstream mStream;
  std::string mWritten;
};

}  // namespace gorv
