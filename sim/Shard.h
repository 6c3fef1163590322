// Sharding: one machine of many runs every N-th scenario of a batch, so that
// an existing engine (Bazel's shard_count, a CI matrix, a Kubernetes
// Indexed Job) spreads a corpus over its machines. Scenario i, in the
// batch's name order, belongs to shard i mod N: the shards together run
// every scenario exactly once, whatever N is.
//
// The shard comes from --shard I/N, or else from GoogleTest's and Bazel's
// environment protocol (TEST_TOTAL_SHARDS, TEST_SHARD_INDEX); the program
// touches TEST_SHARD_STATUS_FILE when it is set, to say it understands the
// protocol. Stateless; any thread.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace Shard {

// Which shard this process runs: `index` from 0 to `total` - 1.
struct Slice {
  size_t index = 0;
  size_t total = 1;
};

// The largest number of shards accepted.
constexpr size_t kMaxShards = 1000000;

// The shard named by `option` (the --shard value; null when not given) or else
// by the environment's `totalShards` and `shardIndex` (null when unset).
// False and `error` set (a whole message) when a value is not accepted, or
// when only one of the two variables is set.
bool Choose(const std::string* option, const char* totalShards, const char* shardIndex,
            Slice* slice, std::string* error);

// The positions, in order, of the scenarios among `count` that `slice` runs.
std::vector<size_t> Pick(size_t count, const Slice& slice);

// Creates `path` when missing (its content is left alone); false and
// `error` set when it cannot be.
bool TouchStatusFile(const std::string& path, std::string* error);

}  // namespace Shard
