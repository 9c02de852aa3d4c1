#include <conflink/platform/queue_attachment.h>

#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <new>
#include <vector>

#include <conflink/platform/cyclic_message_queue.h>
#include <conflink/platform/queue_locks.h>
#include <conflink/platform/queue_object_file.h>
#include <conflink/platform/queue_wait.h>

namespace conflink {

std::string QueueObjectName(int queueNumber, const char* keyPath) {
  const std::string path = keyPath != nullptr ? keyPath : "";
  std::uint64_t hash = 0xcbf29ce484222325ull;  // FNV-1a, 64 bits
  std::string readable;
  for (unsigned char c : path) {
    hash = (hash ^ c) * 0x100000001b3ull;
    if (readable.size() < 64) {
      const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                         (c >= '0' && c <= '9') || c == '-' || c == '_';
      readable.push_back(plain ? static_cast<char>(c) : '_');
    }
  }
  char text[160];
  std::snprintf(text, sizeof text, "/conflink.%lu.%s.%016llx.%d",
                static_cast<unsigned long>(geteuid()), readable.c_str(),
                static_cast<unsigned long long>(hash), queueNumber);
  return text;
}

}  // namespace conflink

namespace conflink::queue {
namespace {

constexpr int kMutexWaitMs = 3000;

// The bookkeeping lock is held for a few system calls at a time, so a process that finds it
// taken first yields (the holder is about to let go), then sleeps in steps that start at 20 us
// and double up to a millisecond: a line of pages that all open at once each wait about as long
// as the holders before them, not a millisecond a try. (A blocking lock request could only be
// bounded by a signal, which a library must not arm.)
bool AcquireMutex(int fd, int waitMs) {
  const std::int64_t deadline = MonotonicMs() + waitMs;
  useconds_t pause = 20;
  for (int tries = 0;; ++tries) {
    if (SetByteLock(fd, F_WRLCK, kBookkeepingLockByte)) return true;
    if (errno != EAGAIN && errno != EACCES && errno != EINTR) return false;
    if (MonotonicMs() >= deadline) return false;
    if (tries < 8) {
      YieldProcessor();
      continue;
    }
    usleep(pause);
    if (pause < 1000) pause *= 2;
  }
}

std::string SystemError(const char* what) {
  return std::string(what) + ": " + std::strerror(errno);
}

// Open queues of this process, so that a forked child can let go of the descriptors it inherits:
// a child that outlives a crashed parent must not keep the parent's place lock alive. A queue
// is registered before its object is opened and unregistered after its descriptor is closed,
// and the descriptor is opened and closed under the registry's lock, which a fork takes too:
// whichever thread forks, the child sees either no descriptor or one that it then closes.
struct ForkRegistry {
  std::mutex mutex;
  std::vector<Attachment*> open;
};
ForkRegistry& Registry() {
  static ForkRegistry* registry = new ForkRegistry;  // never destroyed: used until exit
  return *registry;
}
void BeforeFork() {
  Registry().mutex.lock();
}
void AfterForkParent() {
  Registry().mutex.unlock();
}
void AfterForkChild() {
  for (Attachment* a : Registry().open) a->ForgetAfterFork();
  Registry().open.clear();
  Registry().mutex.unlock();
}

}  // namespace

void Attachment::Register() {
  static std::once_flag once;
  std::call_once(once, [] { pthread_atfork(BeforeFork, AfterForkParent, AfterForkChild); });
  std::lock_guard<std::mutex> guard(Registry().mutex);
  Registry().open.push_back(this);
}

void Attachment::Unregister() {
  std::lock_guard<std::mutex> guard(Registry().mutex);
  auto& open = Registry().open;
  for (auto it = open.begin(); it != open.end(); ++it) {
    if (*it == this) {
      open.erase(it);
      break;
    }
  }
}

bool Attachment::OpenObject(struct stat& st, std::string& error) {
  std::lock_guard<std::mutex> guard(Registry().mutex);
  fd_ = OpenQueueObject(name_, O_RDWR | O_CREAT, 0600, Ownership::kPrivate, st, error);
  return fd_ >= 0;
}

// The object's pages are all reserved when it is made (Initialise); a party maps them lazily and
// enters them all into its page tables once it has shown that it stays (Populate, after its
// first few dozen messages). Touching a page of shared memory for the first time costs a fault
// of several microseconds on a virtual machine, and a ring's first lap touches a new page every
// few dozen small messages: left lazy, those faults were the slowest one or two hundredths of
// the round trips of a long-lived pair, on a busy machine worse than a socket's. But a web page
// that asks one question and leaves touches a handful of pages, and populating the whole
// mapping at open (and tearing it down at close) was most of the half millisecond its open and
// leave cost.
bool Attachment::Map(std::size_t bytes, std::string& error) {
  const int flags = MAP_SHARED;
  void* p = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, flags, fd_, 0);
  if (p == MAP_FAILED) {
    error = SystemError("cannot map the queue object");
    return false;
  }
  base_ = p;
  bytes_ = bytes;
  return true;
}

