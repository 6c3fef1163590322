// The capture formats read in-process: each recognised from its first bytes
// (text never taken for a trace, nor a trace for text), the text formats'
// rows, a Perfetto trace's bounds (a zip bomb, frames started and never
// ended), a capture named in several ways read once, and fps values the
// scenario accepts at the float's limits.
#include "sim/input/CaptureFormats.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "gtest/gtest.h"
#include "sim/input/ScenarioParser.h"
#include "tests/support/PerfettoTraceBuilder.h"
#include "tests/support/TempFolder.h"

namespace {

using Times = std::vector<int64_t>;

// A trace of frames of one layer, `starts` of them never ended.
std::string Trace(const Times& ends, int starts = 0) {
  TraceBuilder trace;
  int64_t cookie = 0;
  for (int64_t end : ends) {
    trace.Frame("TX - game#1", ++cookie, static_cast<uint64_t>(end - 1000),
                static_cast<uint64_t>(end));
  }
  for (int i = 0; i < starts; ++i) trace.Frame("TX - game#1", ++cookie, 1, kNever);
  int64_t last = ends.empty() ? 1 : *std::max_element(ends.begin(), ends.end());
  trace.trace.add_packet()->set_timestamp(static_cast<uint64_t>(last));
  return trace.Bytes();
}

const char kSurfaceFlinger[] =
    "Warning: layer not found, using first\r\n16666666\n"
    "100 1000000000 120\n0 0 0\n"
    "200 1016000000 220\n9223372036854775807 9223372036854775807 9223372036854775807\n"
    "300 1033000000 320\n\nsome trailer 1 2 3\n";
const char kGfxinfo[] =
    "Stats since: 1\n---PROFILEDATA---\nFlags,IntendedVsync,FrameCompleted,\n"
    "---PROFILEDATA---\n---PROFILEDATA---\n"
    "Flags,IntendedVsync,FrameCompleted,\n0,5,2000,\n1,6,2500,\n0,7,3000,\n"
    "---PROFILEDATA---\n";

TEST(CaptureFormatsTest, EachFormatIsRecognisedFromItsFirstBytes) {
  const std::pair<std::string, const char*> rows[] = {
      {Trace({5000}), "Perfetto FrameTimeline"},
      {Trace({5000}).substr(0, 7), "frame times"},                    // the first packet cut short
      {Trace({5000, 6000}).substr(0, 40), "Perfetto FrameTimeline"},  // a later one cut
      {Trace(Times(3000, 5000)).substr(0, CaptureFormats::kHeadBytes), "Perfetto FrameTimeline"},
      {kGfxinfo, "gfxinfo framestats"},
      {kSurfaceFlinger, "SurfaceFlinger latency"},
      {"16666666\n1 2 3\n", "SurfaceFlinger latency"},
      {"5\n6\n", "frame times"},
      {"1 2 3\n", "frame times"},  // rows without the period line
      // Text starting with a line feed, as a trace does: never a trace.
      {"\n\t5000000\n", "frame times"},
      {"\n16666666\n1 2 3\n", "SurfaceFlinger latency"},
      // Control bytes after a line feed, but no packet framing.
      {std::string("\n\x02\x01\x01\x07", 5), "frame times"},
      {"\n5000000\n6000000\x01\n", "frame times"},
      // Text framed as a packet: a line feed, then "0" (48) and 48 bytes.
      {"\n0" + std::string(47, '1') + "\n", "frame times"},
      {"", "frame times"},
  };
  for (const auto& [head, format] : rows) {
    EXPECT_STREQ(CaptureFormats::Recognise(head).name, format) << head;
  }
}

TEST(CaptureFormatsTest, TextCapturesAreReadAsTheirFormatSays) {
  struct Row {
    std::string text;
    std::string format;  // "" : refused with `error`
    Times frames;
    std::string error;
  };
  const std::string notATime =
      "expected a frame time in ns, an integer within the 64-bit range "
      "(or a SurfaceFlinger --latency or gfxinfo framestats capture)";
  // clang-format off
  const Row rows[] = {
      {kSurfaceFlinger, "SurfaceFlinger latency", {0, 16000000, 33000000}, ""},
      {kGfxinfo, "gfxinfo framestats", {0, 1000}, ""},
      {"\xEF\xBB\xBF" "5000000000\n\n5500000000\n6000000000\n", "frame times",
       {0, 500000000, 1000000000}, ""},
      {"-5\n9223372036854775790\n-9\n", "frame times", {0, 4, 9223372036854775799}, ""},
      {"12\nabc\n", "", {}, "c:2: " + notATime},
      {"9223372036854775808\n", "", {}, "c:1: " + notATime},
      {"16666666\n0 0 0\n", "", {}, "c: no frames in this SurfaceFlinger latency capture"},
      {"5\n6\x01\n", "", {}, "c:2: control character 0x01 (only tabs are allowed)"},
      {"-9223372036854775808\n9223372036854775807\n", "", {},
       "c: the frame times span more than 2^63 ns; the capture is damaged"},
      {Trace({5000}), "", {}, "c: a Perfetto FrameTimeline capture is read from its file"},
  };
  // clang-format on
  for (const Row& row : rows) {
    FrameTimeline timeline;
    std::string error;
    bool read = CaptureFormats::Parse("c", row.text, &timeline, &error);
    EXPECT_EQ(read, row.error.empty()) << row.text;
    EXPECT_EQ(error, row.error) << row.text;
    if (!read) continue;
    EXPECT_EQ(timeline.format(), row.format);
    EXPECT_EQ(timeline.frames(), row.frames);
  }
  // The frames a second holds: (t - 1 s, t].
  FrameTimeline timeline;
  std::string error;
  ASSERT_TRUE(CaptureFormats::Parse("c", "7\n500000007\n1000000007\n", &timeline, &error));
  const std::pair<int64_t, int> counts[] = {{-1, 0},         {0, 1},          {999999999, 2},
                                            {1000000000, 2}, {1500000000, 1}, {2000000001, 0}};
  for (const auto& [tNs, frames] : counts) {
    EXPECT_EQ(timeline.FramesInSecondBefore(tNs), frames) << tNs;
  }
}

TEST(CaptureFormatsTest, ATraceKeepsItsLayerAndOriginAndStaysBounded) {
  TempFolder folder;
  FrameTimeline timeline;
  std::string error;
  ASSERT_TRUE(
      CaptureFormats::Load(folder.Write("t", Trace({9000, 7000, 8000})), "game", &timeline, &error))
      << error;
  EXPECT_EQ(timeline.frames(), (Times{0, 1000, 2000}));
  EXPECT_EQ(timeline.layer(), "TX - game#1");
  EXPECT_EQ(timeline.originNs(), 7000);

  // 64 MiB of zeros deflate to about 64 kB: more than 64 times the file.
  gorvsim::perfetto::Trace bomb;
  bomb.add_packet()->set_compressed_packets(Deflate(std::string(size_t{64} << 20, '\0')));
  std::string bombPath = folder.Write("bomb", bomb.SerializeAsString());
  EXPECT_FALSE(CaptureFormats::Load(bombPath, "", &timeline, &error));
  EXPECT_EQ(error, bombPath +
                       ": its compressed packets inflate to more than 64 times the file's size "
                       "(or 4 GiB); the trace is damaged or hostile");

  // Frame starts never ended: one more than the cap is refused.
  std::string unended = folder.Write("unended", Trace({5000}, (1 << 16) + 1));
  EXPECT_FALSE(CaptureFormats::Load(unended, "", &timeline, &error));
  EXPECT_EQ(error, unended +
                       ": more than 65536 frames started and not ended at once; the trace is "
                       "damaged");
  EXPECT_TRUE(
      CaptureFormats::Load(folder.Write("at-cap", Trace({5000}, 1 << 16)), "", &timeline, &error))
      << error;
}

TEST(CaptureFormatsTest, ACaptureNamedInSeveralWaysIsReadOncePerLayer) {
  TempFolder folder;
  const std::string c = folder.path() + "/c", x = folder.Write("c/x", Trace({5000, 6000}));
  ASSERT_EQ(symlink("x", (c + "/link").c_str()), 0);
  Scenario scenario;
  std::string error;
  const std::string text = "frames 0 ./x\nframes 1 ././x\nlayer TX\nframes 2 x\nframes 3 link\n";
  ASSERT_TRUE(ScenarioParser::Parse("s", c, text + "frames 4 " + x + "\nlayer \nframes 5 x\n",
                                    &scenario, &error))
      << error;
  ASSERT_EQ(scenario.rates.size(), 6u);
  const FrameTimeline* anyLayer = scenario.rates[0].timeline.get();
  const FrameTimeline* layerTx = scenario.rates[2].timeline.get();
  const FrameTimeline* read[] = {anyLayer, anyLayer, layerTx, layerTx, layerTx, anyLayer};
  for (size_t i = 0; i < 6; ++i) EXPECT_EQ(scenario.rates[i].timeline.get(), read[i]) << i;
  EXPECT_NE(anyLayer, layerTx);
}

TEST(CaptureFormatsTest, FpsValuesAtTheFloatsLimits) {
  // A denormal is kept; below every float the nearest is 0, and -0 is 0.
  const std::pair<const char*, float> rows[] = {{"1e-40", 1e-40f}, {"1.2e-38", 1.2e-38f},
                                                {"1e-50", 0.0f},   {"0", 0.0f},
                                                {"-1e-50", 0.0f},  {"3.4e38", 3.4e38f}};
  for (const auto& [value, fps] : rows) {
    Scenario scenario;
    std::string error;
    ASSERT_TRUE(ScenarioParser::Parse("s", ".", std::string("fps 0 ") + value, &scenario, &error))
        << value << ": " << error;
    EXPECT_EQ(scenario.rates.at(0).fps, fps) << value;
    EXPECT_FALSE(std::signbit(scenario.rates.at(0).fps)) << value;
  }
}

}  // namespace
