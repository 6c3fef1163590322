#include "sim/run/RunProcess.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>
#include <utility>

#include "sim/ErrorLine.h"
#include "sim/ExitStatus.h"
#include "sim/run/Interrupts.h"
#include "sim/run/PrivateSysfs.h"
#include "sim/run/RunChannel.h"
#include "sim/run/RunEngine.h"
#include "sim/run/RunMemory.h"
#include "sim/run/RunRequest.h"

namespace {

// The exit status after an exception escaped (said over the channel).
constexpr int kExceptionExit = 3;

// The channel's write end, for the terminate handler.
int gChannel = -1;

// A fatal signal first writes out the events still buffered, then ends the
// process as it would have (the handler is reset on entry).
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

// Says which exception escaped, after the events before it.
void ReportException(const std::string& text) noexcept {
  try {
    RunChannel::Flush();
    RunChannel::SendText(gChannel, RunChannel::Type::Note, text);
  } catch (...) {  // out of memory: gorv-sim still sees the exit status
  }
}

// An exception escaping on another thread (a real-time run's feature
// threads) ends the process as one escaping on its own does.
[[noreturn]] void OnTerminate() {
  std::string text = CurrentExceptionText();
  if (text.empty()) std::abort();
  ReportException(text);
  _exit(kExceptionExit);
}

// Every event and the end go down the channel.
class ChannelSink : public RunSink {
 public:
  explicit ChannelSink(int fd) : mFd(fd) {}
  void Begin(const RunInfo& /*info*/) override {}
  void Event(const SimEvent& event) override {
    if (!RunChannel::SendEvent(mFd, event)) _exit(1);  // gorv-sim is gone
  }
  void End(const RunEnd& end) override { RunChannel::SendEnd(mFd, end); }

 private:
  int mFd;
};

// A descriptor number given as an argument: digits naming an open
// descriptor above the standard streams; -1 otherwise.
int DescriptorOf(const char* text) {
  char* end = nullptr;
  long fd = std::strtol(text, &end, 10);
  bool number = *text >= '0' && *text <= '9' && *end == '\0' && fd > STDERR_FILENO && fd < 65536;
  return number && fcntl(static_cast<int>(fd), F_GETFD) >= 0 ? static_cast<int>(fd) : -1;
}

// Runs the request (dropped once decoded); the exit status.
int RunRequested(int channel, RunMemory& memory, std::string request) {
  Scenario scenario;
  RunRequest::Settings settings;
  bool decoded = RunRequest::Decode(request, &scenario, &settings);
  std::string().swap(request);
  if (!decoded) {
    RunChannel::SendText(channel, RunChannel::Type::Failure,
                         "the run's request is damaged or from another build of gorv-sim");
    return 1;
  }
  RunEngine::Options options;
  options.pluginPath = settings.pluginPath;
  options.realtime = settings.realtime;
  options.clockMs = &memory.shared().clockMs;
  options.stop = &memory.shared().stop;
  std::unique_ptr<PrivateSysfs> sysfs = PrivateSysfs::Borrow(settings.sysfsPath);
  RunChannel::SetBuffered(!options.realtime);
  ChannelSink sink(channel);
  std::string error;
  bool ran = RunEngine::Run(scenario, options, *sysfs, sink, &error);
  if (!ran) RunChannel::SendText(channel, RunChannel::Type::Failure, error);
  RunChannel::Flush();
  return ran ? 0 : 1;
}

}  // namespace

namespace RunProcess {

std::vector<std::string> Arguments(int channel, int memory, int program) {
  return {kFlag, std::to_string(channel), std::to_string(memory), std::to_string(program)};
}

bool Asked(int argc, char** argv) { return argc >= 2 && std::strcmp(argv[1], kFlag) == 0; }

void Main(int argc, char** argv) {
  // gorv-sim asks the run to stop; a signal must not end it first.
  Interrupts::IgnoreInChild();
  int channel = argc == 5 ? DescriptorOf(argv[2]) : -1;
  int memoryFd = argc == 5 ? DescriptorOf(argv[3]) : -1;
  int program = argc == 5 ? DescriptorOf(argv[4]) : -1;
  struct stat pipe {};
  if (channel < 0 || memoryFd < 0 || program < 0 || fstat(channel, &pipe) != 0 ||
      !S_ISFIFO(pipe.st_mode)) {
    ErrorLine::Print(std::string(kFlag) +
                     " is for gorv-sim's own use: it runs a scenario gorv-sim prepared");
    _exit(ExitStatus::kBadInput);
  }
  close(program);
  RunChannel::SendText(channel, RunChannel::Type::Started, "");
  gChannel = channel;
  std::set_terminate(&OnTerminate);
  CatchFatalSignals();
  int status = 1;
  try {
    std::string request, error;
    std::unique_ptr<RunMemory> memory = RunMemory::Open(memoryFd, &request, &error);
    if (memory == nullptr) {
      RunChannel::SendText(channel, RunChannel::Type::Failure, error);
    } else {
      status = RunRequested(channel, *memory, std::move(request));
    }
  } catch (...) {
    ReportException(CurrentExceptionText());
    status = kExceptionExit;
  }
  _exit(status);
}

}  // namespace RunProcess
