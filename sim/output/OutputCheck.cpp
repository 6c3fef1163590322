#include "sim/output/OutputCheck.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <optional>
#include <tuple>
#include <utility>

namespace {

// A file's device and inode; for a file not made yet, its folder's and its
// name in it (two outputs may name one new file).
using Identity = std::tuple<dev_t, ino_t, std::string>;

std::optional<Identity> IdentityOf(const std::string& path) {
  struct stat status {};
  if (path == "-" ? fstat(STDOUT_FILENO, &status) == 0 : stat(path.c_str(), &status) == 0) {
    return Identity(status.st_dev, status.st_ino, "");
  }
  size_t slash = path.rfind('/');
  std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
  if (errno != ENOENT || slash + 1 == path.size() || stat(folder.c_str(), &status) != 0)
    return std::nullopt;
  return Identity(status.st_dev, status.st_ino, path.substr(slash + 1));
}

std::string Describe(const OutputCheck::Named& file) { return file.what + " " + file.path; }

}  // namespace

namespace OutputCheck {

std::string Conflict(const std::vector<Named>& outputs, const std::vector<Named>& inputs) {
  std::optional<Identity> null = IdentityOf("/dev/null");
  std::vector<std::pair<Identity, const Named*>> seen;
  for (const Named& input : inputs) {
    std::optional<Identity> identity = IdentityOf(input.path);
    if (identity && std::get<2>(*identity).empty()) seen.emplace_back(*identity, &input);
  }
  for (const Named& output : outputs) {
    std::optional<Identity> identity = IdentityOf(output.path);
    if (!identity || (identity == null && output.path != "-")) continue;
    for (const auto& [other, named] : seen) {
      if (other == *identity) return Describe(output) + " is the same file as " + Describe(*named);
    }
    seen.emplace_back(*identity, &output);
  }
  return "";
}

}  // namespace OutputCheck
