#include "sim/input/CaptureFormats.h"

#include <algorithm>

#include "sim/TextEscape.h"
#include "sim/input/InputFile.h"

namespace CaptureFormats {

// The readers, each defined in the file of its format.
bool RecognisesPerfetto(std::string_view head);
bool ReadPerfetto(const Source& source, Frames* frames, std::string* error);
bool RecognisesGfxinfo(std::string_view head);
bool ReadGfxinfo(const Source& source, Frames* frames, std::string* error);
bool RecognisesSurfaceFlinger(std::string_view head);
bool ReadSurfaceFlinger(const Source& source, Frames* frames, std::string* error);
bool ReadFrameTimes(const Source& source, Frames* frames, std::string* error);

namespace {

bool AnyText(std::string_view /*head*/) { return true; }

const Format kFormats[] = {
    {"Perfetto FrameTimeline", RecognisesPerfetto, false, ReadPerfetto},
    {"gfxinfo framestats", RecognisesGfxinfo, true, ReadGfxinfo},
    {"SurfaceFlinger latency", RecognisesSurfaceFlinger, true, ReadSurfaceFlinger},
    {"frame times", AnyText, true, ReadFrameTimes},
};

// Reads `source` as `format` and builds the capture model from it.
bool Build(const Format& format, const Source& source, FrameTimeline* timeline,
           std::string* error) {
  Frames found;
  if (!format.read(source, &found, error)) return false;
  std::string name = TextEscape::Terminal(source.path);
  if (found.frames.empty()) {
    *error = name + ": no frames in this " + format.name + " capture";
    return false;
  }
  auto [first, last] = std::minmax_element(found.frames.begin(), found.frames.end());
  int64_t span;
  if (__builtin_sub_overflow(*last, *first, &span)) {
    *error = name + ": the frame times span more than 2^63 ns; the capture is damaged";
    return false;
  }
  timeline->Assign(source.path, format.name, std::move(found.frames), found.layer,
                   std::move(found.janky));
  return true;
}

}  // namespace

const Format& Recognise(std::string_view head) {
  head = head.substr(0, kHeadBytes);
  return *std::find_if(std::begin(kFormats), std::end(kFormats),
                       [head](const Format& format) { return format.recognise(head); });
}

bool Load(const std::string& path, const std::string& layer, FrameTimeline* timeline,
          std::string* error) {
  const std::string what = "frame capture";
  std::string bytes;
  if (!InputFile::Read(path, what, InputFile::kMaxCaptureBytes, kHeadBytes, &bytes, error)) {
    return false;
  }
  const Format& format = Recognise(bytes);
  if (!format.text) return Build(format, {path, {}, layer}, timeline, error);
  if (!InputFile::Read(path, what, InputFile::kMaxCaptureBytes, &bytes, error)) return false;
  return Build(format, {path, bytes, layer}, timeline, error);
}

bool Parse(const std::string& name, std::string_view text, FrameTimeline* timeline,
           std::string* error) {
  const Format& format = Recognise(text);
  if (!format.text) {
    *error = TextEscape::Terminal(name) + ": a " + format.name + " capture is read from its file";
    return false;
  }
  return Build(format, {name, text, ""}, timeline, error);
}

}  // namespace CaptureFormats
