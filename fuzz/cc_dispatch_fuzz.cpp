// The call-control messenger's DispatchMessage on any type and buffer.
#include <conflink/cc/cc_catalogue.h>
#include "fuzz/dispatch_fuzz.h"
#include "tests/support/cc_recorder.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  conflink::fuzz::dispatchAndCheck<conflink::testing::CcRecorder>(
      data, size, &conflink::msg::DescribeCcLinkMessage);
  return 0;
}
