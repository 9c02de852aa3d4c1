// What the fuzz targets share: how an input stands for a received message, the records that
// travel, and how a target stops when a property of the decoders does not hold.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <tuple>

#include <conflink/records/record_equality.h>
#include <conflink/records/records.h>

namespace conflink::fuzz {

// A received message as a fuzz input: the type as a big-endian signed 16-bit number (every type
// of both links, the negative ones and those past the tables), then the buffer exactly as the
// queue hands it over (payload, then the 4-byte link mark).
struct Received {
  int type = 0;
  const char* data = nullptr;
  int length = 0;
};
constexpr size_t kTypeBytes = 2;

inline bool splitReceived(const uint8_t* data, size_t size, Received& out) {
  if (size < kTypeBytes) return false;
  out.type = static_cast<int16_t>(static_cast<uint16_t>(data[0] << 8 | data[1]));
  out.data = reinterpret_cast<const char*>(data + kTypeBytes);
  out.length = static_cast<int>(size - kTypeBytes);
  return true;
}

inline std::string receivedInput(int type, const std::string& buffer) {
  std::string out;
  out += static_cast<char>((type >> 8) & 0xff);
  out += static_cast<char>(type & 0xff);
  return out + buffer;
}

// Stops the run: libFuzzer keeps the input that got here as a crash.
[[noreturn]] inline void fail(const char* property, const std::string& detail) {
  std::fprintf(stderr, "property failed: %s\n%s\n", property, detail.c_str());
  std::abort();
}

// Every value with a wire form that a message carries inside its payload. An input of the
// record target starts with one byte that picks the type (modulo the count), and its encoding
// follows.
using Records =
    std::tuple<ConfIDString, SipUri, CallParams, RegisterParams, CallExtraParams, ParticipantParams,
               ConfSpecParams, AttendantZeroOutParams, MediaDetails, UserRxMediaList,
               EndpointTopology, ConfTopology, std::optional<CallParams>, ConfGeneralParams,
               NewParticipantParams, ConferenceUser, RuleParams, ScheduleParams,
               SipRegistrationParams, RecordingParams, EncodingParams, SysMessageParams,
               AutoGainCtrlParams, AttendantParams, ConferenceProgress, ConferenceStatus, ConfInfo,
               ActiveConfInfo, RegisteredUserInfo, ReservationInfo, Reservations, LoadSegment,
               ConferenceParams>;
constexpr size_t kRecordCount = std::tuple_size_v<Records>;

}  // namespace conflink::fuzz
