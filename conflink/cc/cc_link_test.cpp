// The call-control link: every message of either direction from its operation to the other end's
// handler, the exact bytes of its irregular messages, and the names both directions share.
#include <conflink/cc/cc_messages.h>
#include <conflink/cc/cc_to_ps_messenger.h>
#include <conflink/messaging/shared_messages.h>

#include <gtest/gtest.h>

#include <functional>
#include <list>
#include <string>
#include <vector>

#include <conflink/records/records.h>
#include <conflink/records/records_test_support.h>
#include "tests/support/cc_recorder.h"
#include "tests/support/fake_platform.h"
#include "tests/support/hex.h"
#include "tests/support/message_rows.h"

namespace {

namespace up = conflink::msg::cc_to_ps;
namespace down = conflink::msg::ps_to_cc;
using conflink::testing::Fake;
using conflink::testing::hex;
using conflink::testing::sampleCall;
using conflink::testing::sampleUri;

using conflink::testing::CcRecorder;
using Pair = conflink::testing::Pair<CcRecorder>;

const unsigned long long kId = 0x0102030405060708ULL;
const ConfIDString kConf{"room-7"};
const std::list<std::string> kTexts{"one", "", "three"};
const ParticipantParams kParticipant{1, -2, 3, 0x7fffffff, -5};
const ConfSpecParams kSetup{10, 20, -30, 40, 50};
const AttendantZeroOutParams kZeroOut{9, "operator", "", "sip:op@example.org", "x"};

RegisterParams registration(int s) {
  RegisterParams r;
  static_cast<CallParams&>(r) = sampleCall(s);
  r.value2 = s * 3;
  r.value3 = -s;
  r.text11 = "reg-" + std::to_string(s);
  return r;
}
// With value3 0 the address travels after the record's numbers.
RecordingParams recordingWithAddress() {
  return {4, {"a", "b"}, 5, 0, 6, -7, sampleUri(2)};
}
ConfTopology topology() {
  return {{{11, {{1, 2}, {3, 4}}}, {12, {}}}};
}
EndpointTopology endpoint() {
  return {{{5, 6}}, {{7, 8}, {9, -10}}};
}

template <class E>
E as(int v) {
  return static_cast<E>(v);
}

TEST(CcLink, EveryMessageReachesTheOtherEndsHandlerWithEqualValues) {
  const CallParams call = sampleCall(1);
  const std::vector<conflink::testing::MessageRow<CcRecorder>> rows = {
      {"0", [](Pair& p) { p.deliver(up::kJoinConference, kId, kConf, "", sampleUri(1), true); }},
      {"1", [](Pair& p) { p.deliver(up::kActivateParticipant, kId, kConf, 7ULL, "ab", false); }},
      {"8", [](Pair& p) { p.deliver(up::kParticipantLeft, kId, kConf, ~0ULL); }},
      {"9", [](Pair& p) { p.deliver(up::kHoldParticipant, kId, kConf, 8ULL, true); }},
      {"10",
       [](Pair& p) {
         p.deliver(up::kForwardParticipant, kId, kConf, std::list<CallParams>{sampleCall(2)});
       }},
      {"10 empty",
       [](Pair& p) { p.deliver(up::kForwardParticipant, kId, kConf, std::list<CallParams>{}); }},
      {"11", [](Pair& p) { p.deliver(up::kGetEndpointTopology, kId, ConfIDString{}, 9ULL); }},
      {"20", [](Pair& p) { p.deliver(up::kRecordingTerminated, kId, kConf); }},
      {"70", [](Pair& p) { p.deliver(up::kInitiateConferenceServer); }},
      {"112", [](Pair& p) { p.deliver(up::kSuccess, kId, as<CCSuccessType>(-1)); }},
      {"113", [](Pair& p) { p.deliver(up::kReportError, kId, as<ConfServError>(12)); }},
      {"128",
       [](Pair& p) {
         p.deliver(down::kAddParticipant, kId, kConf, sampleUri(3), 5ULL, sampleCall(3), kTexts,
                   kParticipant, as<TransmitType>(2));
       }},
      {"129",
       [](Pair& p) {
         p.deliver(down::kUpdateUserInfo, kId, sampleCall(4), CallExtraParams{-1, 1});
       }},
      {"130", [](Pair& p) { p.deliver(down::kRemoveParticipant, kId, kConf); }},
      {"131 with a call and an address",
       [&call](Pair& p) {
         p.deliver(down::kSetupConference, kId, kConf, recordingWithAddress(), &call, kSetup,
                   static_cast<unsigned short>(0xABCD));
       }},
      {"131 without either",
       [](Pair& p) {
         const RecordingParams noAddress{4, {}, 5, 1, 6, 7, SipUri{}};
         p.deliver(down::kSetupConference, kId, kConf, noAddress,
                   static_cast<const CallParams*>(nullptr), kSetup, static_cast<unsigned short>(0));
       }},
      {"132",
       [](Pair& p) {
         p.deliver(down::kCloseConference, kId, kConf, as<CloseConferenceReason>(3));
       }},
      {"133", [](Pair& p) { p.deliver(down::kStartConference, kId, kConf); }},
      {"134", [](Pair& p) { p.deliver(down::kStopConference, kId, kConf); }},
      {"135", [](Pair& p) { p.deliver(down::kPauseConference, kId); }},
      {"136", [](Pair& p) { p.deliver(down::kResumeConference, kId); }},
      {"137", [](Pair& p) { p.deliver(down::kStartRecording, kId, kConf); }},
      {"138", [](Pair& p) { p.deliver(down::kStopRecording, kId, kConf); }},
      {"139", [](Pair& p) { p.deliver(down::kPauseRecording, kId, kConf); }},
      {"140", [](Pair& p) { p.deliver(down::kResumeRecording, kId, kConf); }},
      {"141", [](Pair& p) { p.deliver(down::kModifyConferenceMedia, kId, kConf, topology()); }},
      {"142", [](Pair& p) { p.deliver(down::kModifyParticipantMedia, kId); }},
      {"143", [](Pair& p) { p.deliver(down::kSetSpeaker, kId, kConf, true); }},
      {"144",
       [](Pair& p) {
         p.deliver(down::kRegisterConfID, kId, kConf, registration(1), registration(2));
       }},
      {"145",
       [](Pair& p) {
         p.deliver(down::kRegisterAllConferences,
                   std::list<RegisterParams>{registration(3), registration(4)});
       }},
      {"146", [](Pair& p) { p.deliver(down::kAddScenario, kId, kConf, as<ScenarioType>(1)); }},
      {"147", [](Pair& p) { p.deliver(down::kUpdateScenario, kId, kConf, as<ScenarioType>(2)); }},
      {"148", [](Pair& p) { p.deliver(down::kRemoveScenario, kId, kConf, as<ScenarioType>(3)); }},
      {"256",
       [](Pair& p) {
         p.deliver(down::kJoinAccept, kId, 6ULL, kConf, kTexts, kParticipant, as<TransmitType>(1));
       }},
      {"257", [](Pair& p) { p.deliver(down::kJoinReject, kId, as<RejectReason>(4), kTexts); }},
      {"288",
       [](Pair& p) { p.deliver(down::kActivateAttendant, kId, kConf, kTexts, kZeroOut, true); }},
      {"264", [](Pair& p) { p.deliver(down::kSendEndpointTopology, kId, kConf, endpoint()); }},
      {"263", [](Pair& p) { p.deliver(down::kReportError, kId, as<ConfServError>(-8), true); }},
  };
  conflink::testing::deliverEveryRow(rows);
}

// The messages whose bytes are easy to get wrong: the optional call and the recording tail of
// 131, the list without a RequestId of 145, the unsent flag of 263 and the empty payloads.
TEST(CcLink, PayloadBytes) {
  const CallParams call{"a", "", "", "", "", "", "", "", "", "b", -1};
  const RecordingParams noAddress{1, {}, 2, 3, 4, 5, sampleUri(1)};  // value3 3: address omitted
  const RecordingParams withAddress{1, {}, 2, 0, 4, 5, SipUri{"s", "", "", ""}};
  const ConfSpecParams setup{6, 7, 8, 9, 10};
  const std::string id = "00 00 00 00 00 00 00 01 ";
  const std::string conf = "00 00 00 01 63 ";  // "c"
  const std::string recordingHead =
      "00 00 00 01 00 00 00 00 00 00 00 02 ";  // value1, texts, value2
  const std::string setupBytes = "00 00 00 06 00 00 00 07 00 00 00 08 00 00 00 09 00 00 00 0a ";
  struct Golden {
    const char* what;
    std::function<int(CCToPSMessenger&)> send;
    int type;
    std::string payload;
  };
  auto zeros = [](int words) {
    std::string out;
    for (int i = 0; i < words; ++i) out += "00 00 00 00 ";
    return out;
  };
  const std::string emptyStrings = zeros(8);
  const Golden cases[] = {
      {"131 without a call, without an address",
       [&](CCToPSMessenger& m) {
         return m.SetupConference(1, ConfIDString{"c"}, noAddress, nullptr, setup, 0x1234);
       },
       131,
       id + conf + recordingHead + "00 00 00 03 00 00 00 04 00 00 00 05 " + "00 00 00 00 " +
           setupBytes + "12 34"},
      {"131 with a call and an address",
       [&](CCToPSMessenger& m) {
         return m.SetupConference(1, ConfIDString{"c"}, withAddress, &call, setup, 0xFFFF);
       },
       131,
       id + conf + recordingHead + "00 00 00 00 00 00 00 04 00 00 00 05 " +
           "00 00 00 01 73 00 00 00 00 00 00 00 00 00 00 00 00 " + "00 00 00 01 " +
           "00 00 00 01 61 " + emptyStrings + "00 00 00 01 62 ff ff ff ff " + setupBytes + "ff ff"},
      {"145 has no RequestId", [](CCToPSMessenger& m) { return m.RegisterAllConferences({}); }, 145,
       "00 00 00 00"},
      {"263 leaves its flag out (true)",
       [](CCToPSMessenger& m) { return m.ReportError(1, static_cast<ConfServError>(2), true); },
       263, id + "00 00 00 02"},
      {"263 leaves its flag out (false)",
       [](CCToPSMessenger& m) { return m.ReportError(1, static_cast<ConfServError>(2), false); },
       263, id + "00 00 00 02"},
      {"113", [](CCToPSMessenger& m) { return m.ReportError(1, static_cast<ConfServError>(2)); },
       113, id + "00 00 00 02"},
      {"135", [](CCToPSMessenger& m) { return m.PauseConference(~0ULL); }, 135, ""},
      {"136", [](CCToPSMessenger& m) { return m.ResumeConference(1); }, 136, ""},
      {"142", [](CCToPSMessenger& m) { return m.ModifyParticipantMedia(1); }, 142, ""},
      {"70", [](CCToPSMessenger& m) { return m.InitiateConferenceServer(); }, 70, ""},
      {"257 with an empty list",
       [](CCToPSMessenger& m) { return m.JoinReject(1, static_cast<RejectReason>(3), {}); }, 257,
       id + "00 00 00 03 00 00 00 00"},
      {"0 with an empty text between the conference and the address",
       [](CCToPSMessenger& m) {
         return m.JoinConference(1, ConfIDString{"c"}, "", SipUri{"u", "", "", ""}, true);
       },
       0, id + conf + "00 00 00 00 00 00 00 01 75 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 01"},
      {"128: the second id follows the address",
       [](CCToPSMessenger& m) {
         return m.AddParticipant(1, ConfIDString{"c"}, SipUri{}, 2, CallParams{}, {},
                                 ParticipantParams{}, static_cast<TransmitType>(4));
       },
       128,
       id + conf + zeros(4) + "00 00 00 00 00 00 00 02 " + zeros(11) + zeros(1) + zeros(5) +
           "00 00 00 04"},
  };
  for (const Golden& g : cases) {
    conflink::testing::ResetFake();
    CCToPSMessenger m(1);
    ASSERT_TRUE(m.Connect(1, 0));
    g.send(m);
    ASSERT_EQ(Fake().sent.size(), 1u) << g.what;
    const auto& sent = Fake().sent.back();
    EXPECT_EQ(sent.type, g.type) << g.what;
    EXPECT_EQ(hex(sent.buffer.substr(0, sent.buffer.size() - 4)) + " ", g.payload + " ") << g.what;
  }
}

TEST(CcLink, SuccessFromCallControlAndFromTheServerReachDifferentHandlers) {
  conflink::testing::ResetFake();
  Pair p;
  const auto fromCc =
      Pair::sentBy(p.a, [](CcRecorder& m) { return m.Success(1, as<CCSuccessType>(5)); });
  const auto fromPs =
      Pair::sentBy(p.a, [](CcRecorder& m) { return m.Success(1, as<PSSuccessType>(5)); });
  EXPECT_EQ(Pair::dispatch(p.b, fromCc), std::vector<std::string>{"OnSuccess(1, 5, 0)"});
  EXPECT_EQ(Pair::dispatch(p.b, fromPs), std::vector<std::string>{"OnSuccess(1, 5)"});
}

// Either end may report an error with 113, and the server's 263 reaches the same handler.
TEST(CcLink, BothErrorReportsReachOneHandlerFromEitherEnd) {
  for (const bool threeArguments : {false, true}) {
    conflink::testing::ResetFake();
    Pair p;
    const auto sent = Pair::sentBy(p.a, [threeArguments](CcRecorder& m) {
      return threeArguments ? m.ReportError(4, as<ConfServError>(9), true)
                            : static_cast<PsToCcInterface&>(m).ReportError(4, as<ConfServError>(9));
    });
    EXPECT_EQ(sent.type, threeArguments ? 263 : 113);
    EXPECT_EQ(Pair::dispatch(p.b, sent), std::vector<std::string>{"OnReportError(4, 9)"});
  }
}

// The namesakes of the shared messages stay callable on the messenger itself, each under its
// own number.
TEST(CcLink, NamesakesAreBothCallableOnTheMessenger) {
  const CallParams call{};
  const struct {
    const char* what;
    std::function<int(CCToPSMessenger&)> send;
    int type;
  } cases[] = {
      {"shared AddParticipant",
       [](CCToPSMessenger& m) { return m.AddParticipant(1, kConf, 2, ConferenceUser{}); }, 2},
      {"AddParticipant to call control",
       [&call](CCToPSMessenger& m) {
         return m.AddParticipant(1, kConf, SipUri{}, 2, call, {}, kParticipant,
                                 as<TransmitType>(0));
       },
       128},
      {"shared SetSpeaker", [](CCToPSMessenger& m) { return m.SetSpeaker(1, kConf, 2, 3, true); },
       5},
      {"SetSpeaker to call control",
       [](CCToPSMessenger& m) { return m.SetSpeaker(1, kConf, true); }, 143},
      {"shared StartConference", [](CCToPSMessenger& m) { return m.StartConference(1, kConf, 2); },
       14},
      {"StartConference to call control",
       [](CCToPSMessenger& m) { return m.StartConference(1, kConf); }, 133},
      {"shared StopConference", [](CCToPSMessenger& m) { return m.StopConference(1, kConf, 2); },
       15},
      {"StopConference to call control",
       [](CCToPSMessenger& m) { return m.StopConference(1, kConf); }, 134},
      {"shared Success", [](CCToPSMessenger& m) { return m.Success(1, as<PSSuccessType>(0)); },
       258},
      {"Success of call control",
       [](CCToPSMessenger& m) { return m.Success(1, as<CCSuccessType>(0)); }, 112},
  };
  for (const auto& c : cases) {
    conflink::testing::ResetFake();
    CCToPSMessenger m(1);
    ASSERT_TRUE(m.Connect(1, 0));
    c.send(m);
    ASSERT_EQ(Fake().sent.size(), 1u) << c.what;
    EXPECT_EQ(Fake().sent.back().type, c.type) << c.what;
  }
}

}  // namespace
