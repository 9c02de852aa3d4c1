// Parties arriving, leaving, dying and coming back: events in order with the messages, at most
// two parties, capacity agreement, an absent peer, restarts, and removal of the shared object.
#include <gtest/gtest.h>

#include <csignal>

#include <conflink/platform/queue_test_support.h>

namespace conflink::testing {
namespace {

using Clock = std::chrono::steady_clock;

int SendText(CyclicMessageQueue& q, int type, const std::string& text) {
  std::string buffer = text;
  return q.Send(&type, &buffer);
}

long long MsSince(Clock::time_point start) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
}

TEST(QueuePeers, EventsBracketThePeersMessages) {
  TestQueueName name;
  auto q = name.Open();
  ASSERT_TRUE(q->IsConnected()) << q->LastError();
  EXPECT_EQ(q->IsPartyOnline(), 0);
  Pace ready;
  ChildProcess child([&] {
    auto mine = name.Open();
    // We find the parent attached: its arrival comes first, before its message.
    std::string text;
    if (ReceiveType(*mine) != kQueueEventPeerConnected) return 1;
    if (ReceiveType(*mine, &text) != 10 || text != "from parent") return 2;
    if (SendText(*mine, 11, "one") != kQueueOk || SendText(*mine, 12, "two") != kQueueOk) return 3;
    ready.Signal();
    return 0;  // leaves with its messages still queued
  });
  ASSERT_EQ(SendText(*q, 10, "from parent"), kQueueOk);
  ASSERT_EQ(child.wait(), 0);
  std::string text;
  EXPECT_EQ(ReceiveType(*q), kQueueEventPeerConnected);
  EXPECT_EQ(ReceiveType(*q, &text), 11);
  EXPECT_EQ(text, "one");
  EXPECT_EQ(ReceiveType(*q, &text), 12);
  EXPECT_EQ(text, "two");
  EXPECT_EQ(ReceiveType(*q, &text), kQueueEventPeerDisconnected);
  EXPECT_TRUE(text.empty());
  EXPECT_EQ(ReceiveType(*q, nullptr, 200), kNothing) << "each event comes once";
  EXPECT_EQ(q->IsPartyOnline(), 0);
}

TEST(QueuePeers, KilledPeerWakesABlockedReceiveWithinOneSecond) {
  TestQueueName name;
  auto q = name.Open();
  ChildProcess child([&] {
    auto mine = name.Open();
    if (SendText(*mine, 21, "last words") != kQueueOk) return 1;
    usleep(300 * 1000);
    raise(SIGKILL);
    return 2;
  });
  int type = 0;
  std::string text;
  ASSERT_EQ(q->Receive(&type, &text), kQueueOk);
  EXPECT_EQ(type, kQueueEventPeerConnected);
  ASSERT_EQ(q->Receive(&type, &text), kQueueOk);
  EXPECT_EQ(type, 21);
  const auto start = Clock::now();
  ASSERT_EQ(q->Receive(&type, &text), kQueueOk);  // blocks until the kill is noticed
  EXPECT_EQ(type, kQueueEventPeerDisconnected);
  EXPECT_LT(MsSince(start), 300 + 1000);
  EXPECT_EQ(child.wait(), 128 + SIGKILL);
}

TEST(QueuePeers, AThirdPartyIsRefusedInAnyProcess) {
  TestQueueName name;
  auto first = name.Open();
  Pace attached, release;
  ChildProcess second([&] {
    auto mine = name.Open();
    if (!mine->IsConnected()) return 1;
    attached.Signal();
    return release.Await(20000) != 0 ? 0 : 2;
  });
  ASSERT_EQ(attached.Await(), 'x');
  auto third = name.Open();
  EXPECT_EQ(third->IsConnected(), 0);
  EXPECT_STRNE(third->LastError(), "");
  std::string buffer = "x";
  const int type = 1;
  EXPECT_EQ(third->Send(&type, &buffer), kQueueNotConnected);
  ChildProcess another([&] { return name.Open()->IsConnected() == 0 ? 0 : 1; });
  EXPECT_EQ(another.wait(), 0) << "a third process must not attach";
  // The first party is undisturbed by the refused ones.
  EXPECT_EQ(ReceiveType(*first), kQueueEventPeerConnected);
  release.Signal();
  ASSERT_EQ(second.wait(), 0);
  EXPECT_EQ(ReceiveType(*first), kQueueEventPeerDisconnected);
  // With the place free again, a new object takes it.
  third.reset();
  EXPECT_EQ(name.Open()->IsConnected(), 1);
}

TEST(QueuePeers, DisagreeingCapacityIsRefused) {
  TestQueueName name;
  auto q = name.Open(kTestCapacity);
  ChildProcess child([&] {
    auto mine = name.Open(kTestCapacity / 2);
    const std::string why = mine->LastError();
    return mine->IsConnected() == 0 && why.find("capacity") != std::string::npos ? 0 : 1;
  });
  EXPECT_EQ(child.wait(), 0);
  EXPECT_EQ(q->IsPartyOnline(), 0);
}

TEST(QueuePeers, AbsentPeerFindsTheQueuedMessagesOnArrival) {
  TestQueueName name;
  auto q = name.Open();
  ASSERT_EQ(SendText(*q, 31, "early"), kQueueOk);
  // Fill the ring with whole messages, then one that no longer fits fails at once.
  const std::string block(1000, 'b');
  int queued = 0;
  int r = kQueueOk;
  while ((r = SendText(*q, 32, block)) == kQueueOk) ++queued;
  EXPECT_EQ(r, kQueuePeerAbsentFull) << q->LastError();
  const auto start = Clock::now();
  EXPECT_EQ(SendText(*q, 33, std::string(3 * kTestCapacity, 'z')), kQueuePeerAbsentFull);
  EXPECT_LT(MsSince(start), 500);
  EXPECT_GT(queued, 20);
  ChildProcess child([&] {
    auto mine = name.Open();
    std::string text;
    if (ReceiveType(*mine) != kQueueEventPeerConnected) return 1;
    if (ReceiveType(*mine, &text) != 31 || text != "early") return 2;
    for (int i = 0; i < queued; ++i)
      if (ReceiveType(*mine, &text) != 32 || text != block) return 3;
    return ReceiveType(*mine, nullptr, 200) == kNothing ? 0 : 4;
  });
  EXPECT_EQ(child.wait(), 0);
}

TEST(QueuePeers, PeerLeavingDuringALargeSendIsReported) {
  TestQueueName name;
  auto q = name.Open();
  ChildProcess child([&] {
    auto mine = name.Open();
    usleep(300 * 1000);  // takes nothing, then leaves
    return 0;
  });
  ASSERT_EQ(ReceiveType(*q), kQueueEventPeerConnected);
  EXPECT_EQ(SendText(*q, 41, std::string(4 * kTestCapacity, 'd')), kQueuePeerDeparted)
      << q->LastError();
  EXPECT_EQ(child.wait(), 0);
}

TEST(QueuePeers, RestartedPeerTakesTheDeadOnesPlace) {
  TestQueueName name;
  auto q = name.Open();
  Pace sending;
  ChildProcess crashed([&] {
    auto mine = name.Open();
    sending.Signal();
    // Blocks half way: the parent takes nothing, and kills us mid-message.
    SendText(*mine, 51, Pattern(3 * kTestCapacity, 5));
    return 1;
  });
  ASSERT_EQ(sending.Await(), 'x');
  usleep(200 * 1000);
  crashed.stop();
  ChildProcess restarted([&] {
    auto mine = name.Open();
    if (!mine->IsConnected()) return 1;
    if (SendText(*mine, 52, "back again") != kQueueOk) return 2;
    std::string text;
    if (ReceiveType(*mine) != kQueueEventPeerConnected) return 3;
    return ReceiveType(*mine, &text) == 53 && text == "welcome" ? 0 : 4;
  });
  std::string text;
  EXPECT_EQ(ReceiveType(*q), kQueueEventPeerConnected);
  EXPECT_EQ(ReceiveType(*q), kQueueEventPeerDisconnected) << "the half message is dropped";
  EXPECT_EQ(ReceiveType(*q), kQueueEventPeerConnected);
  EXPECT_EQ(ReceiveType(*q, &text), 52);
  EXPECT_EQ(text, "back again");
  EXPECT_EQ(SendText(*q, 53, "welcome"), kQueueOk);
  EXPECT_EQ(restarted.wait(), 0);
}

TEST(QueuePeers, ObjectIsRemovedWhenTheLastPartyLeaves) {
  TestQueueName name;
  {
    auto q = name.Open();
    ChildProcess child([&] { return name.Open()->IsConnected() ? 0 : 1; });
    EXPECT_EQ(child.wait(), 0);
    EXPECT_TRUE(name.ObjectExists());
  }
  EXPECT_FALSE(name.ObjectExists()) << "both left";
}

TEST(QueuePeers, CrashedPartysObjectIsReclaimedByTheNextOpener) {
  TestQueueName name;
  ChildProcess crashed([&] {
    auto mine = name.Open(kTestCapacity / 2);  // another size: empty leftovers do not bind
    raise(SIGKILL);
    return 1;
  });
  ASSERT_EQ(crashed.wait(), 128 + SIGKILL);
  ASSERT_TRUE(name.ObjectExists());
  {
    auto q = name.Open();
    EXPECT_EQ(q->IsConnected(), 1) << q->LastError();
    EXPECT_EQ(q->IsPartyOnline(), 0);
    EXPECT_EQ(ReceiveType(*q, nullptr, 200), kNothing) << "no event for a party never seen";
  }
  EXPECT_FALSE(name.ObjectExists());
}

TEST(QueuePeers, ForkedChildDoesNotInheritThePlace) {
  TestQueueName name;
  auto q = name.Open();
  ChildProcess child([&] {
    if (q->IsConnected() != 0) return 1;  // the parent's object is inert here
    std::string text = "x";
    const int type = 1;
    if (q->Send(&type, &text) != kQueueNotConnected) return 2;
    q.reset();  // destroying the inherited copy must not detach the parent
    auto mine = name.Open();
    if (!mine->IsConnected() || ReceiveType(*mine) != kQueueEventPeerConnected) return 3;
    return SendText(*mine, 71, "child") == kQueueOk ? 0 : 4;
  });
  std::string text;
  EXPECT_EQ(ReceiveType(*q), kQueueEventPeerConnected);
  EXPECT_EQ(ReceiveType(*q, &text), 71);
  EXPECT_EQ(child.wait(), 0);
  EXPECT_EQ(ReceiveType(*q), kQueueEventPeerDisconnected);
  EXPECT_EQ(q->IsConnected(), 1);
}

TEST(QueuePeers, SilentPeerStallsALargeSendAndLosesOnlyThatMessage) {
  TestQueueName name;
  auto q = name.Open();
  Pace stalled;
  ChildProcess child([&] {
    auto mine = name.Open();
    if (stalled.Await(20000) == 0) return 1;  // takes nothing until the sender gave up
    std::string text;
    if (ReceiveType(*mine) != kQueueEventPeerConnected) return 2;
    const int type = ReceiveType(*mine, &text);
    return type == 82 && text == "after" ? 0 : 10 + (type & 0xff);
  });
  ASSERT_EQ(ReceiveType(*q), kQueueEventPeerConnected);
  const auto start = Clock::now();
  EXPECT_EQ(SendText(*q, 81, std::string(3 * kTestCapacity, 's')), kQueuePeerStalled);
  EXPECT_GE(MsSince(start), kQueueStallMs - 100);
  stalled.Signal();
  EXPECT_EQ(SendText(*q, 82, "after"), kQueueOk) << q->LastError();
  EXPECT_EQ(child.wait(), 0);
}

}  // namespace
}  // namespace conflink::testing
