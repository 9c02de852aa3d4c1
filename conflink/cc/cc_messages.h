// The messages of the link between call control and the server: one declaration each (see
// messaging/message.h), used by the messenger's sending bodies and its receiving table.
#pragma once

#include <conflink/cc/cc_interfaces.h>
#include <conflink/cc/cc_to_ps_messenger.h>
#include <conflink/messaging/message.h>
#include <conflink/records/records.h>

namespace conflink::msg {

template <>
struct Counterpart<CcToPsInterface> {
  using type = PsToCcInterface;
  static constexpr const char* kFrom = "CC";
  static constexpr const char* kTo = "PS";
};
template <>
struct Counterpart<PsToCcInterface> {
  using type = CcToPsInterface;
  static constexpr const char* kFrom = "PS";
  static constexpr const char* kTo = "CC";
};

// The messenger's own three-argument ReportError (263) reaches call control's handler.
template <>
struct Counterpart<CCToPSMessenger> {
  using type = CcToPsInterface;
  static constexpr const char* kFrom = "PS";
  static constexpr const char* kTo = "CC";
};

// Call control to the server.
namespace cc_to_ps {
using C = CcToPsInterface;
using P = PsToCcInterface;
inline constexpr Message<0, &C::JoinConference, &P::OnJoinConference> kJoinConference{
    "JoinConference"};
inline constexpr Message<1, &C::ActivateParticipant, &P::OnActivateParticipant>
    kActivateParticipant{"ActivateParticipant"};
inline constexpr Message<8, &C::ParticipantLeft, &P::OnParticipantLeft> kParticipantLeft{
    "ParticipantLeft"};
inline constexpr Message<9, &C::HoldParticipant, &P::OnHoldParticipant> kHoldParticipant{
    "HoldParticipant"};
inline constexpr Message<10, &C::ForwardParticipant, &P::OnForwardParticipant> kForwardParticipant{
    "ForwardParticipant"};
inline constexpr Message<11, &C::GetEndpointTopology, &P::OnGetEndpointTopology>
    kGetEndpointTopology{"GetEndpointTopology"};
inline constexpr Message<20, &C::RecordingTerminated, &P::OnRecordingTerminated>
    kRecordingTerminated{"RecordingTerminated"};
inline constexpr Message<70, &C::InitiateConferenceServer, &P::OnInitiateConferenceServer>
    kInitiateConferenceServer{"InitiateConferenceServer"};
inline constexpr Message<112, &C::Success, &P::OnSuccess> kSuccess{"Success"};
// Sent by either end: the two interfaces declare one operation and one handler.
inline constexpr Message<113, &C::ReportError, &P::OnReportError> kReportError{"ReportError"};
}  // namespace cc_to_ps

// The server to call control.
namespace ps_to_cc {
using C = CcToPsInterface;
using P = PsToCcInterface;
inline constexpr Message<128, &P::AddParticipant, &C::OnAddParticipant> kAddParticipant{
    "AddParticipant"};
inline constexpr Message<129, &P::UpdateUserInfo, &C::OnUpdateUserInfo> kUpdateUserInfo{
    "UpdateUserInfo"};
inline constexpr Message<130, &P::RemoveParticipant, &C::OnRemoveParticipant> kRemoveParticipant{
    "RemoveParticipant"};
inline constexpr Message<131, &P::SetupConference, &C::OnSetupConference> kSetupConference{
    "SetupConference"};
inline constexpr Message<132, &P::CloseConference, &C::OnCloseConference> kCloseConference{
    "CloseConference"};
inline constexpr Message<133, &P::StartConference, &C::OnStartConference> kStartConference{
    "StartConference"};
inline constexpr Message<134, &P::StopConference, &C::OnStopConference> kStopConference{
    "StopConference"};
inline constexpr Message<135, &P::PauseConference, &C::OnPauseConference, form::Empty>
    kPauseConference{"PauseConference"};
inline constexpr Message<136, &P::ResumeConference, &C::OnResumeConference, form::Empty>
    kResumeConference{"ResumeConference"};
inline constexpr Message<137, &P::StartRecording, &C::OnStartRecording> kStartRecording{
    "StartRecording"};
inline constexpr Message<138, &P::StopRecording, &C::OnStopRecording> kStopRecording{
    "StopRecording"};
inline constexpr Message<139, &P::PauseRecording, &C::OnPauseRecording> kPauseRecording{
    "PauseRecording"};
inline constexpr Message<140, &P::ResumeRecording, &C::OnResumeRecording> kResumeRecording{
    "ResumeRecording"};
inline constexpr Message<141, &P::ModifyConferenceMedia, &C::OnModifyConferenceMedia>
    kModifyConferenceMedia{"ModifyConferenceMedia"};
inline constexpr Message<142, &P::ModifyParticipantMedia, &C::OnModifyParticipantMedia, form::Empty>
    kModifyParticipantMedia{"ModifyParticipantMedia"};
inline constexpr Message<143, &P::SetSpeaker, &C::OnSetSpeaker> kSetSpeaker{"SetSpeaker"};
inline constexpr Message<144, &P::RegisterConfID, &C::OnRegisterConfID> kRegisterConfID{
    "RegisterConfID"};
inline constexpr Message<145, &P::RegisterAllConferences, &C::OnRegisterAllConferences>
    kRegisterAllConferences{"RegisterAllConferences"};
inline constexpr Message<146, &P::AddScenario, &C::OnAddScenario> kAddScenario{"AddScenario"};
inline constexpr Message<147, &P::UpdateScenario, &C::OnUpdateScenario> kUpdateScenario{
    "UpdateScenario"};
inline constexpr Message<148, &P::RemoveScenario, &C::OnRemoveScenario> kRemoveScenario{
    "RemoveScenario"};
inline constexpr Message<256, &P::JoinAccept, &C::OnJoinAccept> kJoinAccept{"JoinAccept"};
inline constexpr Message<257, &P::JoinReject, &C::OnJoinReject> kJoinReject{"JoinReject"};
inline constexpr Message<288, &P::ActivateAttendant, &C::OnActivateAttendant> kActivateAttendant{
    "ActivateAttendant"};
inline constexpr Message<264, &P::SendEndpointTopology, &C::OnSendEndpointTopology>
    kSendEndpointTopology{"SendEndpointTopology"};
// The messenger's own three-argument ReportError: its flag is accepted and not sent, and the
// report reaches the same handler as 113.
inline constexpr Message<
    263,
    static_cast<int (CCToPSMessenger::*)(const unsigned long long&, ConfServError, bool)>(
        &CCToPSMessenger::ReportError),
    &C::OnReportError, form::LastNotSent>
    kReportError{"ReportError"};
}  // namespace ps_to_cc

// Everything either end of the link receives: a messenger serves both ends, so one table holds
// both directions, and no number may serve two messages.
template <class M>
constexpr auto ccLinkEntries() {
  namespace up = cc_to_ps;
  namespace down = ps_to_cc;
  return std::array{
      on<M>(up::kJoinConference),
      on<M>(up::kActivateParticipant),
      on<M>(up::kParticipantLeft),
      on<M>(up::kHoldParticipant),
      on<M>(up::kForwardParticipant),
      on<M>(up::kGetEndpointTopology),
      on<M>(up::kRecordingTerminated),
      on<M>(up::kInitiateConferenceServer),
      on<M>(up::kSuccess),
      on<M>(up::kReportError),
      on<M>(down::kAddParticipant),
      on<M>(down::kUpdateUserInfo),
      on<M>(down::kRemoveParticipant),
      on<M>(down::kSetupConference),
      on<M>(down::kCloseConference),
      on<M>(down::kStartConference),
      on<M>(down::kStopConference),
      on<M>(down::kPauseConference),
      on<M>(down::kResumeConference),
      on<M>(down::kStartRecording),
      on<M>(down::kStopRecording),
      on<M>(down::kPauseRecording),
      on<M>(down::kResumeRecording),
      on<M>(down::kModifyConferenceMedia),
      on<M>(down::kModifyParticipantMedia),
      on<M>(down::kSetSpeaker),
      on<M>(down::kRegisterConfID),
      on<M>(down::kRegisterAllConferences),
      on<M>(down::kAddScenario),
      on<M>(down::kUpdateScenario),
      on<M>(down::kRemoveScenario),
      on<M>(down::kJoinAccept),
      on<M>(down::kJoinReject),
      on<M>(down::kActivateAttendant),
      on<M>(down::kSendEndpointTopology),
      on<M>(down::kReportError),
  };
}

}  // namespace conflink::msg
