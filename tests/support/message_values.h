// Every message of both links, and a value for every field of what a message sends: for the
// programs that must send each message through its own operation with values in every field
// (the fuzz seeds, with counted values; the soak, with random ones).
#pragma once

#include <cstddef>
#include <list>
#include <optional>
#include <string>
#include <type_traits>

#include <conflink/cc/cc_messages.h>
#include <conflink/cgi/cgi_messages.h>
#include <conflink/messaging/shared_messages.h>
#include <conflink/records/records.h>
#include <conflink/wire/codec.h>

namespace conflink::testing {

template <class T>
struct IsList : std::false_type {};
template <class T>
struct IsList<std::list<T>> : std::true_type {};
template <class T>
struct IsOptional : std::false_type {};
template <class T>
struct IsOptional<std::optional<T>> : std::true_type {};

// Fills every field of a value, recursively, with what `Source` gives:
//   bool boolean();  unsigned long long number();  double real();  std::string text();
//   size_t listLength(int depth);  (depth 0 for a list that is not inside another)
//   bool present();  (an optional part or the pointed-to CallParams)
//   const void* block();  (the raw block of a sized-block message)
template <class Source>
class ValueFiller {
 public:
  explicit ValueFiller(Source& source) : source_(source) {}

  template <class T>
  void fill(T& v) {
    if constexpr (std::is_same_v<T, bool>) {
      v = source_.boolean();
    } else if constexpr (std::is_integral_v<T> || std::is_enum_v<T>) {
      v = static_cast<T>(source_.number());
    } else if constexpr (std::is_floating_point_v<T>) {
      v = source_.real();
    } else if constexpr (std::is_same_v<T, std::string>) {
      v = source_.text();
    } else if constexpr (IsList<T>::value) {
      v.resize(source_.listLength(depth_));
      ++depth_;
      for (auto& e : v) fill(e);
      --depth_;
    } else if constexpr (IsOptional<T>::value) {
      v.reset();
      if (source_.present()) {
        v.emplace();
        fill(*v);
      }
    } else if constexpr (std::is_same_v<T, const void*>) {
      v = source_.block();
    } else if constexpr (std::is_same_v<T, const CallParams*>) {
      v = nullptr;
      if (source_.present()) {
        call_ = CallParams{};
        fill(call_);
        v = &call_;
      }
    } else if constexpr (std::is_same_v<T, RecordingParams>) {
      fill(v.value1), fill(v.texts), fill(v.value2), fill(v.value4), fill(v.value5), fill(v.uri);
      v.value3 = 0;  // the address travels only then
    } else if constexpr (std::is_same_v<T, Reservations>) {
      fill(v.items);
    } else if constexpr (std::is_same_v<T, LoadSegment>) {
      fill(v.start), fill(v.load);
    } else {
      wire::Fields<T>::visit(v, [&](const char*, auto& field) { fill(field); });
    }
  }

