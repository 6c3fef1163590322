// gorv-sim replaying Perfetto traces: small traces built with the protobuf
// classes (several layers, dropped, unended and pending frames, compressed
// packets, broken bytes), the layer choice, the errors, and the janky
// frames in the reports.
#include <limits>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "sim/input/ScenarioParser.h"
#include "sim/output/ChromeTraceWriter.h"
#include "sim/output/SummaryJsonWriter.h"
#include "sim/output/SvgPlotWriter.h"
#include "sim/output/TimelinePrinter.h"
#include "sim/run/RunEngine.h"
#include "tests/support/PerfettoTraceBuilder.h"
#include "tests/support/SimFolderTest.h"

namespace {

namespace pb = gorvsim::perfetto;
using Event = pb::FrameTimelineEvent;
using Times = std::vector<int64_t>;

constexpr uint64_t kMs = 1000000;

class PerfettoReplayTest : public SimFolderTest {
 protected:
  void SetUp() override {
    // The game's layer: frames ending at 250 ms (janky), 300 and, from the
    // compressed packets, 600 (janky); a dropped frame, one never ended, one
    // pending (INT64_MAX) and one ending after the trace's last packet (1000).
    TraceBuilder game;
    game.Frame("TX - game#1", 1, 100 * kMs, 300 * kMs);
    game.Frame("TX - game#1", 2, 120 * kMs, 250 * kMs, Event::PRESENT_LATE,
               Event::JANK_APP_DEADLINE_MISSED);
    game.Frame("TX - game#1", 3, 130 * kMs, 400 * kMs, Event::PRESENT_DROPPED);
    game.Frame("TX - game#1", 4, 140 * kMs, kNever);
    game.Frame("TX - game#1", 5, 150 * kMs, std::numeric_limits<int64_t>::max());
    game.Frame("TX - game#1", 6, 160 * kMs, 5000 * kMs);
    game.Packet(170 * kMs)->mutable_expected_surface_frame_start()->set_cookie(7);
    game.Packet(350 * kMs)->mutable_frame_end()->set_cookie(7);
    game.Frame("TX - menu#2", 8, 180 * kMs, 500 * kMs);
    game.Packet(550 * kMs)->mutable_frame_end()->set_cookie(9);  // written before its start
    game.Frame("TX - menu#2", 9, 190 * kMs, kNever);
    game.Frame("TX - dialog#3", 10, 200 * kMs, 260 * kMs, Event::PRESENT_DROPPED);
    TraceBuilder later;
    later.Frame("TX - game#1", 11, 210 * kMs, 600 * kMs, Event::PRESENT_ON_TIME,
                Event::JANK_BUFFER_STUFFING);
    game.trace.add_packet()->set_compressed_packets(Deflate(later.Bytes()));
    game.trace.add_packet()->set_timestamp(1000 * kMs);
    gameBytes = game.Bytes();
    // Fields the simulator does not read: in a packet, and beside the packets.
    Write("game.txt", gameBytes + "\x0a\x02\x50\x01" + "\x10\x07");
  }
  bool Parse(const std::string& text) {
    return ScenarioParser::Parse("x.scn", dir, text, &scenario, &error);
  }

