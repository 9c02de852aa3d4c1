// The receiving side of a queue: takes records out of the inbound ring, reassembles fragmented
// messages, and places the peer's arrival and departure events among the messages in the order
// in which they happened. What it takes is held locally until a receive call hands it out, so a
// sender that waits for room can keep emptying its inbound ring and two parties that send large
// messages to each other at once do not deadlock.
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

// One thing to hand out: a message, a queue event, or a failure at its place in the stream.
struct InboundItem {
  int result;  // kQueueOk, or kQueueCorrupt / kQueueNoMemory
  int type;
  std::string data;  // the message, or the failure's description
};

class Inbound {
 public:
  explicit Inbound(Attachment& attachment) : a_(attachment) {}

  // Takes records until `want` items are held locally or the ring has nothing more.
  void Pump(std::size_t want);
  // Hands out the oldest held item, if any.
  bool Take(InboundItem& out);
  bool HasItems() const { return !items_.empty(); }

  // Cheap checks for wait loops: whether the ring has unread bytes (not counting a state already
  // found corrupt and not yet repaired), and whether the peer's attach word moved since the last
  // Pump looked at it.
  bool RingHasData() const;
  bool PeerWordChanged() const;

  // Bytes of messages received but not handed out: held locally, in reassembly, in the ring.
  std::uint32_t PendingBytes() const;

 private:
  void Observe();
  // Takes records up to index `limit` (or the head when `limit` is not a valid stop), at most
  // `want` new items. Returns false when it found the ring in a state it cannot read.
  bool Drain(std::uint32_t limit, std::size_t want);
  bool TakeRecord(std::uint32_t tail, std::uint32_t available, std::uint32_t& next);
  bool Unread(std::uint32_t head, std::uint32_t tail) const {
    return head != tail && !(stuck_ && head == stuckHead_ && tail == stuckTail_);
  }
  void Push(int result, int type, std::string data);
  void Fail(int result, const std::string& why);
  void DropPartial();
  void Consumed(std::uint32_t next);

  Attachment& a_;
  std::deque<InboundItem> items_;
  std::size_t heldBytes_ = 0;

  // The peer as we reported it: whether we announced its arrival and not yet its departure, of
  // which generation, and the newest generation we accounted for.
  bool started_ = false;
  bool reported_ = false;
  std::uint32_t reportedGeneration_ = 0;
  std::uint32_t seenGeneration_ = 0;
  std::uint32_t lastWord_ = 0;

  // The message being reassembled.
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
