// The layout of a queue's shared-memory object, and the index arithmetic of its two rings.
//
// The object holds a header, one control line per party, one producer line and one consumer line
// per ring, then the two rings of `capacity` bytes each. Ring r carries the messages of the party
// in place r to the party in place 1 - r. Every word that both parties touch is a 32-bit atomic:
// on the 32-bit target wider atomics are not lock-free, and a process-local fallback lock cannot
// order two processes. No lock of any kind lives in the object, so a crash never leaves one held.
//
// Ring indices run over [0, 2 * capacity): a free-running counter folded at twice the capacity,
// so that an empty ring (head == tail) and a full one (distance == capacity) differ for any
// capacity, power of two or not.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace conflink::queue {

using Word = std::atomic<std::uint32_t>;
static_assert(Word::is_always_lock_free, "shared words must be lock-free to work across processes");
static_assert(sizeof(Word) == 4, "shared words are plain 32-bit words");

constexpr std::uint32_t kLayoutMagic = 0x434c5131u;  // "CLQ1"
constexpr std::uint32_t kLayoutVersion = 3;
constexpr std::size_t kCacheLine = 64;

// The fixed part of the object, written once by whoever initialises it. `magic` is stored last,
// so a half-initialised object (its creator died) is recognisable and gets initialised again.
struct alignas(kCacheLine) SegmentHeader {
  Word magic;
  Word version;
  Word capacity;      // bytes of each ring (RingBytesFor of the capacity the parties asked for)
  Word segmentBytes;  // size of the whole object
  // The line of processes waiting for a place (see Attachment::Open with a wait). Each takes a
  // ticket from `lineNext` and holds the lock byte of its ticket (queue_locks.h) while it waits;
  // it may take a free place only when no ticket from `lineFirst` up to its own is still held,
  // so the line is served in the order it formed and a waiter that died or gave up is passed
  // over. Waiters sleep on `placeFreed`, which a leaving party bumps and wakes them all on.
  // Written only under the bookkeeping lock (placeFreed aside).
  Word placeFreed;
  Word lineNext;
  Word lineFirst;
};

// One per place. `attach` is (generation << 1) | attached: the generation counts the processes
// that took the place, so the peer can tell a restarted party from the one it knew. The party
// sleeps on `bell` after setting `waiting`; whoever changes something the party may wait for
// bumps `bell` and wakes it, but only when `waiting` says it sleeps. `cpu` is one more than the
// processor the party last ran on when a wait began or ended (0: not known), so that the peer
// does not spin for an answer that needs the very processor it spins on, but hands it over.
// `roomWanted` is the free space
// of its outbound ring that a party waiting for room waits for: the consumer rings it only once
// that much is free, not for every record it takes.
struct alignas(kCacheLine) PartyBlock {
  Word attach;
  Word bell;
  Word waiting;
  Word cpu;
  Word roomWanted;
  // Non-zero while the party watches a readiness descriptor (see queue_readiness.h): whoever
  // rings its bell then also sends a datagram to the party's readiness socket, so that poll and
  // epoll see what the futex sleeper would have seen.
  Word watching;
};

// Written only by the producer of the ring (the party in the ring's place).
struct alignas(kCacheLine) ProducerBlock {
  Word head;          // index where the next record goes; published after the record is whole
  Word messageSeq;    // number of the message most recently started
  Word abandonedSeq;  // number of the message most recently given up part way
  Word epochStart;    // head at the moment the current producer attached
  Word refused;       // messages not sent because the process they were for had left
};

// Written only by the consumer of the ring. On a line of its own, away from the head.
struct alignas(kCacheLine) ConsumerBlock {
  Word tail;
  Word discarded;  // messages dropped on arrival: they were for an earlier holder of the place
};

struct Segment {
  SegmentHeader header;
  PartyBlock party[2];
  ProducerBlock producer[2];
  ConsumerBlock consumer[2];
};

// The bytes of each ring for the capacity a party asks for. The capacity is the largest record
// (header and payload) a message travels in; the ring holds kRingRecords of those, so that a
// large message needs few hand-offs between the parties (each may wait for a processor on a busy
// machine) and a stream of small ones rarely finds the ring full. The messengers' 32 KiB make
// 512 KiB rings, 1 MiB of shared memory per queue. (Larger rings move big messages faster on a
// busy machine still, but the memory is taken whole when the object is made, and on the target
// it is scarce.) The ring never exceeds kMaxRingBytes (its indices must fold within 32 bits),
// nor falls below the capacity. An out-of-range capacity is
// passed through unchanged, for the caller's range check to refuse.
constexpr std::uint32_t kRingRecords = 16;
constexpr std::uint32_t kMaxRingBytes = 256u * 1024u * 1024u;
constexpr std::uint32_t RingBytesFor(std::uint32_t capacity) {
  if (capacity == 0 || capacity > kMaxRingBytes) return capacity;
  return capacity > kMaxRingBytes / kRingRecords ? kMaxRingBytes : capacity * kRingRecords;
}

// Offset of ring `r`'s bytes from the start of the object.
inline std::size_t RingOffset(std::uint32_t capacity, int r) {
  return sizeof(Segment) + static_cast<std::size_t>(capacity) * static_cast<std::size_t>(r);
}
inline std::size_t SegmentBytes(std::uint32_t capacity) {
  return RingOffset(capacity, 2);
}

// Index arithmetic over [0, 2 * capacity). Callers validate indices read from shared memory with
// Valid() before passing them to the other functions.
class RingIndex {
 public:
  explicit RingIndex(std::uint32_t capacity) : capacity_(capacity), span_(2 * capacity) {}
  std::uint32_t capacity() const { return capacity_; }
  bool Valid(std::uint32_t i) const { return i < span_; }
  // Bytes from `from` forward to `to`.
  std::uint32_t Distance(std::uint32_t from, std::uint32_t to) const {
    return to >= from ? to - from : to + span_ - from;
  }
  // `i` moved forward by `n` bytes, n <= capacity.
  std::uint32_t Advance(std::uint32_t i, std::uint32_t n) const {
    const std::uint32_t r = i + n;
    return r >= span_ ? r - span_ : r;
  }
  // Byte offset of index `i` within the ring.
  std::uint32_t Offset(std::uint32_t i) const { return i >= capacity_ ? i - capacity_ : i; }

 private:
  std::uint32_t capacity_;
  std::uint32_t span_;
};

// The generation part of an attach word, and whether it says attached.
inline std::uint32_t Generation(std::uint32_t attachWord) {
  return attachWord >> 1;
}
inline bool Attached(std::uint32_t attachWord) {
  return (attachWord & 1u) != 0;
}

}  // namespace conflink::queue
