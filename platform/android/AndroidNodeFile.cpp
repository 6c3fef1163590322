#include "platform/android/AndroidNodeFile.h"

namespace gorv {

std::unique_ptr<NodeFile> AndroidNodeFile::Open(const std::string& path) {
  std::unique_ptr<AndroidNodeFile> node(new AndroidNodeFile());
  node->mStream.open(path, std::ios::out | std::ios::trunc);
  if (!node->mStream.is_open()) return nullptr;
  return node;
}

void AndroidNodeFile::Write(const std::string& text) { mStream << text; }

}  // namespace gorv
