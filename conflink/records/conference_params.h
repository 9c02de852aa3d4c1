// The whole stored configuration of one conference: every settings section with its participant
// roster and its reservations. It travels as one unit, inline in the message buffer, with no
// length or tag in front of it, so a receiver reads the message's further fields from what
// remains after the record.
#pragma once

#include <list>
#include <string>

#include <conflink/wire/codec.h>
#include <conflink/records/config_records.h>
#include <conflink/records/record_codecs.h>
#include <conflink/records/record_fields.h>
#include <conflink/records/status_records.h>

struct ConferenceParams {
  ConfGeneralParams general;
  NewParticipantParams newParticipant;
  std::list<ConferenceUser> participants;
  SipRegistrationParams sip;
  RecordingParams recording;
  ScheduleParams schedule;
  Reservations reservations;
  EncodingParams encoding;
  std::list<std::string> encodingExtras;
  SysMessageParams sysMessage;
  AutoGainCtrlParams autoGainCtrl;
};

namespace conflink::wire {

// The sections in declaration order; `recording` and `reservations` bring their own irregular
// forms (the conditional address, the 24-byte reservation images).
template <>
struct Fields<ConferenceParams> {
  static constexpr const char* kName = "ConferenceParams";
  template <class R, class V>
  static void visit(R& r, V&& v) {
    v("general", r.general);
    v("newParticipant", r.newParticipant);
    v("participants", r.participants);
    v("sip", r.sip);
    v("recording", r.recording);
    v("schedule", r.schedule);
    v("reservations", r.reservations);
    v("encoding", r.encoding);
    v("encodingExtras", r.encodingExtras);
    v("sysMessage", r.sysMessage);
    v("autoGainCtrl", r.autoGainCtrl);
  }
};

}  // namespace conflink::wire

namespace conflink {

// The fewest bytes any encoded ConferenceParams takes (all lists and strings empty, no recording
// address): 242. A successful decode always consumes at least this many.
size_t ConferenceParamsMinSize();

// Decodes one ConferenceParams from the front of `in` into `out` and removes exactly its bytes
// from `in`, leaving whatever followed untouched. Lists of `out` are replaced, not merged; the
// recording address is kept as it was when the received record carries none.
//
// Every length and count is checked against the bytes present, so truncated or malformed input
// is never read past its end and never drives an allocation. On such input it returns false,
// leaves both `in` and `out` unchanged and, if `error` is set, describes the failure there
// (offset, what was wanted, and the field).
bool DecodeConferenceParams(std::string& in, ConferenceParams& out, std::string* error);

}  // namespace conflink

// Appends the encoding of `p` to `out` (without clearing it) and returns `out`. The buffer grows
// once, by exactly the record's size.
std::string& operator<<(std::string& out, const ConferenceParams& p);

// Decodes a ConferenceParams from the front of `in` into `p`, as DecodeConferenceParams does,
// and returns `in`. A successful decode consumes at least ConferenceParamsMinSize() bytes, so
// `in` unchanged after the call means the input was truncated or malformed (and `p` was left as
// it was); call DecodeConferenceParams to learn why.
std::string& operator>>(std::string& in, ConferenceParams& p);
