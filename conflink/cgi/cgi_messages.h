// The messages of the link between the web administration front end and the server: one
// declaration each (see messaging/message.h), used by the messenger's sending bodies and its
// receiving table.
#pragma once

#include <array>

#include <conflink/cgi/cgi_catalogue.h>
#include <conflink/cgi/cgi_interfaces.h>
#include <conflink/messaging/message.h>
#include <conflink/records/records.h>

namespace conflink::msg {

template <>
struct Counterpart<CgiToPsInterface> {
  using type = PsToCgiInterface;
  static constexpr const char* kFrom = "CGI";
  static constexpr const char* kTo = "PS";
};
template <>
struct Counterpart<PsToCgiInterface> {
  using type = CgiToPsInterface;
  static constexpr const char* kFrom = "PS";
  static constexpr const char* kTo = "CGI";
};

// The web front end's administration requests to the server.
namespace cgi_to_ps {
using C = CgiToPsInterface;
using P = PsToCgiInterface;
inline constexpr Message<13, &C::CreateConference, &P::OnCreateConference> kCreateConference{
    "CreateConference"};
inline constexpr Message<23, &C::SaveConfGeneral, &P::OnSaveConfGeneral> kSaveConfGeneral{
    "SaveConfGeneral"};
inline constexpr Message<24, &C::SaveConfNewParticipants, &P::OnSaveConfNewParticipants>
    kSaveConfNewParticipants{"SaveConfNewParticipants"};
inline constexpr Message<25, &C::SaveConfParticipants, &P::OnSaveConfParticipants>
    kSaveConfParticipants{"SaveConfParticipants"};
inline constexpr Message<26, &C::SaveConfSchedule, &P::OnSaveConfSchedule> kSaveConfSchedule{
    "SaveConfSchedule"};
inline constexpr Message<27, &C::SaveConfSipSettings, &P::OnSaveConfSipSettings>
    kSaveConfSipSettings{"SaveConfSipSettings"};
inline constexpr Message<28, &C::SaveConfRecording, &P::OnSaveConfRecording> kSaveConfRecording{
    "SaveConfRecording"};
inline constexpr Message<29, &C::SaveConfCodecs, &P::OnSaveConfCodecs> kSaveConfCodecs{
    "SaveConfCodecs"};
inline constexpr Message<30, &C::SaveConfSysMessages, &P::OnSaveConfSysMessages>
    kSaveConfSysMessages{"SaveConfSysMessages"};
inline constexpr Message<31, &C::SaveConfAutoGainCtrl, &P::OnSaveConfAutoGainCtrl>
    kSaveConfAutoGainCtrl{"SaveConfAutoGainCtrl"};
inline constexpr Message<32, &C::SaveAttendant, &P::OnSaveAttendant> kSaveAttendant{
    "SaveAttendant"};
inline constexpr Message<33, &C::SaveMailText, &P::OnSaveMailText> kSaveMailText{"SaveMailText"};
inline constexpr Message<34, &C::RestoreMailDefaults, &P::OnRestoreMailDefaults>
    kRestoreMailDefaults{"RestoreMailDefaults"};
inline constexpr Message<35, &C::SaveStatisticsSettings, &P::OnSaveStatisticsSettings>
    kSaveStatisticsSettings{"SaveStatisticsSettings"};
inline constexpr Message<36, &C::ClearStatistics, &P::OnClearStatistics> kClearStatistics{
    "ClearStatistics"};
inline constexpr Message<37, &C::ModifyLocalRoutingTable, &P::OnModifyLocalRoutingTable>
    kModifyLocalRoutingTable{"ModifyLocalRoutingTable"};
inline constexpr Message<38, &C::UpdateTOSValues, &P::OnUpdateTOSValues> kUpdateTOSValues{
    "UpdateTOSValues"};
inline constexpr Message<39, &C::DeleteConference, &P::OnDeleteConference> kDeleteConference{
    "DeleteConference"};
inline constexpr Message<40, &C::ModifyConferenceMedia, &P::OnModifyConferenceMedia>
    kModifyConferenceMedia{"ModifyConferenceMedia"};
// Sent with an empty payload; the receiving table has no entry for it.
inline constexpr Message<41, &C::ModifyParticipantMedia, &P::OnModifyParticipantMedia, form::Empty>
    kModifyParticipantMedia{"ModifyParticipantMedia"};
inline constexpr Message<42, &C::SendCreationMails, &P::OnSendCreationMails> kSendCreationMails{
    "SendCreationMails"};
inline constexpr Message<43, &C::GetConference, &P::OnGetConference> kGetConference{
    "GetConference"};
inline constexpr Message<44, &C::GetGeneralSettings, &P::OnGetGeneralSettings> kGetGeneralSettings{
    "GetGeneralSettings"};
inline constexpr Message<45, &C::GetNewParticipantSettings, &P::OnGetNewParticipantSettings>
    kGetNewParticipantSettings{"GetNewParticipantSettings"};
inline constexpr Message<46, &C::GetParticipantsList, &P::OnGetParticipantsList>
    kGetParticipantsList{"GetParticipantsList"};
inline constexpr Message<47, &C::GetSipSettings, &P::OnGetSipSettings> kGetSipSettings{
    "GetSipSettings"};
inline constexpr Message<48, &C::GetRecordingSettings, &P::OnGetRecordingSettings>
    kGetRecordingSettings{"GetRecordingSettings"};
inline constexpr Message<49, &C::GetScheduleSettings, &P::OnGetScheduleSettings>
    kGetScheduleSettings{"GetScheduleSettings"};
inline constexpr Message<50, &C::GetEncodingSettings, &P::OnGetEncodingSettings>
    kGetEncodingSettings{"GetEncodingSettings"};
inline constexpr Message<51, &C::GetSysMessageSettings, &P::OnGetSysMessageSettings>
    kGetSysMessageSettings{"GetSysMessageSettings"};
inline constexpr Message<52, &C::GetAutoGainCtrlSettings, &P::OnGetAutoGainCtrlSettings>
    kGetAutoGainCtrlSettings{"GetAutoGainCtrlSettings"};
inline constexpr Message<53, &C::GetAttendantSettings, &P::OnGetAttendantSettings>
    kGetAttendantSettings{"GetAttendantSettings"};
inline constexpr Message<54, &C::GetConferenceProgress, &P::OnGetConferenceProgress>
    kGetConferenceProgress{"GetConferenceProgress"};
inline constexpr Message<55, &C::GetConferenceStatus, &P::OnGetConferenceStatus>
    kGetConferenceStatus{"GetConferenceStatus"};
inline constexpr Message<57, &C::GetUserConfList, &P::OnGetUserConfList> kGetUserConfList{
    "GetUserConfList"};
inline constexpr Message<58, &C::GetActiveConfList, &P::OnGetActiveConfList> kGetActiveConfList{
    "GetActiveConfList"};
inline constexpr Message<59, &C::GetPublicConfList, &P::OnGetPublicConfList> kGetPublicConfList{
    "GetPublicConfList"};
inline constexpr Message<60, &C::GetRecordingParamsList, &P::OnGetRecordingParamsList>
    kGetRecordingParamsList{"GetRecordingParamsList"};
inline constexpr Message<61, &C::AddReservation, &P::OnAddReservation> kAddReservation{
    "AddReservation"};
inline constexpr Message<62, &C::RemoveReservation, &P::OnRemoveReservation> kRemoveReservation{
    "RemoveReservation"};
inline constexpr Message<63, &C::GetReservationList, &P::OnGetReservationList> kGetReservationList{
    "GetReservationList"};
inline constexpr Message<64, &C::GetReservationLoad, &P::OnGetReservationLoad> kGetReservationLoad{
    "GetReservationLoad"};
inline constexpr Message<65, &C::AddExtReservation, &P::OnAddExtReservation> kAddExtReservation{
    "AddExtReservation"};
inline constexpr Message<66, &C::RemoveExtReservation, &P::OnRemoveExtReservation>
    kRemoveExtReservation{"RemoveExtReservation"};
inline constexpr Message<67, &C::GetRegisteredUserList, &P::OnGetRegisteredUserList>
    kGetRegisteredUserList{"GetRegisteredUserList"};
inline constexpr Message<68, &C::AddRegisteredUser, &P::OnAddRegisteredUser> kAddRegisteredUser{
    "AddRegisteredUser"};
inline constexpr Message<69, &C::RemoveRegisteredUser, &P::OnRemoveRegisteredUser>
    kRemoveRegisteredUser{"RemoveRegisteredUser"};
}  // namespace cgi_to_ps

// The server's replies and lists to the web front end.
namespace ps_to_cgi {
using C = CgiToPsInterface;
using P = PsToCgiInterface;
inline constexpr Message<287, &P::ConferenceCreated, &C::OnConferenceCreated> kConferenceCreated{
    "ConferenceCreated"};
inline constexpr Message<265, &P::SendConference, &C::OnSendConference> kSendConference{
    "SendConference"};
inline constexpr Message<266, &P::SendGeneralSettings, &C::OnSendGeneralSettings>
    kSendGeneralSettings{"SendGeneralSettings"};
inline constexpr Message<267, &P::SendNewParticipantSettings, &C::OnSendNewParticipantSettings>
    kSendNewParticipantSettings{"SendNewParticipantSettings"};
inline constexpr Message<268, &P::SendParticipantsList, &C::OnSendParticipantsList>
    kSendParticipantsList{"SendParticipantsList"};
inline constexpr Message<269, &P::SendSipSettings, &C::OnSendSipSettings> kSendSipSettings{
    "SendSipSettings"};
inline constexpr Message<270, &P::SendRecordingSettings, &C::OnSendRecordingSettings>
    kSendRecordingSettings{"SendRecordingSettings"};
inline constexpr Message<271, &P::SendScheduleSettings, &C::OnSendScheduleSettings>
    kSendScheduleSettings{"SendScheduleSettings"};
inline constexpr Message<272, &P::SendEncodingSettings, &C::OnSendEncodingSettings>
    kSendEncodingSettings{"SendEncodingSettings"};
inline constexpr Message<273, &P::SendSysMessageSettings, &C::OnSendSysMessageSettings>
    kSendSysMessageSettings{"SendSysMessageSettings"};
inline constexpr Message<274, &P::SendAutoGainCtrlSettings, &C::OnSendAutoGainCtrlSettings>
    kSendAutoGainCtrlSettings{"SendAutoGainCtrlSettings"};
inline constexpr Message<275, &P::SendAttendantSettings, &C::OnSendAttendantSettings>
    kSendAttendantSettings{"SendAttendantSettings"};
inline constexpr Message<276, &P::SendConferenceProgress, &C::OnSendConferenceProgress>
    kSendConferenceProgress{"SendConferenceProgress"};
inline constexpr Message<277, &P::SendConferenceStatus, &C::OnSendConferenceStatus>
    kSendConferenceStatus{"SendConferenceStatus"};
inline constexpr Message<279, &P::SendUserConfList, &C::OnSendUserConfList> kSendUserConfList{
    "SendUserConfList"};
inline constexpr Message<280, &P::SendActiveConfList, &C::OnSendActiveConfList> kSendActiveConfList{
    "SendActiveConfList"};
inline constexpr Message<281, &P::SendPublicConfList, &C::OnSendPublicConfList> kSendPublicConfList{
    "SendPublicConfList"};
inline constexpr Message<282, &P::SendRecordingParamsList, &C::OnSendRecordingParamsList>
    kSendRecordingParamsList{"SendRecordingParamsList"};
inline constexpr Message<283, &P::SendReservationList, &C::OnSendReservationList>
    kSendReservationList{"SendReservationList"};
inline constexpr Message<284, &P::SendReservationLoad, &C::OnSendReservationLoad>
    kSendReservationLoad{"SendReservationLoad"};
inline constexpr Message<285, &P::ExtReservationAdded, &C::OnExtReservationAdded>
    kExtReservationAdded{"ExtReservationAdded"};
inline constexpr Message<286, &P::SendRegisteredUserList, &C::OnSendRegisteredUserList>
    kSendRegisteredUserList{"SendRegisteredUserList"};
inline constexpr Message<263, &P::CgiReportError, &C::OnCgiReportError> kCgiReportError{
    "CgiReportError"};
}  // namespace ps_to_cgi
// Everything either end of the link receives: a messenger serves both ends, so one table holds
// both directions. ModifyParticipantMedia (41) is left out on purpose: its receiver does not
// know it.
template <class M>
constexpr auto cgiLinkEntries() {
  namespace up = cgi_to_ps;
  namespace down = ps_to_cgi;
  return std::array{
      on<M>(up::kCreateConference),
      on<M>(up::kSaveConfGeneral),
      on<M>(up::kSaveConfNewParticipants),
      on<M>(up::kSaveConfParticipants),
      on<M>(up::kSaveConfSchedule),
      on<M>(up::kSaveConfSipSettings),
      on<M>(up::kSaveConfRecording),
      on<M>(up::kSaveConfCodecs),
      on<M>(up::kSaveConfSysMessages),
      on<M>(up::kSaveConfAutoGainCtrl),
      on<M>(up::kSaveAttendant),
      on<M>(up::kSaveMailText),
      on<M>(up::kRestoreMailDefaults),
      on<M>(up::kSaveStatisticsSettings),
      on<M>(up::kClearStatistics),
      on<M>(up::kModifyLocalRoutingTable),
      on<M>(up::kUpdateTOSValues),
      on<M>(up::kDeleteConference),
      on<M>(up::kModifyConferenceMedia),
      on<M>(up::kSendCreationMails),
      on<M>(up::kGetConference),
      on<M>(up::kGetGeneralSettings),
      on<M>(up::kGetNewParticipantSettings),
      on<M>(up::kGetParticipantsList),
      on<M>(up::kGetSipSettings),
      on<M>(up::kGetRecordingSettings),
      on<M>(up::kGetScheduleSettings),
      on<M>(up::kGetEncodingSettings),
      on<M>(up::kGetSysMessageSettings),
      on<M>(up::kGetAutoGainCtrlSettings),
      on<M>(up::kGetAttendantSettings),
      on<M>(up::kGetConferenceProgress),
      on<M>(up::kGetConferenceStatus),
      on<M>(up::kGetUserConfList),
      on<M>(up::kGetActiveConfList),
      on<M>(up::kGetPublicConfList),
      on<M>(up::kGetRecordingParamsList),
      on<M>(up::kAddReservation),
      on<M>(up::kRemoveReservation),
      on<M>(up::kGetReservationList),
      on<M>(up::kGetReservationLoad),
      on<M>(up::kAddExtReservation),
      on<M>(up::kRemoveExtReservation),
      on<M>(up::kGetRegisteredUserList),
      on<M>(up::kAddRegisteredUser),
      on<M>(up::kRemoveRegisteredUser),
      on<M>(down::kConferenceCreated),
      on<M>(down::kSendConference),
      on<M>(down::kSendGeneralSettings),
      on<M>(down::kSendNewParticipantSettings),
      on<M>(down::kSendParticipantsList),
      on<M>(down::kSendSipSettings),
      on<M>(down::kSendRecordingSettings),
      on<M>(down::kSendScheduleSettings),
      on<M>(down::kSendEncodingSettings),
      on<M>(down::kSendSysMessageSettings),
      on<M>(down::kSendAutoGainCtrlSettings),
      on<M>(down::kSendAttendantSettings),
      on<M>(down::kSendConferenceProgress),
      on<M>(down::kSendConferenceStatus),
      on<M>(down::kSendUserConfList),
      on<M>(down::kSendActiveConfList),
      on<M>(down::kSendPublicConfList),
      on<M>(down::kSendRecordingParamsList),
      on<M>(down::kSendReservationList),
      on<M>(down::kSendReservationLoad),
      on<M>(down::kExtReservationAdded),
      on<M>(down::kSendRegisteredUserList),
      on<M>(down::kCgiReportError),
  };
}

}  // namespace conflink::msg
