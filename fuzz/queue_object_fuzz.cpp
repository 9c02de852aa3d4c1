// The queue reading a shared object that the input writes into. Two parties of one queue are
// opened in this process; the input (queue_object_input.h) then writes control words, ring
// indices, record headers, whole records and raw bytes into the object, and calls the parties:
// sends, receives that do not wait, the counters, leaving and joining. Time is simulated
// (queue_fuzz_platform.h): a party that would sleep moves the clock on instead, and a sender that
// waits for room may let its peer take meanwhile, so every step ends at once and every run of an
// input takes the same path.
//
// What must hold besides no crash, leak, undefined behaviour, hang or access outside the object
// (which meets a guard page): every result is one the header documents for the call, and a
// failed or empty receive leaves type and buffer as they were; the peer's arrival and departure
// alternate; no allocation exceeds four times what the queue took from its rings (or the largest
// message sent); and after the damage stops, a receiver comes to the end of its ring and, once
// each party has received twice, the second message sent each way arrives intact. While the input
// has written nothing into the object, the queue must also behave exactly: sends succeed or fail as
// free room and the peer's presence say, and each receiver gets what was sent to its place, whole,
// in order, once.
#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <memory>
#include <string>

#include <conflink/platform/cyclic_message_queue.h>
#include <conflink/platform/queue_layout.h>
#include <conflink/platform/queue_ring.h>
#include "fuzz/fuzz_support.h"
#include "fuzz/queue_fuzz_platform.h"
#include "fuzz/queue_object_input.h"

namespace {

namespace qi = conflink::fuzz::queue_input;
namespace qp = conflink::fuzz::queue_platform;
namespace q = conflink::queue;
using namespace conflink;  // the queue's result codes

static_assert(qi::kRecordFirstFlag == q::kRecordFirst && qi::kRecordLastFlag == q::kRecordLast,
              "the input's record flags are the ring's");

constexpr int kQueueNumber = 1;
constexpr int kMaxOpens = 6;       // queue objects an input may construct, refused ones included
constexpr int kDrainLimit = 4096;  // receives within which a ring must come to its end
constexpr int kProbeType = 0x51756575;
constexpr std::size_t kAllocationSlack = 1024;  // error texts, the held items' bookkeeping

// Each process fuzzes under a key of its own, so that parallel workers never meet.
const std::string& Key() {
  static const std::string key = "conflink-queue-fuzz-" + std::to_string(getpid());
  return key;
}
const std::string& ObjectName() {
  static const std::string name = QueueObjectName(kQueueNumber, Key().c_str());
  return name;
}

// Objects of earlier runs of this target that crashed, found by the process number in their
// key: removed once, when a run starts.
void RemoveLeftovers() {
  const std::string prefix = "conflink." + std::to_string(geteuid()) + ".conflink-queue-fuzz-";
  DIR* dir = opendir("/dev/shm");
  if (dir == nullptr) return;
  while (const dirent* entry = readdir(dir)) {
    const std::string name = entry->d_name;
    if (name.compare(0, prefix.size(), prefix) != 0) continue;
    const long pid = std::strtol(name.c_str() + prefix.size(), nullptr, 10);
    if (pid > 0 && kill(static_cast<pid_t>(pid), 0) != 0 && errno == ESRCH)
      shm_unlink(("/" + name).c_str());
  }
  closedir(dir);
}

bool IsEvent(int type) {
  return type == kQueueEventPeerConnected || type == kQueueEventPeerDisconnected;
}

std::string Pattern(std::size_t size, std::uint32_t seed) {
  std::string s(size, '\0');
  std::uint32_t x = seed * 2654435761u + 1;
  for (char& c : s) {
    x = x * 1664525u + 1013904223u;
    c = static_cast<char>(x >> 24);
  }
  return s;
}

struct Message {
  int type;
  std::string data;
  std::uint32_t to = 0;  // the generation it was addressed to; 0: whoever holds the place
};

enum class Poll { kPeek, kReceiveFor };

class Run {
 public:
  // `asked` is the capacity the parties ask for: the largest record; the rings are larger.
  explicit Run(std::uint32_t asked)
      : asked_(asked), capacity_(q::RingBytesFor(asked)), index_(q::RingBytesFor(asked)) {
    shm_unlink(ObjectName().c_str());
    Join();
    Join();
    if (!party_[0] || !party_[1]) Fail("two parties open a fresh queue", "");
  }
  ~Run() {
    for (auto& p : party_) p.reset();
    Unmap();
    shm_unlink(ObjectName().c_str());
    qp::SetSleepHook(nullptr, nullptr);
  }
  Run(const Run&) = delete;
  Run& operator=(const Run&) = delete;