// Gives the object a fresh, empty layout for `capacity_`. Only called with the bookkeeping lock
// held and nobody attached.
bool Attachment::Initialise(std::string& error) {
  if (base_ != nullptr) {
    munmap(base_, bytes_);
    base_ = nullptr;
  }
  const std::size_t bytes = SegmentBytes(capacity_);
  if (ftruncate(fd_, 0) != 0 || ftruncate(fd_, static_cast<off_t>(bytes)) != 0) {
    error = SystemError("cannot size the queue object");
    return false;
  }
  // Reserving the memory now turns a full /dev/shm into a clear error here instead of a SIGBUS
  // at the first write to a page that cannot be had.
  const int reserved = posix_fallocate(fd_, 0, static_cast<off_t>(bytes));
  if (reserved != 0 && reserved != EOPNOTSUPP && reserved != EINVAL) {
    errno = reserved;
    error = SystemError("cannot reserve memory for the queue object");
    return false;
  }
  if (!Map(bytes, error)) return false;
  Segment* seg = new (base_) Segment();
  seg->header.version.store(kLayoutVersion, std::memory_order_relaxed);
  seg->header.capacity.store(capacity_, std::memory_order_relaxed);
  seg->header.segmentBytes.store(static_cast<std::uint32_t>(bytes), std::memory_order_relaxed);
  seg->header.magic.store(kLayoutMagic, std::memory_order_release);
  return true;
}

// The free place to take, or -1. With both free the object was just made afresh: either.
int Attachment::ChoosePlace() {
  const bool free0 = !ByteLockHeldElsewhere(fd_, PlaceLockByte(0));
  const bool free1 = !ByteLockHeldElsewhere(fd_, PlaceLockByte(1));
  return free0 ? 0 : free1 ? 1 : -1;
}

