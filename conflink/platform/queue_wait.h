// Sleeping and waking across processes.
//
// Each party has a doorbell in shared memory (PartyBlock: `bell` and `waiting`). A party that
// must wait (for data, for free space, for the peer) first spins briefly on a multi-processor
// machine, then announces the wait, fences, checks its condition once more and only then sleeps
// on the bell with a timeout. A party that changes something fences and rings the peer's bell
// only when the peer announced a wait, so the fast path costs no system call. Announcing before
// the last check, and the futex comparing the bell word inside the kernel, leave no window in
// which a wake-up can be lost; the timeout is the last guard and lets the sleeper look at the
// peer's liveness regularly.
#pragma once

#include <cstdint>

#include <conflink/platform/queue_layout.h>

namespace conflink::queue {

// Sleeps while `*word` still equals `expected`, for at most `timeoutMs` milliseconds. Shared
// (not process-private) futex, so a waker in another process finds the sleeper.
void FutexWait(Word* word, std::uint32_t expected, int timeoutMs);
// Wakes every sleeper on `word`, in any process.
void FutexWakeAll(Word* word);

// Milliseconds of a monotonic clock.
std::int64_t MonotonicMs();

// True when spinning before a sleep can pay off (more than one processor online).
bool SpinWorthwhile();

// The caller's side of a doorbell: waits until `ready()` holds or `timeoutMs` passes. Returns
// whether `ready()` held when it returned. `ready` reads shared words only (no system calls):
// it runs in the spin loop.
template <typename Ready>
bool WaitOnBell(PartyBlock& self, Ready&& ready, int timeoutMs);

// The other side: after publishing a change the peer may wait for, wakes it if it announced a
// wait. Includes the full fence that pairs with the waiter's.
void RingIfWaiting(PartyBlock& peer);
// Wakes the peer whether or not it announced a wait (attach, detach, abandoned message).
void RingAlways(PartyBlock& peer);

// --- implementation of the template ---

void CpuRelax();

// The full fence between announcing a change and looking at the other side's announcement.
inline void FullFence() {
#if defined(__SANITIZE_THREAD__)
  // The thread sanitizer does not model fences (GCC refuses them with -Wtsan). A sequentially
  // consistent read-modify-write of one shared word is a full barrier on the machines the
  // sanitizer runs on, and an ordering the sanitizer understands.
  static std::atomic<std::uint32_t> order{0};
  order.fetch_add(0, std::memory_order_seq_cst);
#else
  std::atomic_thread_fence(std::memory_order_seq_cst);
#endif
}
constexpr int kSpinRounds = 2000;

template <typename Ready>
bool WaitOnBell(PartyBlock& self, Ready&& ready, int timeoutMs) {
  if (ready()) return true;
  if (SpinWorthwhile()) {
    for (int i = 0; i < kSpinRounds; ++i) {
      CpuRelax();
      if (ready()) return true;
    }
  }
  if (timeoutMs <= 0) return false;
  const std::uint32_t bell = self.bell.load(std::memory_order_acquire);
  self.waiting.store(1, std::memory_order_relaxed);
  FullFence();
  bool done = ready();
  if (!done) {
    FutexWait(&self.bell, bell, timeoutMs);
    done = ready();
  }
  self.waiting.store(0, std::memory_order_relaxed);
  return done;
}

}  // namespace conflink::queue
