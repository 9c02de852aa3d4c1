#include "ipc_load.h"

namespace conflink::bench {

bool BusyLoad::start(int processes, unsigned limitSeconds) {
  for (int i = 0; i < processes; ++i) {
    auto child = std::make_unique<conflink::testing::ChildProcess>(
        [] {
          // Pure computation, no system calls: what a busy neighbour looks like to the scheduler.
          volatile unsigned long long x = 1;
          for (;;) x = x * 6364136223846793005ull + 1442695040888963407ull;
          return 0;
        },
        limitSeconds);
    if (!child->started()) {
      stop();
      return false;
    }
    children_.push_back(std::move(child));
  }
  return true;
}

}  // namespace conflink::bench
