// The role interfaces of the link between call control (CC) and the conference server (PS). Each
// lists first the operations its side sends, in the order of its catalogue, then the handlers of
// what it receives, in the order of the other side's catalogue. CCToPSMessenger implements both.
#pragma once

#include <list>
#include <string>

#include <conflink/messaging/types.h>
#include <conflink/records/call_records.h>
#include <conflink/records/config_records.h>

// What call control reports to the server, and its handlers of the server's commands.
class CcToPsInterface {
 public:
  virtual ~CcToPsInterface() = default;

  virtual int JoinConference(const unsigned long long& id, const ConfIDString& conf,
                             const std::string& text, const SipUri& uri, bool flag) = 0;
  virtual int ActivateParticipant(const unsigned long long& id, const ConfIDString& conf,
                                  const unsigned long long& party, const std::string& text,
                                  bool flag) = 0;
  virtual int ParticipantLeft(const unsigned long long& id, const ConfIDString& conf,
                              const unsigned long long& party) = 0;
  virtual int HoldParticipant(const unsigned long long& id, const ConfIDString& conf,
                              const unsigned long long& party, bool hold) = 0;
  virtual int ForwardParticipant(const unsigned long long& id, const ConfIDString& conf,
                                 const std::list<CallParams>& calls) = 0;
  virtual int GetEndpointTopology(const unsigned long long& id, const ConfIDString& conf,
                                  const unsigned long long& party) = 0;
  virtual int RecordingTerminated(const unsigned long long& id, const ConfIDString& conf) = 0;
  // Call control has started and asks the server to bring it up to date; no RequestId.
  virtual int InitiateConferenceServer() = 0;
  virtual int Success(const unsigned long long& id, CCSuccessType result) = 0;
  // Either end may send this error report (type 113); PsToCcInterface declares it too, and one
  // implementation serves both.
  virtual int ReportError(const unsigned long long& id, ConfServError error) = 0;

  virtual int OnAddParticipant(const unsigned long long& id, const ConfIDString& conf,
                               const SipUri& uri, const unsigned long long& party,
                               const CallParams& call, const std::list<std::string>& texts,
                               const ParticipantParams& params, TransmitType transmit) = 0;
  virtual int OnUpdateUserInfo(const unsigned long long& id, const CallParams& call,
                               const CallExtraParams& extra) = 0;
  virtual int OnRemoveParticipant(const unsigned long long& id, const ConfIDString& conf) = 0;
  // `call` is null when the server sent none; otherwise it dies when this returns.
  virtual int OnSetupConference(const unsigned long long& id, const ConfIDString& conf,
                                const RecordingParams& recording, const CallParams* call,
                                const ConfSpecParams& setup, unsigned short value) = 0;
  virtual int OnCloseConference(const unsigned long long& id, const ConfIDString& conf,
                                CloseConferenceReason reason) = 0;
  virtual int OnStartConference(const unsigned long long& id, const ConfIDString& conf) = 0;
  virtual int OnStopConference(const unsigned long long& id, const ConfIDString& conf) = 0;
  // Never called: the command travels without a payload and is dropped on receipt.
  virtual int OnPauseConference(const unsigned long long& id) = 0;
  // Never called: the command travels without a payload and is dropped on receipt.
  virtual int OnResumeConference(const unsigned long long& id) = 0;
  virtual int OnStartRecording(const unsigned long long& id, const ConfIDString& conf) = 0;
  virtual int OnStopRecording(const unsigned long long& id, const ConfIDString& conf) = 0;
  virtual int OnPauseRecording(const unsigned long long& id, const ConfIDString& conf) = 0;
  virtual int OnResumeRecording(const unsigned long long& id, const ConfIDString& conf) = 0;
  virtual int OnModifyConferenceMedia(const unsigned long long& id, const ConfIDString& conf,
                                      const ConfTopology& topology) = 0;
  // Never called: the command travels without a payload and is dropped on receipt.
  virtual int OnModifyParticipantMedia(const unsigned long long& id) = 0;
  virtual int OnSetSpeaker(const unsigned long long& id, const ConfIDString& conf, bool on) = 0;
  virtual int OnRegisterConfID(const unsigned long long& id, const ConfIDString& conf,
                               const RegisterParams& first, const RegisterParams& second) = 0;
  virtual int OnRegisterAllConferences(const std::list<RegisterParams>& registrations) = 0;
  virtual int OnAddScenario(const unsigned long long& id, const ConfIDString& conf,
                            ScenarioType scenario) = 0;
  virtual int OnUpdateScenario(const unsigned long long& id, const ConfIDString& conf,
                               ScenarioType scenario) = 0;
  virtual int OnRemoveScenario(const unsigned long long& id, const ConfIDString& conf,
                               ScenarioType scenario) = 0;
  virtual int OnJoinAccept(const unsigned long long& id, const unsigned long long& party,
                           const ConfIDString& conf, const std::list<std::string>& texts,
                           const ParticipantParams& params, TransmitType transmit) = 0;
  virtual int OnJoinReject(const unsigned long long& id, RejectReason reason,
                           const std::list<std::string>& texts) = 0;
  virtual int OnActivateAttendant(const unsigned long long& id, const ConfIDString& conf,
                                  const std::list<std::string>& texts,
                                  const AttendantZeroOutParams& params, bool flag) = 0;
  virtual int OnSendEndpointTopology(const unsigned long long& id, const ConfIDString& conf,
                                     const EndpointTopology& topology) = 0;
  // Receives both error reports, 113 and 263, from whichever end sent them.
  virtual int OnReportError(const unsigned long long& id, ConfServError error) = 0;
};

