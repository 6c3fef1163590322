// gorv-sim tried as a hostile user would: the plug-in ending its process,
// malformed lines and numbers at their limits, bytes and files that are not
// scenarios, an unusable private folder, outputs that cannot be written. Each case
// runs the program itself and checks its exit status and messages.
#include <sys/stat.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "sim/TextEscape.h"
#include "tests/support/LogCapture.h"
#include "tests/support/SimFolderTest.h"

namespace {

using SimulatorHostileTest = SimFolderTest;

TEST_F(SimulatorHostileTest, ThePluginEndingItsProcessIsReportedWithTheOutputsSoFar) {
  std::string scenario = Write("abort.scn", kAborting);
  auto run = Sim(scenario + " --events " + dir + "/events --plot " + dir + "/plot.svg");
  EXPECT_EQ(run.status, 3);
  EXPECT_EQ(LogCapture::MaskLine(run.err),
            "gorv-sim: the plug-in ended the run at 2200000.200 s of virtual time with SIGABRT "
            "(Aborted); its last log line: \"GORV_FEATURE: GorvFeature() N: Initialized  "
            "GORV(rev. v1.00)\". This is the plug-in's own behaviour, not the simulator's; the "
            "outputs hold the run up to that moment.\n");
  std::string events = Read("events");
  EXPECT_NE(events.find(R"({"t":2200000000,"event":"perf_lock_acquire","handle":2,)"),
            std::string::npos);
  EXPECT_NE(events.find(R"J({"t":2200000200,"event":"stopped","reason":"the plug-in ended the )J"
                        R"J(process: SIGABRT (Aborted)"})J"),
            std::string::npos);
  EXPECT_NE(run.out.find("  stopped at       2200000.200 s: the plug-in ended the process"),
            std::string::npos);
  EXPECT_NE(Read("plot.svg").find("</svg>"), std::string::npos);
}

TEST_F(SimulatorHostileTest, MalformedLinesAndNumbersPastTheirLimits) {
  const std::string time = "T in ms from 0 to 31536000000 (a year)";
  const std::string ints = "integers from -2147483648 to 2147483647";
  const std::string end = "expected 'end T' with " + time;
  const std::string fps =
      "expected 'fps T VALUE' with " + time + " and VALUE a finite decimal number from 0 to 3.4e38";
  const std::string trigger =
      "expected 'trigger T ID COMPONENT [VALUE]' with " + time + ", ID and VALUE " + ints;
  const std::string app = "expected 'app PACKAGE CLASS PID' with CLASS and PID " + ints;
  const std::string latency = "expected 'meter-latency MS' with MS from 1 to 10000";
  Write("empty.txt", "\n\n");
  // The scenario, then the line number and the message after "x.scn:".
  const std::pair<const char*, std::string> refused[] = {
      {"fps -1 60", "1: " + fps},
      {"fps 0 nan", "1: " + fps},
      {"fps 0 1e39", "1: " + fps},
      {"fps 0 -inf", "1: " + fps},
      {"# comment\n\n   \nend soon", "4: " + end},
      {"end 31536000001", "1: " + end},
      {"end 9223372036854775808", "1: " + end},
      {"trigger 10 4097", "1: " + trigger},
      {"trigger 10 4097 a 1 2", "1: " + trigger},
      {"app com.x 2", "1: " + app},
      {"app g 2 2147483648", "1: " + app},
      {"meter-latency 0", "1: " + latency},
      {"meter-latency 10001", "1: " + latency},
      {"fault 5 meltdown", "1: expected 'fault T KIND' with " + time +
                               " and KIND nodes-missing, nodes-present, perf-lock-fail or "
                               "perf-lock-ok"},
      {"  Trigger 1 2 3",
       "1: unknown directive 'Trigger'; expected property, app, ignore, meter, meter-latency, "
       "fps, frames, layer, trigger, fault or end"},
      {"frames 0 none.txt",
       "1: " + dir + "/none.txt: cannot open the frame capture (No such file or directory)"},
      {"\nframes 0 empty.txt", "2: " + dir + "/empty.txt: no frames in this frame times capture"},
  };
  for (const auto& [text, message] : refused) {
    auto run = Sim(Write("x.scn", text));
    EXPECT_EQ(run.status, 2) << text;
    EXPECT_EQ(run.err, "gorv-sim: " + dir + "/x.scn:" + message + "\n") << text;
    EXPECT_EQ(run.out, "") << text;  // nothing run
  }
}

