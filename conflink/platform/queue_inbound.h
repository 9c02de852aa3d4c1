// The receiving side of a queue: takes records out of the inbound ring, reassembles fragmented
// messages, and places the peer's arrival and departure events among the messages in the order
// in which they happened. A receive call with nothing held locally takes the next message from
// the ring straight into the caller's buffer, in the storage the buffer already has. What a
// sender takes while it waits for room is held locally until receive calls hand it out, ahead
// of the ring, so that two parties that send large messages to each other at once do not
// deadlock.
//
// Memory is reused: a message in fragments is reassembled in a buffer that is exchanged with
// the caller's, so a caller that keeps one buffer for its receives and the queue each keep the
// storage of the largest message seen, and a steady stream of large messages allocates nothing.
//
// Events follow the peer's generations (see PartyBlock). When the generation we reported changes
// or the peer's lock is gone, everything that peer published is delivered first, then its
// departure. A generation that appeared since we last looked is announced after the records
// written before it attached (ProducerBlock::epochStart), even when it has left again by then.
// A peer already present when we attach is reported at once, before anything else.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>

#include <conflink/platform/queue_attachment.h>

namespace conflink::queue {

// One thing held locally: a message, a queue event, or a failure at its place in the stream.
struct InboundItem {
  int result;  // kQueueOk, or kQueueCorrupt / kQueueNoMemory
  int type;
  std::string data;              // the message, or the failure's description
  std::uint32_t generation = 0;  // of an arrival event: the peer that arrived
};

class Inbound {
 public:
  explicit Inbound(Attachment& attachment) : a_(attachment) {}

  // Hands out the next thing received. kQueueOk with `type` and `buffer` filled (an event leaves
  // the buffer empty); kQueueEmpty when nothing is waiting; otherwise a failure's QueueResult,
  // with `why` set and `type` and `buffer` as they were.
  int Receive(int& type, std::string& buffer, std::string& why);
  // Takes records until `want` items are held locally or the ring has nothing more.
  void Pump(std::size_t want) { Pump(want, nullptr); }
  // What a sender that waits for room does: takes every record, but stops once what is held
  // locally (messages and a message in reassembly) reaches `maxHeldBytes`; it can overshoot by
  // one record, or by what a departed peer left (at most a ring). Returns whether it stopped at
  // the bound with records left in the ring.
  bool PumpBounded(std::size_t maxHeldBytes);

  // Cheap checks for wait loops: whether the ring has unread bytes (not counting a state already
  // found corrupt and not yet repaired), and whether the peer's attach word moved since the last
  // Pump looked at it.
  bool RingHasData() const;
  bool PeerWordChanged() const;

  // Bytes of messages received but not handed out: held locally, in reassembly, in the ring.
  std::uint32_t PendingBytes() const;
  // The generation of the peer whose arrival was handed out last and whose departure was not:
  // the peer this party has heard of, to which what it sends is addressed. kAnyPeer when none.
  std::uint32_t HeardPeer() const { return heard_; }
  // Messages dropped on arrival by this party because they were for an earlier holder of its
  // place.
  std::uint32_t Discarded() const { return discarded_; }
  // Whether a message in fragments has begun and not ended, and how much of it arrived.
  bool Assembling() const { return assembling_; }
  std::uint32_t AssembledBytes() const { return static_cast<std::uint32_t>(partial_.size()); }

 private:
  // A caller's buffer that the next message may go into directly, instead of being held.
  struct Delivery {
    std::string* buffer;
    int type = 0;
    bool filled = false;
  };

  // As the public Pump; a message taken while nothing is held goes into `direct`, if given,
  // and counts as one item.
  void Pump(std::size_t want, Delivery* direct);
  // Takes records up to index `limit` (or the head when `limit` is not a valid stop), at most
  // `want` new items. Returns false when it found the ring in a state it cannot read.
  // `bounded`: stop at heldLimit_ too.
  bool Drain(std::uint32_t limit, std::size_t want, Delivery* direct, bool bounded = false);
  std::size_t HeldBytes() const { return heldBytes_ + partial_.size(); }
  // The producer's head: the one last read while records remain before it, else read afresh.
  // The producer writes its line for every record it publishes; reading it for every record
  // taken would fetch that line each time.
  std::uint32_t Head(std::uint32_t tail);
  bool TakeRecord(std::uint32_t tail, std::uint32_t available, std::uint32_t& next,
                  Delivery* direct);
  // Whether a complete message goes into `direct` rather than being held: only when nothing is
  // held, so that messages keep their order.
  bool Direct(const Delivery* direct) const {
    return direct != nullptr && !direct->filled && items_.empty();
  }
  std::size_t Held(const Delivery* direct) const {
    return items_.size() + (direct != nullptr && direct->filled ? 1 : 0);
  }
  bool Unread(std::uint32_t head, std::uint32_t tail) const {
    return head != tail && !(stuck_ && head == stuckHead_ && tail == stuckTail_);
  }
  void Push(int result, int type, std::string data, std::uint32_t generation = 0);
  void Fail(int result, const std::string& why);
  void GrowPartial(std::uint32_t more);
  void DropPartial();
  void Consumed(std::uint32_t next);

  Attachment& a_;
  std::deque<InboundItem> items_;
  std::size_t heldBytes_ = 0;
  std::size_t heldLimit_ = SIZE_MAX;  // see PumpBounded
  std::uint32_t headSeen_ = 0;
  bool headKnown_ = false;

  // The peer as we reported it: whether we announced its arrival and not yet its departure, of
  // which generation, and the newest generation we accounted for.
  bool started_ = false;
  bool reported_ = false;
  std::uint32_t reportedGeneration_ = 0;
  std::uint32_t heard_ = 0;  // see HeardPeer
  std::uint32_t discarded_ = 0;
  std::uint32_t seenGeneration_ = 0;
  std::uint32_t lastWord_ = 0;

  // The message being reassembled. Its storage outlives the message (see above).
  bool assembling_ = false;
  std::uint32_t partialSeq_ = 0;
  std::uint32_t partialType_ = 0;
  std::uint32_t partialTotal_ = 0;
  std::string partial_;

  // A ring state already reported as unreadable, so that it is reported once, not on every look.
  bool stuck_ = false;
  std::uint32_t stuckHead_ = 0;
  std::uint32_t stuckTail_ = 0;
};

}  // namespace conflink::queue
