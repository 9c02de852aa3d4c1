// The receive loop and dispatch frame of both messengers, against the scriptable platform double.
#include <conflink/cc/cc_to_ps_messenger.h>
#include <conflink/cgi/cgi_to_ps_messenger.h>
#include <conflink/messaging/dispatch.h>
#include <conflink/messaging/log_sink.h>
#include <conflink/messaging/message.h>
#include <conflink/messaging/messenger_support.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <list>
#include <memory>
#include <string>
#include <vector>

#include <conflink/platform/cyclic_message_queue.h>
#include "tests/support/fake_platform.h"

// The system log, captured through the library's log sink.
namespace {
std::vector<std::pair<int, std::string>> systemLog;
void captureLog(void*, int priority, const char* text) {
  systemLog.emplace_back(priority, text);
}
}  // namespace

namespace {

using conflink::testing::Fake;
using conflink::testing::FakeMessage;

const int kPeerConnected = conflink::kQueueEventPeerConnected;
const int kPeerDisconnected = conflink::kQueueEventPeerDisconnected;
const char* const kCcWrongFormat =
    "Wrong message format! Sender doesn't belong to CCToPSMessenger's hierarchy!";
const char* const kCgiWrongFormat =
    "Wrong message format! Sender doesn't belong to CGIToPSMessenger's hierarchy!";

std::string trailer(int mark) {
  std::string t;
  conflink::wire::append(t, 0, mark);
  return t;
}

class CcProbe : public CCToPSMessenger {
 public:
  CcProbe() : CCToPSMessenger(5) {}
  std::vector<std::string> calls;
  std::vector<std::string> errors;
  int OnInitiateConferenceServer(PSProtocolType link) override {
    calls.push_back("OnInitiateConferenceServer " + std::to_string(link));
    return 0;
  }
  void PSPeerConnected() override { calls.push_back("PSPeerConnected"); }
  void PSPeerDisConnected() override { calls.push_back("PSPeerDisConnected"); }
  void Error(const char* text) override { errors.push_back(text); }
};

class CgiProbe : public CGIToPSMessenger {
 public:
  CgiProbe() : CGIToPSMessenger(6) {}
  std::vector<std::string> calls;
  std::vector<std::string> errors;
  void PeerConnected() override { calls.push_back("PeerConnected"); }
  void PeerDisconnected() override { calls.push_back("PeerDisconnected"); }
  void Error(const char* text) override { errors.push_back(text); }
};

class DispatchTest : public ::testing::Test {
 protected:
  void SetUp() override {
    conflink::testing::ResetFake();
    conflink::SetLogSink(captureLog, nullptr);
    systemLog.clear();
  }
  void TearDown() override { conflink::SetLogSink(nullptr, nullptr); }
  template <class M>
  bool dispatch(M& m, int type, const std::string& buffer) {
    return m.DispatchMessage(&type, buffer.data(), static_cast<int>(buffer.size()));
  }
};

TEST_F(DispatchTest, BuffersOfThreeBytesOrFewerAreReportedAndConsumed) {
  for (int length = 0; length <= 3; ++length) {
    const std::string buffer(static_cast<size_t>(length), '\0');
    CcProbe cc;
    EXPECT_TRUE(dispatch(cc, 70, buffer)) << length;
    EXPECT_EQ(cc.errors, std::vector<std::string>{kCcWrongFormat});
    EXPECT_TRUE(cc.calls.empty());
    CgiProbe cgi;
    EXPECT_TRUE(dispatch(cgi, 260, buffer)) << length;
    EXPECT_EQ(cgi.errors, std::vector<std::string>{kCgiWrongFormat});
  }
}

TEST_F(DispatchTest, TheTrailerReachesTheHandlerUnchecked) {
  for (int mark : {0, 2, 1, -1, 0x7fffffff, static_cast<int>(0x80000000u)}) {
    CcProbe cc;
    EXPECT_TRUE(dispatch(cc, 70, trailer(mark)));
    EXPECT_EQ(cc.calls,
              std::vector<std::string>{"OnInitiateConferenceServer " + std::to_string(mark)});
    EXPECT_TRUE(cc.errors.empty());
  }
}

TEST_F(DispatchTest, BytesAfterTheLastFieldAreIgnored) {
  CcProbe cc;
  EXPECT_TRUE(dispatch(cc, 70, std::string("extra") + trailer(2)));
  EXPECT_EQ(cc.calls, std::vector<std::string>{"OnInitiateConferenceServer 2"});
}

TEST_F(DispatchTest, UnknownTypesAreFalseAndSilent) {
  const std::string buffer = "payload" + trailer(0);
  for (int type : {-1, 289, 1000, kPeerConnected, kPeerDisconnected, 69, 71, 127}) {
    CcProbe cc;
    EXPECT_FALSE(dispatch(cc, type, buffer)) << type;
    EXPECT_TRUE(cc.calls.empty() && cc.errors.empty()) << type;
  }
  for (int type : {0, 1, 288, 41, 70, kPeerConnected, kPeerDisconnected}) {
    CgiProbe cgi;
    EXPECT_FALSE(dispatch(cgi, type, buffer)) << type;
    EXPECT_TRUE(cgi.calls.empty() && cgi.errors.empty()) << type;
  }
}

TEST_F(DispatchTest, QueueEventsWithoutPayloadAreUnknownNotMalformed) {
  CcProbe cc;
  EXPECT_FALSE(dispatch(cc, kPeerConnected, ""));
  CgiProbe cgi;
  EXPECT_FALSE(dispatch(cgi, kPeerDisconnected, ""));
  EXPECT_TRUE(cc.errors.empty() && cgi.errors.empty());
}

TEST_F(DispatchTest, AcceptedAndDroppedTypesAreTrueWithoutHandlerOrReport) {
  const std::string emptyPayload = trailer(0);
  for (int type : {135, 136, 142, 260}) {
    CcProbe cc;
    EXPECT_TRUE(dispatch(cc, type, emptyPayload)) << type;
    EXPECT_TRUE(cc.calls.empty() && cc.errors.empty()) << type;
  }
  for (int type : {11, 260}) {
    CgiProbe cgi;
    EXPECT_TRUE(dispatch(cgi, type, trailer(2))) << type;
    EXPECT_TRUE(cgi.calls.empty() && cgi.errors.empty()) << type;
  }
}

TEST_F(DispatchTest, CcProcessTurnsQueueEventsIntoPeerCallsInOrder) {
  Fake().inbox = {
      {kPeerConnected, ""}, {70, trailer(0)}, {kPeerDisconnected, ""}, {70, trailer(2)}};
  CcProbe cc;
  ASSERT_TRUE(cc.Connect(1, 0));
  EXPECT_TRUE(cc.ProcessMessageFromQueue(3));
  EXPECT_EQ(cc.calls, (std::vector<std::string>{"PSPeerConnected", "OnInitiateConferenceServer 0",
                                                "PSPeerDisConnected"}));
  EXPECT_EQ(Fake().inbox.size(), 1u) << "at most maxCount messages are taken";
  EXPECT_TRUE(cc.ProcessMessageFromQueue(10));
  EXPECT_FALSE(cc.ProcessMessageFromQueue(10)) << "nothing left to take";
  EXPECT_FALSE(cc.ProcessMessageFromQueue(0));
}

// A departure handler that reopens the link frees the queue the loop started with; the next
// message must be taken from the new one.
TEST_F(DispatchTest, CcProcessTakesTheNextMessageFromTheQueueAHandlerReopened) {
  class Reconnecting : public CcProbe {
   public:
    void PSPeerDisConnected() override {
      CcProbe::PSPeerDisConnected();
      Disconnect();
      // Keep the freed queue's memory from being handed to the new one, so that a stale
      // pointer stays visible to the fake.
      holder = std::make_unique<char[]>(sizeof(CyclicMessageQueue));
      Connect(1, 0);
    }
    std::unique_ptr<char[]> holder;
  };
  Fake().inbox = {{kPeerDisconnected, ""}, {70, trailer(0)}};
  Reconnecting cc;
  ASSERT_TRUE(cc.Connect(1, 0));
  EXPECT_TRUE(cc.ProcessMessageFromQueue(5));
  EXPECT_EQ(cc.calls,
            (std::vector<std::string>{"PSPeerDisConnected", "OnInitiateConferenceServer 0"}));
  EXPECT_EQ(Fake().queuesMade, 2);
  EXPECT_EQ(Fake().callsOnDestroyedQueues, 0);
}

TEST_F(DispatchTest, CgiProcessHandsQueueEventsToDispatchAsUnknown) {
  Fake().inbox = {{kPeerConnected, ""}, {260, trailer(2)}, {kPeerDisconnected, ""}};
  CgiProbe cgi;
  ASSERT_TRUE(cgi.Connect(1, 0));
  EXPECT_TRUE(cgi.ProcessMessageFromQueue(5));
  EXPECT_TRUE(Fake().inbox.empty());
  EXPECT_TRUE(cgi.calls.empty()) << "the web front end's loop never calls the peer events";
  EXPECT_TRUE(cgi.errors.empty());
}

TEST_F(DispatchTest, CcWaitBlocksForOneMessage) {
  CcProbe cc;
  EXPECT_EQ(cc.WaitForMessageAndDispatch(), 1) << "not connected";
  ASSERT_TRUE(cc.Connect(1, 0));
  Fake().inbox = {{70, trailer(0)}, {kPeerConnected, ""}};
  EXPECT_EQ(cc.WaitForMessageAndDispatch(), 0);
  EXPECT_EQ(cc.WaitForMessageAndDispatch(), 0) << "an event is dispatched as an unknown type";
  EXPECT_EQ(cc.calls, std::vector<std::string>{"OnInitiateConferenceServer 0"});
  Fake().receiveFailure = -3;
  EXPECT_EQ(cc.WaitForMessageAndDispatch(), 1);
}

TEST_F(DispatchTest, CgiWaitPollsTwentyTimesThenAsksWhetherThePeerIsOnline) {
  struct Case {
    const char* what;
    int emptyPeeks;
    bool messageWaiting;
    bool peerOnline;
    int result;
    size_t sleeps;
    const char* log;
  };
  const Case cases[] = {
      {"message at once", 0, true, true, 0, 0, nullptr},
      {"message on the third try", 2, true, true, 0, 2, nullptr},
      {"silent but online", 0, false, true, 2, 20,
       "WaitForMessageAndDispatch timed out waiting for party to answer."},
      {"silent and offline", 0, false, false, 1, 20,
       "PeekMessage() failed in WaitForMessageAndDispatch and IsPartyOnline is false."},
  };
  for (const Case& c : cases) {
    conflink::testing::ResetFake();
    systemLog.clear();
    CgiProbe cgi;
    ASSERT_TRUE(cgi.Connect(1, 0));
    Fake().emptyPeeks = c.emptyPeeks;
    Fake().peerOnline = c.peerOnline;
    if (c.messageWaiting) Fake().inbox = {{260, trailer(2)}};
    EXPECT_EQ(cgi.WaitForMessageAndDispatch(), c.result) << c.what;
    EXPECT_EQ(Fake().sleeps, std::vector<unsigned long>(c.sleeps, 250)) << c.what;
    if (c.log == nullptr) {
      EXPECT_TRUE(systemLog.empty()) << c.what;
    } else {
      EXPECT_EQ(systemLog, (std::vector<std::pair<int, std::string>>{{6, c.log}})) << c.what;
    }
  }
}

TEST_F(DispatchTest, SendMessageAppendsTheMarkInPlaceAndReturnsTheQueueResult) {
  CcProbe cc;
  CgiProbe cgi;
  ASSERT_TRUE(cc.Connect(1, 0));
  ASSERT_TRUE(cgi.Connect(1, 0));
  Fake().sendResult = 7;
  int type = 99;
  std::string buffer = "ab";
  EXPECT_EQ(cgi.SendMessage(&type, &buffer), 7);
  EXPECT_EQ(buffer, std::string("ab\0\0\0\x02", 6));
  Fake().sendResult = conflink::kQueuePeerStalled;
  EXPECT_EQ(cc.InitiateConferenceServer(), conflink::kQueuePeerStalled);
  ASSERT_EQ(Fake().sent.size(), 2u);
  EXPECT_EQ(Fake().sent[0].type, 99);
  EXPECT_EQ(Fake().sent[1].type, 70);
  EXPECT_EQ(Fake().sent[1].buffer, std::string(4, '\0')) << "empty payload, then the mark 0";
}

TEST_F(DispatchTest, ThreeArgumentReportErrorSendsItsIdAndCodeButNotTheFlag) {
  CcProbe cc;
  ASSERT_TRUE(cc.Connect(1, 0));
  cc.ReportError(0x0102030405060708ULL, static_cast<ConfServError>(-2), true);
  cc.ReportError(0x0102030405060708ULL, static_cast<ConfServError>(-2), false);
  ASSERT_EQ(Fake().sent.size(), 2u);
  const std::string expected("\x01\x02\x03\x04\x05\x06\x07\x08\xff\xff\xff\xfe\0\0\0\0", 16);
  for (const FakeMessage& m : Fake().sent) {
    EXPECT_EQ(m.type, 263);
    EXPECT_EQ(m.buffer, expected);
  }
}

TEST_F(DispatchTest, SendingWhileNotConnectedFailsCleanly) {
  CcProbe cc;
  EXPECT_EQ(cc.InitiateConferenceServer(), conflink::kQueueNotConnected);
  EXPECT_TRUE(Fake().sent.empty());
}

TEST_F(DispatchTest, ErrorWritesFramedTextToStderrAndTheSystemLog) {
  CCToPSMessenger cc(1);
  ::testing::internal::CaptureStderr();
  cc.Error("something broke: 100%s");
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "\n\rsomething broke: 100%s\r\n");
  EXPECT_EQ(systemLog, (std::vector<std::pair<int, std::string>>{{6, "something broke: 100%s"}}));
}

