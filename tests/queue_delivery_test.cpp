// Who receives a queued message: only a process attached at the other place. What a sender left
// when no peer was there to see it, or what is left when both places are free, is discarded
// (the inspector reports leftovers of crashed parties), and a process never receives what a
// process of its own side sent; a message sent while the peer is absent still waits for it
// while its sender stays.
#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <conflink/conflink.h>
#include <conflink/platform/queue_examine.h>
#include <conflink/platform/queue_test_support.h>

namespace conflink::testing {
namespace {

int SendText(CyclicMessageQueue& q, int type, const std::string& text) {
  std::string buffer = text;
  return q.Send(&type, &buffer);
}

// Everything `q` receives within `ms`, events included, as types.
std::vector<int> Drain(CyclicMessageQueue& q, int ms = 300) {
  std::vector<int> types;
  for (int type; (type = ReceiveType(q, nullptr, ms)) != kNothing;) types.push_back(type);
  return types;
}

struct Leftover {
  const char* what;
  // Leaves queued messages behind in the queue `name` and returns with every party gone.
  std::function<void(const TestQueueName& name)> leave;
};

TEST(QueueDelivery, WhatNoAttachedPeerCanReceiveIsDiscarded) {
  const std::vector<Leftover> cases = {
      {"the sender leaves before any peer attached",
       [](const TestQueueName& name) {
         ChildProcess sender(
             [&] { return SendText(*name.Open(), 1, "for nobody") == kQueueOk ? 0 : 1; });
         EXPECT_EQ(sender.wait(), 0);
       }},
      {"the receiver leaves without reading, then the sender",
       [](const TestQueueName& name) {
         auto sender = name.Open();
         ChildProcess receiver([&] {
           auto mine = name.Open();
           return ReceiveType(*mine) == kQueueEventPeerConnected ? 0 : 1;
         });
         ASSERT_EQ(receiver.wait(), 0);
         ASSERT_EQ(SendText(*sender, 2, "unread"), kQueueOk);
       }},
      {"the sender sent to a peer that left, and leaves",
       [](const TestQueueName& name) {
         ChildProcess peer([&] { return name.Open()->IsConnected() ? 0 : 1; });
         ASSERT_EQ(peer.wait(), 0);
         auto sender = name.Open();
         ASSERT_EQ(SendText(*sender, 3, "after the peer left"), kQueueOk);
       }},
  };
  for (const Leftover& c : cases) {
    SCOPED_TRACE(c.what);
    TestQueueName name;
    c.leave(name);
    EXPECT_FALSE(name.ObjectExists()) << "the last to leave removes the object";
    // Whoever comes next, and in whichever order, receives none of it.
    auto first = name.Open();
    ASSERT_TRUE(first->IsConnected()) << first->LastError();
    ChildProcess second([&] {
      auto mine = name.Open();
      return Drain(*mine) == std::vector<int>{kQueueEventPeerConnected} ? 0 : 1;
    });
    EXPECT_EQ(second.wait(), 0);
    EXPECT_EQ(Drain(*first),
              (std::vector<int>{kQueueEventPeerConnected, kQueueEventPeerDisconnected}));
  }
}

TEST(QueueDelivery, ACrashedSendersLeftoversAreReportedThenDiscarded) {
  TestQueueName name;
  ChildProcess crashed([&] {
    auto mine = name.Open();
    if (SendText(*mine, 4, "one") != kQueueOk || SendText(*mine, 4, "two") != kQueueOk) return 1;
    raise(SIGKILL);
    return 2;
  });
  ASSERT_EQ(crashed.wait(), 128 + SIGKILL);
  queue::QueueReport report;
  std::string error;
  ASSERT_TRUE(queue::InspectQueue(name.Object(), report, error)) << error;
  bool reported = false;
  for (const std::string& f : report.findings)
    reported = reported || (f.find("2 messages") != std::string::npos &&
                            f.find("discarded when the queue is next opened") != std::string::npos);
  EXPECT_TRUE(reported) << "the inspector says what will be discarded";

  auto next = name.Open();
  ASSERT_TRUE(next->IsConnected()) << next->LastError();
  EXPECT_EQ(Drain(*next), std::vector<int>{});
  ASSERT_TRUE(queue::InspectQueue(name.Object(), report, error)) << error;
  EXPECT_EQ(report.ring[0].pendingBytes + report.ring[1].pendingBytes, 0u);
}

TEST(QueueDelivery, AMessageWaitsForAnAbsentPeerWhileItsSenderStays) {
  TestQueueName name;
  auto sender = name.Open();
  ASSERT_EQ(SendText(*sender, 5, "waiting"), kQueueOk);
  ChildProcess late([&] {
    auto mine = name.Open();
    std::string text;
    if (ReceiveType(*mine) != kQueueEventPeerConnected) return 1;
    return ReceiveType(*mine, &text) == 5 && text == "waiting" ? 0 : 2;
  });
  EXPECT_EQ(late.wait(), 0);
}

// The reported case: a call-control process asks for a server while none is there and exits;
// the next call-control process must not receive that request as if it were the server.
class CallControl : public CCToPSMessenger {
 public:
  using CCToPSMessenger::CCToPSMessenger;
  int OnInitiateConferenceServer(PSProtocolType) override {
    ++requestsSeen;
    return 0;
  }
  int requestsSeen = 0;
};

TEST(QueueDelivery, ACallControlProcessNeverReceivesAnotherOnesRequest) {
  const MessengerQueueNumber queue(300000);
  const int queueNumber = queue.number();

  ChildProcess first([&] {
    CallControl cc(queueNumber);
    if (!cc.Connect(1, 0)) return 1;
    return cc.InitiateConferenceServer() > 0 ? 0 : 2;
  });
  ASSERT_EQ(first.wait(), 0);
  ChildProcess second([&] {
    CallControl cc(queueNumber);
    if (!cc.Connect(1, 0)) return 1;
    for (int i = 0; i < 30; ++i) {
      cc.ProcessMessageFromQueue(16);
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return cc.requestsSeen == 0 ? 0 : 3;
  });
  EXPECT_EQ(second.wait(), 0);
}

TEST(QueueDelivery, APollWaitsForAStalledSendersNextFragmentOnlyBriefly) {
  TestQueueName name;
  auto poller = name.Open();
  const std::string big = Pattern(3 * kTestCapacity, 7);
  Pace full;
  ChildProcess sender([&] {
    auto mine = name.Open();
    full.Signal();  // the ring fills at once; the rest waits for the poller
    return SendText(*mine, 8, big) == kQueueOk ? 0 : 1;
  });
  ASSERT_EQ(full.Await(), 'x');
  ASSERT_EQ(ReceiveType(*poller), kQueueEventPeerConnected);
  while (poller->PendingBytes() < kTestCapacity / 2) usleep(1000);
  sender.signal(SIGSTOP);
  int type = 0;
  std::string buffer;
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(poller->PeekMessage(&type, &buffer), kQueueEmpty);
  const auto held = std::chrono::steady_clock::now() - start;
  EXPECT_GE(held, std::chrono::milliseconds(kQueuePollStallMs));
  EXPECT_LT(held, std::chrono::milliseconds(kQueuePollStallMs + 400));
  EXPECT_GT(poller->PendingBytes(), 0u) << "what arrived is kept";
  sender.signal(SIGCONT);
  const auto resumed = std::chrono::steady_clock::now();
  int r = kQueueEmpty;
  while (r == kQueueEmpty && std::chrono::steady_clock::now() - resumed < std::chrono::seconds(5))
    r = poller->PeekMessage(&type, &buffer);
  EXPECT_EQ(r, kQueueOk);
  EXPECT_EQ(type, 8);
  EXPECT_TRUE(buffer == big);
  EXPECT_EQ(sender.wait(), 0);
}

TEST(QueueDelivery, ASenderWaitingForRoomHoldsABoundedBacklogAndLosesNothing) {
  TestQueueName name;
  // Rings of 4 MiB, so that the talker's 80 MiB go in a hundred hand-offs: the whole backlog
  // must build up within the stall limit (kQueueStallMs) even on a busy machine.
  constexpr unsigned int kRecord = (4u << 20) / queue::kRingRecords;
  constexpr unsigned int kRing = queue::RingBytesFor(kRecord);
  auto q = name.Open(kRecord);
  constexpr std::size_t kPiece = 1u << 20;
  const int pieces = static_cast<int>((kQueueMaxHeldBytes + 16u * 1024 * 1024) / kPiece);
  ChildProcess talker([&] {
    // Sends and never takes: each message goes only when it fits, so this side never waits
    // for room (which would make it take what the other side sends).
    auto mine = name.Open(kRecord);
    if (ReceiveType(*mine) != kQueueEventPeerConnected) return 1;
    std::string piece(kPiece, 'p');
    for (int i = 0; i < pieces; ++i) {
      while (mine->FreeBytes() < kPiece + 64) usleep(50);
      std::memcpy(&piece[0], &i, sizeof i);
      std::string copy = piece;
      if (SendText(*mine, 9, copy) != kQueueOk) return 2;
    }
    return 0;
  });
  ASSERT_EQ(ReceiveType(*q), kQueueEventPeerConnected);
  // Larger than the ring, so the send waits for room that the talker never makes.
  EXPECT_EQ(SendText(*q, 10, std::string(16u << 20, 'm')), kQueueBacklogFull) << q->LastError();
  EXPECT_NE(std::string(q->LastError()).find("held"), std::string::npos);
  const unsigned int held = q->PendingBytes();
  EXPECT_GE(held, kQueueMaxHeldBytes);
  EXPECT_LE(held, kQueueMaxHeldBytes + 2 * kRing) << "bounded";
  // Everything the talker sent arrives, in order, then its departure.
  std::string text;
  for (int i = 0; i < pieces; ++i) {
    ASSERT_EQ(ReceiveType(*q, &text), 9) << "message " << i;
    int number = -1;
    std::memcpy(&number, text.data(), sizeof number);
    ASSERT_EQ(number, i);
  }
  EXPECT_EQ(ReceiveType(*q), kQueueEventPeerDisconnected);
  EXPECT_EQ(talker.wait(), 0);
}

// A web front end polls; the server's reply of 1 MiB is 32 ringfuls. It must arrive within one
// wait (20 polls), and its sender must not be held up by the pace of the polls.
class WebFrontEnd : public CGIToPSMessenger {
 public:
  using CGIToPSMessenger::CGIToPSMessenger;
  int OnSendConferenceParam(const unsigned long long& id, ConferenceParamType param,
                            unsigned int size, const void* data) override {
    const auto* bytes = static_cast<const unsigned char*>(data);
    const bool intact =
        id == 9 && param == static_cast<ConferenceParamType>(4) &&
        std::string(reinterpret_cast<const char*>(bytes), size) == Pattern(kReplyBytes, 278);
    received = intact ? size : 1;
    return 0;
  }
  static constexpr unsigned int kReplyBytes = 1u << 20;
  unsigned int received = 0;
};

TEST(QueueDelivery, APollingWebFrontEndTakesAOneMebibyteReplyInOneWait) {
  const MessengerQueueNumber queue(400000);
  const int queueNumber = queue.number();

  WebFrontEnd cgi(queueNumber);
  ASSERT_TRUE(cgi.Connect(1, 0));
  ChildProcess server([&] {
    CGIToPSMessenger ps(queueNumber);
    if (!ps.Connect(1, 0)) return 1;
    const std::string reply = Pattern(WebFrontEnd::kReplyBytes, 278);
    const auto start = std::chrono::steady_clock::now();
    if (ps.SendConferenceParam(9, static_cast<ConferenceParamType>(4), WebFrontEnd::kReplyBytes,
                               reply.data()) <= 0)
      return 2;
    // The whole reply is taken by the poll that found its start.
    return std::chrono::steady_clock::now() - start < std::chrono::seconds(1) ? 0 : 3;
  });
  ASSERT_EQ(cgi.WaitForMessageAndDispatch(), 0) << "the server's arrival";
  EXPECT_EQ(cgi.WaitForMessageAndDispatch(), 0) << "the reply, within one wait";
  EXPECT_EQ(cgi.received, WebFrontEnd::kReplyBytes);
  EXPECT_EQ(server.wait(10000), 0);
}

}  // namespace
}  // namespace conflink::testing
