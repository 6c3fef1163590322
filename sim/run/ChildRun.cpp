#include "sim/run/ChildRun.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>

#include "sim/SystemError.h"
#include "sim/TextEscape.h"
#include "sim/run/PrivateSysfs.h"
#include "sim/run/RunChannel.h"

namespace {

int gSignalPipe = -1;  // write end, for the signal handler
int gChannel = -1;     // the child's write end, for its terminate handler

void OnSignal(int signal) {
  auto byte = static_cast<unsigned char>(signal);
  ssize_t ignored = write(gSignalPipe, &byte, 1);
  (void)ignored;
}

// In the child: a fatal signal first writes out the events still buffered,
// then ends the process as it would have (the handler is reset on entry).
void OnFatalSignal(int signal) {
  RunChannel::FlushFromSignal();
  raise(signal);
}

void CatchFatalSignals() {
  struct sigaction action {};
  action.sa_handler = &OnFatalSignal;
  action.sa_flags = SA_RESETHAND | SA_NODEFER;
  for (int signal : {SIGABRT, SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS}) {
    sigaction(signal, &action, nullptr);
  }
}

// In the child: an exception escaping the plug-in (or the host) is said
// before the process ends as std::terminate ends it.
[[noreturn]] void OnTerminate() {
  std::string what = "an exception escaped";
  try {
    if (std::exception_ptr current = std::current_exception()) std::rethrow_exception(current);
  } catch (const std::exception& e) {
    what += ": " + std::string(e.what());
  } catch (...) {
    what += " (not a std::exception)";
  }
  RunChannel::SendText(gChannel, RunChannel::Type::Note, what);
  std::abort();
}

// The child's sink: every event and the end go down the pipe.
class ChannelSink : public RunSink {
 public:
  explicit ChannelSink(int fd) : mFd(fd) {}
  void Begin(const RunInfo& /*info*/) override {}
  void Event(const SimEvent& event) override {
    if (!RunChannel::SendEvent(mFd, event)) _exit(1);  // the parent is gone
  }
  void End(const RunEnd& end) override { RunChannel::SendEnd(mFd, end); }

 private:
  int mFd;
};

[[noreturn]] void RunChild(const Scenario& scenario, const Simulator::Options& options,
                           PrivateSysfs& sysfs, int channel) {
  signal(SIGINT, SIG_IGN);
  signal(SIGTERM, SIG_IGN);
  signal(SIGPIPE, SIG_DFL);
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  gChannel = channel;
  std::set_terminate(&OnTerminate);
  CatchFatalSignals();
  RunChannel::SetBuffered(!options.realtime);
  ChannelSink sink(channel);
  std::string error;
  bool ran = Simulator::Run(scenario, options, sysfs, sink, &error);
  if (!ran) RunChannel::SendText(channel, RunChannel::Type::Failure, error);
  RunChannel::Flush();
  sysfs.Release();  // the parent removes it
  _exit(ran ? 0 : 1);
}

std::string SignalName(int signal) {
  const char* description = sigdescr_np(signal);  // strsignal is not thread-safe
  std::string name = sigabbrev_np(signal) != nullptr ? std::string("SIG") + sigabbrev_np(signal)
                                                     : "signal " + std::to_string(signal);
  return name + (description != nullptr ? " (" + std::string(description) + ")" : "");
}

std::string Seconds(int64_t ms) {
  char text[32];
  std::snprintf(text, sizeof(text), "%.3f", static_cast<double>(ms) / 1000.0);
  return text;
}

// The parent's side of one run.
class Parent {
 public:
  Parent(const Scenario& scenario, const Simulator::Options& options, PrivateSysfs& sysfs,
         RunSink& sink)
      : mScenario(scenario), mOptions(options), mSysfs(sysfs), mSink(sink) {}

  ChildRun::Result Run(const std::function<bool()>& abandon);

 private:
  void OnRecord(RunChannel::Type type, std::string_view payload);
  int64_t ClockMs() const;
  ChildRun::Result Finish(int status);

