// Sleeping and waking across processes.
//
// Each party has a doorbell in shared memory (PartyBlock: `bell` and `waiting`). A party that
// must wait (for data, for free space, for the peer) first spins briefly on a multi-processor
// machine (for a time that adapts to how waits end, see SpinBudget), then announces the wait,
// fences, checks its condition once more and only then sleeps on the bell with a timeout. A party
// that changes something fences and rings the peer's bell only when the peer announced a wait, so
// the fast path costs no system call. Announcing before the last check, and the futex comparing the
// bell word inside the kernel, leave no window in which a wake-up can be lost; the timeout is the
// last guard and lets the sleeper look at the peer's liveness regularly.
#pragma once

#include <cstdint>

#include <conflink/platform/queue_layout.h>

namespace conflink::queue {

// Sleeps while `*word` still equals `expected`, for at most `timeoutMs` milliseconds. Shared
// (not process-private) futex, so a waker in another process finds the sleeper.
void FutexWait(Word* word, std::uint32_t expected, int timeoutMs);
// Wakes every sleeper on `word`, in any process.
void FutexWakeAll(Word* word);

// Milliseconds and nanoseconds of a monotonic clock. Reading it costs tens of nanoseconds on a
// virtual machine, so the paths taken for every message do not.
std::int64_t MonotonicMs();
std::int64_t MonotonicNs();

// True when spinning before a sleep can pay off (more than one processor online).
bool SpinWorthwhile();

// How long a party spins before it sleeps, learnt from how its recent waits ended. A spin that
// runs out and leads to a sleep shortens the next one: the peer is busy elsewhere or idle, and
// spinning only takes a processor it may need. A spin that succeeded only late in its time
// lengthens the next one: the peer answers, a little more slowly than the spin allowed. A spin
// that succeeded early leaves it as it is. The time never drops below kFloorNs, which is
// above a futex sleep and wake-up on an idle virtual machine (about 50 us; a sleeper idle for
// milliseconds runs again 20 to 30 us after its wake-up): a party that waits for the answer of
// a peer it just woke still catches it spinning, so after one sleep the pair is back to
// hand-offs in well under a microsecond instead of both sleeping on every message. The floor is
// no higher than that because a busy machine can leave both parties on one processor, where
// the woken peer runs only once the spin gives up: then every hand-off costs the floor. One
// budget per kind of wait of one queue object; not shared between threads.
class SpinBudget {
 public:
  static constexpr std::int64_t kFloorNs = 64 * 1000;
  static constexpr std::int64_t kCeilingNs = 256 * 1000;
  static constexpr std::int64_t kStartNs = 128 * 1000;

  std::int64_t ns() const { return ns_; }
  // The spin found its condition after `spentNs` of its budget.
  void Succeeded(std::int64_t spentNs) {
    if (2 * spentNs > ns_) ns_ = ns_ * 2 > kCeilingNs ? kCeilingNs : ns_ * 2;
  }
  // The spin ran out; the caller goes to sleep.
  void RanOut() { ns_ = ns_ / 2 < kFloorNs ? kFloorNs : ns_ / 2; }

 private:
  std::int64_t ns_ = kStartNs;
};

// Spins until `ready()` holds (true) or the budget's time is spent (false), adapting the budget.
// The clock is read only every few rounds, and not at all by a spin that ends within its first
// microsecond or so, which is how most hand-offs between busy parties end.
template <typename Ready>
bool Spin(SpinBudget& budget, Ready& ready);

// The caller's side of a doorbell: waits until `ready()` holds or `timeoutMs` passes. Returns
// whether `ready()` held when it returned. `ready` reads shared words only (no system calls):
// it runs in the spin loop.
template <typename Ready>
bool WaitOnBell(PartyBlock& self, SpinBudget& spin, Ready&& ready, int timeoutMs);

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
// Rounds of the spin between two looks at the clock (about a microsecond).
constexpr unsigned kSpinRoundsPerClockRead = 16;

template <typename Ready>
bool Spin(SpinBudget& budget, Ready& ready) {
  std::int64_t start = -1;
  for (unsigned round = 1;; ++round) {
    CpuRelax();
    if (ready()) {
      // Only a spin that has read the clock can have been long; one that has not was short.
      if (start >= 0) budget.Succeeded(MonotonicNs() - start);
      return true;
    }
    if (round % kSpinRoundsPerClockRead == 0) {
      const std::int64_t now = MonotonicNs();
      if (start < 0) {
        start = now;
      } else if (now - start >= budget.ns()) {
        budget.RanOut();
        return false;
      }
    }
  }
}

template <typename Ready>
bool WaitOnBell(PartyBlock& self, SpinBudget& spin, Ready&& ready, int timeoutMs) {
  if (ready()) return true;
  if (SpinWorthwhile() && Spin(spin, ready)) return true;
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
