// `dumpsys SurfaceFlinger --latency <layer>`: a refresh-period line, then
// rows of three ns timestamps (the second is the present time). Rows of
// zeros or holding INT64_MAX are not frames; a warning line may come first
// and a device trailer may follow the rows.
#include <algorithm>
#include <limits>

#include "sim/input/CaptureFormats.h"
#include "sim/input/TextLines.h"
#include "sim/input/TextNumbers.h"

namespace CaptureFormats {

namespace {

// Moves `lines` past the refresh-period line: true when the line last read
// is the first row (three integers right after a line of one), with its
// values in `values`. A first row of three integers after anything else is
// not this format.
bool FindFirstRow(TextLines& lines, int64_t values[4]) {
  size_t previousCount = 0;
  for (std::string_view line; lines.Next(&line);) {
    size_t count = TextNumbers::IntegerWords(line, values);
    if (count == 3) return previousCount == 1;
    previousCount = count;
  }
  return false;
}

}  // namespace

bool RecognisesSurfaceFlinger(std::string_view head) {
  TextLines lines("", head);
  int64_t values[4];
  return FindFirstRow(lines, values);
}

bool ReadSurfaceFlinger(const Source& source, Frames* frames, std::string* error) {
  TextLines lines(source.path, source.text);
  int64_t values[4];
  bool row = FindFirstRow(lines, values);
  constexpr int64_t kPending = std::numeric_limits<int64_t>::max();
  while (row) {
    bool zeros = values[0] == 0 && values[1] == 0 && values[2] == 0;
    if (!zeros && std::count(values, values + 3, kPending) == 0) {
      frames->frames.push_back(values[1]);
    }
    std::string_view line;
    // Anything but a row ends the rows: the device's trailer.
    row = lines.Next(&line) && TextNumbers::IntegerWords(line, values) == 3;
  }
  *error = lines.error();
  return error->empty();
}

}  // namespace CaptureFormats
