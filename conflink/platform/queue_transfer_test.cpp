// Messages between two processes: sizes from empty to many times the ring, order, both
// directions at once, and a stress of many small messages.
#include <sched.h>
#include <sys/resource.h>

#include <gtest/gtest.h>

#include <chrono>
#include <thread>
#include <vector>

#include <conflink/platform/queue_ring.h>
#include <conflink/platform/queue_test_support.h>

namespace conflink::testing {
namespace {

// The first thing a party receives when its peer is already there, or arrives.
bool AwaitPeer(CyclicMessageQueue& q) {
  return ReceiveType(q) == kQueueEventPeerConnected;
}

// Both parties send 4 MiB to each other at the same moment: each must keep taking while it
// waits for room, or both wait forever. (Whether anything of the peer's message has arrived when
// a send returns depends on the timing: a slow peer may take the whole message before it writes.)
TEST(QueueTransfer, LargeMessagesCrossingEachOtherBothComplete) {
  TestQueueName name;
  constexpr std::size_t kSize = 4u << 20;
  Pace go;
  ChildProcess child([&] {
    auto q = name.Open();
    if (!AwaitPeer(*q) || go.Await() == 0) return 1;
    std::string out = Pattern(kSize, 2);
    const int type = 2;
    if (q->Send(&type, &out) != kQueueOk) return 2;
    std::string in;
    if (ReceiveType(*q, &in, 20000) != 1 || in != Pattern(kSize, 1)) return 3;
    return ReceiveType(*q, nullptr, 20000) == kQueueEventPeerDisconnected ? 0 : 4;
  });
  auto q = name.Open();
  ASSERT_TRUE(AwaitPeer(*q));
  go.Signal();
  std::string out = Pattern(kSize, 1);
  const int type = 1;
  ASSERT_EQ(q->Send(&type, &out), kQueueOk) << q->LastError();
  std::string in;
  ASSERT_EQ(ReceiveType(*q, &in, 20000), 2);
  EXPECT_TRUE(in == Pattern(kSize, 2));
  q.reset();
  EXPECT_EQ(child.wait(), 0);
}

// Many messages of mixed sizes each way, sent and taken in interleaved bursts: every one
// arrives once, in order, intact, and nobody stalls (a lost wake-up would stall a side until
// its timeout, and the whole run is bounded).
TEST(QueueTransfer, ManySmallMessagesBothWaysNeverStall) {
  TestQueueName name;
  constexpr int kCount = 20000;
  auto sizeOf = [](int i) -> std::size_t {
    return i % 997 == 0 ? 2 * kTestCapacity + static_cast<std::size_t>(i % 13) : i % 61;
  };
  // Sends kCount messages, taking whatever arrives in between; then takes the rest. Returns 0
  // when everything from the peer arrived in order and intact.
  auto exchange = [&](CyclicMessageQueue& q, std::uint32_t mine, std::uint32_t theirs) {
    int received = 0;
    auto take = [&](int ms) {
      // Once everything has arrived, what follows is the peer's closing message, which the
      // caller takes after the exchange: the peer may send it while this side still drains.
      if (received == kCount) return 0;
      int type = 0;
      std::string data;
      const int r = ms == 0 ? q.PeekMessage(&type, &data) : q.ReceiveFor(&type, &data, ms);
      if (r != kQueueOk) return r == kQueueEmpty ? 0 : -1;
      if (type == kQueueEventPeerConnected || type == kQueueEventPeerDisconnected) return 1;
      if (type != received ||
          data != Pattern(sizeOf(received), theirs * 100000u + static_cast<std::uint32_t>(type)))
        return -1;
      ++received;
      return 1;
    };
    for (int i = 0; i < kCount; ++i) {
      std::string data = Pattern(sizeOf(i), mine * 100000u + static_cast<std::uint32_t>(i));
      if (q.Send(&i, &data) != kQueueOk) return 10;
      while (true) {
        const int r = take(0);
        if (r < 0) return 11;
        if (r == 0) break;
      }
    }
    while (received < kCount) {
      if (take(10000) <= 0) return 12;
    }
    return 0;
  };
  ChildProcess child(
      [&] {
        auto q = name.Open();
        if (!AwaitPeer(*q)) return 1;
        const int r = exchange(*q, 2, 1);
        // Stay until the parent has taken everything.
        return r != 0 ? r : ReceiveType(*q, nullptr, 30000) == 99 ? 0 : 13;
      },
      120);
  auto q = name.Open();
  ASSERT_TRUE(AwaitPeer(*q));
  EXPECT_EQ(exchange(*q, 1, 2), 0) << q->LastError();
  const int done = 99;
  std::string none;
  EXPECT_EQ(q->Send(&done, &none), kQueueOk);
  EXPECT_EQ(child.wait(120000), 0);
}

// Request and answer after pauses of every length: after a long one each side wakes a sleeping
// peer and goes to sleep at once to give it its processor, and the peer's answer wakes it in
// turn. Every answer must come, in order, and none may wait for the sleeper's timeout (a lost
// wake-up costs a 100 ms slice; the bound allows far fewer than one per ten rounds).
TEST(QueueTransfer, PingPongAfterPausesNeverLosesAWakeUp) {
  TestQueueName name;
  constexpr int kRounds = 400;
  constexpr int kPauseUs[] = {0, 0, 40, 150, 400, 1500};
  ChildProcess child([&] {
    auto q = name.Open();
    if (!AwaitPeer(*q)) return 1;
    for (int i = 0; i < kRounds; ++i) {
      std::string data;
      if (ReceiveType(*q, &data, 10000) != i || data != Pattern(16, static_cast<std::uint32_t>(i)))
        return 2;
      if (i % 3 == 0) usleep(static_cast<useconds_t>(kPauseUs[i % 6] / 2));
      if (q->Send(&i, &data) != kQueueOk) return 3;
    }
    return 0;
  });
  auto q = name.Open();
  ASSERT_TRUE(AwaitPeer(*q));
  const auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < kRounds; ++i) {
    usleep(static_cast<useconds_t>(kPauseUs[i % 6]));
    std::string data = Pattern(16, static_cast<std::uint32_t>(i));
    ASSERT_EQ(q->Send(&i, &data), kQueueOk) << q->LastError();
    std::string answer;
    ASSERT_EQ(ReceiveType(*q, &answer, 10000), i);
    ASSERT_EQ(answer, data);
  }
  const auto elapsed = std::chrono::steady_clock::now() - start;
  EXPECT_LT(elapsed, std::chrono::seconds(4)) << "answers waited for the sleepers' timeouts";
  EXPECT_EQ(child.wait(), 0);
}

// Keeps this process, and the children it forks meanwhile, on one processor (the first it may
// use) until it goes.
class PinnedToOneProcessor {
 public:
  PinnedToOneProcessor() {
    if (sched_getaffinity(0, sizeof before_, &before_) != 0) return;
    cpu_set_t one;
    CPU_ZERO(&one);
    for (int cpu = 0; cpu < CPU_SETSIZE; ++cpu) {
      if (CPU_ISSET(cpu, &before_)) {
        CPU_SET(cpu, &one);
        break;
      }
    }
    ok_ = sched_setaffinity(0, sizeof one, &one) == 0;
  }
  ~PinnedToOneProcessor() {
    if (ok_) sched_setaffinity(0, sizeof before_, &before_);
  }
  PinnedToOneProcessor(const PinnedToOneProcessor&) = delete;
  PinnedToOneProcessor& operator=(const PinnedToOneProcessor&) = delete;
  bool ok() const { return ok_; }

