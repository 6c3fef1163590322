#include "host/platform/HostNodeFile.h"

#include <new>
#include <utility>

#include "host/platform/HostEnv.h"

namespace gorv {

std::unique_ptr<NodeFile> HostNodeFile::Open(HostEnv& env, const std::string& hostPath,
                                             const std::string& nodePath) {
  std::unique_ptr<HostNodeFile> file(new HostNodeFile(env, nodePath));
  file->mStream.open(hostPath, std::ios::out | std::ios::trunc);
  if (!file->mStream.is_open()) return nullptr;
  return file;
}

HostNodeFile::HostNodeFile(HostEnv& env, std::string nodePath)
    : mEnv(env), mNodePath(std::move(nodePath)) {}

HostNodeFile::~HostNodeFile() {
  mStream.close();
  try {
    if (!mStream.fail()) mEnv.RecordNodeWrite(mNodePath, mWritten);
  } catch (...) {
    // The write happened; only its record is lost (out of memory).
  }
}

void HostNodeFile::Write(const std::string& text) {
  mStream << text;
  mWritten += text;
}

}  // namespace gorv
