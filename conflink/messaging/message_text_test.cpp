// Values and whole messages as text: every kind of value renders as documented, and a link's
// description of a buffer tells each outcome of dispatch apart.
#include <conflink/messaging/message_text.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <map>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <vector>

#include <conflink/cc/cc_catalogue.h>
#include <conflink/cc/cc_to_ps_messenger.h>
#include <conflink/cgi/cgi_catalogue.h>
#include <conflink/cgi/cgi_to_ps_messenger.h>
#include <conflink/records/records.h>

namespace {

using conflink::wire::toText;

struct ValueCase {
  const char* what;
  std::function<std::string()> text;
  const char* expected;
};

TEST(ValueText, EveryKindOfValueRendersAsDocumented) {
  ReservationInfo reservation{};
  reservation.wide1 = 1700000000ULL;
  reservation.short1 = 20;
  reservation.value1 = -1;
  reservation.value2 = 3;
  RecordingParams recording{};
  recording.texts = {"/rec"};
  recording.value3 = 1;
  recording.uri = SipUri{"sip:", "rec", "", "5060"};

  const ValueCase cases[] = {
      {"negative int", [] { return toText(-2147483647 - 1); }, "-2147483648"},
      {"largest u64", [] { return toText(~0ULL); }, "18446744073709551615"},
      {"u16", [] { return toText(static_cast<unsigned short>(65535)); }, "65535"},
      {"bool", [] { return toText(true) + toText(false); }, "truefalse"},
      {"double reads back exactly", [] { return toText(0.1); }, "0.10000000000000001"},
      {"enumeration by value", [] { return toText(static_cast<RejectReason>(-3)); }, "-3"},
      {"empty string", [] { return toText(std::string()); }, "\"\""},
      {"quotes, backslash and control bytes escaped",
       [] { return toText(std::string("a\"b\\c\n\r\t\x01\x7f")); }, R"("a\"b\\c\n\r\t\x01\x7f")"},
      {"UTF-8 passes as it is", [] { return toText(std::string("M\xc3\xbcller")); },
       "\"M\xc3\xbcller\""},
      {"embedded zero byte", [] { return toText(std::string("a\0b", 3)); }, R"("a\x00b")"},
      {"raw block as hex",
       [] {
         return toText(conflink::wire::RawBytes{"\x00\xff\x10", 3});
       },
       "0x00ff10"},
      {"empty list", [] { return toText(std::list<int>{}); }, "[]"},
      {"list of strings",
       [] {
         return toText(std::list<std::string>{"a", "b"});
       },
       R"(["a", "b"])"},
      {"absent optional", [] { return toText(std::optional<CallParams>()); }, "null"},
      {"null pointer", [] { return toText(static_cast<const SipUri*>(nullptr)); }, "null"},
      {"record from its field list",
       [] {
         return toText(SipUri{"sip:", "alice", "example.com", "5060"});
       },
       R"(SipUri{text1="sip:", text2="alice", text3="example.com", text4="5060"})"},
      {"record in a list",
       [] {
         return toText(std::list<ConfIDString>{{"1"}, {"2"}});
       },
       R"([ConfIDString{id="1"}, ConfIDString{id="2"}])"},
      {"present optional record",
       [] { return toText(std::optional<ConfIDString>(ConfIDString{"9"})); },
       R"(ConfIDString{id="9"})"},
      {"reservation by its fields", [&] { return toText(reservation); },
       "ReservationInfo{wide1=1700000000, short1=20, value1=-1, value2=3}"},
      {"reservations", [&] { return toText(Reservations{{reservation}}); },
       "Reservations{items=[ReservationInfo{wide1=1700000000, short1=20, value1=-1, value2=3}]}"},
      {"load segment",
       [] {
         return toText(LoadSegment{7, 90});
       },
       "LoadSegment{start=7, load=90}"},
      {"recording shows its address even where the wire omits it",
       [&] { return toText(recording); },
       R"(RecordingParams{value1=0, texts=["/rec"], value2=0, value3=1, value4=0, value5=0, )"
       R"(uri=SipUri{text1="sip:", text2="rec", text3="", text4="5060"}})"},
  };
  for (const ValueCase& c : cases) EXPECT_EQ(c.text(), c.expected) << c.what;
}

TEST(ValueText, ConferenceParamsNamesEveryPart) {
  const std::string text = toText(ConferenceParams{});
  for (const char* part : {"general=", "newParticipant=", "participants=[]",
                           "sip=", "recording=", "schedule=", "reservations=Reservations{items=[]}",
                           "encoding=", "encodingExtras=[]", "sysMessage=", "autoGainCtrl="}) {
    EXPECT_NE(text.find(part), std::string::npos) << part << " missing from " << text;
  }
}

// Buffers as the queue carries them: payload, then the link mark.
std::string bytes(std::initializer_list<int> values) {
  std::string out;
  for (int v : values) out += static_cast<char>(v);
  return out;
}
const std::string kDialOut =
    bytes({0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 2, '4', '2', 0, 0, 0, 0, 0, 0, 0, 7});
const std::string kMarkCgi = bytes({0, 0, 0, 2});
const std::string kMarkCc = bytes({0, 0, 0, 0});

struct DescribeCase {
  const char* what;
  bool cc;  // which link's catalogue
  int type;
  std::string buffer;
  std::string expected;
};

TEST(MessageText, EachOutcomeOfDispatchReadsDifferently) {
  const DescribeCase cases[] = {
      {"a request", false, 3, kDialOut + kMarkCgi,
       R"(DialOut(1, ConfIDString{id="42"}, 7) [type 3, mark 2])"},
      {"the mark is the trailer's, unchecked", true, 3, kDialOut + bytes({0x7f, 0, 0, 1}),
       R"(DialOut(1, ConfIDString{id="42"}, 7) [type 3, mark 2130706433])"},
      {"bytes after the last field", true, 3, kDialOut + "xy" + kMarkCc,
       R"(DialOut(1, ConfIDString{id="42"}, 7) [type 3, mark 0] with 2 bytes after the last field)"},
      {"a payload that runs short", true, 3, kDialOut.substr(0, 13) + kMarkCc,
       "Malformed message 3 (DialOut, 13 payload bytes): str bytes at offset 12: 2 bytes needed, 1 "
       "left (ConfIDString.id)"},
      {"an empty message", true, 70, kMarkCc, "InitiateConferenceServer() [type 70, mark 0]"},
      {"a dropped command", true, 135, "abc" + kMarkCc,
       "PauseConference: accepted and dropped unread, 3 payload bytes [type 135, mark 0]"},
      {"the web link's dropped number", false, 11, kMarkCgi,
       "(unused 11): accepted and dropped unread, 0 payload bytes [type 11, mark 2]"},
      {"too short for the mark", true, 3, "abc",
       "DialOut: 3 bytes, too short for the link mark [type 3]"},
      {"a number the link does not have", false, 70, kMarkCgi,
       "type 70: not a message of this link"},
      {"too short is told before unknown, as dispatch reports it", true, 71, "ab",
       "type 71: 2 bytes, too short for the link mark [type 71]"},
      {"beyond the link's range", true, 5000, kMarkCc, "type 5000: not a message of this link"},
      {"negative", true, -1, kMarkCc, "type -1: not a message of this link"},
      {"peer attached", false, static_cast<int>(0x80000000u), "", "queue event: the peer attached"},
      {"peer left", true, static_cast<int>(0x80000001u), "", "queue event: the peer left"},
      {"opaque block as hex", true, 278,
       bytes({0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 2, 0, 0, 0, 3, 0, 0xff, 0x10}) + kMarkCc,
       "SendConferenceParam(1, 2, 3, 0x00ff10) [type 278, mark 0]"},
      {"opaque block longer than the payload", true, 278,
       bytes({0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 2, 0x10, 0, 0, 0}) + kMarkCc,
       "Malformed message 278 (SendConferenceParam, 16 payload bytes): raw bytes at offset 16: "
       "268435456 bytes needed, 0 left"},
  };
  for (const DescribeCase& c : cases) {
    const std::string text =
        c.cc ? conflink::msg::DescribeCcLinkMessage(c.type, c.buffer.data(), c.buffer.size())
             : conflink::msg::DescribeCgiLinkMessage(c.type, c.buffer.data(), c.buffer.size());
    EXPECT_EQ(text, c.expected) << c.what;
  }
}

TEST(MessageText, CataloguesListEachLinksMessagesOnceInTypeOrder) {
  struct Link {
    const char* name;
    std::vector<conflink::MessageName> messages;
    int handled;  // a type with a handler on this link
    int dropped;  // a type accepted and dropped on this link
    int absent;   // a type this link does not receive
  };
  const Link links[] = {
      {"cc", conflink::msg::CcLinkMessages(), 70, 135, 13},
      {"cgi", conflink::msg::CgiLinkMessages(), 278, 11, 70},
  };
  for (const Link& link : links) {
    int previous = -1;
    std::map<std::string, int> names;
    std::set<int> handled, dropped;
    for (const conflink::MessageName& m : link.messages) {
      EXPECT_GT(m.type, previous) << link.name;
      previous = m.type;
      // A name serves at most two messages: a shared one and its namesake of one link.
      EXPECT_LE(++names[m.name], 2) << link.name << " names " << m.name << " thrice";
      (m.handled ? handled : dropped).insert(m.type);
    }
    EXPECT_EQ(handled.count(link.handled), 1u) << link.name;
    EXPECT_EQ(dropped.count(link.dropped), 1u) << link.name;
    EXPECT_EQ(handled.count(link.absent) + dropped.count(link.absent), 0u) << link.name;
    EXPECT_EQ(handled.count(3), 1u) << link.name << ": the shared requests are on every link";
  }
}

// A messenger that only counts what it reports; its handlers are the library's defaults.
template <class Base>
class Reporter : public Base {
 public:
  Reporter() : Base(9) {}
  std::vector<std::string> errors;
  void Error(const char* text) override { errors.push_back(text); }
};

// Random buffers for every type of either link: dispatch never reads outside them (the sanitizer
// build watches), reports at most once, and its report is the link's description of the buffer.
// Word-sized lengths and counts are drawn small as often as large, so that decoding gets deep
// into records rather than failing at the first length.
template <class M>
void dispatchRandomBuffers(const std::vector<conflink::MessageName>& catalogue,
                           std::string (*describe)(int, const char*, size_t)) {
  std::mt19937 random(20261122);
  for (const conflink::MessageName& m : catalogue) {
    for (int round = 0; round < 200; ++round) {
      std::string buffer;
      const size_t length = random() % 96;
      while (buffer.size() < length) {
        const std::uint32_t word = random() % 2 == 0 ? random() % 8 : random();
        for (int shift = 24; shift >= 0 && buffer.size() < length; shift -= 8)
          buffer += static_cast<char>(word >> shift);
      }
      Reporter<M> messenger;
      const int type = m.type;
      EXPECT_TRUE(messenger.DispatchMessage(&type, buffer.data(), static_cast<int>(length)))
          << m.name;
      ASSERT_LE(messenger.errors.size(), 1u) << m.name;
      const std::string text = describe(type, buffer.data(), length);
      if (length > 3) {
        const bool malformed = text.rfind("Malformed", 0) == 0;
        ASSERT_EQ(messenger.errors.size(), malformed ? 1u : 0u) << text;
        if (malformed) {
          EXPECT_EQ(messenger.errors[0], text);
        }
      } else {
        EXPECT_EQ(messenger.errors.size(), 1u) << m.name << " with " << length << " bytes";
      }
    }
  }
}

TEST(MessageText, RandomBuffersAreHandledOrReportedOnceOnEitherLink) {
  dispatchRandomBuffers<CCToPSMessenger>(conflink::msg::CcLinkMessages(),
                                         &conflink::msg::DescribeCcLinkMessage);
  dispatchRandomBuffers<CGIToPSMessenger>(conflink::msg::CgiLinkMessages(),
                                          &conflink::msg::DescribeCgiLinkMessage);
}

}  // namespace

