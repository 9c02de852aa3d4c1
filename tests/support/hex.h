// Bytes as spaced hexadecimal ("00 00 00 02"), so that a failed comparison of wire bytes shows
// where the two differ.
#pragma once

#include <string>

namespace conflink::testing {

inline std::string hex(const std::string& bytes) {
  static const char* digits = "0123456789abcdef";
  std::string out;
  for (unsigned char c : bytes) {
    if (!out.empty()) out += ' ';
    out += digits[c >> 4];
    out += digits[c & 15];
  }
  return out;
}

}  // namespace conflink::testing
