// gorv-sim: scenarios replayed through the real libgorv.so, with expected
// event streams worked out by hand; the scenario language's verbatim rest of
// line; the frame-capture formats; the trace and plot outputs.
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "sim/input/FrameRateModel.h"
#include "sim/input/ScenarioParser.h"
#include "sim/output/ChromeTraceWriter.h"
#include "sim/output/JsonLinesWriter.h"
#include "sim/output/SvgPlotWriter.h"
#include "sim/run/RunEngine.h"
#include "tests/support/LogCapture.h"
#include "tests/support/SimFolderTest.h"

namespace {

class SimulatorTest : public SimFolderTest {
 protected:
  // The scenario of `text`, read as if from a file of the folder.
  Scenario Parsed(const std::string& text) {
    Scenario scenario;
    std::string error;
    EXPECT_TRUE(ScenarioParser::Parse("test.scn", dir, text, &scenario, &error)) << error;
    return scenario;
  }
  // Runs a scenario text; the events as --events writes them, source lines
  // of log messages masked as N.
  Lines Events(const std::string& text) {
    std::string error;
    EXPECT_TRUE(RunEngine::Run(Parsed(text), {GORV_PLUGIN_PATH, false}, &result, &error)) << error;
    std::ostringstream out;
    result.WriteAs<JsonLinesWriter>(out);
    Lines lines;
    std::istringstream in(out.str());
    for (std::string line; std::getline(in, line);) lines.push_back(LogCapture::MaskLine(line));
    return lines;
  }