// Accepted: the extremes of each range; the plot stays small for a frame
// rate at the float limit over a year.
TEST_F(SimulatorHostileTest, NumbersAtTheirLimitsAreAccepted) {
  auto run = Sim(Write("max.scn",
                       "app g 2 -2147483648\nfps 0 3.4e38\n"
                       "trigger 31536000000 -2147483648 g 2147483647\n"
                       "end 31536000000\n") +
                 " --plot " + dir + "/plot.svg");
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_LT(Read("plot.svg").size(), 20000u);
}

TEST_F(SimulatorHostileTest, BytesAndFilesThatAreNotScenarios) {
  mkfifo((dir + "/fifo").c_str(), 0600);
  std::filesystem::create_directory(dir + "/empty");
  const std::pair<std::string, std::string> refused[] = {
      {Write("nul.scn", std::string("fps 0 60\nend 5") + '\0' + "junk\n"),
       "nul.scn:2: a NUL byte: this is not a text file"},
      {Write("utf.scn", "ignore \xC3\x28\n"), "utf.scn:1: bytes that are not UTF-8 text"},
      {Write("esc.scn", "\n\nignore \x1B[2J\n"),
       "esc.scn:3: control character 0x1B (only tabs are allowed)"},
      {dir + "/empty", "/empty: no *.scn scenarios in it"},
      {dir + "/fifo", "/fifo: the scenario is a FIFO, not a regular file"},
      {"/dev/zero", "/dev/zero: the scenario is a device, not a regular file"},
      {dir + "/none", "/none: cannot open the scenario (No such file or directory)"},
  };
  for (const auto& [path, message] : refused) {
    auto run = Sim(path);
    EXPECT_EQ(run.status, 2) << path;
    EXPECT_NE(run.err.find(message), std::string::npos) << run.err;
  }
  // Accepted: CR and CRLF line ends, no final line end, an empty file.
  for (const char* text : {"fps 0 60\rend 500", "fps 0 60\r\nend 500\r\n", ""}) {
    EXPECT_EQ(Sim(Write("ok.scn", text)).status, 0) << text;
  }
  // Names are escaped wherever they are written.
  EXPECT_EQ(TextEscape::Terminal("a\x1B[2J\n\xC2\x85\xFF\tb"), "a\\x1B[2J\\n\\xC2\\x85\\xFF\tb");
  EXPECT_EQ(TextEscape::Xml("<&\"'\x01>"), "&lt;&amp;&quot;&apos;\\x01&gt;");
}

// One hostile case, run through the program in a folder of its own: the
// files it makes there, the command line and environment ("$DIR" stands
// for the folder), the exit status, a fragment of standard error ("" for
// none expected), the paths that must not exist afterwards and a fragment of
// standard output ("" for any).
struct HostileCase {
  std::vector<std::pair<std::string, std::string>> files;
  std::string arguments;
  std::string environment;
  int status;
  std::string message;
  std::vector<std::string> absent = {};
  std::string shown = {};
};

const std::pair<std::string, std::string> kShort = {"a.scn", "fps 0 60\nend 500\n"};
const std::pair<std::string, std::string> kCapture = {"cap.txt", "100\n200\n"};

std::string InFolder(std::string text, const std::string& dir) {
  for (size_t at; (at = text.find("$DIR")) != std::string::npos;) text.replace(at, 4, dir);
  return text;
}

const std::pair<std::string, std::string> kTmp = {"tmp/.keep", ""};
#define IN_TMP "GORV_SIM_SYSFS_DIR=$DIR/tmp"
#define LIMIT(N) IN_TMP " sh -c 'ulimit -n " #N "; exec \"$0\" \"$@\"'"
const char* const kAllOut = "--events e --plot p --trace t --summary-json s";
const std::vector<std::string> kNoPrivate = {"tmp/gorv-sim-*"};

