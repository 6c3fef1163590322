#include "sim/input/FrameTimeline.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <optional>
#include <string_view>

#include "sim/TextEscape.h"
#include "sim/input/InputFile.h"
#include "sim/input/PerfettoTrace.h"
#include "sim/input/TextLines.h"

namespace {

constexpr int64_t kSecondNs = 1000000000;
constexpr std::string_view kProfileMarker = "---PROFILEDATA---";
// Enough of a file's start to tell a binary trace from text.
constexpr size_t kHeadBytes = size_t{64} * 1024;

bool IsBlank(char c) { return c == ' ' || c == '\t'; }

std::string_view Trimmed(std::string_view text) {
  while (!text.empty() && IsBlank(text.front())) text.remove_prefix(1);
  while (!text.empty() && IsBlank(text.back())) text.remove_suffix(1);
  return text;
}

bool ToInt64(std::string_view text, int64_t* value) {
  text = Trimmed(text);
  if (text.empty()) return false;
  auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), *value);
  return error == std::errc() && end == text.data() + text.size();
}

// The line's blank-separated words, all integers: how many (up to 4), or 0
// when a word is not an integer (or out of the 64-bit range).
size_t IntegerWords(std::string_view line, int64_t values[4]) {
  size_t count = 0;
  for (size_t pos = 0;;) {
    while (pos < line.size() && IsBlank(line[pos])) ++pos;
    if (pos == line.size()) return count;
    size_t end = pos;
    while (end < line.size() && !IsBlank(line[end])) ++end;
    int64_t value;
    if (!ToInt64(line.substr(pos, end - pos), &value)) return 0;
    if (count < 4) values[count] = value;
    ++count;
    pos = end;
  }
}

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

enum class Format { Gfxinfo, SurfaceFlinger, FrameTimes };

const char* FormatName(Format format) {
  switch (format) {
    case Format::Gfxinfo:
      return "gfxinfo framestats";
    case Format::SurfaceFlinger:
      return "SurfaceFlinger latency";
    case Format::FrameTimes:
      return "frame times";
  }
  return "";
}

// First pass: a ---PROFILEDATA--- line anywhere makes it gfxinfo; a first
// row of three integers right after a line of one makes it SurfaceFlinger.
bool Detect(const std::string& name, std::string_view text, Format* format, std::string* error) {
  TextLines lines(name, text);
  std::optional<Format> found;
  size_t previousCount = 0;
  int64_t values[4];
  for (std::string_view line; lines.Next(&line);) {
    if (line == kProfileMarker) {
      *format = Format::Gfxinfo;
      return true;
    }
    size_t count = IntegerWords(line, values);
    if (!found && count == 3) {
      found = previousCount == 1 ? Format::SurfaceFlinger : Format::FrameTimes;
    }
    previousCount = count;
  }
  *error = lines.error();
  *format = found.value_or(Format::FrameTimes);
  return error->empty();
}

void ParseSurfaceFlinger(TextLines& lines, std::vector<int64_t>* frames) {
  int64_t values[4];
  bool rows = false;
  size_t previousCount = 0;
  for (std::string_view line; lines.Next(&line);) {
    size_t count = IntegerWords(line, values);
    if (!rows && !(count == 3 && previousCount == 1)) {
      previousCount = count;
      continue;
    }
    if (count != 3) return;  // the device's trailer
    rows = true;
    bool zeros = values[0] == 0 && values[1] == 0 && values[2] == 0;
    bool pending = std::count(values, values + 3, std::numeric_limits<int64_t>::max()) > 0;
    if (!zeros && !pending) frames->push_back(values[1]);
  }
}

void ParseGfxinfo(TextLines& lines, std::vector<int64_t>* frames) {
  std::string_view line;
  while (frames->empty()) {
    while (lines.Next(&line) && line != kProfileMarker) {
    }
    std::string_view header;
    if (!lines.Next(&header)) return;  // no further block
    size_t flags = Column(header, "Flags");
    size_t completed = Column(header, "FrameCompleted");
    while (lines.Next(&line) && line != kProfileMarker) {
      int64_t flag = 0;
      int64_t time = 0;
      if (completed == std::string::npos || !ToInt64(Field(line, completed), &time)) continue;
      if (flags != std::string::npos && ToInt64(Field(line, flags), &flag) && flag != 0) continue;
      frames->push_back(time);
    }
  }
}

