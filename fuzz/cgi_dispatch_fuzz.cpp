// The web front end's messenger's DispatchMessage on any type and buffer.
#include <conflink/cgi/cgi_catalogue.h>
#include "fuzz/dispatch_fuzz.h"
#include "tests/support/cgi_recorder.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  conflink::fuzz::dispatchAndCheck<conflink::testing::CgiRecorder>(
      data, size, &conflink::msg::DescribeCgiLinkMessage);
  return 0;
}
