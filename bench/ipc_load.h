// Other work on the machine while the transports are measured: N processes that each keep one
// CPU busy, so that the figures show how a transport behaves when its two parties do not have the
// processors to themselves (a server's machine never does).
#pragma once

#include <sys/types.h>

#include <vector>

namespace conflink::bench {

class BusyLoad {
 public:
  // Starts `processes` CPU-bound children, each bounded by an alarm of `limitSeconds` and killed
  // with this process if it dies. Returns false (and starts none) when a fork fails.
  bool start(int processes, unsigned limitSeconds);
  // Kills and reaps every child started. Safe to call more than once.
  void stop();
  int running() const { return static_cast<int>(pids_.size()); }
  ~BusyLoad() { stop(); }

 private:
  std::vector<pid_t> pids_;
};

}  // namespace conflink::bench
