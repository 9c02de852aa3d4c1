// A peer process that writes garbage into the queue's shared object while it talks: the
// survivor must report what fails validation as kQueueCorrupt with a text that names it, never
// crash or touch memory outside its buffers (run under the sanitizers), and once both have left,
// a fresh pair under the same name must work normally.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include <conflink/platform/queue_layout.h>
#include <conflink/platform/queue_ring.h>
#include <conflink/platform/queue_test_support.h>
#include "tests/support/fault_injection.h"

namespace conflink::testing {
namespace {

using queue::Segment;

// The survivor opens first and holds place 0; the peer holds place 1, so ring 1 carries the
// peer's messages and ring 0 the survivor's.
constexpr int kSurvivorPlace = 0;
constexpr int kPeerPlace = 1;

// The peer's own mapping of the object, through which it scribbles.
class Scribbler {
 public:
  explicit Scribbler(const TestQueueName& name) {
    const int fd = shm_open(name.Object().c_str(), O_RDWR, 0);
    if (fd < 0) return;
    void* p = mmap(nullptr, queue::SegmentBytes(kTestCapacity), PROT_READ | PROT_WRITE, MAP_SHARED,
                   fd, 0);
    close(fd);
    if (p != MAP_FAILED) base_ = static_cast<unsigned char*>(p);
  }
  ~Scribbler() {
    if (base_ != nullptr) munmap(base_, queue::SegmentBytes(kTestCapacity));
  }
  bool ok() const { return base_ != nullptr; }
  Segment& seg() { return *reinterpret_cast<Segment*>(base_); }
  queue::RingBytes ring(int r) {
    return queue::RingBytes(base_ + queue::RingOffset(kTestCapacity, r), kTestCapacity);
  }
  // A word that is a valid ring index half the time, any 32 bits otherwise.
  static std::uint32_t IndexOrNot(FaultRng& rng) {
    return rng.Percent(50) ? rng.Between(0, 2 * kTestCapacity - 1) : rng.Word();
  }
  // Whether the peer's own ring's indices are unusable as they stand.
  bool OutboundBroken() {
    const queue::RingIndex index(kTestCapacity);
    const std::uint32_t head = seg().producer[kPeerPlace].head.load();
    const std::uint32_t tail = seg().consumer[kPeerPlace].tail.load();
    return !index.Valid(head) || !index.Valid(tail) || index.Distance(tail, head) > kTestCapacity;
  }
  // Overwrites `n` bytes at a random place of the whole object past its fixed header (which
  // only an opener reads, and which a party that shrank or resized the object could break in
  // ways no check can catch).
  void AnyBytes(FaultRng& rng, int n) {
    const std::size_t from = sizeof(queue::SegmentHeader);
    const std::size_t span = queue::SegmentBytes(kTestCapacity) - from;
    for (int i = 0; i < n; ++i)
      base_[from + rng.Next() % span] = static_cast<unsigned char>(rng.Word());
  }

