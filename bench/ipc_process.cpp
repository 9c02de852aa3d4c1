#include "ipc_process.h"

#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>

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

void watchChild(pid_t pid) {
  if (pid == 0) childEndedFlag.store(false);
  runningChild.store(pid);
}

std::string describeChildStatus(int status) {
  if (status == 0) return "child ok";
  if (status < 0) return "child did not end in time and was killed";
  if (status == 128 + SIGALRM) return "child ran out of time (alarm)";
  if (status > 128) return std::string("child killed by ") + strsignal(status - 128);
  return "child failed with status " + std::to_string(status);
}

}  // namespace conflink::bench
