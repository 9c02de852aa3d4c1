// The byte-level primitives of every message: big-endian, packed, no tags.
//
// Encoding is two passes over the same description of the fields: a Sizer adds up the exact
// length, the buffer grows once, and a Writer stores into it without further checks. Decoding is
// one pass of a Reader over (pointer, length) with a cursor. Every read checks the bytes left; the
// first failed read latches the reader, after which every read yields zero and the cursor stays,
// so a record can be decoded in a straight line and checked once at the end.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

namespace conflink::wire {

inline uint16_t toBig16(uint16_t v) {
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
  return __builtin_bswap16(v);
#else
  return v;
#endif
}
inline uint32_t toBig32(uint32_t v) {
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
  return __builtin_bswap32(v);
#else
  return v;
#endif
}
inline uint64_t toBig64(uint64_t v) {
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
  return __builtin_bswap64(v);
#else
  return v;
#endif
}

// Counts the bytes that a Writer given the same calls would store.
class Sizer {
 public:
  void u64(uint64_t) { n_ += 8; }
  void u32(uint32_t) { n_ += 4; }
  void u16(uint16_t) { n_ += 2; }
  void i32(int32_t) { n_ += 4; }
  void bool32(bool) { n_ += 4; }
  void f64(double) { n_ += 8; }
  void str(const std::string& s) { n_ += 4 + s.size(); }
  void bytes(const void*, size_t n) { n_ += n; }
  size_t size() const { return n_; }

 private:
  size_t n_ = 0;
};

// Stores primitives at a position whose room a Sizer has already measured.
class Writer {
 public:
  explicit Writer(char* at) : p_(at) {}
  void u64(uint64_t v) { put(toBig64(v)); }
  void u32(uint32_t v) { put(toBig32(v)); }
  void u16(uint16_t v) { put(toBig16(v)); }
  void i32(int32_t v) { u32(static_cast<uint32_t>(v)); }
  void bool32(bool v) { u32(v ? 1u : 0u); }
  void f64(double v) {
    uint64_t bits;
    std::memcpy(&bits, &v, sizeof bits);
    u64(bits);
  }
  void str(const std::string& s) {
    u32(static_cast<uint32_t>(s.size()));
    bytes(s.data(), s.size());
  }
  void bytes(const void* data, size_t n) {
    if (n <= 32) {
      copyShort(static_cast<const char*>(data), n);
    } else {
      std::memcpy(p_, data, n);
    }
    p_ += n;
  }
  char* position() const { return p_; }

 private:
  template <class T>
  void put(T v) {
    std::memcpy(p_, &v, sizeof v);
    p_ += sizeof v;
  }
  // Most strings are short: copying them inline, as two overlapping fixed-size moves that stay
  // within the n bytes, saves a library call per field.
  void copyShort(const char* q, size_t n) {
    if (n >= 16) {
      std::memcpy(p_, q, 16);
      std::memcpy(p_ + n - 16, q + n - 16, 16);
    } else if (n >= 8) {
      std::memcpy(p_, q, 8);
      std::memcpy(p_ + n - 8, q + n - 8, 8);
    } else if (n >= 4) {
      std::memcpy(p_, q, 4);
      std::memcpy(p_ + n - 4, q + n - 4, 4);
    } else {
      for (size_t i = 0; i < n; ++i) p_[i] = q[i];
    }
  }
  char* p_;
};

// Walks a received payload. Never reads outside [data, data + size).
class Reader {
 public:
  Reader(const char* data, size_t size) : begin_(data), p_(data), end_(data + size) {}

  uint64_t u64() { return toBig64(get<uint64_t>("u64")); }
  uint32_t u32() { return toBig32(get<uint32_t>("u32")); }
  uint16_t u16() { return toBig16(get<uint16_t>("u16")); }
  int32_t i32() { return static_cast<int32_t>(toBig32(get<uint32_t>("i32"))); }
  // Any non-zero word is true, as a C++ receiver converting the word would read it.
  bool bool32() { return toBig32(get<uint32_t>("bool32")) != 0; }
  double f64() {
    uint64_t bits = u64();
    double v;
    std::memcpy(&v, &bits, sizeof v);
    return v;
  }
  // Reads a str into `out`. The claimed length is checked against the bytes left before any
  // allocation, so a hostile length costs nothing.
  void str(std::string& out) {
    uint32_t n = u32();
    const char* q = take(n, "str bytes");
    if (q != nullptr) {
      out.assign(q, n);
    } else {
      out.clear();
    }
  }
  // The next `n` bytes, or null (and the reader failed) when fewer remain.
  const char* bytes(size_t n) { return take(n, "raw bytes"); }
  // Reads a list count and checks that `count` elements of at least `minElementBytes` each can
  // still be present. On failure the count is 0, so a caller's loop allocates nothing.
  uint32_t count(size_t minElementBytes) {
    const char* at = p_;
    uint32_t n = u32();
    if (ok() && minElementBytes != 0 && n > remaining() / minElementBytes) {
      fail(at, "list count", static_cast<uint64_t>(n) * minElementBytes);
      return 0;
    }
    return n;
  }

  bool ok() const { return what_ == nullptr; }
  size_t offset() const { return static_cast<size_t>(p_ - begin_); }
  size_t remaining() const { return static_cast<size_t>(end_ - p_); }

  // Records the innermost record field being read when the reader failed; an outer record's
  // later note does not replace it.
  void noteField(const char* record, const char* field) {
    if (!ok() && record_ == nullptr) {
      record_ = record;
      field_ = field;
    }
  }
  // Fails the reader from outside (a decoder's own consistency rule). Only the first failure
  // is kept.
  void fail(const char* what) { fail(p_, what, 0); }

  // One line describing the first failure, e.g.
  // "str bytes at offset 12: 4000 bytes claimed, 9 left (SipUri.text2)"; "" while ok.
  std::string describe() const;

 private:
  const char* take(size_t n, const char* what) {
    if (!ok()) return nullptr;
    if (n > static_cast<size_t>(end_ - p_)) {
      fail(p_, what, n);
      return nullptr;
    }
    const char* q = p_;
    p_ += n;
    return q;
  }
  template <class T>
  T get(const char* what) {
    T v{};
    const char* q = take(sizeof v, what);
    if (q != nullptr) std::memcpy(&v, q, sizeof v);
    return v;
  }
  // `wanted` is 64-bit: a claimed count times the element size overflows a 32-bit size_t.
  void fail(const char* at, const char* what, uint64_t wanted) {
    if (!ok()) return;
    what_ = what;
    failOffset_ = static_cast<size_t>(at - begin_);
    wanted_ = wanted;
    left_ = static_cast<size_t>(end_ - at);
    p_ = end_;  // nothing further is read
  }

  const char* begin_;
  const char* p_;
  const char* end_;
  const char* what_ = nullptr;
  const char* record_ = nullptr;
  const char* field_ = nullptr;
  size_t failOffset_ = 0;
  uint64_t wanted_ = 0;
  size_t left_ = 0;
};

}  // namespace conflink::wire
