// Both messengers over the real queue, between two processes.
#include <sys/mman.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include <conflink/conflink.h>
#include "tests/support/child_process.h"

namespace {

using conflink::testing::ChildProcess;
using Clock = std::chrono::steady_clock;

// A queue number of its own for every test, and its shared object removed however it ends.
class MessengerIpcTest : public ::testing::Test {
 protected:
  void SetUp() override {
    static std::atomic<int> next{0};
    queueNumber_ = 100000 + (getpid() % 10000) * 16 + next++ % 16;
  }
  void TearDown() override {
    shm_unlink(conflink::QueueObjectName(queueNumber_, "/bin/ping").c_str());
  }
  int queueNumber_ = 0;
};

class ServerSide : public CCToPSMessenger {
 public:
  using CCToPSMessenger::CCToPSMessenger;
  std::vector<std::string> seen;
  void PSPeerConnected() override { seen.push_back("connected"); }
  void PSPeerDisConnected() override { seen.push_back("disconnected"); }
  int OnInitiateConferenceServer(PSProtocolType link) override {
    seen.push_back("initiate " + std::to_string(link));
    return 0;
  }
};

// Runs ProcessMessageFromQueue until `done` or `limit`.
template <class M, class Done>
bool pollUntil(M& m, Done done, std::chrono::milliseconds limit = std::chrono::seconds(10)) {
  const auto deadline = Clock::now() + limit;
  while (!done() && Clock::now() < deadline) {
    if (!m.ProcessMessageFromQueue(16)) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return done();
}

TEST_F(MessengerIpcTest, CallControlAndServerExchangeAndSeeEachOtherComeAndGo) {
  ServerSide ps(queueNumber_);
  ASSERT_TRUE(ps.Connect(1, 0)) << "the first party opens the queue alone";

  const int queue = queueNumber_;
  ChildProcess cc([queue] {
    ServerSide side(queue);
    if (!side.Connect(50, 20)) return 10;
    if (side.InitiateConferenceServer() <= 0) return 11;
    // The server answers with the same message; the blocking wait delivers the connect event
    // (as an unknown type) and then the answer.
    for (int i = 0; i < 3; ++i) {
      if (side.WaitForMessageAndDispatch() != 0) return 12;
      for (const auto& s : side.seen)
        if (s == "initiate 0") return 0;
    }
    return 13;
  });
  ASSERT_TRUE(cc.started());

  ASSERT_TRUE(pollUntil(ps, [&] { return ps.seen.size() >= 2; })) << ps.seen.size();
  EXPECT_EQ(ps.seen, (std::vector<std::string>{"connected", "initiate 0"}));
  EXPECT_GT(ps.InitiateConferenceServer(), 0);
  EXPECT_EQ(cc.wait(), 0);
  ASSERT_TRUE(pollUntil(ps, [&] { return ps.seen.size() >= 3; }));
  EXPECT_EQ(ps.seen.back(), "disconnected");
}

TEST_F(MessengerIpcTest, ServerLearnsOfAKilledPeer) {
  ServerSide ps(queueNumber_);
  ASSERT_TRUE(ps.Connect(1, 0));
  const int queue = queueNumber_;
  ChildProcess cc([queue] {
    CCToPSMessenger side(queue);
    if (!side.Connect(50, 20)) return 10;
    pause();  // until killed
    return 0;
  });
  ASSERT_TRUE(pollUntil(ps, [&] { return !ps.seen.empty(); }));
  cc.kill9();
  EXPECT_EQ(cc.wait(), 128 + SIGKILL);
  const auto killed = Clock::now();
  ASSERT_TRUE(pollUntil(ps, [&] { return ps.seen.size() >= 2; }));
  EXPECT_EQ(ps.seen, (std::vector<std::string>{"connected", "disconnected"}));
  EXPECT_LT(Clock::now() - killed, std::chrono::seconds(2));
}

TEST_F(MessengerIpcTest, WebFrontEndPollReportsWhetherThePeerIsOnline) {
  CGIToPSMessenger cgi(queueNumber_);
  ASSERT_TRUE(cgi.Connect(1, 0));
  EXPECT_EQ(cgi.WaitForMessageAndDispatch(), 1) << "nobody on the other end";

  const int queue = queueNumber_;
  ChildProcess ps([queue] {
    CGIToPSMessenger side(queue);
    if (!side.Connect(50, 20)) return 10;
    int type = 260;  // accepted and dropped by the receiver
    std::string empty;
    if (side.SendMessage(&type, &empty) <= 0) return 11;
    pause();
    return 0;
  });
  // The arrival event, then the message: each poll takes one and dispatches it.
  EXPECT_EQ(cgi.WaitForMessageAndDispatch(), 0);
  EXPECT_EQ(cgi.WaitForMessageAndDispatch(), 0);
  EXPECT_EQ(cgi.WaitForMessageAndDispatch(), 2) << "the peer is online but silent";
}

}  // namespace