 private:
  unsigned char* base_ = nullptr;
};

struct GarbageCase {
  const char* what;
  // Damages the object after the peer sent its messages; `before` is where the peer's ring's
  // head stood before them.
  std::function<void(Scribbler&, FaultRng&, std::uint32_t before)> scribble;
  bool mustReportCorrupt;  // the damage is of a kind that validation always catches
};

// Results a survivor's receive may give under garbage, and its sends.
bool ReceiveResultAllowed(int r) {
  return r == kQueueOk || r == kQueueEmpty || r == kQueueCorrupt;
}
bool SendResultAllowed(int r) {
  return r == kQueueOk || r == kQueueCorrupt || r == kQueuePeerDeparted;
}
// A corruption report says what failed validation.
bool NamesWhatFailed(const std::string& text) {
  for (const char* word : {"ring", "record", "message", "fragment"})
    if (text.find(word) != std::string::npos) return true;
  return false;
}

// Two parties under `name` exchange both ways, a message in fragments included, and see each
// other arrive and leave.
::testing::AssertionResult AFreshPairWorks(const TestQueueName& name) {
  auto q = name.Open();
  if (!q->IsConnected()) return ::testing::AssertionFailure() << q->LastError();
  const std::string big = Pattern(3 * kTestCapacity, 11);
  ChildProcess peer([&] {
    auto mine = name.Open();
    std::string text;
    if (ReceiveType(*mine, nullptr, kPatientMs) != kQueueEventPeerConnected) return 1;
    int type = 21;
    std::string copy = big;
    if (mine->Send(&type, &copy) != kQueueOk) return 2;
    return ReceiveType(*mine, &text, kPatientMs) == 22 && text == "back" ? 0 : 3;
  });
  std::string text;
  if (ReceiveType(*q, nullptr, kPatientMs) != kQueueEventPeerConnected ||
      ReceiveType(*q, &text, kPatientMs) != 21 || text != big)
    return ::testing::AssertionFailure() << "the fresh pair's first message did not arrive whole";
  int type = 22;
  std::string back = "back";
  if (q->Send(&type, &back) != kQueueOk) return ::testing::AssertionFailure() << q->LastError();
  if (peer.wait(kPatientMs) != 0) return ::testing::AssertionFailure() << "the fresh peer failed";
  if (ReceiveType(*q, nullptr, kPatientMs) != kQueueEventPeerDisconnected)
    return ::testing::AssertionFailure() << "no departure from the fresh peer";
  return ::testing::AssertionSuccess();
}

TEST(QueueFaults, GarbageFromThePeerIsReportedNeverFollowedAndAFreshPairWorks) {
  SeededRun run;
  FaultRng& rng = run.rng;
  const std::vector<GarbageCase> cases = {
      {"a word of each record header it just wrote",
       [](Scribbler& s, FaultRng& r, std::uint32_t before) {
         const queue::RingIndex index(kTestCapacity);
         const std::uint32_t word = r.Percent(50) ? 0 : r.Between(3, 4);  // marker, size, length
         const std::uint32_t value = r.Word();
         s.ring(kPeerPlace).CopyIn(index.Advance(before, 4 * word), &value, 4);
       },
       true},
      {"its ring's head",
       [](Scribbler& s, FaultRng& r, std::uint32_t) {
         s.seg().producer[kPeerPlace].head.store(r.Word() | 0x80000000u);
       },
       true},
      {"its message numbers and epoch",
       [](Scribbler& s, FaultRng& r, std::uint32_t) {
         queue::ProducerBlock& p = s.seg().producer[kPeerPlace];
         p.messageSeq.store(r.Word());
         p.abandonedSeq.store(r.Word());
         p.epochStart.store(Scribbler::IndexOrNot(r));
       },
       false},
      {"the tail of the survivor's ring, which the survivor's sends read",
       [](Scribbler& s, FaultRng& r, std::uint32_t) {
         s.seg().consumer[kSurvivorPlace].tail.store(Scribbler::IndexOrNot(r));
       },
       false},
      {"both parties' attach, bell, waiting and processor words",
       [](Scribbler& s, FaultRng& r, std::uint32_t) {
         for (queue::PartyBlock& p : s.seg().party) {
           if (r.Percent(30)) p.attach.store(r.Word());
           p.bell.store(r.Word());
           p.waiting.store(r.Word());
           p.cpu.store(r.Word());
         }
       },
       false},
      {"random bytes anywhere past the fixed header",
       [](Scribbler& s, FaultRng& r, std::uint32_t) { s.AnyBytes(r, 64); }, false},
  };
  for (const GarbageCase& c : cases) {
    SCOPED_TRACE(c.what);
    TestQueueName name;
    auto q = name.Open();
    ASSERT_TRUE(q->IsConnected()) << q->LastError();
    const std::uint64_t peerSeed = rng.Next();
    Pace scribbled, looked;
    constexpr int kRounds = 40;
    // Each round: the peer sends a few messages, damages the object, and lets the survivor
    // look; it goes on only when the survivor has, so that the damage is met before the next.
    ChildProcess peer([&] {
      auto mine = name.Open();
      Scribbler scribbler(name);
      if (!mine->IsConnected() || !scribbler.ok()) return 1;
      FaultRng r(peerSeed);
      int type = 0;
      std::string buffer;
      for (int round = 0; round < kRounds; ++round) {
        const std::uint32_t before = scribbler.seg().producer[kPeerPlace].head.load();
        for (int m = static_cast<int>(r.Between(1, 3)); m > 0; --m) {
          int kind = 30;
          std::string message = Pattern(r.Between(0, 3000), r.Word());
          // A send that does not fit would wait for a survivor that waits for us, until the
          // stall limit: the peer sends what fits, or what meets indices its garbage broke (that
          // send fails or repairs at once).
          if (scribbler.OutboundBroken() || mine->FreeBytes() > message.size() + 64)
            mine->Send(&kind, &message);
        }
        c.scribble(scribbler, r, before);
        scribbled.Signal();
        if (looked.Await(kPatientMs) == 0) return 2;
        while (mine->ReceiveFor(&type, &buffer, 0) != kQueueEmpty) {
        }
      }
      return 0;
    });
    int corrupt = 0, received = 0;
    int type = 0;
    std::string buffer;
    for (int round = 0; round < kRounds; ++round) {
      ASSERT_EQ(scribbled.Await(kPatientMs), 'x') << "round " << round;
      for (int r; (r = q->ReceiveFor(&type, &buffer, 2)) != kQueueEmpty;) {
        ASSERT_TRUE(ReceiveResultAllowed(r)) << r << " " << q->LastError();
        if (r == kQueueCorrupt) {
          ++corrupt;
          ASSERT_TRUE(NamesWhatFailed(q->LastError())) << q->LastError();
        } else {
          ++received;
          ASSERT_LE(buffer.size(), kMaxQueueMessageBytes);
        }
      }
      // The survivor's sends meet what was done to the ring they go into. A send that does not
      // fit waits for the peer, which is waiting for us: only what fits is sent.
      int kind = 31;
      std::string message = Pattern(rng.Between(0, 200), 3);
      const unsigned free = q->FreeBytes();
      if (free == 0 || free > message.size() + queue::kRecordHeaderBytes) {
        const int r = q->Send(&kind, &message);
        ASSERT_TRUE(SendResultAllowed(r)) << r << " " << q->LastError();
        if (r == kQueueCorrupt) {
          EXPECT_TRUE(NamesWhatFailed(q->LastError())) << q->LastError();
        }
      }
      looked.Signal();
    }
    EXPECT_EQ(peer.wait(kPatientMs), 0);
    // Whatever garbage left behind is handed out or reported; the survivor then leaves.
    for (int r; (r = q->ReceiveFor(&type, &buffer, 200)) != kQueueEmpty;)
      ASSERT_TRUE(ReceiveResultAllowed(r)) << r << " " << q->LastError();
    if (c.mustReportCorrupt) {
      EXPECT_GT(corrupt, 0) << "the damage was never reported";
    }
    EXPECT_GT(received, 0);
    q.reset();
    EXPECT_FALSE(name.ObjectExists()) << "the last to leave removes the object";
    EXPECT_TRUE(AFreshPairWorks(name));
  }
}

}  // namespace
}  // namespace conflink::testing
