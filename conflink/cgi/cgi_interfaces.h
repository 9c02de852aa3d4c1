// The role interfaces of the link between the web administration front end (CGI) and the
// conference server (PS). Each lists first the operations its side sends, in the order of its
// catalogue, then the handlers of what it receives, in the order of the other side's catalogue.
// CGIToPSMessenger implements both.
//
// Most requests name a conference (`conf`) and carry a second identifier (`user`) that the
// server gives its meaning; the link only carries it.
#pragma once

#include <list>
#include <string>

#include <conflink/messaging/types.h>
#include <conflink/records/records.h>

// The web front end's administration requests, and its handlers of the server's replies.
class CgiToPsInterface {
 public:
  virtual ~CgiToPsInterface() = default;

  // The record travels in the middle: the two ids, the whole conference, then `conf` and `flag`.
  virtual int CreateConference(const unsigned long long& id, const unsigned long long& user,
                               const ConferenceParams& params, ConfIDString conf, bool flag) = 0;
  virtual int SaveConfGeneral(const unsigned long long& id, const ConfIDString& conf,
                              const unsigned long long& user, const ConfGeneralParams& general) = 0;
  virtual int SaveConfNewParticipants(const unsigned long long& id, const ConfIDString& conf,
                                      const unsigned long long& user,
                                      const NewParticipantParams& defaults) = 0;
  virtual int SaveConfParticipants(const unsigned long long& id, const ConfIDString& conf,
                                   const unsigned long long& user,
                                   const std::list<ConferenceUser>& participants) = 0;
  virtual int SaveConfSchedule(const unsigned long long& id, const ConfIDString& conf,
                               const unsigned long long& user, const ScheduleParams& schedule) = 0;
  virtual int SaveConfSipSettings(const unsigned long long& id, const ConfIDString& conf,
                                  const unsigned long long& user,
                                  const SipRegistrationParams& sip) = 0;
  virtual int SaveConfRecording(const unsigned long long& id, const ConfIDString& conf,
                                const unsigned long long& user,
                                const RecordingParams& recording) = 0;
  virtual int SaveConfCodecs(const unsigned long long& id, const ConfIDString& conf,
                             const unsigned long long& user, const EncodingParams& encoding) = 0;
  virtual int SaveConfSysMessages(const unsigned long long& id, const ConfIDString& conf,
                                  const unsigned long long& user,
                                  const SysMessageParams& sysMessage) = 0;
  virtual int SaveConfAutoGainCtrl(const unsigned long long& id, const ConfIDString& conf,
                                   const unsigned long long& user,
                                   const AutoGainCtrlParams& autoGain) = 0;
  virtual int SaveAttendant(const unsigned long long& id, const ConfIDString& conf,
                            const unsigned long long& user, const AttendantParams& attendant,
                            bool flag) = 0;
  virtual int SaveMailText(const unsigned long long& id, const ConfIDString& conf,
                           const unsigned long long& user, const std::string& text, bool flag) = 0;
  virtual int RestoreMailDefaults(const unsigned long long& id, const ConfIDString& conf,
                                  const unsigned long long& user) = 0;
  virtual int SaveStatisticsSettings(const unsigned long long& id, int first, int second) = 0;
  virtual int ClearStatistics(const unsigned long long& id) = 0;
  virtual int ModifyLocalRoutingTable(const unsigned long long& id,
                                      const std::list<std::string>& routes) = 0;
  virtual int UpdateTOSValues(const unsigned long long& id) = 0;
  virtual int DeleteConference(const unsigned long long& id, const ConfIDString& conf,
                               const unsigned long long& user) = 0;
  virtual int ModifyConferenceMedia(const unsigned long long& id, const ConfIDString& conf,
                                    const unsigned long long& user,
                                    const ConfTopology& topology) = 0;
  // Sent with an empty payload (the id does not travel); the server's dispatcher does not know
  // the message and calls nothing.
  virtual int ModifyParticipantMedia(const unsigned long long& id) = 0;
  virtual int SendCreationMails(const unsigned long long& id, const ConfIDString& conf,
                                const unsigned long long& user) = 0;
  virtual int GetConference(const unsigned long long& id, const ConfIDString& conf,
                            GetConferenceType kind) = 0;
  virtual int GetGeneralSettings(const unsigned long long& id, const ConfIDString& conf,
                                 GetConferenceType kind) = 0;
  virtual int GetNewParticipantSettings(const unsigned long long& id, const ConfIDString& conf) = 0;
  virtual int GetParticipantsList(const unsigned long long& id, const ConfIDString& conf) = 0;
  virtual int GetSipSettings(const unsigned long long& id, const ConfIDString& conf,
                             GetConferenceType kind) = 0;
  virtual int GetRecordingSettings(const unsigned long long& id, const ConfIDString& conf) = 0;
  virtual int GetScheduleSettings(const unsigned long long& id, const ConfIDString& conf) = 0;
  virtual int GetEncodingSettings(const unsigned long long& id, const ConfIDString& conf) = 0;
  virtual int GetSysMessageSettings(const unsigned long long& id, const ConfIDString& conf) = 0;
  virtual int GetAutoGainCtrlSettings(const unsigned long long& id, const ConfIDString& conf) = 0;
  virtual int GetAttendantSettings(const unsigned long long& id, const ConfIDString& conf,
                                   GetConferenceType kind) = 0;
  virtual int GetConferenceProgress(const unsigned long long& id, const ConfIDString& conf) = 0;
  virtual int GetConferenceStatus(const unsigned long long& id, const ConfIDString& conf) = 0;
  virtual int GetUserConfList(const unsigned long long& id, const unsigned long long& user) = 0;
  virtual int GetActiveConfList(const unsigned long long& id) = 0;
  virtual int GetPublicConfList(const unsigned long long& id) = 0;
  virtual int GetRecordingParamsList(const unsigned long long& id) = 0;
  // The reservation travels field by field (18 bytes).
  virtual int AddReservation(const unsigned long long& id, const ConfIDString& conf,
                             const ReservationInfo& reservation) = 0;
  virtual int RemoveReservation(const unsigned long long& id, const ConfIDString& conf) = 0;
  virtual int GetReservationList(const unsigned long long& id, const ConfIDString& conf) = 0;
  // Both bounds travel as 4-byte words.
  virtual int GetReservationLoad(const unsigned long long& id, unsigned long from,
                                 unsigned long to) = 0;
  virtual int AddExtReservation(const unsigned long long& id,
                                const ReservationInfo& reservation) = 0;
  virtual int RemoveExtReservation(const unsigned long long& id, const SipUri& uri) = 0;
  virtual int GetRegisteredUserList(const unsigned long long& id) = 0;
  virtual int AddRegisteredUser(const unsigned long long& id, const SipUri& uri,
                                const std::string& text) = 0;
  virtual int RemoveRegisteredUser(const unsigned long long& id, const SipUri& uri) = 0;

