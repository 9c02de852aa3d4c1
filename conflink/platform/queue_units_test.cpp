// The queue's pieces that need no second party: ring index arithmetic for any capacity, copies
// that wrap at the ring's end, record header checks, object naming and result texts.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <set>
#include <vector>

#include <conflink/platform/queue_ring.h>
#include <conflink/platform/queue_test_support.h>

namespace conflink::testing {
namespace {

// The messengers' capacity: the object is a megabyte, so a lazily backed one would show clearly.
constexpr unsigned int kMessengerCapacityForTests = 32768;

using queue::RecordFault;
using queue::RecordHeader;
using queue::RingBytes;
using queue::RingIndex;

TEST(QueueRingIndex, FoldsAtTwiceTheCapacityForAnyCapacity) {
  struct Case {
    std::uint32_t capacity, from, n, advanced, offset;
  };
  // A capacity that is no power of two, across both folds: of the index and of the offset.
  const Case cases[] = {
      {100, 0, 30, 30, 30},    {100, 90, 30, 120, 20}, {100, 190, 30, 20, 20},  {100, 199, 1, 0, 0},
      {100, 150, 100, 50, 50}, {64, 127, 64, 63, 63},  {32768, 65535, 1, 0, 0},
  };
  for (const Case& c : cases) {
    const RingIndex index(c.capacity);
    SCOPED_TRACE(::testing::Message() << c.capacity << ": " << c.from << " + " << c.n);
    const std::uint32_t to = index.Advance(c.from, c.n);
    EXPECT_EQ(to, c.advanced);
    EXPECT_EQ(index.Offset(to), c.offset);
    EXPECT_EQ(index.Distance(c.from, to), c.n);
    EXPECT_TRUE(index.Valid(to));
  }
  const RingIndex index(100);
  EXPECT_FALSE(index.Valid(200));
  EXPECT_EQ(index.Distance(50, 50), 0u) << "empty";
  EXPECT_EQ(index.Distance(50, 150), 100u) << "full differs from empty";
}

TEST(QueueRingBytes, CopiesWrapAtTheRingsEnd) {
  std::vector<unsigned char> storage(16 + 2, 0xee);  // guard bytes on either side
  RingBytes ring(storage.data() + 1, 16);
  const std::string text = "abcdefghij";
  ring.CopyIn(12 + 16, text.data(), 10);  // offset 12, second lap
  EXPECT_EQ(std::string(reinterpret_cast<char*>(storage.data() + 13), 4), "abcd");
  EXPECT_EQ(std::string(reinterpret_cast<char*>(storage.data() + 1), 6), "efghij");
  EXPECT_EQ(storage.front(), 0xee);
  EXPECT_EQ(storage.back(), 0xee);
  std::string out(10, '\0');
  ring.CopyOut(12, &out[0], 10);
  EXPECT_EQ(out, text);
  std::string appended = ">";
  ring.AppendTo(14, 6, appended);
  EXPECT_EQ(appended, ">cdefgh");
  std::string reused(100, 'o');  // a longer old content must not show through
  ring.AssignTo(14, 6, reused);
  EXPECT_EQ(reused, "cdefgh");
}

TEST(QueueRingBytes, HeaderChecksCatchEveryInconsistency) {
  struct Case {
    const char* what;
    RecordHeader header;
    std::uint32_t available;
    RecordFault fault;
  };
  const std::uint32_t m = queue::kRecordMarker | queue::kRecordFirst | queue::kRecordLast;
  const std::uint32_t h = queue::kRecordHeaderBytes;
  const Case cases[] = {
      {"valid", {m, 1, 5, 10, 10}, h + 10, RecordFault::kNone},
      {"valid empty", {m, 1, 5, 0, 0}, h, RecordFault::kNone},
      {"fewer bytes than a header", {m, 1, 5, 0, 0}, h - 1, RecordFault::kTruncated},
      {"no marker", {0x12345670u, 1, 5, 10, 10}, h + 10, RecordFault::kBadMarker},
      {"payload past the head", {m, 1, 5, 11, 11}, h + 10, RecordFault::kLengthPastHead},
      {"huge length", {m, 1, 5, 10, 0xffffffffu}, h + 10, RecordFault::kLengthPastHead},
      {"size over the limit",
       {m, 1, 5, kMaxQueueMessageBytes + 1, 4},
       h + 10,
       RecordFault::kBadTotal},
      {"fragment larger than its message", {m, 1, 5, 3, 4}, h + 10, RecordFault::kBadTotal},
  };
  for (const Case& c : cases) {
    std::vector<unsigned char> storage(64, 0);
    RingBytes ring(storage.data(), 64);
    ring.CopyIn(60, &c.header, sizeof c.header);  // the header itself wraps
    RecordHeader out{};
    EXPECT_EQ(ring.ReadHeader(60, c.available, out), c.fault) << c.what;
  }
}

TEST(QueueNaming, NamesFollowTheDocumentedRule) {
  const std::string uid = std::to_string(geteuid());
  const std::string ping = QueueObjectName(3, "/bin/ping");
  EXPECT_EQ(ping.rfind("/conflink." + uid + "._bin_ping.", 0), 0u) << ping;
  EXPECT_EQ(ping.substr(ping.size() - 2), ".3");
  EXPECT_EQ(QueueObjectName(-3, "/bin/ping").substr(ping.size() - 2), ".-3");
  // Distinct inputs give distinct names, also where the readable part is the same.
  const std::set<std::string> names = {
      ping,
      QueueObjectName(4, "/bin/ping"),
      QueueObjectName(3, "_bin_ping"),
      QueueObjectName(3, "/bin/pin"),
      QueueObjectName(3, ""),
      QueueObjectName(3, std::string(300, 'a').c_str()),
      QueueObjectName(3, (std::string(300, 'a') + "b").c_str()),
  };
  EXPECT_EQ(names.size(), 7u);
  for (const std::string& n : names) {
    EXPECT_LT(n.size(), static_cast<std::size_t>(NAME_MAX)) << n;
    EXPECT_EQ(n.find('/', 1), std::string::npos) << n;
  }
  EXPECT_EQ(QueueObjectName(3, nullptr), QueueObjectName(3, ""));
}

TEST(QueueResults, EveryCodeHasItsOwnText) {
  std::set<std::string> texts;
  for (int r = kQueueLowestResult; r <= kQueueOk; ++r) texts.insert(QueueResultText(r));
  EXPECT_EQ(texts.size(), static_cast<std::size_t>(kQueueOk - kQueueLowestResult + 1));
}

// Rings hold sixteen records of the capacity, but never exceed the largest ring (whose indices
// must fold within 32 bits) nor fall below one record.
TEST(QueueRingIndex, RingBytesForEveryCapacity) {
  const struct {
    std::uint32_t capacity, ring;
  } cases[] = {
      {kMinQueueCapacity, 16 * kMinQueueCapacity},
      {32768, 512 * 1024},
      {queue::kMaxRingBytes / 16, queue::kMaxRingBytes},
      {queue::kMaxRingBytes / 16 + 1, queue::kMaxRingBytes},
      {kMaxQueueCapacity, kMaxQueueCapacity},
  };
  for (const auto& c : cases) EXPECT_EQ(queue::RingBytesFor(c.capacity), c.ring) << c.capacity;
  static_assert(2ull * queue::kMaxRingBytes <= UINT32_MAX, "indices fold within 32 bits");
}

TEST(QueueOpening, UnusableCapacitiesAreRefusedWithAReason) {
  TestQueueName name;
  for (unsigned int capacity : {0u, kMinQueueCapacity - 1, kMaxQueueCapacity + 1}) {
    auto q = name.Open(capacity);
    EXPECT_EQ(q->IsConnected(), 0) << capacity;
    EXPECT_NE(std::string(q->LastError()).find("capacity"), std::string::npos);
    int type = 0;
    std::string buffer;
    EXPECT_EQ(q->PeekMessage(&type, &buffer), kQueueNotConnected);
  }
  EXPECT_EQ(name.Open(kMinQueueCapacity)->IsConnected(), 1) << "the smallest capacity works";
}

// The rings' pages are taken when the object is made, not at the first lap of each ring (a
// first touch of a page costs a fault in the middle of a hand-off, and a full /dev/shm would
// only show as a SIGBUS there).
TEST(QueueOpening, AFreshObjectHasAllItsMemoryReserved) {
  TestQueueName name;
  auto q = name.Open(kMessengerCapacityForTests);
  ASSERT_EQ(q->IsConnected(), 1) << q->LastError();
  const int fd = shm_open(name.Object().c_str(), O_RDONLY, 0);
  ASSERT_GE(fd, 0);
  struct stat st {};
  ASSERT_EQ(fstat(fd, &st), 0);
  close(fd);
  EXPECT_EQ(static_cast<std::size_t>(st.st_size),
            queue::SegmentBytes(queue::RingBytesFor(kMessengerCapacityForTests)));
  EXPECT_GE(static_cast<std::size_t>(st.st_blocks) * 512, static_cast<std::size_t>(st.st_size))
      << "only " << st.st_blocks * 512 << " of " << st.st_size << " bytes are backed";
}

}  // namespace
}  // namespace conflink::testing
