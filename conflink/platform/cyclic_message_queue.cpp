// The queue object: ties the attachment, the outbound and the inbound side together, and keeps
// every failure, allocation failures included, inside as a result code and a text.
#include <conflink/platform/cyclic_message_queue.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <new>

#include <conflink/platform/queue_attachment.h>
#include <conflink/platform/queue_inbound.h>
#include <conflink/platform/queue_outbound.h>
#include <conflink/platform/queue_wait.h>

namespace conflink {

const char* QueueResultText(int result) {
  switch (result) {
    case kQueueOk:
      return "ok";
    case kQueueEmpty:
      return "nothing waiting";
    case kQueueNotConnected:
      return "queue not connected";
    case kQueuePeerAbsentFull:
      return "outbound ring full and peer absent";
    case kQueuePeerDeparted:
      return "peer departed: the message was for a process that left";
    case kQueueTooLarge:
      return "message too large";
    case kQueuePeerStalled:
      return "peer stalled: took nothing from a full ring";
    case kQueueCorrupt:
      return "shared queue state corrupt";
    case kQueueNoMemory:
      return "out of memory";
    case kQueueBadArgument:
      return "bad argument";
    case kQueueInterrupted:
      return "receive interrupted";
    case kQueueBacklogFull:
      return "too much received while waiting to send";
    default:
      return result > 0 ? "ok" : "unknown queue result";
  }
}

const char* QueueOpenResultText(int result) {
  switch (result) {
    case kQueueOpened:
      return "opened";
    case kQueueOpenPlacesHeld:
      return "both places held";
    case kQueueOpenRefused:
      return "queue object refused";
    case kQueueOpenCapacity:
      return "capacity refused";
    case kQueueOpenBusy:
      return "queue bookkeeping busy";
    case kQueueOpenSystemError:
      return "system error";
    case kQueueOpenNoMemory:
      return "out of memory";
    default:
      return "unknown open result";
  }
}

}  // namespace conflink

using namespace conflink;

namespace {

// How long a blocked receive sleeps before it looks at the peer's liveness again.
constexpr int kReceiveWaitSliceMs = 100;
// Receive modes besides a timeout in milliseconds.
constexpr int kWaitForever = -1;
constexpr int kNoWait = 0;

}  // namespace

struct CyclicMessageQueue::State {
  State(int number, unsigned int capacityBytes)
      : queueNumber(number),
        capacity(capacityBytes),
        inbound(attachment),
        outbound(attachment, inbound, capacityBytes) {}

  bool Usable() {
    if (attachment.usable()) return true;
    Note(attachment.inherited() ? "queue object belongs to the process that opened it (fork)"
         : lastError.empty()    ? "queue not connected"
                                : lastError.c_str());
    return false;
  }
  // Keeps `text` as the last error. Never throws: a failure to keep the text leaves the old one.
  void Note(const char* text) {
    try {
      if (lastError != text) lastError = text;
    } catch (...) {
    }
  }
  int Receive(int* type, std::string* buffer, int timeoutMs);
  // For a poll that found nothing while a readiness descriptor exists: empties it and watches
  // again. Returns true when something turned out to be waiting after all (the caller looks
  // again) because the object was closed by a writer (a peer may have died).
  bool Rearm();

  int queueNumber;
  int openResult = kQueueOpenNoMemory;
  unsigned int discardsTaken = 0;  // see TakeNewDiscards
  // Messages sent and received until the mapping is populated (Attachment::Populate): a party
  // that moved this many stays long enough for it to pay.
  unsigned int untilPopulate = 64;
  void Moved() {
    if (untilPopulate != 0 && --untilPopulate == 0) attachment.Populate();
  }
  unsigned int capacity;
  queue::Attachment attachment;
  queue::Inbound inbound;
  queue::Outbound outbound;
  queue::SpinBudget receiveSpin;
  queue::SpinBudget pollSpin;  // of polls on a readiness loop (see Receive)
  // Interrupts not yet used up by a receive; set by Interrupt(), perhaps in a signal handler.
  std::atomic<std::uint32_t> interrupts{0};
  std::string lastError;
  std::string failure;  // the text of a failure being handed out
};