// The server's commands to call control, and its handlers of what call control reports.
class PsToCcInterface {
 public:
  virtual ~PsToCcInterface() = default;

  virtual int AddParticipant(const unsigned long long& id, const ConfIDString& conf,
                             const SipUri& uri, const unsigned long long& party,
                             const CallParams& call, const std::list<std::string>& texts,
                             const ParticipantParams& params, TransmitType transmit) = 0;
  virtual int UpdateUserInfo(const unsigned long long& id, const CallParams& call,
                             const CallExtraParams& extra) = 0;
  virtual int RemoveParticipant(const unsigned long long& id, const ConfIDString& conf) = 0;
  // `call` may be null: a presence word says whether a CallParams follows.
  virtual int SetupConference(const unsigned long long& id, ConfIDString conf,
                              const RecordingParams& recording, const CallParams* call,
                              const ConfSpecParams& setup, unsigned short value) = 0;
  virtual int CloseConference(const unsigned long long& id, const ConfIDString& conf,
                              CloseConferenceReason reason) = 0;
  virtual int StartConference(const unsigned long long& id, const ConfIDString& conf) = 0;
  virtual int StopConference(const unsigned long long& id, const ConfIDString& conf) = 0;
  // Sent with an empty payload: the id does not travel and no handler runs at call control.
  virtual int PauseConference(const unsigned long long& id) = 0;
  // Sent with an empty payload: the id does not travel and no handler runs at call control.
  virtual int ResumeConference(const unsigned long long& id) = 0;
  virtual int StartRecording(const unsigned long long& id, const ConfIDString& conf) = 0;
  virtual int StopRecording(const unsigned long long& id, const ConfIDString& conf) = 0;
  virtual int PauseRecording(const unsigned long long& id, const ConfIDString& conf) = 0;
  virtual int ResumeRecording(const unsigned long long& id, const ConfIDString& conf) = 0;
  virtual int ModifyConferenceMedia(const unsigned long long& id, const ConfIDString& conf,
                                    const ConfTopology& topology) = 0;
  // Sent with an empty payload: the id does not travel and no handler runs at call control.
  virtual int ModifyParticipantMedia(const unsigned long long& id) = 0;
  virtual int SetSpeaker(const unsigned long long& id, const ConfIDString& conf, bool on) = 0;
  virtual int RegisterConfID(const unsigned long long& id, const ConfIDString& conf,
                             const RegisterParams& first, const RegisterParams& second) = 0;
  // No RequestId: the payload is the list alone.
  virtual int RegisterAllConferences(const std::list<RegisterParams>& registrations) = 0;
  virtual int AddScenario(const unsigned long long& id, const ConfIDString& conf,
                          ScenarioType scenario) = 0;
  virtual int UpdateScenario(const unsigned long long& id, const ConfIDString& conf,
                             ScenarioType scenario) = 0;
  virtual int RemoveScenario(const unsigned long long& id, const ConfIDString& conf,
                             ScenarioType scenario) = 0;
  virtual int JoinAccept(const unsigned long long& id, const unsigned long long& party,
                         const ConfIDString& conf, const std::list<std::string>& texts,
                         const ParticipantParams& params, TransmitType transmit) = 0;
  virtual int JoinReject(const unsigned long long& id, RejectReason reason,
                         const std::list<std::string>& texts) = 0;
  virtual int ActivateAttendant(const unsigned long long& id, const ConfIDString& conf,
                                const std::list<std::string>& texts,
                                const AttendantZeroOutParams& params, bool flag) = 0;
  virtual int SendEndpointTopology(const unsigned long long& id, const ConfIDString& conf,
                                   const EndpointTopology& topology) = 0;
  // The same operation as CcToPsInterface::ReportError (type 113).
  virtual int ReportError(const unsigned long long& id, ConfServError error) = 0;

  // Each handler but OnReportError ends with the mark of the link the report came on.
  virtual int OnJoinConference(const unsigned long long& id, const ConfIDString& conf,
                               const std::string& text, const SipUri& uri, bool flag,
                               PSProtocolType link) = 0;
  virtual int OnActivateParticipant(const unsigned long long& id, const ConfIDString& conf,
                                    const unsigned long long& party, const std::string& text,
                                    bool flag, PSProtocolType link) = 0;
  virtual int OnParticipantLeft(const unsigned long long& id, const ConfIDString& conf,
                                const unsigned long long& party, PSProtocolType link) = 0;
  virtual int OnHoldParticipant(const unsigned long long& id, const ConfIDString& conf,
                                const unsigned long long& party, bool hold,
                                PSProtocolType link) = 0;
  virtual int OnForwardParticipant(const unsigned long long& id, const ConfIDString& conf,
                                   const std::list<CallParams>& calls, PSProtocolType link) = 0;
  virtual int OnGetEndpointTopology(const unsigned long long& id, const ConfIDString& conf,
                                    const unsigned long long& party, PSProtocolType link) = 0;
  virtual int OnRecordingTerminated(const unsigned long long& id, const ConfIDString& conf,
                                    PSProtocolType link) = 0;
  virtual int OnInitiateConferenceServer(PSProtocolType link) = 0;
  virtual int OnSuccess(const unsigned long long& id, CCSuccessType result,
                        PSProtocolType link) = 0;
  // The same handler as CcToPsInterface::OnReportError; it alone takes no link mark.
  virtual int OnReportError(const unsigned long long& id, ConfServError error) = 0;
};
