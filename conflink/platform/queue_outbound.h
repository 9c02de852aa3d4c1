// The sending side of a queue: writes a message into the outbound ring as one record, or as
// fragments when it does not fit, and waits for room while the peer is there and taking.
//
// A message travels in records of at most the queue's capacity (header included), so that the
// consumer copies one record out while the producer writes the next. A message whose records fit
// the free space goes at once, whether or not the peer is attached (it stays queued for whoever
// takes the place). One that does not fit goes only to a peer that is attached: while carrying it
// the sender keeps emptying its own inbound ring into local memory (before the first fragment and
// whenever it waits for room), so two parties filling each other's rings both progress. A message
// is given up part way when the peer leaves or takes nothing for kQueueStallMs; the producer then
// stores the message's number in ProducerBlock::abandonedSeq, which the consumer reads even when
// the ring is too full for any record telling it so, and drops what it has of that message.
#pragma once

#include <cstdint>
#include <string>

#include <conflink/platform/queue_attachment.h>
#include <conflink/platform/queue_inbound.h>
#include <conflink/platform/queue_wait.h>

namespace conflink::queue {

// How long a waiting sender sleeps before it looks at the peer again.
constexpr int kSendWaitSliceMs = 100;

class Outbound {
 public:
  // `capacity`: the largest record, header included (the capacity the queue was opened with).
  Outbound(Attachment& attachment, Inbound& inbound, std::uint32_t capacity)
      : a_(attachment), in_(inbound), recordLimit_(capacity) {}

  // Sends one message for the peer of generation `to` (kAnyPeer: whoever takes the other place);
  // a QueueResult. A message for a peer that is seen to have left is refused at once with
  // kQueuePeerDeparted. On failure `error` says why.
  int Send(int type, const std::string& buffer, std::uint32_t to, std::string& error);
  // Free bytes of the outbound ring (0 when its indices are unusable).
  std::uint32_t FreeBytes() const;

 private:
  int GiveUp(std::uint32_t seq, bool published, int result);
  // Most payload bytes one record carries in a ring of `ringBytes`.
  std::uint32_t MaxPayload(std::uint32_t ringBytes) const;
  // Ring bytes that `n` payload bytes take as records (headers included).
  std::uint64_t RecordBytes(std::uint32_t n, std::uint32_t maxPayload) const;

  Attachment& a_;
  Inbound& in_;
  std::uint32_t recordLimit_;
  SpinBudget spin_;
  // The consumer's tail when we last read it. None yet (an index no ring has) until the first
  // send reads it: a party that takes a place may find its predecessor's messages still unread.
  std::uint32_t tailSeen_ = UINT32_MAX;
};

}  // namespace conflink::queue
