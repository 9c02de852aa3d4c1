// Field-by-field equality of the records, for tests and tools that compare what was sent with
// what was received. Each comparison lists the record's members independently of its wire field
// list, so a field that the wire form forgets shows up as a difference after a round trip.
#pragma once

#include <tuple>

#include <conflink/records/records.h>

namespace conflink::records_detail {
template <class T, class Tie>
bool sameFields(const T& a, const T& b, Tie tie) {
  return tie(a) == tie(b);
}
}  // namespace conflink::records_detail

#define CONFLINK_RECORD_EQUALITY(Type, ...)                         \
  inline bool operator==(const Type& a, const Type& b) {            \
    return conflink::records_detail::sameFields(                    \
        a, b, [](const Type& r) { return std::tie(__VA_ARGS__); }); \
  }                                                                 \
  inline bool operator!=(const Type& a, const Type& b) {            \
    return !(a == b);                                               \
  }

CONFLINK_RECORD_EQUALITY(ConfIDString, r.id)
CONFLINK_RECORD_EQUALITY(SipUri, r.text1, r.text2, r.text3, r.text4)
CONFLINK_RECORD_EQUALITY(CallParams, r.text1, r.text2, r.text3, r.text4, r.text5, r.text6, r.text7,
                         r.text8, r.text9, r.text10, r.value1)
CONFLINK_RECORD_EQUALITY(RegisterParams, static_cast<const CallParams&>(r), r.value2, r.value3,
                         r.text11)
CONFLINK_RECORD_EQUALITY(CallExtraParams, r.value1, r.value2)
CONFLINK_RECORD_EQUALITY(ParticipantParams, r.value1, r.value2, r.value3, r.value4, r.value5)
CONFLINK_RECORD_EQUALITY(ConfSpecParams, r.value1, r.value2, r.value3, r.value4, r.value5)
CONFLINK_RECORD_EQUALITY(AttendantZeroOutParams, r.value1, r.text1, r.text2, r.text3, r.text4)
CONFLINK_RECORD_EQUALITY(MediaDetails, r.id, r.value1)
CONFLINK_RECORD_EQUALITY(UserRxMediaList, r.id, r.media)
CONFLINK_RECORD_EQUALITY(EndpointTopology, r.media1, r.media2)
CONFLINK_RECORD_EQUALITY(ConfTopology, r.users)
CONFLINK_RECORD_EQUALITY(FaxCodecInfo, r.value1, r.value2, r.short1)
CONFLINK_RECORD_EQUALITY(CodecParams, r.value1, r.value2, r.value3)
CONFLINK_RECORD_EQUALITY(MediaParams, r.value1, r.value2, r.text1, r.codecs, r.faxCodecs)
CONFLINK_RECORD_EQUALITY(ConfGeneralParams, r.text1, r.text2, r.value1, r.text3, r.text4, r.value2,
                         r.wide1, r.wide2, r.value3, r.value4, r.value5, r.value6, r.value7,
                         r.value8)
CONFLINK_RECORD_EQUALITY(NewParticipantParams, r.value1, r.short1, r.value2, r.value3, r.value4,
                         r.value5, r.value6, r.value7, r.value8, r.value9, r.value10)
CONFLINK_RECORD_EQUALITY(ConferenceUser, r.id, r.text1, r.text2, r.text3, r.text4, r.text5, r.text6,
                         r.short1, r.short2, r.value1, r.value2, r.value3, r.value4, r.value5,
                         r.value6, r.value7, r.value8, r.value9, r.value10, r.value11)
CONFLINK_RECORD_EQUALITY(RuleParams, r.value1, r.text1, r.text2)
CONFLINK_RECORD_EQUALITY(ScheduleParams, r.rules, r.value1, r.value2, r.short1, r.short2, r.text1)
CONFLINK_RECORD_EQUALITY(SipRegistrationParams, r.text1, r.text2, r.text3, r.text4, r.text5,
                         r.value1, r.text6, r.text7, r.text8, r.text9, r.text10, r.text11, r.value2,
                         r.value3, r.value4)
CONFLINK_RECORD_EQUALITY(RecordingParams, r.value1, r.texts, r.value2, r.value3, r.value4, r.value5,
                         r.uri)
CONFLINK_RECORD_EQUALITY(EncodingParams, r.codecs, r.value1)
CONFLINK_RECORD_EQUALITY(SysMessageParams, r.value1)
CONFLINK_RECORD_EQUALITY(AutoGainCtrlParams, r.value1, r.short1, r.short2)
CONFLINK_RECORD_EQUALITY(AttendantParams, r.text1, r.sip, r.wide1, r.wide2, r.value1, r.value2,
                         r.uri)
CONFLINK_RECORD_EQUALITY(ConferenceProgress, r.text1, r.text2, r.text3, r.text4, r.text5, r.text6,
                         r.value1, r.value2, r.value3, r.value4, r.value5, r.short1, r.value6,
                         r.short2, r.value7, r.participants)
CONFLINK_RECORD_EQUALITY(ConferenceStatus, r.value1)
CONFLINK_RECORD_EQUALITY(ConfInfo, r.text1, r.text2, r.text3, r.text4, r.text5, r.text6, r.text7,
                         r.value1, r.value2, r.value3, r.wide1, r.texts)
CONFLINK_RECORD_EQUALITY(ActiveConfInfo, r.text1, r.text2, r.text3, r.text4, r.text5, r.text6,
                         r.value1, r.value2, r.value3, r.short1, r.short2)
CONFLINK_RECORD_EQUALITY(RegisteredUserInfo, static_cast<const SipUri&>(r))
CONFLINK_RECORD_EQUALITY(ReservationInfo, r.wide1, r.short1, r.value1, r.value2)
CONFLINK_RECORD_EQUALITY(Reservations, r.items)
CONFLINK_RECORD_EQUALITY(LoadSegment, r.start, r.load)
CONFLINK_RECORD_EQUALITY(ConferenceParams, r.general, r.newParticipant, r.participants, r.sip,
                         r.recording, r.schedule, r.reservations, r.encoding, r.encodingExtras,
                         r.sysMessage, r.autoGainCtrl)

#undef CONFLINK_RECORD_EQUALITY
