// The records whose wire form is not simply their field list: the recording settings with their
// conditional address, the reservation image inside a Reservations list, the raw bytes of a load
// segment and the optional call description with its presence word. Each is a small, named codec
// with the same interface as the generic one (write to a Sizer or Writer, read, minSize).
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <list>
#include <optional>
#include <string>

#include <conflink/wire/codec.h>
#include <conflink/records/record_fields.h>

namespace conflink::wire {

namespace detail {
// Reads one field of an irregular record; if the read fails there, the failure names the field.
template <class T>
void readField(Reader& r, const char* record, const char* field, T& v) {
  if (!r.ok()) return;
  Codec<T>::read(r, v);
  r.noteField(record, field);
}
}  // namespace detail

// value1, texts, value2..value5, then the four strings of `uri` only when value3 is 0. The
// reader applies the same rule to the value3 it has just read and otherwise leaves `uri` as it
// was.
template <>
struct Codec<RecordingParams> {
  static constexpr const char* kName = "RecordingParams";
  template <class S>
  static void write(S& s, const RecordingParams& v) {
    s.i32(v.value1);
    Codec<std::list<std::string>>::write(s, v.texts);
    s.i32(v.value2);
    s.i32(v.value3);
    s.i32(v.value4);
    s.i32(v.value5);
    if (v.value3 == 0) Codec<SipUri>::write(s, v.uri);
  }
  static void read(Reader& r, RecordingParams& v) {
    detail::readField(r, kName, "value1", v.value1);
    detail::readField(r, kName, "texts", v.texts);
    detail::readField(r, kName, "value2", v.value2);
    detail::readField(r, kName, "value3", v.value3);
    detail::readField(r, kName, "value4", v.value4);
    detail::readField(r, kName, "value5", v.value5);
    if (r.ok() && v.value3 == 0) detail::readField(r, kName, "uri", v.uri);
  }
  // Without the address: the fewest bytes a RecordingParams can take.
  static size_t minSize() {
    return 5 * Codec<int>::minSize() + Codec<std::list<std::string>>::minSize();
  }
};

// A reservation as its 24-byte image: bytes 0-7 wide1, 8-9 short1, 10-11 padding, 12-15 value1,
// 16-19 value2, 20-23 padding, big-endian. Padding is written as zeros and never looked at.
struct ReservationImage {
  static constexpr size_t kSize = 24;
  template <class S>
  static void write(S& s, const ReservationInfo& v) {
    s.u64(v.wide1);
    s.u16(v.short1);
    s.u16(0);
    s.i32(v.value1);
    s.i32(v.value2);
    s.u32(0);
  }
  // Takes the image as one block, so a short buffer fails before any field is touched.
  static void read(Reader& r, ReservationInfo& v) {
    const char* p = r.bytes(kSize);
    if (p == nullptr) return;
    Reader image(p, kSize);
    v.wide1 = image.u64();
    v.short1 = image.u16();
    image.bytes(2);
    v.value1 = image.i32();
    v.value2 = image.i32();
  }
};

// A u32 count, then each reservation as its 24-byte image (not the 18-byte field form).
template <>
struct Codec<Reservations> {
  template <class S>
  static void write(S& s, const Reservations& v) {
    s.u32(static_cast<uint32_t>(v.items.size()));
    for (const ReservationInfo& e : v.items) ReservationImage::write(s, e);
  }
  static void read(Reader& r, Reservations& v) {
    v.items.clear();
    const uint32_t n = r.count(ReservationImage::kSize);
    for (uint32_t i = 0; i < n && r.ok(); ++i) {
      v.items.emplace_back();
      ReservationImage::read(r, v.items.back());
    }
    if (!r.ok()) v.items.clear();
    r.noteField("Reservations", "items");
  }
  static size_t minSize() { return 4; }
};

// The 8 bytes exactly as they lie in memory, in the host's byte order.
template <>
struct Codec<LoadSegment> {
  template <class S>
  static void write(S& s, const LoadSegment& v) {
    s.bytes(&v, sizeof v);
  }
  static void read(Reader& r, LoadSegment& v) {
    const char* p = r.bytes(sizeof v);
    if (p != nullptr) std::memcpy(&v, p, sizeof v);
  }
  static size_t minSize() { return sizeof(LoadSegment); }
};

// An optional call description: a u32 presence word, then the CallParams when present. A
// sender holds it as a pointer (u32 1 and the record when set, u32 0 alone when null); a
// receiver holds it as an optional and takes any non-zero word as present.
template <>
struct Codec<const CallParams*> {
  template <class S>
  static void write(S& s, const CallParams* v) {
    s.u32(v != nullptr ? 1u : 0u);
    if (v != nullptr) Codec<CallParams>::write(s, *v);
  }
  static size_t minSize() { return 4; }
};

template <>
struct Codec<std::optional<CallParams>> {
  template <class S>
  static void write(S& s, const std::optional<CallParams>& v) {
    Codec<const CallParams*>::write(s, v ? &*v : nullptr);
  }
  static void read(Reader& r, std::optional<CallParams>& v) {
    const uint32_t present = r.u32();
    if (!r.ok() || present == 0) {
      v.reset();
      return;
    }
    v.emplace();
    Codec<CallParams>::read(r, *v);
  }
  static size_t minSize() { return 4; }
};

}  // namespace conflink::wire
