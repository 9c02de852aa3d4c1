// Looking at queues from outside: object names, what an inspection reports for live, departed
// and dead parties and for queued messages, that it stays invisible to the parties, that damaged
// objects give errors or findings and never a stray read (run under the sanitizers), and when a
// removal is allowed.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <climits>
#include <cstring>
#include <functional>
#include <thread>
#include <vector>

#include <conflink/platform/queue_examine.h>
#include <conflink/platform/queue_layout.h>
#include <conflink/platform/queue_ring.h>
#include <conflink/platform/queue_test_support.h>

namespace conflink::testing {
namespace {

using queue::InspectQueue;
using queue::QueueNameParts;
using queue::QueueReport;
using queue::RemoveOutcome;
using queue::RemoveQueue;
using queue::Segment;
using queue::SegmentBytes;

const std::string kHash = "0123456789abcdef";

int SendText(CyclicMessageQueue& q, int type, const std::string& text) {
  std::string buffer = text;
  return q.Send(&type, &buffer);
}

QueueReport Inspect(const TestQueueName& name) {
  QueueReport report;
  std::string error;
  EXPECT_TRUE(InspectQueue(name.number(), name.key(), report, error)) << error;
  return report;
}

bool HasFinding(const QueueReport& report, const std::string& text) {
  for (const std::string& f : report.findings)
    if (f.find(text) != std::string::npos) return true;
  return false;
}

std::string Findings(const QueueReport& report) {
  std::string all;
  for (const std::string& f : report.findings) all += "\n  " + f;
  return all;
}

// A shared object written by hand, removed (with its mapping) when it goes.
class RawObject {
 public:
  RawObject(std::string name, std::uint64_t bytes) : name_(std::move(name)) {
    shm_unlink(name_.c_str());
    fd_ = shm_open(name_.c_str(), O_RDWR | O_CREAT | O_EXCL, 0600);
    if (fd_ < 0 || ftruncate(fd_, static_cast<off_t>(bytes)) != 0) return;
    mapped_ = static_cast<std::size_t>(std::min<std::uint64_t>(bytes, 1u << 20));
    if (mapped_ == 0) return;
    void* p = mmap(nullptr, mapped_, PROT_READ | PROT_WRITE, MAP_SHARED, fd_, 0);
    if (p != MAP_FAILED) base_ = static_cast<unsigned char*>(p);
  }
  ~RawObject() {
    if (base_ != nullptr) munmap(base_, mapped_);
    if (fd_ >= 0) close(fd_);
    shm_unlink(name_.c_str());
  }
  RawObject(const RawObject&) = delete;
  RawObject& operator=(const RawObject&) = delete;

  bool ok() const { return fd_ >= 0 && (mapped_ == 0 || base_ != nullptr); }
  std::size_t mapped() const { return mapped_; }
  unsigned char* data() { return base_; }
  void Word(std::size_t offset, std::uint32_t value) {
    if (offset + 4 <= mapped_) std::memcpy(base_ + offset, &value, 4);
  }
  // A header as a party writes it.
  void Header(std::uint32_t magic, std::uint32_t version, std::uint32_t capacity,
              std::uint32_t segmentBytes) {
    Word(0, magic);
    Word(4, version);
    Word(8, capacity);
    Word(12, segmentBytes);
  }

 private:
  std::string name_;
  int fd_ = -1;
  std::size_t mapped_ = 0;
  unsigned char* base_ = nullptr;
};

// A writable view of a live queue's object, to damage it behind the parties' backs.
class Tamper {
 public:
  explicit Tamper(const std::string& name) {
    fd_ = shm_open(name.c_str(), O_RDWR, 0);
    bytes_ = SegmentBytes(kTestCapacity);
    void* p =
        fd_ >= 0 ? mmap(nullptr, bytes_, PROT_READ | PROT_WRITE, MAP_SHARED, fd_, 0) : MAP_FAILED;
    if (p != MAP_FAILED) base_ = static_cast<unsigned char*>(p);
  }
  ~Tamper() {
    if (base_ != nullptr) munmap(base_, bytes_);
    if (fd_ >= 0) close(fd_);
  }
  Tamper(const Tamper&) = delete;
  Tamper& operator=(const Tamper&) = delete;
  bool ok() const { return base_ != nullptr; }
  Segment& seg() { return *reinterpret_cast<Segment*>(base_); }
  std::string Bytes() const { return std::string(reinterpret_cast<char*>(base_), bytes_); }
  queue::RingBytes Ring(int r) {
    return queue::RingBytes(base_ + queue::RingOffset(kTestCapacity, r), kTestCapacity);
  }

