// The ConferenceParams operators: the fixed block of an empty record, the section order, lists
// replaced rather than merged, the bytes after the record left alone, and truncated or hostile
// input refused without reading past the end, with input and target untouched.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>

#include <conflink/records/records_test_support.h>

namespace conflink::testing {
namespace {

TEST(recordsConferenceParams, EmptyRecordIsAFixedBlock) {
  const ConferenceParams empty{};  // every number 0, so the recording address travels
  EXPECT_EQ(encode(empty.general), Bytes().zeros(64));
  std::string out = "head";
  out << empty;
  EXPECT_EQ(out, Bytes().raw("head").zeros(242 + 16));

  std::string in = out.substr(4);
  ConferenceParams back = sampleConference(1, 2);
  in >> back;
  EXPECT_TRUE(in.empty());
  EXPECT_EQ(back, empty);
}

TEST(recordsConferenceParams, SectionsFollowInDeclarationOrder) {
  const ConferenceParams p = sampleConference(3, 2);
  std::string out;
  out << p;
  EXPECT_EQ(out, encode(p.general) + encode(p.newParticipant) + encode(p.participants) +
                     encode(p.sip) + encode(p.recording) + encode(p.schedule) +
                     encode(p.reservations) + encode(p.encoding) + encode(p.encodingExtras) +
                     encode(p.sysMessage) + encode(p.autoGainCtrl));
}

TEST(recordsConferenceParams, DecodingReplacesListsAndLeavesTheRestOfTheInput) {
  const ConferenceParams sent = sampleConference(4, 1);
  const std::string tail("\0tail\xFF", 6);
  std::string in;
  in << sent;
  in += tail;

  ConferenceParams target = sampleConference(5, 4);  // longer lists everywhere
  target.reservations.items.push_back(target.reservations.items.front());
  target.encoding.codecs.push_back("G722");
  std::string error;
  ASSERT_TRUE(DecodeConferenceParams(in, target, &error)) << error;
  EXPECT_EQ(in, tail);
  EXPECT_EQ(target, sent);
}

TEST(recordsConferenceParams, RecordWithoutAddressKeepsTheTargetsAddress) {
  ConferenceParams sent = sampleConference(6, 0);
  sent.recording.value3 = 2;
  std::string in;
  in << sent;
  ConferenceParams target = sampleConference(7, 0);
  in >> target;
  ASSERT_TRUE(in.empty());
  EXPECT_EQ(target.recording.uri, sampleUri(7));
  target.recording.uri = sent.recording.uri;
  EXPECT_EQ(target, sent);
}

// Every proper prefix of a populated record is refused: the input string and the target stay
// as they were, and no byte past the prefix is read (each prefix also sits alone in a heap block
// of exactly its size, so a sanitizer sees any overread).
TEST(recordsConferenceParams, EveryTruncationFailsCleanly) {
  const ConferenceParams sent = sampleConference(8, 2);
  std::string full;
  full << sent;
  const ConferenceParams before = sampleConference(9, 3);
  for (size_t n = 0; n < full.size(); ++n) {
    SCOPED_TRACE(n);
    std::string in = full.substr(0, n);
    ConferenceParams target = before;
    std::string error;
    ASSERT_FALSE(DecodeConferenceParams(in, target, &error));
    EXPECT_FALSE(error.empty());
    ASSERT_EQ(in, full.substr(0, n));
    ASSERT_EQ(target, before);
    in >> target;
    ASSERT_EQ(in.size(), n);

    std::unique_ptr<char[]> exact(new char[n + 1]);
    std::memcpy(exact.get(), full.data(), n);
    wire::Reader r(exact.get(), n);
    ConferenceParams scratch;
    wire::read(r, scratch);
    ASSERT_FALSE(r.ok());
  }
}

TEST(recordsConferenceParams, HostileLengthsAndCountsAreRefusedWithTheirField) {
  std::string valid;
  valid << sampleConference(10, 1);
  const size_t participantsAt = encode(sampleConference(10, 1).general).size() + 42;
  struct Case {
    const char* what;
    size_t at;       // where the forged u32 goes
    uint32_t value;  // what it claims
    std::string expected;
  };
  const Case cases[] = {
      {"general.text1 length", 0, 0xFFFFFFFF, "str bytes at offset 4: 4294967295 bytes needed"},
      {"participant count", participantsAt, 0xFFFFFFFF,
       "list count at offset " + std::to_string(participantsAt) + ": 343597383600 bytes needed"},
      {"participant count beyond the bytes left", participantsAt, 1000,
       "(ConferenceParams.participants)"},
      {"first participant's text1 length", participantsAt + 4 + 8, 0x7FFFFFF0,
       "(ConferenceUser.text1)"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    std::string in = valid;
    const std::string forged = Bytes().u32(c.value);
    in.replace(c.at, 4, forged);
    const std::string original = in;
    ConferenceParams target = sampleConference(11, 2);
    const ConferenceParams before = target;
    std::string error;
    EXPECT_FALSE(DecodeConferenceParams(in, target, &error));
    EXPECT_NE(error.find(c.expected), std::string::npos) << error;
    EXPECT_EQ(in, original);
    EXPECT_EQ(target, before);
  }
}

TEST(recordsConferenceParams, ReservationCountIsCheckedAgainstWholeImages) {
  // Three images' worth of bytes cannot hold four reservations, even though they would hold four
  // reservations in the 18-byte field form.
  Reservations r;
  EXPECT_FALSE(decodeAll(Bytes().u32(4).zeros(72), r));
  EXPECT_TRUE(decodeAll(Bytes().u32(3).zeros(72), r));
  EXPECT_EQ(r.items.size(), 3u);
}

}  // namespace
}  // namespace conflink::testing
