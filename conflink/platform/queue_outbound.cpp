#include <conflink/platform/queue_outbound.h>

#include <algorithm>
#include <cstdint>
#include <new>

#include <conflink/platform/cyclic_message_queue.h>
#include <conflink/platform/queue_wait.h>

namespace conflink::queue {
namespace {

// Smallest fragment worth writing while a message waits for room, and the room a sender that
// found the ring full waits for before it writes again. Writing as soon as a few bytes are free
// would make the two parties hand the ring's lines back and forth for every record (and on a
// busy machine, wake each other for every record); a quarter of the ring lets each side work
// through a batch while the other works on the rest; half the ring halves the hand-offs, which
// on a busy machine each may cost a wait for a processor.
std::uint32_t Batch(std::uint32_t capacity) {
  return capacity / 2;
}

}  // namespace

std::uint32_t Outbound::MaxPayload(std::uint32_t ringBytes) const {
  const std::uint32_t limit = std::min(recordLimit_, ringBytes);
  return limit > kRecordHeaderBytes ? limit - kRecordHeaderBytes : 1;
}

std::uint64_t Outbound::RecordBytes(std::uint32_t n, std::uint32_t maxPayload) const {
  const std::uint64_t records =
      n == 0 ? 1 : (static_cast<std::uint64_t>(n) + maxPayload - 1) / maxPayload;
  return n + records * kRecordHeaderBytes;
}

std::uint32_t Outbound::FreeBytes() const {
  const RingIndex index(a_.capacity());
  const std::uint32_t head = a_.outProducer().head.load(std::memory_order_relaxed);
  const std::uint32_t tail = a_.outConsumer().tail.load(std::memory_order_acquire);
  if (!index.Valid(head) || !index.Valid(tail)) return 0;
  const std::uint32_t used = index.Distance(tail, head);
  return used > index.capacity() ? 0 : index.capacity() - used;
}

int Outbound::GiveUp(std::uint32_t seq, bool published, int result) {
  if (published) {
    a_.outProducer().abandonedSeq.store(seq, std::memory_order_release);
    RingAlways(a_.peer());
  }
  return result;
}

int Outbound::Send(int type, const std::string& buffer, std::uint32_t to, std::string& error) {
  if (buffer.size() > kMaxQueueMessageBytes) {
    error = "message of " + std::to_string(buffer.size()) + " bytes exceeds the limit of " +
            std::to_string(kMaxQueueMessageBytes);
    return kQueueTooLarge;
  }
  ProducerBlock& producer = a_.outProducer();
  if (to != kAnyPeer) {
    // Only a change of the peer's attach word costs a system call here; a peer that died with
    // its word still set is caught on arrival instead, by its successor.
    const PeerView view = a_.ObservePeer(Liveness::kKnown);
    if (!view.alive || Generation(view.word) != to) {
      producer.refused.store(producer.refused.load(std::memory_order_relaxed) + 1,
                             std::memory_order_relaxed);
      error =
          "the process this message was for has left the queue (its departure is still to "
          "be received); message of " +
          std::to_string(buffer.size()) + " bytes discarded";
      return kQueuePeerDeparted;
    }
  }
  ConsumerBlock& consumer = a_.outConsumer();
  RingBytes ring = a_.outbound();
  const RingIndex& index = ring.index();
  const std::uint32_t capacity = index.capacity();  // of the ring
  const auto total = static_cast<std::uint32_t>(buffer.size());

  std::uint32_t seq = producer.messageSeq.load(std::memory_order_relaxed) + 1;
  if (seq == 0) seq = 1;  // 0 is what an untouched abandonedSeq holds
  producer.messageSeq.store(seq, std::memory_order_relaxed);

  std::uint32_t sent = 0;
  bool published = false;
  bool repaired = false;
  bool peerSeen = false;
  std::uint32_t peerWord = 0;
  bool waiting = false;
  std::uint32_t lastTail = 0;
  std::int64_t progressAt = 0;
  // Moves what the peer sent into local memory, up to kQueueMaxHeldBytes; a QueueResult.
  auto keepInboundMoving = [&] {
    try {
      if (!in_.PumpBounded(kQueueMaxHeldBytes)) return static_cast<int>(kQueueOk);
      error = "while waiting for room, " + std::to_string(in_.PendingBytes()) +
              " bytes the peer sent are held (the limit is " + std::to_string(kQueueMaxHeldBytes) +
              "); receive them, then send again";
      return static_cast<int>(kQueueBacklogFull);
    } catch (const std::bad_alloc&) {
      error = "out of memory keeping inbound messages while waiting to send";
      return static_cast<int>(kQueueNoMemory);
    }
  };

  const std::uint32_t maxPayload = MaxPayload(capacity);
  while (!published || sent < total) {
    const std::uint32_t remaining = total - sent;
    // Ring bytes the rest of the message takes, headers included.
    const std::uint64_t rest = RecordBytes(remaining, maxPayload);
    std::uint32_t head = producer.head.load(std::memory_order_relaxed);
    // The consumer's tail lives on a line the consumer writes for every record it takes; reading
    // it for every message would fetch that line each time. The tail last read is good enough
    // while it shows room for the whole rest of the message (the consumer only ever frees more).
    std::uint32_t tail = tailSeen_;
    if (!index.Valid(head) || !index.Valid(tail) || index.Distance(tail, head) > capacity ||
        capacity - index.Distance(tail, head) < rest) {
      tail = consumer.tail.load(std::memory_order_acquire);
      tailSeen_ = tail;
    }
    if (!index.Valid(head) && index.Valid(tail) && !repaired) {
      producer.head.store(tail, std::memory_order_release);  // our own word: take the tail's
      repaired = true;
      continue;
    }
    if (!index.Valid(head) || !index.Valid(tail) || index.Distance(tail, head) > capacity) {
      error = "outbound ring indices are inconsistent (head " + std::to_string(head) + ", tail " +
              std::to_string(tail) + ", capacity " + std::to_string(capacity) +
              "); the peer repairs them when it next receives";
      return GiveUp(seq, published, kQueueCorrupt);
    }
    std::uint32_t room = capacity - index.Distance(tail, head);
    bool write = room >= rest;
    if (!write) {
      const PeerView view = a_.ObservePeer(Liveness::kRecent);
      if (!view.alive || (peerSeen && view.word != peerWord)) {
        if (!peerSeen) {
          error = "outbound ring has " + std::to_string(room) + " free bytes, the message needs " +
                  std::to_string(rest) + ", and the peer is absent";
          return GiveUp(seq, published, kQueuePeerAbsentFull);
        }
        error = "the peer left while a message of " + std::to_string(total) +
                " bytes was being carried (" + std::to_string(sent) + " sent)";
        return GiveUp(seq, published, kQueuePeerDeparted);
      }
      if (!peerSeen) {
        peerSeen = true;
        peerWord = view.word;
      }
      // A message that goes in fragments depends on the peer taking; take what it sent us first,
      // so that its own sends never wait on ours, however quickly it reads.
      if (in_.RingHasData()) {
        const int kept = keepInboundMoving();
        if (kept != kQueueOk) return GiveUp(seq, published, kept);
      }
      // A message that fits the ring waits for room for all of it; a larger one goes on in a
      // batch of records whenever a batch is free.
      write = rest > capacity && room > kRecordHeaderBytes && room >= Batch(capacity);
    }
    if (write) {
      // As many records as the room takes; the first may be cut to the room, the others are
      // whole (or the message's end), so that no sliver of a record is written.
      RecordHeader header{};
      header.seq = seq;
      header.type = static_cast<std::uint32_t>(type);
      header.total = total;
      header.to = to;
      do {
        const std::uint32_t chunk = std::min({total - sent, maxPayload, room - kRecordHeaderBytes});
        header.marker = kRecordMarker | (published ? 0u : kRecordFirst) |
                        (sent + chunk == total ? kRecordLast : 0u);
        header.length = chunk;
        head = ring.WriteRecord(head, header, buffer.data() + sent);
        producer.head.store(head, std::memory_order_release);
        RingIfWaiting(a_.peer(), kWaitForData);  // with the fence the notifier needs
        a_.notifier().Notify(a_.peer());
        sent += chunk;
        room -= kRecordHeaderBytes + chunk;
        published = true;
      } while (sent < total && room > kRecordHeaderBytes &&
               room - kRecordHeaderBytes >= std::min(total - sent, maxPayload));
      continue;
    }

    // No room: the peer is there. Watch it take, keep our own inbound ring moving, sleep.
    const std::int64_t now = MonotonicMs();
    if (!waiting || tail != lastTail) {
      waiting = true;
      lastTail = tail;
      progressAt = now;
    } else if (now - progressAt >= kQueueStallMs) {
      error = "the peer took nothing for " + std::to_string(kQueueStallMs) + " ms; message of " +
              std::to_string(total) + " bytes given up (" + std::to_string(sent) + " sent)";
      return GiveUp(seq, published, kQueuePeerStalled);
    }
    const int kept = keepInboundMoving();
    if (kept != kQueueOk) return GiveUp(seq, published, kept);
    const auto need = static_cast<std::uint32_t>(
        std::min<std::uint64_t>(capacity, std::max<std::uint64_t>(Batch(capacity), rest)));
    a_.self().roomWanted.store(need, std::memory_order_relaxed);
    WaitOnBell(
        a_.self(), a_.peer(), spin_, kWaitForRoom | kWaitForData,
        [&] {
          return FreeBytes() >= need || in_.RingHasData() ||
                 a_.peer().attach.load(std::memory_order_acquire) != peerWord;
        },
        kSendWaitSliceMs);
  }
  return kQueueOk;
}

}  // namespace conflink::queue
