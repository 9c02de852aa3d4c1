// The ConferenceParams decoder on any bytes: on failure both the input and the target stay as
// they were and a reason is given; on success it consumes at least the minimum, leaves exactly
// what follows the record, renders, and reads back equal from its own encoding.
#include <string>

#include <conflink/records/record_equality.h>
#include <conflink/records/records.h>
#include <conflink/wire/text.h>
#include "fuzz/fuzz_support.h"

using conflink::fuzz::fail;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string input(reinterpret_cast<const char*>(data), size);
  std::string rest = input;
  ConferenceParams decoded{};
  std::string error;
  if (!conflink::DecodeConferenceParams(rest, decoded, &error)) {
    if (rest != input) fail("a failed decode leaves the input unchanged", error);
    if (!(decoded == ConferenceParams{}))
      fail("a failed decode leaves the target unchanged", error);
    if (error.empty()) fail("a failed decode says why", "");
  } else {
    const size_t used = input.size() - rest.size();
    if (used < conflink::ConferenceParamsMinSize() ||
        input.compare(used, std::string::npos, rest) != 0) {
      fail("a decode removes exactly the record's bytes", std::to_string(used));
    }
    const std::string text = conflink::wire::toText(decoded);
    std::string again;
    again << decoded;
    ConferenceParams back{};
    if (!conflink::DecodeConferenceParams(again, back, &error) || !again.empty() ||
        !(back == decoded)) {
      fail("a decoded conference reads back equal from its own encoding", text);
    }
  }
  // The operator reads the same as the function.
  std::string viaOperator = input;
  ConferenceParams other{};
  viaOperator >> other;
  if (viaOperator != rest || !(other == decoded))
    fail("operator>> decodes as the function does", "");
  return 0;
}