int CyclicMessageQueue::State::Receive(int* type, std::string* buffer, int timeoutMs) {
  if (type == nullptr || buffer == nullptr) {
    Note("receive needs a type and a buffer");
    return kQueueBadArgument;
  }
  if (!Usable()) return kQueueNotConnected;
  // The clock is read only once a timed receive has to wait: most receives do not.
  std::int64_t deadline = -1;
  std::uint32_t assembled = 0;  // of a message in fragments, when a poll last saw it grow
  bool handedOver = false;      // a poll yields to a peer on its processor at most once
  for (;;) {
    if (timeoutMs != kNoWait && interrupts.load(std::memory_order_acquire) != 0) {
      interrupts.store(0, std::memory_order_relaxed);
      Note("receive interrupted");
      return kQueueInterrupted;
    }
    const int result = inbound.Receive(*type, *buffer, failure);
    if (result == kQueueOk) Moved();
    if (result != kQueueEmpty) {
      if (result != kQueueOk) Note(failure.c_str());
      return result;
    }
    int slice = kReceiveWaitSliceMs;
    if (timeoutMs == kNoWait) {
      // A poll that finds a message begun waits for the rest while it keeps coming, so that a
      // message larger than the ring arrives at the pace of its sender, not of the polls.
      if (!inbound.Assembling()) {
        if (attachment.readiness().open()) {
          // A party on a readiness loop is about to sleep in poll: first the brief spin and the
          // hand-over of a blocking receive, so that an answer already on its way is taken
          // without the peer ringing and the loop waking (both cost system calls).
          if (!handedOver) {
            handedOver = true;
            auto ready = [&] { return inbound.RingHasData() || inbound.PeerWordChanged(); };
            queue::PartyBlock& self = attachment.self();
            const std::uint32_t mine = queue::NoteCpu(self);
            if ((queue::SpinWorthwhile() &&
                 queue::Spin(pollSpin, attachment.peer(), mine, ready)) ||
                queue::HandOver(attachment.peer(), mine, ready))
              continue;
          }
          if (Rearm()) continue;
          return kQueueEmpty;
        }
        if (handedOver) return kQueueEmpty;
        handedOver = true;
        if (!queue::HandOverFromPoll(attachment.self(), attachment.peer())) return kQueueEmpty;
        continue;
      }
      const std::uint32_t have = inbound.AssembledBytes();
      const std::int64_t now = queue::MonotonicMs();
      if (deadline < 0 || have != assembled) {
        assembled = have;
        deadline = now + kQueuePollStallMs;
      }
      const std::int64_t left = deadline - now;
      if (left <= 0) return kQueueEmpty;
      slice = static_cast<int>(std::min<std::int64_t>(left, slice));
    } else if (timeoutMs != kWaitForever) {
      const std::int64_t now = queue::MonotonicMs();
      if (deadline < 0) deadline = now + timeoutMs;
      const std::int64_t left = deadline - now;
      if (left <= 0) return kQueueEmpty;
      slice = static_cast<int>(std::min<std::int64_t>(left, slice));
    }
    queue::WaitOnBell(
        attachment.self(), attachment.peer(), receiveSpin, queue::kWaitForData,
        [&] {
          return inbound.RingHasData() || inbound.PeerWordChanged() ||
                 interrupts.load(std::memory_order_relaxed) != 0;
        },
        slice);
  }
}

bool CyclicMessageQueue::State::Rearm() {
  queue::Readiness& readiness = attachment.readiness();
  queue::PartyBlock& self = attachment.self();
  // While not armed (kWatchNotified) no peer rings, so the descriptor must stay readable until
  // the party is armed again or has taken what waits. Every way out that reports something
  // waiting therefore leaves it readable (Poke): a loop that stops before a receive finds
  // nothing (DispatchWaiting at its count) still wakes for the rest.
  self.watching.store(queue::kWatchNotified, std::memory_order_relaxed);
  if (readiness.Drain()) {
    // A writer closed the object: if it was the peer, dying, only the kernel can say so now,
    // and the next look reports its departure.
    const bool alive = attachment.ObservePeer(queue::Liveness::kAsk).alive;
    if (!alive && (attachment.peer().attach.load(std::memory_order_acquire) & 1u) != 0) {
      readiness.Poke();
      return true;
    }
  }
  self.watching.store(queue::kWatchArmed, std::memory_order_relaxed);
  // Pairs with the fence a sender makes between publishing and reading `watching`: either it
  // sees us armed and rings, or we see what it published.
  queue::FullFence();
  if (inbound.RingHasData() || inbound.PeerWordChanged()) {
    std::uint32_t armed = queue::kWatchArmed;
    // Whoever takes the arming rings (a sender did, or we do): the descriptor stays readable.
    if (self.watching.compare_exchange_strong(armed, queue::kWatchNotified,
                                              std::memory_order_relaxed))
      readiness.Poke();
    return true;
  }
  return false;
}

CyclicMessageQueue::CyclicMessageQueue(int queueNumber, const char* keyPath, unsigned int capacity,
                                       Link* link)
    : CyclicMessageQueue(queueNumber, keyPath, capacity, link, 0) {}

CyclicMessageQueue::CyclicMessageQueue(int queueNumber, const char* keyPath, unsigned int capacity,
                                       Link* /*link: the transport has no use for it*/, int waitMs)
    : state_(nullptr) {
  try {
    state_ = new State(queueNumber, capacity);
    std::string error;
    // A capacity out of range goes to Open as it is, to be refused there with its reason.
    const bool usable = capacity >= kMinQueueCapacity && capacity <= kMaxQueueCapacity;
    const unsigned int ringBytes = usable ? queue::RingBytesFor(capacity) : capacity;
    if (!state_->attachment.Open(queueNumber, keyPath, ringBytes, waitMs, error,
                                 state_->openResult))
      state_->lastError = error;
  } catch (...) {
    if (state_ != nullptr) {
      state_->Note("out of memory opening the queue");
      state_->openResult = kQueueOpenNoMemory;
    }
  }
}

