#include "sim/FrameTimeline.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <limits>
#include <sstream>

#include "sim/PerfettoTrace.h"

namespace {

constexpr int64_t kSecondNs = 1000000000;
constexpr const char* kProfileMarker = "---PROFILEDATA---";
// Enough of a file's start to tell a binary trace from text.
constexpr size_t kHeadBytes = size_t{64} * 1024;

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    lines.push_back(line);
  }
  return lines;
}

std::vector<std::string> Split(const std::string& line, char separator) {
  std::vector<std::string> fields;
  std::string field;
  std::istringstream in(line);
  while (std::getline(in, field, separator)) fields.push_back(field);
  return fields;
}

std::vector<std::string> Words(const std::string& line) {
  std::vector<std::string> words;
  std::istringstream in(line);
  for (std::string word; in >> word;) words.push_back(word);
  return words;
}

bool ToInt64(const std::string& text, int64_t* value) {
  if (text.empty()) return false;
  char* end = nullptr;
  errno = 0;
  long long parsed = std::strtoll(text.c_str(), &end, 10);
  if (errno != 0 || *end != '\0') return false;
  *value = parsed;
  return true;
}

// All words of the line are integers; returns how many (0 for other lines).
size_t IntegerWords(const std::string& line, std::vector<int64_t>* values) {
  std::vector<std::string> words = Words(line);
  values->clear();
  for (const std::string& word : words) {
    int64_t value;
    if (!ToInt64(word, &value)) return 0;
    values->push_back(value);
  }
  return values->size();
}

bool ParseSurfaceFlinger(const std::vector<std::string>& lines, size_t firstRow,
                         std::vector<int64_t>* frames) {
  std::vector<int64_t> values;
  for (size_t i = firstRow; i < lines.size() && IntegerWords(lines[i], &values) == 3; ++i) {
    bool zeros = values[0] == 0 && values[1] == 0 && values[2] == 0;
    bool pending = std::count(values.begin(), values.end(), std::numeric_limits<int64_t>::max());
    if (!zeros && !pending) frames->push_back(values[1]);
  }
  return true;
}

void ParseGfxinfo(const std::vector<std::string>& lines, std::vector<int64_t>* frames) {
  size_t i = 0;
  while (frames->empty()) {
    while (i < lines.size() && lines[i] != kProfileMarker) ++i;
    if (++i >= lines.size()) return;  // no further block
    std::vector<std::string> header = Split(lines[i], ',');
    auto column = [&header](const char* name) {
      return static_cast<size_t>(std::find(header.begin(), header.end(), name) - header.begin());
    };
    size_t flags = column("Flags");
    size_t completed = column("FrameCompleted");
    for (++i; i < lines.size() && lines[i] != kProfileMarker; ++i) {
      std::vector<std::string> row = Split(lines[i], ',');
      int64_t flag = 0;
      int64_t time = 0;
      if (completed >= row.size() || !ToInt64(row[completed], &time)) continue;
      if (flags < row.size() && ToInt64(row[flags], &flag) && flag != 0) continue;
      frames->push_back(time);
    }
    ++i;  // past the closing marker
  }
}

}  // namespace

bool FrameTimeline::Load(const std::string& path, FrameTimeline* timeline, std::string* error) {
  return Load(path, "", timeline, error);
}

bool FrameTimeline::Load(const std::string& path, const std::string& layer, FrameTimeline* timeline,
                         std::string* error) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    *error = path + ": cannot open the frame capture";
    return false;
  }
  std::string head(kHeadBytes, '\0');
  in.read(head.data(), static_cast<std::streamsize>(head.size()));
  head.resize(static_cast<size_t>(in.gcount()));
  if (PerfettoTrace::Recognises(head)) return PerfettoTrace::Load(path, layer, timeline, error);
  std::ostringstream text;
  text << head;
  if (in) text << in.rdbuf();
  return Parse(path, text.str(), timeline, error);
}

bool FrameTimeline::Parse(const std::string& name, const std::string& text,
                          FrameTimeline* timeline, std::string* error) {
  std::string body = text.rfind("\xEF\xBB\xBF", 0) == 0 ? text.substr(3) : text;
  std::vector<std::string> lines = Lines(body);
  std::vector<int64_t> frames;
  std::vector<int64_t> values;

  auto firstRow = std::find_if(lines.begin(), lines.end(),
                               [&values](const std::string& l) { return IntegerWords(l, &values) == 3; });
  if (std::find(lines.begin(), lines.end(), kProfileMarker) != lines.end()) {
    timeline->mFormat = "gfxinfo framestats";
    ParseGfxinfo(lines, &frames);
  } else if (firstRow != lines.end() && firstRow != lines.begin() &&
             IntegerWords(*(firstRow - 1), &values) == 1) {
    timeline->mFormat = "SurfaceFlinger latency";
    ParseSurfaceFlinger(lines, static_cast<size_t>(firstRow - lines.begin()), &frames);
  } else {
    timeline->mFormat = "frame times";
    for (size_t i = 0; i < lines.size(); ++i) {
      if (Words(lines[i]).empty()) continue;
      if (IntegerWords(lines[i], &values) != 1) {
        *error = name + ":" + std::to_string(i + 1) +
                 ": expected a frame time in ns (or a SurfaceFlinger --latency or gfxinfo "
                 "framestats capture)";
        return false;
      }
      frames.push_back(values[0]);
    }
  }
  if (frames.empty()) {
    *error = name + ": no frames in this " + timeline->mFormat + " capture";
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
  mFrames = std::move(frames);
  mJanky = std::move(janky);
}

int FrameTimeline::FramesInSecondBefore(int64_t tNs) const {
  auto upTo = std::upper_bound(mFrames.begin(), mFrames.end(), tNs);
  auto after = std::upper_bound(mFrames.begin(), mFrames.end(), tNs - kSecondNs);
  return static_cast<int>(upTo - after);
}
