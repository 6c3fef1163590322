// Meter name -> "a reading of this meter is wanted". Values are atomics,
// flipped from the periodic thread (a request) and the meter thread (served).
// Keys are written by the meta meter's constructor, and once more by
// GorvMetaMeter::writeToDataBase on the meter thread: the first time an "Fps"
// meter reports without having been configured, it inserts "Fps" (flag
// false), unguarded, while the periodic thread may be looking names up. The
// framework reports only the meters it was configured with, which keeps that
// insertion from ever happening alongside a lookup.
#pragma once

#include <atomic>
#include <string>
#include <unordered_map>

using MeterRequestMap = std::unordered_map<std::string, std::atomic<bool>>;