 private:
  cpu_set_t before_{};
  bool ok_ = false;
};

// Two parties on one processor (as a busy machine often places them) hand it to each other for
// every message, whether they wait (Receive) or poll (PeekMessage). A waiting party yields to its
// runnable peer instead of sleeping on its bell: counted in voluntary context switches, which only
// sleeping makes, before the hand-over each round trip cost each party one. A poll that finds
// nothing yields once: before, each poller polled through its whole time slice while the other,
// which alone could answer, waited, and the round trips took seconds (the deadline only bounds
// such a run).
TEST(QueueTransfer, PartiesSharingOneProcessorHandItOver) {
  PinnedToOneProcessor pinned;
  if (!pinned.ok()) GTEST_SKIP() << "cannot pin to one processor";
  auto sleeps = [] {
    rusage usage{};
    getrusage(RUSAGE_THREAD, &usage);
    return static_cast<int>(usage.ru_nvcsw);
  };
  constexpr int kRounds = 2000;
  constexpr int kWarmUp = 100;
  for (const bool polling : {false, true}) {
    SCOPED_TRACE(polling ? "polling" : "waiting");
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(3);
    auto take = [&](CyclicMessageQueue& q, std::string* data) {  // the type, or kNothing
      if (!polling) return ReceiveType(q, data, 3000);
      while (std::chrono::steady_clock::now() < deadline) {
        int type = kNothing;
        const int result = q.PeekMessage(&type, data);
        if (result != kQueueEmpty) return result == kQueueOk ? type : kNothing;
      }
      return kNothing;
    };
    TestQueueName name;
    ChildProcess child([&] {  // answers, then reports how often it slept while answering
      auto q = name.Open();
      if (!AwaitPeer(*q)) return 1;
      int start = 0;
      for (int i = 0; i < kWarmUp + kRounds; ++i) {
        if (i == kWarmUp) start = sleeps();
        std::string data;
        if (take(*q, &data) != i || q->Send(&i, &data) != kQueueOk) return 2;
      }
      int slept = sleeps() - start;
      std::string none;
      return q->Send(&slept, &none) == kQueueOk ? 0 : 3;
    });
    auto q = name.Open();
    ASSERT_TRUE(AwaitPeer(*q));
    int start = 0;
    int done = 0;
    for (; done < kWarmUp + kRounds; ++done) {
      if (done == kWarmUp) start = sleeps();
      std::string data = Pattern(16, static_cast<std::uint32_t>(done));
      ASSERT_EQ(q->Send(&done, &data), kQueueOk) << q->LastError();
      std::string answer;
      if (take(*q, &answer) != done) break;
      ASSERT_EQ(answer, data);
    }
    EXPECT_EQ(done, kWarmUp + kRounds) << "round trips done in 3 s";
    const int slept = sleeps() - start;
    const int answererSlept = ReceiveType(*q);
    EXPECT_EQ(child.wait(), 0);
    if (!polling) {
      EXPECT_LT(slept, kRounds / 10) << "the asking party slept " << slept << " times";
      EXPECT_LT(answererSlept, kRounds / 10)
          << "the answering party slept " << answererSlept << " times";
    }
  }
}

// Misuse is refused with its own code and leaves the queue working.
TEST(QueueTransfer, RefusesWhatItCannotCarry) {
  TestQueueName name;
  auto a = name.Open();
  auto b = name.Open();
  ASSERT_TRUE(a->IsConnected() && b->IsConnected());
  int type = 1;
  std::string huge(kMaxQueueMessageBytes + 1, 'h');
  EXPECT_EQ(a->Send(&type, &huge), kQueueTooLarge);
  EXPECT_NE(std::string(a->LastError()).find("exceeds"), std::string::npos);
  huge = std::string();
  std::string text = "ok";
  for (int reserved : {kQueueEventPeerConnected, kQueueEventPeerDisconnected}) {
    EXPECT_EQ(a->Send(&reserved, &text), kQueueBadArgument);
  }
  EXPECT_EQ(a->Send(nullptr, &text), kQueueBadArgument);
  EXPECT_EQ(b->Receive(&type, nullptr), kQueueBadArgument);
  EXPECT_EQ(a->Send(&type, &text), kQueueOk);
  EXPECT_EQ(ReceiveType(*b), kQueueEventPeerConnected);
  EXPECT_EQ(ReceiveType(*b, &text), 1);
  EXPECT_EQ(text, "ok");
}

// The accounting calls follow the bytes: free space shrinks by record and header, pending bytes
// grow on the other side and vanish when taken.
TEST(QueueTransfer, FreeAndPendingBytesFollowTheRing) {
  TestQueueName name;
  auto a = name.Open();
  auto b = name.Open();
  EXPECT_EQ(a->Capacity(), kTestRecordBytes);
  EXPECT_EQ(a->FreeBytes(), kTestCapacity);
  std::string text(100, 'p');
  const int type = 3;
  ASSERT_EQ(a->Send(&type, &text), kQueueOk);
  EXPECT_EQ(a->FreeBytes(), kTestCapacity - 100 - queue::kRecordHeaderBytes);
  EXPECT_GE(b->PendingBytes(), 100u);
  EXPECT_EQ(ReceiveType(*b), kQueueEventPeerConnected);
  EXPECT_EQ(ReceiveType(*b), 3);
  EXPECT_EQ(b->PendingBytes(), 0u);
  EXPECT_EQ(a->FreeBytes(), kTestCapacity);
}

// A record, header included, is at most the capacity the queue was opened with: a message one
// byte longer than what fits takes a second record and its header.
TEST(QueueTransfer, MessagesTakeOneRecordPerCapacity) {
  TestQueueName name;
  auto a = name.Open();
  auto b = name.Open();
  constexpr std::uint32_t kHeader = queue::kRecordHeaderBytes;
  const struct {
    std::uint32_t size, ringBytes;
  } cases[] = {
      {0, kHeader},
      {kTestRecordBytes - kHeader, kTestRecordBytes},
      {kTestRecordBytes - kHeader + 1, kTestRecordBytes + 1 + kHeader},
      {3 * (kTestRecordBytes - kHeader), 3 * kTestRecordBytes},
  };
  int type = 1;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.size);
    std::string message = Pattern(c.size, c.size);
    ASSERT_EQ(a->Send(&type, &message), kQueueOk);
    EXPECT_EQ(a->FreeBytes(), kTestCapacity - c.ringBytes);
    std::string in;
    int got = ReceiveType(*b, &in);
    if (got == kQueueEventPeerConnected) got = ReceiveType(*b, &in);
    EXPECT_EQ(got, type);
    EXPECT_TRUE(in == message);
    EXPECT_EQ(a->FreeBytes(), kTestCapacity);
  }
}

