// The virtual-slot order of the web front end's two role interfaces: programs built against
// earlier releases call through these tables by position, so the order is written here as
// documented and checked against what the compiler laid out.
#include <conflink/cgi/cgi_interfaces.h>
#include <conflink/cgi/cgi_to_ps_messenger.h>

#include <gtest/gtest.h>

#include <type_traits>

#include "tests/support/vtable_slots.h"

namespace {

using conflink::testing::consecutive;
using conflink::testing::kFirstAfterDestructor;
using conflink::testing::slotsOf;

TEST(CgiSlotOrder, FrontEndInterfaceRequestsThenReplyHandlers) {
  using I = CgiToPsInterface;
  EXPECT_EQ(slotsOf(&I::CreateConference, &I::SaveConfGeneral, &I::SaveConfNewParticipants,
                    &I::SaveConfParticipants, &I::SaveConfSchedule, &I::SaveConfSipSettings,
                    &I::SaveConfRecording, &I::SaveConfCodecs, &I::SaveConfSysMessages,
                    &I::SaveConfAutoGainCtrl, &I::SaveAttendant, &I::SaveMailText,
                    &I::RestoreMailDefaults, &I::SaveStatisticsSettings, &I::ClearStatistics,
                    &I::ModifyLocalRoutingTable, &I::UpdateTOSValues, &I::DeleteConference,
                    &I::ModifyConferenceMedia, &I::ModifyParticipantMedia, &I::SendCreationMails,
                    &I::GetConference, &I::GetGeneralSettings, &I::GetNewParticipantSettings,
                    &I::GetParticipantsList, &I::GetSipSettings, &I::GetRecordingSettings,
                    &I::GetScheduleSettings, &I::GetEncodingSettings, &I::GetSysMessageSettings,
                    &I::GetAutoGainCtrlSettings, &I::GetAttendantSettings,
                    &I::GetConferenceProgress, &I::GetConferenceStatus, &I::GetUserConfList,
                    &I::GetActiveConfList, &I::GetPublicConfList, &I::GetRecordingParamsList,
                    &I::AddReservation, &I::RemoveReservation, &I::GetReservationList,
                    &I::GetReservationLoad, &I::AddExtReservation, &I::RemoveExtReservation,
                    &I::GetRegisteredUserList, &I::AddRegisteredUser, &I::RemoveRegisteredUser),
            consecutive(kFirstAfterDestructor, 47));
  EXPECT_EQ(
      slotsOf(&I::OnConferenceCreated, &I::OnSendConference, &I::OnSendGeneralSettings,
              &I::OnSendNewParticipantSettings, &I::OnSendParticipantsList, &I::OnSendSipSettings,
              &I::OnSendRecordingSettings, &I::OnSendScheduleSettings, &I::OnSendEncodingSettings,
              &I::OnSendSysMessageSettings, &I::OnSendAutoGainCtrlSettings,
              &I::OnSendAttendantSettings, &I::OnSendConferenceProgress, &I::OnSendConferenceStatus,
              &I::OnSendUserConfList, &I::OnSendActiveConfList, &I::OnSendPublicConfList,
              &I::OnSendRecordingParamsList, &I::OnSendReservationList, &I::OnSendReservationLoad,
              &I::OnExtReservationAdded, &I::OnSendRegisteredUserList, &I::OnCgiReportError),
      consecutive(kFirstAfterDestructor + 47, 23));
}

TEST(CgiSlotOrder, ServerInterfaceRepliesThenRequestHandlers) {
  using I = PsToCgiInterface;
  EXPECT_EQ(slotsOf(&I::ConferenceCreated, &I::SendConference, &I::SendGeneralSettings,
                    &I::SendNewParticipantSettings, &I::SendParticipantsList, &I::SendSipSettings,
                    &I::SendRecordingSettings, &I::SendScheduleSettings, &I::SendEncodingSettings,
                    &I::SendSysMessageSettings, &I::SendAutoGainCtrlSettings,
                    &I::SendAttendantSettings, &I::SendConferenceProgress, &I::SendConferenceStatus,
                    &I::SendUserConfList, &I::SendActiveConfList, &I::SendPublicConfList,
                    &I::SendRecordingParamsList, &I::SendReservationList, &I::SendReservationLoad,
                    &I::ExtReservationAdded, &I::SendRegisteredUserList, &I::CgiReportError),
            consecutive(kFirstAfterDestructor, 23));
  EXPECT_EQ(
      slotsOf(&I::OnCreateConference, &I::OnSaveConfGeneral, &I::OnSaveConfNewParticipants,
              &I::OnSaveConfParticipants, &I::OnSaveConfSchedule, &I::OnSaveConfSipSettings,
              &I::OnSaveConfRecording, &I::OnSaveConfCodecs, &I::OnSaveConfSysMessages,
              &I::OnSaveConfAutoGainCtrl, &I::OnSaveAttendant, &I::OnSaveMailText,
              &I::OnRestoreMailDefaults, &I::OnSaveStatisticsSettings, &I::OnClearStatistics,
              &I::OnModifyLocalRoutingTable, &I::OnUpdateTOSValues, &I::OnDeleteConference,
              &I::OnModifyConferenceMedia, &I::OnModifyParticipantMedia, &I::OnSendCreationMails,
              &I::OnGetConference, &I::OnGetGeneralSettings, &I::OnGetNewParticipantSettings,
              &I::OnGetParticipantsList, &I::OnGetSipSettings, &I::OnGetRecordingSettings,
              &I::OnGetScheduleSettings, &I::OnGetEncodingSettings, &I::OnGetSysMessageSettings,
              &I::OnGetAutoGainCtrlSettings, &I::OnGetAttendantSettings,
              &I::OnGetConferenceProgress, &I::OnGetConferenceStatus, &I::OnGetUserConfList,
              &I::OnGetActiveConfList, &I::OnGetPublicConfList, &I::OnGetRecordingParamsList,
              &I::OnAddReservation, &I::OnRemoveReservation, &I::OnGetReservationList,
              &I::OnGetReservationLoad, &I::OnAddExtReservation, &I::OnRemoveExtReservation,
              &I::OnGetRegisteredUserList, &I::OnAddRegisteredUser, &I::OnRemoveRegisteredUser),
      consecutive(kFirstAfterDestructor + 23, 47));
}

// The messenger's own operations stay right after the shared client interface's 22, ahead of
// the places its overrides of this link's interfaces take in the same table.
TEST(CgiSlotOrder, MessengersOwnOperationsComeBeforeItsOverridesOfThisLink) {
  using M = CGIToPSMessenger;
  EXPECT_EQ(slotsOf(&M::PeerConnected, &M::PeerDisconnected, &M::WaitForMessageAndDispatch,
                    &M::ProcessMessageFromQueue, &M::SendMessage, &M::DispatchMessage, &M::Error),
            consecutive(kFirstAfterDestructor + 22, 7));
}

// The conference identifier of a created conference is taken by value at both ends.
static_assert(
    std::is_same_v<decltype(&CgiToPsInterface::CreateConference),
                   int (CgiToPsInterface::*)(const unsigned long long&, const unsigned long long&,
                                             const ConferenceParams&, ConfIDString, bool)>);
static_assert(std::is_same_v<decltype(&PsToCgiInterface::OnCreateConference),
                             int (PsToCgiInterface::*)(
                                 const unsigned long long&, const unsigned long long&,
                                 const ConferenceParams&, ConfIDString, bool, PSProtocolType)>);

}  // namespace
