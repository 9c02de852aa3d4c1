// Both links' descriptions of any type and buffer, as logs and conflink_decode show them.
#include <conflink/cc/cc_catalogue.h>
#include <conflink/cgi/cgi_catalogue.h>
#include "fuzz/fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  conflink::fuzz::Received in;
  if (!conflink::fuzz::splitReceived(data, size, in)) return 0;
  const size_t length = static_cast<size_t>(in.length);
  using Describe = std::string (*)(int, const char*, size_t);
  for (Describe describe : {static_cast<Describe>(&conflink::msg::DescribeCcLinkMessage),
                            static_cast<Describe>(&conflink::msg::DescribeCgiLinkMessage)}) {
    const std::string text = describe(in.type, in.data, length);
    if (text.empty() || text.find('\n') != std::string::npos) {
      conflink::fuzz::fail("a description is one non-empty line", text);
    }
  }
  return 0;
}
