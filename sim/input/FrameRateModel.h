// The scenario's frame-rate model: what the frame-rate source reads at a
// virtual time under the scenario's fps and frames lines. Stateless free
// functions over a parsed Scenario (rates kept sorted by time, file order
// among equals); any thread.
#pragma once

#include <cstdint>
#include <utility>
#include <vector>

#include "sim/input/Scenario.h"

namespace FrameRateModel {

// The fps or frames line in force at `ms`, or null before the first: the
// latest to start, the last in the file among those starting together.
const Scenario::RateChange* ChangeAt(const Scenario& scenario, int64_t ms);

// The frame-rate source's value at `ms` (0 before the first line): a fps
// line's value, or a capture's frames in the second before. O(log of the
// number of lines and of the capture's frames).
float RateAt(const Scenario& scenario, int64_t ms);

// RateAt's changes from 0 to `endMs`: (ms, fps) where the value changes,
// captures sampled every 100 ms while they have frames. Its size grows
// with the lines and the captures' lengths, not with endMs.
std::vector<std::pair<int64_t, float>> MeasuredRates(const Scenario& scenario, int64_t endMs);

}  // namespace FrameRateModel
