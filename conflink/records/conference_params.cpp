#include <conflink/records/conference_params.h>

#include <utility>

namespace conflink {

size_t ConferenceParamsMinSize() {
  return wire::Codec<ConferenceParams>::minSize();
}

bool DecodeConferenceParams(std::string& in, ConferenceParams& out, std::string* error) {
  // Decoded aside so that a failure leaves `out` as it was. The recording address starts as the
  // target's own, because a record without one keeps the address it had.
  ConferenceParams decoded;
  decoded.recording.uri = out.recording.uri;

  wire::Reader r(in.data(), in.size());
  wire::Codec<ConferenceParams>::read(r, decoded);
  if (!r.ok()) {
    if (error != nullptr) *error = r.describe();
    return false;
  }
  out = std::move(decoded);
  in.erase(0, r.offset());
  return true;
}

}  // namespace conflink

std::string& operator<<(std::string& out, const ConferenceParams& p) {
  conflink::wire::append(out, 0, p);
  return out;
}

std::string& operator>>(std::string& in, ConferenceParams& p) {
  conflink::DecodeConferenceParams(in, p, nullptr);
  return in;
}