bool ParseFrameTimes(TextLines& lines, std::vector<int64_t>* frames, std::string* error) {
  int64_t values[4];
  for (std::string_view line; lines.Next(&line);) {
    if (Trimmed(line).empty()) continue;
    if (IntegerWords(line, values) != 1) {
      *error = lines.Where() +
               "expected a frame time in ns, an integer within the 64-bit range (or a "
               "SurfaceFlinger --latency or gfxinfo framestats capture)";
      return false;
    }
    frames->push_back(values[0]);
  }
  return true;
}

}  // namespace

bool FrameTimeline::Load(const std::string& path, FrameTimeline* timeline, std::string* error) {
  return Load(path, "", timeline, error);
}

bool FrameTimeline::Load(const std::string& path, const std::string& layer, FrameTimeline* timeline,
                         std::string* error) {
  std::string bytes;
  if (!InputFile::Read(path, "frame capture", InputFile::kMaxCaptureBytes, kHeadBytes, &bytes,
                       error)) {
    return false;
  }
  // A trace is decoded as it streams from the file, so that memory follows
  // its frames and not its size; text captures are read whole.
  if (PerfettoTrace::Recognises(bytes)) return PerfettoTrace::Load(path, layer, timeline, error);
  if (!InputFile::Read(path, "frame capture", InputFile::kMaxCaptureBytes, &bytes, error)) {
    return false;
  }
  return Parse(path, bytes, timeline, error);
}

bool FrameTimeline::Parse(const std::string& name, const std::string& text, FrameTimeline* timeline,
                          std::string* error) {
  Format format;
  if (!Detect(name, text, &format, error)) return false;
  timeline->mFormat = FormatName(format);
  std::vector<int64_t> frames;
  TextLines lines(name, text);
  if (format == Format::Gfxinfo) ParseGfxinfo(lines, &frames);
  if (format == Format::SurfaceFlinger) ParseSurfaceFlinger(lines, &frames);
  if (format == Format::FrameTimes && !ParseFrameTimes(lines, &frames, error)) return false;
  if (!lines.error().empty()) {
    *error = lines.error();
    return false;
  }
  if (frames.empty()) {
    *error = TextEscape::Terminal(name) + ": no frames in this " + timeline->mFormat + " capture";
    return false;
  }
  std::sort(frames.begin(), frames.end());
  int64_t span;
  if (__builtin_sub_overflow(frames.back(), frames.front(), &span)) {
    *error = TextEscape::Terminal(name) +
             ": the frame times span more than 2^63 ns; the capture is damaged";
    return false;
  }
  timeline->Assign(name, timeline->mFormat, std::move(frames));
  return true;
}

void FrameTimeline::Assign(const std::string& name, const std::string& format,
                           std::vector<int64_t> frames, const std::string& layer,
                           std::vector<int64_t> janky) {
  std::sort(frames.begin(), frames.end());
  std::sort(janky.begin(), janky.end());
  int64_t first = frames.empty() ? 0 : frames.front();
  for (int64_t& frame : frames) frame -= first;
  for (int64_t& frame : janky) frame -= first;
  mName = name;
  mFormat = format;
  mLayer = layer;
  mOrigin = first;
  mFrames = std::move(frames);
  mJanky = std::move(janky);
}

int FrameTimeline::FramesInSecondBefore(int64_t tNs) const {
  if (tNs < 0) return 0;
  auto upTo = std::upper_bound(mFrames.begin(), mFrames.end(), tNs);
  auto after = std::upper_bound(mFrames.begin(), mFrames.end(), tNs - kSecondNs);
  return static_cast<int>(upTo - after);
}