bool Attachment::OpenLocked(std::string& error, int& failure) {
  // Open the object and hold the bookkeeping lock. A leaving party may have removed the object
  // between our open and our lock: then it is an orphan, and we open the name again.
  struct stat st {};
  for (int attempt = 0;; ++attempt) {
    if (!OpenObject(st, error)) {
      failure = kQueueOpenSystemError;
      return false;
    }
    if (!AcquireMutex(fd_, kMutexWaitMs)) {
      const bool unsupported = errno == EINVAL;
      error = unsupported ? SystemError("open-file-description locks unavailable")
                          : "another process holds the queue's bookkeeping lock too long";
      failure = unsupported ? kQueueOpenSystemError : kQueueOpenBusy;
      return false;
    }
    if (fstat(fd_, &st) != 0) {
      error = SystemError("cannot inspect the queue object");
      failure = kQueueOpenSystemError;
      return false;
    }
    if (st.st_nlink > 0 || attempt >= 10) break;
    Release();
  }

  // With nobody attached, whatever the object holds is left by parties that have gone: a message
  // reaches only a process attached at the other place, so what they left is discarded, and
  // the object is made afresh, at the capacity this party asks for.
  const bool anyoneAttached =
      ByteLockHeldElsewhere(fd_, PlaceLockByte(0)) || ByteLockHeldElsewhere(fd_, PlaceLockByte(1));
  if (anyoneAttached) {
    std::uint32_t header[4] = {};
    const bool readable = static_cast<std::size_t>(st.st_size) >= sizeof(Segment) &&
                          pread(fd_, header, sizeof header, 0) == sizeof header;
    const std::uint32_t theirs = header[2];
    const bool valid = readable && header[0] == kLayoutMagic && header[1] == kLayoutVersion &&
                       theirs >= kMinQueueCapacity && theirs <= kMaxQueueCapacity &&
                       header[3] == SegmentBytes(theirs) &&
                       static_cast<std::size_t>(st.st_size) == SegmentBytes(theirs);
    if (!valid) {
      error = "queue object " + name_ + " is in use but its layout is not recognised (" +
              (!readable                   ? std::string("shorter than its header")
               : header[0] != kLayoutMagic ? std::string("no queue marker")
               : header[1] != kLayoutVersion
                   ? "layout version " + std::to_string(header[1]) + ", this build reads " +
                         std::to_string(kLayoutVersion)
                   : std::string("size and capacity disagree")) +
              ")";
      failure = kQueueOpenRefused;
      return false;
    }
    if (theirs != capacity_) {
      error = "capacity mismatch: the queue has " + std::to_string(theirs) +
              " bytes per ring, this party asked for " + std::to_string(capacity_);
      failure = kQueueOpenCapacity;
      return false;
    }
  }
  if (anyoneAttached ? !Map(SegmentBytes(capacity_), error) : !Initialise(error)) {
    failure = kQueueOpenSystemError;
    return false;
  }
  return true;
}

// The lock byte of ticket `ticket`.
off_t LineByte(std::uint32_t ticket) {
  return kLineLockBase + static_cast<off_t>(ticket % kLineSlots);
}

bool Attachment::FirstInLine(std::uint32_t ticket) {
  SegmentHeader& h = segment().header;
  std::uint32_t first = h.lineFirst.load(std::memory_order_relaxed);
  // Tickets before ours whose holders are gone are passed over for good.
  while (first != ticket && ticket - first < kLineSlots &&
         !ByteLockHeldElsewhere(fd_, LineByte(first)))
    ++first;
  h.lineFirst.store(first, std::memory_order_relaxed);
  if (first == ticket || ticket - first >= kLineSlots) return true;
  for (std::uint32_t t = first + 1; t != ticket; ++t)
    if (ByteLockHeldElsewhere(fd_, LineByte(t))) return false;
  return !ByteLockHeldElsewhere(fd_, LineByte(first));
}

int Attachment::WaitInLine(std::int64_t deadline, std::string& error, int& failure) {
  SegmentHeader& h = segment().header;
  const std::uint32_t ticket = h.lineNext.load(std::memory_order_relaxed);
  if (!SetByteLock(fd_, F_WRLCK, LineByte(ticket))) {
    error = "more than " + std::to_string(kLineSlots) + " processes wait in line for the queue";
    failure = kQueueOpenBusy;
    return -1;
  }
  h.lineNext.store(ticket + 1, std::memory_order_relaxed);
  for (;;) {
    if (FirstInLine(ticket)) {
      place_ = ChoosePlace();
      if (place_ >= 0 && SetByteLock(fd_, F_WRLCK, PlaceLockByte(place_))) {
        h.lineFirst.store(ticket + 1, std::memory_order_relaxed);
        SetByteLock(fd_, F_UNLCK, LineByte(ticket));
        // The next in line may find the other place free too.
        h.placeFreed.fetch_add(1, std::memory_order_release);
        if (h.lineNext.load(std::memory_order_relaxed) != ticket + 1) FutexWakeAll(&h.placeFreed);
        return 1;
      }
      place_ = -1;
    }
    if (MonotonicMs() >= deadline) {
      error = "both places of the queue stayed taken for the whole wait";
      failure = kQueueOpenPlacesHeld;
      return -1;
    }
    const std::uint32_t seen = h.placeFreed.load(std::memory_order_acquire);
    SetByteLock(fd_, F_UNLCK, kBookkeepingLockByte);
    const std::int64_t left = deadline - MonotonicMs();
    if (left > 0)
      FutexWait(&h.placeFreed, seen,
                static_cast<int>(std::min<std::int64_t>(left, kQueueLineRecheckMs)));
    if (!AcquireMutex(fd_, kMutexWaitMs)) {
      error = "another process holds the queue's bookkeeping lock too long";
      failure = kQueueOpenBusy;
      return -1;
    }
    // The object may have been removed (both holders left) or made afresh (both died, and a
    // newcomer found it empty: our ticket is then no longer in its line) while we slept: then it
    // is opened again from the start, and we join the line again there.
    struct stat st {};
    if (fstat(fd_, &st) != 0 || st.st_nlink == 0 ||
        static_cast<std::size_t>(st.st_size) != bytes_ ||
        h.magic.load(std::memory_order_acquire) != kLayoutMagic ||
        h.capacity.load(std::memory_order_relaxed) != capacity_ ||
        ticket - h.lineFirst.load(std::memory_order_relaxed) >=
            h.lineNext.load(std::memory_order_relaxed) -
                h.lineFirst.load(std::memory_order_relaxed)) {
      SetByteLock(fd_, F_UNLCK, LineByte(ticket));
      return 0;
    }
  }
}

