// gorv-sim stopped mid-run: by a signal, with an output nobody reads, by a
// plug-in that throws or crashes, and a real-time run reaching its end.
// Every stopped run must keep every effect up to its stop, write every
// output it can and leave no private folder.
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <string>

#include "tests/support/SimFolderTest.h"

namespace {

using SimulatorSignalsTest = SimFolderTest;

// gorv-sim started in the background through the shell, its standard
// output (or `stream`) read through a pipe (of `pipeSize` bytes when not 0).
class Running {
 public:
  Running(const std::string& command, int pipeSize = 0, int stream = STDOUT_FILENO) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return;
    if (pipeSize != 0) fcntl(ends[1], F_SETPIPE_SZ, pipeSize);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], stream);
    const char* argv[] = {"/bin/sh", "-c", command.c_str(), nullptr};
    if (posix_spawn(&mPid, argv[0], &actions, nullptr, const_cast<char**>(argv), environ) != 0) {
      mPid = -1;
    }
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    mOut = ends[0];
  }
  ~Running() {
    if (mOut >= 0) close(mOut);
    if (mPid > 0) {
      kill(mPid, SIGKILL);
      Wait();
    }
  }

  // Waits for the first bytes of standard output: the run is under way.
  std::string FirstOutput() const {
    char chunk[4096];
    ssize_t got = read(mOut, chunk, sizeof(chunk));
    return got > 0 ? std::string(chunk, static_cast<size_t>(got)) : "";
  }
  std::string RestOfOutput() const {
    std::string all;
    for (std::string part; !(part = FirstOutput()).empty();) all += part;
    return all;
  }
  void Send(int signal) const { kill(mPid, signal); }
  // The exit status, or 1000 + N when signal N ended it.
  int Wait() {
    int status = 0;
    while (waitpid(mPid, &status, 0) < 0 && errno == EINTR) {
    }
    mPid = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
  }

 private:
  pid_t mPid = -1;
  int mOut = -1;
};

// A thousand short game sessions (a lock taken at each even second) fill
// the outputs' buffers early; the last session then lasts a year of
// virtual time, long enough for any signal to land in it.
std::string ManySessions() {
  std::string text = "property ro.vendor.perf.gorv true\napp g 2 7\nfps 0 60\n";
  for (int i = 0; i < 1000; ++i) {
    text += "trigger " + std::to_string(2000 * i) + " 4097 g\ntrigger " +
            std::to_string(2000 * i + 1000) + " 4098 g\n";
  }
  return text + "trigger 2000000 4097 g\nend 31536000000\n";
}

// The sessions ManySessions started before `ms`.
int64_t StartsBefore(int64_t ms) { return ms > 2000000 ? 1001 : (ms + 1999) / 2000; }

int64_t Count(const std::string& text, const std::string& part) {
  int64_t count = 0;
  for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
  return count;
}

std::string Command(const std::string& dir, const std::string& arguments) {
  return "cd " + dir + " && export GORV_SIM_SYSFS_DIR=" + dir + "/sysfs && exec " + GORV_SIM_PATH +
         " " + arguments + " 2>stderr";
}

TEST_F(SimulatorSignalsTest, ASignalStopsTheRunWithEveryOutputWrittenAndNoFolderLeft) {
  const struct {
    int signal;
    int status;
    std::string name;
  } rows[] = {
      {SIGINT, 130, "SIGINT (Interrupt)"},
      {SIGTERM, 143, "SIGTERM (Terminated)"},
      {SIGHUP, 129, "SIGHUP (Hangup)"},
  };
  Write("many.scn", ManySessions());
  for (const auto& row : rows) {
    Write("sysfs/.keep", "");
    Running sim(Command(dir, "many.scn --events events.jsonl"));
    std::string timeline = sim.FirstOutput();
    sim.Send(row.signal);
    timeline += sim.RestOfOutput();
    EXPECT_EQ(sim.Wait(), row.status) << row.name;
    EXPECT_EQ(Read("stderr"),
              "gorv-sim: interrupted by " + row.name + "; the outputs hold the run up to then\n");
    std::string events = Read("events.jsonl");
    size_t last = events.rfind('\n', events.size() - 2) + 1;
    long long stoppedMs = -1;
    std::sscanf(events.c_str() + last, "{\"t\":%lld,", &stoppedMs);
    EXPECT_EQ(events.substr(last), "{\"t\":" + std::to_string(stoppedMs) +
                                       ",\"event\":\"stopped\",\"reason\":\"interrupted by " +
                                       row.name + "\"}\n");
    // Every session begun before the stop took its lock, in both outputs.
    EXPECT_EQ(Count(events, "\"perf_lock_acquire\""), StartsBefore(stoppedMs)) << row.name;
    EXPECT_EQ(Count(timeline, "  lock     acquired"), StartsBefore(stoppedMs)) << row.name;
    EXPECT_NE(timeline.find(": interrupted by " + row.name + "\n"), std::string::npos);
    EXPECT_EQ(Matching(dir + "/sysfs", "*"), "") << row.name;
  }
}

