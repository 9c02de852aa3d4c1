// The wire form of every regular record: its fields in wire order, each with its name. The
// generic record codec writes, reads and measures a record from this one list, so the two ends
// cannot drift apart, and a failed decode names the field where it stopped. Records whose wire
// form is not their field list are in record_codecs.h.
#pragma once

#include <conflink/wire/codec.h>
#include <conflink/records/call_records.h>
#include <conflink/records/config_records.h>
#include <conflink/records/status_records.h>

namespace conflink::wire {

// ---- Calls, participants, registrations and media topology ----

template <>
struct Fields<ConfIDString> {
  static constexpr const char* kName = "ConfIDString";
  template <class R, class V>
  static void visit(R& r, V&& v) {
    v("id", r.id);
  }
};

template <>
struct Fields<SipUri> {
  static constexpr const char* kName = "SipUri";
  template <class R, class V>
  static void visit(R& r, V&& v) {
    v("text1", r.text1);
    v("text2", r.text2);
    v("text3", r.text3);
    v("text4", r.text4);
  }
};

template <>
struct Fields<CallParams> {
  static constexpr const char* kName = "CallParams";
  template <class R, class V>
  static void visit(R& r, V&& v) {
    v("text1", r.text1);
    v("text2", r.text2);
    v("text3", r.text3);
    v("text4", r.text4);
    v("text5", r.text5);
    v("text6", r.text6);
    v("text7", r.text7);
    v("text8", r.text8);
    v("text9", r.text9);
    v("text10", r.text10);
    v("value1", r.value1);
  }
};

// The base part goes first, flat, exactly as a CallParams would.
template <>
struct Fields<RegisterParams> {
  static constexpr const char* kName = "RegisterParams";
  template <class R, class V>
  static void visit(R& r, V&& v) {
    Fields<CallParams>::visit(r, v);
    v("value2", r.value2);
    v("value3", r.value3);
    v("text11", r.text11);
  }
};

template <>
struct Fields<CallExtraParams> {
  static constexpr const char* kName = "CallExtraParams";
  template <class R, class V>
  static void visit(R& r, V&& v) {
    v("value1", r.value1);
    v("value2", r.value2);
  }
};

template <>
struct Fields<ParticipantParams> {
  static constexpr const char* kName = "ParticipantParams";
  template <class R, class V>
  static void visit(R& r, V&& v) {
    v("value1", r.value1);
    v("value2", r.value2);
    v("value3", r.value3);
    v("value4", r.value4);
    v("value5", r.value5);
  }
};

template <>
struct Fields<ConfSpecParams> {
  static constexpr const char* kName = "ConfSpecParams";
  template <class R, class V>
  static void visit(R& r, V&& v) {
    v("value1", r.value1);
    v("value2", r.value2);
    v("value3", r.value3);
    v("value4", r.value4);
    v("value5", r.value5);
  }
};

template <>
struct Fields<AttendantZeroOutParams> {
  static constexpr const char* kName = "AttendantZeroOutParams";
  template <class R, class V>
  static void visit(R& r, V&& v) {
    v("value1", r.value1);
    v("text1", r.text1);
    v("text2", r.text2);
    v("text3", r.text3);
    v("text4", r.text4);
  }
};

template <>
struct Fields<MediaDetails> {
  static constexpr const char* kName = "MediaDetails";
  template <class R, class V>
  static void visit(R& r, V&& v) {
    v("id", r.id);
    v("value1", r.value1);
  }
};

template <>
struct Fields<UserRxMediaList> {
  static constexpr const char* kName = "UserRxMediaList";
  template <class R, class V>
  static void visit(R& r, V&& v) {
    v("id", r.id);
    v("media", r.media);
  }
};

template <>
struct Fields<EndpointTopology> {
  static constexpr const char* kName = "EndpointTopology";
  template <class R, class V>
  static void visit(R& r, V&& v) {
    v("media1", r.media1);
    v("media2", r.media2);
  }
};

template <>
struct Fields<ConfTopology> {
  static constexpr const char* kName = "ConfTopology";
  template <class R, class V>
  static void visit(R& r, V&& v) {
    v("users", r.users);
  }
};

// ---- Conference configuration ----

template <>
struct Fields<ConfGeneralParams> {
  static constexpr const char* kName = "ConfGeneralParams";
  template <class R, class V>
  static void visit(R& r, V&& v) {
    v("text1", r.text1);
    v("text2", r.text2);
    v("value1", r.value1);
    v("text3", r.text3);
    v("text4", r.text4);
    v("value2", r.value2);
    v("wide1", r.wide1);
    v("wide2", r.wide2);
    v("value3", r.value3);
    v("value4", r.value4);
    v("value5", r.value5);
    v("value6", r.value6);
    v("value7", r.value7);
    v("value8", r.value8);
  }
};

template <>
struct Fields<NewParticipantParams> {
  static constexpr const char* kName = "NewParticipantParams";
  template <class R, class V>
  static void visit(R& r, V&& v) {
    v("value1", r.value1);
    v("short1", r.short1);
    v("value2", r.value2);
    v("value3", r.value3);
    v("value4", r.value4);
    v("value5", r.value5);
    v("value6", r.value6);
    v("value7", r.value7);
    v("value8", r.value8);
    v("value9", r.value9);
    v("value10", r.value10);
  }
};

template <>
struct Fields<ConferenceUser> {
  static constexpr const char* kName = "ConferenceUser";
  template <class R, class V>
  static void visit(R& r, V&& v) {
    v("id", r.id);
    v("text1", r.text1);
    v("text2", r.text2);
    v("text3", r.text3);
    v("text4", r.text4);
    v("text5", r.text5);
    v("text6", r.text6);
    v("short1", r.short1);
    v("short2", r.short2);
    v("value1", r.value1);
    v("value2", r.value2);
    v("value3", r.value3);
    v("value4", r.value4);
    v("value5", r.value5);
    v("value6", r.value6);
    v("value7", r.value7);
    v("value8", r.value8);
    v("value9", r.value9);
    v("value10", r.value10);
    v("value11", r.value11);
  }
};

template <>
struct Fields<RuleParams> {
  static constexpr const char* kName = "RuleParams";
  template <class R, class V>
  static void visit(R& r, V&& v) {
    v("value1", r.value1);
    v("text1", r.text1);
    v("text2", r.text2);
  }
};

template <>
struct Fields<ScheduleParams> {
  static constexpr const char* kName = "ScheduleParams";
  template <class R, class V>
  static void visit(R& r, V&& v) {
    v("rules", r.rules);
    v("value1", r.value1);
    v("value2", r.value2);
    v("short1", r.short1);
    v("short2", r.short2);
    v("text1", r.text1);
  }
};

template <>
struct Fields<SipRegistrationParams> {
  static constexpr const char* kName = "SipRegistrationParams";
  template <class R, class V>
  static void visit(R& r, V&& v) {
    v("text1", r.text1);
    v("text2", r.text2);
    v("text3", r.text3);
    v("text4", r.text4);
    v("text5", r.text5);
    v("value1", r.value1);
    v("text6", r.text6);
    v("text7", r.text7);
    v("text8", r.text8);
    v("text9", r.text9);
    v("text10", r.text10);
    v("text11", r.text11);
    v("value2", r.value2);
    v("value3", r.value3);
    v("value4", r.value4);
  }
};

template <>
struct Fields<EncodingParams> {
  static constexpr const char* kName = "EncodingParams";
  template <class R, class V>
  static void visit(R& r, V&& v) {
    v("codecs", r.codecs);
    v("value1", r.value1);
  }
};

template <>
struct Fields<SysMessageParams> {
  static constexpr const char* kName = "SysMessageParams";
  template <class R, class V>
  static void visit(R& r, V&& v) {
    v("value1", r.value1);
  }
};

template <>
struct Fields<AutoGainCtrlParams> {
  static constexpr const char* kName = "AutoGainCtrlParams";
  template <class R, class V>
  static void visit(R& r, V&& v) {
    v("value1", r.value1);
    v("short1", r.short1);
    v("short2", r.short2);
  }
};

template <>
struct Fields<AttendantParams> {
  static constexpr const char* kName = "AttendantParams";
  template <class R, class V>
  static void visit(R& r, V&& v) {
    v("text1", r.text1);
    v("sip", r.sip);
    v("wide1", r.wide1);
    v("wide2", r.wide2);
    v("value1", r.value1);
    v("value2", r.value2);
    v("uri", r.uri);
  }
};

// ---- Status, listing and reservations ----

template <>
struct Fields<ConferenceProgress> {
  static constexpr const char* kName = "ConferenceProgress";
  template <class R, class V>
  static void visit(R& r, V&& v) {
    v("text1", r.text1);
    v("text2", r.text2);
    v("text3", r.text3);
    v("text4", r.text4);
    v("text5", r.text5);
    v("text6", r.text6);
    v("value1", r.value1);
    v("value2", r.value2);
    v("value3", r.value3);
    v("value4", r.value4);
    v("value5", r.value5);
    v("short1", r.short1);
    v("value6", r.value6);
    v("short2", r.short2);
    v("value7", r.value7);
    v("participants", r.participants);
  }
};

template <>
struct Fields<ConferenceStatus> {
  static constexpr const char* kName = "ConferenceStatus";
  template <class R, class V>
  static void visit(R& r, V&& v) {
    v("value1", r.value1);
  }
};

template <>
struct Fields<ConfInfo> {
  static constexpr const char* kName = "ConfInfo";
  template <class R, class V>
  static void visit(R& r, V&& v) {
    v("text1", r.text1);
    v("text2", r.text2);
    v("text3", r.text3);
    v("text4", r.text4);
    v("text5", r.text5);
    v("text6", r.text6);
    v("text7", r.text7);
    v("value1", r.value1);
    v("value2", r.value2);
    v("value3", r.value3);
    v("wide1", r.wide1);
    v("texts", r.texts);
  }
};

template <>
struct Fields<ActiveConfInfo> {
  static constexpr const char* kName = "ActiveConfInfo";
  template <class R, class V>
  static void visit(R& r, V&& v) {
    v("text1", r.text1);
    v("text2", r.text2);
    v("text3", r.text3);
    v("text4", r.text4);
    v("text5", r.text5);
    v("text6", r.text6);
    v("value1", r.value1);
    v("value2", r.value2);
    v("value3", r.value3);
    v("short1", r.short1);
    v("short2", r.short2);
  }
};

// Exactly the SipUri it is.
template <>
struct Fields<RegisteredUserInfo> {
  static constexpr const char* kName = "RegisteredUserInfo";
  template <class R, class V>
  static void visit(R& r, V&& v) {
    Fields<SipUri>::visit(r, v);
  }
};

// The field-by-field form (18 bytes) of the reservation requests. Inside a Reservations list a
// reservation travels as its 24-byte image instead (record_codecs.h).
template <>
struct Fields<ReservationInfo> {
  static constexpr const char* kName = "ReservationInfo";
  template <class R, class V>
  static void visit(R& r, V&& v) {
    v("wide1", r.wide1);
    v("short1", r.short1);
    v("value1", r.value1);
    v("value2", r.value2);
  }
};

}  // namespace conflink::wire
