// The input of the queue-object target: a ring size, then a sequence of steps. A step either
// writes into the queue's shared object (a control word chosen from the layout, a word of a
// record header in a ring, a whole record as a producer would write it, or raw bytes anywhere)
// or calls one party's queue (send, receive in its non-waiting forms, the counters, leave, join).
// The target decodes it with InputReader; the seed program writes it with InputWriter, so both
// read the same format from this one file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>

namespace conflink::fuzz::queue_input {

// Capacities (the largest record; each ring holds sixteen) an input picks from with its first
// byte. The last is chosen at run time so that the whole object fills one page and an access past
// its end meets a guard page.
constexpr std::uint32_t kFixedCapacities[] = {64, 100, 256};
constexpr int kCapacityChoices = 4;

enum Op : std::uint8_t {
  kWriteWord,           // field, value
  kPokeRecord,          // ring and place, header word, value
  kInjectRecord,        // ring, flags, message number, type, total, length, publish
  kRawBytes,            // offset (16 bits), count, bytes
  kSend,                // place, type, size, whether the peer takes while the sender waits
  kPeek,                // place
  kReceiveFor,          // place, timeout choice
  kInterruptedReceive,  // place, whether a poll comes between the interrupt and the receive
  kCounters,            // place
  kLeave,               // place
  kJoin,                // -
  kOpCount
};

// The 32-bit words of the layout a kWriteWord step can choose (queue_layout.h's Segment).
enum Field : std::uint8_t {
  kMagic,
  kVersion,
  kCapacity,
  kSegmentBytes,
  kAttach0,
  kBell0,
  kWaiting0,
  kCpu0,
  kAttach1,
  kBell1,
  kWaiting1,
  kCpu1,
  kHead0,
  kMessageSeq0,
  kAbandonedSeq0,
  kEpochStart0,
  kHead1,
  kMessageSeq1,
  kAbandonedSeq1,
  kEpochStart1,
  kTail0,
  kTail1,
  kFieldCount
};

// How a value is given: a raw word; the current value nudged by a signed byte; a constant of the
// ring's geometry and record format (kConstants below); or the ring's other index (a head's
// tail, a tail's head) moved by a signed 16-bit distance.
enum ValueMode : std::uint8_t { kRaw, kNudge, kConstant, kNearOtherIndex, kModeCount };

// The constants kConstant picks from; the ones that depend on the ring are worked out by the
// target (see Constant in queue_object_fuzz.cpp).
enum Constant : std::uint8_t {
  kZero,
  kOne,
  kCapacityLess1,
  kCapacityValue,
  kCapacityPlus1,
  kSpanLess1,  // the last valid index
  kSpan,       // the first invalid one
  kHeaderBytes,
  kMaxMessage,
  kMaxMessagePlus1,
  kMarkerNone,
  kMarkerFirst,
  kMarkerLast,
  kMarkerWhole,
  kEventConnected,
  kEventDisconnected,
  kTopBit,
  kAllOnes,
  kConstantCount
};

// Where a kPokeRecord step writes: the record the consumer reads next, the one written last into
// that ring (by a send or an injection), or where the producer writes next.
enum RecordPlace : std::uint8_t { kAtTail, kAtLastWritten, kAtHead, kRecordPlaceCount };

// The flags of a record header, as a kInjectRecord step gives them (queue_ring.h's kRecordFirst
// and kRecordLast).
constexpr std::uint8_t kRecordFirstFlag = 1;
constexpr std::uint8_t kRecordLastFlag = 2;

// Timeouts a kReceiveFor step picks from (milliseconds; the target's clock is simulated, so a
// timeout costs no real time).
constexpr int kTimeouts[] = {0, 1, 250};

// Reads the input front to back; past its end every read gives 0.
class InputReader {
 public:
  InputReader(const std::uint8_t* data, std::size_t size) : data_(data), left_(size) {}
  bool empty() const { return left_ == 0; }
  std::uint8_t u8() {
    if (left_ == 0) return 0;
    --left_;
    return *data_++;
  }
  std::uint16_t u16() { return static_cast<std::uint16_t>(u8() << 8 | u8()); }
  std::uint32_t u32() { return static_cast<std::uint32_t>(u16()) << 16 | u16(); }
  // Copies up to `n` bytes out (fewer when the input ends), returning how many.
  std::size_t bytes(void* out, std::size_t n) {
    const std::size_t take = n < left_ ? n : left_;
    for (std::size_t i = 0; i < take; ++i) static_cast<std::uint8_t*>(out)[i] = data_[i];
    data_ += take;
    left_ -= take;
    return take;
  }

