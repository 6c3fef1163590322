// `dumpsys gfxinfo <package> framestats`: CSV blocks between ---PROFILEDATA---
// lines; the first block holding a frame is used, a frame's time is its
// FrameCompleted column; rows with Flags != 0 are skipped.
#include <string>

#include "sim/input/CaptureFormats.h"
#include "sim/input/TextLines.h"
#include "sim/input/TextNumbers.h"

namespace CaptureFormats {

namespace {

constexpr std::string_view kProfileMarker = "---PROFILEDATA---";

// The n-th comma-separated field of `line` (empty when missing).
std::string_view Field(std::string_view line, size_t n) {
  for (size_t i = 0; i < n; ++i) {
    size_t comma = line.find(',');
    if (comma == std::string_view::npos) return {};
    line.remove_prefix(comma + 1);
  }
  return line.substr(0, line.find(','));
}

size_t Column(std::string_view header, std::string_view name) {
  for (size_t i = 0;; ++i) {
    size_t comma = header.find(',');
    if (header.substr(0, comma) == name) return i;
    if (comma == std::string_view::npos) return std::string::npos;
    header.remove_prefix(comma + 1);
  }
}

// The frames of the block whose header `lines` reads next; false when
// there is no further block.
bool ReadBlock(TextLines& lines, std::vector<int64_t>* frames) {
  std::string_view header, line;
  if (!lines.Next(&header)) return false;
  size_t flags = Column(header, "Flags");
  size_t completed = Column(header, "FrameCompleted");
  while (lines.Next(&line) && line != kProfileMarker) {
    int64_t flag = 0;
    int64_t time = 0;
    if (completed == std::string::npos || !TextNumbers::ToInteger(Field(line, completed), &time)) {
      continue;
    }
    bool flagged = flags != std::string::npos &&
                   TextNumbers::ToInteger(Field(line, flags), &flag) && flag != 0;
    if (!flagged) frames->push_back(time);
  }
  return true;
}

}  // namespace

bool RecognisesGfxinfo(std::string_view head) {
  TextLines lines("", head);
  for (std::string_view line; lines.Next(&line);) {
    if (line == kProfileMarker) return true;
  }
  return false;
}

bool ReadGfxinfo(const Source& source, Frames* frames, std::string* error) {
  TextLines lines(source.path, source.text);
  std::string_view line;
  while (frames->frames.empty()) {
    while (lines.Next(&line) && line != kProfileMarker) {
    }
    if (!ReadBlock(lines, &frames->frames)) break;
  }
  *error = lines.error();
  return error->empty();
}

}  // namespace CaptureFormats
