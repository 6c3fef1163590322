#include "tests/support/TempFolder.h"

#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

TempFolder::TempFolder() {
  std::string pattern = (std::filesystem::temp_directory_path() / "gorv-test-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
  mPath = pattern;
}

TempFolder::~TempFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(mPath, ignored);
}

std::string TempFolder::Write(const std::string& name, const std::string& text) const {
  std::filesystem::path path = std::filesystem::path(mPath) / name;
  std::filesystem::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary) << text;
  return path.string();
}

std::string TempFolder::Read(const std::string& name) const {
  std::ifstream in(std::filesystem::path(mPath) / name, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

TempFolder::Outcome TempFolder::Run(const std::string& command, const std::string& stdoutTo) const {
  std::string line =
      "cd " + mPath + " && " + command + " 2> stderr " + (stdoutTo.empty() ? "> stdout" : stdoutTo);
  int status = std::system(line.c_str());
  return {WEXITSTATUS(status), Read("stdout"), Read("stderr")};
}
