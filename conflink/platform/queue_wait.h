// Sleeping and waking across processes.
//
// Each party has a doorbell in shared memory (PartyBlock: `bell` and `waiting`). A party that
// must wait (for data, for free space, for the peer) first spins briefly on a multi-processor
// machine (for a time that adapts to how waits end, see SpinBudget), or, when the peer is
// runnable on the party's own processor, hands that processor over to it (see HandOver); then
// announces the wait, fences, checks its condition once more and only then sleeps on the bell
// with a timeout. A party that changes something fences and rings the peer's bell only when the
// peer announced a wait, so the fast path costs no system call. Announcing before the last check,
// and the futex comparing the bell word inside the kernel, leave no window in which a wake-up can
// be lost; the timeout is the last guard and lets the sleeper look at the peer's liveness
// regularly.
#pragma once

#include <climits>
#include <cstdint>
#include <cstdlib>

#include <conflink/platform/queue_layout.h>

namespace conflink::queue {

// Sleeps while `*word` still equals `expected`, for at most `timeoutMs` milliseconds. Shared
// (not process-private) futex, so a waker in another process finds the sleeper.
void FutexWait(Word* word, std::uint32_t expected, int timeoutMs);
// Wakes every sleeper on `word`, in any process.
void FutexWakeAll(Word* word);
// Wakes the sleeper on `word` that has slept longest (the kernel wakes sleepers of equal
// priority in the order they went to sleep): how the line for a place is served in turn.
void FutexWakeOne(Word* word);

// Milliseconds and nanoseconds of a monotonic clock. Reading it costs tens of nanoseconds on a
// virtual machine, so the paths taken for every message do not.
std::int64_t MonotonicMs();
std::int64_t MonotonicNs();

// True when spinning before a sleep can pay off (more than one processor online).
bool SpinWorthwhile();
// One more than the processor the caller runs on (0 when the system cannot say). Cheap: no
// system call where the C library reads it from the vDSO.
std::uint32_t CurrentCpuMark();

// A party's `waiting` word: 0 while it runs; while it sleeps, what it waits for (kWaitForData,
// kWaitForRoom or both), plus kWaitRung once somebody rang it. A waker rings only a party that
// waits for what it changed (a consumer that made room does not wake a party that waits for an
// answer) and that nobody rang yet, so that later wakers skip the system call. The peer can also
// tell a party that sleeps (nothing will come from it until it is rung) from one that was rung
// and waits for a processor.
constexpr std::uint32_t kWaitForData = 1;
constexpr std::uint32_t kWaitForRoom = 2;
constexpr std::uint32_t kWaitRung = 4;
inline bool AsleepUnrung(std::uint32_t waiting) {
  return waiting != 0 && (waiting & kWaitRung) == 0;
}

// How long a party spins before it sleeps. A spin pays only while the peer runs on another
// processor; when the peer waits for a processor (a busy machine, or a peer just woken on the
// processor of whoever woke it), every microsecond of spin delays the answer it waits for. So
// the spin is never longer than a sleep and a wake-up cost here (kCeilingNs: a futex round trip
// between two processes measures 3 to 13 us on the development machine), and it adapts to how
// recent waits ended: a spin that runs out halves the next one, down to kFloorNs; one that
// succeeded in its second half doubles it. A spin also ends as soon as it is known to be useless:
// the peer announced that it sleeps (it cannot answer before it is rung), or the peer last ran
// on the processor we spin on (it is preempted there, or was woken there, and runs only once we
// stop). One budget per kind of wait of one queue
// object; not shared between threads.
class SpinBudget {
 public:
  static constexpr std::int64_t kFloorNs = 2 * 1000;
  static constexpr std::int64_t kCeilingNs = 16 * 1000;
  static constexpr std::int64_t kStartNs = 8 * 1000;

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

// Spins until `ready()` holds (true), the budget's time is spent or the peer sleeps (false),
// adapting the budget. The clock is read only every few rounds, and not at all by a spin that
// ends within its first microsecond or so, which is how most hand-offs between busy parties end.
template <typename Ready>
bool Spin(SpinBudget& budget, const PartyBlock& peer, std::uint32_t mine, Ready& ready);

// When the peer last ran on the caller's processor and has not gone to sleep on its bell, it is
// runnable there (preempted by the caller, or rung and waiting for the processor): what the caller
// waits for comes only once it gives that processor up. Yielding gives it up without the cost of
// sleeping: no futex wait here, and no wake-up for the peer to pay when it answers, since the
// caller never announced a wait. Two processes that share a processor (a busy machine puts them
// together) then hand it to each other once per message; sleeping cost a futex wait and a wake-up
// on top of that. Yields until `ready()` holds (true) or the peer is no longer seen runnable here,
// at most kHandOverYields times (false): a peer that in fact waits elsewhere (in another system
// call, or moved to another processor without a wait since) would let every other process of this
// processor run first at each yield, so the caller then sleeps on its bell as usual.
constexpr unsigned kHandOverYields = 4;
template <typename Ready>
bool HandOver(const PartyBlock& peer, std::uint32_t mine, Ready& ready);

// For a poll that found nothing: publishes where the caller runs (a poller never waits, so this
// is how its peer learns it) and, when the peer is runnable on that same processor, yields to it
// once. Two busy pollers that share a processor then hand it over per message; without the
// yield each polled through its whole time slice while the other, which alone could answer,
// waited for the processor. Returns whether it yielded (the caller may look once more).
bool HandOverFromPoll(PartyBlock& self, const PartyBlock& peer);

// The caller's side of a doorbell: waits until `ready()` holds, `timeoutMs` passes, or the bell
// is rung for another reason. Returns whether `ready()` held when it returned. `ready` reads
// shared or local words only (no system calls): it runs in the spin loop.
// `reasons` says what the caller waits for (kWaitForData, kWaitForRoom).
template <typename Ready>
bool WaitOnBell(PartyBlock& self, const PartyBlock& peer, SpinBudget& spin, std::uint32_t reasons,
                Ready&& ready, int timeoutMs);

// The other side: after publishing a change of kind `reason` (kWaitForData: a record published;
// kWaitForRoom: records taken), wakes the peer if it announced a wait for that and nobody rang
// it since. Includes the full fence that pairs with the waiter's.
void RingIfWaiting(PartyBlock& peer, std::uint32_t reason);
// As RingIfWaiting(peer, kWaitForRoom) after records were taken, but a peer that waits for more
// room than `freeBytes()` (called only when the peer waits for room) is left asleep: it asked for
// a batch, and waking it for every record would cost a wake-up and a sleep per record.
template <typename FreeBytes>
void RingIfRoom(PartyBlock& peer, FreeBytes&& freeBytes);
// Wakes the party whether or not it announced a wait (attach, detach, abandoned message, an
// interrupt). Only atomic operations and one system call: safe in a signal handler.
void RingAlways(PartyBlock& party);

// --- implementation of the template ---

void CpuRelax();
// Gives the processor to another runnable process, if there is one (sched_yield).
void YieldProcessor();

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

// Whether the peer cannot answer while we spin on processor `mine` (see PartyBlock::cpu).
inline bool SpinUseless(const PartyBlock& peer, std::uint32_t mine) {
  return AsleepUnrung(peer.waiting.load(std::memory_order_relaxed)) ||
         (mine != 0 && peer.cpu.load(std::memory_order_relaxed) == mine);
}

template <typename Ready>
bool Spin(SpinBudget& budget, const PartyBlock& peer, std::uint32_t mine, Ready& ready) {
  if (SpinUseless(peer, mine)) return false;
  std::int64_t start = -1;
  for (unsigned round = 1;; ++round) {
    CpuRelax();
    if (ready()) {
      // Only a spin that has read the clock can have been long; one that has not was short.
      if (start >= 0) budget.Succeeded(MonotonicNs() - start);
      return true;
    }
    if (round % kSpinRoundsPerClockRead == 0) {
      if (SpinUseless(peer, mine)) return false;
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

inline bool PeerRunnableHere(const PartyBlock& peer, std::uint32_t mine) {
  return mine != 0 && peer.cpu.load(std::memory_order_relaxed) == mine &&
         !AsleepUnrung(peer.waiting.load(std::memory_order_relaxed));
}

template <typename Ready>
bool HandOver(const PartyBlock& peer, std::uint32_t mine, Ready& ready) {
  for (unsigned i = 0; i < kHandOverYields && PeerRunnableHere(peer, mine); ++i) {
    YieldProcessor();
    if (ready()) return true;
  }
  return false;
}

// Publishes where the party runs now, for the peer's spin (see PartyBlock::cpu); returns it.
inline std::uint32_t NoteCpu(PartyBlock& self) {
  const std::uint32_t mark = CurrentCpuMark();
  if (self.cpu.load(std::memory_order_relaxed) != mark)
    self.cpu.store(mark, std::memory_order_relaxed);
  return mark;
}

inline bool HandOverFromPoll(PartyBlock& self, const PartyBlock& peer) {
  if (!PeerRunnableHere(peer, NoteCpu(self))) return false;
  YieldProcessor();
  return true;
}

template <typename Ready>
bool WaitOnBell(PartyBlock& self, const PartyBlock& peer, SpinBudget& spin, std::uint32_t reasons,
                Ready&& ready, int timeoutMs) {
  if (ready()) return true;
  const std::uint32_t mine = NoteCpu(self);
  if (SpinWorthwhile() && Spin(spin, peer, mine, ready)) return true;
  if (timeoutMs <= 0) return false;
  if (HandOver(peer, mine, ready)) return true;
  const std::uint32_t bell = self.bell.load(std::memory_order_acquire);
  self.waiting.store(reasons, std::memory_order_release);  // after roomWanted, if any
  FullFence();
  bool done = ready();
  if (!done) {
    FutexWait(&self.bell, bell, timeoutMs);
    done = ready();
  }
  self.waiting.store(0, std::memory_order_relaxed);
  NoteCpu(self);
  return done;
}

bool MarkRung(PartyBlock& peer, std::uint32_t waiting);

template <typename FreeBytes>
void RingIfRoom(PartyBlock& peer, FreeBytes&& freeBytes) {
  FullFence();
  const std::uint32_t waiting = peer.waiting.load(std::memory_order_acquire);
  if ((waiting & kWaitForRoom) == 0 || (waiting & kWaitRung) != 0) return;
  if (freeBytes() < peer.roomWanted.load(std::memory_order_relaxed)) return;
  if (MarkRung(peer, waiting)) RingAlways(peer);
}

}  // namespace conflink::queue