// Two queue objects of one process, driven from two threads: the in-process view of the same
// protocol (and what the thread sanitizer can follow).
TEST(QueueTransfer, TwoThreadsOfOneProcessExchange) {
  TestQueueName name;
  auto a = name.Open();
  auto b = name.Open();
  constexpr int kCount = 2000;
  int failures = 0;
  std::thread reader([&] {
    for (int i = 0; i < kCount; ++i) {
      std::string data;
      int type = ReceiveType(*b, &data);
      if (type == kQueueEventPeerConnected) type = ReceiveType(*b, &data);
      if (type != i || data != Pattern(static_cast<std::size_t>(i % 3000), i)) ++failures;
    }
  });
  for (int i = 0; i < kCount; ++i) {
    std::string data = Pattern(static_cast<std::size_t>(i % 3000), i);
    ASSERT_EQ(a->Send(&i, &data), kQueueOk);
  }
  reader.join();
  EXPECT_EQ(failures, 0);
}

// The receiver keeps one buffer for every receive, as the messengers do. Messages its own
// blocked send took in are handed out first, then those still in the ring; each comes back
// exactly, whether shorter than the one before, in fragments after larger fragments, or empty,
// and an event leaves the buffer empty.
TEST(QueueTransfer, OneReusedBufferGetsEveryMessageExactlyAndInOrder) {
  TestQueueName name;
  auto a = name.Open();
  auto b = name.Open();
  const std::size_t cap = kTestCapacity;
  // The first kEarly are in b's ring before b sends; the rest are sent after.
  constexpr int kEarly = 5;
  const std::vector<std::size_t> sizes = {
      20000, 3, 0, 5000, 1, 7, 3 * cap + 5, 10, cap - 20, 0, 2 * cap, 2 * cap - 100, 1};
  auto message = [&](int i) { return Pattern(sizes[i], 300 + static_cast<std::uint32_t>(i)); };
  auto send = [&](int i) {
    std::string data = message(i);
    return a->Send(&i, &data);
  };
  for (int i = 0; i < kEarly; ++i) ASSERT_EQ(send(i), kQueueOk);

  // More than b's ring holds: b takes the early messages before its first fragment, however
  // quickly a reads.
  int sent = kQueueEmpty;
  std::thread blocked([&] {
    std::string big = Pattern(4 * cap, 9);
    const int type = 50;
    sent = b->Send(&type, &big);
  });
  std::string big;
  EXPECT_EQ(ReceiveType(*a), kQueueEventPeerConnected);
  EXPECT_EQ(ReceiveType(*a, &big), 50);
  blocked.join();
  ASSERT_EQ(sent, kQueueOk) << b->LastError();
  EXPECT_TRUE(big == Pattern(4 * cap, 9));
  ASSERT_EQ(a->FreeBytes(), cap) << "b took the early messages while it waited";

  std::thread later([&] {
    for (int i = kEarly; i < static_cast<int>(sizes.size()); ++i)
      if (send(i) != kQueueOk) return;
    a.reset();
  });
  int type = 0;
  std::string buffer = "stale";
  ASSERT_EQ(b->ReceiveFor(&type, &buffer, 5000), kQueueOk);
  EXPECT_EQ(type, kQueueEventPeerConnected);
  EXPECT_TRUE(buffer.empty());
  for (int i = 0; i < static_cast<int>(sizes.size()); ++i) {
    ASSERT_EQ(b->ReceiveFor(&type, &buffer, 5000), kQueueOk) << i << ": " << b->LastError();
    EXPECT_EQ(type, i);
    EXPECT_EQ(buffer.size(), sizes[i]) << i;
    EXPECT_TRUE(buffer == message(i)) << "content of message " << i;
  }
  later.join();
  ASSERT_EQ(b->ReceiveFor(&type, &buffer, 5000), kQueueOk);
  EXPECT_EQ(type, kQueueEventPeerDisconnected);
  EXPECT_TRUE(buffer.empty());
}

