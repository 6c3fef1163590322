// gorv-sim as a regression check: a run checked against its own recording,
// against edited recordings, damaged ones; the summary as JSON; folders of
// scenarios with the closing table.
#include <nlohmann/json.hpp>
#include <regex>
#include <string>

#include "tests/support/SimFolderTest.h"

namespace {

using SimulatorRegressionTest = SimFolderTest;

TEST_F(SimulatorRegressionTest, ARunCheckedAgainstItsRecording) {
  Write("s.scn", kSession);
  ASSERT_EQ(Sim("s.scn --events s.jsonl").status, 0);
  std::string recorded = Read("s.jsonl");
  auto same = Sim("s.scn --expect s.jsonl");
  EXPECT_EQ(same.status, 0);
  EXPECT_EQ(same.out, "gorv-sim: s.scn: 5 events match s.jsonl\n");

  // Recording while checking.
  EXPECT_EQ(Sim("s.scn --expect s.jsonl --events again.jsonl").status, 0);
  EXPECT_EQ(Read("again.jsonl"), recorded);

  // The source lines moved: a changed log line, unless masked.
  Write("moved.jsonl", std::regex_replace(recorded, std::regex(R"(\(\) \d+:)"), "() 9999:"));
  auto moved = Sim("s.scn --expect moved.jsonl");
  EXPECT_EQ(moved.status, 1);
  EXPECT_NE(moved.out.find("     0.000  changed   log      GORV_FEATURE: GorvFeature() "),
            std::string::npos)
      << moved.out;
  EXPECT_EQ(Sim("s.scn --expect moved.jsonl --ignore-log-lines").status, 0);

  // One node value changed and one event removed: both named, nothing else.
  std::string edited =
      std::regex_replace(recorded, std::regex(R"("value":"60")"), R"("value":"90")");
  edited = std::regex_replace(edited,
                              std::regex(R"(\{"t":5000,"event":"perf_lock_release"[^\n]*\n)"), "");
  Write("edited.jsonl", edited);
  auto differs = Sim("s.scn --expect edited.jsonl");
  EXPECT_EQ(differs.status, 1);
  EXPECT_EQ(differs.out,
            "gorv-sim: s.scn: 2 difference(s) from edited.jsonl (3 events match)\n"
            "  time (s)  difference\n"
            "     1.600  changed   node     fps <- 60\n"
            "            expected  node     fps <- 90\n"
            "     5.000  extra     lock     released, handle 1\n");

  // Ignored kinds are left out on both sides.
  Write("nolog.jsonl", recorded.substr(recorded.find('\n') + 1));
  EXPECT_EQ(Sim("s.scn --expect nolog.jsonl").status, 1);
  EXPECT_EQ(Sim("s.scn --expect nolog.jsonl --ignore log").out,
            "gorv-sim: s.scn: 4 events match nolog.jsonl\n");
  auto badKind = Sim("s.scn --expect s.jsonl --ignore logs");
  EXPECT_EQ(badKind.status, 2);
  EXPECT_EQ(badKind.err,
            "gorv-sim: --ignore logs: expected node, perf_lock_acquire, "
            "perf_lock_release, log, counter or trace_section\n");
}

TEST_F(SimulatorRegressionTest, TheSummaryAsJsonAndAMissingRecording) {
  std::string frames;
  for (int i = 0; i < 300; ++i) frames += std::to_string(i * 25000000LL) + "\n";
  Write("frames.txt", frames);
  Write("s.scn", std::string(kSession) + "frames 3000 frames.txt\ntrigger 4000 4221 x 30\n");
  ASSERT_EQ(Sim("s.scn --summary-json -").status, 0);
  nlohmann::json summary = nlohmann::json::parse(Read("stdout"));
  EXPECT_EQ(summary.at("scenario"), "s.scn");
  EXPECT_EQ(summary.at("session_ms"), 4000);
  EXPECT_EQ(summary.at("target_changes"),
            nlohmann::json::parse(R"([{"t":1600,"fps":60},{"t":4000,"fps":30}])"));
  // The replay starts from no frames: the game falls behind until its
  // 40 fps have filled a second.
  EXPECT_EQ(summary.at("lock_spans"),
            nlohmann::json::parse(R"([{"from":1000,"to":3200},{"from":4800,"to":5000}])"));
  EXPECT_EQ(summary.at("lock_held_ms"), 2400);
  EXPECT_EQ(summary.at("node_writes"), nlohmann::json::parse(R"({"fps":2,"target_pid":1})"));
  EXPECT_EQ(summary.at("messages"), 1);
  EXPECT_EQ(summary.at("triggers"), nlohmann::json::parse(R"([{"id":4097,"name":"start","count":1},
      {"id":4098,"name":"stop","count":1},{"id":4221,"name":"fps-hint","count":1}])"));
  EXPECT_EQ(
      summary.at("replays"),
      nlohmann::json::parse(R"([{"t":3000,"format":"frame times","frames":300,"layer":null}])"));
  // A missing recording is named (damaged ones are refused before the run:
  // see the hostile cases).
  auto missing = Sim("s.scn --expect none.jsonl");
  EXPECT_EQ(missing.status, 2);
  EXPECT_EQ(missing.err,
            "gorv-sim: none.jsonl: cannot open the events file (No such file or directory)\n");
  EXPECT_EQ(missing.out, "");
}

TEST_F(SimulatorRegressionTest, AFolderOfScenarios) {
  Write("in/b.scn", kSession);
  Write("in/a.scn", "property ro.vendor.perf.gorv true\nend 100\n");
  Write("in/notes.txt", "not a scenario");
  auto recorded = Sim("in --events rec/ --summary-json rec/");
  EXPECT_EQ(recorded.status, 0) << recorded.err;
  // Each scenario's timeline in name order, then the table.
  EXPECT_LT(recorded.out.find("gorv-sim: in/a.scn"), recorded.out.find("gorv-sim: in/b.scn"));
  EXPECT_NE(recorded.out.find("a         ok                          0          0.000  -\n"
                              "b         ok                          1          4.000  -\n"
                              "2 scenario(s), exit status 0\n"),
            std::string::npos)
      << recorded.out;
  EXPECT_EQ(nlohmann::json::parse(Read("rec/b.summary.json")).at("lock_held_ms"), 4000);

  // Checked against the recordings: a fails, c cannot be read; the worst
  // status wins. Scenario b ran in a fresh process: the property set by a
  // does not carry over (no "Initialized" line).
  Write("rec/a.jsonl", "");
  Write("in/c.scn", "fps soon 60\n");
  auto checked = Sim("in --expect rec");
  EXPECT_EQ(checked.status, 2);
  EXPECT_EQ(checked.out.substr(checked.out.find("\nscenario")),
            "\nscenario  status         target changes  lock held (s)  check\n"
            "a         ok                          0          0.000  fail\n"
            "b         ok                          1          4.000  pass\n"
            "c         bad input                   -              -  -\n"
            "3 scenario(s), exit status 2\n");
  EXPECT_EQ(Sim("in/a.scn in/b.scn --expect rec/ --ignore log").status, 0);

  // The plug-in ending a run ranks worst; the next scenario still runs.
  Write("abort.scn", kAborting);
  auto ended = Sim("abort.scn in/c.scn in/a.scn");
  EXPECT_EQ(ended.status, 3);
  EXPECT_NE(ended.out.find("abort     plug-in ended               0          0.500  -\n"
                           "c         bad input                   -              -  -\n"
                           "a         ok                          0          0.000  -\n"
                           "3 scenario(s), exit status 3\n"),
            std::string::npos)
      << ended.out;
  EXPECT_EQ(Sim("in/a.scn in/b.scn --events x.jsonl").err,
            "gorv-sim: with several scenarios, --events needs a folder\n");
}

}  // namespace
