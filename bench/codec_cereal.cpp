// cereal's portable binary archive on ConferenceParams: serialise functions written for our
// record types, so both directions work on the records themselves, with no mirror. The archive
// writes little-endian and swaps on a big-endian host, as our wire is fixed big-endian. Encode
// writes through a stream into the caller's ready buffer; decode reads a stream over the bytes
// into a new record and moves it into the target, as our decode does (a failed load throws
// part-way, and the target must stay as it was). The archive trusts the lengths it reads: it is
// fed only bytes this program encoded.
#include <cereal/archives/portable_binary.hpp>
#include <cereal/types/list.hpp>
#include <cereal/types/string.hpp>
#include <istream>
#include <ostream>
#include <streambuf>

#include "codec_peers.h"

template <class A>
void serialize(A& a, SipUri& r) {
  a(r.text1, r.text2, r.text3, r.text4);
}
template <class A>
void serialize(A& a, ConfGeneralParams& r) {
  a(r.text1, r.text2, r.value1, r.text3, r.text4, r.value2, r.wide1, r.wide2, r.value3, r.value4,
    r.value5, r.value6, r.value7, r.value8);
}
template <class A>
void serialize(A& a, NewParticipantParams& r) {
  a(r.value1, r.short1, r.value2, r.value3, r.value4, r.value5, r.value6, r.value7, r.value8,
    r.value9, r.value10);
}
template <class A>
void serialize(A& a, ConferenceUser& r) {
  a(r.id, r.text1, r.text2, r.text3, r.text4, r.text5, r.text6, r.short1, r.short2, r.value1,
    r.value2, r.value3, r.value4, r.value5, r.value6, r.value7, r.value8, r.value9, r.value10,
    r.value11);
}
template <class A>
void serialize(A& a, SipRegistrationParams& r) {
  a(r.text1, r.text2, r.text3, r.text4, r.text5, r.value1, r.text6, r.text7, r.text8, r.text9,
    r.text10, r.text11, r.value2, r.value3, r.value4);
}
// The address travels only when value3 is 0, as on our wire.
template <class A>
void save(A& a, const RecordingParams& r) {
  a(r.value1, r.texts, r.value2, r.value3, r.value4, r.value5);
  if (r.value3 == 0) a(r.uri);
}
template <class A>
void load(A& a, RecordingParams& r) {
  a(r.value1, r.texts, r.value2, r.value3, r.value4, r.value5);
  if (r.value3 == 0) a(r.uri);
}
template <class A>
void serialize(A& a, RuleParams& r) {
  a(r.value1, r.text1, r.text2);
}
template <class A>
void serialize(A& a, ScheduleParams& r) {
  a(r.rules, r.value1, r.value2, r.short1, r.short2, r.text1);
}
template <class A>
void serialize(A& a, ReservationInfo& r) {
  a(r.wide1, r.short1, r.value1, r.value2);
}
template <class A>
void serialize(A& a, EncodingParams& r) {
  a(r.codecs, r.value1);
}
template <class A>
void serialize(A& a, AutoGainCtrlParams& r) {
  a(r.value1, r.short1, r.short2);
}
template <class A>
void serialize(A& a, ConferenceParams& r) {
  a(r.general, r.newParticipant, r.participants, r.sip, r.recording, r.schedule,
    r.reservations.items, r.encoding, r.encodingExtras, r.sysMessage.value1, r.autoGainCtrl);
}

namespace conflink::bench {
namespace {

// Appends what the archive writes to a string.
class StringSink : public std::streambuf {
 public:
  explicit StringSink(std::string& out) : out_(out) {}

 protected:
  int_type overflow(int_type c) override {
    if (!traits_type::eq_int_type(c, traits_type::eof()))
      out_.push_back(traits_type::to_char_type(c));
    return traits_type::not_eof(c);
  }
  std::streamsize xsputn(const char* s, std::streamsize n) override {
    out_.append(s, static_cast<std::size_t>(n));
    return n;
  }

 private:
  std::string& out_;
};

// Reads bytes in place.
class BytesSource : public std::streambuf {
 public:
  explicit BytesSource(std::string_view in) {
    char* begin = const_cast<char*>(in.data());
    setg(begin, begin, begin + in.size());
  }
};

std::string_view encode(const ConferenceParams& p, std::string& scratch) {
  scratch.clear();
  StringSink sink(scratch);
  std::ostream stream(&sink);
  {
    cereal::PortableBinaryOutputArchive archive(stream);
    archive(p);
  }
  return scratch;
}

bool decode(std::string_view in, ConferenceParams& out) {
  BytesSource source(in);
  std::istream stream(&source);
  ConferenceParams decoded;
  decoded.recording.uri = out.recording.uri;  // kept when the record carries none
  try {
    cereal::PortableBinaryInputArchive archive(stream);
    archive(decoded);
  } catch (const std::exception&) {
    return false;
  }
  if (stream.peek() != std::istream::traits_type::eof()) return false;
  out = std::move(decoded);
  return true;
}

}  // namespace

CodecPeer cerealPeer() {
  return {"Cereal",
          "PortableBinaryOutputArchive over a stream appending to a ready buffer (the archive's "
          "one-byte endianness mark included)",
          "PortableBinaryInputArchive over a stream on the bytes, into a new record moved into "
          "the target",
          encode, decode};
}

}  // namespace conflink::bench