class TransferBySize : public ::testing::TestWithParam<std::size_t> {};

TEST_P(TransferBySize, ArrivesWholeAndByteIdentical) {
  TestQueueName name;
  const std::size_t size = GetParam();
  ChildProcess child([&] {
    auto q = name.Open();
    if (!q->IsConnected() || !AwaitPeer(*q)) return 1;
    for (std::uint32_t seed = 1; seed <= 2; ++seed) {
      std::string message = Pattern(size, seed);
      const int type = static_cast<int>(seed) + 100;
      if (q->Send(&type, &message) != kQueueOk) return 2;
    }
    // Stay until the parent has everything: the last message may still be in the ring.
    return ReceiveType(*q, nullptr, 20000) == 5 ? 0 : 3;
  });
  auto q = name.Open();
  ASSERT_TRUE(q->IsConnected()) << q->LastError();
  ASSERT_TRUE(AwaitPeer(*q));
  for (std::uint32_t seed = 1; seed <= 2; ++seed) {
    std::string data;
    ASSERT_EQ(ReceiveType(*q, &data, 20000), static_cast<int>(seed) + 100) << q->LastError();
    ASSERT_EQ(data.size(), size);
    EXPECT_TRUE(data == Pattern(size, seed)) << "content differs, seed " << seed;
  }
  const int done = 5;
  std::string none;
  ASSERT_EQ(q->Send(&done, &none), kQueueOk);
  EXPECT_EQ(child.wait(), 0);
}

INSTANTIATE_TEST_SUITE_P(Queue, TransferBySize,
                         ::testing::Values(0, 1, kTestRecordBytes - 20, kTestRecordBytes - 19,
                                           kTestCapacity - 21, kTestCapacity - 20,
                                           kTestCapacity - 1, kTestCapacity, 3 * kTestCapacity + 7,
                                           16u << 20));

}  // namespace
}  // namespace conflink::testing
