// The web front end's link: every message of either direction from its operation to the other
// end's handler, exact bytes where the layout is easy to get wrong, the types its receiver does
// not know, its catalogue, and its messages as text.
#include <conflink/cgi/cgi_messages.h>
#include <conflink/cgi/cgi_to_ps_messenger.h>

#include <gtest/gtest.h>

#include <functional>
#include <list>
#include <set>
#include <string>
#include <vector>

#include <conflink/cgi/cgi_catalogue.h>
#include <conflink/records/records.h>
#include <conflink/records/records_test_support.h>
#include "tests/support/cgi_recorder.h"
#include "tests/support/fake_platform.h"
#include "tests/support/hex.h"
#include "tests/support/message_rows.h"

namespace {

namespace msg = conflink::msg;
namespace up = conflink::msg::cgi_to_ps;
namespace down = conflink::msg::ps_to_cgi;
using conflink::testing::Bytes;
using conflink::testing::encode;
using conflink::testing::Fake;
using conflink::testing::FakeMessage;
using conflink::testing::hex;
using conflink::testing::sampleConference;
using conflink::testing::sampleSipRegistration;
using conflink::testing::sampleUri;
using conflink::testing::sampleUser;
using conflink::testing::t;

using conflink::testing::CgiRecorder;
using Pair = conflink::testing::Pair<CgiRecorder>;

const unsigned long long kId = 0x0102030405060708ULL;
const unsigned long long kUser = 0xFFEEDDCCBBAA9988ULL;
const ConfIDString kConf{"conf-7"};

// Populated records, every field depending on `s`, for the messages the record helpers do not
// cover.
AttendantParams attendant(int s) {
  return {t(s, "attendant"),
          sampleSipRegistration(s + 1),
          0xA0A1A2A3A4A5A6A7ULL + s,
          7ULL + s,
          s + 1,
          -s - 2,
          sampleUri(s + 2)};
}
ConfTopology topology(int s) {
  return {{{10ULL + s, {{20ULL + s, s + 1}, {~0ULL, -s - 2}}}, {30ULL + s, {}}}};
}
ReservationInfo reservation(int s) {
  return {0x8000000000000001ULL + s, static_cast<unsigned short>(0xFFFE - s), s + 5, -s - 6};
}
ConferenceProgress progress(int s) {
  return {t(s, "p1"), t(s, "p2"),
          t(s, "p3"), t(s, "p4"),
          t(s, "p5"), t(s, "p6"),
          s + 1,      s + 2,
          s + 3,      s + 4,
          -s - 5,     static_cast<unsigned short>(0x8001 + s),
          s + 6,      static_cast<unsigned short>(s + 7),
          -s - 8,     {sampleUser(s), sampleUser(s + 1)}};
}
ConfInfo confInfo(int s) {
  return {t(s, "i1"),
          t(s, "i2"),
          t(s, "i3"),
          t(s, "i4"),
          t(s, "i5"),
          t(s, "i6"),
          t(s, "i7"),
          s + 1,
          s + 2,
          -s - 3,
          0xFEDCBA9876543210ULL + s,
          {t(s, "a"), "", t(s, "c")}};
}
ActiveConfInfo activeConf(int s) {
  return {t(s, "a1"),
          t(s, "a2"),
          t(s, "a3"),
          t(s, "a4"),
          t(s, "a5"),
          t(s, "a6"),
          s + 1,
          s + 2,
          -s - 3,
          static_cast<unsigned short>(0xFFFF - s),
          static_cast<unsigned short>(s + 4)};
}
RegisteredUserInfo registeredUser(int s) {
  RegisteredUserInfo u;
  static_cast<SipUri&>(u) = sampleUri(s);
  return u;
}
// A recording whose address does not travel (its second number is not 0): it arrives with an
// empty address, so it is built with one.
RecordingParams recordingWithoutAddress(int s) {
  return {s + 1, {t(s, "r")}, s + 2, s + 3, s + 4, -s - 5, SipUri{}};
}

template <class E>
E as(int v) {
  return static_cast<E>(v);
}

TEST(CgiLink, EveryMessageReachesTheOtherEndsHandlerWithEqualValues) {
  const ConferenceParams conference = sampleConference(1, 2);
  const ConferenceParams other = sampleConference(2, 0);
  using Row = conflink::testing::MessageRow<CgiRecorder>;
  const std::vector<Row> rows = {
      {"CreateConference",
       [&](Pair& p) { p.deliver(up::kCreateConference, kId, kUser, conference, kConf, true); }},
      {"SaveConfGeneral",
       [&](Pair& p) { p.deliver(up::kSaveConfGeneral, kId, kConf, kUser, conference.general); }},
      {"SaveConfNewParticipants",
       [&](Pair& p) {
         p.deliver(up::kSaveConfNewParticipants, kId, kConf, kUser, conference.newParticipant);
       }},
      {"SaveConfParticipants",
       [&](Pair& p) {
         p.deliver(up::kSaveConfParticipants, kId, kConf, kUser, conference.participants);
       }},
      {"SaveConfSchedule",
       [&](Pair& p) { p.deliver(up::kSaveConfSchedule, kId, kConf, kUser, conference.schedule); }},
      {"SaveConfSipSettings",
       [&](Pair& p) { p.deliver(up::kSaveConfSipSettings, kId, kConf, kUser, conference.sip); }},
      {"SaveConfRecording",
       [&](Pair& p) {
         p.deliver(up::kSaveConfRecording, kId, kConf, kUser, conference.recording);
       }},
      {"SaveConfCodecs",
       [&](Pair& p) { p.deliver(up::kSaveConfCodecs, kId, kConf, kUser, conference.encoding); }},
      {"SaveConfSysMessages",
       [&](Pair& p) {
         p.deliver(up::kSaveConfSysMessages, kId, kConf, kUser, conference.sysMessage);
       }},
      {"SaveConfAutoGainCtrl",
       [&](Pair& p) {
         p.deliver(up::kSaveConfAutoGainCtrl, kId, kConf, kUser, conference.autoGainCtrl);
       }},
      {"SaveAttendant",
       [](Pair& p) { p.deliver(up::kSaveAttendant, kId, kConf, kUser, attendant(2), true); }},
      {"SaveMailText",
       [](Pair& p) {
         p.deliver(up::kSaveMailText, kId, kConf, kUser, std::string("Dear \0 all", 10), false);
       }},
      {"RestoreMailDefaults",
       [](Pair& p) { p.deliver(up::kRestoreMailDefaults, kId, kConf, kUser); }},
      {"SaveStatisticsSettings",
       [](Pair& p) { p.deliver(up::kSaveStatisticsSettings, kId, -1, 0x7FFFFFFF); }},
      {"ClearStatistics", [](Pair& p) { p.deliver(up::kClearStatistics, kId); }},
      {"ModifyLocalRoutingTable",
       [](Pair& p) {
         p.deliver(up::kModifyLocalRoutingTable, kId, std::list<std::string>{"10/8", "", "x"});
       }},
      {"UpdateTOSValues", [](Pair& p) { p.deliver(up::kUpdateTOSValues, kId); }},
      {"DeleteConference", [](Pair& p) { p.deliver(up::kDeleteConference, kId, kConf, kUser); }},
      {"ModifyConferenceMedia",
       [](Pair& p) { p.deliver(up::kModifyConferenceMedia, kId, kConf, kUser, topology(3)); }},
      {"SendCreationMails", [](Pair& p) { p.deliver(up::kSendCreationMails, kId, kConf, kUser); }},
      {"GetConference",
       [](Pair& p) { p.deliver(up::kGetConference, kId, kConf, as<GetConferenceType>(-2)); }},
      {"GetGeneralSettings",
       [](Pair& p) { p.deliver(up::kGetGeneralSettings, kId, kConf, as<GetConferenceType>(1)); }},
      {"GetNewParticipantSettings",
       [](Pair& p) { p.deliver(up::kGetNewParticipantSettings, kId, kConf); }},
      {"GetParticipantsList", [](Pair& p) { p.deliver(up::kGetParticipantsList, kId, kConf); }},
      {"GetSipSettings",
       [](Pair& p) { p.deliver(up::kGetSipSettings, kId, kConf, as<GetConferenceType>(3)); }},
      {"GetRecordingSettings", [](Pair& p) { p.deliver(up::kGetRecordingSettings, kId, kConf); }},
      {"GetScheduleSettings", [](Pair& p) { p.deliver(up::kGetScheduleSettings, kId, kConf); }},
      {"GetEncodingSettings", [](Pair& p) { p.deliver(up::kGetEncodingSettings, kId, kConf); }},
      {"GetSysMessageSettings", [](Pair& p) { p.deliver(up::kGetSysMessageSettings, kId, kConf); }},
      {"GetAutoGainCtrlSettings",
       [](Pair& p) { p.deliver(up::kGetAutoGainCtrlSettings, kId, kConf); }},
      {"GetAttendantSettings",
       [](Pair& p) {
         p.deliver(up::kGetAttendantSettings, kId, kConf, as<GetConferenceType>(0x7FFFFFFF));
       }},
      {"GetConferenceProgress",
       [](Pair& p) { p.deliver(up::kGetConferenceProgress, kId, ConfIDString{}); }},
      {"GetConferenceStatus", [](Pair& p) { p.deliver(up::kGetConferenceStatus, kId, kConf); }},
      {"GetUserConfList", [](Pair& p) { p.deliver(up::kGetUserConfList, kId, kUser); }},
      {"GetActiveConfList", [](Pair& p) { p.deliver(up::kGetActiveConfList, kId); }},
      {"GetPublicConfList", [](Pair& p) { p.deliver(up::kGetPublicConfList, kId); }},
      {"GetRecordingParamsList", [](Pair& p) { p.deliver(up::kGetRecordingParamsList, kId); }},
      {"AddReservation",
       [](Pair& p) { p.deliver(up::kAddReservation, kId, kConf, reservation(4)); }},
      {"RemoveReservation", [](Pair& p) { p.deliver(up::kRemoveReservation, kId, kConf); }},
      {"GetReservationList", [](Pair& p) { p.deliver(up::kGetReservationList, kId, kConf); }},
      {"GetReservationLoad",
       [](Pair& p) { p.deliver(up::kGetReservationLoad, kId, 0xFFFFFFFFUL, 5UL); }},
      {"AddExtReservation",
       [](Pair& p) { p.deliver(up::kAddExtReservation, kId, reservation(5)); }},
      {"RemoveExtReservation",
       [](Pair& p) { p.deliver(up::kRemoveExtReservation, kId, sampleUri(6)); }},
      {"GetRegisteredUserList", [](Pair& p) { p.deliver(up::kGetRegisteredUserList, kId); }},
      {"AddRegisteredUser",
       [](Pair& p) {
         p.deliver(up::kAddRegisteredUser, kId, sampleUri(7), std::string("secret"));
       }},
      {"RemoveRegisteredUser",
       [](Pair& p) { p.deliver(up::kRemoveRegisteredUser, kId, sampleUri(8)); }},
      {"ConferenceCreated", [](Pair& p) { p.deliver(down::kConferenceCreated, kId, kConf); }},
      {"SendConference", [&](Pair& p) { p.deliver(down::kSendConference, kId, conference); }},
      {"SendGeneralSettings",
       [&](Pair& p) { p.deliver(down::kSendGeneralSettings, kId, other.general); }},
      {"SendNewParticipantSettings",
       [&](Pair& p) { p.deliver(down::kSendNewParticipantSettings, kId, other.newParticipant); }},
      {"SendParticipantsList",
       [](Pair& p) {
         p.deliver(down::kSendParticipantsList, kId,
                   std::list<ConferenceUser>{sampleUser(1), sampleUser(2)});
       }},
      {"SendSipSettings",
       [](Pair& p) { p.deliver(down::kSendSipSettings, kId, sampleSipRegistration(9)); }},
      {"SendRecordingSettings",
       [&](Pair& p) {
         p.deliver(down::kSendRecordingSettings, kId, conference.recording,
                   std::list<std::string>{"a", "bc"});
       }},
      {"SendScheduleSettings",
       [&](Pair& p) { p.deliver(down::kSendScheduleSettings, kId, other.schedule); }},
      {"SendEncodingSettings",
       [&](Pair& p) {
         p.deliver(down::kSendEncodingSettings, kId, conference.encoding, std::list<std::string>{});
       }},
      {"SendSysMessageSettings",
       [](Pair& p) { p.deliver(down::kSendSysMessageSettings, kId, SysMessageParams{-3}, -0.25); }},
      {"SendAutoGainCtrlSettings",
       [&](Pair& p) { p.deliver(down::kSendAutoGainCtrlSettings, kId, other.autoGainCtrl); }},
      {"SendAttendantSettings",
       [](Pair& p) { p.deliver(down::kSendAttendantSettings, kId, attendant(6)); }},
      {"SendConferenceProgress",
       [](Pair& p) { p.deliver(down::kSendConferenceProgress, kId, progress(7)); }},
      {"SendConferenceStatus",
       [](Pair& p) { p.deliver(down::kSendConferenceStatus, kId, ConferenceStatus{-9}); }},
      {"SendUserConfList",
       [](Pair& p) {
         p.deliver(down::kSendUserConfList, kId, std::list<ConfInfo>{confInfo(1), confInfo(2)});
       }},
      {"SendActiveConfList",
       [](Pair& p) {
         p.deliver(down::kSendActiveConfList, kId, std::list<ActiveConfInfo>{activeConf(3)});
       }},
      {"SendPublicConfList",
       [](Pair& p) {
         p.deliver(down::kSendPublicConfList, kId,
                   std::list<ActiveConfInfo>{activeConf(4), activeConf(5)});
       }},
      {"SendRecordingParamsList: the lists differ in length",
       [&](Pair& p) {
         p.deliver(down::kSendRecordingParamsList, kId, std::list<ConfIDString>{kConf, {"b"}},
                   std::list<RecordingParams>{recordingWithoutAddress(1), conference.recording,
                                              recordingWithoutAddress(2)});
       }},
      {"SendReservationList",
       [&](Pair& p) { p.deliver(down::kSendReservationList, kId, conference.reservations); }},
      {"SendReservationLoad",
       [](Pair& p) {
         p.deliver(down::kSendReservationLoad, kId,
                   std::list<LoadSegment>{{1, 2}, {0xFFFFFFFF, 0}});
       }},
      {"ExtReservationAdded",
       [](Pair& p) {
         p.deliver(down::kExtReservationAdded, kId, sampleUri(9), std::string("added"));
       }},
      {"SendRegisteredUserList",
       [](Pair& p) {
         p.deliver(down::kSendRegisteredUserList, kId,
                   std::list<RegisteredUserInfo>{registeredUser(1), registeredUser(2)});
       }},
      {"CgiReportError",
       [](Pair& p) { p.deliver(down::kCgiReportError, kId, as<ConfServError>(-77)); }},
  };
  EXPECT_EQ(rows.size(), 69u) << "every request but ModifyParticipantMedia, and every reply";
  conflink::testing::deliverEveryRow(rows);
}

// The payload `operation` puts on the queue (the link mark stripped).
std::string payload(const std::function<int(CgiRecorder&)>& operation) {
  conflink::testing::ResetFake();
  CgiRecorder sender;
  const FakeMessage m = Pair::sentBy(sender, operation);
  return m.buffer.size() < 4 ? "(no mark)" : m.buffer.substr(0, m.buffer.size() - 4);
}

TEST(CgiLink, PayloadBytes) {
  const ConferenceParams conference = sampleConference(1, 1);
  std::string serialised;
  serialised << conference;
  const RecordingParams noAddress{1, {"t"}, 2, 9, 4, 5, SipUri{}};  // 9: the address stays home
  const RecordingParams withAddress{1, {"t"}, 2, 0, 4, 5, SipUri{"a", "", "", "d"}};
  const Bytes noAddressBytes = Bytes().u32(1).u32(1).str("t").u32(2).u32(9).u32(4).u32(5);
  const Bytes withAddressBytes =
      Bytes().u32(1).u32(1).str("t").u32(2).u32(0).u32(4).u32(5).str("a").str("").str("").str("d");
  const ReservationInfo booked{0x1122334455667788ULL, 0xABCD, -2, 3};
  const Bytes bookedFields = Bytes().u64(0x1122334455667788ULL).u16(0xABCD).u32(-2).u32(3);

  struct Golden {
    const char* what;
    std::function<int(CgiRecorder&)> send;
    int type;
    std::string payload;
  };
  const Golden cases[] = {
      {"the conference identifier follows the whole record",
       [&](CgiRecorder& m) { return m.CreateConference(1, 2, conference, {"c9"}, true); }, 13,
       Bytes().u64(1).u64(2).raw(serialised).str("c9").u32(1)},
      {"the general settings after the two identifiers",
       [&](CgiRecorder& m) { return m.SaveConfGeneral(1, {"c"}, 2, conference.general); }, 23,
       Bytes().u64(1).str("c").u64(2).raw(encode(conference.general))},
      {"an empty routing table is its count alone",
       [](CgiRecorder& m) { return m.ModifyLocalRoutingTable(1, {}); }, 37, Bytes().u64(1).u32(0)},
      {"ModifyParticipantMedia sends nothing, not even the id",
       [](CgiRecorder& m) { return m.ModifyParticipantMedia(kId); }, 41, ""},
      {"a settings request with the conference type",
       [](CgiRecorder& m) { return m.GetConference(1, {"c"}, as<GetConferenceType>(-1)); }, 43,
       Bytes().u64(1).str("c").u32(0xFFFFFFFF)},
      {"a settings request without it",
       [](CgiRecorder& m) { return m.GetNewParticipantSettings(1, {"c"}); }, 45,
       Bytes().u64(1).str("c")},
      {"the user's identifier is a full u64",
       [](CgiRecorder& m) { return m.GetUserConfList(1, 0x8000000000000002ULL); }, 57,
       Bytes().u64(1).u64(0x8000000000000002ULL)},
      {"a reservation request carries the 18-byte field form",
       [&](CgiRecorder& m) { return m.AddReservation(1, {"c"}, booked); }, 61,
       Bytes().u64(1).str("c").raw(bookedFields)},
      {"the load's bounds are two 4-byte fields",
       [](CgiRecorder& m) { return m.GetReservationLoad(1, 0x11223344UL, 0x55667788UL); }, 64,
       Bytes().u64(1).u32(0x11223344).u32(0x55667788)},
      {"an external reservation carries the field form too",
       [&](CgiRecorder& m) { return m.AddExtReservation(1, booked); }, 65,
       Bytes().u64(1).raw(bookedFields)},
      {"a created conference with an empty identifier",
       [](CgiRecorder& m) { return m.ConferenceCreated(1, ConfIDString{}); }, 287,
       Bytes().u64(1).u32(0)},
      {"the conference after the id",
       [&](CgiRecorder& m) { return m.SendConference(1, conference); }, 265,
       Bytes().u64(1).raw(serialised)},
      {"the record, then the list",
       [&](CgiRecorder& m) { return m.SendRecordingSettings(1, withAddress, {"x"}); }, 270,
       Bytes().u64(1).raw(withAddressBytes).u32(1).str("x")},
      {"the double 1.0 closes the payload",
       [](CgiRecorder& m) { return m.SendSysMessageSettings(1, SysMessageParams{5}, 1.0); }, 273,
       Bytes().u64(1).u32(5).u64(0x3FF0000000000000ULL)},
      {"two identifiers and three records, each list with its own count",
       [&](CgiRecorder& m) {
         return m.SendRecordingParamsList(1, {{"a"}, {"bb"}}, {noAddress, withAddress, noAddress});
       },
       282,
       Bytes().u64(1).u32(2).str("a").str("bb").u32(3).raw(noAddressBytes + withAddressBytes +
                                                           noAddressBytes)},
      {"reservations in a list travel as 24-byte images",
       [&](CgiRecorder& m) { return m.SendReservationList(1, Reservations{{booked}}); }, 283,
       Bytes()
           .u64(1)
           .u32(1)
           .u64(0x1122334455667788ULL)
           .u16(0xABCD)
           .zeros(2)
           .u32(-2)
           .u32(3)
           .zeros(4)},
      {"an empty load list is its count alone",
       [](CgiRecorder& m) { return m.SendReservationLoad(1, {}); }, 284, Bytes().u64(1).u32(0)},
      {"the error report", [](CgiRecorder& m) { return m.CgiReportError(1, as<ConfServError>(6)); },
       263, Bytes().u64(1).u32(6)},
  };
  for (const Golden& g : cases) {
    EXPECT_EQ(hex(payload(g.send)), hex(g.payload)) << g.what;
    EXPECT_EQ(Fake().sent.back().type, g.type) << g.what;
  }
}

TEST(CgiLink, ActiveAndPublicListsHaveTheSamePayload) {
  const std::list<ActiveConfInfo> list{activeConf(1), activeConf(2)};
  EXPECT_EQ(payload([&](CgiRecorder& m) { return m.SendActiveConfList(1, list); }),
            payload([&](CgiRecorder& m) { return m.SendPublicConfList(1, list); }));
}

TEST(CgiLink, TypesWithoutAHandler) {
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
  };
  for (const Case& c : cases) {
    CgiRecorder p;
    int type = c.type;
    const std::string buffer = c.payload + std::string("\0\0\0\2", 4);
    EXPECT_EQ(p.DispatchMessage(&type, buffer.data(), static_cast<int>(buffer.size())), c.known)
        << c.what;
    EXPECT_TRUE(p.calls.empty()) << c.what;
    EXPECT_TRUE(p.errors.empty()) << c.what;
  }
}