 private:
  int fd_ = -1;
  std::size_t bytes_ = 0;
  unsigned char* base_ = nullptr;
};

TEST(QueueObjectNames, ParsesWhatQueueObjectNameWritesAndNothingElse) {
  struct Case {
    const char* what;
    std::string name;
    bool valid;
    std::uint32_t uid;
    std::string key;
    int number;
  };
  const std::string key64(64, 'k');
  const std::vector<Case> cases = {
      {"typical", "/conflink.1000._bin_ping." + kHash + ".3", true, 1000, "_bin_ping", 3},
      {"as listed, without the slash", "conflink.0.a-b_C9." + kHash + ".0", true, 0, "a-b_C9", 0},
      {"null key path", "/conflink.1000.." + kHash + ".12", true, 1000, "", 12},
      {"negative queue number", "/conflink.7.k." + kHash + ".-5", true, 7, "k", -5},
      {"largest queue number", "/conflink.7.k." + kHash + ".2147483647", true, 7, "k", INT_MAX},
      {"smallest queue number", "/conflink.7.k." + kHash + ".-2147483648", true, 7, "k", INT_MIN},
      {"largest uid", "/conflink.4294967295.k." + kHash + ".1", true, 4294967295u, "k", 1},
      {"key of 64 bytes", "/conflink.7." + key64 + "." + kHash + ".1", true, 7, key64, 1},
      // Foreign names.
      {"another program's object", "/pulse-shm-1234", false, 0, "", 0},
      {"prefix only alike", "/conflinkx.7.k." + kHash + ".1", false, 0, "", 0},
      {"no queue number", "/conflink.7.k." + kHash, false, 0, "", 0},
      {"one field too many", "/conflink.7.k." + kHash + ".1.2", false, 0, "", 0},
      {"upper-case hash", "/conflink.7.k.0123456789ABCDEF.1", false, 0, "", 0},
      {"hash of 15 digits", "/conflink.7.k.0123456789abcde.1", false, 0, "", 0},
      {"hash not hex", "/conflink.7.k.0123456789abcdeg.1", false, 0, "", 0},
      {"key with a byte never written", "/conflink.7.k$y." + kHash + ".1", false, 0, "", 0},
      {"key of 65 bytes", "/conflink.7." + key64 + "k." + kHash + ".1", false, 0, "", 0},
      {"empty", "", false, 0, "", 0},
      // Malformed numbers.
      {"number with leading zero", "/conflink.7.k." + kHash + ".03", false, 0, "", 0},
      {"negative zero", "/conflink.7.k." + kHash + ".-0", false, 0, "", 0},
      {"plus sign", "/conflink.7.k." + kHash + ".+3", false, 0, "", 0},
      {"trailing letters", "/conflink.7.k." + kHash + ".3x", false, 0, "", 0},
      {"empty number", "/conflink.7.k." + kHash + ".", false, 0, "", 0},
      {"number too large", "/conflink.7.k." + kHash + ".2147483648", false, 0, "", 0},
      {"number too small", "/conflink.7.k." + kHash + ".-2147483649", false, 0, "", 0},
      {"huge number", "/conflink.7.k." + kHash + ".99999999999999999999999", false, 0, "", 0},
      {"uid with leading zero", "/conflink.07.k." + kHash + ".1", false, 0, "", 0},
      {"uid too large", "/conflink.4294967296.k." + kHash + ".1", false, 0, "", 0},
      {"negative uid", "/conflink.-1.k." + kHash + ".1", false, 0, "", 0},
      {"empty uid", "/conflink..k." + kHash + ".1", false, 0, "", 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    QueueNameParts parts;
    ASSERT_EQ(queue::ParseQueueObjectName(c.name, parts), c.valid) << c.name;
    if (!c.valid) continue;
    EXPECT_EQ(parts.uid, c.uid);
    EXPECT_EQ(parts.key, c.key);
    EXPECT_EQ(parts.hash, 0x0123456789abcdefull);
    EXPECT_EQ(parts.queueNumber, c.number);
  }
  // Whatever QueueObjectName writes parses back to its parts.
  for (const int number : {0, 7, -1, INT_MAX, INT_MIN}) {
    for (const char* key : std::vector<const char*>{"/bin/ping", "", "a.b c", nullptr}) {
      QueueNameParts parts;
      ASSERT_TRUE(queue::ParseQueueObjectName(QueueObjectName(number, key), parts));
      EXPECT_EQ(parts.queueNumber, number);
      EXPECT_EQ(parts.uid, static_cast<std::uint32_t>(geteuid()));
    }
  }
  QueueNameParts parts;
  ASSERT_TRUE(queue::ParseQueueObjectName(QueueObjectName(3, "/bin/ping"), parts));
  EXPECT_EQ(parts.key, "_bin_ping");
}

TEST(QueueObjectNames, OperatorsMayNameAnObjectAsListedOrAsAFile) {
  const std::string object = "/conflink.7.k." + kHash + ".1";
  for (const std::string& text : {object, object.substr(1), "/dev/shm" + object}) {
    std::string resolved, error;
    EXPECT_TRUE(queue::ResolveQueueObjectName(text, resolved, error)) << text;
    EXPECT_EQ(resolved, object);
  }
  std::string resolved, error;
  EXPECT_FALSE(queue::ResolveQueueObjectName("/dev/shm/pulse-shm-1", resolved, error));
  EXPECT_NE(error.find("not the name of a queue"), std::string::npos) << error;
}

TEST(QueueList, ShowsTheUsersQueuesOnly) {
  TestQueueName name;
  auto q = name.Open();
  ASSERT_TRUE(q->IsConnected()) << q->LastError();
  // Named for another user, and a name of another program: neither is listed.
  const std::string other = "/conflink." + std::to_string(geteuid() + 1) + ".inspect-" +
                            std::to_string(getpid()) + "." + kHash + ".1";
  const std::string foreign = "/conflink-inspect-test-" + std::to_string(getpid());
  RawObject otherUsers(other, 4096), foreigner(foreign, 4096);
  ASSERT_TRUE(otherUsers.ok() && foreigner.ok());

  std::vector<queue::ListedQueue> queues;
  std::string error;
  ASSERT_TRUE(queue::ListQueues(queues, error)) << error;
  int found = 0;
  for (const auto& listed : queues) {
    EXPECT_NE(listed.objectName, other);
    EXPECT_NE(listed.objectName, foreign);
    EXPECT_EQ(listed.parts.uid, static_cast<std::uint32_t>(geteuid()));
    if (listed.objectName != name.Object()) continue;
    ++found;
    EXPECT_EQ(listed.parts.queueNumber, name.number());
    EXPECT_EQ(listed.objectBytes, SegmentBytes(kTestCapacity));
  }
  EXPECT_EQ(found, 1);
}

TEST(QueueInspect, ALonePartyOnAnEmptyQueue) {
  TestQueueName name;
  auto q = name.Open();
  ASSERT_TRUE(q->IsConnected()) << q->LastError();
  const QueueReport r = Inspect(name);
  EXPECT_TRUE(r.nameParsed);
  EXPECT_EQ(r.parts.queueNumber, name.number());
  EXPECT_EQ(r.capacity, kTestCapacity);
  EXPECT_EQ(r.objectBytes, SegmentBytes(kTestCapacity));
  EXPECT_EQ(r.mode, 0600u);
  EXPECT_TRUE(r.place[0].attached && r.place[0].alive);
  EXPECT_EQ(r.place[0].generation, 1u);
  EXPECT_FALSE(r.place[1].attached || r.place[1].alive);
  EXPECT_FALSE(r.place[0].sleeping());
  for (const auto& ring : r.ring) {
    EXPECT_TRUE(ring.indicesValid && ring.walkComplete);
    EXPECT_EQ(ring.pendingBytes, 0u);
    EXPECT_EQ(ring.freeBytes, kTestCapacity);
  }
  EXPECT_TRUE(r.findings.empty()) << Findings(r);
}

TEST(QueueInspect, PendingMessagesInEachDirectionAndAPartyThatLeft) {
  TestQueueName name;
  auto a = name.Open();  // place 0, sends on ring 0
  auto b = name.Open();  // place 1, sends on ring 1
  ASSERT_TRUE(a->IsConnected() && b->IsConnected());
  struct Sent {
    int ring;
    std::size_t bytes;
  };
  const std::vector<Sent> sends = {{0, 100}, {0, 0}, {1, 5000}, {0, 31}, {1, 1}};
  std::uint32_t pending[2] = {0, 0}, count[2] = {0, 0}, records[2] = {0, 0};
  for (const Sent& s : sends) {
    ASSERT_EQ(SendText(s.ring == 0 ? *a : *b, 40, Pattern(s.bytes, 1)), kQueueOk);
    // 5000 bytes travel in three records of at most kTestRecordBytes, headers included.
    const std::uint32_t payload = kTestRecordBytes - queue::kRecordHeaderBytes;
    const std::uint32_t n =
        s.bytes == 0 ? 1 : static_cast<std::uint32_t>((s.bytes + payload - 1) / payload);
    pending[s.ring] += n * queue::kRecordHeaderBytes + static_cast<std::uint32_t>(s.bytes);
    ++count[s.ring];
    records[s.ring] += n;
  }
  QueueReport r = Inspect(name);
  for (int i = 0; i < 2; ++i) {
    SCOPED_TRACE(i);
    EXPECT_TRUE(r.place[i].attached && r.place[i].alive);
    EXPECT_EQ(r.ring[i].pendingBytes, pending[i]);
    EXPECT_EQ(r.ring[i].freeBytes, kTestCapacity - pending[i]);
    EXPECT_EQ(r.ring[i].pendingMessages, count[i]);
    EXPECT_EQ(r.ring[i].pendingRecords, records[i]);
    EXPECT_EQ(r.ring[i].messageSeq, count[i]);
    EXPECT_EQ(r.ring[i].abandonedSeq, 0u);
  }
  EXPECT_TRUE(r.findings.empty()) << Findings(r);

  b.reset();  // leaves properly: its place is free, its messages stay for the next comer
  r = Inspect(name);
  EXPECT_FALSE(r.place[1].attached || r.place[1].alive);
  EXPECT_EQ(r.place[1].generation, 1u);
  EXPECT_EQ(r.ring[1].pendingBytes, pending[1]);
  EXPECT_EQ(r.ring[0].pendingBytes, pending[0]);
  EXPECT_TRUE(r.findings.empty()) << Findings(r);

  b = name.Open();  // the place's next holder is its second generation
  ASSERT_TRUE(b->IsConnected());
  r = Inspect(name);
  EXPECT_TRUE(r.place[1].attached && r.place[1].alive);
  EXPECT_EQ(r.place[1].generation, 2u);
}

TEST(QueueInspect, AMessageInFragmentsCountsOnce) {
  TestQueueName name;
  auto q = name.Open();
  ASSERT_TRUE(q->IsConnected());
  ASSERT_EQ(SendText(*q, 1, "whole"), kQueueOk);
  // Fragments as a sender writes them while the ring is short of room: first, middle, last.
  Tamper t(name.Object());
  ASSERT_TRUE(t.ok());
  std::uint32_t head = t.seg().producer[0].head.load();
  const std::string part(10, 'p');
  for (const std::uint32_t flags : {queue::kRecordFirst, 0u, queue::kRecordLast}) {
    const queue::RecordHeader h{queue::kRecordMarker | flags, 2, 9, 30, 10};
    head = t.Ring(0).WriteRecord(head, h, part.data());
  }
  t.seg().producer[0].head.store(head);
  const QueueReport r = Inspect(name);
  EXPECT_EQ(r.ring[0].pendingRecords, 4u);
  EXPECT_EQ(r.ring[0].pendingMessages, 2u);
  EXPECT_EQ(r.ring[0].pendingBytes, 4 * queue::kRecordHeaderBytes + 5 + 30);
  EXPECT_TRUE(r.findings.empty()) << Findings(r);
}

TEST(QueueInspect, AKilledPartyIsAttachedButNotAlive) {
  TestQueueName name;
  Pace attached, never;
  ChildProcess child([&] {
    auto mine = name.Open();
    if (!mine->IsConnected() || SendText(*mine, 5, "last words") != kQueueOk) return 1;
    attached.Signal();
    never.Await(30000);
    return 2;
  });
  ASSERT_EQ(attached.Await(), 'x');
  QueueReport r = Inspect(name);
  EXPECT_TRUE(r.place[0].attached && r.place[0].alive);
  child.stop();
  EXPECT_EQ(child.wait(), 128 + SIGKILL);
  r = Inspect(name);
  EXPECT_TRUE(r.place[0].attached);
  EXPECT_FALSE(r.place[0].alive);
  EXPECT_EQ(r.ring[0].pendingBytes, queue::kRecordHeaderBytes + 10);
  EXPECT_TRUE(HasFinding(r, "ended without leaving")) << Findings(r);
}

// What was sent to a process that then died is shown as queued for a process that has left;
// once the departure is known, a send to it is refused and counted, and what its successor
// drops on arrival is counted too.
TEST(QueueInspect, MessagesForAProcessThatLeftAreShownAndCounted) {
  TestQueueName name;
  auto server = name.Open();
  Pace attached, never;
  ChildProcess page([&] {
    auto mine = name.Open();
    attached.Signal();
    never.Await(30000);
    return 2;
  });
  ASSERT_EQ(attached.Await(), 'x');
  ASSERT_EQ(ReceiveType(*server), kQueueEventPeerConnected);
  page.stop();
  EXPECT_EQ(page.wait(), 128 + SIGKILL);
  // Its attach word still says attached: the answer goes into the ring, for the dead page.
  ASSERT_EQ(SendText(*server, 266, "answer"), kQueueOk);
  QueueReport r = Inspect(name);
  EXPECT_EQ(r.ring[0].pendingForDeparted, 1u);
  EXPECT_TRUE(HasFinding(r, "queued for a process that has left")) << Findings(r);
  ASSERT_EQ(ReceiveType(*server), kQueueEventPeerDisconnected);
  auto next = name.Open();
  EXPECT_EQ(ReceiveType(*next), kQueueEventPeerConnected);
  EXPECT_EQ(ReceiveType(*next, nullptr, 200), kNothing) << "the dead page's answer";
  EXPECT_EQ(next->DiscardedMessages(), 1u);
  // The next page leaves before the server has received its departure: refused at once.
  ASSERT_EQ(ReceiveType(*server), kQueueEventPeerConnected);
  next.reset();
  EXPECT_EQ(SendText(*server, 266, "answer"), kQueuePeerDeparted);
  r = Inspect(name);
  EXPECT_EQ(r.ring[0].pendingForDeparted, 0u);
  EXPECT_EQ(r.ring[0].discarded, 1u);
  EXPECT_EQ(r.ring[0].refused, 1u);
}

TEST(QueueInspect, IsInvisibleToTheParties) {
  TestQueueName name;
  auto q = name.Open();
  ASSERT_TRUE(q->IsConnected());
  Tamper view(name.Object());
  ASSERT_TRUE(view.ok());
  const std::string before = view.Bytes();
  for (int i = 0; i < 20; ++i) Inspect(name);
  EXPECT_TRUE(view.Bytes() == before) << "an inspection changed a byte of the object";

  // Inspections running all the time: the lone party never sees a peer, and a party that
  // arrives meanwhile still attaches.
  std::atomic<bool> stop{false};
  std::atomic<int> inspections{0};
  std::thread inspector([&] {
    QueueReport r;
    std::string error;
    while (!stop.load()) {
      if (InspectQueue(name.Object(), r, error)) ++inspections;
      std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
  });
  const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(300);
  bool sawPeer = false;
  while (std::chrono::steady_clock::now() < until) {
    sawPeer = sawPeer || q->IsPartyOnline() != 0 || ReceiveType(*q, nullptr, 1) != kNothing;
  }
  auto arriving = name.Open();
  stop = true;
  inspector.join();
  EXPECT_FALSE(sawPeer);
  EXPECT_GT(inspections.load(), 0);
  EXPECT_EQ(arriving->IsConnected(), 1) << arriving->LastError();
  EXPECT_EQ(ReceiveType(*q), kQueueEventPeerConnected);
}

TEST(QueueInspect, ObjectsThatAreNoQueueAreRefusedWithTheReason) {
  struct Case {
    const char* what;
    std::uint64_t bytes;
    std::function<void(RawObject&)> fill;
    std::string error;
  };
  const std::uint32_t cap = 64;
  const std::uint32_t size = static_cast<std::uint32_t>(SegmentBytes(cap));
  const std::uint32_t V = queue::kLayoutVersion;
  const auto header = [](std::uint32_t magic, std::uint32_t version, std::uint32_t capacity,
                         std::uint32_t segmentBytes) {
    return [=](RawObject& o) { o.Header(magic, version, capacity, segmentBytes); };
  };
  const std::vector<Case> cases = {
      {"empty object", 0, [](RawObject&) {}, "is empty"},
      {"shorter than the control blocks", 100, header(queue::kLayoutMagic, V, cap, size),
       "is truncated"},
      {"wrong magic", size, header(0xdeadbeef, V, cap, size), "is not a queue: magic 0xdeadbeef"},
      {"magic never stored", size, header(0, V, cap, size), "is not a queue"},
      {"another layout version", size, header(queue::kLayoutMagic, V + 1, cap, size),
       "layout version " + std::to_string(V + 1)},
      {"capacity below the least", size, header(queue::kLayoutMagic, V, 10, size),
       "capacity 10, outside"},
      {"capacity above the most", size, header(queue::kLayoutMagic, V, kMaxQueueCapacity + 1, size),
       "outside"},
      {"capacity larger than the object", size,
       header(queue::kLayoutMagic, V, 65536, static_cast<std::uint32_t>(SegmentBytes(65536))),
       "is truncated: a capacity of 65536"},
      {"size in the header disagrees", size, header(queue::kLayoutMagic, V, cap, size + 64),
       "gives its size as"},
      {"object larger than its header says", size + 4096, header(queue::kLayoutMagic, V, cap, size),
       "its header says"},
      {"object larger than any queue", SegmentBytes(kMaxQueueCapacity) + 1,
       header(queue::kLayoutMagic, V, cap, size), "larger than any queue"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    TestQueueName name;
    RawObject object(name.Object(), c.bytes);
    ASSERT_TRUE(object.ok());
    c.fill(object);
    QueueReport report;
    std::string error;
    EXPECT_FALSE(InspectQueue(name.Object(), report, error));
    EXPECT_NE(error.find(c.error), std::string::npos) << error;
    EXPECT_EQ(report.objectBytes, c.bytes);
    EXPECT_FALSE(report.place[0].alive || report.place[1].alive);
  }
  QueueReport report;
  std::string error;
  EXPECT_FALSE(InspectQueue("/conflink-inspect-test-absent", report, error));
  EXPECT_NE(error.find("cannot open"), std::string::npos) << error;
}

TEST(QueueInspect, DamagedIndicesAndRecordsAreFindings) {
  struct Case {
    const char* what;
    std::function<void(Tamper&, std::uint32_t victim)> damage;
    const char* finding;
    bool indicesValid;
  };
  const queue::RingIndex index(kTestCapacity);
  const std::vector<Case> cases = {
      {"head outside the index range",
       [](Tamper& t, std::uint32_t) { t.seg().producer[0].head.store(0xfffffff0u); },
       "head 4294967280 is outside", false},
      {"tail outside the index range",
       [](Tamper& t, std::uint32_t) { t.seg().consumer[0].tail.store(2 * kTestCapacity); },
       "tail 65536 is outside", false},
      {"head more than a ring ahead",
       [&](Tamper& t, std::uint32_t v) {
         t.seg().producer[0].head.store(index.Advance(index.Advance(v, kTestCapacity), 8));
       },
       "more than the capacity", false},
      {"record marker destroyed",
       [](Tamper& t, std::uint32_t v) {
         const std::uint32_t zero = 0;
         t.Ring(0).CopyIn(v, &zero, 4);
       },
       "no valid marker", true},
      {"record length past the head",
       [&](Tamper& t, std::uint32_t v) {
         const std::uint32_t length = 0x7fffffffu;
         t.Ring(0).CopyIn(index.Advance(v, 16), &length, 4);
       },
       "runs past the published bytes", true},
      {"head inside a record header",
       [&](Tamper& t, std::uint32_t v) { t.seg().producer[0].head.store(index.Advance(v, 7)); },
       "fewer bytes published than a record header", true},
      {"epoch start outside the index range",
       [](Tamper& t, std::uint32_t) { t.seg().producer[0].epochStart.store(0x80000000u); },
       "epoch start", true},
      {"waiting word no party writes",
       [](Tamper& t, std::uint32_t) { t.seg().party[0].waiting.store(77); }, "waiting word 77",
       true},
      {"attach word cleared under a live party",
       [](Tamper& t, std::uint32_t) { t.seg().party[0].attach.store(2); },
       "its lock is held but its attach word says free", true},
  };
  int number = 100;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    TestQueueName name(number++);
    auto q = name.Open();
    ASSERT_TRUE(q->IsConnected());
    ASSERT_EQ(SendText(*q, 1, "ahead"), kQueueOk);
    Tamper t(name.Object());
    ASSERT_TRUE(t.ok());
    const std::uint32_t victim = t.seg().producer[0].head.load();
    ASSERT_EQ(SendText(*q, 2, "victim!"), kQueueOk);
    c.damage(t, victim);
    const QueueReport r = Inspect(name);
    EXPECT_TRUE(HasFinding(r, c.finding)) << Findings(r);
    EXPECT_EQ(r.ring[0].indicesValid, c.indicesValid);
    EXPECT_TRUE(r.ring[1].indicesValid && r.ring[1].walkComplete);
    q.reset();
  }
}

TEST(QueueInspect, GarbageInEveryWordNeverReadsOutsideTheObject) {
  TestQueueName name;
  const std::uint32_t cap = kMinQueueCapacity;
  const auto size = static_cast<std::uint32_t>(SegmentBytes(cap));
  RawObject object(name.Object(), size);
  ASSERT_TRUE(object.ok());
  std::uint32_t x = 12345;
  int recordsRead = 0;
  for (int round = 0; round < 300; ++round) {
    for (std::size_t i = 0; i < object.mapped(); ++i) {
      x = x * 1664525u + 1013904223u;
      object.data()[i] = static_cast<unsigned char>(x >> 24);
    }
    // Small indices now and then, so that some walks find records to read.
    const std::size_t words = sizeof(Segment) / 4;
    for (std::size_t w = 4; w < words; ++w) {
      x = x * 1664525u + 1013904223u;
      if ((x >> 31) != 0) object.Word(4 * w, (x >> 8) % (3 * cap));
    }
    object.Header(queue::kLayoutMagic, queue::kLayoutVersion, cap, size);
    QueueReport report;
    std::string error;
    ASSERT_TRUE(InspectQueue(name.Object(), report, error)) << error;
    if (HasFinding(report, "record at index")) ++recordsRead;
  }
  EXPECT_GT(recordsRead, 0) << "no round put a record between tail and head";
}

TEST(QueueRemove, RefusedOnlyWhileALivePartyHoldsTheQueue) {
  struct Holders {
    std::unique_ptr<CyclicMessageQueue> party;
    std::unique_ptr<ChildProcess> child;
  };
  struct Case {
    const char* what;
    std::function<void(const TestQueueName&, Holders&)> setup;
    bool force;
    bool removed;
    const char* error;
  };
  const std::vector<Case> cases = {
      {"a live party holds it", [](const TestQueueName& n, Holders& h) { h.party = n.Open(); },
       false, false, "held by a live party (place 0)"},
      {"a live party holds it, forced",
       [](const TestQueueName& n, Holders& h) { h.party = n.Open(); }, true, true, ""},
      {"nobody holds it, messages left by a killed party",
       [](const TestQueueName& n, Holders& h) {
         h.child = std::make_unique<ChildProcess>([&n] {
           auto q = n.Open();
           SendText(*q, 1, "for nobody");
           raise(SIGKILL);
           return 1;
         });
         h.child->wait();
       },
       false, true, ""},
      {"its holder was killed",
       [](const TestQueueName& n, Holders& h) {
         Pace attached;
         h.child = std::make_unique<ChildProcess>([&n, &attached] {
           auto q = n.Open();
           attached.Signal();
           pause();
           return 1;
         });
         attached.Await();
         h.child->stop();
       },
       false, true, ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    TestQueueName name;
    Holders holders;
    c.setup(name, holders);
    ASSERT_TRUE(name.ObjectExists());
    RemoveOutcome outcome;
    std::string error;
    EXPECT_EQ(RemoveQueue(name.Object(), c.force, outcome, error), c.removed) << error;
    EXPECT_NE(error.find(c.error), std::string::npos) << error;
    EXPECT_EQ(name.ObjectExists(), !c.removed);
    EXPECT_EQ(outcome.livePlace[0], holders.party != nullptr);
  }
  RemoveOutcome outcome;
  std::string error;
  EXPECT_FALSE(RemoveQueue("/pulse-shm-1", true, outcome, error));
  EXPECT_NE(error.find("not the name of a queue"), std::string::npos) << error;
  EXPECT_FALSE(RemoveQueue(QueueObjectName(1, "/conflink/absent"), false, outcome, error));
  EXPECT_NE(error.find("cannot open"), std::string::npos) << error;
}

}  // namespace
}  // namespace conflink::testing
