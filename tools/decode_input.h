// The input of conflink_decode: a message type and the buffer's bytes in hex, given as arguments
// or as lines of standard input. Kept apart from the tool's main so that anything that feeds it
// text (the tool itself, the input fuzzer) goes through the same parsing.
#pragma once

#include <string>

namespace conflink::decode_input {

// Hex pairs, ignoring spaces, tabs, colons and 0x prefixes; false with a reason on anything else.
bool parseHex(const std::string& text, std::string& out, std::string& error);

// A decimal or 0x-prefixed type number. Queue events are written as 0x80000000 and 0x80000001,
// so values up to 0xffffffff are taken as their 32-bit pattern.
bool parseType(const std::string& text, int& type, std::string& error);

// What one line of standard input holds.
enum class Line {
  kSkip,    // blank, or a comment starting with '#'
  kBuffer,  // a type and a buffer, parsed into `type` and `buffer`
  kBad,     // not a type and hex bytes; `error` says why
};
// Parses one line of the form "TYPE HEX...".
Line parseLine(const std::string& line, int& type, std::string& buffer, std::string& error);

}  // namespace conflink::decode_input
