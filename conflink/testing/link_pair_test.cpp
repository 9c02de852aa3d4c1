// The test pair on both links: operations on one end reach the other end's handlers with their
// values and the link's mark, answers come back, queue events reach the peer handlers, a
// malformed buffer is reported and handled by nobody, and a conversation that never ends stops.
#include <conflink/testing/link_pair.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <conflink/messaging/trace.h>
#include <conflink/records/record_equality.h>
#include <conflink/wire/text.h>

namespace {

using conflink::testing::End;
using conflink::testing::LinkPair;
using conflink::wire::toText;

// ---- The call-control link ----

class Server : public CCToPSMessenger {
 public:
  using CCToPSMessenger::CCToPSMessenger;
  std::vector<std::string> seen;
  int peers = 0;
  int OnJoinConference(const unsigned long long& id, const ConfIDString& conf,
                       const std::string& text, const SipUri& uri, bool flag,
                       PSProtocolType link) override {
    seen.push_back("join " + std::to_string(id) + " " + conf.id + " " + text + " " + toText(uri) +
                   " " + toText(flag) + " mark " + std::to_string(link));
    return JoinAccept(id, 77, conf, {"welcome"}, ParticipantParams{1, 2, 3, 4, 5},
                      static_cast<TransmitType>(1));
  }
  int OnHoldParticipant(const unsigned long long& id, const ConfIDString&,
                        const unsigned long long&, bool, PSProtocolType) override {
    return Success(id, static_cast<PSSuccessType>(0));
  }
  void PSPeerConnected() override { ++peers; }
};

class CallControl : public CCToPSMessenger {
 public:
  using CCToPSMessenger::CCToPSMessenger;
  std::vector<std::string> seen;
  std::vector<std::string> errors;
  int peers = 0;
  int OnJoinAccept(const unsigned long long& id, const unsigned long long& party,
                   const ConfIDString& conf, const std::list<std::string>& texts,
                   const ParticipantParams& params, TransmitType transmit) override {
    seen.push_back("accept " + std::to_string(id) + " " + std::to_string(party) + " " + conf.id +
                   " " + toText(texts) + " " + toText(params) + " " + toText(transmit));
    return 0;
  }
  int OnSuccess(const unsigned long long& id, PSSuccessType) override {
    seen.push_back("success " + std::to_string(id));
    // Every answer asks again: a conversation that never ends.
    return HoldParticipant(id + 1, ConfIDString{"c"}, 1, true);
  }
  void PSPeerConnected() override { ++peers; }
  void Error(const char* text) override { errors.push_back(text); }
};

TEST(LinkPairCc, ARequestReachesTheServerAndItsAnswerComesBack) {
  LinkPair<Server, CallControl> pair(7);
  EXPECT_EQ(pair.client().JoinConference(5, ConfIDString{"room"}, "ada",
                                         SipUri{"sip:", "ada", "h", "5060"}, true),
            1);
  EXPECT_TRUE(pair.server().seen.empty()) << "nothing is delivered before the test asks";
  EXPECT_EQ(pair.settle(), 2u);
  EXPECT_EQ(
      pair.server().seen,
      std::vector<std::string>{
          R"(join 5 room ada SipUri{text1="sip:", text2="ada", text3="h", text4="5060"} true mark 0)"});
  ASSERT_EQ(pair.client().seen.size(), 1u);
  EXPECT_EQ(
      pair.client().seen[0],
      R"(accept 5 77 room ["welcome"] ParticipantParams{value1=1, value2=2, value3=3, value4=4, value5=5} 1)");
}

TEST(LinkPairCc, PeerArrivalReachesThePeerHandlersThroughTheReceiveLoop) {
  LinkPair<Server, CallControl> pair;
  pair.attach();
  EXPECT_EQ(pair.waiting(End::kServer), 1u);
  EXPECT_TRUE(pair.server().ProcessMessageFromQueue(8));
  EXPECT_TRUE(pair.client().ProcessMessageFromQueue(8));
  EXPECT_EQ(pair.server().peers, 1);
  EXPECT_EQ(pair.client().peers, 1);
  EXPECT_FALSE(pair.client().ProcessMessageFromQueue(8)) << "nothing is left";
  EXPECT_EQ(pair.client().WaitForMessageAndDispatch(), 1) << "an empty link never blocks";
}

TEST(LinkPairCc, AMalformedBufferIsReportedAndReachesNoHandler) {
  LinkPair<Server, CallControl> pair;
  // JoinAccept (256) with a payload of two bytes, then the mark 0.
  pair.inject(End::kClient, 256, std::string("\x01\x02\0\0\0\0", 6));
  EXPECT_EQ(pair.settle(), 1u);
  EXPECT_TRUE(pair.client().seen.empty());
  ASSERT_EQ(pair.client().errors.size(), 1u);
  EXPECT_EQ(pair.client().errors[0].rfind("Malformed message 256 (JoinAccept, 2 payload bytes)", 0),
            0u)
      << pair.client().errors[0];
}

TEST(LinkPairCc, AConversationThatNeverEndsStopsAtTheBound) {
  LinkPair<Server, CallControl> pair;
  pair.client().HoldParticipant(1, ConfIDString{"c"}, 1, true);
  EXPECT_EQ(pair.settle(10), 10u);
  EXPECT_EQ(pair.client().seen.size(), 5u);
  EXPECT_EQ(pair.waiting(End::kServer) + pair.waiting(End::kClient), 1u);
}

// ---- The web front end's link ----

ConfGeneralParams general() {
  ConfGeneralParams g{};
  g.text1 = "Weekly";
  g.text2 = "staff";
  g.value1 = 3;
  g.wide1 = 1700000000ULL;
  return g;
}

class AdminServer : public CGIToPSMessenger {
 public:
  using CGIToPSMessenger::CGIToPSMessenger;
  ConfGeneralParams stored{};
  PSProtocolType markSeen = static_cast<PSProtocolType>(-1);
  int OnSaveConfGeneral(const unsigned long long& id, const ConfIDString&,
                        const unsigned long long&, const ConfGeneralParams& g,
                        PSProtocolType link) override {
    stored = g;
    markSeen = link;
    return Success(id, static_cast<PSSuccessType>(0));
  }
  int OnGetGeneralSettings(const unsigned long long& id, const ConfIDString&, GetConferenceType,
                           PSProtocolType) override {
    return SendGeneralSettings(id, stored);
  }
};

class WebFrontEnd : public CGIToPSMessenger {
 public:
  using CGIToPSMessenger::CGIToPSMessenger;
  std::vector<unsigned long long> succeeded;
  ConfGeneralParams readBack{};
  int OnSuccess(const unsigned long long& id, PSSuccessType) override {
    succeeded.push_back(id);
    return 0;
  }
  int OnSendGeneralSettings(const unsigned long long&, const ConfGeneralParams& g) override {
    readBack = g;
    return 0;
  }
};

TEST(LinkPairCgi, SettingsSavedAndReadBackArriveWithTheLinksMark) {
  LinkPair<AdminServer, WebFrontEnd> pair;
  pair.client().SaveConfGeneral(1, ConfIDString{"42"}, 9, general());
  pair.client().GetGeneralSettings(2, ConfIDString{"42"}, static_cast<GetConferenceType>(0));
  EXPECT_EQ(pair.settle(), 4u);
  EXPECT_EQ(pair.server().markSeen, conflink::kCgiLinkMark);
  EXPECT_EQ(pair.client().succeeded, std::vector<unsigned long long>{1});
  EXPECT_TRUE(pair.client().readBack == general()) << toText(pair.client().readBack);
}

TEST(LinkPairCgi, TheTraceShowsThePairsTraffic) {
  std::vector<std::string> lines;
  conflink::SetTraceSink(
      [](void* context, const conflink::TraceRecord& r) {
        static_cast<std::vector<std::string>*>(context)->push_back(
            std::string(conflink::TraceKindText(r.kind)) + " " + r.text);
      },
      &lines);
  LinkPair<AdminServer, WebFrontEnd> pair(12);
  pair.client().SaveConfGeneral(1, ConfIDString{"42"}, 9, ConfGeneralParams{});
  pair.settle();
  conflink::StopTrace();
  ASSERT_EQ(lines.size(), 4u);
  EXPECT_EQ(lines[0].rfind("send SaveConfGeneral(1, ConfIDString{id=\"42\"}, 9, ", 0), 0u);
  EXPECT_EQ(lines[1].rfind("recv SaveConfGeneral(", 0), 0u);
  EXPECT_EQ(lines[2], "send Success(1, 0) [type 258, mark 2]");
  EXPECT_EQ(lines[3], "recv Success(1, 0) [type 258, mark 2]");
}

}  // namespace
