// One party of the soak: a process holding one end of each link (a CCToPSMessenger and a
// CGIToPSMessenger), sending its groups in both links and checking what the other party sends,
// until the controller ends the run or kills it.
#pragma once

#include <cstdint>

#include "bench/soak_ledger.h"

namespace conflink::soak {

struct PartyConfig {
  Ledger* ledger = nullptr;
  int side = 0;  // 0: A, 1: B
  int queues[kLinks] = {0, 0};
  uint64_t seed = 0;
};

// How long a party waits at the end for what the other party sent, and for it to finish.
constexpr int kDrainSeconds = 20;
// A party samples its peak memory after this long, and keeps sampling it.
constexpr int kWarmUpMs = 3000;

// The body of a party's process; its exit code: 0 after a clean end, 3 when it could not attach.
int RunParty(const PartyConfig& config);

// The process's VmHWM in KiB (0 when /proc says nothing).
uint32_t PeakMemoryKiB();

}  // namespace conflink::soak