  virtual int OnConferenceCreated(const unsigned long long& id, const ConfIDString& conf) = 0;
  virtual int OnSendConference(const unsigned long long& id, const ConferenceParams& params) = 0;
  virtual int OnSendGeneralSettings(const unsigned long long& id,
                                    const ConfGeneralParams& general) = 0;
  virtual int OnSendNewParticipantSettings(const unsigned long long& id,
                                           const NewParticipantParams& defaults) = 0;
  virtual int OnSendParticipantsList(const unsigned long long& id,
                                     const std::list<ConferenceUser>& participants) = 0;
  virtual int OnSendSipSettings(const unsigned long long& id, const SipRegistrationParams& sip) = 0;
  virtual int OnSendRecordingSettings(const unsigned long long& id,
                                      const RecordingParams& recording,
                                      const std::list<std::string>& texts) = 0;
  virtual int OnSendScheduleSettings(const unsigned long long& id,
                                     const ScheduleParams& schedule) = 0;
  virtual int OnSendEncodingSettings(const unsigned long long& id, const EncodingParams& encoding,
                                     const std::list<std::string>& extras) = 0;
  virtual int OnSendSysMessageSettings(const unsigned long long& id,
                                       const SysMessageParams& sysMessage, const double& value) = 0;
  virtual int OnSendAutoGainCtrlSettings(const unsigned long long& id,
                                         const AutoGainCtrlParams& autoGain) = 0;
  virtual int OnSendAttendantSettings(const unsigned long long& id,
                                      const AttendantParams& attendant) = 0;
  virtual int OnSendConferenceProgress(const unsigned long long& id,
                                       const ConferenceProgress& progress) = 0;
  virtual int OnSendConferenceStatus(const unsigned long long& id,
                                     const ConferenceStatus& status) = 0;
  virtual int OnSendUserConfList(const unsigned long long& id,
                                 const std::list<ConfInfo>& conferences) = 0;
  virtual int OnSendActiveConfList(const unsigned long long& id,
                                   const std::list<ActiveConfInfo>& conferences) = 0;
  virtual int OnSendPublicConfList(const unsigned long long& id,
                                   const std::list<ActiveConfInfo>& conferences) = 0;
  // The n-th record belongs to the n-th conference; the two lists may differ in length.
  virtual int OnSendRecordingParamsList(const unsigned long long& id,
                                        const std::list<ConfIDString>& confs,
                                        const std::list<RecordingParams>& recordings) = 0;
  virtual int OnSendReservationList(const unsigned long long& id,
                                    const Reservations& reservations) = 0;
  virtual int OnSendReservationLoad(const unsigned long long& id,
                                    const std::list<LoadSegment>& load) = 0;
  virtual int OnExtReservationAdded(const unsigned long long& id, const SipUri& uri,
                                    const std::string& text) = 0;
  virtual int OnSendRegisteredUserList(const unsigned long long& id,
                                       const std::list<RegisteredUserInfo>& users) = 0;
  virtual int OnCgiReportError(const unsigned long long& id, ConfServError error) = 0;
};

