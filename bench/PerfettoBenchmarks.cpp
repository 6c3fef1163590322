// What replaying a Perfetto trace costs gorv-sim: reading a trace shaped
// like a phone's (120 Hz, a game and an overlay layer, display frames, other
// data sources' packets in between, about 100 kB a second), and a whole run
// with the trace against the same run at a constant frame rate.
#include <benchmark/benchmark.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "perfetto_trace.pb.h"
#include "sim/input/CaptureFormats.h"
#include "sim/input/ScenarioParser.h"
#include "sim/run/RunEngine.h"

namespace {

namespace pb = gorvsim::perfetto;
using Event = pb::FrameTimelineEvent;

constexpr int64_t kVsyncNs = 8333333;
const std::string kGameLayer =
    "TX - com.example.game/com.example.game.MainActivity#50010 (the game's main surface)";

Event* Packet(pb::Trace* trace, int64_t ns) {
  pb::TracePacket* packet = trace->add_packet();
  packet->set_timestamp(static_cast<uint64_t>(ns));
  return packet->mutable_frame_timeline_event();
}

// One vsync: the display frame, each layer's expected and actual frame, and
// an ftrace-sized packet the reader skips.
void Vsync(pb::Trace* trace, int64_t vsync) {
  int64_t start = vsync * kVsyncNs;
  int64_t cookie = vsync * 8;
  Packet(trace, start)->mutable_expected_display_frame_start()->set_cookie(cookie);
  Packet(trace, start)->mutable_actual_display_frame_start()->set_cookie(cookie + 1);
  for (int64_t layer = 0; layer < 2; ++layer) {
    int64_t surface = cookie + 2 + 2 * layer;
    Packet(trace, start)->mutable_expected_surface_frame_start()->set_cookie(surface);
    Event::ActualSurfaceFrameStart* actual =
        Packet(trace, start)->mutable_actual_surface_frame_start();
    actual->set_cookie(surface + 1);
    actual->set_pid(static_cast<int>(4242 + layer));
    actual->set_layer_name(layer == 0 ? kGameLayer : "TX - StatusBar#38004");
    actual->set_present_type(vsync % 50 == 0 ? Event::PRESENT_LATE : Event::PRESENT_ON_TIME);
    actual->set_jank_type(vsync % 50 == 0 ? Event::JANK_APP_DEADLINE_MISSED : Event::JANK_NONE);
    Packet(trace, start + 2 * kVsyncNs)->mutable_frame_end()->set_cookie(surface);
    Packet(trace, start + 2 * kVsyncNs)->mutable_frame_end()->set_cookie(surface + 1);
  }
  Packet(trace, start + kVsyncNs)->mutable_frame_end()->set_cookie(cookie);
  Packet(trace, start + kVsyncNs)->mutable_frame_end()->set_cookie(cookie + 1);
  pb::TracePacket* other = trace->add_packet();
  other->mutable_unknown_fields()->assign("\x0a\x88\x04" +
                                          std::string(520, 'f'));  // field 1, 520 bytes
}

// Writes `seconds` of trace to `path` a second at a time; returns its size.
size_t WriteTrace(const std::string& path, int64_t seconds) {
  std::ofstream out(path, std::ios::binary);
  for (int64_t second = 0; second < seconds; ++second) {
    pb::Trace trace;
    for (int64_t vsync = second * 120; vsync < (second + 1) * 120; ++vsync) Vsync(&trace, vsync);
    out << trace.SerializeAsString();
  }
  pb::Trace end;
  end.add_packet()->set_timestamp(static_cast<uint64_t>((seconds * 120 + 3) * kVsyncNs));
  out << end.SerializeAsString();
  return static_cast<size_t>(out.tellp());
}

std::string TempPath(const char* name) {
  return (std::filesystem::temp_directory_path() / name).string();
}

// Arg: seconds of trace (10: about 1 MB; 1000: about 100 MB).
void BM_PerfettoTraceLoad(benchmark::State& state) {
  std::string path = TempPath("gorv-bench.perfetto-trace");
  size_t bytes = WriteTrace(path, state.range(0));
  size_t frames = 0;
  for (auto _ : state) {
    FrameTimeline timeline;
    std::string error;
    if (!CaptureFormats::Load(path, "", &timeline, &error)) state.SkipWithError(error.c_str());
    frames = timeline.frames().size();
  }
  std::filesystem::remove(path);
  state.counters["trace_MB"] = static_cast<double>(bytes) / 1e6;
  state.counters["frames"] = static_cast<double>(frames);
}
BENCHMARK(BM_PerfettoTraceLoad)->Arg(10)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PerfettoTraceLoad)->Arg(1000)->Iterations(1)->Unit(benchmark::kMillisecond);

// A 12-second run of a game session; Arg 1 replays the 10-second trace,
// Arg 0 runs at a constant 120 fps.
void BM_SimulatorRun(benchmark::State& state) {
  std::string path = TempPath("gorv-bench-run.perfetto-trace");
  WriteTrace(path, 10);
  std::string text =
      std::string("property ro.vendor.perf.gorv true\napp com.example.game 2 4242\n") +
      (state.range(0) ? "frames 0 " + path : std::string("fps 0 120")) +
      "\ntrigger 500 4097 com.example.game/.Main\nend 12000\n";
  for (auto _ : state) {
    Scenario scenario;
    RunResult result;
    std::string error;
    if (!ScenarioParser::Parse("bench.scn", "/", text, &scenario, &error) ||
        !RunEngine::Run(scenario, {GORV_PLUGIN_PATH, false}, &result, &error)) {
      state.SkipWithError(error.c_str());
    }
  }
  std::filesystem::remove(path);
}
BENCHMARK(BM_SimulatorRun)->ArgName("trace")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

}  // namespace
