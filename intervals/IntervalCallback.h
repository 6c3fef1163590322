// The callback type of periodic work: takes one untyped pointer, returns
// nothing. Callbacks are small lambdas capturing one object pointer, so that
// copying one never allocates.
#pragma once

#include <functional>

using IntervalCallback = std::function<void(void*)>;
