// A forked child process for cross-process tests: it runs a function under an alarm and exits
// with its result; the parent's guard kills and reaps it however the test ends.
#pragma once

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <functional>
#include <thread>

namespace conflink::testing {

class ChildProcess {
 public:
  // Forks and runs `body` in the child, which exits with its result (or dies by SIGALRM after
  // `limitSeconds`).
  ChildProcess(std::function<int()> body, unsigned limitSeconds = 20) {
    std::fflush(nullptr);
    pid_ = fork();
    if (pid_ == 0) {
      alarm(limitSeconds);
      _exit(body());
    }
  }
  ~ChildProcess() {
    if (pid_ > 0 && !reaped_) {
      kill(pid_, SIGKILL);
      waitpid(pid_, nullptr, 0);
    }
  }
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  bool started() const { return pid_ > 0; }
  pid_t pid() const { return pid_; }
  void kill9() {
    if (pid_ > 0 && !reaped_) kill(pid_, SIGKILL);
  }
  // Waits up to `timeoutMs` for the child to end: its exit code, 128 + signal when it was
  // killed, or -1 when it is still running (it is then killed by the destructor).
  int wait(int timeoutMs = 20000) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (!reaped_) {
      int status = 0;
      const pid_t r = waitpid(pid_, &status, WNOHANG);
      if (r == pid_) {
        reaped_ = true;
        status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        break;
      }
      if (r < 0 || std::chrono::steady_clock::now() > deadline) return -1;
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return status_;
  }

 private:
  pid_t pid_ = -1;
  bool reaped_ = false;
  int status_ = -1;
};

}  // namespace conflink::testing
