#include "tools/decode_input.h"

#include <cerrno>
#include <cstdlib>
#include <sstream>

namespace conflink::decode_input {
namespace {

int digit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace

bool parseHex(const std::string& text, std::string& out, std::string& error) {
  out.clear();
  int high = -1;
  for (size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (c == ' ' || c == ':' || c == '\t') continue;
    if (c == '0' && i + 1 < text.size() && (text[i + 1] == 'x' || text[i + 1] == 'X') && high < 0) {
      ++i;
      continue;
    }
    const int d = digit(c);
    if (d < 0) {
      error = std::string("'") + c + "' at position " + std::to_string(i) + " is not a hex digit";
      return false;
    }
    if (high < 0) {
      high = d;
    } else {
      out += static_cast<char>(high * 16 + d);
      high = -1;
    }
  }
  if (high >= 0) {
    error = "odd number of hex digits";
    return false;
  }
  return true;
}

bool parseType(const std::string& text, int& type, std::string& error) {
  errno = 0;
  char* end = nullptr;
  const long long v = std::strtoll(text.c_str(), &end, 0);
  if (text.empty() || *end != '\0' || errno != 0 || v < -2147483648LL || v > 0xffffffffLL) {
    error = "'" + text + "' is not a message type";
    return false;
  }
  type = static_cast<int>(static_cast<unsigned int>(v & 0xffffffffLL));
  return true;
}

Line parseLine(const std::string& line, int& type, std::string& buffer, std::string& error) {
  std::istringstream fields(line);
  std::string typeText;
  if (!(fields >> typeText) || typeText[0] == '#') return Line::kSkip;
  std::string rest;
  std::getline(fields, rest);
  return parseType(typeText, type, error) && parseHex(rest, buffer, error) ? Line::kBuffer
                                                                           : Line::kBad;
}

}  // namespace conflink::decode_input
