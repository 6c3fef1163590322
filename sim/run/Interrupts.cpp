#include "sim/run/Interrupts.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>

namespace {

// Every signal whose default action ends the process and that can be caught.
constexpr int kSignals[] = {SIGHUP,  SIGINT,  SIGQUIT, SIGTRAP,   SIGUSR1, SIGUSR2,
                            SIGPIPE, SIGALRM, SIGTERM, SIGXCPU,   SIGXFSZ, SIGVTALRM,
                            SIGPROF, SIGPOLL, SIGPWR,  SIGSTKFLT, SIGSYS};

std::atomic<int> gCaught{0};
int gReadEnd = -1;
int gWriteEnd = -1;

void OnSignal(int signal, siginfo_t* info, void* /*context*/) {
  // A write of ours to a closed pipe or past the file size limit: the
  // write itself reports it.
  bool raisedByWrite = (signal == SIGPIPE || signal == SIGXFSZ) && info != nullptr &&
                       info->si_code == SI_USER && info->si_pid == getpid();
  if (raisedByWrite) return;
  int none = 0;
  if (gCaught.compare_exchange_strong(none, signal)) {
    int saved = errno;
    unsigned char byte = 1;
    ssize_t ignored = write(gWriteEnd, &byte, 1);
    (void)ignored;
    errno = saved;
  }
}

// Moves `fd` above the standard streams: a closed standard output must stay
// closed for main to notice, not become the pipe.
int AboveStandardStreams(int fd) {
  if (fd > STDERR_FILENO) return fd;
  int moved = fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  close(fd);
  return moved;
}

}  // namespace

namespace Interrupts {

bool Install() {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) return false;
  gReadEnd = AboveStandardStreams(ends[0]);
  gWriteEnd = AboveStandardStreams(ends[1]);
  if (gReadEnd < 0 || gWriteEnd < 0) return false;
  struct sigaction action {};
  action.sa_sigaction = &OnSignal;
  // No SA_RESTART: a blocking call returns EINTR, so its caller looks again.
  action.sa_flags = SA_SIGINFO;
  sigfillset(&action.sa_mask);
  for (int signal : kSignals) sigaction(signal, &action, nullptr);
  return true;
}

int Caught() { return gCaught.load(); }

int Fd() { return gReadEnd; }

void IgnoreInChild() {
  for (int signal : kSignals) std::signal(signal, SIG_IGN);
  std::signal(SIGPIPE, SIG_DFL);
}

bool WaitWritable(int fd, int graceMs) {
  for (;;) {
    bool caught = Caught() != 0;
    pollfd fds[2] = {{fd, POLLOUT, 0}, {gReadEnd, POLLIN, 0}};
    int ready = poll(fds, caught || gReadEnd < 0 ? 1 : 2, caught ? graceMs : -1);
    if (ready < 0 && errno == EINTR) continue;
    if (ready < 0 || fds[0].revents != 0) return true;  // the write says what is wrong
    if (ready == 0) return false;
  }
}

}  // namespace Interrupts
