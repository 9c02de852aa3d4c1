// A forked child process for cross-process tests and benchmarks: it runs a function and exits
// with its result, bounded by an alarm and killed with its parent; the parent's guard kills and
// reaps it however the test or the run ends. Also a pipe to pace two processes.
#pragma once

#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <functional>
#include <thread>

namespace conflink::testing {

class ChildProcess {
 public:
  // Exit codes of a child that could not run its body to the end.
  static constexpr int kParentGone = 125;  // the parent died before the child was set up
  static constexpr int kThrew = 98;        // the body threw

  // Forks and runs `body` in the child, which exits with its result. The child starts with the
  // default action for the signals a parent typically catches (so that a parent's watchdog or
  // interrupt handler never runs in it), dies by SIGALRM after `limitSeconds`, and by SIGKILL
  // when the parent dies.
  explicit ChildProcess(const std::function<int()>& body, unsigned limitSeconds = 30) {
    std::fflush(nullptr);
    const pid_t parent = getpid();
    pid_ = fork();
    if (pid_ != 0) return;
    for (int s : {SIGALRM, SIGINT, SIGTERM, SIGHUP, SIGCHLD}) ::signal(s, SIG_DFL);
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) _exit(kParentGone);
    alarm(limitSeconds);
    int code = kThrew;
    try {
      code = body();
    } catch (...) {
    }
    std::fflush(nullptr);
    _exit(code);
  }
  ~ChildProcess() { stop(); }
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  bool started() const { return pid_ > 0; }
  pid_t pid() const { return pid_; }
  // Sends `signalNumber` unless the child was reaped.
  void signal(int signalNumber) {
    if (pid_ > 0 && !reaped_) kill(pid_, signalNumber);
  }
  void kill9() { signal(SIGKILL); }
  // Waits up to `timeoutMs` for the child to end: its exit code, 128 + the signal that killed
  // it, or -1 when it is still running (it is then left running; stop() or the destructor end
  // it). Once reaped, returns the same result again.
  int wait(int timeoutMs = 30000) {
    if (pid_ <= 0) return -1;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (!reaped_) {
      int status = 0;
      const pid_t r = waitpid(pid_, &status, WNOHANG);
      if (r == pid_) {
        reaped_ = true;
        status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        break;
      }
      if ((r < 0 && errno != EINTR) || std::chrono::steady_clock::now() > deadline) return -1;
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return status_;
  }
  // Kills the child and reaps it; its result is then 128 + SIGKILL unless it had ended.
  void stop() {
    if (pid_ <= 0 || reaped_) return;
    kill9();
    int status = 0;
    pid_t r;
    while ((r = waitpid(pid_, &status, 0)) < 0 && errno == EINTR) {
    }
    reaped_ = true;
    if (r == pid_) status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }

 private:
  pid_t pid_ = -1;
  bool reaped_ = false;
  int status_ = -1;
};

// A one-way pipe to pace two processes: one side Signal()s, the other Await()s.
class Pace {
 public:
  Pace() {
    if (pipe(fds_) != 0) fds_[0] = fds_[1] = -1;
  }
  ~Pace() {
    for (int fd : fds_)
      if (fd >= 0) close(fd);
  }
  Pace(const Pace&) = delete;
  Pace& operator=(const Pace&) = delete;
  void Signal(char c = 'x') { (void)!write(fds_[1], &c, 1); }
  // The next byte signalled, or 0 after `ms` without one.
  char Await(int ms = 10000) {
    pollfd p{fds_[0], POLLIN, 0};
    char c = 0;
    if (poll(&p, 1, ms) == 1 && read(fds_[0], &c, 1) == 1) return c;
    return 0;
  }

 private:
  int fds_[2];
};

}  // namespace conflink::testing