// The frame itself, with a handler whose arguments cover each kind of decoding: a payload that
// runs short of its fields, or claims more bytes than remain, is refused as a whole.
struct FrameProbe {
  std::vector<std::string> calls;
  std::vector<std::string> errors;
  int OnThing(const unsigned long long& id, const std::string& text,
              const std::list<std::string>& items, bool flag, PSProtocolType link) {
    std::string call = std::to_string(id) + " " + text + " [";
    for (const auto& i : items) call += i + ";";
    calls.push_back(call + "] " + (flag ? "true " : "false ") + std::to_string(link));
    return 0;
  }
  void Error(const char* text) { errors.push_back(text); }
};

struct ThingSender {
  int Thing(const unsigned long long&, const std::string&, const std::list<std::string>&, bool) {
    return 0;
  }
};
}  // namespace
template <>
struct conflink::msg::Counterpart<ThingSender> {
  using type = void;
  static constexpr const char* kFrom = "probe";
  static constexpr const char* kTo = "probe";
};
namespace {
inline constexpr conflink::msg::Message<5, &ThingSender::Thing, &FrameProbe::OnThing> kThing{
    "Thing"};
constexpr auto kProbeCases =
    conflink::dispatch::table<FrameProbe, 8>(std::array{conflink::msg::on<FrameProbe>(kThing)});

std::string describeNothing(int, const char*, size_t) {
  return "";
}
const conflink::LinkSite kProbeSite{"probe", 0, &describeNothing};

TEST_F(DispatchTest, FrameDecodesArgumentsInOrderAndPassesTheMark) {
  std::string payload;
  conflink::wire::append(payload, 0, 9ULL, std::string("conf"), std::list<std::string>{"a", "b"},
                         true, 2);
  FrameProbe p;
  EXPECT_TRUE(conflink::dispatch::frame(p, kProbeCases, 5, payload.data(),
                                        static_cast<int>(payload.size()), "short", kProbeSite));
  EXPECT_EQ(p.calls, std::vector<std::string>{"9 conf [a;b;] true 2"});
  EXPECT_TRUE(p.errors.empty());
}

TEST_F(DispatchTest, FrameRefusesEveryTruncationOfAValidPayloadWithOneError) {
  std::string payload;
  conflink::wire::append(payload, 0, 9ULL, std::string("conference"),
                         std::list<std::string>{"first", "second"}, false);
  for (size_t cut = 0; cut < payload.size(); ++cut) {
    std::string buffer = payload.substr(0, cut) + trailer(0);
    FrameProbe p;
    EXPECT_TRUE(conflink::dispatch::frame(p, kProbeCases, 5, buffer.data(),
                                          static_cast<int>(buffer.size()), "short", kProbeSite));
    EXPECT_TRUE(p.calls.empty()) << cut;
    ASSERT_EQ(p.errors.size(), 1u) << cut;
    EXPECT_EQ(p.errors[0].rfind(
                  "Malformed message 5 (Thing, " + std::to_string(cut) + " payload bytes): ", 0),
              0u)
        << p.errors[0];
  }
}

TEST_F(DispatchTest, FrameRefusesClaimedLengthsBeyondThePayload) {
  // A string claiming 2 GiB and a list claiming a billion elements.
  const std::string hugeString = std::string(8, '\0') + "\x7f\xff\xff\xff" + "abc" + trailer(0);
  const std::string hugeList = std::string(8, '\0') + std::string(4, '\0') + "\x3b\x9a\xca\x00" +
                               std::string(8, '\0') + trailer(0);
  for (const std::string& buffer : {hugeString, hugeList}) {
    FrameProbe p;
    EXPECT_TRUE(conflink::dispatch::frame(p, kProbeCases, 5, buffer.data(),
                                          static_cast<int>(buffer.size()), "short", kProbeSite));
    EXPECT_TRUE(p.calls.empty());
    ASSERT_EQ(p.errors.size(), 1u);
    EXPECT_NE(p.errors[0].find("left"), std::string::npos) << p.errors[0];
  }
}

}  // namespace
