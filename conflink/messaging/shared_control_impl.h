// Definitions of SharedControl, included by each messenger's source, which instantiates it.
#pragma once

#include <conflink/messaging/messenger_support.h>
#include <conflink/messaging/shared_catalogue.h>
#include <conflink/messaging/shared_control.h>
#include <conflink/records/records.h>

// ---- Requests of a client to the server, and the server's shared replies ----

template <class Messenger>
int SharedControl<Messenger>::AddParticipant(const unsigned long long& id, const ConfIDString& conf,
                                             const unsigned long long& party,
                                             const ConferenceUser& user) {
  return conflink::send(self(), conflink::msg::both_to_ps::kAddParticipant, id, conf, party, user);
}

template <class Messenger>
int SharedControl<Messenger>::DialOut(const unsigned long long& id, const ConfIDString& conf,
                                      const unsigned long long& party) {
  return conflink::send(self(), conflink::msg::both_to_ps::kDialOut, id, conf, party);
}

template <class Messenger>
int SharedControl<Messenger>::DeleteParticipant(const unsigned long long& id,
                                                const ConfIDString& conf,
                                                const unsigned long long& party,
                                                const unsigned long long& other) {
  return conflink::send(self(), conflink::msg::both_to_ps::kDeleteParticipant, id, conf, party,
                        other);
}

template <class Messenger>
int SharedControl<Messenger>::SetSpeaker(const unsigned long long& id, const ConfIDString& conf,
                                         const unsigned long long& party,
                                         const unsigned long long& other, bool on) {
  return conflink::send(self(), conflink::msg::both_to_ps::kSetSpeaker, id, conf, party, other, on);
}

template <class Messenger>
int SharedControl<Messenger>::StartLectureMode(const unsigned long long& id,
                                               const ConfIDString& conf,
                                               const unsigned long long& party,
                                               const unsigned long long& other) {
  return conflink::send(self(), conflink::msg::both_to_ps::kStartLectureMode, id, conf, party,
                        other);
}

template <class Messenger>
int SharedControl<Messenger>::RequestToSpeak(const unsigned long long& id, const ConfIDString& conf,
                                             const unsigned long long& party, bool on) {
  return conflink::send(self(), conflink::msg::both_to_ps::kRequestToSpeak, id, conf, party, on);
}

template <class Messenger>
int SharedControl<Messenger>::AuthorizationRequest(const unsigned long long& id,
                                                   const ConfIDString& conf,
                                                   const unsigned long long& party,
                                                   const std::string& text) {
  return conflink::send(self(), conflink::msg::both_to_ps::kAuthorizationRequest, id, conf, party,
                        text);
}

template <class Messenger>
int SharedControl<Messenger>::StartConference(const unsigned long long& id,
                                              const ConfIDString& conf,
                                              const unsigned long long& party) {
  return conflink::send(self(), conflink::msg::both_to_ps::kStartConference, id, conf, party);
}

template <class Messenger>
int SharedControl<Messenger>::StopConference(const unsigned long long& id, const ConfIDString& conf,
                                             const unsigned long long& party) {
  return conflink::send(self(), conflink::msg::both_to_ps::kStopConference, id, conf, party);
}

template <class Messenger>
int SharedControl<Messenger>::RequestStartRecording(const unsigned long long& id,
                                                    const ConfIDString& conf,
                                                    const unsigned long long& party) {
  return conflink::send(self(), conflink::msg::both_to_ps::kRequestStartRecording, id, conf, party);
}

template <class Messenger>
int SharedControl<Messenger>::RequestStopRecording(const unsigned long long& id,
                                                   const ConfIDString& conf,
                                                   const unsigned long long& party) {
  return conflink::send(self(), conflink::msg::both_to_ps::kRequestStopRecording, id, conf, party);
}

template <class Messenger>
int SharedControl<Messenger>::RequestPauseRecording(const unsigned long long& id,
                                                    const ConfIDString& conf,
                                                    const unsigned long long& party) {
  return conflink::send(self(), conflink::msg::both_to_ps::kRequestPauseRecording, id, conf, party);
}

template <class Messenger>
int SharedControl<Messenger>::RequestResumeRecording(const unsigned long long& id,
                                                     const ConfIDString& conf,
                                                     const unsigned long long& party) {
  return conflink::send(self(), conflink::msg::both_to_ps::kRequestResumeRecording, id, conf,
                        party);
}

template <class Messenger>
int SharedControl<Messenger>::InitiateDialOut(const unsigned long long& id,
                                              const ConfIDString& conf,
                                              const unsigned long long& party, bool on) {
  return conflink::send(self(), conflink::msg::both_to_ps::kInitiateDialOut, id, conf, party, on);
}

template <class Messenger>
int SharedControl<Messenger>::LockConference(const unsigned long long& id, const ConfIDString& conf,
                                             const unsigned long long& party, bool on) {
  return conflink::send(self(), conflink::msg::both_to_ps::kLockConference, id, conf, party, on);
}

template <class Messenger>
int SharedControl<Messenger>::GetConferenceParam(const unsigned long long& id,
                                                 const ConfIDString& conf,
                                                 ConferenceParamType param) {
  return conflink::send(self(), conflink::msg::both_to_ps::kGetConferenceParam, id, conf, param);
}

template <class Messenger>
int SharedControl<Messenger>::Success(const unsigned long long& id, PSSuccessType result) {
  return conflink::send(self(), conflink::msg::ps_to_both::kSuccess, id, result);
}

template <class Messenger>
int SharedControl<Messenger>::Reject(const unsigned long long& id, RejectReason reason) {
  return conflink::send(self(), conflink::msg::ps_to_both::kReject, id, reason);
}

