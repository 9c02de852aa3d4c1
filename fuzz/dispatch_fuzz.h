// The body of both messengers' dispatch targets: any type and any buffer reach DispatchMessage
// of a messenger whose every handler renders every decoded value to text, and the outcome is
// held against what the link's description of the same buffer says.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz/fuzz_support.h"

namespace conflink::fuzz {

using Describe = std::string (*)(int, const char*, size_t);

// A handler's recorded call is "OnName(values..., mark)"; the description begins "Name(".
inline std::string handlerName(const std::string& call) {
  return call.substr(0, call.find('('));
}

template <class Recorder>
void dispatchAndCheck(const uint8_t* data, size_t size, Describe describe) {
  Received in;
  if (!splitReceived(data, size, in)) return;
  Recorder m;  // never connected: DispatchMessage needs no queue
  const bool known = m.DispatchMessage(&in.type, in.data, in.length);
  const std::string text = describe(in.type, in.data, static_cast<size_t>(in.length));

  if (m.calls.size() + m.errors.size() > 1) {
    fail("one message makes at most one handler call or one error report", text);
  }
  if (!known && !(m.calls.empty() && m.errors.empty())) {
    fail("an unknown type is dropped silently", text);
  }
  if (m.calls.size() == 1 && handlerName(m.calls[0]) != "On" + handlerName(text)) {
    fail("the handler called is the one the description names", m.calls[0] + "\n" + text);
  }
  if (m.errors.size() == 1 && in.length > 3 && m.errors[0] != text) {
    fail("a malformed payload is reported as its description says", m.errors[0] + "\n" + text);
  }
}

}  // namespace conflink::fuzz
