// conflink_decode's input on any text: every line goes through the tool's own parsing, and what
// parses is described on both links. A line refused says why.
#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

#include <conflink/cc/cc_catalogue.h>
#include <conflink/cgi/cgi_catalogue.h>
#include "fuzz/fuzz_support.h"
#include "tools/decode_input.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  namespace input = conflink::decode_input;
  std::istringstream lines(std::string(reinterpret_cast<const char*>(data), size));
  std::string line;
  while (std::getline(lines, line)) {
    int type = 0;
    std::string buffer;
    std::string error;
    switch (input::parseLine(line, type, buffer, error)) {
      case input::Line::kSkip:
        break;
      case input::Line::kBuffer: {
        // In a block of its own size, so that a read past the end is caught.
        const std::vector<char> exact(buffer.begin(), buffer.end());
        conflink::msg::DescribeCcLinkMessage(type, exact.data(), exact.size());
        conflink::msg::DescribeCgiLinkMessage(type, exact.data(), exact.size());
        break;
      }
      case input::Line::kBad:
        if (error.empty()) conflink::fuzz::fail("a refused line says why", line);
        break;
    }
  }
  return 0;
}