// clang-format off
const char* const kRunProcessOnly =
    "gorv-sim: --run-process is for gorv-sim's own use: it runs a scenario gorv-sim prepared\n";

const HostileCase kHostileCases[] = {
    // The run host: the private folder, signals, the child's end.
    {{}, "--events $DIR/events", "GORV_SIM_SYSFS_DIR=$DIR/missing", 1,
     "gorv-sim: cannot make a private folder under $DIR/missing (No such file or directory); "
     "set GORV_SIM_SYSFS_DIR to a writable folder\n", {"events"}},
    // Full: /proc has no free blocks. A file is no folder.
    {{}, "", "GORV_SIM_SYSFS_DIR=/proc", 1, "gorv-sim: cannot make a private folder under /proc "
     "(No space left on device); set GORV_SIM_SYSFS_DIR to a writable folder\n"},
    {{{"file", ""}}, "", "GORV_SIM_SYSFS_DIR=$DIR/file", 1,
     "gorv-sim: cannot make a private folder under $DIR/file (Not a directory)"},
    // The folder goes after every kind of end: done, aborted, an escaping
    // exception, a plug-in that cannot be loaded, descriptors running out
    // at each step (making the folder, opening outputs, starting the run).
    {{kTmp}, "", IN_TMP, 0, "", kNoPrivate},
    {{kTmp, {"abort.scn", std::string(SimFolderTest::kAborting) + "fault 400 nodes-missing\n"}},
     "abort.scn", IN_TMP, 3, "gorv-sim: the plug-in ended the run", kNoPrivate},
    {{kTmp, {"rogue.scn", "property rogue.on_trigger throw\ntrigger 5 4097 g\n"}},
     "rogue.scn --realtime", IN_TMP " GORV_PLUGIN=" ROGUE_PLUGIN_PATH, 3,
     "an exception that escaped it: the rogue refuses its trigger", kNoPrivate},
    {{kTmp}, "", IN_TMP " GORV_PLUGIN=$DIR/none.so", 1, "gorv-sim: cannot load $DIR/none.so: ",
     kNoPrivate},
    {{kTmp}, kAllOut, LIMIT(5), 1, "Too many open files", kNoPrivate},
    {{kTmp}, kAllOut, LIMIT(8), 1, "Too many open files", kNoPrivate},
    {{kTmp}, kAllOut, LIMIT(10), 1, "Too many open files", kNoPrivate},
    // The run's process: stuck in the plug-in; an emulator that is not
    // there; its arguments typed by hand.
    {{kTmp, {"hang.scn", "property rogue.on_trigger hang\ntrigger 5 4097 g\n"}},
     "hang.scn --stall-timeout 2", IN_TMP " GORV_PLUGIN=" ROGUE_PLUGIN_PATH, 3,
     "gorv-sim: the plug-in made no progress for 2.000 s of real time at 0.005 s of virtual "
     "time, and gorv-sim ended its process; it logged nothing before. The outputs hold the run "
     "up to that moment.\n", kNoPrivate, "stopped at       0.005 s: the plug-in made no progress"},
    {{kTmp}, "", IN_TMP " GORV_SIM_EMULATOR=$DIR/none", 1,
     "gorv-sim: cannot start the run: $DIR/none: No such file or directory\n", kNoPrivate},
    {{kTmp}, "", IN_TMP " GORV_SIM_EMULATOR=/bin/true", 1,
     "gorv-sim: cannot start the run: /bin/true ended before the run began (exit status 0)\n",
     kNoPrivate},
    {{}, "--run-process", "", 2, kRunProcessOnly},
    {{}, "--run-process 0 1 2", "", 2, kRunProcessOnly},
    {{}, "--run-process 3 x 5", "", 2, kRunProcessOnly},
    // Inputs: scenarios, captures and expected files.
    {{{"c/x", "5000000\n6000000\n"}, {"s.scn", "frames 0 c/x\nframes 100 ./c/x\n"
      "frames 200 ././c/x\nlayer any\nframes 300 c/../c/x\nend 500\n"}}, "s.scn", "", 0, ""},
    {{{"s.scn", "fps 0 1e-40\nfps 10 1e-50\nend 500\n"}}, "s.scn", "", 0, ""},
    {{{"s.scn", "end 100\n"}, {"deep.jsonl", "\n" + std::string(100000, '[') + "\n"}},
     "s.scn --expect deep.jsonl --events $DIR/events", "", 2,
     "gorv-sim: deep.jsonl:2: nested deeper than 8 levels; expected one JSON object per line, "
     "as --events writes them\n", {"events"}},
    {{{"s.scn", "end 100\n"}, {"stop.jsonl", "{\"t\":0,\"event\":\"stopped\"\n"}},
     "s.scn --expect stop.jsonl", "", 2,
     "gorv-sim: stop.jsonl:1: expected one JSON object per line, as --events writes them\n"},
    {{{"s.scn", "frames 0 t.pftrace\n"}, {"t.pftrace", std::string("\n\x02\x40\x01", 4)}},
     "s.scn", "", 2, "/t.pftrace: no FrameTimeline data in this Perfetto trace"},
    // Outputs: files, folders, pipes, and outputs that are inputs.
    {{}, "--events /dev/full", "", 1,
     "gorv-sim: cannot write /dev/full: No space left on device\n"},
    {{}, "--plot $DIR/no/plot.svg", "", 1,
     "gorv-sim: cannot write $DIR/no/plot.svg: No such file or directory\n"},
    {{kShort}, "a.scn --events ./a.scn", "", 2,
     "gorv-sim: --events ./a.scn is the same file as the scenario a.scn\n"},
    {{kCapture, {"c.scn", "frames 0 cap.txt\nend 500\n"}}, "$DIR/c.scn --plot $DIR/cap.txt", "", 2,
     "gorv-sim: --plot $DIR/cap.txt is the same file as the capture $DIR/cap.txt\n"},
    {{kShort, {"x.jsonl", ""}}, "a.scn --expect x.jsonl --summary-json x.jsonl", "", 2,
     "gorv-sim: --summary-json x.jsonl is the same file as --expect x.jsonl\n"},
    {{kShort}, "a.scn --trace new.json --plot ./new.json", "", 2,
     "gorv-sim: --plot ./new.json is the same file as --trace new.json\n", {"new.json"}},
    {{kShort}, "a.scn --events - --plot /dev/stdout", "", 2,
     "gorv-sim: --plot /dev/stdout is the same file as --events -\n"},
    {{kShort}, "a.scn --events - --trace -", "", 2,
     "gorv-sim: --trace - is the same file as --events -\n"},
    {{kShort}, "a.scn --events /dev/null --plot /dev/null", "", 0, ""},
    {{kShort, {"file", ""}}, "a.scn --events $DIR/file/out/", "", 1,
     "gorv-sim: cannot create the folder $DIR/file/out/: Not a directory\n"},
    {{{"s/\x1B[31mred.scn", "fps 0 60\nend 500\n"}, {"s/b.scn", "fps 0 60\nend 500\n"}},
     "s", "", 0, "", {}, "\n\\x1B[31mred  ok    "},
    {{{"s/\x1B]0;x\x07.scn", "bad"}}, "s", "", 2, "gorv-sim: s/\\x1B]0;x\\x07.scn:1: "},
    {{{"\x1B[1mx.scn", "fps 0 60\nend 500\n"}, {"e\x9B.jsonl", ""}},
     "'\x1B[1mx.scn' --expect 'e\x9B.jsonl'", "", 0, "", {},
     "gorv-sim: \\x1B[1mx.scn: 0 events match e\\x9B.jsonl\n"},
    {{kShort}, "a.scn --expect a.scn --ignore '\x1B[1m'", "", 2,
     "gorv-sim: --ignore \\x1B[1m: expected node, "},
    {{kShort}, "a.scn", "GORV_PLUGIN='/no/\x1B[2J\x07x'", 1,
     "gorv-sim: cannot load /no/\\x1B[2J\\x07x: "},
};
// clang-format on
#undef LIMIT
#undef IN_TMP

