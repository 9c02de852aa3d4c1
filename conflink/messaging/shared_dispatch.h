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

// The payload of SendConferenceParam: the block's size travels before it, and the block is
// viewed in place; reading checks the size against the payload.
struct ConferenceParamBlock {
  unsigned long long id = 0;
  ConferenceParamType param{};
  uint32_t size = 0;
  const char* bytes = nullptr;

  bool read(wire::Reader& r) {
    id = r.u64();
    param = static_cast<ConferenceParamType>(r.i32());
    size = r.u32();
    bytes = r.bytes(size);
    return r.ok();
  }
};

// The handler gets a copy of the block in size + 1 bytes (never null, even for size 0) that lives
// while it runs. Nothing is allocated before the size has been checked.
template <class M>
bool decodeSendConferenceParam(M& m, wire::Reader& r, PSProtocolType) {
  ConferenceParamBlock p;
  if (!p.read(r)) return false;
  std::unique_ptr<char[]> block(new char[static_cast<size_t>(p.size) + 1]);
  if (p.size != 0) std::memcpy(block.get(), p.bytes, p.size);
  static_cast<BothToPsInterface&>(m).OnSendConferenceParam(p.id, p.param, p.size, block.get());
  return true;
}

// The same message as text, the block as hex.
inline bool renderSendConferenceParam(wire::Reader& r, std::string& out) {
  ConferenceParamBlock p;
  if (!p.read(r)) return false;
  wire::TextList::arguments(out)(p.id)(p.param)(p.size)(wire::RawBytes{p.bytes, p.size});
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
      Entry<M>{rep::kSendConferenceParam,
               {"SendConferenceParam", &decodeSendConferenceParam<M>, &renderSendConferenceParam}},
  }};
}

}  // namespace conflink::dispatch