 private:
  const std::uint8_t* data_;
  std::size_t left_;
};

// Size encodings of a kSend step: a byte; the ring's single-record limit (capacity less a
// header) moved by a signed byte; whole rings (1 to 4) moved by a signed byte; a 16-bit number.
enum SizeMode : std::uint8_t {
  kSizeByte,
  kSizeNearRecordLimit,
  kSizeNearRings,
  kSize16,
  kSizeModeCount
};
// Type encodings of a kSend step: a byte; a raw word; one of the two queue events' types.
enum TypeMode : std::uint8_t { kTypeByte, kTypeRaw, kTypeEvent, kTypeModeCount };

// Writes inputs step by step, for the seeds.
class InputWriter {
 public:
  explicit InputWriter(std::uint8_t capacityChoice) { u8(capacityChoice); }
  const std::string& bytes() const { return out_; }

  InputWriter& SendNearRecordLimit(int place, std::int8_t delta, bool peerTakes) {
    return SendStep(place, kSizeNearRecordLimit, {static_cast<std::uint8_t>(delta)}, peerTakes);
  }
  InputWriter& SendRings(int place, int rings, std::int8_t delta, bool peerTakes) {
    return SendStep(place, kSizeNearRings,
                    {static_cast<std::uint8_t>(rings - 1), static_cast<std::uint8_t>(delta)},
                    peerTakes);
  }
  InputWriter& SendSmall(int place, std::uint8_t size, bool peerTakes = false) {
    return SendStep(place, kSizeByte, {size}, peerTakes);
  }
  InputWriter& Peek(int place) { return Step(kPeek, {Place(place)}); }
  InputWriter& ReceiveFor(int place, int timeoutChoice) {
    return Step(kReceiveFor, {Place(place), static_cast<std::uint8_t>(timeoutChoice)});
  }
  InputWriter& InterruptedReceive(int place, bool pollBetween) {
    return Step(kInterruptedReceive, {Place(place), static_cast<std::uint8_t>(pollBetween)});
  }
  InputWriter& Counters(int place) { return Step(kCounters, {Place(place)}); }
  InputWriter& Leave(int place) { return Step(kLeave, {Place(place)}); }
  InputWriter& Join() { return Step(kJoin, {}); }
  // A record written into ring `ring` at its head as its producer would, and published.
  InputWriter& Inject(int ring, std::uint8_t flags, std::uint8_t seqChoice, std::uint8_t type,
                      std::uint16_t total, std::uint16_t length) {
    Step(kInjectRecord, {static_cast<std::uint8_t>(ring), flags, seqChoice, type});
    u16(total);
    u16(length);
    return u8(1);
  }
  InputWriter& WriteConstant(Field field, Constant value) {
    return Step(kWriteWord, {field, kConstant, value});
  }

 private:
  static std::uint8_t Place(int place) { return static_cast<std::uint8_t>(place); }
  InputWriter& SendStep(int place, SizeMode mode, std::initializer_list<std::uint8_t> size,
                        bool peerTakes) {
    Step(kSend, {Place(place), kTypeByte, static_cast<std::uint8_t>(7 + sends_++), mode});
    for (std::uint8_t b : size) u8(b);
    return u8(peerTakes ? 1 : 0);
  }
  InputWriter& Step(Op op, std::initializer_list<std::uint8_t> operands) {
    u8(op);
    for (std::uint8_t b : operands) u8(b);
    return *this;
  }
  InputWriter& u8(std::uint8_t b) {
    out_.push_back(static_cast<char>(b));
    return *this;
  }
  void u16(std::uint16_t v) {
    u8(static_cast<std::uint8_t>(v >> 8));
    u8(static_cast<std::uint8_t>(v));
  }

  std::string out_;
  int sends_ = 0;
};

}  // namespace conflink::fuzz::queue_input
