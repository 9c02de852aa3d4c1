// The simulated clock and futex, the guarded mappings and the allocation watch of the
// queue-object target (see queue_fuzz_platform.h). The wrapped functions are named by their
// mangled names, as the linker's --wrap option gives them; RequireSimulation notices when a
// change of the queue's declarations left a name unwrapped.
#include "fuzz/queue_fuzz_platform.h"

#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <new>

#include <conflink/platform/queue_wait.h>

namespace qp = conflink::fuzz::queue_platform;
using conflink::queue::Word;

namespace {

// Simulated time in nanoseconds. Reading the clock moves it on a little, so that a loop that
// polls the clock without sleeping still ends; a sleep moves it on by its whole timeout, unless
// the peer rang the bell meanwhile (then it ends at once, as a futex wait that is woken does).
constexpr std::int64_t kStartNs = 1000LL * 1000 * 1000 * 1000;
constexpr std::int64_t kMsReadStepNs = 1000 * 1000;
constexpr std::int64_t kNsReadStepNs = 1000;
std::int64_t nowNs = kStartNs;

qp::SleepHook sleepHook = nullptr;
void* sleepContext = nullptr;
bool inSleepHook = false;

std::atomic<bool> watching{false};
std::atomic<std::size_t> largest{0};

// Guarded mappings: the object mapped at `object` inside a reservation of `span` bytes at
// `reserve`, whose first page and whatever follows the object's last page are inaccessible.
struct Guarded {
  void* object;
  void* reserve;
  std::size_t span;
};
constexpr int kMaxGuarded = 32;
Guarded guarded[kMaxGuarded];
int guardedCount = 0;

std::size_t PageBytes() {
  static const std::size_t page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  return page;
}

}  // namespace

extern "C" {

std::int64_t __wrap__ZN8conflink5queue11MonotonicMsEv() {
  nowNs += kMsReadStepNs;
  return nowNs / (1000 * 1000);
}

std::int64_t __wrap__ZN8conflink5queue11MonotonicNsEv() {
  nowNs += kNsReadStepNs;
  return nowNs;
}

void __wrap__ZN8conflink5queue9FutexWaitEPSt6atomicIjEji(Word* word, std::uint32_t expected,
                                                         int timeoutMs) {
  if (word->load() != expected) {
    nowNs += kNsReadStepNs;
    return;
  }
  if (sleepHook != nullptr && !inSleepHook) {
    inSleepHook = true;
    sleepHook(sleepContext);
    inSleepHook = false;
    if (word->load() != expected) return;
  }
  // No timeout would be a sleep that nobody in this one thread can end.
  nowNs += static_cast<std::int64_t>(timeoutMs >= 0 ? timeoutMs : 1000) * 1000 * 1000;
}

bool __wrap__ZN8conflink5queue14SpinWorthwhileEv() {
  return false;
}

std::uint32_t __wrap__ZN8conflink5queue14CurrentCpuMarkEv() {
  return 1;
}

void* __real_mmap(void* addr, std::size_t length, int prot, int flags, int fd, off_t offset);
int __real_munmap(void* addr, std::size_t length);

void* __wrap_mmap(void* addr, std::size_t length, int prot, int flags, int fd, off_t offset) {
  if (addr != nullptr || fd < 0 || (flags & MAP_SHARED) == 0 || offset != 0 ||
      guardedCount == kMaxGuarded)
    return __real_mmap(addr, length, prot, flags, fd, offset);
  const std::size_t page = PageBytes();
  const std::size_t span = (length + page - 1) / page * page + 2 * page;
  void* reserve =
      __real_mmap(nullptr, span, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (reserve == MAP_FAILED) return MAP_FAILED;
  void* object =
      __real_mmap(static_cast<char*>(reserve) + page, length, prot, flags | MAP_FIXED, fd, 0);
  if (object == MAP_FAILED) {
    __real_munmap(reserve, span);
    return MAP_FAILED;
  }
  guarded[guardedCount++] = Guarded{object, reserve, span};
  return object;
}

int __wrap_munmap(void* addr, std::size_t length) {
  for (int i = 0; i < guardedCount; ++i) {
    if (guarded[i].object == addr) {
      const Guarded g = guarded[i];
      guarded[i] = guarded[--guardedCount];
      return __real_munmap(g.reserve, g.span);
    }
  }
  return __real_munmap(addr, length);
}

}  // extern "C"

namespace conflink::fuzz::queue_platform {

void RequireSimulation() {
  ResetClock();
  Word bell{5};
  const std::int64_t before = queue::MonotonicMs();
  queue::FutexWait(&bell, 5, 60 * 1000);  // a minute, if it were real
  const std::int64_t after = queue::MonotonicMs();
  if (after - before < 60 * 1000 || queue::SpinWorthwhile()) {
    std::fprintf(stderr,
                 "the queue's clock and futex are not simulated: the linker's --wrap names in "
                 "fuzz/CMakeLists.txt no longer match queue_wait.h\n");
    std::abort();
  }
  ResetClock();
}

void ResetClock() {
  nowNs = kStartNs;
}

void SetSleepHook(SleepHook hook, void* context) {
  sleepHook = hook;
  sleepContext = context;
}

void WatchAllocations(bool on) {
  watching.store(on, std::memory_order_relaxed);
}

void ResetLargestAllocation() {
  largest.store(0, std::memory_order_relaxed);
}

std::size_t LargestAllocation() {
  return largest.load(std::memory_order_relaxed);
}

int GuardedMappings() {
  return guardedCount;
}

}  // namespace conflink::fuzz::queue_platform

// Every allocation of the program goes through these, so that the target can hold what the queue
// allocates against what it received. They pair malloc with free, like the library's own.
namespace {

void* Allocate(std::size_t size) {
  if (watching.load(std::memory_order_relaxed) && size > largest.load(std::memory_order_relaxed))
    largest.store(size, std::memory_order_relaxed);
  return std::malloc(size == 0 ? 1 : size);
}

}  // namespace

void* operator new(std::size_t size) {
  void* p = Allocate(size);
  if (p == nullptr) throw std::bad_alloc();
  return p;
}
void* operator new[](std::size_t size) {
  void* p = Allocate(size);
  if (p == nullptr) throw std::bad_alloc();
  return p;
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return Allocate(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return Allocate(size);
}
void operator delete(void* p) noexcept {
  std::free(p);
}
void operator delete[](void* p) noexcept {
  std::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
  std::free(p);
}
void operator delete[](void* p, std::size_t) noexcept {
  std::free(p);
}
void operator delete(void* p, const std::nothrow_t&) noexcept {
  std::free(p);
}
void operator delete[](void* p, const std::nothrow_t&) noexcept {
  std::free(p);
}
