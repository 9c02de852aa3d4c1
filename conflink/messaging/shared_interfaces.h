// The two role interfaces that both links share. Each role interface is one side's view of a
// link: first the operations that side sends, in the order of its message catalogue, then the
// handlers of what it receives, in the order of the other side's catalogue. The messengers
// combine them with their link's own pair (cc/cc_interfaces.h, cgi/cgi_interfaces.h); a process
// uses the interface of its role and overrides the handlers it cares about.
#pragma once

#include <string>

#include <conflink/messaging/types.h>
#include <conflink/records/call_records.h>
#include <conflink/records/config_records.h>

// What a client (call control or the web front end) sends to the server on either link, and the
// client's handlers of the server's shared replies.
class BothToPsInterface {
 public:
  virtual ~BothToPsInterface() = default;

  virtual int AddParticipant(const unsigned long long& id, const ConfIDString& conf,
                             const unsigned long long& party, const ConferenceUser& user) = 0;
  virtual int DialOut(const unsigned long long& id, const ConfIDString& conf,
                      const unsigned long long& party) = 0;
  virtual int DeleteParticipant(const unsigned long long& id, const ConfIDString& conf,
                                const unsigned long long& party,
                                const unsigned long long& other) = 0;
  virtual int SetSpeaker(const unsigned long long& id, const ConfIDString& conf,
                         const unsigned long long& party, const unsigned long long& other,
                         bool on) = 0;
  virtual int StartLectureMode(const unsigned long long& id, const ConfIDString& conf,
                               const unsigned long long& party,
                               const unsigned long long& other) = 0;
  virtual int RequestToSpeak(const unsigned long long& id, const ConfIDString& conf,
                             const unsigned long long& party, bool on) = 0;
  virtual int AuthorizationRequest(const unsigned long long& id, const ConfIDString& conf,
                                   const unsigned long long& party, const std::string& text) = 0;
  virtual int StartConference(const unsigned long long& id, const ConfIDString& conf,
                              const unsigned long long& party) = 0;
  virtual int StopConference(const unsigned long long& id, const ConfIDString& conf,
                             const unsigned long long& party) = 0;
  virtual int RequestStartRecording(const unsigned long long& id, const ConfIDString& conf,
                                    const unsigned long long& party) = 0;
  virtual int RequestStopRecording(const unsigned long long& id, const ConfIDString& conf,
                                   const unsigned long long& party) = 0;
  virtual int RequestPauseRecording(const unsigned long long& id, const ConfIDString& conf,
                                    const unsigned long long& party) = 0;
  virtual int RequestResumeRecording(const unsigned long long& id, const ConfIDString& conf,
                                     const unsigned long long& party) = 0;
  virtual int InitiateDialOut(const unsigned long long& id, const ConfIDString& conf,
                              const unsigned long long& party, bool on) = 0;
  virtual int LockConference(const unsigned long long& id, const ConfIDString& conf,
                             const unsigned long long& party, bool on) = 0;
  virtual int GetConferenceParam(const unsigned long long& id, const ConfIDString& conf,
                                 ConferenceParamType param) = 0;

  virtual int OnSuccess(const unsigned long long& id, PSSuccessType result) = 0;
  virtual int OnReject(const unsigned long long& id, RejectReason reason) = 0;
  // Never called: the reply travels without a payload and is dropped on receipt.
  virtual int OnModeratorApprovalNeeded(const unsigned long long& id) = 0;
  virtual int OnAuthorizationPassed(const unsigned long long& id, const unsigned long long& party,
                                    bool first, bool second) = 0;
  virtual int OnConferenceLocked(const unsigned long long& id, bool locked) = 0;
  // `data` points at `size` bytes (a block of size + 1, never null) that die when this returns.
  virtual int OnSendConferenceParam(const unsigned long long& id, ConferenceParamType param,
                                    unsigned int size, const void* data) = 0;
};

// The server's shared replies, and its handlers of the requests both clients send.
class PsToBothInterface {
 public:
  virtual ~PsToBothInterface() = default;

  virtual int Success(const unsigned long long& id, PSSuccessType result) = 0;
  virtual int Reject(const unsigned long long& id, RejectReason reason) = 0;
  // Sent with an empty payload: the id does not travel and no handler runs at the client.
  virtual int ModeratorApprovalNeeded(const unsigned long long& id) = 0;
  virtual int AuthorizationPassed(const unsigned long long& id, const unsigned long long& party,
                                  bool first, bool second) = 0;
  virtual int ConferenceLocked(const unsigned long long& id, bool locked) = 0;
  // Carries `size` opaque bytes read from `data` (nothing is read when size is 0).
  virtual int SendConferenceParam(const unsigned long long& id, ConferenceParamType param,
                                  unsigned int size, const void* data) = 0;

  // Each handler ends with the mark of the link the request came on.
  virtual int OnAddParticipant(const unsigned long long& id, const ConfIDString& conf,
                               const unsigned long long& party, const ConferenceUser& user,
                               PSProtocolType link) = 0;
  virtual int OnDialOut(const unsigned long long& id, const ConfIDString& conf,
                        const unsigned long long& party, PSProtocolType link) = 0;
  virtual int OnDeleteParticipant(const unsigned long long& id, const ConfIDString& conf,
                                  const unsigned long long& party, const unsigned long long& other,
                                  PSProtocolType link) = 0;
  virtual int OnSetSpeaker(const unsigned long long& id, const ConfIDString& conf,
                           const unsigned long long& party, const unsigned long long& other,
                           bool on, PSProtocolType link) = 0;
  virtual int OnStartLectureMode(const unsigned long long& id, const ConfIDString& conf,
                                 const unsigned long long& party, const unsigned long long& other,
                                 PSProtocolType link) = 0;
  virtual int OnRequestToSpeak(const unsigned long long& id, const ConfIDString& conf,
                               const unsigned long long& party, bool on, PSProtocolType link) = 0;
  virtual int OnAuthorizationRequest(const unsigned long long& id, const ConfIDString& conf,
                                     const unsigned long long& party, const std::string& text,
                                     PSProtocolType link) = 0;
  virtual int OnStartConference(const unsigned long long& id, const ConfIDString& conf,
                                const unsigned long long& party, PSProtocolType link) = 0;
  virtual int OnStopConference(const unsigned long long& id, const ConfIDString& conf,
                               const unsigned long long& party, PSProtocolType link) = 0;
  virtual int OnRequestStartRecording(const unsigned long long& id, const ConfIDString& conf,
                                      const unsigned long long& party, PSProtocolType link) = 0;
  virtual int OnRequestStopRecording(const unsigned long long& id, const ConfIDString& conf,
                                     const unsigned long long& party, PSProtocolType link) = 0;
  virtual int OnRequestPauseRecording(const unsigned long long& id, const ConfIDString& conf,
                                      const unsigned long long& party, PSProtocolType link) = 0;
  virtual int OnRequestResumeRecording(const unsigned long long& id, const ConfIDString& conf,
                                       const unsigned long long& party, PSProtocolType link) = 0;
  virtual int OnInitiateDialOut(const unsigned long long& id, const ConfIDString& conf,
                                const unsigned long long& party, bool on, PSProtocolType link) = 0;
  virtual int OnLockConference(const unsigned long long& id, const ConfIDString& conf,
                               const unsigned long long& party, bool on, PSProtocolType link) = 0;
  virtual int OnGetConferenceParam(const unsigned long long& id, const ConfIDString& conf,
                                   ConferenceParamType param, PSProtocolType link) = 0;
};
