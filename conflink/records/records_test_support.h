// Helpers shared by the record tests: expected bytes built by hand, one-call encode and decode,
// and fully populated sample records in which every field holds a distinct value.
#pragma once

#include <cstdint>
#include <string>

#include <conflink/records/record_equality.h>
#include <conflink/records/records.h>

namespace conflink::testing {

// Builds big-endian wire bytes with shifts, so expectations hold on hosts of either byte order.
// It is the string it builds, so it compares directly with encoded bytes.
class Bytes : public std::string {
 public:
  Bytes& u16(uint16_t v) { return be(v, 2); }
  Bytes& u32(uint32_t v) { return be(v, 4); }
  Bytes& u64(uint64_t v) { return be(v, 8); }
  Bytes& str(const std::string& t) {
    u32(static_cast<uint32_t>(t.size()));
    append(t);
    return *this;
  }
  Bytes& zeros(size_t n) {
    append(n, '\0');
    return *this;
  }
  Bytes& raw(const std::string& t) {
    append(t);
    return *this;
  }

 private:
  Bytes& be(uint64_t v, int n) {
    for (int i = n - 1; i >= 0; --i) push_back(static_cast<char>((v >> (8 * i)) & 0xFF));
    return *this;
  }
};

template <class T>
std::string encode(const T& v) {
  std::string out;
  wire::append(out, 0, v);
  return out;
}

// Decodes a T from the whole of `in`; true only if it succeeded and used every byte.
template <class T>
bool decodeAll(const std::string& in, T& v) {
  wire::Reader r(in.data(), in.size());
  wire::read(r, v);
  return r.ok() && r.remaining() == 0;
}

// Distinct values per field; `s` makes records built from different seeds differ everywhere.
inline std::string t(int s, const char* what) {
  return std::string(what) + "-" + std::to_string(s);
}

inline CallParams sampleCall(int s) {
  return {t(s, "c1"), t(s, "c2"), t(s, "c3"), t(s, "c4"),  t(s, "c5"), t(s, "c6"),
          t(s, "c7"), t(s, "c8"), t(s, "c9"), t(s, "c10"), -s - 1};
}
inline SipUri sampleUri(int s) {
  return {t(s, "sip:"), t(s, "host"), t(s, "5060"), t(s, "tcp")};
}
inline ConferenceUser sampleUser(int s) {
  return {0x0102030405060708ULL + static_cast<unsigned>(s),
          t(s, "Ann"),
          t(s, "Lee"),
          t(s, "ann@example.org"),
          t(s, "sip:ann@example.org"),
          t(s, "+1555"),
          std::string(300, 'x'),
          static_cast<unsigned short>(0xA1B2 + s),
          static_cast<unsigned short>(0xC3D4 + s),
          s + 1,
          s + 2,
          s + 3,
          s + 4,
          s + 5,
          s + 6,
          s + 7,
          s + 8,
          s + 9,
          s + 10,
          -s - 11};
}
inline SipRegistrationParams sampleSipRegistration(int s) {
  return {t(s, "r1"),  t(s, "r2"),  t(s, "r3"), t(s, "r4"), t(s, "r5"),
          s + 41,      t(s, "r6"),  t(s, "r7"), t(s, "r8"), t(s, "r9"),
          t(s, "r10"), t(s, "r11"), s + 42,     s + 43,     -s - 44};
}

inline ConferenceParams sampleConference(int s, int users) {
  ConferenceParams p;
  p.general = {t(s, "g1"),
               t(s, "g2"),
               s + 1,
               t(s, "g3"),
               t(s, "g4"),
               s + 2,
               0x1122334455667788ULL + static_cast<unsigned>(s),
               0x99AABBCCDDEEFF00ULL,
               s + 3,
               s + 4,
               s + 5,
               s + 6,
               s + 7,
               -s - 8};
  p.newParticipant = {s + 21, static_cast<unsigned short>(0xBEEF + s),
                      s + 22, s + 23,
                      s + 24, s + 25,
                      s + 26, s + 27,
                      s + 28, s + 29,
                      -s - 30};
  for (int i = 0; i < users; ++i) p.participants.push_back(sampleUser(s * 100 + i));
  p.sip = sampleSipRegistration(s);
  p.recording = {s + 51,      {t(s, "rec1"), "", t(s, "rec3")}, s + 52, 0, s + 54, -s - 55,
                 sampleUri(s)};
  p.schedule = {{{s + 61, t(s, "daily"), t(s, "09:00")}, {s + 62, t(s, "once"), ""}},
                s + 63,
                s + 64,
                static_cast<unsigned short>(s + 65),
                static_cast<unsigned short>(0xFFFF - s),
                t(s, "Europe/Paris")};
  p.reservations.items = {{0xF0E0D0C0B0A09080ULL + static_cast<unsigned>(s),
                           static_cast<unsigned short>(0x7172 + s), s + 73, -s - 74},
                          {s + 75ULL, static_cast<unsigned short>(s + 76), s + 77, s + 78}};
  p.encoding = {{t(s, "PCMU"), t(s, "opus"), t(s, "H264")}, s + 81};
  p.encodingExtras = {t(s, "x1"), t(s, "x2")};
  p.sysMessage = {s + 91};
  p.autoGainCtrl = {-s - 92, static_cast<unsigned short>(s + 93),
                    static_cast<unsigned short>(0xFF00 + s)};
  return p;
}

}  // namespace conflink::testing
