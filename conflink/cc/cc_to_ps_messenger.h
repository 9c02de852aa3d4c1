// The messenger of the link between call control (CC) and the conference server (PS). The same
// class serves both ends: CC calls its sending operations and overrides the handlers of the
// server's commands; PS does the reverse.
#pragma once

#include <list>
#include <string>

#include <conflink/cc/cc_interfaces.h>
#include <conflink/messaging/shared_control.h>
#include <conflink/messaging/soho_messenger.h>

class CCToPSMessenger : public SohoMessenger,
                        public SharedClientControl<CCToPSMessenger>,  // BothToPsInterface
                        public SharedServerControl<CCToPSMessenger>,  // PsToBothInterface
                        public CcToPsInterface,
                        public PsToCcInterface {
 public:
  // Does not connect; call Connect. Everything this messenger sends carries the mark 0.
  explicit CCToPSMessenger(int queueNumber);
  ~CCToPSMessenger() override;

  // The messenger's own operations. They extend the table of the first interface,
  // BothToPsInterface, in this order, so they are declared before any override of the other
  // interfaces (each of which would take a place in that table too).

  // The server's error report (type 263), received by the same OnReportError as 113. The flag
  // is accepted and not sent.
  virtual int ReportError(const unsigned long long& id, ConfServError error, bool flag);
  // Queue events taken by ProcessMessageFromQueue; by default they call PSPeerConnected and
  // PSPeerDisConnected.
  virtual void PeerConnected();
  virtual void PeerDisconnected();
  // Override these to learn of the peer's arrival and departure; by default they do nothing.
  virtual void PSPeerConnected();
  virtual void PSPeerDisConnected();
  // Waits for one message and dispatches it: 0 when one was dispatched, 1 when the queue failed.
  virtual int WaitForMessageAndDispatch();
  // Dispatches up to `maxCount` waiting messages without blocking; true when one was taken.
  virtual bool ProcessMessageFromQueue(int maxCount);
  // Appends the link mark to `buffer` in place and hands the message to the queue; returns the
  // queue's result.
  virtual int SendMessage(const int* type, std::string* buffer);
  // Decodes one message (payload and trailer) and calls its handler; false for an unknown type.
  virtual bool DispatchMessage(const int* type, const char* data, int length);
  // Reports a text on the standard error stream and in the system log.
  virtual void Error(const char* text);

  // Names that both links' shared messages and this link's own messages use, with other
  // arguments and numbers: both stay callable and overridable on this class.
  using SharedClientControl<CCToPSMessenger>::AddParticipant;    // 2, and 128 below
  using SharedClientControl<CCToPSMessenger>::SetSpeaker;        // 5, and 143
  using SharedClientControl<CCToPSMessenger>::StartConference;   // 14, and 133
  using SharedClientControl<CCToPSMessenger>::StopConference;    // 15, and 134
  using SharedServerControl<CCToPSMessenger>::Success;           // 258, and 112
  using SharedServerControl<CCToPSMessenger>::OnAddParticipant;  // handlers of the same
  using SharedServerControl<CCToPSMessenger>::OnSetSpeaker;
  using SharedServerControl<CCToPSMessenger>::OnStartConference;
  using SharedServerControl<CCToPSMessenger>::OnStopConference;
  using SharedClientControl<CCToPSMessenger>::OnSuccess;

  // Call control to the server.
  int JoinConference(const unsigned long long& id, const ConfIDString& conf,
                     const std::string& text, const SipUri& uri, bool flag) override;
  int ActivateParticipant(const unsigned long long& id, const ConfIDString& conf,
                          const unsigned long long& party, const std::string& text,
                          bool flag) override;
  int ParticipantLeft(const unsigned long long& id, const ConfIDString& conf,
                      const unsigned long long& party) override;
  int HoldParticipant(const unsigned long long& id, const ConfIDString& conf,
                      const unsigned long long& party, bool hold) override;
  int ForwardParticipant(const unsigned long long& id, const ConfIDString& conf,
                         const std::list<CallParams>& calls) override;
  int GetEndpointTopology(const unsigned long long& id, const ConfIDString& conf,
                          const unsigned long long& party) override;
  int RecordingTerminated(const unsigned long long& id, const ConfIDString& conf) override;
  int InitiateConferenceServer() override;
  int Success(const unsigned long long& id, CCSuccessType result) override;
  int ReportError(const unsigned long long& id, ConfServError error) override;

  // The server to call control.
  int AddParticipant(const unsigned long long& id, const ConfIDString& conf, const SipUri& uri,
                     const unsigned long long& party, const CallParams& call,
                     const std::list<std::string>& texts, const ParticipantParams& params,
                     TransmitType transmit) override;
  int UpdateUserInfo(const unsigned long long& id, const CallParams& call,
                     const CallExtraParams& extra) override;
  int RemoveParticipant(const unsigned long long& id, const ConfIDString& conf) override;
  int SetupConference(const unsigned long long& id, ConfIDString conf,
                      const RecordingParams& recording, const CallParams* call,
                      const ConfSpecParams& setup, unsigned short value) override;
  int CloseConference(const unsigned long long& id, const ConfIDString& conf,
                      CloseConferenceReason reason) override;
  int StartConference(const unsigned long long& id, const ConfIDString& conf) override;
  int StopConference(const unsigned long long& id, const ConfIDString& conf) override;
  int PauseConference(const unsigned long long& id) override;
  int ResumeConference(const unsigned long long& id) override;
  int StartRecording(const unsigned long long& id, const ConfIDString& conf) override;
  int StopRecording(const unsigned long long& id, const ConfIDString& conf) override;
  int PauseRecording(const unsigned long long& id, const ConfIDString& conf) override;
  int ResumeRecording(const unsigned long long& id, const ConfIDString& conf) override;
  int ModifyConferenceMedia(const unsigned long long& id, const ConfIDString& conf,
                            const ConfTopology& topology) override;
  int ModifyParticipantMedia(const unsigned long long& id) override;
  int SetSpeaker(const unsigned long long& id, const ConfIDString& conf, bool on) override;
  int RegisterConfID(const unsigned long long& id, const ConfIDString& conf,
                     const RegisterParams& first, const RegisterParams& second) override;
  int RegisterAllConferences(const std::list<RegisterParams>& registrations) override;
  int AddScenario(const unsigned long long& id, const ConfIDString& conf,
                  ScenarioType scenario) override;
  int UpdateScenario(const unsigned long long& id, const ConfIDString& conf,
                     ScenarioType scenario) override;
  int RemoveScenario(const unsigned long long& id, const ConfIDString& conf,
                     ScenarioType scenario) override;
  int JoinAccept(const unsigned long long& id, const unsigned long long& party,
                 const ConfIDString& conf, const std::list<std::string>& texts,
                 const ParticipantParams& params, TransmitType transmit) override;
  int JoinReject(const unsigned long long& id, RejectReason reason,
                 const std::list<std::string>& texts) override;
  int ActivateAttendant(const unsigned long long& id, const ConfIDString& conf,
                        const std::list<std::string>& texts, const AttendantZeroOutParams& params,
                        bool flag) override;
  int SendEndpointTopology(const unsigned long long& id, const ConfIDString& conf,
                           const EndpointTopology& topology) override;

  // Handlers; each default does nothing and returns 0.
  int OnAddParticipant(const unsigned long long&, const ConfIDString&, const SipUri&,
                       const unsigned long long&, const CallParams&, const std::list<std::string>&,
                       const ParticipantParams&, TransmitType) override {
    return 0;
  }
  int OnUpdateUserInfo(const unsigned long long&, const CallParams&,
                       const CallExtraParams&) override {
    return 0;
  }
  int OnRemoveParticipant(const unsigned long long&, const ConfIDString&) override { return 0; }
  int OnSetupConference(const unsigned long long&, const ConfIDString&, const RecordingParams&,
                        const CallParams*, const ConfSpecParams&, unsigned short) override {
    return 0;
  }
  int OnCloseConference(const unsigned long long&, const ConfIDString&,
                        CloseConferenceReason) override {
    return 0;
  }
  int OnStartConference(const unsigned long long&, const ConfIDString&) override { return 0; }
  int OnStopConference(const unsigned long long&, const ConfIDString&) override { return 0; }
  int OnPauseConference(const unsigned long long&) override { return 0; }
  int OnResumeConference(const unsigned long long&) override { return 0; }
  int OnStartRecording(const unsigned long long&, const ConfIDString&) override { return 0; }
  int OnStopRecording(const unsigned long long&, const ConfIDString&) override { return 0; }
  int OnPauseRecording(const unsigned long long&, const ConfIDString&) override { return 0; }
  int OnResumeRecording(const unsigned long long&, const ConfIDString&) override { return 0; }
  int OnModifyConferenceMedia(const unsigned long long&, const ConfIDString&,
                              const ConfTopology&) override {
    return 0;
  }
  int OnModifyParticipantMedia(const unsigned long long&) override { return 0; }
  int OnSetSpeaker(const unsigned long long&, const ConfIDString&, bool) override { return 0; }
  int OnRegisterConfID(const unsigned long long&, const ConfIDString&, const RegisterParams&,
                       const RegisterParams&) override {
    return 0;
  }
  int OnRegisterAllConferences(const std::list<RegisterParams>&) override { return 0; }
  int OnAddScenario(const unsigned long long&, const ConfIDString&, ScenarioType) override {
    return 0;
  }
  int OnUpdateScenario(const unsigned long long&, const ConfIDString&, ScenarioType) override {
    return 0;
  }
  int OnRemoveScenario(const unsigned long long&, const ConfIDString&, ScenarioType) override {
    return 0;
  }
  int OnJoinAccept(const unsigned long long&, const unsigned long long&, const ConfIDString&,
                   const std::list<std::string>&, const ParticipantParams&, TransmitType) override {
    return 0;
  }
  int OnJoinReject(const unsigned long long&, RejectReason,
                   const std::list<std::string>&) override {
    return 0;
  }
  int OnActivateAttendant(const unsigned long long&, const ConfIDString&,
                          const std::list<std::string>&, const AttendantZeroOutParams&,
                          bool) override {
    return 0;
  }
  int OnSendEndpointTopology(const unsigned long long&, const ConfIDString&,
                             const EndpointTopology&) override {
    return 0;
  }
  int OnReportError(const unsigned long long&, ConfServError) override { return 0; }
  int OnJoinConference(const unsigned long long&, const ConfIDString&, const std::string&,
                       const SipUri&, bool, PSProtocolType) override {
    return 0;
  }
  int OnActivateParticipant(const unsigned long long&, const ConfIDString&,
                            const unsigned long long&, const std::string&, bool,
                            PSProtocolType) override {
    return 0;
  }
  int OnParticipantLeft(const unsigned long long&, const ConfIDString&, const unsigned long long&,
                        PSProtocolType) override {
    return 0;
  }
  int OnHoldParticipant(const unsigned long long&, const ConfIDString&, const unsigned long long&,
                        bool, PSProtocolType) override {
    return 0;
  }
  int OnForwardParticipant(const unsigned long long&, const ConfIDString&,
                           const std::list<CallParams>&, PSProtocolType) override {
    return 0;
  }
  int OnGetEndpointTopology(const unsigned long long&, const ConfIDString&,
                            const unsigned long long&, PSProtocolType) override {
    return 0;
  }
  int OnRecordingTerminated(const unsigned long long&, const ConfIDString&,
                            PSProtocolType) override {
    return 0;
  }
  int OnInitiateConferenceServer(PSProtocolType) override { return 0; }
  int OnSuccess(const unsigned long long&, CCSuccessType, PSProtocolType) override { return 0; }

  // --- Beyond the documented surface (non-virtual, so no table slot moves) ---

  // Waits at most `timeoutMs` milliseconds for one message or queue event and dispatches it,
  // returning as soon as it arrives (no polling): a conflink::WaitResult (0 dispatched, 1 failed,
  // 2 timed out, 3 interrupted by InterruptWait). Queue events go to PeerConnected and
  // PeerDisconnected.
  int WaitForMessageFor(int timeoutMs);
  // Dispatches up to `maxCount` waiting messages without blocking, queue events to PeerConnected
  // and PeerDisconnected; true when one was taken. What a readiness loop calls when the
  // messenger's ReadinessFd is readable (conflink::WaitSet does).
  bool DispatchWaiting(int maxCount);

 private:
  int mark_;
  std::string received_;  // reused for every message taken from the queue
};
