// Exact bytes of the records with fixed sizes or tricky layouts. An encoder and a decoder that
// share a mistake still round-trip; these expectations, written out by hand, do not.
#include <gtest/gtest.h>

#include <cstring>
#include <list>
#include <optional>
#include <string>

#include <conflink/records/records_test_support.h>

namespace conflink::testing {
namespace {

struct Golden {
  const char* what;
  std::string actual;
  std::string expected;
};

CallParams resetCall() {
  CallParams c = sampleCall(1);
  c.Reset();
  return c;
}

RecordingParams recording(int value3, SipUri uri) {
  return {-1, {"a", ""}, 2, value3, 4, 5, std::move(uri)};
}

TEST(recordsGolden, EncodesExactBytes) {
  const Bytes recordingHead = Bytes().u32(0xFFFFFFFF).u32(2).str("a").str("").u32(2);
  const Golden cases[] = {
      {"AutoGainCtrlParams is 8 bytes", encode(AutoGainCtrlParams{-2, 0x0102, 0xFFFE}),
       std::string("\xFF\xFF\xFF\xFE\x01\x02\xFF\xFE", 8)},
      {"NewParticipantParams: u16 directly followed by value2",
       encode(NewParticipantParams{1, 0xABCD, 2, 3, 4, 5, 6, 7, 8, 9, 10}),
       Bytes().u32(1).u16(0xABCD).u32(2).u32(3).u32(4).u32(5).u32(6).u32(7).u32(8).u32(9).u32(10)},
      {"ScheduleParams without rules starts with a zero count",
       encode(ScheduleParams{{}, 5, -6, 7, 8, "tz"}),
       Bytes().u32(0).u32(5).u32(0xFFFFFFFA).u16(7).u16(8).str("tz")},
      {"ScheduleParams rules come first", encode(ScheduleParams{{{9, "d", "t"}}, 5, 6, 7, 8, ""}),
       Bytes().u32(1).u32(9).str("d").str("t").u32(5).u32(6).u16(7).u16(8).u32(0)},
      {"EncodingParams without codecs is 8 bytes", encode(EncodingParams{{}, 0x01020304}),
       Bytes().u32(0).u32(0x01020304)},
      {"RecordingParams with value3 0 sends its address", encode(recording(0, SipUri{})),
       Bytes(recordingHead).u32(0).u32(4).u32(5).zeros(16)},
      {"RecordingParams with value3 1 ends after value5",
       encode(recording(1, SipUri{"w", "x", "y", "z"})), Bytes(recordingHead).u32(1).u32(4).u32(5)},
      {"CallParams after Reset is 44 zero bytes", encode(resetCall()), Bytes().zeros(44)},
      {"RegisterParams: base part, then its own fields",
       encode(RegisterParams{resetCall(), 7, -1, "r"}),
       Bytes().zeros(44).u32(7).u32(0xFFFFFFFF).str("r")},
      {"ConfTopology user without media: 8-byte id and zero count",
       encode(ConfTopology{{{0x0102030405060708ULL, {}}}}),
       Bytes().u32(1).u64(0x0102030405060708ULL).u32(0)},
      {"MediaDetails is u64 then i32", encode(MediaDetails{0xA0A1A2A3A4A5A6A7ULL, 3}),
       Bytes().u64(0xA0A1A2A3A4A5A6A7ULL).u32(3)},
      {"ReservationInfo field form is 18 bytes",
       encode(ReservationInfo{0x0102030405060708ULL, 0x090A, 0x0B0C0D0E, -1}),
       Bytes().u64(0x0102030405060708ULL).u16(0x090A).u32(0x0B0C0D0E).u32(0xFFFFFFFF)},
      {"Reservations: count, then 24-byte images with zero padding",
       encode(Reservations{{{0x0102030405060708ULL, 0x090A, 0x0B0C0D0E, -1},
                            {1, 2, 3, 4},
                            {0xFFFFFFFFFFFFFFFFULL, 0xFFFF, -1, -1}}}),
       Bytes()
           .u32(3)
           .u64(0x0102030405060708ULL)
           .u16(0x090A)
           .zeros(2)
           .u32(0x0B0C0D0E)
           .u32(0xFFFFFFFF)
           .zeros(4)
           .u64(1)
           .u16(2)
           .zeros(2)
           .u32(3)
           .u32(4)
           .zeros(4)
           .u64(0xFFFFFFFFFFFFFFFFULL)
           .u16(0xFFFF)
           .zeros(2)
           .u32(0xFFFFFFFF)
           .u32(0xFFFFFFFF)
           .zeros(4)},
      {"empty list<LoadSegment> is 4 zero bytes", encode(std::list<LoadSegment>{}),
       Bytes().zeros(4)},
      {"ConferenceUser: two u16 back to back, then eleven i32",
       encode(ConferenceUser{7, "a", "", "", "", "", "f", 0x0102, 0x0304, 1,
                             2, 3,   4,  5,  6,  7,  8,   9,      10,     11}),
       Bytes()
           .u64(7)
           .str("a")
           .zeros(16)
           .str("f")
           .u16(0x0102)
           .u16(0x0304)
           .u32(1)
           .u32(2)
           .u32(3)
           .u32(4)
           .u32(5)
           .u32(6)
           .u32(7)
           .u32(8)
           .u32(9)
           .u32(10)
           .u32(11)},
      {"ConferenceProgress: each u16 directly followed by the next field",
       encode(ConferenceProgress{"", "", "", "", "", "", 1, 2, 3, 4, 5, 0x0A0B, 6, 0x0C0D, 7, {}}),
       Bytes()
           .zeros(24)
           .u32(1)
           .u32(2)
           .u32(3)
           .u32(4)
           .u32(5)
           .u16(0x0A0B)
           .u32(6)
           .u16(0x0C0D)
           .u32(7)
           .u32(0)},
      {"ConfGeneralParams: 8-byte values big-endian",
       encode(ConfGeneralParams{"a", "", 1, "", "d", 2, 0x0102030405060708ULL,
                                0x1112131415161718ULL, 3, 4, 5, 6, 7, 8}),
       Bytes()
           .str("a")
           .u32(0)
           .u32(1)
           .u32(0)
           .str("d")
           .u32(2)
           .u64(0x0102030405060708ULL)
           .u64(0x1112131415161718ULL)
           .u32(3)
           .u32(4)
           .u32(5)
           .u32(6)
           .u32(7)
           .u32(8)},
      {"AttendantParams: text1, registration, wides, values, address",
       encode(AttendantParams{
           "t", SipRegistrationParams{"", "", "", "", "", 1, "", "", "", "", "", "", 2, 3, 4}, 5, 6,
           7, 8, SipUri{"u", "", "", ""}}),
       Bytes()
           .str("t")
           .zeros(20)
           .u32(1)
           .zeros(24)
           .u32(2)
           .u32(3)
           .u32(4)
           .u64(5)
           .u64(6)
           .u32(7)
           .u32(8)
           .str("u")
           .zeros(12)},
      {"absent CallParams is a zero word alone", encode(static_cast<const CallParams*>(nullptr)),
       Bytes().zeros(4)},
      {"present CallParams follows a word 1", encode(std::optional<CallParams>(resetCall())),
       Bytes().u32(1).zeros(44)},
  };
  for (const Golden& c : cases) {
    SCOPED_TRACE(c.what);
    EXPECT_EQ(c.actual, c.expected);
  }
}

TEST(recordsGolden, StringsOfEveryShortLengthTravelExactly) {
  // Covers each size class of the writer's string copy and the boundaries between them.
  std::string text;
  for (size_t n = 0; n <= 70; ++n) {
    SCOPED_TRACE(n);
    EXPECT_EQ(encode(ConfIDString{text}), Bytes().u32(static_cast<uint32_t>(n)).raw(text));
    text += static_cast<char>('A' + n % 26 + (n / 26) * 0x20);
  }
}

TEST(recordsGolden, ReservationImageFieldsComeFromTheirOffsets) {
  // Padding bytes full of noise, and bytes 10-13 distinct from 12-15, so reading value1 at the
  // wrong place, or looking at the padding, changes the result.
  const std::string in = Bytes()
                             .u32(1)
                             .u64(0x0102030405060708ULL)
                             .u16(0x090A)
                             .u16(0xEEEE)
                             .u32(0x0B0C0D0E)
                             .u32(0x0F101112)
                             .u32(0xDDDDDDDD);
  Reservations r;
  ASSERT_TRUE(decodeAll(in, r));
  ASSERT_EQ(r.items.size(), 1u);
  EXPECT_EQ(r.items.front(),
            (ReservationInfo{0x0102030405060708ULL, 0x090A, 0x0B0C0D0E, 0x0F101112}));
}

TEST(recordsGolden, RecordingAddressTravelsOnlyWhenValue3IsZero) {
  const SipUri held{"keep", "me", "as", "is"};
  for (int value3 : {1, -1, 0x7FFFFFFF}) {
    SCOPED_TRACE(value3);
    const std::string bytes = encode(recording(value3, SipUri{"w", "x", "y", "z"}));
    RecordingParams fresh{};
    ASSERT_TRUE(decodeAll(bytes, fresh));
    EXPECT_EQ(fresh, recording(value3, SipUri{}));
    RecordingParams holding = recording(9, held);
    ASSERT_TRUE(decodeAll(bytes, holding));
    EXPECT_EQ(holding.uri, held);
  }
  RecordingParams withUri{};
  ASSERT_TRUE(decodeAll(encode(recording(0, SipUri{"w", "x", "y", "z"})), withUri));
  EXPECT_EQ(withUri.uri, (SipUri{"w", "x", "y", "z"}));
}

TEST(recordsGolden, OptionalCallParamsTakesAnyNonZeroWordAsPresent) {
  for (uint32_t word : {1u, 2u, 0x80000000u}) {
    std::optional<CallParams> v;
    ASSERT_TRUE(decodeAll(Bytes().u32(word).zeros(44), v));
    ASSERT_TRUE(v.has_value());
    EXPECT_EQ(*v, resetCall());
  }
  std::optional<CallParams> v = sampleCall(3);
  ASSERT_TRUE(decodeAll(Bytes().zeros(4), v));
  EXPECT_FALSE(v.has_value());
}

TEST(recordsGolden, LoadSegmentTravelsAsItsMemoryBytes) {
  const LoadSegment seg{0x01020304, 0xA0B0C0D0};
  std::string memory(sizeof seg, '\0');
  std::memcpy(&memory[0], &seg, sizeof seg);
  EXPECT_EQ(encode(std::list<LoadSegment>{seg, seg}), Bytes().u32(2).raw(memory).raw(memory));
  std::list<LoadSegment> back;
  ASSERT_TRUE(decodeAll(Bytes().u32(1).raw(memory), back));
  EXPECT_EQ(back, std::list<LoadSegment>{seg});
}

}  // namespace
}  // namespace conflink::testing
