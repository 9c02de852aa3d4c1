// Definitions of SharedClientControl and SharedServerControl, included by each messenger's source,
// which instantiates it.
#pragma once

#include <conflink/messaging/shared_control.h>
#include <conflink/messaging/shared_messages.h>

// Each body hands its message's declaration and its own arguments to conflink::msg::send, found
// through the declaration's namespace.

// ---- Requests of a client to the server, and the server's shared replies ----

template <class Messenger>
int SharedClientControl<Messenger>::AddParticipant(const unsigned long long& id,
                                                   const ConfIDString& conf,
                                                   const unsigned long long& party,
                                                   const ConferenceUser& user) {
  return send(self(), conflink::msg::both_to_ps::kAddParticipant, id, conf, party, user);
}

template <class Messenger>
int SharedClientControl<Messenger>::DialOut(const unsigned long long& id, const ConfIDString& conf,
                                            const unsigned long long& party) {
  return send(self(), conflink::msg::both_to_ps::kDialOut, id, conf, party);
}

template <class Messenger>
int SharedClientControl<Messenger>::DeleteParticipant(const unsigned long long& id,
                                                      const ConfIDString& conf,
                                                      const unsigned long long& party,
                                                      const unsigned long long& other) {
  return send(self(), conflink::msg::both_to_ps::kDeleteParticipant, id, conf, party, other);
}

template <class Messenger>
int SharedClientControl<Messenger>::SetSpeaker(const unsigned long long& id,
                                               const ConfIDString& conf,
                                               const unsigned long long& party,
                                               const unsigned long long& other, bool on) {
  return send(self(), conflink::msg::both_to_ps::kSetSpeaker, id, conf, party, other, on);
}

template <class Messenger>
int SharedClientControl<Messenger>::StartLectureMode(const unsigned long long& id,
                                                     const ConfIDString& conf,
                                                     const unsigned long long& party,
                                                     const unsigned long long& other) {
  return send(self(), conflink::msg::both_to_ps::kStartLectureMode, id, conf, party, other);
}

template <class Messenger>
int SharedClientControl<Messenger>::RequestToSpeak(const unsigned long long& id,
                                                   const ConfIDString& conf,
                                                   const unsigned long long& party, bool on) {
  return send(self(), conflink::msg::both_to_ps::kRequestToSpeak, id, conf, party, on);
}

template <class Messenger>
int SharedClientControl<Messenger>::AuthorizationRequest(const unsigned long long& id,
                                                         const ConfIDString& conf,
                                                         const unsigned long long& party,
                                                         const std::string& text) {
  return send(self(), conflink::msg::both_to_ps::kAuthorizationRequest, id, conf, party, text);
}

template <class Messenger>
int SharedClientControl<Messenger>::StartConference(const unsigned long long& id,
                                                    const ConfIDString& conf,
                                                    const unsigned long long& party) {
  return send(self(), conflink::msg::both_to_ps::kStartConference, id, conf, party);
}

template <class Messenger>
int SharedClientControl<Messenger>::StopConference(const unsigned long long& id,
                                                   const ConfIDString& conf,
                                                   const unsigned long long& party) {
  return send(self(), conflink::msg::both_to_ps::kStopConference, id, conf, party);
}

template <class Messenger>
int SharedClientControl<Messenger>::RequestStartRecording(const unsigned long long& id,
                                                          const ConfIDString& conf,
                                                          const unsigned long long& party) {
  return send(self(), conflink::msg::both_to_ps::kRequestStartRecording, id, conf, party);
}

template <class Messenger>
int SharedClientControl<Messenger>::RequestStopRecording(const unsigned long long& id,
                                                         const ConfIDString& conf,
                                                         const unsigned long long& party) {
  return send(self(), conflink::msg::both_to_ps::kRequestStopRecording, id, conf, party);
}

template <class Messenger>
int SharedClientControl<Messenger>::RequestPauseRecording(const unsigned long long& id,
                                                          const ConfIDString& conf,
                                                          const unsigned long long& party) {
  return send(self(), conflink::msg::both_to_ps::kRequestPauseRecording, id, conf, party);
}

template <class Messenger>
int SharedClientControl<Messenger>::RequestResumeRecording(const unsigned long long& id,
                                                           const ConfIDString& conf,
                                                           const unsigned long long& party) {
  return send(self(), conflink::msg::both_to_ps::kRequestResumeRecording, id, conf, party);
}

template <class Messenger>
int SharedClientControl<Messenger>::InitiateDialOut(const unsigned long long& id,
                                                    const ConfIDString& conf,
                                                    const unsigned long long& party, bool on) {
  return send(self(), conflink::msg::both_to_ps::kInitiateDialOut, id, conf, party, on);
}

template <class Messenger>
int SharedClientControl<Messenger>::LockConference(const unsigned long long& id,
                                                   const ConfIDString& conf,
                                                   const unsigned long long& party, bool on) {
  return send(self(), conflink::msg::both_to_ps::kLockConference, id, conf, party, on);
}

template <class Messenger>
int SharedClientControl<Messenger>::GetConferenceParam(const unsigned long long& id,
                                                       const ConfIDString& conf,
                                                       ConferenceParamType param) {
  return send(self(), conflink::msg::both_to_ps::kGetConferenceParam, id, conf, param);
}

template <class Messenger>
int SharedServerControl<Messenger>::Success(const unsigned long long& id, PSSuccessType result) {
  return send(self(), conflink::msg::ps_to_both::kSuccess, id, result);
}

template <class Messenger>
int SharedServerControl<Messenger>::Reject(const unsigned long long& id, RejectReason reason) {
  return send(self(), conflink::msg::ps_to_both::kReject, id, reason);
}

// The id does not travel: the reply goes with an empty payload.
template <class Messenger>
int SharedServerControl<Messenger>::ModeratorApprovalNeeded(const unsigned long long& id) {
  return send(self(), conflink::msg::ps_to_both::kModeratorApprovalNeeded, id);
}

template <class Messenger>
int SharedServerControl<Messenger>::AuthorizationPassed(const unsigned long long& id,
                                                        const unsigned long long& party, bool first,
                                                        bool second) {
  return send(self(), conflink::msg::ps_to_both::kAuthorizationPassed, id, party, first, second);
}

template <class Messenger>
int SharedServerControl<Messenger>::ConferenceLocked(const unsigned long long& id, bool locked) {
  return send(self(), conflink::msg::ps_to_both::kConferenceLocked, id, locked);
}

// The size, then exactly that many bytes from `data`, with no prefix of their own.
template <class Messenger>
int SharedServerControl<Messenger>::SendConferenceParam(const unsigned long long& id,
                                                        ConferenceParamType param,
                                                        unsigned int size, const void* data) {
  return send(self(), conflink::msg::ps_to_both::kSendConferenceParam, id, param, size, data);
}
