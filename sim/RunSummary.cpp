#include "sim/RunSummary.h"

#include <cstdlib>

RunSummary RunSummary::Of(const RunResult& result) {
  RunSummary summary;
  std::map<int32_t, int64_t> held;  // handle -> acquired at
  for (const SimEvent& event : result.events) {
    switch (event.kind) {
      case SimEvent::Kind::Node: {
        std::string node = ShortNode(event.name);
        ++summary.nodeWrites[node];
        if (node != "fps") break;
        int value = std::atoi(event.text.c_str());
        if (summary.targets.empty() || summary.targets.back().second != value) {
          summary.targets.emplace_back(event.tMs, value);
        }
        break;
      }
      case SimEvent::Kind::LockAcquire:
        if (event.handle >= 1) held[event.handle] = event.tMs;
        break;
      case SimEvent::Kind::LockRelease: {
        auto found = held.find(event.handle);
        if (found == held.end()) break;
        summary.lockSpans.emplace_back(found->second, event.tMs);
        held.erase(found);
        break;
      }
      case SimEvent::Kind::Log:
        ++summary.messages;
        break;
      default:
        break;
    }
  }
  for (const auto& [handle, from] : held) summary.lockSpans.emplace_back(from, result.endMs);
  return summary;
}

int64_t RunSummary::LockHeldMs() const {
  int64_t total = 0;
  for (const auto& [from, to] : lockSpans) total += to - from;
  return total;
}

std::string RunSummary::ShortNode(const std::string& path) {
  return path.substr(path.rfind('/') + 1);
}
