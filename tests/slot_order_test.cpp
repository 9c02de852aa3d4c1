// The virtual-slot order of the role interfaces, the messengers' own operations and the queue:
// programs built against earlier releases call through these tables by position, so each order
// is written here as documented and checked against what the compiler laid out.
#include <conflink/cc/cc_interfaces.h>
#include <conflink/cc/cc_to_ps_messenger.h>
#include <conflink/cgi/cgi_to_ps_messenger.h>
#include <conflink/messaging/shared_interfaces.h>
#include <conflink/platform/cyclic_message_queue.h>

#include <gtest/gtest.h>

#include "tests/support/vtable_slots.h"

namespace {

using conflink::testing::consecutive;
using conflink::testing::kFirstAfterDestructor;
using conflink::testing::slotsOf;

TEST(SlotOrder, RoleInterfacesOfBothLinksAndTheCallControlLink) {
  {
    using I = BothToPsInterface;
    EXPECT_EQ(
        slotsOf(&I::AddParticipant, &I::DialOut, &I::DeleteParticipant, &I::SetSpeaker,
                &I::StartLectureMode, &I::RequestToSpeak, &I::AuthorizationRequest,
                &I::StartConference, &I::StopConference, &I::RequestStartRecording,
                &I::RequestStopRecording, &I::RequestPauseRecording, &I::RequestResumeRecording,
                &I::InitiateDialOut, &I::LockConference, &I::GetConferenceParam, &I::OnSuccess,
                &I::OnReject, &I::OnModeratorApprovalNeeded, &I::OnAuthorizationPassed,
                &I::OnConferenceLocked, &I::OnSendConferenceParam),
        consecutive(kFirstAfterDestructor, 22));
  }
  {
    using I = PsToBothInterface;
    EXPECT_EQ(
        slotsOf(&I::Success, &I::Reject, &I::ModeratorApprovalNeeded, &I::AuthorizationPassed,
                &I::ConferenceLocked, &I::SendConferenceParam, &I::OnAddParticipant, &I::OnDialOut,
                &I::OnDeleteParticipant, &I::OnSetSpeaker, &I::OnStartLectureMode,
                &I::OnRequestToSpeak, &I::OnAuthorizationRequest, &I::OnStartConference,
                &I::OnStopConference, &I::OnRequestStartRecording, &I::OnRequestStopRecording,
                &I::OnRequestPauseRecording, &I::OnRequestResumeRecording, &I::OnInitiateDialOut,
                &I::OnLockConference, &I::OnGetConferenceParam),
        consecutive(kFirstAfterDestructor, 22));
  }
  {
    using I = CcToPsInterface;
    EXPECT_EQ(slotsOf(&I::JoinConference, &I::ActivateParticipant, &I::ParticipantLeft,
                      &I::HoldParticipant, &I::ForwardParticipant, &I::GetEndpointTopology,
                      &I::RecordingTerminated, &I::InitiateConferenceServer, &I::Success,
                      &I::ReportError, &I::OnAddParticipant, &I::OnUpdateUserInfo,
                      &I::OnRemoveParticipant, &I::OnSetupConference, &I::OnCloseConference,
                      &I::OnStartConference, &I::OnStopConference, &I::OnPauseConference,
                      &I::OnResumeConference, &I::OnStartRecording, &I::OnStopRecording,
                      &I::OnPauseRecording, &I::OnResumeRecording, &I::OnModifyConferenceMedia,
                      &I::OnModifyParticipantMedia, &I::OnSetSpeaker, &I::OnRegisterConfID,
                      &I::OnRegisterAllConferences, &I::OnAddScenario, &I::OnUpdateScenario,
                      &I::OnRemoveScenario, &I::OnJoinAccept, &I::OnJoinReject,
                      &I::OnActivateAttendant, &I::OnSendEndpointTopology, &I::OnReportError),
              consecutive(kFirstAfterDestructor, 36));
  }
  {
    using I = PsToCcInterface;
    EXPECT_EQ(
        slotsOf(&I::AddParticipant, &I::UpdateUserInfo, &I::RemoveParticipant, &I::SetupConference,
                &I::CloseConference, &I::StartConference, &I::StopConference, &I::PauseConference,
                &I::ResumeConference, &I::StartRecording, &I::StopRecording, &I::PauseRecording,
                &I::ResumeRecording, &I::ModifyConferenceMedia, &I::ModifyParticipantMedia,
                &I::SetSpeaker, &I::RegisterConfID, &I::RegisterAllConferences, &I::AddScenario,
                &I::UpdateScenario, &I::RemoveScenario, &I::JoinAccept, &I::JoinReject,
                &I::ActivateAttendant, &I::SendEndpointTopology, &I::ReportError,
                &I::OnJoinConference, &I::OnActivateParticipant, &I::OnParticipantLeft,
                &I::OnHoldParticipant, &I::OnForwardParticipant, &I::OnGetEndpointTopology,
                &I::OnRecordingTerminated, &I::OnInitiateConferenceServer, &I::OnSuccess,
                &I::OnReportError),
        consecutive(kFirstAfterDestructor, 36));
  }
}

// The messengers' own virtuals extend the table of their first polymorphic base,
// BothToPsInterface, after its 22 operations.
TEST(SlotOrder, MessengersOwnOperationsFollowTheSharedInterface) {
  const std::ptrdiff_t own = kFirstAfterDestructor + 22;
  {
    using M = CCToPSMessenger;
    EXPECT_EQ(slotsOf(static_cast<int (M::*)(const unsigned long long&, ConfServError, bool)>(
                          &M::ReportError),
                      &M::PeerConnected, &M::PeerDisconnected, &M::PSPeerConnected,
                      &M::PSPeerDisConnected, &M::WaitForMessageAndDispatch,
                      &M::ProcessMessageFromQueue, &M::SendMessage, &M::DispatchMessage, &M::Error),
              consecutive(own, 10));
  }
  {
    using M = CGIToPSMessenger;
    EXPECT_EQ(slotsOf(&M::PeerConnected, &M::PeerDisconnected, &M::WaitForMessageAndDispatch,
                      &M::ProcessMessageFromQueue, &M::SendMessage, &M::DispatchMessage, &M::Error),
              consecutive(own, 7));
  }
}

// The operations of the queue that the messengers call, at the positions they call them.
TEST(SlotOrder, QueueOperationsTheMessengersCall) {
  using Q = CyclicMessageQueue;
  EXPECT_EQ(slotsOf(&Q::Send, &Q::Receive, &Q::PeekMessage), consecutive(2, 3));
  EXPECT_EQ(slotsOf(&Q::IsPartyOnline), consecutive(9, 1));
  EXPECT_EQ(slotsOf(&Q::IsConnected), consecutive(12, 1));
}

}  // namespace
