// The control messages both links carry, written once for both messengers.
//
// Each of the two shared role interfaces has one implementation here, a template on the
// messenger that sends through it: SharedClientControl<M> (the requests either client sends, and
// its handlers of the server's replies) and SharedServerControl<M> (the server's replies, and its
// handlers of the requests). Each derives from its interface alone and holds no data, so a
// messenger built on them keeps the layout and the virtual-slot order of its interfaces: the
// client's interface is its primary base, and the table it extends with its own operations holds
// exactly that interface's operations first.
#pragma once

#include <string>

#include <conflink/messaging/shared_interfaces.h>

// Requests of a client to the server, and the client's handlers of the server's replies.
template <class Messenger>
class SharedClientControl : public BothToPsInterface {
 public:
  // Requests of a client to the server.
  int AddParticipant(const unsigned long long& id, const ConfIDString& conf,
                     const unsigned long long& party, const ConferenceUser& user) override;
  int DialOut(const unsigned long long& id, const ConfIDString& conf,
              const unsigned long long& party) override;
  int DeleteParticipant(const unsigned long long& id, const ConfIDString& conf,
                        const unsigned long long& party, const unsigned long long& other) override;
  int SetSpeaker(const unsigned long long& id, const ConfIDString& conf,
                 const unsigned long long& party, const unsigned long long& other,
                 bool on) override;
  int StartLectureMode(const unsigned long long& id, const ConfIDString& conf,
                       const unsigned long long& party, const unsigned long long& other) override;
  int RequestToSpeak(const unsigned long long& id, const ConfIDString& conf,
                     const unsigned long long& party, bool on) override;
  int AuthorizationRequest(const unsigned long long& id, const ConfIDString& conf,
                           const unsigned long long& party, const std::string& text) override;
  int StartConference(const unsigned long long& id, const ConfIDString& conf,
                      const unsigned long long& party) override;
  int StopConference(const unsigned long long& id, const ConfIDString& conf,
                     const unsigned long long& party) override;
  int RequestStartRecording(const unsigned long long& id, const ConfIDString& conf,
                            const unsigned long long& party) override;
  int RequestStopRecording(const unsigned long long& id, const ConfIDString& conf,
                           const unsigned long long& party) override;
  int RequestPauseRecording(const unsigned long long& id, const ConfIDString& conf,
                            const unsigned long long& party) override;
  int RequestResumeRecording(const unsigned long long& id, const ConfIDString& conf,
                             const unsigned long long& party) override;
  int InitiateDialOut(const unsigned long long& id, const ConfIDString& conf,
                      const unsigned long long& party, bool on) override;
  int LockConference(const unsigned long long& id, const ConfIDString& conf,
                     const unsigned long long& party, bool on) override;
  int GetConferenceParam(const unsigned long long& id, const ConfIDString& conf,
                         ConferenceParamType param) override;
  // Default handlers: each does nothing and returns 0.
  int OnSuccess(const unsigned long long&, PSSuccessType) override { return 0; }
  int OnReject(const unsigned long long&, RejectReason) override { return 0; }
  int OnModeratorApprovalNeeded(const unsigned long long&) override { return 0; }
  int OnAuthorizationPassed(const unsigned long long&, const unsigned long long&, bool,
                            bool) override {
    return 0;
  }
  int OnConferenceLocked(const unsigned long long&, bool) override { return 0; }
  int OnSendConferenceParam(const unsigned long long&, ConferenceParamType, unsigned int,
                            const void*) override {
    return 0;
  }

 protected:
  SharedClientControl() = default;

 private:
  Messenger& self() { return static_cast<Messenger&>(*this); }
};

// The server's shared replies, and its handlers of the requests both clients send.
template <class Messenger>
class SharedServerControl : public PsToBothInterface {
 public:
  // The server's shared replies.
  int Success(const unsigned long long& id, PSSuccessType result) override;
  int Reject(const unsigned long long& id, RejectReason reason) override;
  int ModeratorApprovalNeeded(const unsigned long long& id) override;
  int AuthorizationPassed(const unsigned long long& id, const unsigned long long& party, bool first,
                          bool second) override;
  int ConferenceLocked(const unsigned long long& id, bool locked) override;
  int SendConferenceParam(const unsigned long long& id, ConferenceParamType param,
                          unsigned int size, const void* data) override;
  // Default handlers: each does nothing and returns 0.
  int OnAddParticipant(const unsigned long long&, const ConfIDString&, const unsigned long long&,
                       const ConferenceUser&, PSProtocolType) override {
    return 0;
  }
  int OnDialOut(const unsigned long long&, const ConfIDString&, const unsigned long long&,
                PSProtocolType) override {
    return 0;
  }
  int OnDeleteParticipant(const unsigned long long&, const ConfIDString&, const unsigned long long&,
                          const unsigned long long&, PSProtocolType) override {
    return 0;
  }
  int OnSetSpeaker(const unsigned long long&, const ConfIDString&, const unsigned long long&,
                   const unsigned long long&, bool, PSProtocolType) override {
    return 0;
  }
  int OnStartLectureMode(const unsigned long long&, const ConfIDString&, const unsigned long long&,
                         const unsigned long long&, PSProtocolType) override {
    return 0;
  }
  int OnRequestToSpeak(const unsigned long long&, const ConfIDString&, const unsigned long long&,
                       bool, PSProtocolType) override {
    return 0;
  }
  int OnAuthorizationRequest(const unsigned long long&, const ConfIDString&,
                             const unsigned long long&, const std::string&,
                             PSProtocolType) override {
    return 0;
  }
  int OnStartConference(const unsigned long long&, const ConfIDString&, const unsigned long long&,
                        PSProtocolType) override {
    return 0;
  }
  int OnStopConference(const unsigned long long&, const ConfIDString&, const unsigned long long&,
                       PSProtocolType) override {
    return 0;
  }
  int OnRequestStartRecording(const unsigned long long&, const ConfIDString&,
                              const unsigned long long&, PSProtocolType) override {
    return 0;
  }
  int OnRequestStopRecording(const unsigned long long&, const ConfIDString&,
                             const unsigned long long&, PSProtocolType) override {
    return 0;
  }
  int OnRequestPauseRecording(const unsigned long long&, const ConfIDString&,
                              const unsigned long long&, PSProtocolType) override {
    return 0;
  }
  int OnRequestResumeRecording(const unsigned long long&, const ConfIDString&,
                               const unsigned long long&, PSProtocolType) override {
    return 0;
  }
  int OnInitiateDialOut(const unsigned long long&, const ConfIDString&, const unsigned long long&,
                        bool, PSProtocolType) override {
    return 0;
  }
  int OnLockConference(const unsigned long long&, const ConfIDString&, const unsigned long long&,
                       bool, PSProtocolType) override {
    return 0;
  }
  int OnGetConferenceParam(const unsigned long long&, const ConfIDString&, ConferenceParamType,
                           PSProtocolType) override {
    return 0;
  }

 protected:
  SharedServerControl() = default;

 private:
  Messenger& self() { return static_cast<Messenger&>(*this); }
};
