// The control messages both links carry: exact bytes, and every message sent by either messenger
// reaching the same handler in either messenger with the sender's link mark.
#include <conflink/cc/cc_to_ps_messenger.h>
#include <conflink/cgi/cgi_to_ps_messenger.h>

#include <conflink/cc/cc_catalogue.h>
#include <conflink/cgi/cgi_catalogue.h>

#include <gtest/gtest.h>

#include "tests/support/hex.h"

#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include <conflink/records/records.h>
#include "tests/support/fake_platform.h"

namespace {

using conflink::testing::hex;

using conflink::testing::Fake;

std::string show(unsigned long long v) {
  return std::to_string(v);
}
std::string show(unsigned int v) {
  return std::to_string(v);
}
std::string show(bool v) {
  return v ? "true" : "false";
}
std::string show(const std::string& v) {
  return "'" + v + "'";
}
std::string show(const ConfIDString& v) {
  return "conf:" + v.id;
}
std::string show(const ConferenceUser& u) {
  std::ostringstream o;
  o << "user:" << u.id << '/' << u.text1 << '/' << u.text2 << '/' << u.text3 << '/' << u.text4
    << '/' << u.text5 << '/' << u.text6 << '/' << u.short1 << '/' << u.short2;
  for (int v : {u.value1, u.value2, u.value3, u.value4, u.value5, u.value6, u.value7, u.value8,
                u.value9, u.value10, u.value11})
    o << '/' << v;
  return o.str();
}
template <class E, class = std::enable_if_t<std::is_enum_v<E>>>
std::string show(E v) {
  return std::to_string(static_cast<int>(v));
}

// A messenger of either link whose shared handlers record their arguments.
template <class Base>
class Probe : public Base {
 public:
  Probe() : Base(3) {}
  std::vector<std::string> calls;
  std::vector<std::string> errors;
  void Error(const char* text) override { errors.push_back(text); }

  int OnSuccess(const unsigned long long& id, PSSuccessType r) override {
    return note("OnSuccess", id, r);
  }
  int OnReject(const unsigned long long& id, RejectReason r) override {
    return note("OnReject", id, r);
  }
  int OnModeratorApprovalNeeded(const unsigned long long& id) override {
    return note("OnModeratorApprovalNeeded", id);
  }
  int OnAuthorizationPassed(const unsigned long long& id, const unsigned long long& p, bool a,
                            bool b) override {
    return note("OnAuthorizationPassed", id, p, a, b);
  }
  int OnConferenceLocked(const unsigned long long& id, bool l) override {
    return note("OnConferenceLocked", id, l);
  }
  int OnSendConferenceParam(const unsigned long long& id, ConferenceParamType t, unsigned int n,
                            const void* data) override {
    if (data == nullptr) return note("OnSendConferenceParam with a null block");
    return note("OnSendConferenceParam", id, t, n, std::string(static_cast<const char*>(data), n));
  }
  int OnAddParticipant(const unsigned long long& id, const ConfIDString& c,
                       const unsigned long long& p, const ConferenceUser& u,
                       PSProtocolType l) override {
    return note("OnAddParticipant", id, c, p, u, l);
  }
  int OnDialOut(const unsigned long long& id, const ConfIDString& c, const unsigned long long& p,
                PSProtocolType l) override {
    return note("OnDialOut", id, c, p, l);
  }
  int OnDeleteParticipant(const unsigned long long& id, const ConfIDString& c,
                          const unsigned long long& p, const unsigned long long& o,
                          PSProtocolType l) override {
    return note("OnDeleteParticipant", id, c, p, o, l);
  }
  int OnSetSpeaker(const unsigned long long& id, const ConfIDString& c, const unsigned long long& p,
                   const unsigned long long& o, bool b, PSProtocolType l) override {
    return note("OnSetSpeaker", id, c, p, o, b, l);
  }
  int OnStartLectureMode(const unsigned long long& id, const ConfIDString& c,
                         const unsigned long long& p, const unsigned long long& o,
                         PSProtocolType l) override {
    return note("OnStartLectureMode", id, c, p, o, l);
  }
  int OnRequestToSpeak(const unsigned long long& id, const ConfIDString& c,
                       const unsigned long long& p, bool b, PSProtocolType l) override {
    return note("OnRequestToSpeak", id, c, p, b, l);
  }
  int OnAuthorizationRequest(const unsigned long long& id, const ConfIDString& c,
                             const unsigned long long& p, const std::string& t,
                             PSProtocolType l) override {
    return note("OnAuthorizationRequest", id, c, p, t, l);
  }
  int OnStartConference(const unsigned long long& id, const ConfIDString& c,
                        const unsigned long long& p, PSProtocolType l) override {
    return note("OnStartConference", id, c, p, l);
  }
  int OnStopConference(const unsigned long long& id, const ConfIDString& c,
                       const unsigned long long& p, PSProtocolType l) override {
    return note("OnStopConference", id, c, p, l);
  }
  int OnRequestStartRecording(const unsigned long long& id, const ConfIDString& c,
                              const unsigned long long& p, PSProtocolType l) override {
    return note("OnRequestStartRecording", id, c, p, l);
  }
  int OnRequestStopRecording(const unsigned long long& id, const ConfIDString& c,
                             const unsigned long long& p, PSProtocolType l) override {
    return note("OnRequestStopRecording", id, c, p, l);
  }
  int OnRequestPauseRecording(const unsigned long long& id, const ConfIDString& c,
                              const unsigned long long& p, PSProtocolType l) override {
    return note("OnRequestPauseRecording", id, c, p, l);
  }
  int OnRequestResumeRecording(const unsigned long long& id, const ConfIDString& c,
                               const unsigned long long& p, PSProtocolType l) override {
    return note("OnRequestResumeRecording", id, c, p, l);
  }
  int OnInitiateDialOut(const unsigned long long& id, const ConfIDString& c,
                        const unsigned long long& p, bool b, PSProtocolType l) override {
    return note("OnInitiateDialOut", id, c, p, b, l);
  }
  int OnLockConference(const unsigned long long& id, const ConfIDString& c,
                       const unsigned long long& p, bool b, PSProtocolType l) override {
    return note("OnLockConference", id, c, p, b, l);
  }
  int OnGetConferenceParam(const unsigned long long& id, const ConfIDString& c,
                           ConferenceParamType t, PSProtocolType l) override {
    return note("OnGetConferenceParam", id, c, t, l);
  }

