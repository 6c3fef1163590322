#include "sim/input/FrameRateModel.h"

#include <algorithm>

const Scenario::RateChange* FrameRateModel::ChangeAt(const Scenario& scenario, int64_t ms) {
  auto after = std::upper_bound(
      scenario.rates.begin(), scenario.rates.end(), ms,
      [](int64_t at, const Scenario::RateChange& change) { return at < change.atMs; });
  return after == scenario.rates.begin() ? nullptr : &*(after - 1);
}

float FrameRateModel::RateAt(const Scenario& scenario, int64_t ms) {
  const Scenario::RateChange* current = ChangeAt(scenario, ms);
  if (current == nullptr) return 0.0f;
  if (!current->timeline) return current->fps;
  return static_cast<float>(
      current->timeline->FramesInSecondBefore((ms - current->atMs) * 1000000));
}

std::vector<std::pair<int64_t, float>> FrameRateModel::MeasuredRates(const Scenario& scenario,
                                                                     int64_t endMs) {
  std::vector<std::pair<int64_t, float>> points;
  auto add = [&points, &scenario](int64_t ms) {
    float fps = RateAt(scenario, ms);
    if (points.empty() || points.back().second != fps) points.emplace_back(ms, fps);
  };
  add(0);
  const std::vector<Scenario::RateChange>& rates = scenario.rates;
  for (size_t i = 0; i < rates.size() && rates[i].atMs <= endMs; ++i) {
    int64_t until = i + 1 < rates.size() ? std::min(rates[i + 1].atMs, endMs + 1) : endMs + 1;
    if (!rates[i].timeline) {
      add(rates[i].atMs);
      continue;
    }
    // A capture's count changes until a second after its last frame.
    int64_t last = rates[i].atMs + rates[i].timeline->frames().back() / 1000000 + 1001;
    for (int64_t ms = rates[i].atMs; ms < until; ms += 100) {
      add(ms);
      if (ms > last) break;
    }
  }
  return points;
}