  RunResult result;
};

// The feature enabled and a game at 60 fps.
constexpr const char* kGame =
    "property ro.vendor.perf.gorv true\napp com.example.game 2 4242\nfps 0 60\n";
constexpr const char* kInitialized =
    R"J({"t":0,"event":"log","priority":6,"tag":"ANDR-PERF-LM","message":"GORV_FEATURE: GorvFeature() N: Initialized  GORV(rev. v1.00)"})J";

TEST_F(SimulatorTest, FaultsOnTheLockAndTheNodes) {
  // The failed acquisition returns -1, which is also "none held", so the
  // first analysis (1600) tries again and, the fault lifted, gets handle 1.
  // The fps node is gone by then: its write is refused and logged.
  EXPECT_EQ(
      Events(std::string(kGame) +
             "meter-latency 100\nfault 500 perf-lock-fail\n"
             "trigger 1000 4097 com.example.game/.Main\nfault 1500 perf-lock-ok\n"
             "fault 1500 nodes-missing\ntrigger 3000 4098 com.example.game/.Main\nend 3500\n"),
      (Lines{
          kInitialized,
          R"J({"t":1000,"event":"node","path":"/sys/kernel/sched_penalty/parameters/target_pid","value":"4242"})J",
          R"J({"t":1000,"event":"perf_lock_acquire","handle":-1,"resources":[1149239296,1]})J",
          R"J({"t":1600,"event":"log","priority":6,"tag":"ANDR-PERF-LM","message":"GORV_FEATURE: updateSysNodes() N: Unable to open /sys/kernel/sched_penalty/parameters/fps file"})J",
          R"J({"t":1600,"event":"perf_lock_acquire","handle":1,"resources":[1149239296,1]})J",
          R"J({"t":3000,"event":"perf_lock_release","handle":1})J"}));
}

TEST_F(SimulatorTest, TraceCountersAndMeterMarkers) {
  // The start's own meters finish at 1050 with no reading requested (fps 0
  // in the marker); from 1250 on each run carries the requested 60.
  EXPECT_EQ(
      Events(std::string(kGame) + "property vendor.debug.trace.gorv 1\n"
                                  "trigger 1000 4097 com.example.game/.Main\nend 1700\n"),
      (Lines{
          kInitialized,
          R"J({"t":1000,"event":"node","path":"/sys/kernel/sched_penalty/parameters/target_pid","value":"4242"})J",
          R"J({"t":1000,"event":"perf_lock_acquire","handle":1,"resources":[1149239296,1]})J",
          R"J({"t":1050,"event":"trace_section","name":"Meters finished, fps = 0.000000 \n"})J",
          R"J({"t":1250,"event":"trace_section","name":"Meters finished, fps = 60.000000 \n"})J",
          R"J({"t":1450,"event":"trace_section","name":"Meters finished, fps = 60.000000 \n"})J",
          R"J({"t":1600,"event":"counter","name":"mFPSList","value":60})J",
          R"J({"t":1600,"event":"node","path":"/sys/kernel/sched_penalty/parameters/fps","value":"60"})J",
          R"J({"t":1600,"event":"counter","name":"Game FPS","value":60})J",
          R"J({"t":1650,"event":"trace_section","name":"Meters finished, fps = 60.000000 \n"})J",
          R"J({"t":1700,"event":"perf_lock_release","handle":1})J"}));
}

TEST_F(SimulatorTest, RestOfTheLineIsTakenVerbatim) {
  Scenario scenario = Parsed(
      "property a.b  two blanks \nproperty empty\nignore \n"
      "ignore /.Bench mark\nmeter Gpu Busy\napp p 2 7\n");
  EXPECT_EQ(scenario.properties, (std::vector<std::pair<std::string, std::string>>{
                                     {"a.b", " two blanks "}, {"empty", ""}}));
  EXPECT_EQ(scenario.ignoreList, (Lines{"", "/.Bench mark"}));
  EXPECT_EQ(scenario.meters, Lines{"Gpu Busy"});
  EXPECT_EQ(scenario.apps.at("p").pid, 7);
  EXPECT_EQ(scenario.EndMs(), 2000);
}

TEST_F(SimulatorTest, ARecordedTimelineDrivesTheSource) {
  std::string frames;
  for (int i = 0; i < 120; ++i) frames += std::to_string(7000000000LL + i * 20000000LL) + "\n";
  Write("frames.txt", frames);
  Scenario scenario = Parsed("fps 0 30\nframes 1000 frames.txt\nfps 5000 90\n");
  EXPECT_EQ(FrameRateModel::RateAt(scenario, 999), 30.0f);
  EXPECT_EQ(FrameRateModel::RateAt(scenario, 1000), 1.0f);   // the first frame sits at 1000
  EXPECT_EQ(FrameRateModel::RateAt(scenario, 2000), 50.0f);  // one frame every 20 ms
  EXPECT_EQ(FrameRateModel::RateAt(scenario, 4500), 0.0f);   // the capture ended
  EXPECT_EQ(FrameRateModel::RateAt(scenario, 5000), 90.0f);
}

TEST_F(SimulatorTest, TheTraceAndThePlotOfTheBuiltInScenario) {
  Events(RunEngine::BuiltInScenario());

  std::ostringstream trace;
  result.WriteAs<ChromeTraceWriter>(trace);
  nlohmann::json parsed = nlohmann::json::parse(trace.str());
  std::map<std::string, int> counts;
  for (const auto& event : parsed.at("traceEvents")) {
    counts[event.at("ph").get<std::string>() + " " + event.at("name").get<std::string>()]++;
    EXPECT_TRUE(event.contains("pid"));
  }
  EXPECT_GT(counts["C measured fps"], 1);
  EXPECT_EQ(counts["C target fps"], 4);  // 0, then 60, 40 and the hinted 30
  EXPECT_EQ(counts["i start"], 1);
  EXPECT_EQ(counts["i stop"], 1);
  EXPECT_EQ(counts["i write fps = 30"], 1);

  std::ostringstream plot;
  result.WriteAs<SvgPlotWriter>(plot);
  EXPECT_EQ(plot.str().rfind("<svg", 0), 0u);
  EXPECT_NE(plot.str().find("performance lock held"), std::string::npos);
  EXPECT_NE(plot.str().find("fps-hint 30"), std::string::npos);
}

}  // namespace
