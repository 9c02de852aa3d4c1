// A faulty or hostile peer writing garbage into the shared object: indices, record headers and
// fragment sequences are rewritten behind the queue's back. Every case must end in a clean
// failure (kQueueCorrupt or a dropped message), never a crash or a stray access (run under the
// sanitizers), and the queue must carry the next message normally.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <vector>

#include <conflink/platform/queue_layout.h>
#include <conflink/platform/queue_ring.h>
#include <conflink/platform/queue_test_support.h>

namespace conflink::testing {
namespace {

using queue::kRecordFirst;
using queue::kRecordHeaderBytes;
using queue::kRecordLast;
using queue::kRecordMarker;
using queue::RecordHeader;
using queue::RingBytes;
using queue::Segment;

// Two parties in one process (place 0 sends, place 1 receives) and our own mapping of their
// object to tamper with ring 0.
class QueueCorruption : public ::testing::Test {
 public:
  void SetUp() override {
    sender_ = name_.Open();
    receiver_ = name_.Open();
    ASSERT_TRUE(sender_->IsConnected() && receiver_->IsConnected());
    ASSERT_EQ(ReceiveType(*receiver_), kQueueEventPeerConnected);
    fd_ = shm_open(name_.Object().c_str(), O_RDWR, 0);
    ASSERT_GE(fd_, 0);
    bytes_ = queue::SegmentBytes(kTestCapacity);
    void* p = mmap(nullptr, bytes_, PROT_READ | PROT_WRITE, MAP_SHARED, fd_, 0);
    ASSERT_NE(p, MAP_FAILED);
    base_ = static_cast<unsigned char*>(p);
  }
  void TearDown() override {
    if (base_ != nullptr) munmap(base_, bytes_);
    if (fd_ >= 0) close(fd_);
  }

  Segment& seg() { return *reinterpret_cast<Segment*>(base_); }
  RingBytes ring() { return RingBytes(base_ + queue::RingOffset(kTestCapacity, 0), kTestCapacity); }
  std::uint32_t head() { return seg().producer[0].head.load(); }
  std::uint32_t tail() { return seg().consumer[0].tail.load(); }
  // Overwrites word `word` of the record header at `at`.
  void PokeHeader(std::uint32_t at, int word, std::uint32_t value) {
    ring().CopyIn(ring().index().Advance(at, 4 * static_cast<std::uint32_t>(word)), &value, 4);
  }
  // Writes a record as a producer would, but with whatever header we like.
  void Inject(std::uint32_t flags, std::uint32_t seq, std::uint32_t type, std::uint32_t total,
              const std::string& payload) {
    RecordHeader h{kRecordMarker | flags, seq, type, total,
                   static_cast<std::uint32_t>(payload.size())};
    seg().producer[0].head.store(ring().WriteRecord(head(), h, payload.data()));
  }

  int Send(int type, const std::string& text) {
    std::string buffer = text;
    return sender_->Send(&type, &buffer);
  }
  // Everything the receiver hands out until it has nothing: result codes for failures, types
  // for messages (with the text of type 6 checked). One buffer serves every receive; a failure
  // must leave it and the type as they were.
  std::vector<int> TakeAll() {
    std::vector<int> seen;
    int type = -1;
    std::string data = "untouched";
    for (int i = 0; i < 20; ++i) {
      const int typeBefore = type;
      const std::string dataBefore = data;
      const int r = receiver_->PeekMessage(&type, &data);
      if (r != kQueueOk) {
        EXPECT_EQ(type, typeBefore);
        EXPECT_EQ(data, dataBefore);
      }
      if (r == kQueueEmpty) break;
      seen.push_back(r == kQueueOk ? type : r);
      if (r == kQueueOk && type == 6 && data != "after") seen.push_back(-100);
      if (r != kQueueOk) {
        EXPECT_STRNE(receiver_->LastError(), "");
      }
    }
    return seen;
  }

