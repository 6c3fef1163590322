// A plain list of frame times in ns, one per line; blank lines are skipped.
#include "sim/input/CaptureFormats.h"
#include "sim/input/TextLines.h"
#include "sim/input/TextNumbers.h"

namespace CaptureFormats {

bool ReadFrameTimes(const Source& source, Frames* frames, std::string* error) {
  TextLines lines(source.path, source.text);
  int64_t values[4];
  for (std::string_view line; lines.Next(&line);) {
    if (TextNumbers::Trimmed(line).empty()) continue;
    if (TextNumbers::IntegerWords(line, values) != 1) {
      *error = lines.Where() +
               "expected a frame time in ns, an integer within the 64-bit range (or a "
               "SurfaceFlinger --latency or gfxinfo framestats capture)";
      return false;
    }
    frames->frames.push_back(values[0]);
  }
  *error = lines.error();
  return error->empty();
}

}  // namespace CaptureFormats
