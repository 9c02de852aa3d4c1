// The control messages that both links carry with the same number and payload: one declaration
// each (see message.h), used by both messengers' sending bodies and receiving tables.
#pragma once

#include <array>

#include <conflink/messaging/message.h>
#include <conflink/messaging/shared_interfaces.h>
#include <conflink/records/records.h>

namespace conflink::msg {

template <>
struct Counterpart<BothToPsInterface> {
  using type = PsToBothInterface;
  static constexpr const char* kFrom = "CC or CGI";
  static constexpr const char* kTo = "PS";
};
template <>
struct Counterpart<PsToBothInterface> {
  using type = BothToPsInterface;
  static constexpr const char* kFrom = "PS";
  static constexpr const char* kTo = "CC or CGI";
};

// Requests of either client (call control or the web front end) to the server.
namespace both_to_ps {
using B = BothToPsInterface;
using P = PsToBothInterface;
inline constexpr Message<2, &B::AddParticipant, &P::OnAddParticipant> kAddParticipant{
    "AddParticipant"};
inline constexpr Message<3, &B::DialOut, &P::OnDialOut> kDialOut{"DialOut"};
inline constexpr Message<4, &B::DeleteParticipant, &P::OnDeleteParticipant> kDeleteParticipant{
    "DeleteParticipant"};
inline constexpr Message<5, &B::SetSpeaker, &P::OnSetSpeaker> kSetSpeaker{"SetSpeaker"};
inline constexpr Message<6, &B::StartLectureMode, &P::OnStartLectureMode> kStartLectureMode{
    "StartLectureMode"};
inline constexpr Message<7, &B::RequestToSpeak, &P::OnRequestToSpeak> kRequestToSpeak{
    "RequestToSpeak"};
inline constexpr Message<12, &B::AuthorizationRequest, &P::OnAuthorizationRequest>
    kAuthorizationRequest{"AuthorizationRequest"};
inline constexpr Message<14, &B::StartConference, &P::OnStartConference> kStartConference{
    "StartConference"};
inline constexpr Message<15, &B::StopConference, &P::OnStopConference> kStopConference{
    "StopConference"};
inline constexpr Message<16, &B::RequestStartRecording, &P::OnRequestStartRecording>
    kRequestStartRecording{"RequestStartRecording"};
inline constexpr Message<17, &B::RequestStopRecording, &P::OnRequestStopRecording>
    kRequestStopRecording{"RequestStopRecording"};
inline constexpr Message<18, &B::RequestPauseRecording, &P::OnRequestPauseRecording>
    kRequestPauseRecording{"RequestPauseRecording"};
inline constexpr Message<19, &B::RequestResumeRecording, &P::OnRequestResumeRecording>
    kRequestResumeRecording{"RequestResumeRecording"};
inline constexpr Message<21, &B::InitiateDialOut, &P::OnInitiateDialOut> kInitiateDialOut{
    "InitiateDialOut"};
inline constexpr Message<22, &B::LockConference, &P::OnLockConference> kLockConference{
    "LockConference"};
inline constexpr Message<56, &B::GetConferenceParam, &P::OnGetConferenceParam> kGetConferenceParam{
    "GetConferenceParam"};
}  // namespace both_to_ps

// The server's shared replies to either client.
namespace ps_to_both {
using B = BothToPsInterface;
using P = PsToBothInterface;
inline constexpr Message<258, &P::Success, &B::OnSuccess> kSuccess{"Success"};
inline constexpr Message<259, &P::Reject, &B::OnReject> kReject{"Reject"};
// Sent with an empty payload; clients accept it and call no handler.
inline constexpr Message<260, &P::ModeratorApprovalNeeded, &B::OnModeratorApprovalNeeded,
                         form::Empty>
    kModeratorApprovalNeeded{"ModeratorApprovalNeeded"};
inline constexpr Message<261, &P::AuthorizationPassed, &B::OnAuthorizationPassed>
    kAuthorizationPassed{"AuthorizationPassed"};
inline constexpr Message<262, &P::ConferenceLocked, &B::OnConferenceLocked> kConferenceLocked{
    "ConferenceLocked"};
inline constexpr Message<278, &P::SendConferenceParam, &B::OnSendConferenceParam, form::SizedBlock>
    kSendConferenceParam{"SendConferenceParam"};
}  // namespace ps_to_both

// What both messengers' receiving tables hold in common.
template <class M>
constexpr auto sharedEntries() {
  namespace req = both_to_ps;
  namespace rep = ps_to_both;
  return std::array{
      on<M>(req::kAddParticipant),
      on<M>(req::kDialOut),
      on<M>(req::kDeleteParticipant),
      on<M>(req::kSetSpeaker),
      on<M>(req::kStartLectureMode),
      on<M>(req::kRequestToSpeak),
      on<M>(req::kAuthorizationRequest),
      on<M>(req::kStartConference),
      on<M>(req::kStopConference),
      on<M>(req::kRequestStartRecording),
      on<M>(req::kRequestStopRecording),
      on<M>(req::kRequestPauseRecording),
      on<M>(req::kRequestResumeRecording),
      on<M>(req::kInitiateDialOut),
      on<M>(req::kLockConference),
      on<M>(req::kGetConferenceParam),
      on<M>(rep::kSuccess),
      on<M>(rep::kReject),
      on<M>(rep::kModeratorApprovalNeeded),
      on<M>(rep::kAuthorizationPassed),
      on<M>(rep::kConferenceLocked),
      on<M>(rep::kSendConferenceParam),
  };
}

}  // namespace conflink::msg
