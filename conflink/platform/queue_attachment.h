// Opening a queue's shared object, taking one of its two places, knowing whether the peer is
// there, and leaving.
//
// Liveness rests on kernel-held locks: open-file-description locks on bytes of the object's file
// descriptor. Byte 1 + p is held by the party in place p for as long as it is attached; byte 0 is
// held for the few system calls of attaching or leaving, serialising the bookkeeping. The kernel
// drops such a lock when the holder closes the object or dies, SIGKILL included, so a survivor
// learns of a departure without process ids or heartbeats and a newcomer can take the free place.
// Unlike classic record locks, these belong to one open of the object, so two queue objects in
// one process are two distinct parties.
#pragma once

#include <sys/stat.h>
#include <cstddef>

#include <cstdint>
#include <string>

#include <conflink/platform/queue_layout.h>
#include <conflink/platform/queue_readiness.h>
#include <conflink/platform/queue_ring.h>

namespace conflink::queue {

// How often a party asks the kernel whether the peer's lock still stands, while the peer's
// attach word says it is there.
constexpr int kLivenessRecheckMs = 50;

// What a party knows about its peer at one moment.
struct PeerView {
  std::uint32_t word;  // the peer's attach word
  bool alive;          // attached and holding its place lock
};

// How hard ObservePeer looks at the peer's place lock, which costs a system call.
enum class Liveness {
  kAsk,     // ask the kernel now
  kRecent,  // ask when the attach word changed or the last answer is kLivenessRecheckMs old
  kKnown,   // ask only when the attach word changed; otherwise the last answer (no clock read)
};

class Attachment {
 public:
  Attachment() = default;
  ~Attachment() { Close(); }
  Attachment(const Attachment&) = delete;
  Attachment& operator=(const Attachment&) = delete;

  // Opens or creates the object and takes a free place. When both places are held and `waitMs`
  // is positive, waits in line for one for at most that long: woken when a holder leaves, in
  // the order the waiters came (see SegmentHeader::lineNext). On failure returns false, sets
  // `error` to the reason and `failure` to its QueueOpenResult, and holds nothing.
  bool Open(int queueNumber, const char* keyPath, std::uint32_t capacity, int waitMs,
            std::string& error, int& failure);
  // Leaves the place, wakes the peer, and removes the object when the peer is not attached:
  // what is still queued then can reach no one. Harmless when not open.
  void Close();

  // True when this object holds a place. False after a fork in the child's copy: the place
  // belongs to the parent.
  bool usable() const { return base_ != nullptr && !inherited_; }
  bool inherited() const { return inherited_; }
  int place() const { return place_; }
  // This party's generation in its place (never kAnyPeer).
  std::uint32_t generation() const { return generation_; }
  const std::string& name() const { return name_; }
  int fd() const { return fd_; }
  // The readiness descriptor of this party, once made (see queue_readiness.h), and the notifier
  // that rings the peer's.
  Readiness& readiness() { return readiness_; }
  ReadinessNotifier& notifier() { return notifier_; }
  // Enters the whole object into this process's page tables (see Map): for a party that has
  // shown that it stays, so that a ring's first lap does not fault page by page.
  void Populate();
  // Tells the line of processes waiting for a place that one may have come free (a peer that
  // died cannot say so itself).
  void WakeLine();
  // Writes our attach word again when something else changed it: the peer addresses its
  // messages to the generation it reads there, so a damaged word would have them dropped as
  // meant for another process. The peer then sees our departure and arrival, and addresses us
  // again. True when the word was restored.
  bool RestoreOwnWord();
  std::uint32_t capacity() const { return capacity_; }

  Segment& segment() const { return *static_cast<Segment*>(base_); }
  PartyBlock& self() const { return segment().party[place_]; }
  PartyBlock& peer() const { return segment().party[1 - place_]; }
  // Our outbound ring is the one of our place; the inbound one belongs to the peer's place.
  ProducerBlock& outProducer() const { return segment().producer[place_]; }
  ConsumerBlock& outConsumer() const { return segment().consumer[place_]; }
  ProducerBlock& inProducer() const { return segment().producer[1 - place_]; }
  ConsumerBlock& inConsumer() const { return segment().consumer[1 - place_]; }
  RingBytes outbound() const { return Ring(place_); }
  RingBytes inbound() const { return Ring(1 - place_); }

  // The peer's state. The attach word is read every time; the kernel is asked about the lock as
  // `how` says. kKnown suits a reader with records still to take: a peer that died cannot add
  // to them, and its departure is due only after them anyway.
  PeerView ObservePeer(Liveness how);

  // Called in a forked child: forget the place without touching it (the parent still has it).
  void ForgetAfterFork();

  // The peer as it was when we took our place (read under the bookkeeping lock).
  PeerView peerAtAttach() const { return peerAtAttach_; }

 private:
  RingBytes Ring(int r) const {
    return RingBytes(static_cast<unsigned char*>(base_) + RingOffset(capacity_, r), capacity_);
  }
  // Joins or leaves the list of queues whose descriptors a forked child closes.
  void Register();
  void Unregister();
  // Opens the object under the list's lock (see queue_attachment.cpp).
  bool OpenObject(struct stat& st, std::string& error);
  // Releases everything and unregisters: the object is done with.
  void Abandon();
  bool Map(std::size_t bytes, std::string& error);
  // The object opened, locked for bookkeeping and mapped, or false with `error` and `failure`.
  bool OpenLocked(std::string& error, int& failure);
  // Takes a ticket and waits in line until a place can be taken or `deadline` passes; see Open
  // and SegmentHeader::lineNext. Called and returns with the bookkeeping lock held. Returns 1
  // with a place taken, 0 when the object went away meanwhile (open it again), -1 on failure.
  int WaitInLine(std::int64_t deadline, std::string& error, int& failure);
  // Whether no live waiter holds a ticket before `ticket`; passes over those that left.
  bool FirstInLine(std::uint32_t ticket);
  bool Initialise(std::string& error);
  int ChoosePlace();
  void Release();

  int fd_ = -1;
  void* base_ = nullptr;
  std::size_t bytes_ = 0;
  int place_ = -1;
  std::uint32_t generation_ = 0;
  std::uint32_t capacity_ = 0;
  bool inherited_ = false;
  std::string name_;
  std::uint32_t checkedWord_ = 0;
  bool checkedAlive_ = false;
  std::int64_t checkedAt_ = 0;
  PeerView peerAtAttach_{0, false};
  Readiness readiness_;
  ReadinessNotifier notifier_;
};

}  // namespace conflink::queue
