#include "sim/check/EventComparator.h"

#include <algorithm>
#include <cstdint>
#include <tuple>

#include "host/platform/LogPrefix.h"

namespace {

using Events = std::vector<SimEvent>;
using Difference = EventComparator::Difference;

// Past this many cells a time group's middle is reported as one block of
// missing and extra events instead of being aligned (only a file of many
// thousand events in one ms gets there).
constexpr size_t kMaxCells = size_t{1} << 22;

// Drops the ignored kinds and triggers, masks line numbers, orders by time.
Events Prepare(Events events, const EventComparator::Options& options) {
  Events kept;
  for (SimEvent& event : events) {
    if (!event.IsEffect() || options.ignored.count(event.kind) != 0) continue;
    if (event.kind == SimEvent::Kind::Log && options.maskLogLines) {
      event.text = gorv::LogPrefix::MaskLine(event.text);
    }
    kept.push_back(std::move(event));
  }
  std::stable_sort(kept.begin(), kept.end(),
                   [](const SimEvent& a, const SimEvent& b) { return a.tMs < b.tMs; });
  return kept;
}

bool Same(const SimEvent& a, const SimEvent& b) {
  return std::tie(a.tMs, a.kind, a.name, a.text, a.value, a.handle, a.priority, a.resources) ==
         std::tie(b.tMs, b.kind, b.name, b.text, b.value, b.handle, b.priority, b.resources);
}

// Same kind and time, and for the kinds that have one, the same subject.
bool SameSubject(const SimEvent& a, const SimEvent& b) {
  if (a.tMs != b.tMs || a.kind != b.kind) return false;
  bool named = a.kind == SimEvent::Kind::Node || a.kind == SimEvent::Kind::Counter ||
               a.kind == SimEvent::Kind::Log;
  return !named || a.name == b.name;
}

// The unmatched events between two matches: changed where a missing and an
// extra event share their subject, the rest missing or extra.
void ReportGap(const SimEvent* expected, size_t expectedCount, const SimEvent* recorded,
               size_t recordedCount, std::vector<Difference>* out) {
  std::vector<bool> paired(recordedCount, false);
  for (size_t i = 0; i < expectedCount; ++i) {
    Difference difference;
    difference.expected = expected[i];
    for (size_t j = 0; j < recordedCount; ++j) {
      if (paired[j] || !SameSubject(expected[i], recorded[j])) continue;
      paired[j] = true;
      difference.kind = Difference::Kind::Changed;
      difference.recorded = recorded[j];
      break;
    }
    out->push_back(std::move(difference));
  }
  for (size_t j = 0; j < recordedCount; ++j) {
    if (paired[j]) continue;
    Difference difference;
    difference.kind = Difference::Kind::Extra;
    difference.recorded = recorded[j];
    out->push_back(std::move(difference));
  }
}

// Aligns one time group [a, a + n) against [b, b + m).
void CompareGroup(const SimEvent* a, size_t n, const SimEvent* b, size_t m,
                  EventComparator::Result* result) {
  size_t prefix = 0;
  while (prefix < n && prefix < m && Same(a[prefix], b[prefix])) ++prefix;
  size_t suffix = 0;
  while (suffix < n - prefix && suffix < m - prefix && Same(a[n - 1 - suffix], b[m - 1 - suffix])) {
    ++suffix;
  }
  result->matched += prefix + suffix;
  a += prefix;
  b += prefix;
  n -= prefix + suffix;
  m -= prefix + suffix;
  if (n == 0 || m == 0 || (n + 1) * (m + 1) > kMaxCells) {
    ReportGap(a, n, b, m, &result->differences);
    return;
  }
  // lcs[i][j]: the longest common subsequence of a[i..] and b[j..].
  std::vector<uint32_t> lcs((n + 1) * (m + 1), 0);
  auto at = [m, &lcs](size_t i, size_t j) -> uint32_t& { return lcs[i * (m + 1) + j]; };
  for (size_t i = n; i-- > 0;) {
    for (size_t j = m; j-- > 0;) {
      at(i, j) = Same(a[i], b[j]) ? at(i + 1, j + 1) + 1 : std::max(at(i + 1, j), at(i, j + 1));
    }
  }
  size_t i = 0, j = 0, gapI = 0, gapJ = 0;
  while (i < n && j < m) {
    if (Same(a[i], b[j])) {
      ReportGap(a + gapI, i - gapI, b + gapJ, j - gapJ, &result->differences);
      ++result->matched;
      gapI = ++i;
      gapJ = ++j;
    } else if (at(i + 1, j) >= at(i, j + 1)) {
      ++i;
    } else {
      ++j;
    }
  }
  ReportGap(a + gapI, n - gapI, b + gapJ, m - gapJ, &result->differences);
}

// The end of the group of events at events[from].tMs.
size_t GroupEnd(const Events& events, size_t from, int64_t tMs) {
  while (from < events.size() && events[from].tMs == tMs) ++from;
  return from;
}

}  // namespace

EventComparator::Result EventComparator::Compare(std::vector<SimEvent> expected,
                                                 std::vector<SimEvent> recorded,
                                                 const Options& options) {
  Events a = Prepare(std::move(expected), options);
  Events b = Prepare(std::move(recorded), options);
  Result result;
  size_t i = 0, j = 0;
  while (i < a.size() || j < b.size()) {
    // The earliest time still to compare; a side without events there
    // contributes an empty group.
    int64_t t = j == b.size() || (i < a.size() && a[i].tMs < b[j].tMs) ? a[i].tMs : b[j].tMs;
    size_t endI = GroupEnd(a, i, t), endJ = GroupEnd(b, j, t);
    CompareGroup(a.data() + i, endI - i, b.data() + j, endJ - j, &result);
    i = endI;
    j = endJ;
  }
  return result;
}
