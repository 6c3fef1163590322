// One row of the data manager's table: a data element, the sampling limits
// its consumers asked for, and three callbacks bound to the data manager.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "intervals/IntervalCallback.h"

// Selector of a row.
enum DataMapper : int { FPS = 0 };

struct DataElem {
  std::string name;
  int32_t queueSize = -1;        // samples kept; -1 while unset
  int32_t maxInterval = -1;      // longest averaging duration asked for (ms); -1 while unset
  int32_t minInterval = -1;      // shortest sampling period asked for (ms); -1 while unset
  IntervalCallback collectData;  // takes one sample
  std::function<int(void*, int, int)> processData;  // reduces the samples into `out`
  IntervalCallback prepareData;                     // arms the source before sampling
};
