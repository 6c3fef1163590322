#include "sim/Shard.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "sim/SystemError.h"

namespace {

// A decimal count from 0 to Shard::kMaxShards: digits only, no sign, no
// spaces (a typo must not quietly pick another shard).
bool ParseCount(const std::string& text, size_t* value) {
  if (text.empty() || text.size() > 7) return false;
  size_t parsed = 0;
  for (char c : text) {
    if (c < '0' || c > '9') return false;
    parsed = parsed * 10 + static_cast<size_t>(c - '0');
  }
  *value = parsed;
  return parsed <= Shard::kMaxShards;
}

bool Valid(const Shard::Slice& slice) {
  return slice.total >= 1 && slice.total <= Shard::kMaxShards && slice.index < slice.total;
}

const char kAccepted[] = "N from 1 to 1000000 and I from 0 to N-1";

}  // namespace

bool Shard::Choose(const std::string* option, const char* totalShards, const char* shardIndex,
                   Slice* slice, std::string* error) {
  Slice chosen;
  if (option != nullptr) {
    size_t slash = option->find('/');
    if (slash == std::string::npos || !ParseCount(option->substr(0, slash), &chosen.index) ||
        !ParseCount(option->substr(slash + 1), &chosen.total) || !Valid(chosen)) {
      *error = "--shard " + *option + ": expected I/N with " + kAccepted;
      return false;
    }
  } else if (totalShards != nullptr || shardIndex != nullptr) {
    std::string total = totalShards != nullptr ? totalShards : "(unset)";
    std::string index = shardIndex != nullptr ? shardIndex : "(unset)";
    if (totalShards == nullptr || shardIndex == nullptr || !ParseCount(total, &chosen.total) ||
        !ParseCount(index, &chosen.index) || !Valid(chosen)) {
      *error = "TEST_TOTAL_SHARDS=" + total + " TEST_SHARD_INDEX=" + index +
               ": expected both set, TEST_TOTAL_SHARDS=N and TEST_SHARD_INDEX=I with " + kAccepted;
      return false;
    }
  }
  *slice = chosen;
  return true;
}

std::vector<size_t> Shard::Pick(size_t count, const Slice& slice) {
  std::vector<size_t> picked;
  for (size_t i = slice.index; i < count; i += slice.total) picked.push_back(i);
  return picked;
}

bool Shard::TouchStatusFile(const std::string& path, std::string* error) {
  int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666);
  if (fd < 0) {
    *error = path + ": cannot create the shard status file (" + SystemError::Text(errno) + ")";
    return false;
  }
  close(fd);
  return true;
}
