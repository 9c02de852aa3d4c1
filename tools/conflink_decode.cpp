// conflink_decode: shows what a buffer of the call-control or web front end's link says, as the
// receiving messenger would decode it. For reading captured traffic, log lines and the bytes a
// failing test printed.
//
//   conflink_decode [--link cc|cgi] TYPE HEX...   one buffer: payload, then the 4-byte link mark
//   conflink_decode [--link cc|cgi] -             lines of "TYPE HEX..." from standard input
//   conflink_decode [--link cc|cgi] --list        the messages the link's messenger receives
//
// HEX may be split over several arguments and may contain spaces, colons and a leading 0x; TYPE is
// decimal or 0x-prefixed hex. Exit status: 0 when every buffer was read, 1 when some input was not
// a type and hex bytes, 2 on a usage error.
#include <cstdio>
#include <iostream>
#include <string>
#include <vector>

#include <conflink/cc/cc_catalogue.h>
#include <conflink/cgi/cgi_catalogue.h>
#include "tools/decode_input.h"

namespace {

const char kUsage[] =
    "usage: conflink_decode [--link cc|cgi] TYPE HEX...\n"
    "       conflink_decode [--link cc|cgi] -        (lines of TYPE HEX... on standard input)\n"
    "       conflink_decode [--link cc|cgi] --list\n"
    "HEX is the buffer as the queue carries it: the payload, then the 4-byte link mark.\n";

using Describe = std::string (*)(int, const char*, size_t);

bool refused(const std::string& where, const std::string& error) {
  std::cerr << "conflink_decode: " << where << error << '\n';
  return false;
}

bool shown(Describe describe, int type, const std::string& buffer) {
  std::cout << describe(type, buffer.data(), buffer.size()) << '\n';
  return true;
}

// Describes one "TYPE HEX..." input; false (with the reason on stderr) when it is not one.
bool decodeOne(Describe describe, const std::string& typeText, const std::string& hexText,
               const std::string& where) {
  int type = 0;
  std::string buffer;
  std::string error;
  if (!conflink::decode_input::parseType(typeText, type, error) ||
      !conflink::decode_input::parseHex(hexText, buffer, error)) {
    return refused(where, error);
  }
  return shown(describe, type, buffer);
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> args(argv + 1, argv + argc);
  bool cgi = false;
  for (size_t i = 0; i < args.size(); ++i) {
    if (args[i] != "--link") continue;
    if (i + 1 == args.size() || (args[i + 1] != "cc" && args[i + 1] != "cgi")) {
      std::cerr << "conflink_decode: --link takes cc or cgi\n" << kUsage;
      return 2;
    }
    cgi = args[i + 1] == "cgi";
    args.erase(args.begin() + static_cast<long>(i), args.begin() + static_cast<long>(i) + 2);
    break;
  }
  if (args.empty() || args[0] == "--help" || args[0] == "-h") {
    std::cout << kUsage;
    return args.empty() ? 2 : 0;
  }
  const Describe describe =
      cgi ? &conflink::msg::DescribeCgiLinkMessage : &conflink::msg::DescribeCcLinkMessage;

  if (args[0] == "--list") {
    for (const conflink::MessageName& m :
         cgi ? conflink::msg::CgiLinkMessages() : conflink::msg::CcLinkMessages()) {
      if (m.handled) {
        std::printf("%5d  %s\n", m.type, m.name);
      } else {
        std::printf("%5d  %-28s (accepted and dropped without a handler)\n", m.type, m.name);
      }
    }
    return 0;
  }

  if (args[0] == "-") {
    bool allRead = true;
    std::string line;
    for (int number = 1; std::getline(std::cin, line); ++number) {
      int type = 0;
      std::string buffer;
      std::string error;
      switch (conflink::decode_input::parseLine(line, type, buffer, error)) {
        case conflink::decode_input::Line::kSkip:
          break;
        case conflink::decode_input::Line::kBuffer:
          shown(describe, type, buffer);
          break;
        case conflink::decode_input::Line::kBad:
          allRead = refused("line " + std::to_string(number) + ": ", error);
          break;
      }
    }
    return allRead ? 0 : 1;
  }

  std::string hex;
  for (size_t i = 1; i < args.size(); ++i) hex += args[i];
  return decodeOne(describe, args[0], hex, "") ? 0 : 1;
}
