// How the outputs that reduce a run to what a reader can see (RunSeries,
// BucketBudget) cut [0, endMs] into equal spans. Stateless; any thread.
#pragma once

#include <algorithm>
#include <cstdint>

namespace TimeBuckets {

// The width of each of `buckets` equal spans covering [0, endMs], in ms
// (at least 1; any endMs and buckets).
inline int64_t WidthMs(int64_t endMs, int64_t buckets) {
  return std::max<int64_t>(1, std::max<int64_t>(endMs, 0) / std::max<int64_t>(buckets, 1) + 1);
}

}  // namespace TimeBuckets
