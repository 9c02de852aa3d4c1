// The messenger of the link between the web administration front end (CGI) and the conference
// server (PS). The same class serves both ends: CGI calls its requests and overrides the handlers
// of the replies; PS does the reverse.
#pragma once

#include <functional>
#include <list>
#include <string>

#include <conflink/cgi/cgi_interfaces.h>
#include <conflink/messaging/shared_control.h>
#include <conflink/messaging/soho_messenger.h>

class CGIToPSMessenger : public SohoMessenger,
                         public SharedClientControl<CGIToPSMessenger>,  // BothToPsInterface
                         public SharedServerControl<CGIToPSMessenger>,  // PsToBothInterface
                         public CgiToPsInterface,
                         public PsToCgiInterface {
 public:
  // Does not connect; call Connect. Everything this messenger sends carries the mark 2.
  explicit CGIToPSMessenger(int queueNumber);
  ~CGIToPSMessenger() override;

  // The messenger's own operations. They extend the table of the first interface,
  // BothToPsInterface, in this order, so they are declared before any override of the other
  // interfaces (each of which would take a place in that table too).

  // Queue events; they do nothing, and the receive loop never calls them.
  virtual void PeerConnected();
  virtual void PeerDisconnected();
  // Polls for one message for about five seconds (20 tries, 250 ms apart) and dispatches it:
  // 0 when one was dispatched, 2 when none came while the peer is online, 1 when the peer is not.
  virtual int WaitForMessageAndDispatch();
  // Dispatches up to `maxCount` waiting messages without blocking; queue events go to
  // DispatchMessage like any other type. True when one was taken.
  virtual bool ProcessMessageFromQueue(int maxCount);
  // Appends the link mark to `buffer` in place and hands the message to the queue; returns the
  // queue's result.
  virtual int SendMessage(const int* type, std::string* buffer);
  // Decodes one message (payload and trailer) and calls its handler; false for an unknown type.
  virtual bool DispatchMessage(const int* type, const char* data, int length);
  // Reports a text on the standard error stream and in the system log.
  virtual void Error(const char* text);

  // The web front end to the server.
  int CreateConference(const unsigned long long& id, const unsigned long long& user,
                       const ConferenceParams& params, ConfIDString conf, bool flag) override;
  int SaveConfGeneral(const unsigned long long& id, const ConfIDString& conf,
                      const unsigned long long& user, const ConfGeneralParams& general) override;
  int SaveConfNewParticipants(const unsigned long long& id, const ConfIDString& conf,
                              const unsigned long long& user,
                              const NewParticipantParams& defaults) override;
  int SaveConfParticipants(const unsigned long long& id, const ConfIDString& conf,
                           const unsigned long long& user,
                           const std::list<ConferenceUser>& participants) override;
  int SaveConfSchedule(const unsigned long long& id, const ConfIDString& conf,
                       const unsigned long long& user, const ScheduleParams& schedule) override;
  int SaveConfSipSettings(const unsigned long long& id, const ConfIDString& conf,
                          const unsigned long long& user,
                          const SipRegistrationParams& sip) override;
  int SaveConfRecording(const unsigned long long& id, const ConfIDString& conf,
                        const unsigned long long& user, const RecordingParams& recording) override;
  int SaveConfCodecs(const unsigned long long& id, const ConfIDString& conf,
                     const unsigned long long& user, const EncodingParams& encoding) override;
  int SaveConfSysMessages(const unsigned long long& id, const ConfIDString& conf,
                          const unsigned long long& user,
                          const SysMessageParams& sysMessage) override;
  int SaveConfAutoGainCtrl(const unsigned long long& id, const ConfIDString& conf,
                           const unsigned long long& user,
                           const AutoGainCtrlParams& autoGain) override;
  int SaveAttendant(const unsigned long long& id, const ConfIDString& conf,
                    const unsigned long long& user, const AttendantParams& attendant,
                    bool flag) override;
  int SaveMailText(const unsigned long long& id, const ConfIDString& conf,
                   const unsigned long long& user, const std::string& text, bool flag) override;
  int RestoreMailDefaults(const unsigned long long& id, const ConfIDString& conf,
                          const unsigned long long& user) override;
  int SaveStatisticsSettings(const unsigned long long& id, int first, int second) override;
  int ClearStatistics(const unsigned long long& id) override;
  int ModifyLocalRoutingTable(const unsigned long long& id,
                              const std::list<std::string>& routes) override;
  int UpdateTOSValues(const unsigned long long& id) override;
  int DeleteConference(const unsigned long long& id, const ConfIDString& conf,
                       const unsigned long long& user) override;
  int ModifyConferenceMedia(const unsigned long long& id, const ConfIDString& conf,
                            const unsigned long long& user, const ConfTopology& topology) override;
  int ModifyParticipantMedia(const unsigned long long& id) override;
  int SendCreationMails(const unsigned long long& id, const ConfIDString& conf,
                        const unsigned long long& user) override;
  int GetConference(const unsigned long long& id, const ConfIDString& conf,
                    GetConferenceType kind) override;
  int GetGeneralSettings(const unsigned long long& id, const ConfIDString& conf,
                         GetConferenceType kind) override;
  int GetNewParticipantSettings(const unsigned long long& id, const ConfIDString& conf) override;
  int GetParticipantsList(const unsigned long long& id, const ConfIDString& conf) override;
  int GetSipSettings(const unsigned long long& id, const ConfIDString& conf,
                     GetConferenceType kind) override;
  int GetRecordingSettings(const unsigned long long& id, const ConfIDString& conf) override;
  int GetScheduleSettings(const unsigned long long& id, const ConfIDString& conf) override;
  int GetEncodingSettings(const unsigned long long& id, const ConfIDString& conf) override;
  int GetSysMessageSettings(const unsigned long long& id, const ConfIDString& conf) override;
  int GetAutoGainCtrlSettings(const unsigned long long& id, const ConfIDString& conf) override;
  int GetAttendantSettings(const unsigned long long& id, const ConfIDString& conf,
                           GetConferenceType kind) override;
  int GetConferenceProgress(const unsigned long long& id, const ConfIDString& conf) override;
  int GetConferenceStatus(const unsigned long long& id, const ConfIDString& conf) override;
  int GetUserConfList(const unsigned long long& id, const unsigned long long& user) override;
  int GetActiveConfList(const unsigned long long& id) override;
  int GetPublicConfList(const unsigned long long& id) override;
  int GetRecordingParamsList(const unsigned long long& id) override;
  int AddReservation(const unsigned long long& id, const ConfIDString& conf,
                     const ReservationInfo& reservation) override;
  int RemoveReservation(const unsigned long long& id, const ConfIDString& conf) override;
  int GetReservationList(const unsigned long long& id, const ConfIDString& conf) override;
  int GetReservationLoad(const unsigned long long& id, unsigned long from,
                         unsigned long to) override;
  int AddExtReservation(const unsigned long long& id, const ReservationInfo& reservation) override;
  int RemoveExtReservation(const unsigned long long& id, const SipUri& uri) override;
  int GetRegisteredUserList(const unsigned long long& id) override;
  int AddRegisteredUser(const unsigned long long& id, const SipUri& uri,
                        const std::string& text) override;
  int RemoveRegisteredUser(const unsigned long long& id, const SipUri& uri) override;

  // The server to the web front end.
  int ConferenceCreated(const unsigned long long& id, const ConfIDString& conf) override;
  int SendConference(const unsigned long long& id, const ConferenceParams& params) override;
  int SendGeneralSettings(const unsigned long long& id, const ConfGeneralParams& general) override;
  int SendNewParticipantSettings(const unsigned long long& id,
                                 const NewParticipantParams& defaults) override;
  int SendParticipantsList(const unsigned long long& id,
                           const std::list<ConferenceUser>& participants) override;
  int SendSipSettings(const unsigned long long& id, const SipRegistrationParams& sip) override;
  int SendRecordingSettings(const unsigned long long& id, const RecordingParams& recording,
                            const std::list<std::string>& texts) override;
  int SendScheduleSettings(const unsigned long long& id, const ScheduleParams& schedule) override;
  int SendEncodingSettings(const unsigned long long& id, const EncodingParams& encoding,
                           const std::list<std::string>& extras) override;
  int SendSysMessageSettings(const unsigned long long& id, const SysMessageParams& sysMessage,
                             const double& value) override;
  int SendAutoGainCtrlSettings(const unsigned long long& id,
                               const AutoGainCtrlParams& autoGain) override;
  int SendAttendantSettings(const unsigned long long& id,
                            const AttendantParams& attendant) override;
  int SendConferenceProgress(const unsigned long long& id,
                             const ConferenceProgress& progress) override;
  int SendConferenceStatus(const unsigned long long& id, const ConferenceStatus& status) override;
  int SendUserConfList(const unsigned long long& id,
                       const std::list<ConfInfo>& conferences) override;
  int SendActiveConfList(const unsigned long long& id,
                         const std::list<ActiveConfInfo>& conferences) override;
  int SendPublicConfList(const unsigned long long& id,
                         const std::list<ActiveConfInfo>& conferences) override;
  int SendRecordingParamsList(const unsigned long long& id, const std::list<ConfIDString>& confs,
                              const std::list<RecordingParams>& recordings) override;
  int SendReservationList(const unsigned long long& id, const Reservations& reservations) override;
  int SendReservationLoad(const unsigned long long& id,
                          const std::list<LoadSegment>& load) override;
  int ExtReservationAdded(const unsigned long long& id, const SipUri& uri,
                          const std::string& text) override;
  int SendRegisteredUserList(const unsigned long long& id,
                             const std::list<RegisteredUserInfo>& users) override;
  int CgiReportError(const unsigned long long& id, ConfServError error) override;

  // Handlers; each default does nothing and returns 0.
  int OnConferenceCreated(const unsigned long long&, const ConfIDString&) override { return 0; }
  int OnSendConference(const unsigned long long&, const ConferenceParams&) override { return 0; }
  int OnSendGeneralSettings(const unsigned long long&, const ConfGeneralParams&) override {
    return 0;
  }
  int OnSendNewParticipantSettings(const unsigned long long&,
                                   const NewParticipantParams&) override {
    return 0;
  }
  int OnSendParticipantsList(const unsigned long long&, const std::list<ConferenceUser>&) override {
    return 0;
  }
  int OnSendSipSettings(const unsigned long long&, const SipRegistrationParams&) override {
    return 0;
  }
  int OnSendRecordingSettings(const unsigned long long&, const RecordingParams&,
                              const std::list<std::string>&) override {
    return 0;
  }
  int OnSendScheduleSettings(const unsigned long long&, const ScheduleParams&) override {
    return 0;
  }
  int OnSendEncodingSettings(const unsigned long long&, const EncodingParams&,
                             const std::list<std::string>&) override {
    return 0;
  }
  int OnSendSysMessageSettings(const unsigned long long&, const SysMessageParams&,
                               const double&) override {
    return 0;
  }
  int OnSendAutoGainCtrlSettings(const unsigned long long&, const AutoGainCtrlParams&) override {
    return 0;
  }
  int OnSendAttendantSettings(const unsigned long long&, const AttendantParams&) override {
    return 0;
  }
  int OnSendConferenceProgress(const unsigned long long&, const ConferenceProgress&) override {
    return 0;
  }
  int OnSendConferenceStatus(const unsigned long long&, const ConferenceStatus&) override {
    return 0;
  }
  int OnSendUserConfList(const unsigned long long&, const std::list<ConfInfo>&) override {
    return 0;
  }
  int OnSendActiveConfList(const unsigned long long&, const std::list<ActiveConfInfo>&) override {
    return 0;
  }
  int OnSendPublicConfList(const unsigned long long&, const std::list<ActiveConfInfo>&) override {
    return 0;
  }
  int OnSendRecordingParamsList(const unsigned long long&, const std::list<ConfIDString>&,
                                const std::list<RecordingParams>&) override {
    return 0;
  }
  int OnSendReservationList(const unsigned long long&, const Reservations&) override { return 0; }
  int OnSendReservationLoad(const unsigned long long&, const std::list<LoadSegment>&) override {
    return 0;
  }
  int OnExtReservationAdded(const unsigned long long&, const SipUri&, const std::string&) override {
    return 0;
  }
  int OnSendRegisteredUserList(const unsigned long long&,
                               const std::list<RegisteredUserInfo>&) override {
    return 0;
  }
  int OnCgiReportError(const unsigned long long&, ConfServError) override { return 0; }
  int OnCreateConference(const unsigned long long&, const unsigned long long&,
                         const ConferenceParams&, ConfIDString, bool, PSProtocolType) override {
    return 0;
  }
  int OnSaveConfGeneral(const unsigned long long&, const ConfIDString&, const unsigned long long&,
                        const ConfGeneralParams&, PSProtocolType) override {
    return 0;
  }
  int OnSaveConfNewParticipants(const unsigned long long&, const ConfIDString&,
                                const unsigned long long&, const NewParticipantParams&,
                                PSProtocolType) override {
    return 0;
  }
  int OnSaveConfParticipants(const unsigned long long&, const ConfIDString&,
                             const unsigned long long&, const std::list<ConferenceUser>&,
                             PSProtocolType) override {
    return 0;
  }
  int OnSaveConfSchedule(const unsigned long long&, const ConfIDString&, const unsigned long long&,
                         const ScheduleParams&, PSProtocolType) override {
    return 0;
  }
  int OnSaveConfSipSettings(const unsigned long long&, const ConfIDString&,
                            const unsigned long long&, const SipRegistrationParams&,
                            PSProtocolType) override {
    return 0;
  }
  int OnSaveConfRecording(const unsigned long long&, const ConfIDString&, const unsigned long long&,
                          const RecordingParams&, PSProtocolType) override {
    return 0;
  }
  int OnSaveConfCodecs(const unsigned long long&, const ConfIDString&, const unsigned long long&,
                       const EncodingParams&, PSProtocolType) override {
    return 0;
  }
  int OnSaveConfSysMessages(const unsigned long long&, const ConfIDString&,
                            const unsigned long long&, const SysMessageParams&,
                            PSProtocolType) override {
    return 0;
  }
  int OnSaveConfAutoGainCtrl(const unsigned long long&, const ConfIDString&,
                             const unsigned long long&, const AutoGainCtrlParams&,
                             PSProtocolType) override {
    return 0;
  }
  int OnSaveAttendant(const unsigned long long&, const ConfIDString&, const unsigned long long&,
                      const AttendantParams&, bool, PSProtocolType) override {
    return 0;
  }
  int OnSaveMailText(const unsigned long long&, const ConfIDString&, const unsigned long long&,
                     const std::string&, bool, PSProtocolType) override {
    return 0;
  }
  int OnRestoreMailDefaults(const unsigned long long&, const ConfIDString&,
                            const unsigned long long&, PSProtocolType) override {
    return 0;
  }
  int OnSaveStatisticsSettings(const unsigned long long&, int, int, PSProtocolType) override {
    return 0;
  }
  int OnClearStatistics(const unsigned long long&, PSProtocolType) override { return 0; }
  int OnModifyLocalRoutingTable(const unsigned long long&, const std::list<std::string>&,
                                PSProtocolType) override {
    return 0;
  }
  int OnUpdateTOSValues(const unsigned long long&, PSProtocolType) override { return 0; }
  int OnDeleteConference(const unsigned long long&, const ConfIDString&, const unsigned long long&,
                         PSProtocolType) override {
    return 0;
  }
  int OnModifyConferenceMedia(const unsigned long long&, const ConfIDString&,
                              const unsigned long long&, const ConfTopology&,
                              PSProtocolType) override {
    return 0;
  }
  int OnModifyParticipantMedia(const unsigned long long&, PSProtocolType) override { return 0; }
  int OnSendCreationMails(const unsigned long long&, const ConfIDString&, const unsigned long long&,
                          PSProtocolType) override {
    return 0;
  }
  int OnGetConference(const unsigned long long&, const ConfIDString&, GetConferenceType,
                      PSProtocolType) override {
    return 0;
  }
  int OnGetGeneralSettings(const unsigned long long&, const ConfIDString&, GetConferenceType,
                           PSProtocolType) override {
    return 0;
  }
  int OnGetNewParticipantSettings(const unsigned long long&, const ConfIDString&,
                                  PSProtocolType) override {
    return 0;
  }
  int OnGetParticipantsList(const unsigned long long&, const ConfIDString&,
                            PSProtocolType) override {
    return 0;
  }
  int OnGetSipSettings(const unsigned long long&, const ConfIDString&, GetConferenceType,
                       PSProtocolType) override {
    return 0;
  }
  int OnGetRecordingSettings(const unsigned long long&, const ConfIDString&,
                             PSProtocolType) override {
    return 0;
  }
  int OnGetScheduleSettings(const unsigned long long&, const ConfIDString&,
                            PSProtocolType) override {
    return 0;
  }
  int OnGetEncodingSettings(const unsigned long long&, const ConfIDString&,
                            PSProtocolType) override {
    return 0;
  }
  int OnGetSysMessageSettings(const unsigned long long&, const ConfIDString&,
                              PSProtocolType) override {
    return 0;
  }
  int OnGetAutoGainCtrlSettings(const unsigned long long&, const ConfIDString&,
                                PSProtocolType) override {
    return 0;
  }
  int OnGetAttendantSettings(const unsigned long long&, const ConfIDString&, GetConferenceType,
                             PSProtocolType) override {
    return 0;
  }
  int OnGetConferenceProgress(const unsigned long long&, const ConfIDString&,
                              PSProtocolType) override {
    return 0;
  }
  int OnGetConferenceStatus(const unsigned long long&, const ConfIDString&,
                            PSProtocolType) override {
    return 0;
  }
  int OnGetUserConfList(const unsigned long long&, const unsigned long long&,
                        PSProtocolType) override {
    return 0;
  }
  int OnGetActiveConfList(const unsigned long long&, PSProtocolType) override { return 0; }
  int OnGetPublicConfList(const unsigned long long&, PSProtocolType) override { return 0; }
  int OnGetRecordingParamsList(const unsigned long long&, PSProtocolType) override { return 0; }
  int OnAddReservation(const unsigned long long&, const ConfIDString&, const ReservationInfo&,
                       PSProtocolType) override {
    return 0;
  }
  int OnRemoveReservation(const unsigned long long&, const ConfIDString&, PSProtocolType) override {
    return 0;
  }
  int OnGetReservationList(const unsigned long long&, const ConfIDString&,
                           PSProtocolType) override {
    return 0;
  }
  int OnGetReservationLoad(const unsigned long long&, unsigned long, unsigned long,
                           PSProtocolType) override {
    return 0;
  }
  int OnAddExtReservation(const unsigned long long&, const ReservationInfo&,
                          PSProtocolType) override {
    return 0;
  }
  int OnRemoveExtReservation(const unsigned long long&, const SipUri&, PSProtocolType) override {
    return 0;
  }
  int OnGetRegisteredUserList(const unsigned long long&, PSProtocolType) override { return 0; }
  int OnAddRegisteredUser(const unsigned long long&, const SipUri&, const std::string&,
                          PSProtocolType) override {
    return 0;
  }
  int OnRemoveRegisteredUser(const unsigned long long&, const SipUri&, PSProtocolType) override {
    return 0;
  }

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
  // For a one-shot client such as a web page: checks that a server is attached (if not, sends
  // nothing and returns kRequestNoServer at once), sends the request with `send` (which calls
  // one sending operation with `id` and returns its result), then waits at most `timeoutMs` for
  // the answer that carries `id` and dispatches it to its handler: a conflink::RequestResult. A
  // message carrying another RequestId (the answer to someone else's request) is not dispatched
  // but reported through Error; queue events go to PeerConnected and PeerDisconnected, and the
  // server's departure ends the wait with kRequestServerLeft. `sendResult`, when given, receives
  // the send's queue result.
  //
  //   CGIToPSMessenger link(41);
  //   if (link.ConnectWaiting(2000) != conflink::kQueueOpened) ...  // busy: answer 503
  //   const int r = link.Request(id, [&] { return link.GetGeneralSettings(id, conf); }, 2000);
  //   // r == conflink::kRequestAnswered: OnSendGeneralSettings has run
  int Request(const unsigned long long& id, const std::function<int()>& send, int timeoutMs,
              int* sendResult = nullptr);

 private:
  int mark_;
  std::string received_;  // reused for every message taken from the queue
};
