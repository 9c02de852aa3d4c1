// Both messengers over the real queue, between two processes.
#include <sys/mman.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <list>
#include <string>
#include <thread>
#include <vector>

#include <conflink/conflink.h>
#include "tests/support/child_process.h"
#include "tests/support/messenger_queue_fixture.h"

namespace {

using conflink::testing::ChildProcess;
using Clock = std::chrono::steady_clock;

class MessengerIpcTest : public conflink::testing::MessengerQueueTest {
 protected:
  MessengerIpcTest() : MessengerQueueTest(100000) {}
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

// A restarted call control never receives what the server sent its predecessor, also what the
// server sent after the predecessor died but before it received the departure; what the server
// sends once it has heard of the new one arrives, and the new one's wait wakes on it.
TEST_F(MessengerIpcTest, ARestartedCallControlNeverReceivesWhatWasSentToItsPredecessor) {
  ServerSide ps(queueNumber_);
  ASSERT_TRUE(ps.Connect(1, 0));
  const int queue = queueNumber_;
  ChildProcess first([queue] {
    CCToPSMessenger side(queue);
    if (!side.Connect(50, 20) || side.InitiateConferenceServer() <= 0) return 10;
    pause();  // takes nothing until killed
    return 0;
  });
  ASSERT_TRUE(pollUntil(ps, [&] { return ps.seen.size() >= 2; }));
  for (unsigned long long id = 1; id <= 3; ++id)
    EXPECT_EQ(ps.ReportError(id, static_cast<ConfServError>(5)), 1);
  first.kill9();
  EXPECT_EQ(first.wait(), 128 + SIGKILL);
  const int late = ps.ReportError(4, static_cast<ConfServError>(5));  // dead, not yet known
  EXPECT_TRUE(late == 1 || late == conflink::kQueuePeerDeparted) << late;

  ChildProcess second([queue] {
    struct Restarted : CCToPSMessenger {
      using CCToPSMessenger::CCToPSMessenger;
      std::vector<unsigned long long> errors;
      int OnReportError(const unsigned long long& id, ConfServError) override {
        errors.push_back(id);
        return 0;
      }
    } side(queue);
    if (!side.Connect(50, 20)) return 10;
    while (side.errors.empty())
      if (side.WaitForMessageFor(10000) != conflink::kWaitDispatched) return 11;
    return side.errors == std::vector<unsigned long long>{99} ? 0 : 20 + int(side.errors[0]);
  });
  ASSERT_TRUE(pollUntil(ps, [&] { return ps.seen.size() >= 4; }));
  EXPECT_EQ(ps.seen,
            (std::vector<std::string>{"connected", "initiate 0", "disconnected", "connected"}));
  EXPECT_EQ(ps.ReportError(99, static_cast<ConfServError>(5)), 1);
  EXPECT_EQ(second.wait(), 0) << "20 + the first RequestId it received";
}

// A readiness loop that takes one message per wake must still be woken for the rest: a poll
// that found the ring empty, armed the descriptor and then saw a message come left it neither
// readable nor armed, and the server slept in poll with a request waiting (seen within a few
// round trips).
TEST_F(MessengerIpcTest, AReadinessLoopTakingOneMessagePerWakeAnswersEveryRequest) {
  struct Server : CCToPSMessenger {
    using CCToPSMessenger::CCToPSMessenger;
    int OnJoinConference(const unsigned long long& id, const ConfIDString& c, const std::string&,
                         const SipUri&, bool, PSProtocolType) override {
      return JoinAccept(id, 1, c, {}, ParticipantParams{}, TransmitType{});
    }
  };
  struct Client : CCToPSMessenger {
    using CCToPSMessenger::CCToPSMessenger;
    bool up = false;
    unsigned long long got = 0;
    void PSPeerConnected() override { up = true; }
    int OnJoinAccept(const unsigned long long& id, const unsigned long long&, const ConfIDString&,
                     const std::list<std::string>&, const ParticipantParams&,
                     TransmitType) override {
      got = id;
      return 0;
    }
  };
  const int queue = queueNumber_;
  ChildProcess server([queue] {
    Server s(queue);
    if (!s.Connect(50, 20)) return 10;
    conflink::WaitSet loop;
    if (!loop.AddMessenger(s, 1)) return 11;
    for (;;) loop.Wait(-1);
  });
  Client c(queueNumber_);
  ASSERT_TRUE(c.Connect(50, 20));
  while (!c.up) ASSERT_NE(c.WaitForMessageFor(10000), conflink::kWaitTimedOut);
  for (unsigned long long id = 1; id <= 3000; ++id) {
    ASSERT_GT(c.JoinConference(id, ConfIDString{"1"}, "", SipUri{}, false), 0);
    while (c.got != id)
      ASSERT_NE(c.WaitForMessageFor(5000), conflink::kWaitTimedOut)
          << "request " << id << " unanswered: the server sleeps in poll while it waits";
  }
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

// Call control and the server over the real queue: a join answered by an acceptance, a set-up
// carrying a call description, answered by a success, and an error report each way.
class CallControl : public CCToPSMessenger {
 public:
  using CCToPSMessenger::CCToPSMessenger;
  std::vector<std::string> seen;
  CallParams call;
  int OnJoinAccept(const unsigned long long& id, const unsigned long long& party,
                   const ConfIDString& conf, const std::list<std::string>& texts,
                   const ParticipantParams&, TransmitType) override {
    seen.push_back("accept " + std::to_string(id) + " " + std::to_string(party) + " " + conf.id +
                   " " + std::to_string(texts.size()));
    return 0;
  }
  int OnSetupConference(const unsigned long long& id, const ConfIDString& conf,
                        const RecordingParams&, const CallParams* with, const ConfSpecParams&,
                        unsigned short value) override {
    seen.push_back("setup " + std::to_string(id) + " " + conf.id + " " +
                   (with != nullptr ? with->text1 + "/" + with->text10 : "none") + " " +
                   std::to_string(value));
    Success(id, static_cast<CCSuccessType>(1));
    return 0;
  }
  int OnReportError(const unsigned long long& id, ConfServError error) override {
    seen.push_back("error " + std::to_string(id) + " " + std::to_string(error));
    return 0;
  }
};

class Server : public CCToPSMessenger {
 public:
  using CCToPSMessenger::CCToPSMessenger;
  std::vector<std::string> seen;
  int OnJoinConference(const unsigned long long& id, const ConfIDString& conf,
                       const std::string& text, const SipUri& uri, bool flag,
                       PSProtocolType link) override {
    seen.push_back("join " + std::to_string(id) + " " + conf.id + " " + text + " " + uri.text2 +
                   " " + (flag ? "true" : "false") + " " + std::to_string(link));
    JoinAccept(id, 77, conf, {"a", "b"}, ParticipantParams{1, 2, 3, 4, 5},
               static_cast<TransmitType>(1));
    CallParams call{"first", "", "", "", "", "", "", "", "", "tenth", 9};
    SetupConference(500, conf, RecordingParams{1, {}, 2, 3, 4, 5, SipUri{}}, &call,
                    ConfSpecParams{1, 2, 3, 4, 5}, 0xBEEF);
    return 0;
  }
  int OnSuccess(const unsigned long long& id, CCSuccessType result, PSProtocolType link) override {
    seen.push_back("success " + std::to_string(id) + " " + std::to_string(result) + " " +
                   std::to_string(link));
    ReportError(600, static_cast<ConfServError>(6), true);
    return 0;
  }
  int OnReportError(const unsigned long long& id, ConfServError error) override {
    seen.push_back("error " + std::to_string(id) + " " + std::to_string(error));
    return 0;
  }
};

TEST_F(MessengerIpcTest, CallControlJoinsIsSetUpAndBothEndsReportErrors) {
  Server ps(queueNumber_);
  ASSERT_TRUE(ps.Connect(1, 0));
  const int queue = queueNumber_;
  ChildProcess cc([queue] {
    CallControl side(queue);
    if (!side.Connect(50, 20)) return 10;
    if (side.JoinConference(400, ConfIDString{"weekly"}, "hello", SipUri{"sip:", "bob", "", ""},
                            true) <= 0)
      return 11;
    if (side.ReportError(401, static_cast<ConfServError>(4)) <= 0) return 12;
    const std::vector<std::string> expected = {"accept 400 77 weekly 2",
                                               "setup 500 weekly first/tenth 48879", "error 600 6"};
    while (side.seen.size() < expected.size()) {
      if (side.WaitForMessageAndDispatch() != 0) return 13;
    }
    return side.seen == expected ? 0 : 14;
  });
  ASSERT_TRUE(pollUntil(ps, [&] { return ps.seen.size() >= 3; })) << ps.seen.size();
  EXPECT_EQ(ps.seen, (std::vector<std::string>{"join 400 weekly hello bob true 0", "error 401 4",
                                               "success 500 1 0"}));
  EXPECT_EQ(cc.wait(), 0);
}

}  // namespace
