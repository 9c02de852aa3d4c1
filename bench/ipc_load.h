// Other work on the machine while the transports are measured: N processes that each keep one
// CPU busy, so that the figures show how a transport behaves when its two parties do not have the
// processors to themselves (a server's machine never does).
#pragma once

#include <memory>
#include <vector>

#include "tests/support/child_process.h"

namespace conflink::bench {

class BusyLoad {
 public:
  // Starts `processes` CPU-bound children, each bounded by an alarm of `limitSeconds` and killed
  // with this process if it dies. Returns false (and keeps none) when a fork fails.
  bool start(int processes, unsigned limitSeconds);
  // Kills and reaps every child started. Safe to call more than once.
  void stop() { children_.clear(); }
  int running() const { return static_cast<int>(children_.size()); }

 private:
  std::vector<std::unique_ptr<conflink::testing::ChildProcess>> children_;
};

}  // namespace conflink::bench
