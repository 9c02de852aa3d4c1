// How each argument type travels: one Codec<T> per type, used by the sending operations, the
// dispatcher and the ConferenceParams operators alike.
//
// A Codec<T> has
//   template <class Sink> static void write(Sink& s, const T& v);  // Sink: Sizer or Writer
//   static void read(Reader& r, T& v);                              // v is replaced, not merged
//   static size_t minSize();                                        // fewest wire bytes of a T
//
// Records describe their fields once, in a Fields<T> specialisation:
//   template <> struct Fields<SipUri> {
//     static constexpr const char* kName = "SipUri";
//     template <class R, class V> static void visit(R& r, V&& v) {
//       v("text1", r.text1); v("text2", r.text2); v("text3", r.text3); v("text4", r.text4);
//     }
//   };
// and the generic record codec below writes, reads and measures them from that one list. The
// few records whose wire form is not their field list specialise Codec<T> directly.
#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <string>
#include <type_traits>

#include <conflink/wire/wire.h>

namespace conflink::wire {

template <class T, class Enable = void>
struct Codec;  // no definition: a type without a wire form does not compile

template <class T>
struct Fields;  // specialised by each regular record

// The bytes of an opaque block whose length travels in a separate, preceding u32 field.
struct RawBytes {
  const void* data;
  size_t size;
};

namespace detail {
template <class T, class = void>
struct HasFields : std::false_type {};
template <class T>
struct HasFields<T, std::void_t<decltype(Fields<T>::kName)>> : std::true_type {};
}  // namespace detail

template <>
struct Codec<unsigned long long> {
  template <class S>
  static void write(S& s, unsigned long long v) {
    s.u64(v);
  }
  static void read(Reader& r, unsigned long long& v) { v = r.u64(); }
  static size_t minSize() { return 8; }
};

template <>
struct Codec<int> {
  template <class S>
  static void write(S& s, int v) {
    s.i32(static_cast<int32_t>(v));
  }
  static void read(Reader& r, int& v) { v = r.i32(); }
  static size_t minSize() { return 4; }
};

template <>
struct Codec<unsigned int> {
  template <class S>
  static void write(S& s, unsigned int v) {
    s.u32(static_cast<uint32_t>(v));
  }
  static void read(Reader& r, unsigned int& v) { v = r.u32(); }
  static size_t minSize() { return 4; }
};

// `unsigned long` is 4 bytes on the wire whatever its width on the host.
template <>
struct Codec<unsigned long> {
  template <class S>
  static void write(S& s, unsigned long v) {
    s.u32(static_cast<uint32_t>(v));
  }
  static void read(Reader& r, unsigned long& v) { v = r.u32(); }
  static size_t minSize() { return 4; }
};

template <>
struct Codec<unsigned short> {
  template <class S>
  static void write(S& s, unsigned short v) {
    s.u16(v);
  }
  static void read(Reader& r, unsigned short& v) { v = r.u16(); }
  static size_t minSize() { return 2; }
};

template <>
struct Codec<bool> {
  template <class S>
  static void write(S& s, bool v) {
    s.bool32(v);
  }
  static void read(Reader& r, bool& v) { v = r.bool32(); }
  static size_t minSize() { return 4; }
};

template <>
struct Codec<double> {
  template <class S>
  static void write(S& s, double v) {
    s.f64(v);
  }
  static void read(Reader& r, double& v) { v = r.f64(); }
  static size_t minSize() { return 8; }
};

// Every enumeration travels as its numeric value in a signed 32-bit word.
template <class E>
struct Codec<E, std::enable_if_t<std::is_enum_v<E>>> {
  static_assert(sizeof(E) == 4, "enumerations on the wire have a 32-bit underlying type");
  template <class S>
  static void write(S& s, E v) {
    s.i32(static_cast<int32_t>(v));
  }
  static void read(Reader& r, E& v) { v = static_cast<E>(r.i32()); }
  static size_t minSize() { return 4; }
};

template <>
struct Codec<std::string> {
  template <class S>
  static void write(S& s, const std::string& v) {
    s.str(v);
  }
  static void read(Reader& r, std::string& v) { r.str(v); }
  static size_t minSize() { return 4; }
};

template <>
struct Codec<RawBytes> {
  template <class S>
  static void write(S& s, const RawBytes& v) {
    s.bytes(v.data, v.size);
  }
  static size_t minSize() { return 0; }
};

// list<T>: a u32 count, then the elements in order. Decoding replaces the list's contents and
// stops at the first failure, so a claimed count never drives allocation past the bytes present.
template <class T>
struct Codec<std::list<T>> {
  template <class S>
  static void write(S& s, const std::list<T>& v) {
    s.u32(static_cast<uint32_t>(v.size()));
    for (const T& e : v) Codec<T>::write(s, e);
  }
  static void read(Reader& r, std::list<T>& v) {
    v.clear();
    uint32_t n = r.count(Codec<T>::minSize());
    for (uint32_t i = 0; i < n && r.ok(); ++i) {
      v.emplace_back();
      Codec<T>::read(r, v.back());
    }
    if (!r.ok()) v.clear();
  }
  static size_t minSize() { return 4; }
};

// A record with a field list.
template <class T>
struct Codec<T, std::enable_if_t<detail::HasFields<T>::value>> {
  template <class S>
  static void write(S& s, const T& v) {
    // Works on a local copy of the sink so that its cursor can live in a register: stores through
    // the cursor could otherwise alias the caller's sink and force a reload after every field.
    S local = s;
    Fields<T>::visit(v, [&local](const char*, const auto& f) {
      Codec<std::decay_t<decltype(f)>>::write(local, f);
    });
    s = local;
  }
  static void read(Reader& r, T& v) {
    Fields<T>::visit(v, [&r](const char* name, auto& f) {
      if (!r.ok()) return;
      Codec<std::decay_t<decltype(f)>>::read(r, f);
      r.noteField(Fields<T>::kName, name);
    });
  }
  static size_t minSize() {
    static const size_t n = [] {
      size_t total = 0;
      T probe;
      Fields<T>::visit(probe, [&total](const char*, const auto& f) {
        total += Codec<std::decay_t<decltype(f)>>::minSize();
      });
      return total;
    }();
    return n;
  }
};

// The exact encoded size of a sequence of values.
template <class... A>
size_t encodedSize(const A&... values) {
  Sizer s;
  (Codec<A>::write(s, values), ...);
  return s.size();
}

// Appends the encodings of `values` to `out`, growing it once by the exact size (plus `spare`
// bytes of capacity for what the caller appends next, such as the trailer).
template <class... A>
void append(std::string& out, size_t spare, const A&... values) {
  const size_t old = out.size();
  const size_t n = encodedSize(values...);
  out.reserve(old + n + spare);
  out.resize(old + n);
  Writer w(&out[0] + old);
  (Codec<A>::write(w, values), ...);
}

// Decodes one value of type T from `r` into `v`.
template <class T>
void read(Reader& r, T& v) {
  Codec<T>::read(r, v);
}

}  // namespace conflink::wire
