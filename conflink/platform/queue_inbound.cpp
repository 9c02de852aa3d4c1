#include <conflink/platform/queue_inbound.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <new>
#include <utility>

#include <conflink/platform/cyclic_message_queue.h>
#include <conflink/platform/queue_wait.h>

namespace conflink::queue {

constexpr std::size_t kNoLimit = SIZE_MAX;

int Inbound::Receive(int& type, std::string& buffer, std::string& why) {
  if (items_.empty()) {
    Delivery direct{&buffer};
    Pump(1, &direct);
    if (direct.filled) {
      type = direct.type;
      return kQueueOk;
    }
    if (items_.empty()) return kQueueEmpty;
  }
  InboundItem& item = items_.front();
  const int result = item.result;
  if (result != kQueueOk) {
    why.swap(item.data);
  } else {
    heldBytes_ -= item.data.size();
    type = item.type;
    if (type == kQueueEventPeerConnected) heard_ = item.generation;
    if (type == kQueueEventPeerDisconnected) heard_ = kAnyPeer;
    if (item.data.empty()) {
      buffer.clear();  // an event or an empty message: the caller's storage stays with it
    } else {
      buffer.swap(item.data);
      // The caller's old storage is worth keeping for the next message in fragments.
      if (!assembling_ && item.data.capacity() > partial_.capacity()) {
        partial_.swap(item.data);
        partial_.clear();
      }
    }
  }
  items_.pop_front();
  return result;
}

void Inbound::Pump(std::size_t want, Delivery* direct) {
  ProducerBlock& producer = a_.inProducer();
  if (!started_) {
    // A peer present when we attached is announced before anything else.
    started_ = true;
    const PeerView atAttach = a_.peerAtAttach();
    seenGeneration_ = Generation(atAttach.word);
    lastWord_ = atAttach.word;
    if (atAttach.alive) {
      Push(kQueueOk, kQueueEventPeerConnected, std::string(), seenGeneration_);
      reported_ = true;
      reportedGeneration_ = seenGeneration_;
    }
  }
  a_.RestoreOwnWord();
  while (Held(direct) < want && HeldBytes() < heldLimit_) {
    // The head is read before the peer's state: records of a newer generation are published
    // after its attach word, so none of them can be below this head unless the observation
    // below sees that generation too. While records wait, the peer's lock need not be asked
    // about: its departure is due only after them.
    const std::uint32_t tail = a_.inConsumer().tail.load(std::memory_order_relaxed);
    const std::uint32_t head = Head(tail);
    const PeerView view = a_.ObservePeer(Unread(head, tail) ? Liveness::kKnown : Liveness::kRecent);
    lastWord_ = view.word;
    const std::uint32_t generation = Generation(view.word);

    if (reported_ && (!view.alive || generation != reportedGeneration_)) {
      // The process we reported has gone: deliver all it sent, then its departure. When another
      // took its place meanwhile, the newcomer's records start at its epoch.
      Drain(generation != reportedGeneration_ ? producer.epochStart.load(std::memory_order_acquire)
                                              : producer.head.load(std::memory_order_acquire),
            kNoLimit, nullptr);
      DropPartial();
      Push(kQueueOk, kQueueEventPeerDisconnected, std::string());
      reported_ = false;
      seenGeneration_ = reportedGeneration_;
      if (!view.alive) a_.WakeLine();  // a peer that died could not tell the line itself
      continue;
    }
    if (!reported_ && generation != seenGeneration_) {
      // Someone took the peer's place since we last looked; it may already have left again
      // (then the next round reports its departure after its messages). When more than one
      // did, the earlier ones are reported as one arrival and departure around what they sent.
      const std::uint32_t epoch = producer.epochStart.load(std::memory_order_acquire);
      if (generation - seenGeneration_ > 1) {
        Push(kQueueOk, kQueueEventPeerConnected, std::string(), generation - 1);
        Drain(epoch, kNoLimit, nullptr);
        DropPartial();
        Push(kQueueOk, kQueueEventPeerDisconnected, std::string());
      } else {
        Drain(epoch, kNoLimit, nullptr);  // left by earlier holders of the place, never reported
      }
      Push(kQueueOk, kQueueEventPeerConnected, std::string(), generation);
      reported_ = true;
      reportedGeneration_ = generation;
      seenGeneration_ = generation;
      continue;
    }
    const std::size_t before = Held(direct);
    Drain(head, want - before, direct, true);
    // The head may be one read earlier: records taken up to it that gave nothing (a fragment, a
    // stray) do not mean that nothing more was published.
    if (Held(direct) == before && !RingHasData()) break;
  }
}

std::uint32_t Inbound::Head(std::uint32_t tail) {
  const RingIndex index(a_.capacity());
  if (headKnown_ && headSeen_ != tail && index.Valid(headSeen_) && index.Valid(tail) &&
      index.Distance(tail, headSeen_) <= index.capacity())
    return headSeen_;
  headSeen_ = a_.inProducer().head.load(std::memory_order_acquire);
  headKnown_ = true;
  return headSeen_;
}

bool Inbound::PumpBounded(std::size_t maxHeldBytes) {
  heldLimit_ = maxHeldBytes;
  try {
    Pump(SIZE_MAX, nullptr);
  } catch (...) {
    heldLimit_ = SIZE_MAX;
    throw;
  }
  heldLimit_ = SIZE_MAX;
  return HeldBytes() >= maxHeldBytes && RingHasData();
}

bool Inbound::Drain(std::uint32_t limit, std::size_t want, Delivery* direct, bool bounded) {
  RingBytes ring = a_.inbound();
  const RingIndex& index = ring.index();
  ConsumerBlock& consumer = a_.inConsumer();
  ProducerBlock& producer = a_.inProducer();
  const std::size_t base = Held(direct);
  bool readable = true;
  while (Held(direct) - base < want && !(bounded && HeldBytes() >= heldLimit_)) {
    const std::uint32_t tail = consumer.tail.load(std::memory_order_relaxed);
    const std::uint32_t head = Head(tail);
    if (stuck_ && head == stuckHead_ && tail == stuckTail_) return false;
    stuck_ = false;
    if (!index.Valid(head) || !index.Valid(tail) || index.Distance(tail, head) > index.capacity()) {
      DropPartial();
      Fail(kQueueCorrupt, "inbound ring indices are inconsistent (head " + std::to_string(head) +
                              ", tail " + std::to_string(tail) + ", capacity " +
                              std::to_string(index.capacity()) + "); queued bytes dropped");
      if (index.Valid(head)) {
        Consumed(head);  // start again from what the producer publishes next
      } else {
        // Only the producer can repair its head: on its next send it takes our tail, which must
        // be one it can take. Until the head changes, this state is not reported again.
        const std::uint32_t repaired = index.Valid(tail) ? tail : 0;
        if (repaired != tail) Consumed(repaired);
        stuck_ = true;
        stuckHead_ = head;
        stuckTail_ = repaired;
      }
      return false;
    }
    std::uint32_t stop = head;
    if (index.Valid(limit) && index.Distance(tail, limit) <= index.Distance(tail, head)) {
      stop = limit;
    }
    if (tail == stop) break;
    std::uint32_t next = stop;
    if (!TakeRecord(tail, index.Distance(tail, stop), next, direct)) readable = false;
    Consumed(next);
  }
  // A message its producer gave up on: drop what we have of it; the rest of its fragments, if
  // any are still in the ring, are skipped as they come.
  if (assembling_ && producer.abandonedSeq.load(std::memory_order_acquire) == partialSeq_) {
    DropPartial();
  }
  return readable;
}

// Handles the record at `tail`; sets `next` to the index after it. Returns false when the record
// cannot be framed: then `next` is left at the end of the readable bytes, which are dropped.
bool Inbound::TakeRecord(std::uint32_t tail, std::uint32_t available, std::uint32_t& next,
                         Delivery* direct) {
  RingBytes ring = a_.inbound();
  const RingIndex& index = ring.index();
  RecordHeader header{};
  const RecordFault fault = ring.ReadHeader(tail, available, header);
  if (fault != RecordFault::kNone && fault != RecordFault::kBadTotal) {
    DropPartial();
    Fail(kQueueCorrupt, std::string("inbound record unreadable: ") + RecordFaultText(fault) +
                            "; queued bytes dropped");
    return false;
  }
  next = index.Advance(tail, kRecordHeaderBytes + header.length);
  if (fault == RecordFault::kBadTotal) {
    DropPartial();
    Fail(kQueueCorrupt, "inbound record claims " + std::to_string(header.total) +
                            " message bytes with a fragment of " + std::to_string(header.length) +
                            "; message dropped");
    return true;
  }
  const std::uint32_t body = index.Advance(tail, kRecordHeaderBytes);
  const bool first = (header.marker & kRecordFirst) != 0;
  const bool last = (header.marker & kRecordLast) != 0;
  try {
    if (first) {
      // A new message while one is unfinished: the unfinished one was abandoned by a producer
      // that died or gave up.
      DropPartial();
      // The types of queue events are ours alone: a record claiming one would make the peer's
      // bytes pass for an arrival or a departure. Its other fragments are skipped as strays.
      if (static_cast<int>(header.type) == kQueueEventPeerConnected ||
          static_cast<int>(header.type) == kQueueEventPeerDisconnected) {
        char type[16];
        std::snprintf(type, sizeof type, "0x%08x", static_cast<unsigned>(header.type));
        Fail(kQueueCorrupt, std::string("inbound message typed ") + type +
                                ", a type reserved for queue events; message dropped");
        return true;
      }
      // A message for an earlier holder of our place (its sender had not yet heard that it left)
      // is that process's alone: dropped, and counted where the inspector sees it. Its other
      // fragments are skipped as strays.
      if (header.to != kAnyPeer && header.to != a_.generation()) {
        ++discarded_;
        Word& counter = a_.inConsumer().discarded;
        counter.store(counter.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
        return true;
      }
      if (last) {
        if (header.length != header.total) {
          Fail(kQueueCorrupt, "inbound message of " + std::to_string(header.total) +
                                  " bytes carries " + std::to_string(header.length) +
                                  "; message dropped");
          return true;
        }
        if (Direct(direct)) {
          ring.AssignTo(body, header.length, *direct->buffer);
          direct->type = static_cast<int>(header.type);
          direct->filled = true;
        } else {
          std::string data;
          ring.AppendTo(body, header.length, data);
          Push(kQueueOk, static_cast<int>(header.type), std::move(data));
        }
        return true;
      }
      assembling_ = true;
      partialSeq_ = header.seq;
      partialType_ = header.type;
      partialTotal_ = header.total;
      GrowPartial(header.length);
      ring.AppendTo(body, header.length, partial_);
      return true;
    }
    // The rest of a message that was given up, or begun before an earlier reader of this ring
    // went away: nothing to join it to.
    if (!assembling_ || header.seq != partialSeq_) return true;
    const std::uint32_t have = static_cast<std::uint32_t>(partial_.size());
    if (header.type != partialType_ || header.total != partialTotal_ ||
        header.length > partialTotal_ - have || (last && have + header.length != partialTotal_)) {
      DropPartial();
      Fail(kQueueCorrupt, "inbound fragment does not continue its message (" +
                              std::to_string(have) + " of " + std::to_string(partialTotal_) +
                              " bytes, fragment of " + std::to_string(header.length) +
                              "); message dropped");
      return true;
    }
    GrowPartial(header.length);
    ring.AppendTo(body, header.length, partial_);
    if (last) {
      if (Direct(direct)) {
        direct->buffer->swap(partial_);  // the caller's old storage takes the next message
        direct->type = static_cast<int>(partialType_);
        direct->filled = true;
      } else {
        Push(kQueueOk, static_cast<int>(partialType_), std::move(partial_));
      }
      assembling_ = false;
      partial_.clear();
    }
  } catch (const std::bad_alloc&) {
    DropPartial();
    Fail(kQueueNoMemory, "out of memory receiving a message of " + std::to_string(header.total) +
                             " bytes; message dropped");
  }
  return true;
}

void Inbound::Consumed(std::uint32_t next) {
  a_.inConsumer().tail.store(next, std::memory_order_release);
  RingIfRoom(a_.peer(), [&] {
    const RingIndex index(a_.capacity());
    const std::uint32_t head = a_.inProducer().head.load(std::memory_order_acquire);
    // Indices we cannot read: ring, and let the producer see for itself.
    if (!index.Valid(head) || index.Distance(next, head) > index.capacity()) return UINT32_MAX;
    return index.capacity() - index.Distance(next, head);
  });
}

void Inbound::Push(int result, int type, std::string data, std::uint32_t generation) {
  const std::size_t size = data.size();
  items_.push_back(InboundItem{result, type, std::move(data), generation});
  if (result == kQueueOk) heldBytes_ += size;
}

// Records a failure at its place among the messages. Allocation may fail here too; the failure
// is then reported by the caller's result alone.
void Inbound::Fail(int result, const std::string& why) {
  try {
    Push(result, 0, why);
  } catch (...) {
  }
}

// Makes room for `more` bytes of the message being reassembled, doubling the storage so that a
// large message is copied few times, but never beyond the message's size. Storage grows only
// when the bytes that arrived need it, so it stays below twice what arrived: what a header
// merely claims allocates nothing.
void Inbound::GrowPartial(std::uint32_t more) {
  const std::size_t need = partial_.size() + more;
  if (need <= partial_.capacity()) return;
  partial_.reserve(std::min<std::size_t>(partialTotal_, std::max(need, 2 * partial_.capacity())));
}

// Forgets the message being reassembled; its storage stays for the next one.
void Inbound::DropPartial() {
  assembling_ = false;
  partial_.clear();
}

bool Inbound::RingHasData() const {
  const std::uint32_t head = a_.inProducer().head.load(std::memory_order_acquire);
  const std::uint32_t tail = a_.inConsumer().tail.load(std::memory_order_relaxed);
  return Unread(head, tail);
}

bool Inbound::PeerWordChanged() const {
  return a_.peer().attach.load(std::memory_order_acquire) != lastWord_;
}

std::uint32_t Inbound::PendingBytes() const {
  const RingIndex index(a_.capacity());
  const std::uint32_t head = a_.inProducer().head.load(std::memory_order_acquire);
  const std::uint32_t tail = a_.inConsumer().tail.load(std::memory_order_relaxed);
  std::uint64_t pending = heldBytes_ + partial_.size();
  if (index.Valid(head) && index.Valid(tail) && index.Distance(tail, head) <= index.capacity()) {
    pending += index.Distance(tail, head);
  }
  return pending > UINT32_MAX ? UINT32_MAX : static_cast<std::uint32_t>(pending);
}

}  // namespace conflink::queue