// A run short of descriptors tests gorv-sim only where nothing else in its
// process, or handed down to it, takes descriptors: AddressSanitizer's
// runtime opens a pipe for its own memory checks, an emulator (the Arm
// build's tests) opens files of its own, and under valgrind this test hands
// its children valgrind's descriptors. Those rows run in the other builds.
bool ShortOfDescriptorsCounts(const HostileCase& row) {
#if defined(__SANITIZE_ADDRESS__)
  constexpr bool kSanitized = true;
#else
  constexpr bool kSanitized = false;
#endif
  bool emulated = std::string(GORV_SIM_PATH).find(' ') != std::string::npos;
  const char* preload = std::getenv("LD_PRELOAD");  // NOLINT(concurrency-mt-unsafe)
  bool valgrind = preload != nullptr && std::strstr(preload, "vgpreload") != nullptr;
  return row.environment.find("ulimit -n") == std::string::npos ||
         !(kSanitized || emulated || valgrind);
}

TEST_F(SimulatorHostileTest, HostileCasesEndWithTheirStatusAndLeaveNothingBehind) {
  for (const HostileCase& row : kHostileCases) {
    if (!ShortOfDescriptorsCounts(row)) continue;
    TempFolder folder;
    const std::string& where = folder.path();
    for (const auto& [name, text] : row.files) folder.Write(name, text);
    auto run = SimIn(folder, InFolder(row.arguments, where), InFolder(row.environment, where));
    std::string label = row.arguments + " [" + row.environment + "]";
    EXPECT_EQ(run.status, row.status) << label << "\n" << run.err;
    if (row.message.empty()) {
      EXPECT_EQ(run.err, "") << label;
    } else {
      EXPECT_NE(run.err.find(InFolder(row.message, where)), std::string::npos) << label << "\n"
                                                                               << run.err;
    }
    for (const std::string& pattern : row.absent) {
      EXPECT_EQ(Matching(where, pattern), "") << label;
    }
    EXPECT_NE(run.out.find(InFolder(row.shown, where)), std::string::npos) << label << "\n"
                                                                           << run.out;
  }
}