 private:
  template <class... A>
  int note(const char* name, const A&... args) {
    std::string call = name;
    ((call += " " + show(args)), ...);
    calls.push_back(call);
    return 0;
  }
};

using CcProbe = Probe<CCToPSMessenger>;
using CgiProbe = Probe<CGIToPSMessenger>;

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

// Every shared message: how a client or the server sends it, and the call the receiver sees
// (requests also get the sender's link mark appended).
struct SharedCase {
  const char* name;
  int type;
  bool request;
  std::function<int(BothToPsInterface&, PsToBothInterface&)> send;
  std::string call;  // empty: no handler runs
};

std::vector<SharedCase> sharedCases() {
  const std::string user = show(someUser());
  const std::string id = show(kId);
  return {
      {"AddParticipant", 2, true,
       [](BothToPsInterface& c, PsToBothInterface&) {
         return c.AddParticipant(kId, kConf, 7, someUser());
       },
       "OnAddParticipant " + id + " conf:42 7 " + user},
      {"DialOut", 3, true,
       [](BothToPsInterface& c, PsToBothInterface&) { return c.DialOut(kId, kConf, 7); },
       "OnDialOut " + id + " conf:42 7"},
      {"DeleteParticipant", 4, true,
       [](BothToPsInterface& c, PsToBothInterface&) {
         return c.DeleteParticipant(kId, kConf, 7, ~0ULL);
       },
       "OnDeleteParticipant " + id + " conf:42 7 18446744073709551615"},
      {"SetSpeaker", 5, true,
       [](BothToPsInterface& c, PsToBothInterface&) {
         return c.SetSpeaker(kId, kConf, 7, 8, true);
       },
       "OnSetSpeaker " + id + " conf:42 7 8 true"},
      {"StartLectureMode", 6, true,
       [](BothToPsInterface& c, PsToBothInterface&) {
         return c.StartLectureMode(kId, kConf, 7, 8);
       },
       "OnStartLectureMode " + id + " conf:42 7 8"},
      {"RequestToSpeak", 7, true,
       [](BothToPsInterface& c, PsToBothInterface&) {
         return c.RequestToSpeak(kId, kConf, 7, false);
       },
       "OnRequestToSpeak " + id + " conf:42 7 false"},
      {"AuthorizationRequest", 12, true,
       [](BothToPsInterface& c, PsToBothInterface&) {
         return c.AuthorizationRequest(kId, ConfIDString{""}, 7, std::string("pin\0 1234", 9));
       },
       "OnAuthorizationRequest " + id + " conf: 7 '" + std::string("pin\0 1234", 9) + "'"},
      {"StartConference", 14, true,
       [](BothToPsInterface& c, PsToBothInterface&) { return c.StartConference(kId, kConf, 7); },
       "OnStartConference " + id + " conf:42 7"},
      {"StopConference", 15, true,
       [](BothToPsInterface& c, PsToBothInterface&) { return c.StopConference(kId, kConf, 7); },
       "OnStopConference " + id + " conf:42 7"},
      {"RequestStartRecording", 16, true,
       [](BothToPsInterface& c, PsToBothInterface&) {
         return c.RequestStartRecording(kId, kConf, 7);
       },
       "OnRequestStartRecording " + id + " conf:42 7"},
      {"RequestStopRecording", 17, true,
       [](BothToPsInterface& c, PsToBothInterface&) {
         return c.RequestStopRecording(kId, kConf, 7);
       },
       "OnRequestStopRecording " + id + " conf:42 7"},
      {"RequestPauseRecording", 18, true,
       [](BothToPsInterface& c, PsToBothInterface&) {
         return c.RequestPauseRecording(kId, kConf, 7);
       },
       "OnRequestPauseRecording " + id + " conf:42 7"},
      {"RequestResumeRecording", 19, true,
       [](BothToPsInterface& c, PsToBothInterface&) {
         return c.RequestResumeRecording(kId, kConf, 7);
       },
       "OnRequestResumeRecording " + id + " conf:42 7"},
      {"InitiateDialOut", 21, true,
       [](BothToPsInterface& c, PsToBothInterface&) {
         return c.InitiateDialOut(kId, kConf, 7, true);
       },
       "OnInitiateDialOut " + id + " conf:42 7 true"},
      {"LockConference", 22, true,
       [](BothToPsInterface& c, PsToBothInterface&) {
         return c.LockConference(kId, kConf, 7, true);
       },
       "OnLockConference " + id + " conf:42 7 true"},
      {"GetConferenceParam", 56, true,
       [](BothToPsInterface& c, PsToBothInterface&) {
         return c.GetConferenceParam(kId, kConf, static_cast<ConferenceParamType>(-9));
       },
       "OnGetConferenceParam " + id + " conf:42 -9"},
      {"Success", 258, false,
       [](BothToPsInterface&, PsToBothInterface& s) {
         return s.Success(kId, static_cast<PSSuccessType>(3));
       },
       "OnSuccess " + id + " 3"},
      {"Reject", 259, false,
       [](BothToPsInterface&, PsToBothInterface& s) {
         return s.Reject(kId, static_cast<RejectReason>(0x7fffffff));
       },
       "OnReject " + id + " 2147483647"},
      {"ModeratorApprovalNeeded", 260, false,
       [](BothToPsInterface&, PsToBothInterface& s) { return s.ModeratorApprovalNeeded(kId); }, ""},
      {"AuthorizationPassed", 261, false,
       [](BothToPsInterface&, PsToBothInterface& s) {
         return s.AuthorizationPassed(kId, 7, false, true);
       },
       "OnAuthorizationPassed " + id + " 7 false true"},
      {"ConferenceLocked", 262, false,
       [](BothToPsInterface&, PsToBothInterface& s) { return s.ConferenceLocked(kId, true); },
       "OnConferenceLocked " + id + " true"},
      {"SendConferenceParam", 278, false,
       [](BothToPsInterface&, PsToBothInterface& s) {
         return s.SendConferenceParam(kId, static_cast<ConferenceParamType>(4), 5, "a\0bcd");
       },
       "OnSendConferenceParam " + id + " 4 5 '" + std::string("a\0bcd", 5) + "'"},
  };
}

class SharedControlTest : public ::testing::Test {
 protected:
  void SetUp() override {
    conflink::testing::ResetFake();
    Fake().sendResult = 5;
  }
  // What the messenger put on the queue for one operation.
  template <class M>
  conflink::testing::FakeMessage sentBy(
      M& m, const std::function<int(BothToPsInterface&, PsToBothInterface&)>& send) {
    Fake().sent.clear();
    EXPECT_TRUE(m.Connect(1, 0));
    EXPECT_EQ(send(m, m), 5) << "the queue's result comes back unchanged";
    EXPECT_EQ(Fake().sent.size(), 1u);
    return Fake().sent.empty() ? conflink::testing::FakeMessage{} : Fake().sent.back();
  }
  template <class M>
  std::vector<std::string> receive(const conflink::testing::FakeMessage& message,
                                   std::vector<std::string>* errors = nullptr) {
    M m;
    int type = message.type;
    EXPECT_TRUE(
        m.DispatchMessage(&type, message.buffer.data(), static_cast<int>(message.buffer.size())));
    if (errors != nullptr) *errors = m.errors;
    EXPECT_TRUE(errors != nullptr || m.errors.empty()) << m.errors.front();
    return m.calls;
  }
};

TEST_F(SharedControlTest, BothMessengersSendTheSamePayloadUnderTheSameType) {
  for (const SharedCase& c : sharedCases()) {
    CcProbe cc;
    CgiProbe cgi;
    const auto fromCc = sentBy(cc, c.send);
    const auto fromCgi = sentBy(cgi, c.send);
    EXPECT_EQ(fromCc.type, c.type) << c.name;
    EXPECT_EQ(fromCgi.type, c.type) << c.name;
    ASSERT_GE(fromCc.buffer.size(), 4u) << c.name;
    ASSERT_EQ(fromCc.buffer.size(), fromCgi.buffer.size()) << c.name;
    const size_t n = fromCc.buffer.size() - 4;
    EXPECT_EQ(fromCc.buffer.substr(0, n), fromCgi.buffer.substr(0, n)) << c.name;
    EXPECT_EQ(hex(fromCc.buffer.substr(n)), "00 00 00 00") << c.name;
    EXPECT_EQ(hex(fromCgi.buffer.substr(n)), "00 00 00 02") << c.name;
  }
}

TEST_F(SharedControlTest, EitherReceiverDecodesEitherSendersMessage) {
  for (const SharedCase& c : sharedCases()) {
    for (bool fromCc : {true, false}) {
      CcProbe cc;
      CgiProbe cgi;
      const auto message = fromCc ? sentBy(cc, c.send) : sentBy(cgi, c.send);
      std::vector<std::string> expected;
      if (!c.call.empty()) expected.push_back(c.call + (c.request ? (fromCc ? " 0" : " 2") : ""));
      EXPECT_EQ(receive<CcProbe>(message), expected)
          << c.name << (fromCc ? " from CC" : " from CGI");
      EXPECT_EQ(receive<CgiProbe>(message), expected)
          << c.name << (fromCc ? " from CC" : " from CGI");
    }
  }
}

TEST_F(SharedControlTest, EveryTruncationOfEveryPayloadIsRefusedWithOneError) {
  for (const SharedCase& c : sharedCases()) {
    CcProbe cc;
    const auto message = sentBy(cc, c.send);
    const size_t payload = message.buffer.size() - 4;
    for (size_t cut = 0; cut < payload; ++cut) {
      conflink::testing::FakeMessage shorter{
          message.type, message.buffer.substr(0, cut) + message.buffer.substr(payload)};
      std::vector<std::string> errors;
      EXPECT_TRUE(receive<CgiProbe>(shorter, &errors).empty()) << c.name << " cut at " << cut;
      ASSERT_EQ(errors.size(), 1u) << c.name << " cut at " << cut;
      EXPECT_NE(errors[0].find(std::string("(") + c.name), std::string::npos) << errors[0];
      EXPECT_EQ(conflink::msg::DescribeCgiLinkMessage(shorter.type, shorter.buffer.data(),
                                                      shorter.buffer.size()),
                errors[0])
          << "a description tells what the receiver reports";
    }
  }
}

TEST_F(SharedControlTest, EitherLinkDescribesWhatEitherSenderSent) {
  for (const SharedCase& c : sharedCases()) {
    for (bool fromCc : {true, false}) {
      CcProbe cc;
      CgiProbe cgi;
      const auto m = fromCc ? sentBy(cc, c.send) : sentBy(cgi, c.send);
      const std::string onCc =
          conflink::msg::DescribeCcLinkMessage(m.type, m.buffer.data(), m.buffer.size());
      const std::string onCgi =
          conflink::msg::DescribeCgiLinkMessage(m.type, m.buffer.data(), m.buffer.size());
      EXPECT_EQ(onCc, onCgi) << c.name;
      const std::string where =
          "[type " + std::to_string(c.type) + ", mark " + (fromCc ? "0" : "2") + "]";
      EXPECT_EQ(onCc.rfind(where), onCc.size() - where.size()) << onCc;
      const std::string opening = std::string(c.name) + (c.call.empty() ? ": accepted" : "(");
      EXPECT_EQ(onCc.find(opening), 0u) << onCc;
    }
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
  EXPECT_EQ(receive<CgiProbe>(m), std::vector<std::string>{"OnSendConferenceParam 9 1 0 ''"});
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