bool Attachment::Open(int queueNumber, const char* keyPath, std::uint32_t capacity, int waitMs,
                      std::string& error, int& failure) {
  failure = kQueueOpened;
  if (capacity < kMinQueueCapacity || capacity > kMaxQueueCapacity) {
    error = "capacity " + std::to_string(capacity) + " is outside [" +
            std::to_string(kMinQueueCapacity) + ", " + std::to_string(kMaxQueueCapacity) + "]";
    failure = kQueueOpenCapacity;
    return false;
  }
  capacity_ = capacity;
  name_ = QueueObjectName(queueNumber, keyPath);
  // The clock counts whole milliseconds: one more, so that the wait is never shorter than asked.
  const std::int64_t deadline = waitMs > 0 ? MonotonicMs() + waitMs + 1 : 0;

  Register();
  for (;;) {
    if (!OpenLocked(error, failure)) {
      Abandon();
      return false;
    }
    if (waitMs > 0) {
      // First come, first served: a process that may wait takes its place in line, even when a
      // place is free, so that it does not take one that came free for those already waiting.
      const int waited = WaitInLine(deadline, error, failure);
      if (waited > 0) break;
      if (waited < 0) {
        Abandon();
        return false;
      }
      Release();  // the object went away: open its name again
      continue;
    }
    place_ = ChoosePlace();
    if (place_ >= 0 && SetByteLock(fd_, F_WRLCK, PlaceLockByte(place_))) break;
    place_ = -1;
    error = "both places of the queue are taken";
    failure = kQueueOpenPlacesHeld;
    Abandon();
    return false;
  }

  // The records before the current head were written by earlier holders of our place; the peer
  // uses this mark to end their stream before it reports us as arrived.
  const std::uint32_t peerWord = peer().attach.load(std::memory_order_acquire);
  peerAtAttach_ = {peerWord,
                   Attached(peerWord) && ByteLockHeldElsewhere(fd_, PlaceLockByte(1 - place_))};
  ProducerBlock& out = outProducer();
  out.epochStart.store(out.head.load(std::memory_order_relaxed), std::memory_order_relaxed);
  const std::uint32_t word = self().attach.load(std::memory_order_relaxed);
  generation_ = (Generation(word) + 1) & 0x7fffffffu;
  if (generation_ == kAnyPeer) generation_ = 1;  // 0 addresses whoever comes next
  self().watching.store(kNotWatching, std::memory_order_relaxed);
  self().attach.store((generation_ << 1) | 1u, std::memory_order_release);
  RingAlways(peer());
  notifier_.Bind(name_, 1 - place_);
  FullFence();
  notifier_.Notify(peer());
  SetByteLock(fd_, F_UNLCK, kBookkeepingLockByte);
  return true;
}

void Attachment::Populate() {
#ifdef MADV_POPULATE_WRITE
  // Where the kernel cannot (before Linux 5.14, or under an emulator), pages stay lazy.
  if (base_ != nullptr && !inherited_) madvise(base_, bytes_, MADV_POPULATE_WRITE);
#endif
}

