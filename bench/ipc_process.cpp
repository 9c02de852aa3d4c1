#include "ipc_process.h"

#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <thread>

namespace conflink::bench {
namespace {

// Everything a signal handler touches lives in fixed storage, written before the handlers can
// need it, so the handlers only read memory and make system calls.
constexpr int kMaxTracked = 8;
constexpr std::size_t kMaxNameBytes = 256;
char trackedNames[kMaxTracked][kMaxNameBytes];
std::atomic<int> trackedCount{0};
std::atomic<pid_t> runningChild{0};
std::atomic<bool> childEndedFlag{false};
std::atomic<const char*> currentStep{"start-up"};

static_assert(std::atomic<pid_t>::is_always_lock_free && std::atomic<int>::is_always_lock_free,
              "signal handlers need lock-free atomics");

void writeText(const char* text) {
  const ssize_t ignored = ::write(STDERR_FILENO, text, std::strlen(text));
  (void)ignored;
}

void unlinkTracked() {
  const int count = trackedCount.exchange(0);
  for (int i = 0; i < count && i < kMaxTracked; ++i) shm_unlink(trackedNames[i]);
}

void onFatalSignal(int signalNumber) {
  const pid_t child = runningChild.load();
  if (child > 0) {
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
  }
  unlinkTracked();
  writeText(signalNumber == SIGALRM ? "\nipc_bench: timed out in "
                                    : "\nipc_bench: interrupted in ");
  writeText(currentStep.load());
  writeText("; child killed, shared objects removed\n");
  _exit(3);
}

void onChildEnded(int) {
  childEndedFlag.store(true);
}

void setHandler(int signalNumber, void (*handler)(int), int flags) {
  struct sigaction action {};
  action.sa_handler = handler;
  action.sa_flags = flags;
  sigemptyset(&action.sa_mask);
  sigaction(signalNumber, &action, nullptr);
}

}  // namespace

void trackSharedObject(const std::string& name) {
  const int slot = trackedCount.load();
  if (slot >= kMaxTracked || name.size() >= kMaxNameBytes) {
    std::fprintf(stderr, "ipc_bench: cannot track %s; remove it by hand if it stays\n",
                 name.c_str());
    return;
  }
  std::memcpy(trackedNames[slot], name.c_str(), name.size() + 1);
  trackedCount.store(slot + 1);
}

void removeSharedObjects() {
  unlinkTracked();
}

void installWatchdog() {
  for (int s : {SIGALRM, SIGINT, SIGTERM, SIGHUP}) setHandler(s, onFatalSignal, 0);
  setHandler(SIGCHLD, onChildEnded, SA_NOCLDSTOP);  // no SA_RESTART: blocked calls see EINTR
  setHandler(SIGPIPE, SIG_IGN, 0);  // a write to a dead peer fails with EPIPE instead of killing us
}

void armWatchdog(unsigned seconds, const char* step) {
  currentStep.store(step);
  alarm(seconds);
}

void disarmWatchdog() {
  alarm(0);
}

bool childEnded() {
  return childEndedFlag.load();
}

ChildProcess::ChildProcess(const std::function<int()>& body, unsigned limitSeconds) {
  std::fflush(nullptr);
  childEndedFlag.store(false);
  const pid_t parent = getpid();
  pid_ = fork();
  if (pid_ == 0) {
    // The child must not run the parent's watchdog (it would remove the objects in use).
    for (int s : {SIGALRM, SIGINT, SIGTERM, SIGHUP, SIGCHLD}) setHandler(s, SIG_DFL, 0);
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) _exit(125);  // the parent died before the line above
    alarm(limitSeconds);
    const int result = body();
    std::fflush(nullptr);
    _exit(result);
  }
  if (pid_ > 0) runningChild.store(pid_);
}

ChildProcess::~ChildProcess() {
  if (pid_ > 0 && !reaped_) {
    kill(pid_, SIGKILL);
    while (waitpid(pid_, nullptr, 0) < 0 && errno == EINTR) {
    }
  }
  runningChild.store(0);
}

int ChildProcess::wait(int timeoutMs) {
  if (pid_ <= 0) return -1;
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
  for (;;) {
    int status = 0;
    const pid_t r = waitpid(pid_, &status, WNOHANG);
    if (r == pid_) {
      reaped_ = true;
      runningChild.store(0);
      return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    if ((r < 0 && errno != EINTR) || std::chrono::steady_clock::now() > deadline) {
      kill(pid_, SIGKILL);
      while (waitpid(pid_, nullptr, 0) < 0 && errno == EINTR) {
      }
      reaped_ = true;
      runningChild.store(0);
      return -1;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
}

std::string describeChildStatus(int status) {
  if (status == 0) return "child ok";
  if (status < 0) return "child did not end in time and was killed";
  if (status == 128 + SIGALRM) return "child ran out of time (alarm)";
  if (status > 128) return std::string("child killed by ") + strsignal(status - 128);
  return "child failed with status " + std::to_string(status);
}

}  // namespace conflink::bench