// The server's replies to the web front end, and its handlers of the administration requests.
class PsToCgiInterface {
 public:
  virtual ~PsToCgiInterface() = default;

  virtual int ConferenceCreated(const unsigned long long& id, const ConfIDString& conf) = 0;
  virtual int SendConference(const unsigned long long& id, const ConferenceParams& params) = 0;
  virtual int SendGeneralSettings(const unsigned long long& id,
                                  const ConfGeneralParams& general) = 0;
  virtual int SendNewParticipantSettings(const unsigned long long& id,
                                         const NewParticipantParams& defaults) = 0;
  virtual int SendParticipantsList(const unsigned long long& id,
                                   const std::list<ConferenceUser>& participants) = 0;
  virtual int SendSipSettings(const unsigned long long& id, const SipRegistrationParams& sip) = 0;
  virtual int SendRecordingSettings(const unsigned long long& id, const RecordingParams& recording,
                                    const std::list<std::string>& texts) = 0;
  virtual int SendScheduleSettings(const unsigned long long& id,
                                   const ScheduleParams& schedule) = 0;
  virtual int SendEncodingSettings(const unsigned long long& id, const EncodingParams& encoding,
                                   const std::list<std::string>& extras) = 0;
  virtual int SendSysMessageSettings(const unsigned long long& id,
                                     const SysMessageParams& sysMessage, const double& value) = 0;
  virtual int SendAutoGainCtrlSettings(const unsigned long long& id,
                                       const AutoGainCtrlParams& autoGain) = 0;
  virtual int SendAttendantSettings(const unsigned long long& id,
                                    const AttendantParams& attendant) = 0;
  virtual int SendConferenceProgress(const unsigned long long& id,
                                     const ConferenceProgress& progress) = 0;
  virtual int SendConferenceStatus(const unsigned long long& id,
                                   const ConferenceStatus& status) = 0;
  virtual int SendUserConfList(const unsigned long long& id,
                               const std::list<ConfInfo>& conferences) = 0;
  virtual int SendActiveConfList(const unsigned long long& id,
                                 const std::list<ActiveConfInfo>& conferences) = 0;
  virtual int SendPublicConfList(const unsigned long long& id,
                                 const std::list<ActiveConfInfo>& conferences) = 0;
  // Two lists, each with its own count; neither end checks that the counts agree.
  virtual int SendRecordingParamsList(const unsigned long long& id,
                                      const std::list<ConfIDString>& confs,
                                      const std::list<RecordingParams>& recordings) = 0;
  // Each reservation travels as its 24-byte image.
  virtual int SendReservationList(const unsigned long long& id,
                                  const Reservations& reservations) = 0;
  virtual int SendReservationLoad(const unsigned long long& id,
                                  const std::list<LoadSegment>& load) = 0;
  virtual int ExtReservationAdded(const unsigned long long& id, const SipUri& uri,
                                  const std::string& text) = 0;
  virtual int SendRegisteredUserList(const unsigned long long& id,
                                     const std::list<RegisteredUserInfo>& users) = 0;
  // The server's error answer to any request (type 263, as the call-control link's error report).
  virtual int CgiReportError(const unsigned long long& id, ConfServError error) = 0;

