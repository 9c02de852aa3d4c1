// The readiness descriptor (readable exactly while something waits, including a peer's death
// that nobody announced) and the line for a place (woken when a holder leaves, refused with a
// reason when none does).
#include <poll.h>
#include <signal.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include <conflink/platform/queue_test_support.h>

namespace conflink::testing {
namespace {

// Long enough for an emulated target on a busy machine; only a failure waits this long.
constexpr int kPatient = 20000;

bool Readable(int fd, int waitMs) {
  pollfd p{fd, POLLIN, 0};
  return poll(&p, 1, waitMs) == 1 && (p.revents & POLLIN) != 0;
}

// Takes everything waiting, as a readiness loop does: the types taken, in order.
std::vector<int> TakeAll(CyclicMessageQueue& q) {
  std::vector<int> types;
  int type = 0;
  std::string buffer;
  while (q.PeekMessage(&type, &buffer) == kQueueOk) types.push_back(type);
  return types;
}

int SendText(CyclicMessageQueue& q, int type, std::string text) {
  return q.Send(&type, &text);
}

// Each step leaves the descriptor readable or not; a loop that takes everything whenever it is
// readable sees every message and event once, and the descriptor stays quiet while idle.
TEST(QueueReadiness, ReadableExactlyWhileSomethingWaits) {
  TestQueueName name;
  auto sender = name.Open();
  auto watcher = name.Open();
  const int fd = watcher->ReadinessFd();
  ASSERT_GE(fd, 0) << watcher->LastError();
  EXPECT_EQ(watcher->ReadinessFd(), fd) << "made once and kept";

  EXPECT_TRUE(Readable(fd, 0)) << "the peer's arrival waits";
  EXPECT_EQ(TakeAll(*watcher), std::vector<int>{kQueueEventPeerConnected});
  EXPECT_FALSE(Readable(fd, 200)) << "idle: nothing to take";

  ASSERT_EQ(SendText(*sender, 5, "one"), kQueueOk);
  EXPECT_TRUE(Readable(fd, 2000));
  for (int type : {6, 7}) ASSERT_EQ(SendText(*sender, type, "more"), kQueueOk);
  int type = 0;
  std::string buffer;
  ASSERT_EQ(watcher->PeekMessage(&type, &buffer), kQueueOk);
  EXPECT_TRUE(Readable(fd, 0)) << "level-triggered: two still wait";
  EXPECT_EQ(TakeAll(*watcher), (std::vector<int>{6, 7}));
  EXPECT_FALSE(Readable(fd, 0));

  sender.reset();  // leaves
  EXPECT_TRUE(Readable(fd, 2000));
  EXPECT_EQ(TakeAll(*watcher), std::vector<int>{kQueueEventPeerDisconnected});
  EXPECT_FALSE(Readable(fd, 0));

  auto next = name.Open();
  EXPECT_TRUE(Readable(fd, 2000));
  EXPECT_EQ(TakeAll(*watcher), std::vector<int>{kQueueEventPeerConnected});
}

// A peer killed with SIGKILL announces nothing; its death still makes the descriptor readable,
// and the loop then takes its departure.
TEST(QueueReadiness, APeerKilledWithoutAWordStillWakesTheWatcher) {
  TestQueueName name;
  auto watcher = name.Open();
  const int fd = watcher->ReadinessFd();
  ASSERT_GE(fd, 0) << watcher->LastError();
  Pace attached;
  ChildProcess peer([&] {
    auto mine = name.Open();
    attached.Signal();
    pause();
    return 1;
  });
  ASSERT_EQ(attached.Await(kPatient), 'x');
  ASSERT_TRUE(Readable(fd, kPatient));
  EXPECT_EQ(TakeAll(*watcher), std::vector<int>{kQueueEventPeerConnected});
  ASSERT_FALSE(Readable(fd, 0));
  peer.kill9();
  EXPECT_EQ(peer.wait(kPatient), 128 + SIGKILL);
  std::vector<int> taken;
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(kPatient);
  while (taken.empty() && std::chrono::steady_clock::now() < deadline) {
    if (!Readable(fd, kPatient)) break;
    taken = TakeAll(*watcher);
  }
  EXPECT_EQ(taken, std::vector<int>{kQueueEventPeerDisconnected});
}

// ---- The line for a place ----

TEST(QueueLine, AWaiterTakesThePlaceItsHolderLeaves) {
  TestQueueName name;
  auto a = name.Open();
  auto b = name.Open();
  std::atomic<int> result{0};
  std::unique_ptr<CyclicMessageQueue> waiter;
  std::thread line([&] {
    waiter = std::make_unique<CyclicMessageQueue>(name.number(), name.key(), kTestRecordBytes,
                                                  nullptr, kPatient);
    result = waiter->OpenResult();
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(150));
  EXPECT_EQ(result.load(), 0) << "both places are held: it waits";
  a.reset();
  line.join();
  ASSERT_EQ(result.load(), kQueueOpened) << waiter->LastError();
  EXPECT_EQ(waiter->IsConnected(), 1);
  // The one that stayed sees a departure, then the newcomer's arrival, and they talk.
  EXPECT_EQ(ReceiveType(*b), kQueueEventPeerConnected);
  EXPECT_EQ(ReceiveType(*b), kQueueEventPeerDisconnected);
  EXPECT_EQ(ReceiveType(*b), kQueueEventPeerConnected);
  ASSERT_EQ(SendText(*waiter, 9, "in"), kQueueOk);
  EXPECT_EQ(ReceiveType(*b), 9);
}

// The line is served in the order it formed, even when a later waiter looks first.
TEST(QueueLine, WaitersAreServedInTheOrderTheyCame) {
  TestQueueName name;
  auto a = name.Open();
  auto b = name.Open();
  std::unique_ptr<CyclicMessageQueue> first, second;
  std::atomic<bool> secondIn{false};
  std::thread firstWaits([&] {
    first = std::make_unique<CyclicMessageQueue>(name.number(), name.key(), kTestRecordBytes,
                                                 nullptr, kPatient);
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  std::thread secondWaits([&] {
    second = std::make_unique<CyclicMessageQueue>(name.number(), name.key(), kTestRecordBytes,
                                                  nullptr, kPatient);
    secondIn = true;
  });
  // Long enough for the second to have looked at the line several times on its own.
  std::this_thread::sleep_for(std::chrono::milliseconds(4 * kQueueLineRecheckMs));
  a.reset();
  firstWaits.join();
  ASSERT_EQ(first->OpenResult(), kQueueOpened) << first->LastError();
  std::this_thread::sleep_for(std::chrono::milliseconds(2 * kQueueLineRecheckMs));
  EXPECT_FALSE(secondIn.load()) << "the second waiter still waits";
  b.reset();
  secondWaits.join();
  EXPECT_EQ(second->OpenResult(), kQueueOpened) << second->LastError();
}

TEST(QueueLine, AHolderKilledFreesItsPlaceForTheLine) {
  TestQueueName name;
  auto a = name.Open();
  Pace attached;
  ChildProcess holder([&] {
    auto mine = name.Open();
    attached.Signal();
    pause();
    return 1;
  });
  ASSERT_EQ(attached.Await(kPatient), 'x');
  std::thread killer([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(150));
    holder.kill9();
  });
  CyclicMessageQueue waiter(name.number(), name.key(), kTestRecordBytes, nullptr, kPatient);
  killer.join();
  EXPECT_EQ(waiter.OpenResult(), kQueueOpened) << waiter.LastError();
}

// Every way an open fails has its own result, and a text that says which.
TEST(QueueLine, AFailedOpenSaysWhy) {
  TestQueueName name;
  auto a = name.Open();
  auto b = name.Open();
  struct Case {
    const char* what;
    unsigned int capacity;
    int waitMs;
    int expected;
    const char* says;
  };
  const Case cases[] = {
      {"both places held, no wait", kTestRecordBytes, 0, kQueueOpenPlacesHeld, "taken"},
      {"both places held for the whole wait", kTestRecordBytes, 150, kQueueOpenPlacesHeld,
       "whole wait"},
      {"capacity other than the queue's", kTestRecordBytes * 2, 0, kQueueOpenCapacity,
       "capacity mismatch"},
      {"capacity out of range", 1, 0, kQueueOpenCapacity, "outside"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    const auto start = std::chrono::steady_clock::now();
    CyclicMessageQueue q(name.number(), name.key(), c.capacity, nullptr, c.waitMs);
    const auto waited = std::chrono::steady_clock::now() - start;
    EXPECT_EQ(q.IsConnected(), 0);
    EXPECT_EQ(q.OpenResult(), c.expected);
    EXPECT_NE(std::string(q.LastError()).find(c.says), std::string::npos) << q.LastError();
    EXPECT_GE(waited, std::chrono::milliseconds(c.expected == kQueueOpenPlacesHeld ? c.waitMs : 0));
  }
  EXPECT_EQ(a->OpenResult(), kQueueOpened);
}

}  // namespace
}  // namespace conflink::testing
