#include "sim/check/EventComparator.h"

#include <algorithm>
#include <cstdint>
#include <deque>
#include <unordered_map>

#include "host/platform/LogPrefix.h"

namespace {

using Events = std::vector<SimEvent>;
using Difference = EventComparator::Difference;
constexpr size_t kNone = SIZE_MAX;

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

// Equal for events of one time that are the same in every field.
std::string Identity(const SimEvent& event) {
  std::string key = std::to_string(static_cast<int>(event.kind)) + ' ' +
                    std::to_string(event.value) + ' ' + std::to_string(event.handle) + ' ' +
                    std::to_string(event.priority) + ' ' + std::to_string(event.name.size()) + ' ' +
                    event.name + event.text + ' ';
  for (int32_t resource : event.resources) key += std::to_string(resource) + ',';
  return key;
}

// Equal for events of one time of the same kind and, for the kinds that
// have one, the same subject.
std::string Subject(const SimEvent& event) {
  bool named = event.kind == SimEvent::Kind::Node || event.kind == SimEvent::Kind::Counter ||
               event.kind == SimEvent::Kind::Log;
  return std::to_string(static_cast<int>(event.kind)) + ' ' + (named ? event.name : "");
}

// Where each identity occurs in one group, and how far each was searched.
class Occurrences {
 public:
  explicit Occurrences(const std::vector<std::string>& keys) {
    for (size_t i = 0; i < keys.size(); ++i) mAt[keys[i]].positions.push_back(i);
  }
  // The first position of `key` at or after `from`; `from` never decreases
  // between calls, so every search over the group is linear in all.
  size_t Next(const std::string& key, size_t from) {
    auto found = mAt.find(key);
    if (found == mAt.end()) return kNone;
    List& list = found->second;
    while (list.next < list.positions.size() && list.positions[list.next] < from) ++list.next;
    return list.next < list.positions.size() ? list.positions[list.next] : kNone;
  }

 private:
  struct List {
    std::vector<size_t> positions;
    size_t next = 0;
  };
  std::unordered_map<std::string, List> mAt;
};

// The unmatched events between two matches: changed where a missing and an
// extra event share their subject (first with first), the rest missing or
// extra.
void ReportGap(const SimEvent* expected, size_t expectedCount, const SimEvent* recorded,
               size_t recordedCount, std::vector<Difference>* out) {
  std::unordered_map<std::string, std::deque<size_t>> unpaired;
  for (size_t j = 0; j < recordedCount; ++j) unpaired[Subject(recorded[j])].push_back(j);
  std::vector<bool> paired(recordedCount, false);
  for (size_t i = 0; i < expectedCount; ++i) {
    Difference difference;
    difference.expected = expected[i];
    auto found = unpaired.find(Subject(expected[i]));
    if (found != unpaired.end() && !found->second.empty()) {
      size_t j = found->second.front();
      found->second.pop_front();
      paired[j] = true;
      difference.kind = Difference::Kind::Changed;
      difference.recorded = recorded[j];
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

std::vector<std::string> Identities(const SimEvent* events, size_t count) {
  std::vector<std::string> keys;
  keys.reserve(count);
  for (size_t i = 0; i < count; ++i) keys.push_back(Identity(events[i]));
  return keys;
}

// Aligns one time group [a, a + n) against [b, b + m).
void CompareGroup(const SimEvent* a, size_t n, const SimEvent* b, size_t m,
                  EventComparator::Result* result) {
  std::vector<std::string> keysA = Identities(a, n), keysB = Identities(b, m);
  Occurrences inA(keysA), inB(keysB);
  size_t i = 0, j = 0, gapI = 0, gapJ = 0;
  while (i < n && j < m) {
    if (keysA[i] == keysB[j]) {
      ReportGap(a + gapI, i - gapI, b + gapJ, j - gapJ, &result->differences);
      ++result->matched;
      gapI = ++i;
      gapJ = ++j;
      continue;
    }
    // Skip to the nearer next match; with none, both events stay unmatched.
    size_t nextB = inB.Next(keysA[i], j), nextA = inA.Next(keysB[j], i);
    if (nextA == kNone && nextB == kNone) {
      ++i;
      ++j;
    } else if (nextA == kNone || (nextB != kNone && nextB - j <= nextA - i)) {
      j = nextB;
    } else {
      i = nextA;
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