  std::string gameBytes, error;
  Scenario scenario;
};

TEST_F(PerfettoReplayTest, TheFramesOfTheChosenLayer) {
  ASSERT_TRUE(
      Parse("frames 0 game.txt\nlayer menu\nframes 10 game.txt\nlayer\nframes 20 game.txt\n"))
      << error;
  const FrameTimeline& game = *scenario.rates[0].timeline;
  EXPECT_EQ(game.format(), "Perfetto FrameTimeline");
  EXPECT_EQ(game.layer(), "TX - game#1");
  EXPECT_EQ(game.frames(), (Times{0, 50 * kMs, 350 * kMs}));
  EXPECT_EQ(game.janky(), (Times{0, 350 * kMs}));
  EXPECT_EQ(scenario.rates[1].timeline->layer(), "TX - menu#2");
  EXPECT_EQ(scenario.rates[1].timeline->frames(), (Times{0, 50 * kMs}));
  EXPECT_EQ(scenario.rates[2].timeline->layer(), "TX - game#1");
}

TEST_F(PerfettoReplayTest, ErrorsNameTheFileAndTheLine) {
  TraceBuilder plain;
  plain.trace.add_packet()->set_timestamp(5);
  std::string one = plain.Bytes();
  Write("truncated.pftrace", one + gameBytes.substr(0, 9));
  Write("corrupt.pftrace", one + "\x0a\x03\xff\xff\xff");
  pb::Trace bad;
  bad.add_packet()->set_compressed_packets("not zlib");
  Write("badzlib.pftrace", one + bad.SerializeAsString());
  TraceBuilder dropped;
  dropped.Frame("TX - a#1", 1, 10, 20, Event::PRESENT_DROPPED);
  Write("dropped.pftrace", dropped.Bytes());
  const std::string layers =
      "; the layers of this trace, with their presented frames:\n"
      "       3  TX - game#1 (pid 11)\n"
      "       2  TX - menu#2 (pid 11)\n"
      "       0  TX - dialog#3 (pid 13)";
  const std::string corrupt =
      ".pftrace: truncated or corrupt Perfetto trace (the packet at byte 4)";
  const std::pair<const char*, std::string> cases[] = {
      {"frames 0 truncated.pftrace", "truncated" + corrupt},
      {"frames 0 corrupt.pftrace", "corrupt" + corrupt},
      {"frames 0 badzlib.pftrace", "badzlib" + corrupt},
      {"frames 0 dropped.pftrace",
       "dropped.pftrace: no layer has a presented frame in this Perfetto trace"},
      {"layer dialog\nframes 0 game.txt",
       "game.txt: layer 'TX - dialog#3' has no presented frame in this Perfetto trace"},
      {"layer sound\nframes 0 game.txt", "game.txt: no layer's name contains 'sound'" + layers},
      {"layer TX\nframes 0 game.txt", "game.txt: 3 layers' names contain 'TX'" + layers},
  };
  for (const auto& [text, message] : cases) {
    EXPECT_FALSE(Parse(text)) << text;
    EXPECT_EQ(error,
              "x.scn:" + std::string(text[0] == 'l' ? "2" : "1") + ": " + dir + "/" + message);
  }
}

TEST_F(PerfettoReplayTest, TheReportsMarkTheJankyFrames) {
  ASSERT_TRUE(Parse("frames 1000 game.txt\nend 2000\n")) << error;
  RunResult result;
  ASSERT_TRUE(RunEngine::Run(scenario, {GORV_PLUGIN_PATH, false}, &result, &error)) << error;
  EXPECT_EQ(result.info.jankyMs, (Times{1000, 1350}));

  std::ostringstream timeline, plot, trace;
  result.WriteAs<TimelinePrinter>(timeline);
  EXPECT_NE(timeline.str().find("\nframes from 1.000 s: layer 'TX - game#1' of " + dir +
                                "/game.txt, 3 frames (2 flagged janky by the trace)\n\n"),
            std::string::npos)
      << timeline.str();
  result.WriteAs<SvgPlotWriter>(plot);
  result.WriteAs<ChromeTraceWriter>(trace);
  auto count = [](const std::string& text, const std::string& what) {
    size_t n = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
    return n;
  };
  EXPECT_EQ(count(plot.str(), "stroke=\"#d62728\" stroke-width=\"1.5\""), 2u);
  EXPECT_EQ(count(plot.str(), "janky frame (per the trace)"), 1u);
  EXPECT_EQ(count(trace.str(), "\"name\":\"janky frame\""), 2u);

  std::ostringstream summary;
  SummaryJsonWriter json(scenario, summary);
  result.Replay(json);
  EXPECT_EQ(
      nlohmann::json::parse(summary.str()).at("replays"),
      nlohmann::json::parse(
          R"([{"t":1000,"format":"Perfetto FrameTimeline","frames":3,"layer":"TX - game#1"}])"));
}

}  // namespace