void Attachment::WakeLine() {
  if (base_ == nullptr || inherited_) return;
  SegmentHeader& h = segment().header;
  h.placeFreed.fetch_add(1, std::memory_order_release);
  // Every waiter looks; only the first in line takes the place (see FirstInLine).
  if (h.lineNext.load(std::memory_order_relaxed) != h.lineFirst.load(std::memory_order_relaxed))
    FutexWakeAll(&h.placeFreed);
}

bool Attachment::RestoreOwnWord() {
  const std::uint32_t word = (generation_ << 1) | 1u;
  if (self().attach.load(std::memory_order_relaxed) == word) return false;
  self().attach.store(word, std::memory_order_release);
  RingAlways(peer());
  FullFence();
  notifier_.Notify(peer());
  return true;
}

void Attachment::Close() {
  if (base_ == nullptr && fd_ < 0) return;
  if (!inherited_ && place_ >= 0) {
    const bool locked = AcquireMutex(fd_, kMutexWaitMs);
    const std::uint32_t word = self().attach.load(std::memory_order_relaxed);
    self().watching.store(kNotWatching, std::memory_order_relaxed);
    self().attach.store(word & ~1u, std::memory_order_release);
    RingAlways(peer());
    FullFence();
    notifier_.Notify(peer());
    SetByteLock(fd_, F_UNLCK, PlaceLockByte(place_));
    struct stat st {};
    const bool last = locked && fstat(fd_, &st) == 0 && st.st_nlink > 0 &&
                      !ByteLockHeldElsewhere(fd_, PlaceLockByte(1 - place_));
    if (last) shm_unlink(name_.c_str());
    // The line is woken once the bookkeeping lock is free, so that the first waiter takes the
    // place at once instead of finding the lock held and sleeping on it.
    if (locked) SetByteLock(fd_, F_UNLCK, kBookkeepingLockByte);
    if (last) {
      // Whoever waits in line on the removed object opens the name again.
      segment().header.placeFreed.fetch_add(1, std::memory_order_release);
      FutexWakeAll(&segment().header.placeFreed);
    } else {
      WakeLine();
    }
  }
  readiness_.Close();
  notifier_.Close();
  place_ = -1;
  Abandon();
}

// Unmaps, lets go of every lock and closes. The locks are released explicitly: closing drops
// them only when no other descriptor refers to the same open, and a child forked by another
// thread before it could be told to close its copy may still hold one.
void Attachment::Release() {
  if (base_ != nullptr) munmap(base_, bytes_);
  base_ = nullptr;
  bytes_ = 0;
  if (fd_ < 0) return;
  if (!inherited_) {
    struct flock whole {};
    whole.l_type = F_UNLCK;
    whole.l_whence = SEEK_SET;  // from byte 0, length 0: every byte
    fcntl(fd_, F_OFD_SETLK, &whole);
  }
  std::lock_guard<std::mutex> guard(Registry().mutex);
  close(fd_);
  fd_ = -1;
}

void Attachment::Abandon() {
  Release();
  Unregister();
}

void Attachment::ForgetAfterFork() {
  if (fd_ >= 0) close(fd_);  // the parent's descriptor keeps the locks; ours just goes
  fd_ = -1;
  readiness_.ForgetAfterFork();
  notifier_.ForgetAfterFork();
  inherited_ = true;
}

PeerView Attachment::ObservePeer(Liveness how) {
  const std::uint32_t word = peer().attach.load(std::memory_order_acquire);
  if (!Attached(word)) return {word, false};
  if (how == Liveness::kKnown && word == checkedWord_) return {word, checkedAlive_};
  const std::int64_t now = MonotonicMs();
  if (how == Liveness::kAsk || word != checkedWord_ || now - checkedAt_ >= kLivenessRecheckMs) {
    checkedAlive_ = ByteLockHeldElsewhere(fd_, PlaceLockByte(1 - place_));
    checkedWord_ = word;
    checkedAt_ = now;
  }
  return {word, checkedAlive_};
}

}  // namespace conflink::queue