TEST_F(SimulatorSignalsTest, AnOutputNobodyReadsDoesNotHoldTheProgramAfterASignal) {
  Write("many.scn", ManySessions());
  Write("sysfs/.keep", "");
  // The timeline goes to a pipe of one page that is read once, then never.
  Running sim(Command(dir, "many.scn --events events.jsonl"), 4096);
  EXPECT_NE(sim.FirstOutput(), "");
  sim.Send(SIGTERM);
  EXPECT_EQ(sim.Wait(), 143);
  EXPECT_EQ(Read("stderr"),
            "gorv-sim: cannot write standard output: nothing read it for a second after the "
            "interrupt\ngorv-sim: interrupted by SIGTERM (Terminated); the outputs hold the run up "
            "to then\n");
  EXPECT_NE(Read("events.jsonl").find("\"event\":\"stopped\",\"reason\":\"interrupted by SIGTERM"),
            std::string::npos);
  EXPECT_EQ(Matching(dir + "/sysfs", "*"), "");
}

// The same for standard error: a batch of bad scenarios says more than the
// pipe holds.
TEST_F(SimulatorSignalsTest, AStandardErrorNobodyReadsDoesNotHoldTheProgramAfterASignal) {
  for (int i = 0; i < 200; ++i) Write("in/" + std::to_string(1000 + i) + ".scn", "fps soon 60\n");
  Running sim("cd " + dir + " && exec " + GORV_SIM_PATH + " in -j 1 >/dev/null", 4096,
              STDERR_FILENO);
  EXPECT_NE(sim.FirstOutput(), "");
  sim.Send(SIGTERM);
  EXPECT_EQ(sim.Wait(), 143);
}

TEST_F(SimulatorSignalsTest, ARealTimeRunDeliversNothingAtOrAfterItsEnd) {
  // The frame-rate hint at the end would write 30 to the fps node.
  Write("end.scn",
        "property ro.vendor.perf.gorv true\napp g 2 7\nfps 0 60\ntrigger 0 4097 g\n"
        "trigger 300 4221 g 30\ntrigger 301 4098 g\nend 300\n");
  auto run = Sim("end.scn --realtime --events events.jsonl");
  EXPECT_EQ(run.status, 0) << run.err;
  std::string events = Read("events.jsonl");
  EXPECT_EQ(Count(events, "\"perf_lock_acquire\""), 1);
  EXPECT_EQ(Count(events, "\"value\":\"30\""), 0) << events;
  EXPECT_EQ(Count(events, "\"stopped\""), 0);
}

TEST_F(SimulatorSignalsTest, APluginThatThrowsOrCrashesEndsTheRunWithStatus3AndSaysHow) {
  const std::string tail =
      "; it logged nothing before. This is the plug-in's own behaviour, not the simulator's; the "
      "outputs hold the run up to that moment.\n";
  const std::pair<std::string, std::string> rows[] = {
      {"throw", "an exception that escaped it: the rogue refuses its trigger"},
      {"throw-int", "an exception that escaped it: an object that is not a std::exception"},
      {"segv", "SIGSEGV (Segmentation fault)"},
  };
  Write("sysfs/.keep", "");
  for (const auto& [action, how] : rows) {
    Write("rogue.scn", "property rogue.on_trigger " + action + "\ntrigger 250 4097 g\nend 900\n");
    auto run = Sim("rogue.scn --events events.jsonl",
                   "GORV_PLUGIN=" ROGUE_PLUGIN_PATH " GORV_SIM_SYSFS_DIR=" + dir + "/sysfs");
    EXPECT_EQ(run.status, 3) << action;
    EXPECT_EQ(run.err,
              "gorv-sim: the plug-in ended the run at 0.250 s of virtual time with " + how + tail);
    EXPECT_EQ(Read("events.jsonl"),
              "{\"t\":250,\"event\":\"stopped\",\"reason\":\"the plug-in ended the process: " +
                  how + "\"}\n");
  }
}

}  // namespace
