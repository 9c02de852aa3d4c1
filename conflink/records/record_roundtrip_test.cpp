// Every record with a wire form survives encode then decode with every field intact, alone and
// as list elements, and its decoder takes exactly the bytes its encoder wrote. The comparison
// lists each record's members independently of its wire field list, so a field the wire form
// forgets, duplicates or swaps shows up here.
#include <gtest/gtest.h>

#include <list>
#include <optional>
#include <string>

#include <conflink/records/records_test_support.h>

namespace conflink::testing {
namespace {

// Decodes into a value-initialised record (numbers 0) so that a field the decoder skips stays 0
// and differs from the sample, whose numbers are all non-zero.
template <class T>
void expectRoundTrip(const T& sample) {
  T back{};
  ASSERT_TRUE(decodeAll(encode(sample), back));
  EXPECT_TRUE(back == sample);
  std::list<T> many{sample, sample, T{}};
  std::list<T> manyBack{T{}};
  ASSERT_TRUE(decodeAll(encode(many), manyBack));
  EXPECT_TRUE(manyBack == many);
}

TEST(recordsRoundTrip, EveryRecordKeepsEveryField) {
  const SipRegistrationParams sip = sampleSipRegistration(4);
  const ConferenceParams conf = sampleConference(2, 3);
  {
    SCOPED_TRACE("call and media records");
    expectRoundTrip(ConfIDString{"conf-42"});
    expectRoundTrip(sampleUri(1));
    expectRoundTrip(sampleCall(1));
    expectRoundTrip(RegisterParams{sampleCall(2), 0x01020304, -5, "reg"});
    expectRoundTrip(CallExtraParams{7, -8});
    expectRoundTrip(ParticipantParams{1, 2, 3, 4, -5});
    expectRoundTrip(ConfSpecParams{6, 7, 8, 9, -10});
    expectRoundTrip(AttendantZeroOutParams{-1, "op", "sip:op@example.org", "x", "y"});
    expectRoundTrip(MediaDetails{0xFEDCBA9876543210ULL, -3});
    expectRoundTrip(UserRxMediaList{11, {{12, 13}, {14, -15}}});
    expectRoundTrip(EndpointTopology{{{1, 2}}, {{3, 4}, {5, 6}}});
    expectRoundTrip(ConfTopology{{{21, {{22, 23}}}, {24, {}}}});
  }
  {
    SCOPED_TRACE("configuration records");
    expectRoundTrip(conf.general);
    expectRoundTrip(conf.newParticipant);
    expectRoundTrip(sampleUser(5));
    expectRoundTrip(RuleParams{-9, "weekly", "Mon"});
    expectRoundTrip(conf.schedule);
    expectRoundTrip(sip);
    expectRoundTrip(conf.recording);
    expectRoundTrip(conf.encoding);
    expectRoundTrip(conf.sysMessage);
    expectRoundTrip(conf.autoGainCtrl);
    expectRoundTrip(AttendantParams{"att", sip, 0x8000000000000001ULL, 3, 4, -5, sampleUri(6)});
  }
  {
    SCOPED_TRACE("status and reservation records");
    expectRoundTrip(ConferenceProgress{"p1",
                                       "p2",
                                       "p3",
                                       "p4",
                                       "p5",
                                       "p6",
                                       1,
                                       2,
                                       3,
                                       4,
                                       5,
                                       0xFFFE,
                                       6,
                                       0x8001,
                                       -7,
                                       {sampleUser(8), sampleUser(9)}});
    expectRoundTrip(ConferenceStatus{-77});
    expectRoundTrip(ConfInfo{
        "i1", "i2", "i3", "i4", "i5", "i6", "i7", 1, 2, -3, 0x0102030405060708ULL, {"a", "b", ""}});
    expectRoundTrip(ActiveConfInfo{"a1", "a2", "a3", "a4", "a5", "a6", 1, 2, -3, 0xFFFF, 1});
    expectRoundTrip(RegisteredUserInfo{sampleUri(7)});
    expectRoundTrip(conf.reservations.items.front());
    expectRoundTrip(conf.reservations);
    expectRoundTrip(LoadSegment{0xDEADBEEF, 42});
    expectRoundTrip(conf);
  }
  {
    SCOPED_TRACE("optional call description");
    expectRoundTrip(std::optional<CallParams>(sampleCall(9)));
    expectRoundTrip(std::optional<CallParams>());
  }
}

// A list count is refused at once when even the smallest elements could not all fit, and
// accepted when they can: the element minimum sizes are exact.
template <class T>
void expectCountCheckedTightly(const T& smallest) {
  const std::string element = encode(smallest);
  ASSERT_EQ(element.size(), wire::Codec<T>::minSize());
  for (uint32_t n : {0u, 1u, 3u}) {
    std::string elements;
    for (uint32_t i = 0; i < n; ++i) elements += element;
    std::list<T> fits;
    EXPECT_TRUE(decodeAll(Bytes().u32(n).raw(elements), fits));
    EXPECT_EQ(fits.size(), n);

    std::list<T> tooMany{smallest};
    const std::string claim = Bytes().u32(n + 1).raw(elements);
    wire::Reader r(claim.data(), claim.size());
    wire::read(r, tooMany);
    EXPECT_FALSE(r.ok());
    EXPECT_EQ(r.describe().rfind("list count at offset 0:", 0), 0u) << r.describe();
    EXPECT_TRUE(tooMany.empty());
  }
}

RecordingParams smallestRecording() {
  RecordingParams p{};
  p.value3 = 1;  // no address
  return p;
}

TEST(recordsRoundTrip, ListCountsAreCheckedAgainstTheSmallestElement) {
  expectCountCheckedTightly(ConfIDString{});
  expectCountCheckedTightly(RegisteredUserInfo{});
  expectCountCheckedTightly(CallParams{});
  expectCountCheckedTightly(RegisterParams{});
  expectCountCheckedTightly(MediaDetails{});
  expectCountCheckedTightly(UserRxMediaList{});
  expectCountCheckedTightly(ConferenceUser{});
  expectCountCheckedTightly(RuleParams{});
  expectCountCheckedTightly(smallestRecording());
  expectCountCheckedTightly(AttendantParams{});
  expectCountCheckedTightly(ConfInfo{});
  expectCountCheckedTightly(ActiveConfInfo{});
  expectCountCheckedTightly(ConferenceProgress{});
  expectCountCheckedTightly(ReservationInfo{});
  expectCountCheckedTightly(LoadSegment{});
  ConferenceParams smallestConference{};
  smallestConference.recording.value3 = 1;
  expectCountCheckedTightly(smallestConference);
  EXPECT_EQ(ConferenceParamsMinSize(), 242u);
}

}  // namespace
}  // namespace conflink::testing