// The id does not travel: the reply goes with an empty payload.
template <class Messenger>
int SharedControl<Messenger>::ModeratorApprovalNeeded(const unsigned long long&) {
  return conflink::send(self(), conflink::msg::ps_to_both::kModeratorApprovalNeeded);
}

template <class Messenger>
int SharedControl<Messenger>::AuthorizationPassed(const unsigned long long& id,
                                                  const unsigned long long& party, bool first,
                                                  bool second) {
  return conflink::send(self(), conflink::msg::ps_to_both::kAuthorizationPassed, id, party, first,
                        second);
}

template <class Messenger>
int SharedControl<Messenger>::ConferenceLocked(const unsigned long long& id, bool locked) {
  return conflink::send(self(), conflink::msg::ps_to_both::kConferenceLocked, id, locked);
}

// The size, then exactly that many bytes from `data`, with no prefix of their own.
template <class Messenger>
int SharedControl<Messenger>::SendConferenceParam(const unsigned long long& id,
                                                  ConferenceParamType param, unsigned int size,
                                                  const void* data) {
  return conflink::send(self(), conflink::msg::ps_to_both::kSendConferenceParam, id, param, size,
                        conflink::wire::RawBytes{data, size});
}

// ---- Default handlers ----

template <class Messenger>
int SharedControl<Messenger>::OnSuccess(const unsigned long long&, PSSuccessType) {
  return 0;
}

template <class Messenger>
int SharedControl<Messenger>::OnReject(const unsigned long long&, RejectReason) {
  return 0;
}

template <class Messenger>
int SharedControl<Messenger>::OnModeratorApprovalNeeded(const unsigned long long&) {
  return 0;
}

template <class Messenger>
int SharedControl<Messenger>::OnAuthorizationPassed(const unsigned long long&,
                                                    const unsigned long long&, bool, bool) {
  return 0;
}

template <class Messenger>
int SharedControl<Messenger>::OnConferenceLocked(const unsigned long long&, bool) {
  return 0;
}

template <class Messenger>
int SharedControl<Messenger>::OnSendConferenceParam(const unsigned long long&, ConferenceParamType,
                                                    unsigned int, const void*) {
  return 0;
}

template <class Messenger>
int SharedControl<Messenger>::OnAddParticipant(const unsigned long long&, const ConfIDString&,
                                               const unsigned long long&, const ConferenceUser&,
                                               PSProtocolType) {
  return 0;
}

template <class Messenger>
int SharedControl<Messenger>::OnDialOut(const unsigned long long&, const ConfIDString&,
                                        const unsigned long long&, PSProtocolType) {
  return 0;
}

template <class Messenger>
int SharedControl<Messenger>::OnDeleteParticipant(const unsigned long long&, const ConfIDString&,
                                                  const unsigned long long&,
                                                  const unsigned long long&, PSProtocolType) {
  return 0;
}

template <class Messenger>
int SharedControl<Messenger>::OnSetSpeaker(const unsigned long long&, const ConfIDString&,
                                           const unsigned long long&, const unsigned long long&,
                                           bool, PSProtocolType) {
  return 0;
}

template <class Messenger>
int SharedControl<Messenger>::OnStartLectureMode(const unsigned long long&, const ConfIDString&,
                                                 const unsigned long long&,
                                                 const unsigned long long&, PSProtocolType) {
  return 0;
}

template <class Messenger>
int SharedControl<Messenger>::OnRequestToSpeak(const unsigned long long&, const ConfIDString&,
                                               const unsigned long long&, bool, PSProtocolType) {
  return 0;
}

template <class Messenger>
int SharedControl<Messenger>::OnAuthorizationRequest(const unsigned long long&, const ConfIDString&,
                                                     const unsigned long long&, const std::string&,
                                                     PSProtocolType) {
  return 0;
}

template <class Messenger>
int SharedControl<Messenger>::OnStartConference(const unsigned long long&, const ConfIDString&,
                                                const unsigned long long&, PSProtocolType) {
  return 0;
}

template <class Messenger>
int SharedControl<Messenger>::OnStopConference(const unsigned long long&, const ConfIDString&,
                                               const unsigned long long&, PSProtocolType) {
  return 0;
}

template <class Messenger>
int SharedControl<Messenger>::OnRequestStartRecording(const unsigned long long&,
                                                      const ConfIDString&,
                                                      const unsigned long long&, PSProtocolType) {
  return 0;
}

template <class Messenger>
int SharedControl<Messenger>::OnRequestStopRecording(const unsigned long long&, const ConfIDString&,
                                                     const unsigned long long&, PSProtocolType) {
  return 0;
}

template <class Messenger>
int SharedControl<Messenger>::OnRequestPauseRecording(const unsigned long long&,
                                                      const ConfIDString&,
                                                      const unsigned long long&, PSProtocolType) {
  return 0;
}

template <class Messenger>
int SharedControl<Messenger>::OnRequestResumeRecording(const unsigned long long&,
                                                       const ConfIDString&,
                                                       const unsigned long long&, PSProtocolType) {
  return 0;
}

template <class Messenger>
int SharedControl<Messenger>::OnInitiateDialOut(const unsigned long long&, const ConfIDString&,
                                                const unsigned long long&, bool, PSProtocolType) {
  return 0;
}

template <class Messenger>
int SharedControl<Messenger>::OnLockConference(const unsigned long long&, const ConfIDString&,
                                               const unsigned long long&, bool, PSProtocolType) {
  return 0;
}

template <class Messenger>
int SharedControl<Messenger>::OnGetConferenceParam(const unsigned long long&, const ConfIDString&,
                                                   ConferenceParamType, PSProtocolType) {
  return 0;
}
