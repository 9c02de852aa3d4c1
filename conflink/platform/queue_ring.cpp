#include <conflink/platform/queue_ring.h>

#include <algorithm>
#include <cstring>

#include <conflink/platform/cyclic_message_queue.h>

namespace conflink::queue {

const char* RecordFaultText(RecordFault fault) {
  switch (fault) {
    case RecordFault::kNone:
      return "no fault";
    case RecordFault::kTruncated:
      return "fewer bytes published than a record header";
    case RecordFault::kBadMarker:
      return "record header has no valid marker";
    case RecordFault::kLengthPastHead:
      return "record length runs past the published bytes";
    case RecordFault::kBadTotal:
      return "record claims a message size over the limit or below its own length";
  }
  return "unknown record fault";
}

void RingBytes::CopyIn(std::uint32_t at, const void* src, std::uint32_t n) {
  const std::uint32_t offset = index_.Offset(at);
  const std::uint32_t first = std::min(n, index_.capacity() - offset);
  const auto* from = static_cast<const unsigned char*>(src);
  std::memcpy(data_ + offset, from, first);
  if (n > first) std::memcpy(data_, from + first, n - first);
}

void RingBytes::CopyOut(std::uint32_t at, void* dst, std::uint32_t n) const {
  const std::uint32_t offset = index_.Offset(at);
  const std::uint32_t first = std::min(n, index_.capacity() - offset);
  auto* to = static_cast<unsigned char*>(dst);
  std::memcpy(to, data_ + offset, first);
  if (n > first) std::memcpy(to + first, data_, n - first);
}

void RingBytes::AppendTo(std::uint32_t at, std::uint32_t n, std::string& dst) const {
  const std::uint32_t offset = index_.Offset(at);
  const std::uint32_t first = std::min(n, index_.capacity() - offset);
  dst.append(reinterpret_cast<const char*>(data_ + offset), first);
  if (n > first) dst.append(reinterpret_cast<const char*>(data_), n - first);
}

void RingBytes::AssignTo(std::uint32_t at, std::uint32_t n, std::string& dst) const {
  if (dst.capacity() < n) dst.reserve(n);  // the only step that can fail; dst is untouched then
  dst.clear();
  AppendTo(at, n, dst);
}

std::uint32_t RingBytes::WriteRecord(std::uint32_t at, const RecordHeader& header,
                                     const char* payload) {
  CopyIn(at, &header, kRecordHeaderBytes);
  const std::uint32_t body = index_.Advance(at, kRecordHeaderBytes);
  if (header.length != 0) CopyIn(body, payload, header.length);
  return index_.Advance(body, header.length);
}

RecordFault RingBytes::ReadHeader(std::uint32_t at, std::uint32_t available,
                                  RecordHeader& out) const {
  if (available < kRecordHeaderBytes) return RecordFault::kTruncated;
  CopyOut(at, &out, kRecordHeaderBytes);
  if ((out.marker & ~kRecordFlagMask) != kRecordMarker) return RecordFault::kBadMarker;
  if (out.length > available - kRecordHeaderBytes) return RecordFault::kLengthPastHead;
  if (out.total > kMaxQueueMessageBytes || out.length > out.total) return RecordFault::kBadTotal;
  return RecordFault::kNone;
}

}  // namespace conflink::queue
