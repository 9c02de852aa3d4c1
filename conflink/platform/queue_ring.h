// The bytes of one ring and the records that travel in it.
//
// A message travels as one or more records. Each record is a 24-byte header followed by its
// payload, laid end to end in the ring and wrapping at its end; a record becomes visible to the
// consumer only when the producer publishes the head past all of it. A message longer than the
// free space travels in several records (fragments) carrying the same message number: the first
// has kRecordFirst, the last kRecordLast, a message that fits has both.
//
// Both parties run on one machine, so header words are in the machine's own byte order.
#pragma once

#include <cstdint>
#include <string>

#include <conflink/platform/queue_layout.h>

namespace conflink::queue {

constexpr std::uint32_t kRecordMarker = 0xc0f1a000u;  // upper bits of every record's first word
constexpr std::uint32_t kRecordFirst = 1u;
constexpr std::uint32_t kRecordLast = 2u;
constexpr std::uint32_t kRecordFlagMask = 3u;

struct RecordHeader {
  std::uint32_t marker;  // kRecordMarker | flags
  std::uint32_t seq;     // message number, the same in every fragment of one message
  std::uint32_t type;    // the message type, as sent
  std::uint32_t total;   // bytes of the whole message
  std::uint32_t length;  // payload bytes of this record
  // The generation of the process in the consumer's place that the message is for: the peer its
  // sender last heard of (see PartyBlock::attach). kAnyPeer when the sender knew of no peer: the
  // message is then for whoever takes it. A consumer of another generation drops the message
  // (see Inbound), so an answer never reaches the successor of the process it answers.
  std::uint32_t to = 0;
};
constexpr std::uint32_t kRecordHeaderBytes = 24;
constexpr std::uint32_t kAnyPeer = 0;
static_assert(sizeof(RecordHeader) == kRecordHeaderBytes, "record header has no padding");

// Why a record read from the ring cannot be used.
enum class RecordFault {
  kNone,
  kTruncated,       // fewer bytes published than a header
  kBadMarker,       // the first word is not a record marker
  kLengthPastHead,  // the payload runs past the published bytes
  kBadTotal,        // the message size is over the limit, or smaller than its first fragment
};
const char* RecordFaultText(RecordFault fault);

// A view of one ring's bytes in the mapped object.
class RingBytes {
 public:
  RingBytes(unsigned char* data, std::uint32_t capacity) : data_(data), index_(capacity) {}
  const RingIndex& index() const { return index_; }

  // Copies `n` bytes (n <= capacity) to or from the ring starting at index `at`, wrapping.
  void CopyIn(std::uint32_t at, const void* src, std::uint32_t n);
  void CopyOut(std::uint32_t at, void* dst, std::uint32_t n) const;
  void AppendTo(std::uint32_t at, std::uint32_t n, std::string& dst) const;
  // Replaces `dst`'s content with the `n` bytes at `at`, in the storage `dst` already has when
  // it is large enough. When memory runs out (std::bad_alloc), `dst` is left as it was.
  void AssignTo(std::uint32_t at, std::uint32_t n, std::string& dst) const;

  // Writes a record (header and payload) at `at` and returns the index just past it. The caller
  // has checked that header and payload fit in the free space.
  std::uint32_t WriteRecord(std::uint32_t at, const RecordHeader& header, const char* payload);

  // Reads and checks the header at `at`, where `available` bytes are published. The header is
  // copied out of shared memory before it is checked, so a peer rewriting it meanwhile cannot
  // change what was checked.
  RecordFault ReadHeader(std::uint32_t at, std::uint32_t available, RecordHeader& out) const;

 private:
  unsigned char* data_;
  RingIndex index_;
};

}  // namespace conflink::queue