 private:
  Source& source_;
  CallParams call_{};  // what a filled `const CallParams*` points to, while the filler lives
  int depth_ = 0;
};

// Hands `visit` each declaration given, in order.
template <class Visit, class... Declared>
void visitEach(Visit& visit, const Declared&... declared) {
  (visit(declared), ...);
}

// The messages both links carry, from either messenger.
template <class Visit>
void forEachSharedMessage(Visit& visit) {
  namespace both = msg::both_to_ps;
  namespace reply = msg::ps_to_both;
  visitEach(visit, both::kAddParticipant, both::kDialOut, both::kDeleteParticipant,
            both::kSetSpeaker, both::kStartLectureMode, both::kRequestToSpeak,
            both::kAuthorizationRequest, both::kStartConference, both::kStopConference,
            both::kRequestStartRecording, both::kRequestStopRecording, both::kRequestPauseRecording,
            both::kRequestResumeRecording, both::kInitiateDialOut, both::kLockConference,
            both::kGetConferenceParam);
  visitEach(visit, reply::kSuccess, reply::kReject, reply::kModeratorApprovalNeeded,
            reply::kAuthorizationPassed, reply::kConferenceLocked, reply::kSendConferenceParam);
}

// Every message the CC link's messenger sends: call control's, the server's, then the shared.
template <class Visit>
void forEachCcLinkMessage(Visit& visit) {
  namespace up = msg::cc_to_ps;
  namespace down = msg::ps_to_cc;
  visitEach(visit, up::kJoinConference, up::kActivateParticipant, up::kParticipantLeft,
            up::kHoldParticipant, up::kForwardParticipant, up::kGetEndpointTopology,
            up::kRecordingTerminated, up::kInitiateConferenceServer, up::kSuccess,
            up::kReportError);
  visitEach(visit, down::kAddParticipant, down::kUpdateUserInfo, down::kRemoveParticipant,
            down::kSetupConference, down::kCloseConference, down::kStartConference,
            down::kStopConference, down::kPauseConference, down::kResumeConference,
            down::kStartRecording, down::kStopRecording, down::kPauseRecording,
            down::kResumeRecording, down::kModifyConferenceMedia, down::kModifyParticipantMedia,
            down::kSetSpeaker, down::kRegisterConfID, down::kRegisterAllConferences,
            down::kAddScenario, down::kUpdateScenario, down::kRemoveScenario, down::kJoinAccept,
            down::kJoinReject, down::kActivateAttendant, down::kSendEndpointTopology,
            down::kReportError);
  forEachSharedMessage(visit);
}

// Every message the CGI link's messenger sends: the front end's, the server's, then the shared.
template <class Visit>
void forEachCgiLinkMessage(Visit& visit) {
  namespace up = msg::cgi_to_ps;
  namespace down = msg::ps_to_cgi;
  visitEach(visit, up::kCreateConference, up::kSaveConfGeneral, up::kSaveConfNewParticipants,
            up::kSaveConfParticipants, up::kSaveConfSchedule, up::kSaveConfSipSettings,
            up::kSaveConfRecording, up::kSaveConfCodecs, up::kSaveConfSysMessages,
            up::kSaveConfAutoGainCtrl, up::kSaveAttendant, up::kSaveMailText,
            up::kRestoreMailDefaults, up::kSaveStatisticsSettings, up::kClearStatistics,
            up::kModifyLocalRoutingTable, up::kUpdateTOSValues, up::kDeleteConference,
            up::kModifyConferenceMedia, up::kModifyParticipantMedia, up::kSendCreationMails,
            up::kGetConference, up::kGetGeneralSettings, up::kGetNewParticipantSettings,
            up::kGetParticipantsList, up::kGetSipSettings, up::kGetRecordingSettings,
            up::kGetScheduleSettings, up::kGetEncodingSettings, up::kGetSysMessageSettings,
            up::kGetAutoGainCtrlSettings, up::kGetAttendantSettings, up::kGetConferenceProgress,
            up::kGetConferenceStatus, up::kGetUserConfList, up::kGetActiveConfList,
            up::kGetPublicConfList, up::kGetRecordingParamsList, up::kAddReservation,
            up::kRemoveReservation, up::kGetReservationList, up::kGetReservationLoad,
            up::kAddExtReservation, up::kRemoveExtReservation, up::kGetRegisteredUserList,
            up::kAddRegisteredUser, up::kRemoveRegisteredUser);
  visitEach(visit, down::kConferenceCreated, down::kSendConference, down::kSendGeneralSettings,
            down::kSendNewParticipantSettings, down::kSendParticipantsList, down::kSendSipSettings,
            down::kSendRecordingSettings, down::kSendScheduleSettings, down::kSendEncodingSettings,
            down::kSendSysMessageSettings, down::kSendAutoGainCtrlSettings,
            down::kSendAttendantSettings, down::kSendConferenceProgress,
            down::kSendConferenceStatus, down::kSendUserConfList, down::kSendActiveConfList,
            down::kSendPublicConfList, down::kSendRecordingParamsList, down::kSendReservationList,
            down::kSendReservationLoad, down::kExtReservationAdded, down::kSendRegisteredUserList,
            down::kCgiReportError);
  forEachSharedMessage(visit);
}

}  // namespace conflink::testing
