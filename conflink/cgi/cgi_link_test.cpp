// The web front end's link: every message sent by one messenger reaches its handler in another
// with equal values, exact bytes where the layout is easy to get wrong, clean refusal of every
// truncated payload, the types the receiver does not know, and the messages as text.
#include <conflink/cgi/cgi_to_ps_messenger.h>

#include <gtest/gtest.h>

#include <functional>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include <conflink/cgi/cgi_catalogue.h>
#include <conflink/cgi/cgi_messages.h>
#include <conflink/cgi/cgi_test_support.h>
#include <conflink/records/records.h>
#include "tests/support/fake_platform.h"
#include "tests/support/hex.h"

namespace {

namespace msg = conflink::msg;
namespace up = conflink::msg::cgi_to_ps;
namespace down = conflink::msg::ps_to_cgi;
using conflink::testing::Bytes;
using conflink::testing::CgiProbe;
using conflink::testing::Fake;
using conflink::testing::FakeMessage;
using conflink::testing::hex;
using namespace conflink::testing;  // sample records

const unsigned long long kId = 0x0102030405060708ULL;
const unsigned long long kUser = 0xFFEEDDCCBBAA9988ULL;
const ConfIDString kConf{"conf-7"};
constexpr int kSendResult = 17;

// What one messenger put on the queue for one operation.
template <class Operation>
FakeMessage sentBy(Operation send) {
  Fake().sent.clear();
  CGIToPSMessenger sender(3);
  EXPECT_TRUE(sender.Connect(1, 0));
  EXPECT_EQ(send(sender), kSendResult) << "the queue's result comes back unchanged";
  EXPECT_EQ(Fake().sent.size(), 1u);
  return Fake().sent.empty() ? FakeMessage{-1, ""} : Fake().sent.back();
}

// One message: what went on the queue, and whether a probe received exactly the expected call.
struct Row {
  std::string name;
  int type;
  FakeMessage sent;
  std::function<bool(const CgiProbe&)> delivered;
};

// Sends `args` through the declaration's operation; the other end must call the declaration's
// handler once with the same values, followed by the sender's link mark where the handler
// takes one.
template <int Type, auto Send, auto Handle, class Form, class... A>
Row row(const msg::Message<Type, Send, Handle, Form>& m, const A&... args) {
  Row r{m.name, Type, sentBy([&](CGIToPSMessenger& s) { return (s.*Send)(args...); }), nullptr};
  r.delivered = [expected = std::make_tuple(args...)](const CgiProbe& p) {
    const auto* got = p.only(Handle);
    if (got == nullptr) return false;
    using Received = typename msg::Signature<decltype(Handle)>::Values;
    if constexpr (std::tuple_size_v < Received >> sizeof...(A)) {
      return *got == std::tuple_cat(expected, std::make_tuple(conflink::kCgiLinkMark));
    } else {
      return *got == expected;
    }
  };
  return r;
}

// Every message of the link but ModifyParticipantMedia, which its receiver does not know.
std::vector<Row> rows() {
  const ConferenceParams conference = sampleConference(1, 2);
  return {
      row(up::kCreateConference, kId, kUser, conference, kConf, true),
      row(up::kSaveConfGeneral, kId, kConf, kUser, conference.general),
      row(up::kSaveConfNewParticipants, kId, kConf, kUser, conference.newParticipant),
      row(up::kSaveConfParticipants, kId, kConf, kUser, conference.participants),
      row(up::kSaveConfSchedule, kId, kConf, kUser, conference.schedule),
      row(up::kSaveConfSipSettings, kId, kConf, kUser, conference.sip),
      row(up::kSaveConfRecording, kId, kConf, kUser, conference.recording),
      row(up::kSaveConfCodecs, kId, kConf, kUser, conference.encoding),
      row(up::kSaveConfSysMessages, kId, kConf, kUser, conference.sysMessage),
      row(up::kSaveConfAutoGainCtrl, kId, kConf, kUser, conference.autoGainCtrl),
      row(up::kSaveAttendant, kId, kConf, kUser, sampleAttendant(2), true),
      row(up::kSaveMailText, kId, kConf, kUser, std::string("Dear \0 all", 10), false),
      row(up::kRestoreMailDefaults, kId, kConf, kUser),
      row(up::kSaveStatisticsSettings, kId, -1, 0x7FFFFFFF),
      row(up::kClearStatistics, kId),
      row(up::kModifyLocalRoutingTable, kId, std::list<std::string>{"10.0.0.0/8", "", "x"}),
      row(up::kUpdateTOSValues, kId),
      row(up::kDeleteConference, kId, kConf, kUser),
      row(up::kModifyConferenceMedia, kId, kConf, kUser, sampleTopology(3)),
      row(up::kSendCreationMails, kId, kConf, kUser),
      row(up::kGetConference, kId, kConf, static_cast<GetConferenceType>(-2)),
      row(up::kGetGeneralSettings, kId, kConf, static_cast<GetConferenceType>(1)),
      row(up::kGetNewParticipantSettings, kId, kConf),
      row(up::kGetParticipantsList, kId, kConf),
      row(up::kGetSipSettings, kId, kConf, static_cast<GetConferenceType>(3)),
      row(up::kGetRecordingSettings, kId, kConf),
      row(up::kGetScheduleSettings, kId, kConf),
      row(up::kGetEncodingSettings, kId, kConf),
      row(up::kGetSysMessageSettings, kId, kConf),
      row(up::kGetAutoGainCtrlSettings, kId, kConf),
      row(up::kGetAttendantSettings, kId, kConf, static_cast<GetConferenceType>(0x7FFFFFFF)),
      row(up::kGetConferenceProgress, kId, ConfIDString{}),
      row(up::kGetConferenceStatus, kId, kConf),
      row(up::kGetUserConfList, kId, kUser),
      row(up::kGetActiveConfList, kId),
      row(up::kGetPublicConfList, kId),
      row(up::kGetRecordingParamsList, kId),
      row(up::kAddReservation, kId, kConf, sampleReservation(4)),
      row(up::kRemoveReservation, kId, kConf),
      row(up::kGetReservationList, kId, kConf),
      row(up::kGetReservationLoad, kId, 0xFFFFFFFFUL, 5UL),
      row(up::kAddExtReservation, kId, sampleReservation(5)),
      row(up::kRemoveExtReservation, kId, sampleUri(6)),
      row(up::kGetRegisteredUserList, kId),
      row(up::kAddRegisteredUser, kId, sampleUri(7), std::string("secret")),
      row(up::kRemoveRegisteredUser, kId, sampleUri(8)),
      row(down::kConferenceCreated, kId, kConf),
      row(down::kSendConference, kId, conference),
      row(down::kSendGeneralSettings, kId, sampleConference(2, 0).general),
      row(down::kSendNewParticipantSettings, kId, sampleConference(3, 0).newParticipant),
      row(down::kSendParticipantsList, kId,
          std::list<ConferenceUser>{sampleUser(1), sampleUser(2)}),
      row(down::kSendSipSettings, kId, sampleSipRegistration(9)),
      row(down::kSendRecordingSettings, kId, conference.recording,
          std::list<std::string>{"a", "bc"}),
      row(down::kSendScheduleSettings, kId, sampleConference(4, 0).schedule),
      row(down::kSendEncodingSettings, kId, conference.encoding, std::list<std::string>{}),
      row(down::kSendSysMessageSettings, kId, SysMessageParams{-3}, -0.25),
      row(down::kSendAutoGainCtrlSettings, kId, sampleConference(5, 0).autoGainCtrl),
      row(down::kSendAttendantSettings, kId, sampleAttendant(6)),
      row(down::kSendConferenceProgress, kId, sampleProgress(7, 2)),
      row(down::kSendConferenceStatus, kId, ConferenceStatus{-9}),
      row(down::kSendUserConfList, kId, std::list<ConfInfo>{sampleConfInfo(1), sampleConfInfo(2)}),
      row(down::kSendActiveConfList, kId, std::list<ActiveConfInfo>{sampleActiveConf(3)}),
      row(down::kSendPublicConfList, kId,
          std::list<ActiveConfInfo>{sampleActiveConf(4), sampleActiveConf(5)}),
      row(down::kSendRecordingParamsList, kId, std::list<ConfIDString>{kConf, {"b"}},
          std::list<RecordingParams>{sampleRecordingWithoutAddress(1), conference.recording,
                                     sampleRecordingWithoutAddress(2)}),
      row(down::kSendReservationList, kId, conference.reservations),
      row(down::kSendReservationLoad, kId, std::list<LoadSegment>{{1, 2}, {0xFFFFFFFF, 0}}),
      row(down::kExtReservationAdded, kId, sampleUri(9), std::string("added")),
      row(down::kSendRegisteredUserList, kId,
          std::list<RegisteredUserInfo>{sampleRegisteredUser(1), sampleRegisteredUser(2)}),
      row(down::kCgiReportError, kId, static_cast<ConfServError>(-77)),
  };
}

class CgiLinkTest : public ::testing::Test {
 protected:
  void SetUp() override {
    conflink::testing::ResetFake();
    Fake().sendResult = kSendResult;
  }
  static bool dispatch(CgiProbe& p, const FakeMessage& m) {
    int type = m.type;
    return p.DispatchMessage(&type, m.buffer.data(), static_cast<int>(m.buffer.size()));
  }
  static std::string payloadOf(const FakeMessage& m) {
    return m.buffer.size() < 4 ? std::string() : m.buffer.substr(0, m.buffer.size() - 4);
  }
};

TEST_F(CgiLinkTest, EveryMessageReachesItsHandlerOnTheOtherEndWithEqualValues) {
  const std::vector<Row> all = rows();
  EXPECT_EQ(all.size(), 69u) << "46 requests (41 aside) and 23 replies";
  for (const Row& r : all) {
    EXPECT_EQ(r.sent.type, r.type) << r.name;
    ASSERT_GE(r.sent.buffer.size(), 4u) << r.name;
    EXPECT_EQ(hex(r.sent.buffer.substr(r.sent.buffer.size() - 4)), "00 00 00 02") << r.name;
    CgiProbe p;
    EXPECT_TRUE(dispatch(p, r.sent)) << r.name;
    EXPECT_TRUE(p.errors.empty()) << r.name << ": " << p.errors.front();
    EXPECT_TRUE(r.delivered(p)) << r.name << ": " << p.calls.size() << " calls";
  }
}

TEST_F(CgiLinkTest, EveryProperPrefixOfEveryPayloadIsRefusedWithOneErrorAndNoHandler) {
  for (const Row& r : rows()) {
    const std::string payload = payloadOf(r.sent);
    const std::string mark = r.sent.buffer.substr(payload.size());
    const std::string named = "Malformed message " + std::to_string(r.type) + " (" + r.name + ",";
    for (size_t cut = 0; cut < payload.size(); ++cut) {
      CgiProbe p;
      EXPECT_TRUE(dispatch(p, {r.type, payload.substr(0, cut) + mark}));
      EXPECT_TRUE(p.calls.empty()) << r.name << " cut at " << cut;
      ASSERT_EQ(p.errors.size(), 1u) << r.name << " cut at " << cut;
      ASSERT_EQ(p.errors[0].rfind(named, 0), 0u) << p.errors[0];
    }
  }
}

TEST_F(CgiLinkTest, PayloadBytes) {
  const ConferenceParams conference = sampleConference(1, 1);
  std::string serialised;
  serialised << conference;
  RecordingParams noAddress = sampleRecordingWithoutAddress(0);
  noAddress.value1 = 1;
  noAddress.texts = {"t"};
  noAddress.value2 = 2;
  noAddress.value3 = 9;  // not 0: the address does not travel
  noAddress.value4 = 4;
  noAddress.value5 = 5;
  RecordingParams withAddress = noAddress;
  withAddress.value3 = 0;
  withAddress.uri = {"a", "", "", "d"};
  const Bytes noAddressBytes = Bytes().u32(1).u32(1).str("t").u32(2).u32(9).u32(4).u32(5);
  const Bytes withAddressBytes =
      Bytes().u32(1).u32(1).str("t").u32(2).u32(0).u32(4).u32(5).str("a").str("").str("").str("d");
  const ReservationInfo reservation{0x1122334455667788ULL, 0xABCD, -2, 3};

  struct Golden {
    const char* what;
    std::function<int(CGIToPSMessenger&)> send;
    int type;
    std::string payload;
  };
  const Golden cases[] = {
      {"the conference identifier follows the whole record",
       [&](CGIToPSMessenger& m) { return m.CreateConference(1, 2, conference, {"c9"}, true); }, 13,
       Bytes().u64(1).u64(2).raw(serialised).str("c9").u32(1)},
      {"the general settings after the two identifiers",
       [&](CGIToPSMessenger& m) { return m.SaveConfGeneral(1, {"c"}, 2, conference.general); }, 23,
       Bytes().u64(1).str("c").u64(2).raw(encode(conference.general))},
      {"an empty routing table is its count alone",
       [](CGIToPSMessenger& m) { return m.ModifyLocalRoutingTable(1, {}); }, 37,
       Bytes().u64(1).u32(0)},
      {"ModifyParticipantMedia sends nothing, not even the id",
       [](CGIToPSMessenger& m) { return m.ModifyParticipantMedia(kId); }, 41, ""},
      {"a settings request with the conference type",
       [](CGIToPSMessenger& m) {
         return m.GetConference(1, {"c"}, static_cast<GetConferenceType>(-1));
       },
       43, Bytes().u64(1).str("c").u32(0xFFFFFFFF)},
      {"a settings request without it",
       [](CGIToPSMessenger& m) { return m.GetNewParticipantSettings(1, {"c"}); }, 45,
       Bytes().u64(1).str("c")},
      {"the user's second identifier is a full u64",
       [](CGIToPSMessenger& m) { return m.GetUserConfList(1, 0x8000000000000002ULL); }, 57,
       Bytes().u64(1).u64(0x8000000000000002ULL)},
      {"a reservation request carries the 18-byte field form",
       [&](CGIToPSMessenger& m) { return m.AddReservation(1, {"c"}, reservation); }, 61,
       Bytes().u64(1).str("c").u64(0x1122334455667788ULL).u16(0xABCD).u32(0xFFFFFFFE).u32(3)},
      {"the load's bounds are two 4-byte fields",
       [](CGIToPSMessenger& m) { return m.GetReservationLoad(1, 0x11223344UL, 0x55667788UL); }, 64,
       Bytes().u64(1).u32(0x11223344).u32(0x55667788)},
      {"an external reservation carries the field form too",
       [&](CGIToPSMessenger& m) { return m.AddExtReservation(1, reservation); }, 65,
       Bytes().u64(1).u64(0x1122334455667788ULL).u16(0xABCD).u32(0xFFFFFFFE).u32(3)},
      {"a created conference with an empty identifier",
       [](CGIToPSMessenger& m) { return m.ConferenceCreated(1, ConfIDString{}); }, 287,
       Bytes().u64(1).u32(0)},
      {"the conference after the id",
       [&](CGIToPSMessenger& m) { return m.SendConference(1, conference); }, 265,
       Bytes().u64(1).raw(serialised)},
      {"the record, then the second list",
       [&](CGIToPSMessenger& m) { return m.SendRecordingSettings(1, withAddress, {"x"}); }, 270,
       Bytes().u64(1).raw(withAddressBytes).u32(1).str("x")},
      {"the double 1.0 closes the payload",
       [](CGIToPSMessenger& m) { return m.SendSysMessageSettings(1, SysMessageParams{5}, 1.0); },
       273, Bytes().u64(1).u32(5).u64(0x3FF0000000000000ULL)},
      {"two identifiers and three records, each list with its own count",
       [&](CGIToPSMessenger& m) {
         return m.SendRecordingParamsList(1, {{"a"}, {"bb"}}, {noAddress, withAddress, noAddress});
       },
       282,
       Bytes()
           .u64(1)
           .u32(2)
           .str("a")
           .str("bb")
           .u32(3)
           .raw(noAddressBytes)
           .raw(withAddressBytes)
           .raw(noAddressBytes)},
      {"reservations in a list travel as 24-byte images",
       [&](CGIToPSMessenger& m) { return m.SendReservationList(1, Reservations{{reservation}}); },
       283,
       Bytes()
           .u64(1)
           .u32(1)
           .u64(0x1122334455667788ULL)
           .u16(0xABCD)
           .u16(0)
           .u32(0xFFFFFFFE)
           .u32(3)
           .u32(0)},
      {"an empty load list is its count alone",
       [](CGIToPSMessenger& m) { return m.SendReservationLoad(1, {}); }, 284,
       Bytes().u64(1).u32(0)},
      {"the error report",
       [](CGIToPSMessenger& m) { return m.CgiReportError(1, static_cast<ConfServError>(6)); }, 263,
       Bytes().u64(1).u32(6)},
  };
  for (const Golden& g : cases) {
    const FakeMessage m = sentBy(g.send);
    EXPECT_EQ(m.type, g.type) << g.what;
    EXPECT_EQ(hex(payloadOf(m)), hex(g.payload)) << g.what;
  }
}

TEST_F(CgiLinkTest, ActiveAndPublicListsHaveTheSamePayload) {
  const std::list<ActiveConfInfo> list{sampleActiveConf(1), sampleActiveConf(2)};
  EXPECT_EQ(payloadOf(sentBy([&](CGIToPSMessenger& m) { return m.SendActiveConfList(1, list); })),
            payloadOf(sentBy([&](CGIToPSMessenger& m) { return m.SendPublicConfList(1, list); })));
}

TEST_F(CgiLinkTest, TypesWithoutAHandler) {
  struct Case {
    const char* what;
    int type;
    std::string payload;
    bool known;
  };
  const Case cases[] = {
      {"ModifyParticipantMedia as sent", 41, "", false},
      {"ModifyParticipantMedia with an id after all", 41, Bytes().u64(kId), false},
      {"type 11 is accepted and dropped", 11, Bytes().u64(kId), true},
      {"a moderator approval is accepted and dropped", 260, "", true},
      {"type 1 belongs to the other link", 1, Bytes().u64(kId), false},
      {"type 288 belongs to the other link", 288, Bytes().u64(kId), false},
      {"type 56 is the shared parameter request, not a settings request", 56, "", true},
  };
  for (const Case& c : cases) {
    CgiProbe p;
    EXPECT_EQ(dispatch(p, {c.type, c.payload + std::string("\0\0\0\2", 4)}), c.known) << c.what;
    EXPECT_TRUE(p.calls.empty()) << c.what;
    EXPECT_EQ(p.errors.size(), c.type == 56 ? 1u : 0u) << c.what;
  }
}

TEST_F(CgiLinkTest, TheCatalogueHoldsEveryMessageOfTheLinkOnce) {
  std::set<int> expected{11};
  for (const Row& r : rows()) expected.insert(r.type);
  for (int shared :
       {2, 3, 4, 5, 6, 7, 12, 14, 15, 16, 17, 18, 19, 21, 22, 56, 258, 259, 260, 261, 262, 278})
    expected.insert(shared);
  std::set<int> listed;
  for (const conflink::MessageName& n : msg::CgiLinkMessages()) {
    EXPECT_TRUE(listed.insert(n.type).second) << n.type;
    EXPECT_EQ(n.handled, n.type != 11 && n.type != 260) << n.name;
  }
  EXPECT_EQ(listed, expected);
  EXPECT_EQ(expected.size(), 92u);
  EXPECT_EQ(*listed.begin(), msg::kCgiLinkFirstType);
  EXPECT_EQ(*listed.rbegin(), msg::kCgiLinkLastType);
}

TEST_F(CgiLinkTest, EveryMessageReadsAsTextAsItsReceiverDecodesIt) {
  for (const Row& r : rows()) {
    const std::string text =
        msg::DescribeCgiLinkMessage(r.type, r.sent.buffer.data(), r.sent.buffer.size());
    const std::string where = " [type " + std::to_string(r.type) + ", mark 2]";
    EXPECT_EQ(text.rfind(r.name + "(", 0), 0u) << text;
    ASSERT_GE(text.size(), where.size()) << text;
    EXPECT_EQ(text.substr(text.size() - where.size()), where) << text;
  }
  const FakeMessage load =
      sentBy([](CGIToPSMessenger& m) { return m.GetReservationLoad(7, 8UL, 9UL); });
  EXPECT_EQ(msg::DescribeCgiLinkMessage(load.type, load.buffer.data(), load.buffer.size()),
            "GetReservationLoad(7, 8, 9) [type 64, mark 2]");
  const FakeMessage created =
      sentBy([](CGIToPSMessenger& m) { return m.ConferenceCreated(7, ConfIDString{}); });
  EXPECT_EQ(msg::DescribeCgiLinkMessage(created.type, created.buffer.data(), created.buffer.size()),
            "ConferenceCreated(7, ConfIDString{id=\"\"}) [type 287, mark 2]");
  const FakeMessage unknown =
      sentBy([](CGIToPSMessenger& m) { return m.ModifyParticipantMedia(7); });
  EXPECT_EQ(msg::DescribeCgiLinkMessage(unknown.type, unknown.buffer.data(), unknown.buffer.size()),
            "type 41: not a message of this link");
}

}  // namespace
