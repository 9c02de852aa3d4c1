// The receiving side of the control messages both links carry: one list of dispatch entries
// that each messenger's table takes in whole.
#pragma once

#include <array>
#include <cstring>
#include <memory>

#include <conflink/messaging/dispatch.h>
#include <conflink/messaging/role_interfaces.h>
#include <conflink/messaging/shared_catalogue.h>
#include <conflink/records/records.h>

namespace conflink::dispatch {

// The opaque parameter block of SendConferenceParam: its size travels before it, so it is copied
// into a block of size + 1 bytes (never null, even for size 0) that lives while the handler runs.
// The size is checked against the payload before anything is allocated.
template <class M>
bool decodeSendConferenceParam(M& m, wire::Reader& r, PSProtocolType) {
  const unsigned long long id = r.u64();
  const auto param = static_cast<ConferenceParamType>(r.i32());
  const uint32_t size = r.u32();
  const char* bytes = r.bytes(size);
  if (!r.ok()) return false;
  std::unique_ptr<char[]> block(new char[static_cast<size_t>(size) + 1]);
  if (size != 0) std::memcpy(block.get(), bytes, size);
  static_cast<BothToPsInterface&>(m).OnSendConferenceParam(id, param, size, block.get());
  return true;
}

template <class M>
constexpr std::array<Entry<M>, 22> sharedEntries() {
  namespace req = msg::both_to_ps;
  namespace rep = msg::ps_to_both;
  return {{
      // Requests of either client, to the server's handlers (with the link they came on).
      on<&PsToBothInterface::OnAddParticipant, M>(req::kAddParticipant, "AddParticipant"),
      on<&PsToBothInterface::OnDialOut, M>(req::kDialOut, "DialOut"),
      on<&PsToBothInterface::OnDeleteParticipant, M>(req::kDeleteParticipant, "DeleteParticipant"),
      on<&PsToBothInterface::OnSetSpeaker, M>(req::kSetSpeaker, "SetSpeaker"),
      on<&PsToBothInterface::OnStartLectureMode, M>(req::kStartLectureMode, "StartLectureMode"),
      on<&PsToBothInterface::OnRequestToSpeak, M>(req::kRequestToSpeak, "RequestToSpeak"),
      on<&PsToBothInterface::OnAuthorizationRequest, M>(req::kAuthorizationRequest,
                                                        "AuthorizationRequest"),
      on<&PsToBothInterface::OnStartConference, M>(req::kStartConference, "StartConference"),
      on<&PsToBothInterface::OnStopConference, M>(req::kStopConference, "StopConference"),
      on<&PsToBothInterface::OnRequestStartRecording, M>(req::kRequestStartRecording,
                                                         "RequestStartRecording"),
      on<&PsToBothInterface::OnRequestStopRecording, M>(req::kRequestStopRecording,
                                                        "RequestStopRecording"),
      on<&PsToBothInterface::OnRequestPauseRecording, M>(req::kRequestPauseRecording,
                                                         "RequestPauseRecording"),
      on<&PsToBothInterface::OnRequestResumeRecording, M>(req::kRequestResumeRecording,
                                                          "RequestResumeRecording"),
      on<&PsToBothInterface::OnInitiateDialOut, M>(req::kInitiateDialOut, "InitiateDialOut"),
      on<&PsToBothInterface::OnLockConference, M>(req::kLockConference, "LockConference"),
      on<&PsToBothInterface::OnGetConferenceParam, M>(req::kGetConferenceParam,
                                                      "GetConferenceParam"),
      // The server's shared replies, to the client's handlers.
      on<&BothToPsInterface::OnSuccess, M>(rep::kSuccess, "Success"),
      on<&BothToPsInterface::OnReject, M>(rep::kReject, "Reject"),
      drop<M>(rep::kModeratorApprovalNeeded, "ModeratorApprovalNeeded"),
      on<&BothToPsInterface::OnAuthorizationPassed, M>(rep::kAuthorizationPassed,
                                                       "AuthorizationPassed"),
      on<&BothToPsInterface::OnConferenceLocked, M>(rep::kConferenceLocked, "ConferenceLocked"),
      Entry<M>{rep::kSendConferenceParam, {"SendConferenceParam", &decodeSendConferenceParam<M>}},
  }};
}

}  // namespace conflink::dispatch
