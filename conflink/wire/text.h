// A readable rendering of any value that travels: the same field lists that encode and decode a
// record also name its fields here, so a log line or a decoded message costs no description of
// its own and cannot drift from the wire form.
//
//   SipUri{text1="sip:", text2="alice", text3="example.com", text4="5060"}
//   [1, 2, 3]      a list
//   "a\"b\n"       a string, quoted, with control bytes escaped
//   null           an absent optional record
//
// Numbers print in decimal, enumerations as their numeric value (the wire carries no names), and
// opaque blocks as hex. A record whose wire form is not its field list gets a Text<T>
// specialisation of its own beside its codec.
#pragma once

#include <cstdint>
#include <cstdio>
#include <list>
#include <optional>
#include <string>
#include <type_traits>

#include <conflink/wire/codec.h>

namespace conflink::wire {

template <class T, class Enable = void>
struct Text;  // no definition: a type without a rendering does not compile

// Appends the rendering of `v` to `out`.
template <class T>
void render(std::string& out, const T& v) {
  Text<T>::render(out, v);
}

// The rendering of `v`.
template <class T>
std::string toText(const T& v) {
  std::string out;
  render(out, v);
  return out;
}

// Appends `size` bytes as lower-case hex pairs with no separator.
inline void renderHex(std::string& out, const void* data, size_t size) {
  static const char kDigits[] = "0123456789abcdef";
  const auto* p = static_cast<const unsigned char*>(data);
  for (size_t i = 0; i < size; ++i) {
    out += kDigits[p[i] >> 4];
    out += kDigits[p[i] & 15];
  }
}

template <class T>
struct Text<T, std::enable_if_t<std::is_integral_v<T> && !std::is_same_v<T, bool>>> {
  static void render(std::string& out, T v) { out += std::to_string(v); }
};

template <>
struct Text<bool> {
  static void render(std::string& out, bool v) { out += v ? "true" : "false"; }
};

// Seventeen significant digits: enough that the text reads back as the same double.
template <>
struct Text<double> {
  static void render(std::string& out, double v) {
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "%.17g", v);
    out += buffer;
  }
};

template <class E>
struct Text<E, std::enable_if_t<std::is_enum_v<E>>> {
  static void render(std::string& out, E v) {
    out += std::to_string(static_cast<std::underlying_type_t<E>>(v));
  }
};

// Quoted. Quote, backslash and control bytes are escaped so that one value stays on one line;
// bytes from 0x80 up pass as they are, so UTF-8 names stay readable.
template <>
struct Text<std::string> {
  static void render(std::string& out, const std::string& v) {
    out += '"';
    for (const char c : v) {
      const auto u = static_cast<unsigned char>(c);
      if (c == '"' || c == '\\') {
        out += '\\';
        out += c;
      } else if (c == '\n') {
        out += "\\n";
      } else if (c == '\r') {
        out += "\\r";
      } else if (c == '\t') {
        out += "\\t";
      } else if (u < 0x20 || u == 0x7f) {
        out += "\\x";
        renderHex(out, &u, 1);
      } else {
        out += c;
      }
    }
    out += '"';
  }
};

template <>
struct Text<RawBytes> {
  static void render(std::string& out, const RawBytes& v) {
    out += "0x";
    renderHex(out, v.data, v.size);
  }
};

template <class T>
struct Text<std::list<T>> {
  static void render(std::string& out, const std::list<T>& v) {
    out += '[';
    const char* separator = "";
    for (const T& e : v) {
      out += separator;
      Text<T>::render(out, e);
      separator = ", ";
    }
    out += ']';
  }
};

template <class T>
struct Text<std::optional<T>> {
  static void render(std::string& out, const std::optional<T>& v) {
    if (v) {
      Text<T>::render(out, *v);
    } else {
      out += "null";
    }
  }
};

template <class T>
struct Text<const T*, std::enable_if_t<!std::is_void_v<T>>> {
  static void render(std::string& out, const T* v) {
    if (v != nullptr) {
      Text<T>::render(out, *v);
    } else {
      out += "null";
    }
  }
};

// Writes a bracketed, comma-separated list: a record's fields, "Name{field=value, ...}", or a
// message's arguments, "(a, b)". The opening is written on construction, each call adds one
// element (a named field has the shape of a field list's visitor), and the closing bracket is
// written when the list goes out of scope.
class TextList {
 public:
  TextList(std::string& out, const char* name, char opening, char closing)
      : out_(out), closing_(closing) {
    out_ += name;
    out_ += opening;
  }
  static TextList record(std::string& out, const char* name) { return {out, name, '{', '}'}; }
  static TextList arguments(std::string& out) { return {out, "", '(', ')'}; }
  ~TextList() { out_ += closing_; }
  TextList(const TextList&) = delete;
  TextList& operator=(const TextList&) = delete;

  template <class T>
  TextList& operator()(const T& v) {
    out_ += separator_;
    separator_ = ", ";
    Text<T>::render(out_, v);
    return *this;
  }
  template <class T>
  TextList& operator()(const char* field, const T& v) {
    out_ += separator_;
    separator_ = ", ";
    out_ += field;
    out_ += '=';
    Text<T>::render(out_, v);
    return *this;
  }

 private:
  std::string& out_;
  char closing_;
  const char* separator_ = "";
};

// A record with a field list.
template <class T>
struct Text<T, std::enable_if_t<detail::HasFields<T>::value>> {
  static void render(std::string& out, const T& v) {
    auto text = TextList::record(out, Fields<T>::kName);
    Fields<T>::visit(v, text);
  }
};

}  // namespace conflink::wire