  // Each handler ends with the mark of the link the request came on.
  virtual int OnCreateConference(const unsigned long long& id, const unsigned long long& user,
                                 const ConferenceParams& params, ConfIDString conf, bool flag,
                                 PSProtocolType link) = 0;
  virtual int OnSaveConfGeneral(const unsigned long long& id, const ConfIDString& conf,
                                const unsigned long long& user, const ConfGeneralParams& general,
                                PSProtocolType link) = 0;
  virtual int OnSaveConfNewParticipants(const unsigned long long& id, const ConfIDString& conf,
                                        const unsigned long long& user,
                                        const NewParticipantParams& defaults,
                                        PSProtocolType link) = 0;
  virtual int OnSaveConfParticipants(const unsigned long long& id, const ConfIDString& conf,
                                     const unsigned long long& user,
                                     const std::list<ConferenceUser>& participants,
                                     PSProtocolType link) = 0;
  virtual int OnSaveConfSchedule(const unsigned long long& id, const ConfIDString& conf,
                                 const unsigned long long& user, const ScheduleParams& schedule,
                                 PSProtocolType link) = 0;
  virtual int OnSaveConfSipSettings(const unsigned long long& id, const ConfIDString& conf,
                                    const unsigned long long& user,
                                    const SipRegistrationParams& sip, PSProtocolType link) = 0;
  virtual int OnSaveConfRecording(const unsigned long long& id, const ConfIDString& conf,
                                  const unsigned long long& user, const RecordingParams& recording,
                                  PSProtocolType link) = 0;
  virtual int OnSaveConfCodecs(const unsigned long long& id, const ConfIDString& conf,
                               const unsigned long long& user, const EncodingParams& encoding,
                               PSProtocolType link) = 0;
  virtual int OnSaveConfSysMessages(const unsigned long long& id, const ConfIDString& conf,
                                    const unsigned long long& user,
                                    const SysMessageParams& sysMessage, PSProtocolType link) = 0;
  virtual int OnSaveConfAutoGainCtrl(const unsigned long long& id, const ConfIDString& conf,
                                     const unsigned long long& user,
                                     const AutoGainCtrlParams& autoGain, PSProtocolType link) = 0;
  virtual int OnSaveAttendant(const unsigned long long& id, const ConfIDString& conf,
                              const unsigned long long& user, const AttendantParams& attendant,
                              bool flag, PSProtocolType link) = 0;
  virtual int OnSaveMailText(const unsigned long long& id, const ConfIDString& conf,
                             const unsigned long long& user, const std::string& text, bool flag,
                             PSProtocolType link) = 0;
  virtual int OnRestoreMailDefaults(const unsigned long long& id, const ConfIDString& conf,
                                    const unsigned long long& user, PSProtocolType link) = 0;
  virtual int OnSaveStatisticsSettings(const unsigned long long& id, int first, int second,
                                       PSProtocolType link) = 0;
  virtual int OnClearStatistics(const unsigned long long& id, PSProtocolType link) = 0;
  virtual int OnModifyLocalRoutingTable(const unsigned long long& id,
                                        const std::list<std::string>& routes,
                                        PSProtocolType link) = 0;
  virtual int OnUpdateTOSValues(const unsigned long long& id, PSProtocolType link) = 0;
  virtual int OnDeleteConference(const unsigned long long& id, const ConfIDString& conf,
                                 const unsigned long long& user, PSProtocolType link) = 0;
  virtual int OnModifyConferenceMedia(const unsigned long long& id, const ConfIDString& conf,
                                      const unsigned long long& user, const ConfTopology& topology,
                                      PSProtocolType link) = 0;
  // Never called: the request travels without a payload and the dispatcher does not know it.
  virtual int OnModifyParticipantMedia(const unsigned long long& id, PSProtocolType link) = 0;
  virtual int OnSendCreationMails(const unsigned long long& id, const ConfIDString& conf,
                                  const unsigned long long& user, PSProtocolType link) = 0;
  virtual int OnGetConference(const unsigned long long& id, const ConfIDString& conf,
                              GetConferenceType kind, PSProtocolType link) = 0;
  virtual int OnGetGeneralSettings(const unsigned long long& id, const ConfIDString& conf,
                                   GetConferenceType kind, PSProtocolType link) = 0;
  virtual int OnGetNewParticipantSettings(const unsigned long long& id, const ConfIDString& conf,
                                          PSProtocolType link) = 0;
  virtual int OnGetParticipantsList(const unsigned long long& id, const ConfIDString& conf,
                                    PSProtocolType link) = 0;
  virtual int OnGetSipSettings(const unsigned long long& id, const ConfIDString& conf,
                               GetConferenceType kind, PSProtocolType link) = 0;
  virtual int OnGetRecordingSettings(const unsigned long long& id, const ConfIDString& conf,
                                     PSProtocolType link) = 0;
  virtual int OnGetScheduleSettings(const unsigned long long& id, const ConfIDString& conf,
                                    PSProtocolType link) = 0;
  virtual int OnGetEncodingSettings(const unsigned long long& id, const ConfIDString& conf,
                                    PSProtocolType link) = 0;
  virtual int OnGetSysMessageSettings(const unsigned long long& id, const ConfIDString& conf,
                                      PSProtocolType link) = 0;
  virtual int OnGetAutoGainCtrlSettings(const unsigned long long& id, const ConfIDString& conf,
                                        PSProtocolType link) = 0;
  virtual int OnGetAttendantSettings(const unsigned long long& id, const ConfIDString& conf,
                                     GetConferenceType kind, PSProtocolType link) = 0;
  virtual int OnGetConferenceProgress(const unsigned long long& id, const ConfIDString& conf,
                                      PSProtocolType link) = 0;
  virtual int OnGetConferenceStatus(const unsigned long long& id, const ConfIDString& conf,
                                    PSProtocolType link) = 0;
  virtual int OnGetUserConfList(const unsigned long long& id, const unsigned long long& user,
                                PSProtocolType link) = 0;
  virtual int OnGetActiveConfList(const unsigned long long& id, PSProtocolType link) = 0;
  virtual int OnGetPublicConfList(const unsigned long long& id, PSProtocolType link) = 0;
  virtual int OnGetRecordingParamsList(const unsigned long long& id, PSProtocolType link) = 0;
  virtual int OnAddReservation(const unsigned long long& id, const ConfIDString& conf,
                               const ReservationInfo& reservation, PSProtocolType link) = 0;
  virtual int OnRemoveReservation(const unsigned long long& id, const ConfIDString& conf,
                                  PSProtocolType link) = 0;
  virtual int OnGetReservationList(const unsigned long long& id, const ConfIDString& conf,
                                   PSProtocolType link) = 0;
  virtual int OnGetReservationLoad(const unsigned long long& id, unsigned long from,
                                   unsigned long to, PSProtocolType link) = 0;
  virtual int OnAddExtReservation(const unsigned long long& id, const ReservationInfo& reservation,
                                  PSProtocolType link) = 0;
  virtual int OnRemoveExtReservation(const unsigned long long& id, const SipUri& uri,
                                     PSProtocolType link) = 0;
  virtual int OnGetRegisteredUserList(const unsigned long long& id, PSProtocolType link) = 0;
  virtual int OnAddRegisteredUser(const unsigned long long& id, const SipUri& uri,
                                  const std::string& text, PSProtocolType link) = 0;
  virtual int OnRemoveRegisteredUser(const unsigned long long& id, const SipUri& uri,
                                     PSProtocolType link) = 0;
};
