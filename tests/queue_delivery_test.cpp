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
  const int queueNumber = 300000 + (getpid() % 100000);
  struct Removed {
    std::string object;
    ~Removed() { shm_unlink(object.c_str()); }
  } removed{QueueObjectName(queueNumber, "/bin/ping")};
  shm_unlink(removed.object.c_str());

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

}  // namespace
}  // namespace conflink::testing
