// Meter name -> "a reading of this meter is wanted". Keys are fixed once the
// meta meter is built; values are flipped from several threads.
#pragma once

#include <atomic>
#include <string>
#include <unordered_map>

using MeterRequestMap = std::unordered_map<std::string, std::atomic<bool>>;
