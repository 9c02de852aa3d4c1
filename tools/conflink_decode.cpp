// conflink_decode: shows what a buffer of the call-control or web front end's link says, as the
// receiving messenger would decode it. For reading captured traffic, log lines and the bytes a
// failing test printed.
//
//   conflink_decode [--link cc|cgi] TYPE HEX...   one buffer: payload, then the 4-byte link mark
//   conflink_decode [--link cc|cgi] -             lines of "TYPE HEX..." from standard input
//   conflink_decode [--link cc|cgi] --list        the messages the link's messenger receives
//
// HEX may be split over several arguments and may contain spaces, colons and a leading 0x; TYPE is
// decimal or 0x-prefixed hex. Exit status: 0 when every buffer is one the messenger takes (a
// message, a queue event or a type it drops on purpose), 1 when some input was not a type and hex
// bytes or some buffer would be refused or ignored (malformed, too short for the mark, not a type
// of the link, bytes after the last field), 2 on a usage error.
#include <cstdio>
#include <iostream>
#include <string>
#include <vector>

#include <conflink/cc/cc_catalogue.h>
#include <conflink/cgi/cgi_catalogue.h>
#include "tools/decode_input.h"

namespace {

constexpr int kExitRefused = 1;
constexpr int kExitUsage = 2;

const char kUsage[] =
    "usage: conflink_decode [--link cc|cgi] TYPE HEX...\n"
    "       conflink_decode [--link cc|cgi] -        (lines of TYPE HEX... on standard input)\n"
    "       conflink_decode [--link cc|cgi] --list\n"
    "       conflink_decode --help\n";

const char kHelp[] =
    "\n"
    "Shows a buffer of the call-control link (cc, the default) or the web front end's link (cgi)\n"
    "as the receiving messenger would decode it: the message's name and its values, or why the\n"
    "messenger would refuse or ignore it.\n"
    "\n"
    "  TYPE   the message type, decimal or 0x-prefixed hex (0x80000000 and 0x80000001 are the\n"
    "         queue events)\n"
    "  HEX    the buffer as the queue carries it: the payload, then the 4-byte link mark; it may\n"
    "         be split over several arguments and contain spaces, colons and 0x prefixes\n"
    "  -      reads lines of TYPE HEX... from standard input ('#' starts a comment line)\n"
    "  --list the link's messages: number, name, sender and receiver, payload types and\n"
    "         handler, as in the protocol reference\n"
    "\n"
    "Exit status: 0 every buffer is one the messenger takes (a message, a queue event or a type\n"
    "it drops on purpose); 1 some input is not a type and hex bytes, or some buffer would be\n"
    "refused or ignored (malformed, too short for the link mark, not a type of the link, bytes\n"
    "after the last field), with the reason on standard error; 2 bad usage.\n"
    "\n"
    "  $ conflink_decode --link cgi 3 0000000000000001 00000002 3432 0000000000000007 00000002\n"
    "  DialOut(1, ConfIDString{id=\"42\"}, 7) [type 3, mark 2]\n";

int usage(const std::string& problem) {
  std::cerr << "conflink_decode: " << problem << '\n' << kUsage;
  return kExitUsage;
}

// Why a verdict makes the exit status 1; null when the messenger takes the buffer.
const char* refusal(conflink::MessageVerdict verdict) {
  switch (verdict) {
    case conflink::MessageVerdict::kMessage:
    case conflink::MessageVerdict::kQueueEvent:
    case conflink::MessageVerdict::kDropped:
      return nullptr;
    case conflink::MessageVerdict::kTrailingBytes:
      return "bytes follow the last field";
    case conflink::MessageVerdict::kUnknown:
      return "not a message of this link";
    case conflink::MessageVerdict::kTooShort:
      return "too short for the link mark";
    case conflink::MessageVerdict::kMalformed:
      return "malformed";
  }
  return "unrecognised";
}

bool refused(const std::string& where, const std::string& error) {
  std::cerr << "conflink_decode: " << where << error << '\n';
  return false;
}

using Describe = std::string (*)(int, const char*, size_t, conflink::MessageVerdict&);

// Describes one buffer; false (with the reason on stderr) when the messenger would not take it.
bool shown(Describe describe, int type, const std::string& buffer, const std::string& where) {
  conflink::MessageVerdict verdict{};
  std::cout << describe(type, buffer.data(), buffer.size(), verdict) << '\n';
  if (const char* why = refusal(verdict)) {
    std::cout.flush();
    std::cerr << "conflink_decode: " << where << "type " << type << ": " << why << '\n';
    return false;
  }
  return true;
}

// Describes one "TYPE HEX..." input; false (with the reason on stderr) when it is not one or the
// messenger would not take it.
bool decodeOne(Describe describe, const std::string& typeText, const std::string& hexText,
               const std::string& where) {
  int type = 0;
  std::string buffer;
  std::string error;
  if (!conflink::decode_input::parseType(typeText, type, error) ||
      !conflink::decode_input::parseHex(hexText, buffer, error)) {
    return refused(where, error);
  }
  return shown(describe, type, buffer, where);
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> args(argv + 1, argv + argc);
  bool cgi = false;
  for (size_t i = 0; i < args.size(); ++i) {
    if (args[i] != "--link") continue;
    if (i + 1 == args.size() || (args[i + 1] != "cc" && args[i + 1] != "cgi")) {
      return usage("--link takes cc or cgi");
    }
    cgi = args[i + 1] == "cgi";
    args.erase(args.begin() + static_cast<long>(i), args.begin() + static_cast<long>(i) + 2);
    break;
  }
  for (const std::string& a : args) {
    if (a == "--help" || a == "-h") {
      std::cout << kUsage << kHelp;
      return 0;
    }
  }
  if (args.empty()) return usage("give a type and a buffer, - or --list");
  if (args[0].size() > 1 && args[0][0] == '-' && args[0] != "--list" &&
      (args[0][1] < '0' || args[0][1] > '9')) {
    return usage("unknown option '" + args[0] + "'");
  }
  const Describe describe = cgi ? Describe{&conflink::msg::DescribeCgiLinkMessage}
                                : Describe{&conflink::msg::DescribeCcLinkMessage};

  if (args[0] == "--list" && args.size() == 1) {
    // The same entries as the protocol reference: type, name, route, payload, handler.
    for (const conflink::MessageName& m :
         cgi ? conflink::msg::CgiLinkMessages() : conflink::msg::CcLinkMessages()) {
      const std::string route = *m.from == '\0' ? "-" : std::string(m.from) + " -> " + m.to;
      std::printf("%5d  %-28s %-20s (%s)  %s\n", m.type, m.name, route.c_str(), m.payload.c_str(),
                  m.handler.empty() ? "accepted and dropped, nothing sends it"
                  : m.handled       ? m.handler.c_str()
                                    : "accepted and dropped without a handler");
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
          if (!shown(describe, type, buffer, "line " + std::to_string(number) + ": ")) {
            allRead = false;
          }
          break;
        case conflink::decode_input::Line::kBad:
          allRead = refused("line " + std::to_string(number) + ": ", error);
          break;
      }
    }
    return allRead ? 0 : kExitRefused;
  }
  if (args[0] == "--list") return usage("--list takes no operands");

  std::string hex;
  for (size_t i = 1; i < args.size(); ++i) hex += args[i];
  return decodeOne(describe, args[0], hex, "") ? 0 : kExitRefused;
}