int CyclicMessageQueue::OpenResult() const {
  return state_ == nullptr ? kQueueOpenNoMemory : state_->openResult;
}

int CyclicMessageQueue::ReadinessFd() {
  if (state_ == nullptr || !state_->Usable()) return -1;
  queue::Attachment& a = state_->attachment;
  if (a.readiness().open()) return a.readiness().fd();
  std::string error;
  if (!a.readiness().Open(a.name(), a.fd(), a.place(), a.generation(), error)) {
    state_->Note(error.c_str());
    return -1;
  }
  // Readable from the start: what is waiting now (the peer's arrival, perhaps) is found by the
  // first look, which then arms it.
  a.self().watching.store(queue::kWatchNotified, std::memory_order_relaxed);
  a.readiness().Poke();
  return a.readiness().fd();
}

unsigned int CyclicMessageQueue::DiscardedMessages() const {
  return state_ == nullptr ? 0 : state_->inbound.Discarded();
}

unsigned int CyclicMessageQueue::TakeNewDiscards() {
  if (state_ == nullptr) return 0;
  const unsigned int now = state_->inbound.Discarded();
  const unsigned int fresh = now - state_->discardsTaken;
  state_->discardsTaken = now;
  return fresh;
}

unsigned int CyclicMessageQueue::AddressedPeer() const {
  return state_ == nullptr ? 0 : state_->inbound.HeardPeer();
}

CyclicMessageQueue::~CyclicMessageQueue() {
  delete state_;
}

int CyclicMessageQueue::Send(const int* type, std::string* buffer) {
  if (state_ == nullptr) return kQueueNotConnected;
  try {
    if (type == nullptr || buffer == nullptr) {
      state_->Note("send needs a type and a buffer");
      return kQueueBadArgument;
    }
    if (*type == kQueueEventPeerConnected || *type == kQueueEventPeerDisconnected) {
      state_->Note("message types 0x80000000 and 0x80000001 are reserved for queue events");
      return kQueueBadArgument;
    }
    if (!state_->Usable()) return kQueueNotConnected;
    std::string error;
    const int result = state_->outbound.Send(*type, *buffer, state_->inbound.HeardPeer(), error);
    if (result != kQueueOk) state_->Note(error.c_str());
    if (result == kQueueOk) state_->Moved();
    return result;
  } catch (const std::bad_alloc&) {
    state_->Note("out of memory sending a message");
    return kQueueNoMemory;
  } catch (...) {
    state_->Note("unexpected failure sending a message");
    return kQueueCorrupt;
  }
}

namespace {

template <typename State, typename Operation>
int Guarded(State* state, Operation&& operation) {
  if (state == nullptr) return kQueueNotConnected;
  try {
    return operation();
  } catch (const std::bad_alloc&) {
    return kQueueNoMemory;
  } catch (...) {
    return kQueueCorrupt;
  }
}

}  // namespace

int CyclicMessageQueue::Receive(int* type, std::string* buffer) {
  const int r = Guarded(state_, [&] { return state_->Receive(type, buffer, kWaitForever); });
  if (r == kQueueNoMemory) state_->Note("out of memory receiving a message");
  return r;
}

int CyclicMessageQueue::PeekMessage(int* type, std::string* buffer) {
  const int r = Guarded(state_, [&] { return state_->Receive(type, buffer, kNoWait); });
  if (r == kQueueNoMemory) state_->Note("out of memory receiving a message");
  return r;
}

int CyclicMessageQueue::ReceiveFor(int* type, std::string* buffer, int timeoutMs) {
  const int r =
      Guarded(state_, [&] { return state_->Receive(type, buffer, std::max(timeoutMs, 0)); });
  if (r == kQueueNoMemory) state_->Note("out of memory receiving a message");
  return r;
}

unsigned int CyclicMessageQueue::PendingBytes() {
  if (state_ == nullptr || !state_->attachment.usable()) return 0;
  return state_->inbound.PendingBytes();
}

unsigned int CyclicMessageQueue::FreeBytes() {
  if (state_ == nullptr || !state_->attachment.usable()) return 0;
  return state_->outbound.FreeBytes();
}

const char* CyclicMessageQueue::LastError() {
  return state_ == nullptr ? "out of memory creating the queue" : state_->lastError.c_str();
}

int CyclicMessageQueue::IsPartyOnline() {
  if (state_ == nullptr || !state_->attachment.usable()) return 0;
  return state_->attachment.ObservePeer(queue::Liveness::kAsk).alive ? 1 : 0;
}

int CyclicMessageQueue::Interrupt() {
  if (state_ == nullptr || !state_->attachment.usable()) return kQueueNotConnected;
  const int savedErrno = errno;
  state_->interrupts.store(1, std::memory_order_release);
  // The receive may be asleep on its own bell: move the bell on and wake it.
  queue::RingAlways(state_->attachment.self());
  errno = savedErrno;
  return kQueueOk;
}

unsigned int CyclicMessageQueue::Capacity() {
  return state_ == nullptr ? 0 : state_->capacity;
}

int CyclicMessageQueue::IsConnected() {
  return state_ != nullptr && state_->attachment.usable() ? 1 : 0;
}
