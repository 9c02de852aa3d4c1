#include <conflink/platform/queue_wait.h>

#include <linux/futex.h>
#include <sched.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <climits>

namespace conflink::queue {
namespace {

// The futex call takes the kernel's timespec. On 32-bit systems the time64 call is preferred
// (kernels may be built without the old 32-bit time calls); the classic call, whose timespec is
// two longs, is the fallback where the time64 call is missing.
long FutexCall(Word* word, int op, std::uint32_t value, int timeoutMs) {
  auto* addr = reinterpret_cast<std::uint32_t*>(word);
  const long long sec = timeoutMs / 1000;
  const long long nsec = static_cast<long long>(timeoutMs % 1000) * 1000000LL;
#if defined(SYS_futex_time64) && UINTPTR_MAX == 0xffffffffu
  static std::atomic<bool> time64Missing{false};
  if (!time64Missing.load(std::memory_order_relaxed)) {
    struct {
      long long tv_sec;
      long long tv_nsec;
    } ts64{sec, nsec};
    const long r =
        syscall(SYS_futex_time64, addr, op, value, timeoutMs >= 0 ? &ts64 : nullptr, nullptr, 0);
    if (r != -1 || errno != ENOSYS) return r;
    time64Missing.store(true, std::memory_order_relaxed);
  }
#endif
  struct {
    long tv_sec;
    long tv_nsec;
  } ts{static_cast<long>(sec), static_cast<long>(nsec)};
  return syscall(SYS_futex, addr, op, value, timeoutMs >= 0 ? &ts : nullptr, nullptr, 0);
}

}  // namespace

void FutexWait(Word* word, std::uint32_t expected, int timeoutMs) {
  // EAGAIN (the word moved on), ETIMEDOUT and EINTR all send the caller back to its checks.
  FutexCall(word, FUTEX_WAIT, expected, timeoutMs);
}

void FutexWakeAll(Word* word) {
  FutexCall(word, FUTEX_WAKE, INT_MAX, -1);
}

void FutexWakeOne(Word* word) {
  FutexCall(word, FUTEX_WAKE, 1, -1);
}

std::int64_t MonotonicMs() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<std::int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

std::int64_t MonotonicNs() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<std::int64_t>(now.tv_sec) * 1000000000 + now.tv_nsec;
}

bool SpinWorthwhile() {
  static const bool worthwhile = sysconf(_SC_NPROCESSORS_ONLN) > 1;
  return worthwhile;
}

std::uint32_t CurrentCpuMark() {
  const int cpu = sched_getcpu();
  return cpu < 0 ? 0 : static_cast<std::uint32_t>(cpu) + 1;
}

void YieldProcessor() {
  sched_yield();
}

void CpuRelax() {
#if defined(__x86_64__) || defined(__i386__)
  __builtin_ia32_pause();
#elif defined(__powerpc__)
  __asm__ __volatile__("or 27,27,27" ::: "memory");  // lower the thread's priority briefly
#else
  std::atomic_signal_fence(std::memory_order_seq_cst);
#endif
}

void RingIfWaiting(PartyBlock& peer, std::uint32_t reason) {
  FullFence();
  std::uint32_t waiting = peer.waiting.load(std::memory_order_relaxed);
  // Running, waiting for something else, or rung already and not yet running.
  if ((waiting & reason) == 0 || (waiting & kWaitRung) != 0) return;
  if (MarkRung(peer, waiting)) RingAlways(peer);
}

// Claims the ringing of a party seen waiting as `waiting`: false when it woke meanwhile, or
// somebody else rang it.
bool MarkRung(PartyBlock& peer, std::uint32_t waiting) {
  return peer.waiting.compare_exchange_strong(waiting, waiting | kWaitRung,
                                              std::memory_order_relaxed);
}

void RingAlways(PartyBlock& party) {
  party.bell.fetch_add(1, std::memory_order_release);
  FutexWakeAll(&party.bell);
}

}  // namespace conflink::queue
