#include "sim/run/RunSupervisor.h"

#include <android-base/unique_fd.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <limits>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "sim/SystemError.h"
#include "sim/run/ChannelReader.h"
#include "sim/run/Interrupts.h"
#include "sim/run/RunChannel.h"
#include "sim/run/RunMemory.h"
#include "sim/run/RunProcess.h"
#include "sim/run/RunRequest.h"
#include "sim/run/StallWatch.h"

namespace {

// How long a child asked to stop may take before it is killed: the plug-in
// may be stuck in a call of its own.
constexpr std::chrono::milliseconds kStopGrace(5000);
// The stall watch's clock before the child has begun.
constexpr int64_t kNotBegun = -2;
// How often a progress line learns the virtual time reached.
constexpr std::chrono::milliseconds kProgressPeriod(100);

// This program's own file, opened once (close-on-exec): each run's process
// is an exec of it, the very file that is running even if a new build has
// replaced its path since.
struct Program {
  int fd = -1;
  std::string error;  // why it could not be opened
};

const Program& OwnProgram() {
  static const Program program = [] {
    Program opened;
    std::error_code failed;
    std::filesystem::path path = std::filesystem::read_symlink("/proc/self/exe", failed);
    opened.fd = failed ? -1 : open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (opened.fd < 0) {
      opened.error = "cannot open gorv-sim's own program file to start the run: " +
                     SystemError::Text(failed ? failed.value() : errno);
    }
    return opened;
  }();
  return program;
}

// What starts a run's process: the file to exec and its arguments.
struct Command {
  std::string file;
  std::vector<std::string> arguments;
};

// The program's file itself, named "gorv-sim" in its arguments; or, when
// gorv-sim runs under a user-mode emulator that the kernel would not start
// by itself, $GORV_SIM_EMULATOR's words (the emulator looked up in PATH
// here: the forked process may not) then the program's file.
Command CommandFor(int program, int channel, int memory) {
  Command command;
  command.file = "/proc/self/fd/" + std::to_string(program);
  const char* set = std::getenv("GORV_SIM_EMULATOR");
  std::istringstream emulator(set != nullptr ? set : "");
  for (std::string word; emulator >> word;) command.arguments.push_back(word);
  if (command.arguments.empty()) {
    command.arguments.emplace_back("gorv-sim");
  } else {
    command.arguments.push_back(command.file);
    command.file = command.arguments[0];
  }
  const char* path = std::getenv("PATH");
  std::istringstream folders(path != nullptr ? path : "/usr/bin:/bin");
  for (std::string folder;
       command.file.find('/') == std::string::npos && std::getline(folders, folder, ':');) {
    std::string candidate = (folder.empty() ? "." : folder) + "/" + command.file;
    if (access(candidate.c_str(), X_OK) == 0) command.file = candidate;
  }
  for (std::string& argument : RunProcess::Arguments(channel, memory, program)) {
    command.arguments.push_back(std::move(argument));
  }
  return command;
}

// Starts the run's process: fork, then exec at once. Between the two only
// async-signal-safe calls are made (another thread may hold any lock at the
// fork), on arrays made before it. Signals are blocked across the fork so
// that none reaches the new process before it ignores them (gorv-sim asks
// it to stop). Returns its pid, or -1 with errno set.
pid_t StartProcess(const Command& command, int channel, int memory, int program) {
  std::vector<char*> argv;
  for (const std::string& word : command.arguments) argv.push_back(const_cast<char*>(word.c_str()));
  argv.push_back(nullptr);
  sigset_t all, old;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &old);
  pid_t pid = fork();
  if (pid == 0) {
    Interrupts::IgnoreInChild();
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    for (int fd : {channel, memory, program}) fcntl(fd, F_SETFD, 0);
    pthread_sigmask(SIG_SETMASK, &old, nullptr);
    execve(command.file.c_str(), argv.data(), environ);
    RunChannel::SendNotStarted(channel, errno);
    _exit(127);
  }
  int error = errno;
  pthread_sigmask(SIG_SETMASK, &old, nullptr);
  errno = error;
  return pid;
}

// The line for a run's process that could not be started.
std::string NotStartedText(std::string_view payload, const std::string& file) {
  int32_t error = 0;
  if (payload.size() == sizeof(error)) std::memcpy(&error, payload.data(), sizeof(error));
  std::string text = "cannot start the run: " + file + ": " + SystemError::Text(error);
  if (error == ENOEXEC) {
    text += " (gorv-sim runs under an emulator: set GORV_SIM_EMULATOR to its command)";
  }
  return text;
}