  void Step(qi::InputReader& in) {
    switch (in.u8() % qi::kOpCount) {
      case qi::kWriteWord:
        return WriteWord(in);
      case qi::kPokeRecord:
        return PokeRecord(in);
      case qi::kInjectRecord:
        return InjectRecord(in);
      case qi::kRawBytes:
        return RawBytes(in);
      case qi::kSend:
        return SendStep(in);
      case qi::kPeek:
        return ReceiveStep(in.u8() & 1, Poll::kPeek, 0);
      case qi::kReceiveFor: {
        const int place = in.u8() & 1;
        return ReceiveStep(place, Poll::kReceiveFor, qi::kTimeouts[in.u8() % 3]);
      }
      case qi::kInterruptedReceive: {
        const int place = in.u8() & 1;
        return InterruptedReceive(place, (in.u8() & 1) != 0);
      }
      case qi::kCounters:
        return Counters(in.u8() & 1);
      case qi::kLeave:
        return Leave(in.u8() & 1);
      case qi::kJoin:
        return Join();
      default:
        return;
    }
  }

  // The damage is over: each receiver comes to the end of its ring, and then one of two messages
  // sent each way arrives intact (the first may go into a ring whose framing was lost).
  void Settle() {
    log_ += "settle\n";
    // Twice round: a party that finds its own attach word damaged writes it again when it
    // receives, and its peer learns of that when it receives next.
    for (int round = 0; round < 2; ++round)
      for (int place = 0; place < 2; ++place) Drain(place);
    if (clean_) {
      for (int place = 0; place < 2; ++place) {
        if (party_[place] && connected_[place] != (party_[1 - place] != nullptr))
          Fail("the last queue event a party received says whether its peer is there", "");
      }
    }
    for (int from = 0; from < 2; ++from) {
      const int to = 1 - from;
      if (!party_[from] || !party_[to]) continue;
      bool through = false;
      for (int attempt = 0; attempt < 2 && !through; ++attempt) {
        const std::string probe = Pattern(13 + static_cast<std::size_t>(attempt), 77u + from);
        const int sent = Send(from, kProbeType, probe, true);
        last_[to] = Message{0, std::string()};
        Drain(to);
        through = sent == kQueueOk && last_[to].type == kProbeType && last_[to].data == probe;
      }
      if (!through) Fail("once the damage stops, the second message sent arrives intact", "");
    }
  }

 private:
  // One call of a queue object. What it took from the rings is counted (a call inside another,
  // a peer that takes while the sender sleeps, counts its own: the tail may pass the whole ring
  // many times in the outer call, never in one receive); its allocations are watched, and the
  // largest of the outermost call and those inside it is held against that.
  class Call {
   public:
    explicit Call(Run& run) : run_(run) {
      for (int r = 0; r < 2; ++r) tails_[r] = run_.TailWord(r);
      if (run_.depth_++ == 0) qp::ResetLargestAllocation();
      qp::WatchAllocations(true);
    }
    ~Call() {
      for (int r = 0; r < 2; ++r) {
        const std::uint32_t now = run_.TailWord(r);
        const q::RingIndex& index = run_.index_;
        run_.taken_ += index.Valid(now) && index.Valid(tails_[r]) ? index.Distance(tails_[r], now)
                       : now != tails_[r]                         ? run_.capacity_
                                                                  : 0;
      }
      qp::WatchAllocations(false);
      if (--run_.depth_ != 0) return;
      // A message in fragments grows its storage by doubling, never past twice what arrived,
      // and the string may double what it is asked for once more. Once indices were damaged,
      // the tail's movement undercounts by up to a ring: a receiver may take a record its
      // producer published, then find the head moved back behind it and start again there.
      const std::size_t took = run_.taken_ + (run_.clean_ ? 0 : run_.capacity_);
      const std::size_t bound =
          4 * std::max<std::size_t>(run_.largestSent_, took) + kAllocationSlack;
      if (qp::LargestAllocation() > bound)
        run_.Fail("the queue allocates no more than four times what it took from its rings",
                  std::to_string(qp::LargestAllocation()) + " bytes allocated, bound " +
                      std::to_string(bound));
    }