  TestQueueName name_;
  std::unique_ptr<CyclicMessageQueue> sender_, receiver_;
  int fd_ = -1;
  std::size_t bytes_ = 0;
  unsigned char* base_ = nullptr;
};

struct IndexCase {
  const char* what;
  std::function<void(QueueCorruption&, std::uint32_t victim)> corrupt;
  int sendAfter;  // result of the sender's next send, before the receiver looked
};

TEST_F(QueueCorruption, DamagedIndicesAndHeadersFailCleanlyAndRecover) {
  const std::uint32_t cap = kTestCapacity;
  const std::vector<IndexCase> cases = {
      {"head outside the index range",
       [](QueueCorruption& t, std::uint32_t) { t.seg().producer[0].head.store(0xfffffff0u); },
       kQueueOk},
      {"head more than a ring ahead",
       [cap](QueueCorruption& t, std::uint32_t v) {
         const queue::RingIndex index(kTestCapacity);
         t.seg().producer[0].head.store(index.Advance(index.Advance(v, cap), 100));
       },
       kQueueCorrupt},
      {"tail outside the index range (the sender goes by the tail it last read, which shows room)",
       [](QueueCorruption& t, std::uint32_t) { t.seg().consumer[0].tail.store(0x80000000u); },
       kQueueOk},
      {"head and tail both outside the index range (each side waits for the other to repair)",
       [](QueueCorruption& t, std::uint32_t) {
         t.seg().producer[0].head.store(0xfffffff0u);
         t.seg().consumer[0].tail.store(0x80000000u);
       },
       kQueueCorrupt},
      {"head inside a record header",
       [](QueueCorruption& t, std::uint32_t v) {
         t.seg().producer[0].head.store(t.ring().index().Advance(v, 7));
       },
       kQueueOk},
      {"length far past the head",
       [](QueueCorruption& t, std::uint32_t v) { t.PokeHeader(v, 4, 0x7fffffffu); }, kQueueOk},
      {"length one past the head",
       [](QueueCorruption& t, std::uint32_t v) { t.PokeHeader(v, 4, 7 + 1); }, kQueueOk},
      {"marker destroyed", [](QueueCorruption& t, std::uint32_t v) { t.PokeHeader(v, 0, 0); },
       kQueueOk},
      {"message size over the limit",
       [](QueueCorruption& t, std::uint32_t v) { t.PokeHeader(v, 3, kMaxQueueMessageBytes + 1); },
       kQueueOk},
      {"whole message shorter than its size",
       [](QueueCorruption& t, std::uint32_t v) { t.PokeHeader(v, 3, 7 + 5); }, kQueueOk},
  };
  for (const IndexCase& c : cases) {
    SCOPED_TRACE(c.what);
    const std::uint32_t victim = head();
    ASSERT_EQ(Send(5, "victim!"), kQueueOk);
    c.corrupt(*this, victim);
    const int sent = Send(6, "after");
    EXPECT_EQ(sent, c.sendAfter) << sender_->LastError();
    std::vector<int> seen = TakeAll();
    if (seen.empty() || seen.back() != 6) {
      // The send was refused, or went into a ring whose framing was lost and was dropped with
      // it; the receiver's look has repaired the ring, so the next send goes through.
      ASSERT_EQ(Send(6, "after"), kQueueOk);
      for (int r : TakeAll()) seen.push_back(r);
    }
    // The damage is reported or the damaged message is dropped; the victim never arrives
    // altered, and the message after it arrives intact, last.
    ASSERT_FALSE(seen.empty());
    EXPECT_EQ(seen.back(), 6);
    EXPECT_EQ(std::count(seen.begin(), seen.end(), 6), 1);
    for (int r : seen) EXPECT_TRUE(r == kQueueCorrupt || r == 6) << "got " << r;
    EXPECT_EQ(head(), tail()) << "ring left in a consistent, empty state";
  }
}

struct FragmentCase {
  const char* what;
  std::function<void(QueueCorruption&)> inject;
  std::vector<int> expect;  // what the receiver hands out before the next good message
};

TEST_F(QueueCorruption, HostileFragmentSequencesNeverBecomeMessages) {
  const std::string half(50, 'f');
  const std::uint32_t kMax = kMaxQueueMessageBytes;
  const std::vector<FragmentCase> cases = {
      {"well-formed fragments reassemble (the injection itself works)",
       [&](QueueCorruption& t) {
         t.Inject(kRecordFirst, 1, 9, 100, half);
         t.Inject(kRecordLast, 1, 9, 100, half);
       },
       {9}},
      {"fragments outgrow the size the first promised",
       [&](QueueCorruption& t) {
         t.Inject(kRecordFirst, 1, 9, 80, half);
         t.Inject(kRecordLast, 1, 9, 80, half);
       },
       {kQueueCorrupt}},
      {"a middle fragment outgrows the promised size",
       [&](QueueCorruption& t) {
         t.Inject(kRecordFirst, 1, 9, 80, half);
         t.Inject(0, 1, 9, 80, half);
       },
       {kQueueCorrupt}},
      {"a huge claimed size ends early",
       [&](QueueCorruption& t) {
         t.Inject(kRecordFirst, 1, 9, kMax, half);
         t.Inject(kRecordLast, 1, 9, kMax, half);
       },
       {kQueueCorrupt}},
      {"the type changes mid message",
       [&](QueueCorruption& t) {
         t.Inject(kRecordFirst, 1, 9, 100, half);
         t.Inject(kRecordLast, 1, 8, 100, half);
       },
       {kQueueCorrupt}},
      {"a continuation of another message is skipped",
       [&](QueueCorruption& t) {
         t.Inject(kRecordFirst, 1, 9, 100, half);
         t.Inject(kRecordLast, 2, 9, 100, half);
       },
       {}},
      {"a whole message typed as the peer's arrival is refused",
       [&](QueueCorruption& t) { t.Inject(kRecordFirst | kRecordLast, 1, 0x80000000u, 50, half); },
       {kQueueCorrupt}},
      {"a whole message typed as the peer's departure is refused",
       [&](QueueCorruption& t) { t.Inject(kRecordFirst | kRecordLast, 1, 0x80000001u, 0, ""); },
       {kQueueCorrupt}},
      {"a fragmented message typed as an event is refused once, its rest skipped",
       [&](QueueCorruption& t) {
         t.Inject(kRecordFirst, 1, 0x80000001u, 100, half);
         t.Inject(kRecordLast, 1, 0x80000001u, 100, half);
       },
       {kQueueCorrupt}},
      {"a stray last fragment is skipped",
       [&](QueueCorruption& t) { t.Inject(kRecordLast, 7, 9, 50, half); },
       {}},
      {"a message sent after a skipped fragment is not hidden from the next poll",
       [&](QueueCorruption& t) {
         // The poll that takes the first message reads the head past the stray fragment; the
         // second message goes beyond that head.
         ASSERT_EQ(t.Send(5, "first"), kQueueOk);
         t.Inject(kRecordLast, 7, 9, 50, half);
         int type = 0;
         std::string data;
         ASSERT_EQ(t.receiver_->PeekMessage(&type, &data), kQueueOk);
         EXPECT_EQ(data, "first");
         ASSERT_EQ(t.Send(5, "second"), kQueueOk);
       },
       {5}},
      {"an abandoned message is dropped, its late fragment skipped",
       [&](QueueCorruption& t) {
         t.Inject(kRecordFirst, 3, 9, 100, half);
         t.seg().producer[0].abandonedSeq.store(3);
         EXPECT_EQ(t.TakeAll(), std::vector<int>{});
         EXPECT_EQ(t.receiver_->PendingBytes(), 0u) << "nothing of it is held";
         t.Inject(kRecordLast, 3, 9, 100, half);
       },
       {}},
  };
  for (const FragmentCase& c : cases) {
    SCOPED_TRACE(c.what);
    c.inject(*this);
    EXPECT_EQ(TakeAll(), c.expect);
    ASSERT_EQ(Send(6, "after"), kQueueOk);
    EXPECT_EQ(TakeAll(), std::vector<int>{6});
  }
}

// The receiver's attach word rewritten with another generation: its peer would address what it
// sends to a process that does not exist, and the receiver would drop all of it as meant for
// someone else. A receive restores the word, and the sender's messages arrive again.
TEST_F(QueueCorruption, AnAttachWordRewrittenBehindItsOwnersBackIsRestored) {
  ASSERT_EQ(ReceiveType(*sender_), kQueueEventPeerConnected);
  const std::uint32_t own = seg().party[1].attach.load();
  seg().party[1].attach.store(own + 8);  // still attached, a later generation
  EXPECT_EQ(Send(5, "to nobody"), kQueuePeerDeparted) << "the sender sees the word change";
  EXPECT_EQ(TakeAll(), std::vector<int>{});
  EXPECT_EQ(seg().party[1].attach.load(), own) << "the receive restored the word";
  std::vector<int> heard;
  int type = 0;
  std::string data;
  while (heard.size() < 8 && sender_->PeekMessage(&type, &data) == kQueueOk) heard.push_back(type);
  // Had the sender looked while the word was changed, it would have heard a departure and an
  // arrival; restored before it looked, there is nothing to hear.
  if (!heard.empty()) {
    EXPECT_EQ(heard.back(), kQueueEventPeerConnected);
  }
  ASSERT_EQ(Send(6, "after"), kQueueOk) << sender_->LastError();
  EXPECT_EQ(TakeAll(), std::vector<int>{6});
  EXPECT_EQ(receiver_->DiscardedMessages(), 0u);
}

}  // namespace
}  // namespace conflink::testing