// The parent's side of one run.
class Parent {
 public:
  Parent(const Scenario& scenario, const RunEngine::Options& options, RunSink& sink)
      : mScenario(scenario), mOptions(options), mSink(sink) {}

  StopReport::Facts Run(PrivateSysfs& sysfs, const std::function<bool()>& abandon);

 private:
  void OnRecord(RunChannel::Type type, std::string_view payload);
  void Pump(ChannelReader& reader, pid_t child, const std::function<bool()>& abandon);
  int64_t ClockMs() const;
  int ProgressDue();
  int NextWake(int64_t watchMs);
  StopReport::Facts Finish(int status);

  const Scenario& mScenario;
  RunEngine::Options mOptions;
  RunSink& mSink;
  RunMemory::Shared* mShared = nullptr;
  std::chrono::steady_clock::time_point mStarted;
  bool mEnded = false;
  RunEnd mEnd;
  std::string mFailure, mNote, mLastLog;
  std::string mCommandFile;  // what the run's process was exec'd from
  int mInterrupt = 0;
  bool mAbandoned = false;
  bool mStalled = false;  // the stall watch ended the child
  bool mBegun = false;    // the child said it is a run's process
  std::chrono::steady_clock::time_point mNextProgress;
};

void Parent::OnRecord(RunChannel::Type type, std::string_view payload) {
  SimEvent event;
  switch (type) {
    case RunChannel::Type::Event:
      // Nothing the child says after its end belongs to the run.
      if (mEnded || !RunChannel::DecodeEvent(payload, &event)) return;
      if (event.kind == SimEvent::Kind::Log) mLastLog = event.text;
      mSink.Event(event);
      break;
    case RunChannel::Type::End:
      mEnded = RunChannel::DecodeEnd(payload, &mEnd);
      break;
    case RunChannel::Type::Failure:
      mFailure = payload;
      break;
    case RunChannel::Type::Note:
      mNote = payload;
      break;
    case RunChannel::Type::NotStarted:
      mFailure = NotStartedText(payload, mCommandFile);
      break;
    case RunChannel::Type::Started:
      mBegun = true;
      break;
  }
}

// Takes the child's records until its end of the channel closes. A caught
// signal or an abandoned output asks the child to stop; a child that makes
// no progress (StallWatch) is sent SIGABRT; a child that does not end
// within the grace after either is killed.
void Parent::Pump(ChannelReader& reader, pid_t child, const std::function<bool()>& abandon) {
  auto onRecord = [this](RunChannel::Type type, std::string_view payload) {
    OnRecord(type, payload);
  };
  StallWatch watch(mOptions.stallLimit, mOptions.realtime, mScenario.EndMs(), mStarted);
  std::chrono::steady_clock::time_point deadline;
  for (bool asked = false;;) {
    auto now = std::chrono::steady_clock::now();
    // Until the child has begun (exec, the dynamic loader: slow under an
    // emulator) its clock reads as a value no run reaches, so that beginning
    // counts as progress and the plug-in's time is watched from there.
    int64_t clockMs = mBegun ? mShared->clockMs.load() : kNotBegun;
    if (!asked) mStalled = watch.Stalled(clockMs, now);
    if (!asked && (Interrupts::Caught() != 0 || mAbandoned || mStalled)) {
      mInterrupt = mAbandoned || mStalled ? 0 : Interrupts::Caught();
      // A stalled child cannot be asked: its fatal-signal handler still
      // sends the events it holds.
      if (mStalled) {
        kill(child, SIGABRT);
      } else {
        mShared->stop.store(true);
      }
      asked = true;
      deadline = now + kStopGrace;
    }
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - now);
    pollfd fds[2] = {{reader.fd(), POLLIN, 0}, {Interrupts::Fd(), POLLIN, 0}};
    int ready = poll(
        fds, asked || fds[1].fd < 0 ? 1 : 2,
        asked ? static_cast<int>(std::max<int64_t>(0, left.count())) : NextWake(watch.MsLeft(now)));
    if (ready < 0 && errno == EINTR) continue;
    if (ready == 0 && !asked) continue;  // the progress line's or the watch's turn
    if (ready == 0) kill(child, SIGKILL);
    if (ready <= 0) return;
    if (fds[0].revents != 0 && !reader.ReadSome(onRecord)) return;
    if (!asked) mAbandoned = abandon();
  }
}

// The poll's timeout: the progress line's next turn (ProgressDue) or the
// stall watch's, whichever comes first; -1 for neither.
int Parent::NextWake(int64_t watchMs) {
  int progressMs = ProgressDue();
  if (watchMs < 0) return progressMs;
  int watch = static_cast<int>(std::min<int64_t>(watchMs, std::numeric_limits<int>::max()));
  return progressMs < 0 ? watch : std::min(progressMs, watch);
}