   private:
    Run& run_;
    std::uint32_t tails_[2] = {0, 0};
  };

  [[noreturn]] void Fail(const char* property, const std::string& detail) {
    shm_unlink(ObjectName().c_str());
    const std::size_t shown = 16 * 1024;  // the last steps are the ones that tell
    conflink::fuzz::fail(property, detail + "\ncapacity " + std::to_string(asked_) + " (rings of " +
                                       std::to_string(capacity_) + ")" + ", steps" +
                                       (log_.size() > shown ? " (the last)" : "") + ":\n" +
                                       log_.substr(log_.size() > shown ? log_.size() - shown : 0));
  }

  // --- the object as the input sees it ---

  void Map() {
    Unmap();
    const int fd = shm_open(ObjectName().c_str(), O_RDWR, 0);
    if (fd < 0) Fail("a joined queue's object is there", std::strerror(errno));
    viewBytes_ = q::SegmentBytes(capacity_);
    void* p = mmap(nullptr, viewBytes_, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    close(fd);
    if (p == MAP_FAILED) Fail("a joined queue's object maps", std::strerror(errno));
    view_ = static_cast<unsigned char*>(p);
  }
  void Unmap() {
    if (view_ != nullptr) munmap(view_, viewBytes_);
    view_ = nullptr;
  }
  q::Segment& Seg() { return *reinterpret_cast<q::Segment*>(view_); }
  q::RingBytes Ring(int r) { return q::RingBytes(view_ + q::RingOffset(capacity_, r), capacity_); }
  std::uint32_t TailWord(int r) { return Seg().consumer[r].tail.load(); }
  std::uint32_t HeadWord(int r) { return Seg().producer[r].head.load(); }
  // The generation of the party holding `place` now.
  std::uint32_t Generation(int place) { return q::Generation(Seg().party[place].attach.load()); }
  std::uint32_t Span() const { return 2 * capacity_; }

  q::Word& FieldWord(int field) {
    q::Segment& s = Seg();
    if (field >= qi::kAttach0 && field <= qi::kCpu1) {
      q::PartyBlock& b = s.party[(field - qi::kAttach0) / 4];
      q::Word* words[] = {&b.attach, &b.bell, &b.waiting, &b.cpu};
      return *words[(field - qi::kAttach0) % 4];
    }
    if (field >= qi::kHead0 && field <= qi::kEpochStart1) {
      q::ProducerBlock& b = s.producer[(field - qi::kHead0) / 4];
      q::Word* words[] = {&b.head, &b.messageSeq, &b.abandonedSeq, &b.epochStart};
      return *words[(field - qi::kHead0) % 4];
    }
    switch (field) {
      case qi::kMagic:
        return s.header.magic;
      case qi::kVersion:
        return s.header.version;
      case qi::kCapacity:
        return s.header.capacity;
      case qi::kSegmentBytes:
        return s.header.segmentBytes;
      case qi::kTail0:
        return s.consumer[0].tail;
      default:
        return s.consumer[1].tail;
    }
  }

  std::uint32_t Constant(std::uint8_t which) const {
    switch (which % qi::kConstantCount) {
      case qi::kZero:
        return 0;
      case qi::kOne:
        return 1;
      case qi::kCapacityLess1:
        return capacity_ - 1;
      case qi::kCapacityValue:
        return capacity_;
      case qi::kCapacityPlus1:
        return capacity_ + 1;
      case qi::kSpanLess1:
        return Span() - 1;
      case qi::kSpan:
        return Span();
      case qi::kHeaderBytes:
        return q::kRecordHeaderBytes;
      case qi::kMaxMessage:
        return kMaxQueueMessageBytes;
      case qi::kMaxMessagePlus1:
        return kMaxQueueMessageBytes + 1;
      case qi::kMarkerNone:
        return q::kRecordMarker;
      case qi::kMarkerFirst:
        return q::kRecordMarker | q::kRecordFirst;
      case qi::kMarkerLast:
        return q::kRecordMarker | q::kRecordLast;
      case qi::kMarkerWhole:
        return q::kRecordMarker | q::kRecordFirst | q::kRecordLast;
      case qi::kEventConnected:
        return static_cast<std::uint32_t>(kQueueEventPeerConnected);
      case qi::kEventDisconnected:
        return static_cast<std::uint32_t>(kQueueEventPeerDisconnected);
      case qi::kTopBit:
        return 0x80000000u;
      default:
        return 0xffffffffu;
    }
  }

  std::uint32_t Value(qi::InputReader& in, std::uint32_t current, std::uint32_t other) {
    switch (in.u8() % qi::kModeCount) {
      case qi::kRaw:
        return in.u32();
      case qi::kNudge:
        return current + static_cast<std::uint32_t>(static_cast<std::int8_t>(in.u8()));
      case qi::kConstant:
        return Constant(in.u8());
      default: {
        const std::int64_t span = Span();
        std::int64_t v = (other % span + static_cast<std::int16_t>(in.u16())) % span;
        return static_cast<std::uint32_t>(v < 0 ? v + span : v);
      }
    }
  }

  void Damaged(const std::string& what) {
    clean_ = false;
    log_ += what + "\n";
  }

  void WriteWord(qi::InputReader& in) {
    const int field = in.u8() % qi::kFieldCount;
    const bool tail = field == qi::kTail0 || field == qi::kTail1;
    const int ring = tail                                               ? field - qi::kTail0
                     : field >= qi::kHead0 && field <= qi::kEpochStart1 ? (field - qi::kHead0) / 4
                                                                        : 0;
    q::Word& word = FieldWord(field);
    const std::uint32_t value = Value(in, word.load(), tail ? HeadWord(ring) : TailWord(ring));
    word.store(value);
    Damaged("word " + std::to_string(field) + " = " + std::to_string(value));
  }

  // Where a record of ring `r` starts, as an index the ring's copies can take.
  std::uint32_t RecordAt(int r, int where) {
    const std::uint32_t at = where == qi::kAtTail          ? TailWord(r)
                             : where == qi::kAtLastWritten ? lastWritten_[r]
                                                           : HeadWord(r);
    return at % Span();
  }

  void PokeRecord(qi::InputReader& in) {
    const std::uint8_t choice = in.u8();
    const int ring = choice & 1;
    const int where = (choice >> 1) % qi::kRecordPlaceCount;
    const std::uint32_t word = in.u8() % 5;
    const std::uint32_t at = index_.Advance(RecordAt(ring, where), 4 * word);
    std::uint32_t current = 0;
    Ring(ring).CopyOut(at, &current, 4);
    const std::uint32_t value = Value(in, current, HeadWord(ring));
    Ring(ring).CopyIn(at, &value, 4);
    Damaged("record word " + std::to_string(word) + " of ring " + std::to_string(ring) + " at " +
            std::to_string(at) + " = " + std::to_string(value));
  }

  // A record written at the head as a producer would, with whatever header the input gives.
  void InjectRecord(qi::InputReader& in) {
    const int ring = in.u8() & 1;
    const std::uint32_t flags = in.u8() & q::kRecordFlagMask;
    q::ProducerBlock& producer = Seg().producer[ring];
    const std::uint8_t seqChoice = in.u8();
    const std::uint32_t seq = seqChoice % 4 == 0   ? producer.messageSeq.load()
                              : seqChoice % 4 == 1 ? producer.messageSeq.load() + 1
                              : seqChoice % 4 == 2 ? lastInjectedSeq_
                                                   : in.u8();
    const std::uint8_t typeByte = in.u8();
    const std::uint32_t type = typeByte == 0xff   ? 0x80000000u
                               : typeByte == 0xfe ? 0x80000001u
                                                  : typeByte;
    const std::uint16_t totalWord = in.u16();
    const std::uint32_t total = totalWord == 0xffff   ? kMaxQueueMessageBytes + 1
                                : totalWord == 0xfffe ? kMaxQueueMessageBytes
                                                      : totalWord;
    const std::uint32_t length = in.u16() % (capacity_ - q::kRecordHeaderBytes + 1);
    const bool publish = (in.u8() & 1) != 0;
    const std::uint32_t at = HeadWord(ring) % Span();
    const q::RecordHeader header{q::kRecordMarker | flags, seq, type, total, length};
    const std::string payload = Pattern(length, seq);
    const std::uint32_t next = Ring(ring).WriteRecord(at, header, payload.data());
    if (publish) producer.head.store(next);
    lastWritten_[ring] = at;
    lastInjectedSeq_ = seq;
    Damaged("record into ring " + std::to_string(ring) + " at " + std::to_string(at) + ": flags " +
            std::to_string(flags) + " seq " + std::to_string(seq) + " type " +
            std::to_string(type) + " total " + std::to_string(total) + " length " +
            std::to_string(length) + (publish ? " published" : ""));
  }

  void RawBytes(qi::InputReader& in) {
    const std::size_t offset = in.u16() % viewBytes_;
    std::size_t count = in.u8() % 33;
    if (count > viewBytes_ - offset) count = viewBytes_ - offset;
    count = in.bytes(view_ + offset, count);
    Damaged(std::to_string(count) + " raw bytes at " + std::to_string(offset));
  }

  // --- the parties ---

  void Join() {
    if (opens_ == kMaxOpens) return;
    ++opens_;
    const int place = !party_[0] ? 0 : !party_[1] ? 1 : -1;
    const bool fresh = !party_[0] && !party_[1];
    auto joiner =
        std::make_unique<CyclicMessageQueue>(kQueueNumber, Key().c_str(), asked_, nullptr);
    log_ += "join -> " + std::to_string(joiner->IsConnected()) + "\n";
    if (place < 0) {
      if (joiner->IsConnected()) Fail("a third party is refused", "");
      return;
    }
    if (!joiner->IsConnected()) {
      if (clean_) Fail("a party takes a free place of an undamaged queue", joiner->LastError());
      return;
    }
    if (std::strlen(joiner->LastError()) != 0 || joiner->Capacity() != asked_)
      Fail("a party that took its place reports no error and its capacity", joiner->LastError());
    party_[place] = std::move(joiner);
    connected_[place] = false;
    if (fresh) {
      for (int r = 0; r < 2; ++r) {
        toPlace_[r].clear();
        droppable_[r] = 0;
        lastWritten_[r] = 0;
      }
    }
    Map();
    // What was addressed to an earlier holder of the place is that process's alone: never due
    // to this one.
    std::deque<Message>& due = toPlace_[place];
    const std::uint32_t holder = Generation(place);
    for (std::size_t i = 0; i < due.size();) {
      if (due[i].to == q::kAnyPeer || due[i].to == holder) {
        ++i;
        continue;
      }
      due.erase(due.begin() + static_cast<std::ptrdiff_t>(i));
      if (i < droppable_[place]) --droppable_[place];
    }
  }

  void Leave(int place) {
    if (!party_[place]) return;
    {
      Call call(*this);
      party_[place].reset();
    }
    log_ += "leave " + std::to_string(place) + "\n";
    const int other = 1 - place;
    if (!party_[other]) {
      // The last to leave removes the object: whatever it held can reach no one.
      for (int r = 0; r < 2; ++r) {
        toPlace_[r].clear();
        droppable_[r] = 0;
      }
      return;
    }
    // What was sent to the place and not yet handed out waits in the ring for its next holder,
    // unless the one that left had taken it into its own memory already.
    droppable_[place] = toPlace_[place].size();
    connected_[place] = false;
  }

  void SendStep(qi::InputReader& in) {
    const int place = in.u8() & 1;
    int type = 0;
    switch (in.u8() % qi::kTypeModeCount) {
      case qi::kTypeByte:
        type = in.u8();
        break;
      case qi::kTypeRaw:
        type = static_cast<int>(in.u32());
        break;
      default:
        type = (in.u8() & 1) != 0 ? kQueueEventPeerDisconnected : kQueueEventPeerConnected;
    }
    std::int64_t size = 0;
    switch (in.u8() % qi::kSizeModeCount) {
      case qi::kSizeByte:
        size = in.u8();
        break;
      case qi::kSizeNearRecordLimit:
        size = static_cast<std::int64_t>(asked_ - q::kRecordHeaderBytes) +
               static_cast<std::int8_t>(in.u8());
        break;
      case qi::kSizeNearRings: {
        const std::int64_t rings = in.u8() % 4 + 1;
        size = rings * capacity_ + static_cast<std::int8_t>(in.u8());
        break;
      }
      default:
        size = in.u16();
    }
    const bool peerTakes = (in.u8() & 1) != 0;
    if (!party_[place]) return;
    Send(place, type, Pattern(static_cast<std::size_t>(size < 0 ? 0 : size), ++sends_), peerTakes);
  }

  // While the sender sleeps, its peer takes everything there is (the target's own work meanwhile
  // is not the queue's: its allocations are not watched).
  static void PeerTakes(void* context) {
    Run& run = *static_cast<Run*>(context);
    qp::WatchAllocations(false);
    if (run.party_[run.taker_]) run.Drain(run.taker_);
    qp::WatchAllocations(true);
  }

  int Send(int place, int type, const std::string& data, bool peerTakes) {
    CyclicMessageQueue& party = *party_[place];
    const int to = 1 - place;
    unsigned int free = 0;
    int result = 0;
    std::string buffer = data;
    // The peer the message is for (the one whose arrival the sender took last), and whether that
    // peer still holds its place.
    const std::uint32_t addressed = party.AddressedPeer();
    const bool addresseeGone =
        addressed != q::kAnyPeer && (!party_[to] || Generation(to) != addressed);
    if (data.size() > largestSent_) largestSent_ = data.size();
    {
      Call call(*this);
      free = party.FreeBytes();
      if (peerTakes) {
        taker_ = to;
        qp::SetSleepHook(&Run::PeerTakes, this);
      }
      const std::uint32_t at = HeadWord(place);
      result = party.Send(&type, &buffer);
      qp::SetSleepHook(nullptr, nullptr);
      if (result == kQueueOk) lastWritten_[place] = at;
    }
    log_ += "send " + std::to_string(place) + " type " + std::to_string(type) + " size " +
            std::to_string(data.size()) + (peerTakes ? " (peer takes)" : "") + " -> " +
            std::to_string(result) + "\n";
    if (free > capacity_) Fail("free bytes never exceed the capacity", std::to_string(free));
    if (buffer != data) Fail("a send leaves the buffer as it was", "");
    if (IsEvent(type)) {
      if (result != kQueueBadArgument) Fail("a send typed as a queue event is refused", "");
      return result;
    }
    switch (result) {
      case kQueueOk:
      case kQueuePeerAbsentFull:
      case kQueuePeerDeparted:
      case kQueuePeerStalled:
      case kQueueCorrupt:
      case kQueueNoMemory:
      case kQueueBacklogFull:
        break;
      default:
        Fail("a send gives a documented result", std::to_string(result));
    }
    if (result != kQueueOk && std::strlen(party.LastError()) == 0)
      Fail("a failed send says why", std::to_string(result));
    if (clean_) {
      // A message goes in records of at most the capacity, each with its header.
      const std::uint64_t perRecord = std::min(asked_, capacity_) - q::kRecordHeaderBytes;
      const std::uint64_t records =
          data.empty() ? 1 : (static_cast<std::uint64_t>(data.size()) + perRecord - 1) / perRecord;
      const bool fits = free >= data.size() + records * q::kRecordHeaderBytes;
      const int expected = addresseeGone                       ? kQueuePeerDeparted
                           : fits || (party_[to] && peerTakes) ? kQueueOk
                           : !party_[to]                       ? kQueuePeerAbsentFull
                                                               : kQueuePeerStalled;
      if (result != expected)
        Fail("an undamaged queue sends as free room and the peer say",
             "expected " + std::to_string(expected) + ", got " + std::to_string(result));
    }
    if (result == kQueueOk) toPlace_[to].push_back(Message{type, data, addressed});
    return result;
  }

  void ReceiveStep(int place, Poll poll, int timeoutMs) {
    if (party_[place]) Receive(place, poll, timeoutMs);
  }

  int Receive(int place, Poll poll, int timeoutMs) {
    CyclicMessageQueue& party = *party_[place];
    int type = 0x7e7e7e7e;
    std::string buffer = "as it was";
    buffer.reserve(64);
    int result = 0;
    {
      Call call(*this);
      result = poll == Poll::kPeek ? party.PeekMessage(&type, &buffer)
                                   : party.ReceiveFor(&type, &buffer, timeoutMs);
    }
    log_ += (poll == Poll::kPeek ? "peek " : "receive for " + std::to_string(timeoutMs) + " ms ") +
            std::to_string(place) + " -> " + std::to_string(result) +
            (result == kQueueOk
                 ? " type " + std::to_string(type) + " size " + std::to_string(buffer.size())
                 : std::string()) +
            "\n";
    switch (result) {
      case kQueueOk:
        Delivered(place, type, buffer);
        break;
      case kQueueEmpty:
        Unchanged(type, buffer);
        if (clean_ && toPlace_[place].size() > droppable_[place])
          Fail("an undamaged queue hands out what was sent to the place",
               std::to_string(toPlace_[place].size()) + " messages still due");
        toPlace_[place].clear();  // what the place's earlier holder took is gone
        droppable_[place] = 0;
        break;
      case kQueueCorrupt:
      case kQueueNoMemory:
        Unchanged(type, buffer);
        if (clean_) Fail("an undamaged queue reports no damage", party.LastError());
        if (std::strlen(party.LastError()) == 0) Fail("a failed receive says why", "");
        break;
      default:
        Fail("a receive that does not wait gives a documented result", std::to_string(result));
    }
    return result;
  }

  void Unchanged(int type, const std::string& buffer) {
    if (type != 0x7e7e7e7e || buffer != "as it was")
      Fail("a receive that hands out nothing leaves type and buffer as they were", "");
  }

  void Delivered(int place, int type, const std::string& data) {
    if (IsEvent(type)) {
      if (!data.empty()) Fail("a queue event carries no bytes", std::to_string(data.size()));
      const bool arrival = type == kQueueEventPeerConnected;
      if (arrival == connected_[place])
        Fail("the peer's arrival and departure alternate, beginning with an arrival",
             std::to_string(type));
      connected_[place] = arrival;
      return;
    }
    last_[place] = Message{type, data};
    if (!clean_) return;
    if (!connected_[place]) Fail("a message comes from a peer whose arrival was reported", "");
    std::deque<Message>& due = toPlace_[place];
    while (!due.empty() && droppable_[place] > 0 &&
           (due.front().type != type || due.front().data != data)) {
      due.pop_front();
      --droppable_[place];
    }
    if (due.empty() || due.front().type != type || due.front().data != data)
      Fail("an undamaged queue hands out what was sent, whole, in order, once",
           "type " + std::to_string(type) + ", " + std::to_string(data.size()) + " bytes");
    if (due.front().to != q::kAnyPeer && due.front().to != Generation(place))
      Fail("a message reaches only the holder of the place it was addressed to",
           "addressed to " + std::to_string(due.front().to) + ", taken by " +
               std::to_string(Generation(place)));
    due.pop_front();
    droppable_[place] = 0;
  }

  void Drain(int place) {
    for (int i = 0; i < kDrainLimit; ++i) {
      if (!party_[place] || Receive(place, Poll::kPeek, 0) == kQueueEmpty) return;
    }
    Fail("a receiver comes to the end of what its ring holds", "");
  }

  void InterruptedReceive(int place, bool pollBetween) {
    if (!party_[place]) return;
    CyclicMessageQueue& party = *party_[place];
    int interrupted = 0;
    {
      Call call(*this);
      interrupted = party.Interrupt();
    }
    if (interrupted != kQueueOk) Fail("an attached party can be interrupted", "");
    // A poll neither waits for the interrupt nor uses it up.
    if (pollBetween) Receive(place, Poll::kPeek, 0);
    int type = 0x7e7e7e7e;
    std::string buffer = "as it was";
    int result = 0;
    {
      Call call(*this);
      result = party.Receive(&type, &buffer);
    }
    log_ += "interrupted receive " + std::to_string(place) + " -> " + std::to_string(result) + "\n";
    if (result != kQueueInterrupted) Fail("an interrupted receive returns at once", "");
    Unchanged(type, buffer);
  }

  void Counters(int place) {
    if (!party_[place]) return;
    CyclicMessageQueue& party = *party_[place];
    unsigned int pending = 0, free = 0;
    int online = 0, connected = 0;
    {
      Call call(*this);
      pending = party.PendingBytes();
      free = party.FreeBytes();
      online = party.IsPartyOnline();
      connected = party.IsConnected();
    }
    log_ += "counters " + std::to_string(place) + ": pending " + std::to_string(pending) +
            " free " + std::to_string(free) + " online " + std::to_string(online) + "\n";
    if (connected != 1) Fail("a party stays connected whatever the object holds", "");
    if (free > capacity_) Fail("free bytes never exceed the capacity", std::to_string(free));
    if (pending > taken_ + capacity_)
      Fail("pending bytes were taken from the ring or are in it", std::to_string(pending));
    const bool peerThere =
        party_[1 - place] != nullptr && q::Attached(Seg().party[1 - place].attach.load());
    if ((online != 0) != peerThere)
      Fail("the party is online exactly while it is attached and holds its place",
           std::to_string(online));
  }

  const std::uint32_t asked_;
  const std::uint32_t capacity_;  // of each ring
  const q::RingIndex index_;
  std::unique_ptr<CyclicMessageQueue> party_[2];
  unsigned char* view_ = nullptr;
  std::size_t viewBytes_ = 0;
  int opens_ = 0;
  int depth_ = 0;
  int taker_ = 0;
  std::uint32_t sends_ = 0;
  std::uint32_t lastWritten_[2] = {0, 0};
  std::uint32_t lastInjectedSeq_ = 0;
  std::size_t taken_ = 0;
  std::size_t largestSent_ = 0;
  std::string log_;

  // What each place's party was told, and (while the input has damaged nothing) what is due to
  // it: messages sent to the place, of which the first `droppable_` may have been taken by an
  // earlier holder of the place.
  bool clean_ = true;
  bool connected_[2] = {false, false};
  std::deque<Message> toPlace_[2];
  std::size_t droppable_[2] = {0, 0};
  Message last_[2];
};

std::uint32_t CapacityFor(std::uint8_t choice) {
  const int pick = choice % qi::kCapacityChoices;
  if (pick < 3) return qi::kFixedCapacities[pick];
  // The whole object fills one page, so that the byte after it is a guard page's.
  const auto page = static_cast<std::uint32_t>(sysconf(_SC_PAGESIZE));
  static_assert(sizeof(q::Segment) % (2 * q::kRingRecords) == 0, "rings that fill the page");
  return (page - static_cast<std::uint32_t>(sizeof(q::Segment))) / (2 * q::kRingRecords);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool ready = [] {
    qp::RequireSimulation();
    RemoveLeftovers();
    return true;
  }();
  (void)ready;
  qi::InputReader in(data, size);
  qp::ResetClock();
  {
    Run run(CapacityFor(in.u8()));
    while (!in.empty()) run.Step(in);
    run.Settle();
  }
  if (qp::GuardedMappings() != 0) conflink::fuzz::fail("every mapping of the object is undone", "");
  return 0;
}