  const Scenario& mScenario;
  Simulator::Options mOptions;
  PrivateSysfs& mSysfs;
  RunSink& mSink;
  std::atomic<int64_t>* mClock = nullptr;
  std::chrono::steady_clock::time_point mStarted;
  bool mEnded = false;
  RunEnd mEnd;
  std::string mFailure, mNote, mLastLog;
  int mInterrupt = 0;
  bool mAbandoned = false;
};

void Parent::OnRecord(RunChannel::Type type, std::string_view payload) {
  SimEvent event;
  switch (type) {
    case RunChannel::Type::Event:
      if (!RunChannel::DecodeEvent(payload, &event)) return;
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
  }
}

int64_t Parent::ClockMs() const {
  if (!mOptions.realtime) return mClock->load();
  auto elapsed = std::chrono::steady_clock::now() - mStarted;
  return std::min(mScenario.EndMs(),
                  std::chrono::duration_cast<std::chrono::milliseconds>(elapsed).count());
}

ChildRun::Result Parent::Finish(int status) {
  using Outcome = ChildRun::Outcome;
  bool exited = WIFEXITED(status);
  if (!mInterrupt && !mAbandoned && exited && !mFailure.empty()) {
    return {Outcome::Failed, mFailure, 0};
  }
  if (!mInterrupt && !mAbandoned && exited && WEXITSTATUS(status) == 0 && mEnded) {
    mSink.End(mEnd);
    return {Outcome::Completed, "", 0};
  }
  RunEnd end{ClockMs(), 0, ""};
  if (mInterrupt) {
    end.stopped = "interrupted by " + SignalName(mInterrupt);
    mSink.End(end);
    return {Outcome::Interrupted, end.stopped, mInterrupt};
  }
  if (mAbandoned) {
    end.stopped = "its output was closed";
    mSink.End(end);
    return {Outcome::Abandoned, "", 0};
  }
  std::string how = WIFSIGNALED(status) ? SignalName(WTERMSIG(status))
                                        : "exit status " + std::to_string(WEXITSTATUS(status));
  if (!mNote.empty()) how += " after " + mNote;
  end.stopped = "the plug-in ended the process: " + how;
  mSink.End(end);
  std::string message =
      "the plug-in ended the run at " + Seconds(end.endMs) + " s of virtual time with " + how;
  message +=
      mLastLog.empty() ? "; it logged nothing before" : "; its last log line: \"" + mLastLog + "\"";
  message +=
      ". This is the plug-in's own behaviour, not the simulator's; the outputs hold the run up "
      "to that moment.";
  return {Outcome::Aborted, TextEscape::Terminal(message), 0};
}

ChildRun::Result Parent::Run(const std::function<bool()>& abandon) {
  // An anonymous mapping takes no file: its descriptor is -1 by definition.
  void* shared = mmap(nullptr, sizeof(std::atomic<int64_t>), PROT_READ | PROT_WRITE,
                      MAP_SHARED | MAP_ANONYMOUS, -1, 0);  // cppcheck-suppress invalidFunctionArg
  int channel[2], signals[2];
  if (shared == MAP_FAILED || pipe2(channel, O_CLOEXEC) != 0) {
    return {ChildRun::Outcome::Failed,
            std::string("cannot start the run: ") + SystemError::Text(errno), 0};
  }
  if (pipe2(signals, O_CLOEXEC | O_NONBLOCK) != 0) {
    return {ChildRun::Outcome::Failed,
            std::string("cannot start the run: ") + SystemError::Text(errno), 0};
  }
  mClock = new (shared) std::atomic<int64_t>(0);
  mOptions.clockMs = mClock;
  gSignalPipe = signals[1];
  struct sigaction action {
  }, oldInt{}, oldTerm{}, oldPipe{};
  action.sa_handler = &OnSignal;
  sigaction(SIGINT, &action, &oldInt);
  sigaction(SIGTERM, &action, &oldTerm);
  action.sa_handler = SIG_IGN;
  sigaction(SIGPIPE, &action, &oldPipe);

  mSink.Begin(Simulator::InfoOf(mScenario));
  mStarted = std::chrono::steady_clock::now();
  pid_t child = fork();
  if (child == 0) {
    close(channel[0]);
    RunChild(mScenario, mOptions, mSysfs, channel[1]);
  }
  close(channel[1]);
  RunChannel reader(channel[0]);
  auto onRecord = [this](RunChannel::Type type, std::string_view payload) {
    OnRecord(type, payload);
  };
  while (child > 0) {
    pollfd fds[2] = {{channel[0], POLLIN, 0}, {signals[0], POLLIN, 0}};
    if (poll(fds, 2, -1) < 0 && errno != EINTR) break;
    unsigned char caught = 0;
    if (read(signals[0], &caught, 1) == 1) mInterrupt = caught;
    if (!mInterrupt && (fds[0].revents & (POLLIN | POLLHUP)) && !reader.ReadSome(onRecord)) break;
    mAbandoned = !mInterrupt && abandon();
    if (mInterrupt || mAbandoned) {
      kill(child, SIGKILL);
      break;
    }
  }
  int status = 0;
  while (child > 0 && waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  close(channel[0]);
  sigaction(SIGINT, &oldInt, nullptr);
  sigaction(SIGTERM, &oldTerm, nullptr);
  sigaction(SIGPIPE, &oldPipe, nullptr);
  close(signals[0]);
  close(signals[1]);
  gSignalPipe = -1;
  ChildRun::Result result = child > 0 ? Finish(status)
                                      : ChildRun::Result{ChildRun::Outcome::Failed,
                                                         "cannot start the run: fork failed", 0};
  munmap(shared, sizeof(std::atomic<int64_t>));
  return result;
}

}  // namespace

ChildRun::Result ChildRun::Run(const Scenario& scenario, const Simulator::Options& options,
                               PrivateSysfs& sysfs, RunSink& sink,
                               const std::function<bool()>& abandon) {
  Parent parent(scenario, options, sysfs, sink);
  return parent.Run(abandon);
}