namespace {

// The reference entries come from the declarations: a few of each form and route.
struct ReferenceCase {
  bool cc;
  int type;
  const char* from;
  const char* to;
  const char* payload;
  const char* handler;
};

TEST(ProtocolReference, EntriesNameRouteFieldTypesAndHandlerOfEachForm) {
  const ReferenceCase cases[] = {
      {true, 3, "CC or CGI", "PS", "u64, ConfIDString, u64", "PsToBothInterface::OnDialOut"},
      {true, 0, "CC", "PS", "u64, ConfIDString, str, SipUri, bool32",
       "PsToCcInterface::OnJoinConference"},
      {true, 131, "PS", "CC",
       "u64, ConfIDString, RecordingParams, opt<CallParams>, ConfSpecParams, u16",
       "CcToPsInterface::OnSetupConference"},
      {true, 135, "PS", "CC", "", "CcToPsInterface::OnPauseConference"},
      {true, 263, "PS", "CC", "u64, enum32 ConfServError", "CcToPsInterface::OnReportError"},
      {false, 278, "PS", "CC or CGI", "u64, enum32 ConferenceParamType, u32 n, bytes(n)",
       "BothToPsInterface::OnSendConferenceParam"},
      {false, 64, "CGI", "PS", "u64, u32, u32", "PsToCgiInterface::OnGetReservationLoad"},
      {false, 273, "PS", "CGI", "u64, SysMessageParams, f64",
       "CgiToPsInterface::OnSendSysMessageSettings"},
      {false, 23, "CGI", "PS", "u64, ConfIDString, u64, ConfGeneralParams",
       "PsToCgiInterface::OnSaveConfGeneral"},
  };
  const auto cc = conflink::msg::CcLinkMessages();
  const auto cgi = conflink::msg::CgiLinkMessages();
  for (const ReferenceCase& c : cases) {
    const auto& list = c.cc ? cc : cgi;
    const auto it = std::find_if(list.begin(), list.end(),
                                 [&c](const conflink::MessageName& m) { return m.type == c.type; });
    ASSERT_NE(it, list.end()) << c.type;
    EXPECT_STREQ(it->from, c.from) << c.type;
    EXPECT_STREQ(it->to, c.to) << c.type;
    EXPECT_EQ(it->payload, c.payload) << c.type;
    EXPECT_EQ(it->handler, c.handler) << c.type;
  }
}

TEST(ProtocolReference, EveryDeclaredMessageHasAnEntryAndOnlyTheUnsentTypeLacksOne) {
  for (const auto& list : {conflink::msg::CcLinkMessages(), conflink::msg::CgiLinkMessages()}) {
    for (const conflink::MessageName& m : list) {
      if (m.type == 11 && std::string(m.name) == "(unused 11)") {
        EXPECT_STREQ(m.from, "");
        continue;
      }
      EXPECT_STRNE(m.from, "") << m.type;
      EXPECT_EQ(m.handler.rfind("::On") + 4 + std::strlen(m.name), m.handler.size())
          << m.type << " " << m.handler;
    }
  }
}

}  // namespace
