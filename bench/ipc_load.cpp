#include "ipc_load.h"

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace conflink::bench {

bool BusyLoad::start(int processes, unsigned limitSeconds) {
  std::fflush(nullptr);
  const pid_t parent = getpid();
  for (int i = 0; i < processes; ++i) {
    const pid_t pid = fork();
    if (pid < 0) {
      stop();
      return false;
    }
    if (pid == 0) {
      for (int s : {SIGALRM, SIGINT, SIGTERM, SIGHUP, SIGCHLD}) signal(s, SIG_DFL);
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      if (getppid() != parent) _exit(125);
      alarm(limitSeconds);
      // Pure computation, no system calls: what a busy neighbour looks like to the scheduler.
      volatile unsigned long long x = 1;
      for (;;) x = x * 6364136223846793005ull + 1442695040888963407ull;
    }
    pids_.push_back(pid);
  }
  return true;
}

void BusyLoad::stop() {
  for (pid_t pid : pids_) kill(pid, SIGKILL);
  for (pid_t pid : pids_)
    while (waitpid(pid, nullptr, 0) < 0 && errno == EINTR) {
    }
  pids_.clear();
}

}  // namespace conflink::bench