// Calls onProgress when its time has come; returns the ms until the next
// call, or -1 (wait for records alone) without one.
int Parent::ProgressDue() {
  if (!mOptions.onProgress) return -1;
  auto now = std::chrono::steady_clock::now();
  if (now >= mNextProgress) {
    mOptions.onProgress(ClockMs(), mScenario.EndMs());
    mNextProgress = now + kProgressPeriod;
  }
  auto left = std::chrono::duration_cast<std::chrono::milliseconds>(mNextProgress - now);
  return static_cast<int>(std::max<int64_t>(1, left.count()));
}

int64_t Parent::ClockMs() const {
  if (!mOptions.realtime) return mShared->clockMs.load();
  auto elapsed = std::chrono::steady_clock::now() - mStarted;
  return std::min(mScenario.EndMs(),
                  std::chrono::duration_cast<std::chrono::milliseconds>(elapsed).count());
}

StopReport::Facts Parent::Finish(int status) {
  using Kind = StopReport::Kind;
  StopReport::Facts facts;
  bool exited = WIFEXITED(status);
  if (mInterrupt != 0) {
    facts.kind = Kind::Interrupted;
    facts.signal = mInterrupt;
  } else if (mAbandoned) {
    facts.kind = Kind::OutputClosed;
  } else if (mStalled) {
    facts.kind = Kind::Stalled;
    facts.stalledMs = mOptions.stallLimit.count();
  } else if (exited && !mFailure.empty()) {
    facts.kind = Kind::Failed;
    facts.failure = mFailure;
    return facts;
  } else if (exited && WEXITSTATUS(status) == 0 && mEnded) {
    mSink.End(mEnd);
    return facts;
  } else if (!mBegun) {
    // Another program than gorv-sim (GORV_SIM_EMULATOR), or gorv-sim
    // failing before its main (a library missing).
    facts.kind = Kind::Failed;
    facts.failure = "cannot start the run: " + mCommandFile + " ended before the run began (" +
                    (exited ? "exit status " + std::to_string(WEXITSTATUS(status))
                            : StopReport::SignalName(WTERMSIG(status))) +
                    ")";
    return facts;
  } else {
    facts.kind = Kind::PluginEnded;
    facts.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    facts.exitStatus = exited ? WEXITSTATUS(status) : 0;
    facts.exception = mNote;
  }
  RunEnd end = mEnded ? mEnd : RunEnd{ClockMs(), 0, ""};
  facts.reachedMs = end.endMs;
  facts.lastLog = mLastLog;
  end.stopped = StopReport::StoppedReason(facts);
  mSink.End(end);
  return facts;
}

StopReport::Facts Parent::Run(PrivateSysfs& sysfs, const std::function<bool()>& abandon) {
  auto failed = [](const std::string& why) {
    return StopReport::Of(StopReport::Kind::Failed, 0, "cannot start the run: " + why);
  };
  const Program& program = OwnProgram();
  if (program.fd < 0) return StopReport::Of(StopReport::Kind::Failed, 0, program.error);
  std::string error;
  std::unique_ptr<RunMemory> memory = RunMemory::Make(
      RunRequest::Encode(mScenario, {mOptions.pluginPath, mOptions.realtime, sysfs.path()}),
      &error);
  if (memory == nullptr) return StopReport::Of(StopReport::Kind::Failed, 0, error);
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return failed(SystemError::Text(errno));
  ChannelReader reader(ends[0]);
  android::base::unique_fd writeEnd(ends[1]);
  mShared = &memory->shared();
  Command command = CommandFor(program.fd, writeEnd.get(), memory->fd());
  mCommandFile = command.file;
  mSink.Begin(RunEngine::InfoOf(mScenario));
  mStarted = std::chrono::steady_clock::now();
  pid_t child = StartProcess(command, writeEnd.get(), memory->fd(), program.fd);
  int forkError = errno;
  writeEnd.reset();
  if (child < 0) return failed(SystemError::Text(forkError));
  Pump(reader, child, abandon);
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  return Finish(status);
}

}  // namespace

namespace RunSupervisor {

StopReport::Facts Run(const Scenario& scenario, const RunEngine::Options& options,
                      PrivateSysfs& sysfs, RunSink& sink, const std::function<bool()>& abandon) {
  Parent parent(scenario, options, sink);
  return parent.Run(sysfs, abandon);
}

}  // namespace RunSupervisor
