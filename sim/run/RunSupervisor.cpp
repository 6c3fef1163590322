#include "sim/run/RunSupervisor.h"

#include <android-base/unique_fd.h>
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
#include <exception>
#include <iostream>
#include <mutex>
#include <utility>

#include "sim/SystemError.h"
#include "sim/run/ChannelReader.h"
#include "sim/run/Interrupts.h"
#include "sim/run/RunChannel.h"

namespace {

// The child's exit status after an exception escaped (said over the channel).
constexpr int kExceptionExit = 3;
// How long a child asked to stop may take before it is killed: the plug-in
// may be stuck in a call of its own.
constexpr std::chrono::milliseconds kStopGrace(5000);
// How often a progress line learns the virtual time reached.
constexpr std::chrono::milliseconds kProgressPeriod(100);

// In the child only (a process of its own): its end of the channel, for its
// terminate handler.
int gChannel = -1;

// What parent and child share while a run lasts.
struct Shared {
  std::atomic<int64_t> clockMs{0};  // the virtual time reached
  std::atomic<bool> stop{false};    // the parent asks the child to stop
};

// Owns the shared page.
class SharedMapping {
 public:
  SharedMapping() {
    // An anonymous mapping takes no file: its descriptor is -1 by definition.
    void* page = mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS,
                      -1, 0);  // cppcheck-suppress invalidFunctionArg
    if (page != MAP_FAILED) mShared = new (page) Shared();
  }
  ~SharedMapping() {
    if (mShared != nullptr) munmap(mShared, sizeof(Shared));
  }
  SharedMapping(const SharedMapping&) = delete;
  SharedMapping& operator=(const SharedMapping&) = delete;
  Shared* get() const { return mShared; }

 private:
  Shared* mShared = nullptr;
};

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

// The text of the exception being handled; "" when there is none.
std::string CurrentExceptionText() noexcept {
  try {
    if (std::exception_ptr current = std::current_exception()) std::rethrow_exception(current);
  } catch (const std::exception& e) {
    return e.what();
  } catch (...) {
    return "an object that is not a std::exception";
  }
  return "";
}

// In the child: says which exception escaped, after the events before it.
void ReportException(const std::string& text) noexcept {
  try {
    RunChannel::Flush();
    RunChannel::SendText(gChannel, RunChannel::Type::Note, text);
  } catch (...) {  // out of memory: the parent still sees the exit status
  }
}

// In the child: an exception escaping on another thread (a real-time run's
// feature threads) ends the child as one escaping on its own does.
[[noreturn]] void OnTerminate() {
  std::string text = CurrentExceptionText();
  if (text.empty()) std::abort();
  ReportException(text);
  _exit(kExceptionExit);
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

// The child's whole life: it never returns into the parent's code.
[[noreturn]] void RunChild(const Scenario& scenario, const RunEngine::Options& options,
                           PrivateSysfs& sysfs, int channel) noexcept {
  Interrupts::IgnoreInChild();
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  gChannel = channel;
  std::set_terminate(&OnTerminate);
  CatchFatalSignals();
  int status = 1;
  try {
    RunChannel::SetBuffered(!options.realtime);
    ChannelSink sink(channel);
    std::string error;
    bool ran = RunEngine::Run(scenario, options, sysfs, sink, &error);
    if (!ran) RunChannel::SendText(channel, RunChannel::Type::Failure, error);
    RunChannel::Flush();
    status = ran ? 0 : 1;
  } catch (...) {
    ReportException(CurrentExceptionText());
    status = kExceptionExit;
  }
  _exit(status);
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
  StopReport::Facts Finish(int status);

  const Scenario& mScenario;
  RunEngine::Options mOptions;
  RunSink& mSink;
  Shared* mShared = nullptr;
  std::chrono::steady_clock::time_point mStarted;
  bool mEnded = false;
  RunEnd mEnd;
  std::string mFailure, mNote, mLastLog;
  int mInterrupt = 0;
  bool mAbandoned = false;
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
  }
}

// Takes the child's records until its end of the channel closes. A caught
// signal or an abandoned output asks the child to stop; a child that does
// not within the grace is killed.
void Parent::Pump(ChannelReader& reader, pid_t child, const std::function<bool()>& abandon) {
  auto onRecord = [this](RunChannel::Type type, std::string_view payload) {
    OnRecord(type, payload);
  };
  std::chrono::steady_clock::time_point deadline;
  for (bool asked = false;;) {
    if (!asked && (Interrupts::Caught() != 0 || mAbandoned)) {
      mInterrupt = mAbandoned ? 0 : Interrupts::Caught();
      mShared->stop.store(true);
      asked = true;
      deadline = std::chrono::steady_clock::now() + kStopGrace;
    }
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    pollfd fds[2] = {{reader.fd(), POLLIN, 0}, {Interrupts::Fd(), POLLIN, 0}};
    int ready = poll(fds, asked || fds[1].fd < 0 ? 1 : 2,
                     asked ? static_cast<int>(std::max<int64_t>(0, left.count())) : ProgressDue());
    if (ready < 0 && errno == EINTR) continue;
    if (ready == 0 && !asked) continue;  // the progress line's turn
    if (ready == 0) kill(child, SIGKILL);
    if (ready <= 0) return;
    if (fds[0].revents != 0 && !reader.ReadSome(onRecord)) return;
    if (!asked) mAbandoned = abandon();
  }
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
  } else if (exited && !mFailure.empty()) {
    facts.kind = Kind::Failed;
    facts.failure = mFailure;
    return facts;
  } else if (exited && WEXITSTATUS(status) == 0 && mEnded) {
    mSink.End(mEnd);
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

// Held from making a run's channel until this process has closed the
// channel's write end: a child forked meanwhile by another thread's run
// would inherit that end, and this run would not see its channel close
// until that other child ended.
std::mutex gForking;

StopReport::Facts Parent::Run(PrivateSysfs& sysfs, const std::function<bool()>& abandon) {
  SharedMapping shared;
  std::unique_lock<std::mutex> forking(gForking);
  int ends[2];
  if (shared.get() == nullptr || pipe2(ends, O_CLOEXEC) != 0) {
    return StopReport::Of(StopReport::Kind::Failed, 0,
                          "cannot start the run: " + SystemError::Text(errno));
  }
  ChannelReader reader(ends[0]);
  android::base::unique_fd writeEnd(ends[1]);
  mShared = shared.get();
  mOptions.clockMs = &mShared->clockMs;
  mOptions.stop = &mShared->stop;
  mSink.Begin(RunEngine::InfoOf(mScenario));
  // What this process has buffered must not be written again by the child.
  std::cout.flush();
  std::cerr.flush();
  std::fflush(nullptr);
  mStarted = std::chrono::steady_clock::now();
  pid_t child = fork();
  if (child == 0) RunChild(mScenario, mOptions, sysfs, writeEnd.release());
  int forkError = errno;
  writeEnd.reset();
  forking.unlock();
  if (child < 0) {
    return StopReport::Of(StopReport::Kind::Failed, 0,
                          "cannot start the run: " + SystemError::Text(forkError));
  }
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
