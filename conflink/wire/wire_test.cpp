#include <conflink/wire/codec.h>
#include <conflink/wire/wire.h>

#include <gtest/gtest.h>

#include "tests/support/hex.h"

#include <cmath>
#include <functional>
#include <limits>
#include <list>
#include <string>

// An enumeration like those the messages carry: a fixed 32-bit signed underlying type.
enum SampleError : int {};

namespace conflink::wire {
namespace {

using conflink::testing::hex;

template <class... A>
std::string encode(const A&... values) {
  std::string out;
  append(out, 0, values...);
  return out;
}

// Each primitive's exact bytes, independent of the host's byte order.
struct PrimitiveCase {
  const char* what;
  std::function<std::string()> encode;
  const char* bytes;
};

TEST(WirePrimitives, EncodeToExactBigEndianBytes) {
  const PrimitiveCase cases[] = {
      {"u64", [] { return encode(0x0102030405060708ULL); }, "01 02 03 04 05 06 07 08"},
      {"u64 max", [] { return encode(~0ULL); }, "ff ff ff ff ff ff ff ff"},
      {"i32 -2", [] { return encode(-2); }, "ff ff ff fe"},
      {"i32 min", [] { return encode(std::numeric_limits<int>::min()); }, "80 00 00 00"},
      {"u32", [] { return encode(0xA1B2C3D4u); }, "a1 b2 c3 d4"},
      {"unsigned long is 4 bytes", [] { return encode(7UL); }, "00 00 00 07"},
      {"u16 then i32, no padding", [] { return encode(static_cast<unsigned short>(0xBEEF), 1); },
       "be ef 00 00 00 01"},
      {"true", [] { return encode(true); }, "00 00 00 01"},
      {"false", [] { return encode(false); }, "00 00 00 00"},
      {"enum32", [] { return encode(static_cast<SampleError>(-3)); }, "ff ff ff fd"},
      {"f64 1.0", [] { return encode(1.0); }, "3f f0 00 00 00 00 00 00"},
      {"f64 -0.0", [] { return encode(-0.0); }, "80 00 00 00 00 00 00 00"},
      {"empty str", [] { return encode(std::string()); }, "00 00 00 00"},
      {"str with zero byte", [] { return encode(std::string("a\0b", 3)); }, "00 00 00 03 61 00 62"},
      {"empty list", [] { return encode(std::list<std::string>()); }, "00 00 00 00"},
      {"list<str>",
       [] {
         return encode(std::list<std::string>{"x", ""});
       },
       "00 00 00 02 00 00 00 01 78 00 00 00 00"},
      {"raw bytes",
       [] {
         return encode(RawBytes{"\x01\x02", 2});
       },
       "01 02"},
      {"nothing", [] { return encode(); }, ""},
  };
  for (const auto& c : cases) EXPECT_EQ(hex(c.encode()), c.bytes) << c.what;
}

TEST(WirePrimitives, SizerAgreesWithWriter) {
  const std::list<std::string> names{"alpha", "", std::string(300, 'z')};
  const std::string text(70000, 'q');
  EXPECT_EQ(encodedSize(1ULL, 2, names, text, true, 3.5),
            encode(1ULL, 2, names, text, true, 3.5).size());
}

TEST(WirePrimitives, AppendKeepsWhatIsAlreadyInTheBuffer) {
  std::string out = "head";
  append(out, 4, 5u);
  EXPECT_EQ(hex(out), "68 65 61 64 00 00 00 05");
  EXPECT_GE(out.capacity(), out.size() + 4);
}

TEST(WireReader, DecodesWhatWasEncoded) {
  const std::string bytes =
      encode(0x8000000000000001ULL, -5, 0xFFFFFFFFu, static_cast<unsigned short>(65535), true,
             -2.25, std::string("conf-42"), std::list<std::string>{"a", "bc"});
  Reader r(bytes.data(), bytes.size());
  unsigned long long a = 0;
  int b = 0;
  unsigned int c = 0;
  unsigned short d = 0;
  bool e = false;
  double f = 0;
  std::string g;
  std::list<std::string> h{"old"};
  read(r, a), read(r, b), read(r, c), read(r, d), read(r, e), read(r, f), read(r, g), read(r, h);
  ASSERT_TRUE(r.ok()) << r.describe();
  EXPECT_EQ(a, 0x8000000000000001ULL);
  EXPECT_EQ(b, -5);
  EXPECT_EQ(c, 0xFFFFFFFFu);
  EXPECT_EQ(d, 65535);
  EXPECT_TRUE(e);
  EXPECT_EQ(f, -2.25);
  EXPECT_EQ(g, "conf-42");
  EXPECT_EQ(h, (std::list<std::string>{"a", "bc"}));
  EXPECT_EQ(r.remaining(), 0u);
}

TEST(WireReader, AnyNonZeroWordIsTrue) {
  const char word[] = {0, 0, 1, 0};
  Reader r(word, 4);
  EXPECT_TRUE(r.bool32());
}

// Every read checks the bytes left; the first failure latches and later reads yield zero.
TEST(WireReader, ShortReadsFailAndLatch) {
  struct Case {
    const char* what;
    size_t available;
    std::function<void(Reader&)> read;
  };
  const Case cases[] = {
      {"u64 from 7", 7, [](Reader& r) { r.u64(); }},
      {"i32 from 3", 3, [](Reader& r) { r.i32(); }},
      {"u16 from 1", 1, [](Reader& r) { r.u16(); }},
      {"str length from 2", 2,
       [](Reader& r) {
         std::string s;
         r.str(s);
       }},
      {"raw bytes", 5, [](Reader& r) { r.bytes(6); }},
  };
  const std::string zeros(16, '\0');
  for (const auto& c : cases) {
    Reader r(zeros.data(), c.available);
    c.read(r);
    EXPECT_FALSE(r.ok()) << c.what;
    EXPECT_NE(r.describe(), "") << c.what;
    // Latched: even a read that would fit in the original buffer now yields zero.
    EXPECT_EQ(r.u16(), 0) << c.what;
    EXPECT_FALSE(r.ok()) << c.what;
  }
}

TEST(WireReader, ClaimedLengthsBeyondTheBufferAreRefusedWithoutAllocating) {
  // A str claiming 4 GiB - 1 bytes, followed by only 3 bytes.
  const std::string huge(
      "\xff\xff\xff\xff"
      "abc",
      7);
  Reader r(huge.data(), huge.size());
  std::string s = "keep?";
  r.str(s);
  EXPECT_FALSE(r.ok());
  EXPECT_TRUE(s.empty());
  EXPECT_LT(s.capacity(), 64u);
  EXPECT_NE(r.describe().find("str bytes at offset 4"), std::string::npos) << r.describe();

  // A list count of 1,000,000 strings with 8 bytes left: each element needs at least 4 bytes.
  const std::string list(
      "\x00\x0f\x42\x40"
      "\0\0\0\0\0\0\0\0",
      12);
  Reader lr(list.data(), list.size());
  std::list<std::string> out{"old"};
  read(lr, out);
  EXPECT_FALSE(lr.ok());
  EXPECT_TRUE(out.empty());
  EXPECT_NE(lr.describe().find("list count at offset 0"), std::string::npos) << lr.describe();
}

TEST(WireReader, ListThatFitsItsCountButNotItsElementsIsEmptiedOnFailure) {
  // Count 2, first element complete, second claims 9 bytes with 1 left.
  const std::string bytes(
      "\0\0\0\x02"
      "\0\0\0\x01"
      "x"
      "\0\0\0\x09"
      "y",
      14);
  Reader r(bytes.data(), bytes.size());
  std::list<std::string> out;
  read(r, out);
  EXPECT_FALSE(r.ok());
  EXPECT_TRUE(out.empty());
}

}  // namespace
}  // namespace conflink::wire
