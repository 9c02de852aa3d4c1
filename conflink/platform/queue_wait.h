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

#include <climits>
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

// The value a waker leaves in a sleeper's `waiting` word when it hands the sleeper its processor
// (see HandOff); a plain announced wait is 1.
constexpr std::uint32_t kWaitingHandedOff = 2;

// Whether a party's next wait hands its processor to a peer it has just woken, instead of
// spinning. A peer asleep for a while is woken on the processor of whoever woke it (the other
// processor is idle, and on a virtual machine its host may have descheduled it). A waker that
// then spins for the answer keeps the peer it woke from running until the spin gives up: one spin
// budget (64 us or more) per wake-up, twice per round trip. A waker that sleeps at once lets the
// peer run on its processor within a few microseconds, as a sender on a socket does by blocking
// in the kernel. So:
// - A send that wakes a sleeping peer after a quiet spell (this party has not gone to sleep for
//   kQuietNs, so the peer it wakes has been asleep for a while too) makes the next wait skip its
//   spin, and marks the peer's `waiting` word with kWaitingHandedOff.
// - The peer, woken with that mark, runs where we slept; when its answer wakes us, its next wait
//   skips the spin as well, handing the processor back. The hand-back does not mark us, so the
//   exchange does not stay a chain of sleeps.
// In a steady exchange the peer spins and is never woken, so none of this applies; where it is
// woken all the same without a quiet spell, spinning until the scheduler spreads the pair is no
// worse than sleeping on every message. One per queue object, shared by its kinds of wait; not
// shared between threads.
class HandOff {
 public:
  static constexpr std::int64_t kQuietNs = 128 * 1000;

  // A send is about to ring a peer that announced a wait. Returns whether to mark the peer.
  bool WakingSleeper() {
    if (handBack_) {
      handBack_ = false;
      pending_ = true;
      return false;
    }
    if (MonotonicNs() - sleptAtNs_ < kQuietNs) return false;
    pending_ = true;
    return true;
  }
  // Whether the wait about to start skips its spin.
  bool pending() const { return pending_; }
  // A wait starts: a hand-back not used by a send since the last wait has lapsed.
  void Waiting() { handBack_ = false; }
  // The waiting party goes to sleep in the kernel now.
  void Sleeping() { sleptAtNs_ = MonotonicNs(); }
  // The wait ended; `handedOff` when the peer that woke us marked us.
  void Woken(bool handedOff) { handBack_ = handedOff; }
  // The wait found its condition: the hand-off, if any, is done.
  void Done() { pending_ = false; }

 private:
  std::int64_t sleptAtNs_ = INT64_MIN / 2;
  bool pending_ = false;
  bool handBack_ = false;
};

// Spins until `ready()` holds (true) or the budget's time is spent (false), adapting the budget.
// The clock is read only every few rounds, and not at all by a spin that ends within its first
// microsecond or so, which is how most hand-offs between busy parties end.
template <typename Ready>
bool Spin(SpinBudget& budget, Ready& ready);

// The caller's side of a doorbell: waits until `ready()` holds or `timeoutMs` passes. Returns
// whether `ready()` held when it returned. `ready` reads shared words only (no system calls):
// it runs in the spin loop. Skips the spin while `handOff` says so; a wait that returns without
// its condition (timeout, or a ring meant for another kind of wait) leaves the hand-off pending,
// so the next wait does not spin on the processor the woken peer needs either.
template <typename Ready>
bool WaitOnBell(PartyBlock& self, SpinBudget& spin, HandOff& handOff, Ready&& ready, int timeoutMs);

// The other side: after publishing a change the peer may wait for, wakes it if it announced a
// wait. Includes the full fence that pairs with the waiter's. A sender passes its HandOff, which
// learns of the wake-up and may mark the peer.
void RingIfWaiting(PartyBlock& peer, HandOff* handOff = nullptr);
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
bool WaitOnBell(PartyBlock& self, SpinBudget& spin, HandOff& handOff, Ready&& ready,
                int timeoutMs) {
  handOff.Waiting();
  if (ready() || (SpinWorthwhile() && !handOff.pending() && Spin(spin, ready))) {
    handOff.Done();
    return true;
  }
  if (timeoutMs <= 0) return false;
  const std::uint32_t bell = self.bell.load(std::memory_order_acquire);
  self.waiting.store(1, std::memory_order_relaxed);
  FullFence();
  bool done = ready();
  if (!done) {
    handOff.Sleeping();
    FutexWait(&self.bell, bell, timeoutMs);
    done = ready();
  }
  handOff.Woken(self.waiting.exchange(0, std::memory_order_relaxed) == kWaitingHandedOff);
  if (done) handOff.Done();
  return done;
}

}  // namespace conflink::queue
