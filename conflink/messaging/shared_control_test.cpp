// The control messages both links carry: every message from either messenger reaching the same
// handler in either messenger with the sender's link mark, and exact bytes.
#include <conflink/cc/cc_to_ps_messenger.h>
#include <conflink/cgi/cgi_to_ps_messenger.h>
#include <conflink/messaging/shared_messages.h>

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include <conflink/records/records.h>
#include "tests/support/fake_platform.h"
#include "tests/support/hex.h"
#include "tests/support/message_rows.h"

namespace {

namespace req = conflink::msg::both_to_ps;
namespace rep = conflink::msg::ps_to_both;
using conflink::testing::hex;
using CcProbe = conflink::testing::SharedRecorder<CCToPSMessenger>;
using CgiProbe = conflink::testing::SharedRecorder<CGIToPSMessenger>;

const unsigned long long kId = 0x0102030405060708ULL;
const ConfIDString kConf{"42"};

ConferenceUser someUser() {
  ConferenceUser u;
  u.id = 99;
  u.text1 = "Ada";
  u.text2 = "sip:ada@example.org";
  u.text3 = "";
  u.text4 = "ada@example.org";
  u.text5 = "+44 20 7946 0000";
  u.text6 = "chair";
  u.short1 = 1;
  u.short2 = 65535;
  int v = -5;
  for (int* f : {&u.value1, &u.value2, &u.value3, &u.value4, &u.value5, &u.value6, &u.value7,
                 &u.value8, &u.value9, &u.value10, &u.value11})
    *f = v++;
  return u;
}

// Every shared message, sent by `From`'s messenger and received by `To`'s.
template <class From, class To>
std::vector<conflink::testing::MessageRow<From, To>> sharedRows() {
  using P = conflink::testing::Pair<From, To>&;
  return {
      {"2", [](P p) { p.deliver(req::kAddParticipant, kId, kConf, 7ULL, someUser()); }},
      {"3", [](P p) { p.deliver(req::kDialOut, kId, kConf, 7ULL); }},
      {"4", [](P p) { p.deliver(req::kDeleteParticipant, kId, kConf, 7ULL, ~0ULL); }},
      {"5", [](P p) { p.deliver(req::kSetSpeaker, kId, kConf, 7ULL, 8ULL, true); }},
      {"6", [](P p) { p.deliver(req::kStartLectureMode, kId, kConf, 7ULL, 8ULL); }},
      {"7", [](P p) { p.deliver(req::kRequestToSpeak, kId, kConf, 7ULL, false); }},
      {"12",
       [](P p) {
         p.deliver(req::kAuthorizationRequest, kId, ConfIDString{""}, 7ULL,
                   std::string("pin\0 1234", 9));
       }},
      {"14", [](P p) { p.deliver(req::kStartConference, kId, kConf, 7ULL); }},
      {"15", [](P p) { p.deliver(req::kStopConference, kId, kConf, 7ULL); }},
      {"16", [](P p) { p.deliver(req::kRequestStartRecording, kId, kConf, 7ULL); }},
      {"17", [](P p) { p.deliver(req::kRequestStopRecording, kId, kConf, 7ULL); }},
      {"18", [](P p) { p.deliver(req::kRequestPauseRecording, kId, kConf, 7ULL); }},
      {"19", [](P p) { p.deliver(req::kRequestResumeRecording, kId, kConf, 7ULL); }},
      {"21", [](P p) { p.deliver(req::kInitiateDialOut, kId, kConf, 7ULL, true); }},
      {"22", [](P p) { p.deliver(req::kLockConference, kId, kConf, 7ULL, true); }},
      {"56",
       [](P p) {
         p.deliver(req::kGetConferenceParam, kId, kConf, static_cast<ConferenceParamType>(-9));
       }},
      {"258", [](P p) { p.deliver(rep::kSuccess, kId, static_cast<PSSuccessType>(3)); }},
      {"259", [](P p) { p.deliver(rep::kReject, kId, static_cast<RejectReason>(0x7fffffff)); }},
      {"260", [](P p) { p.deliver(rep::kModeratorApprovalNeeded, kId); }},
      {"261", [](P p) { p.deliver(rep::kAuthorizationPassed, kId, 7ULL, false, true); }},
      {"262", [](P p) { p.deliver(rep::kConferenceLocked, kId, true); }},
      {"278",
       [](P p) {
         p.deliver(rep::kSendConferenceParam, kId, static_cast<ConferenceParamType>(4), 5u,
                   static_cast<const void*>("a\0bcd"));
       }},
  };
}

TEST(SharedControl, EveryMessageFromEitherMessengerReachesEitherMessengersHandler) {
  conflink::testing::deliverEveryRow(sharedRows<CcProbe, CcProbe>());
  conflink::testing::deliverEveryRow(sharedRows<CgiProbe, CgiProbe>());
  conflink::testing::deliverEveryRow(sharedRows<CcProbe, CgiProbe>());
  conflink::testing::deliverEveryRow(sharedRows<CgiProbe, CcProbe>());
}

class SharedControlTest : public ::testing::Test {
 protected:
  void SetUp() override { conflink::testing::ResetFake(); }
  template <class M>
  conflink::testing::FakeMessage sentBy(
      M& m, const std::function<int(BothToPsInterface&, PsToBothInterface&)>& send) {
    return conflink::testing::Pair<M>::sentBy(m, [&send](M& p) { return send(p, p); });
  }
  template <class M>
  std::vector<std::string> receive(const conflink::testing::FakeMessage& message,
                                   std::vector<std::string>* errors = nullptr) {
    M m;
    const auto calls = conflink::testing::Pair<M>::dispatch(m, message);
    if (errors != nullptr) *errors = m.errors;
    return calls;
  }
};

// Only the trailer tells the two messengers' messages apart.
TEST_F(SharedControlTest, BothMessengersSendTheSamePayloadUnderTheSameType) {
  const std::function<int(BothToPsInterface&, PsToBothInterface&)> operations[] = {
      [](BothToPsInterface& c, PsToBothInterface&) {
        return c.AddParticipant(kId, kConf, 7, someUser());
      },
      [](BothToPsInterface&, PsToBothInterface& s) {
        return s.SendConferenceParam(kId, ConferenceParamType{}, 2, "xy");
      },
  };
  for (const auto& operation : operations) {
    CcProbe cc;
    CgiProbe cgi;
    const auto fromCc = sentBy(cc, operation);
    const auto fromCgi = sentBy(cgi, operation);
    EXPECT_EQ(fromCc.type, fromCgi.type);
    ASSERT_EQ(fromCc.buffer.size(), fromCgi.buffer.size());
    const size_t n = fromCc.buffer.size() - 4;
    EXPECT_EQ(fromCc.buffer.substr(0, n), fromCgi.buffer.substr(0, n));
    EXPECT_EQ(hex(fromCc.buffer.substr(n)), "00 00 00 00");
    EXPECT_EQ(hex(fromCgi.buffer.substr(n)), "00 00 00 02");
  }
}

// Exact bytes where the layout is easy to get wrong.
TEST_F(SharedControlTest, PayloadBytes) {
  struct Golden {
    const char* what;
    std::function<int(BothToPsInterface&, PsToBothInterface&)> send;
    int type;
    const char* payload;
  };
  const Golden cases[] = {
      {"DialOut", [](BothToPsInterface& c, PsToBothInterface&) { return c.DialOut(1, kConf, 7); },
       3, "00 00 00 00 00 00 00 01 00 00 00 02 34 32 00 00 00 00 00 00 00 07"},
      {"empty identifier and text",
       [](BothToPsInterface& c, PsToBothInterface&) {
         return c.AuthorizationRequest(1, ConfIDString{}, 2, "");
       },
       12, "00 00 00 00 00 00 00 01 00 00 00 00 00 00 00 00 00 00 00 02 00 00 00 00"},
      {"SetSpeaker's flag is the fifth field",
       [](BothToPsInterface& c, PsToBothInterface&) {
         return c.SetSpeaker(1, ConfIDString{}, 2, 3, true);
       },
       5,
       "00 00 00 00 00 00 00 01 00 00 00 00 00 00 00 00 00 00 00 02 00 00 00 00 00 00 00 03 "
       "00 00 00 01"},
      {"AuthorizationPassed's flags follow the second id",
       [](BothToPsInterface&, PsToBothInterface& s) {
         return s.AuthorizationPassed(1, 2, true, false);
       },
       261, "00 00 00 00 00 00 00 01 00 00 00 00 00 00 00 02 00 00 00 01 00 00 00 00"},
      {"ModeratorApprovalNeeded sends nothing",
       [](BothToPsInterface&, PsToBothInterface& s) { return s.ModeratorApprovalNeeded(kId); }, 260,
       ""},
      {"SendConferenceParam of size 0 reads nothing from the pointer",
       [](BothToPsInterface&, PsToBothInterface& s) {
         return s.SendConferenceParam(1, static_cast<ConferenceParamType>(2), 0, nullptr);
       },
       278, "00 00 00 00 00 00 00 01 00 00 00 02 00 00 00 00"},
      {"SendConferenceParam carries its bytes raw",
       [](BothToPsInterface&, PsToBothInterface& s) {
         return s.SendConferenceParam(1, static_cast<ConferenceParamType>(2), 3, "\x00\xff\x10");
       },
       278, "00 00 00 00 00 00 00 01 00 00 00 02 00 00 00 03 00 ff 10"},
  };
  for (const Golden& g : cases) {
    CcProbe cc;
    const auto m = sentBy(cc, g.send);
    EXPECT_EQ(m.type, g.type) << g.what;
    EXPECT_EQ(hex(m.buffer.substr(0, m.buffer.size() - 4)), g.payload) << g.what;
  }
}

TEST_F(SharedControlTest, AnEmptyParameterBlockStillReachesTheHandlerAsAValidPointer) {
  CcProbe cc;
  const auto m = sentBy(cc, [](BothToPsInterface&, PsToBothInterface& s) {
    return s.SendConferenceParam(9, static_cast<ConferenceParamType>(1), 0, nullptr);
  });
  EXPECT_EQ(receive<CgiProbe>(m), std::vector<std::string>{"OnSendConferenceParam(9, 1, 0, \"\")"});
}

TEST_F(SharedControlTest, AParameterBlockClaimingMoreThanThePayloadIsRefused) {
  // Size 0x7fffffff with three bytes behind it.
  conflink::testing::FakeMessage m{278, std::string(8, '\0') + std::string(4, '\0') +
                                            "\x7f\xff\xff\xff" + "abc" + std::string(4, '\0')};
  std::vector<std::string> errors;
  EXPECT_TRUE(receive<CcProbe>(m, &errors).empty());
  ASSERT_EQ(errors.size(), 1u);
  EXPECT_NE(errors[0].find("Malformed message 278 (SendConferenceParam"), std::string::npos)
      << errors[0];
}

}  // namespace