TEST(CgiLink, TheCatalogueHoldsEveryMessageOfTheLinkOnce) {
  std::set<int> expected{11, 13, 263, 278, 287};
  for (int type = 2; type <= 69; ++type) {
    if (type != 8 && type != 9 && type != 10 && type != 11 && type != 20 && type != 41)
      expected.insert(type);
  }
  for (int type = 258; type <= 286; ++type) {
    if (type != 263 && type != 264) expected.insert(type);
  }
  std::set<int> listed;
  for (const conflink::MessageName& n : msg::CgiLinkMessages()) {
    EXPECT_TRUE(listed.insert(n.type).second) << n.type;
    EXPECT_EQ(n.handled, n.type != 11 && n.type != 260) << n.name;
  }
  EXPECT_EQ(listed, expected);
  EXPECT_EQ(*listed.begin(), msg::kCgiLinkFirstType);
  EXPECT_EQ(*listed.rbegin(), msg::kCgiLinkLastType);
}

TEST(CgiLink, MessagesReadAsTheirReceiverDecodesThem) {
  struct Case {
    std::function<int(CgiRecorder&)> send;
    const char* text;
  };
  const Case cases[] = {
      {[](CgiRecorder& m) { return m.GetReservationLoad(7, 8UL, 9UL); },
       "GetReservationLoad(7, 8, 9) [type 64, mark 2]"},
      {[](CgiRecorder& m) { return m.ConferenceCreated(7, ConfIDString{}); },
       "ConferenceCreated(7, ConfIDString{id=\"\"}) [type 287, mark 2]"},
      {[](CgiRecorder& m) { return m.ModifyParticipantMedia(7); },
       "type 41: not a message of this link"},
  };
  for (const Case& c : cases) {
    const std::string sent = payload(c.send) + std::string("\0\0\0\2", 4);
    EXPECT_EQ(msg::DescribeCgiLinkMessage(Fake().sent.back().type, sent.data(), sent.size()),
              c.text);
  }
}

}  // namespace