// Each run's process is a fresh program: it holds its own channel and
// memory, and nothing of gorv-sim's or of the runs going on beside it, so
// no run can wait on another's descriptor or lock.
TEST_F(SimulatorHostileTest, ARunsProcessHoldsOnlyItsOwnDescriptors) {
  const char* scenario =
      "property rogue.on_trigger descriptors\napp g 2 7\ntrigger 0 4097 g\nend 100\n";
  for (const char* name : {"in/a.scn", "in/b.scn", "in/c.scn", "in/d.scn"}) Write(name, scenario);
  const std::string plugin = std::string("GORV_PLUGIN=") + ROGUE_PLUGIN_PATH;
  ASSERT_EQ(Sim("in/a.scn --events alone.jsonl", plugin).status, 0);
  ASSERT_EQ(Sim("in -j 4 --events out/ --summary-json out/ --plot out/", plugin).status, 0);
  auto descriptors = [this](const std::string& file) {
    std::string events = Read(file);
    size_t at = events.find("descriptors:");
    return at == std::string::npos ? "" : events.substr(at, events.find('"', at) - at);
  };
  // The run's memory file and the channel's write end, with whatever the
  // test's own process left open.
  std::string alone = descriptors("alone.jsonl");
  EXPECT_EQ(alone.rfind("descriptors: /memfd:gorv-sim run (deleted) ", 0), 0u) << alone;
  EXPECT_EQ(alone.find("memfd", 20), std::string::npos) << alone;
  EXPECT_NE(alone.find(" pipe"), std::string::npos) << alone;
  for (const char* name : {"a", "b", "c", "d"}) {
    EXPECT_EQ(descriptors(std::string("out/") + name + ".jsonl"), alone) << name;
  }
}

TEST_F(SimulatorHostileTest, AClosedStandardOutputIsAnError) {
  auto run = Sim("", "", ">&-");
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err, "gorv-sim: cannot write standard output: it is closed\n");
}

}  // namespace
