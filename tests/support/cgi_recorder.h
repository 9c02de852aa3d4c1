// A web front end's messenger whose every handler, of both ends of the link, records its call
// as text (see call_log.h): for the link's tests, and for anything that must see every value
// a message decodes to.
#pragma once

#include <list>
#include <string>

#include <conflink/cgi/cgi_to_ps_messenger.h>
#include "tests/support/call_log.h"

namespace conflink::testing {

// Both ends of the link in one class, every handler recording its call.
class CgiRecorder : public SharedRecorder<CGIToPSMessenger> {
 public:
  using SharedRecorder::SharedRecorder;
  int OnConferenceCreated(const unsigned long long& a, const ConfIDString& b) override {
    return note("OnConferenceCreated", a, b);
  }
  int OnSendConference(const unsigned long long& a, const ConferenceParams& b) override {
    return note("OnSendConference", a, b);
  }
  int OnSendGeneralSettings(const unsigned long long& a, const ConfGeneralParams& b) override {
    return note("OnSendGeneralSettings", a, b);
  }
  int OnSendNewParticipantSettings(const unsigned long long& a,
                                   const NewParticipantParams& b) override {
    return note("OnSendNewParticipantSettings", a, b);
  }
  int OnSendParticipantsList(const unsigned long long& a,
                             const std::list<ConferenceUser>& b) override {
    return note("OnSendParticipantsList", a, b);
  }
  int OnSendSipSettings(const unsigned long long& a, const SipRegistrationParams& b) override {
    return note("OnSendSipSettings", a, b);
  }
  int OnSendRecordingSettings(const unsigned long long& a, const RecordingParams& b,
                              const std::list<std::string>& c) override {
    return note("OnSendRecordingSettings", a, b, c);
  }
  int OnSendScheduleSettings(const unsigned long long& a, const ScheduleParams& b) override {
    return note("OnSendScheduleSettings", a, b);
  }
  int OnSendEncodingSettings(const unsigned long long& a, const EncodingParams& b,
                             const std::list<std::string>& c) override {
    return note("OnSendEncodingSettings", a, b, c);
  }
  int OnSendSysMessageSettings(const unsigned long long& a, const SysMessageParams& b,
                               const double& c) override {
    return note("OnSendSysMessageSettings", a, b, c);
  }
  int OnSendAutoGainCtrlSettings(const unsigned long long& a,
                                 const AutoGainCtrlParams& b) override {
    return note("OnSendAutoGainCtrlSettings", a, b);
  }
  int OnSendAttendantSettings(const unsigned long long& a, const AttendantParams& b) override {
    return note("OnSendAttendantSettings", a, b);
  }
  int OnSendConferenceProgress(const unsigned long long& a, const ConferenceProgress& b) override {
    return note("OnSendConferenceProgress", a, b);
  }
  int OnSendConferenceStatus(const unsigned long long& a, const ConferenceStatus& b) override {
    return note("OnSendConferenceStatus", a, b);
  }
  int OnSendUserConfList(const unsigned long long& a, const std::list<ConfInfo>& b) override {
    return note("OnSendUserConfList", a, b);
  }
  int OnSendActiveConfList(const unsigned long long& a,
                           const std::list<ActiveConfInfo>& b) override {
    return note("OnSendActiveConfList", a, b);
  }
  int OnSendPublicConfList(const unsigned long long& a,
                           const std::list<ActiveConfInfo>& b) override {
    return note("OnSendPublicConfList", a, b);
  }
  int OnSendRecordingParamsList(const unsigned long long& a, const std::list<ConfIDString>& b,
                                const std::list<RecordingParams>& c) override {
    return note("OnSendRecordingParamsList", a, b, c);
  }
  int OnSendReservationList(const unsigned long long& a, const Reservations& b) override {
    return note("OnSendReservationList", a, b);
  }
  int OnSendReservationLoad(const unsigned long long& a, const std::list<LoadSegment>& b) override {
    return note("OnSendReservationLoad", a, b);
  }
  int OnExtReservationAdded(const unsigned long long& a, const SipUri& b,
                            const std::string& c) override {
    return note("OnExtReservationAdded", a, b, c);
  }
  int OnSendRegisteredUserList(const unsigned long long& a,
                               const std::list<RegisteredUserInfo>& b) override {
    return note("OnSendRegisteredUserList", a, b);
  }
  int OnCgiReportError(const unsigned long long& a, ConfServError b) override {
    return note("OnCgiReportError", a, b);
  }
  int OnCreateConference(const unsigned long long& a, const unsigned long long& b,
                         const ConferenceParams& c, ConfIDString d, bool e,
                         PSProtocolType f) override {
    return note("OnCreateConference", a, b, c, d, e, f);
  }
  int OnSaveConfGeneral(const unsigned long long& a, const ConfIDString& b,
                        const unsigned long long& c, const ConfGeneralParams& d,
                        PSProtocolType e) override {
    return note("OnSaveConfGeneral", a, b, c, d, e);
  }
  int OnSaveConfNewParticipants(const unsigned long long& a, const ConfIDString& b,
                                const unsigned long long& c, const NewParticipantParams& d,
                                PSProtocolType e) override {
    return note("OnSaveConfNewParticipants", a, b, c, d, e);
  }
  int OnSaveConfParticipants(const unsigned long long& a, const ConfIDString& b,
                             const unsigned long long& c, const std::list<ConferenceUser>& d,
                             PSProtocolType e) override {
    return note("OnSaveConfParticipants", a, b, c, d, e);
  }
  int OnSaveConfSchedule(const unsigned long long& a, const ConfIDString& b,
                         const unsigned long long& c, const ScheduleParams& d,
                         PSProtocolType e) override {
    return note("OnSaveConfSchedule", a, b, c, d, e);
  }
  int OnSaveConfSipSettings(const unsigned long long& a, const ConfIDString& b,
                            const unsigned long long& c, const SipRegistrationParams& d,
                            PSProtocolType e) override {
    return note("OnSaveConfSipSettings", a, b, c, d, e);
  }
  int OnSaveConfRecording(const unsigned long long& a, const ConfIDString& b,
                          const unsigned long long& c, const RecordingParams& d,
                          PSProtocolType e) override {
    return note("OnSaveConfRecording", a, b, c, d, e);
  }
  int OnSaveConfCodecs(const unsigned long long& a, const ConfIDString& b,
                       const unsigned long long& c, const EncodingParams& d,
                       PSProtocolType e) override {
    return note("OnSaveConfCodecs", a, b, c, d, e);
  }
  int OnSaveConfSysMessages(const unsigned long long& a, const ConfIDString& b,
                            const unsigned long long& c, const SysMessageParams& d,
                            PSProtocolType e) override {
    return note("OnSaveConfSysMessages", a, b, c, d, e);
  }
  int OnSaveConfAutoGainCtrl(const unsigned long long& a, const ConfIDString& b,
                             const unsigned long long& c, const AutoGainCtrlParams& d,
                             PSProtocolType e) override {
    return note("OnSaveConfAutoGainCtrl", a, b, c, d, e);
  }
  int OnSaveAttendant(const unsigned long long& a, const ConfIDString& b,
                      const unsigned long long& c, const AttendantParams& d, bool e,
                      PSProtocolType f) override {
    return note("OnSaveAttendant", a, b, c, d, e, f);
  }
  int OnSaveMailText(const unsigned long long& a, const ConfIDString& b,
                     const unsigned long long& c, const std::string& d, bool e,
                     PSProtocolType f) override {
    return note("OnSaveMailText", a, b, c, d, e, f);
  }
  int OnRestoreMailDefaults(const unsigned long long& a, const ConfIDString& b,
                            const unsigned long long& c, PSProtocolType d) override {
    return note("OnRestoreMailDefaults", a, b, c, d);
  }
  int OnSaveStatisticsSettings(const unsigned long long& a, int b, int c,
                               PSProtocolType d) override {
    return note("OnSaveStatisticsSettings", a, b, c, d);
  }
  int OnClearStatistics(const unsigned long long& a, PSProtocolType b) override {
    return note("OnClearStatistics", a, b);
  }
  int OnModifyLocalRoutingTable(const unsigned long long& a, const std::list<std::string>& b,
                                PSProtocolType c) override {
    return note("OnModifyLocalRoutingTable", a, b, c);
  }
  int OnUpdateTOSValues(const unsigned long long& a, PSProtocolType b) override {
    return note("OnUpdateTOSValues", a, b);
  }
  int OnDeleteConference(const unsigned long long& a, const ConfIDString& b,
                         const unsigned long long& c, PSProtocolType d) override {
    return note("OnDeleteConference", a, b, c, d);
  }
  int OnModifyConferenceMedia(const unsigned long long& a, const ConfIDString& b,
                              const unsigned long long& c, const ConfTopology& d,
                              PSProtocolType e) override {
    return note("OnModifyConferenceMedia", a, b, c, d, e);
  }
  int OnModifyParticipantMedia(const unsigned long long& a, PSProtocolType b) override {
    return note("OnModifyParticipantMedia", a, b);
  }
  int OnSendCreationMails(const unsigned long long& a, const ConfIDString& b,
                          const unsigned long long& c, PSProtocolType d) override {
    return note("OnSendCreationMails", a, b, c, d);
  }
  int OnGetConference(const unsigned long long& a, const ConfIDString& b, GetConferenceType c,
                      PSProtocolType d) override {
    return note("OnGetConference", a, b, c, d);
  }
  int OnGetGeneralSettings(const unsigned long long& a, const ConfIDString& b, GetConferenceType c,
                           PSProtocolType d) override {
    return note("OnGetGeneralSettings", a, b, c, d);
  }
  int OnGetNewParticipantSettings(const unsigned long long& a, const ConfIDString& b,
                                  PSProtocolType c) override {
    return note("OnGetNewParticipantSettings", a, b, c);
  }
  int OnGetParticipantsList(const unsigned long long& a, const ConfIDString& b,
                            PSProtocolType c) override {
    return note("OnGetParticipantsList", a, b, c);
  }
  int OnGetSipSettings(const unsigned long long& a, const ConfIDString& b, GetConferenceType c,
                       PSProtocolType d) override {
    return note("OnGetSipSettings", a, b, c, d);
  }
  int OnGetRecordingSettings(const unsigned long long& a, const ConfIDString& b,
                             PSProtocolType c) override {
    return note("OnGetRecordingSettings", a, b, c);
  }
  int OnGetScheduleSettings(const unsigned long long& a, const ConfIDString& b,
                            PSProtocolType c) override {
    return note("OnGetScheduleSettings", a, b, c);
  }
  int OnGetEncodingSettings(const unsigned long long& a, const ConfIDString& b,
                            PSProtocolType c) override {
    return note("OnGetEncodingSettings", a, b, c);
  }
  int OnGetSysMessageSettings(const unsigned long long& a, const ConfIDString& b,
                              PSProtocolType c) override {
    return note("OnGetSysMessageSettings", a, b, c);
  }
  int OnGetAutoGainCtrlSettings(const unsigned long long& a, const ConfIDString& b,
                                PSProtocolType c) override {
    return note("OnGetAutoGainCtrlSettings", a, b, c);
  }
  int OnGetAttendantSettings(const unsigned long long& a, const ConfIDString& b,
                             GetConferenceType c, PSProtocolType d) override {
    return note("OnGetAttendantSettings", a, b, c, d);
  }
  int OnGetConferenceProgress(const unsigned long long& a, const ConfIDString& b,
                              PSProtocolType c) override {
    return note("OnGetConferenceProgress", a, b, c);
  }
  int OnGetConferenceStatus(const unsigned long long& a, const ConfIDString& b,
                            PSProtocolType c) override {
    return note("OnGetConferenceStatus", a, b, c);
  }
  int OnGetUserConfList(const unsigned long long& a, const unsigned long long& b,
                        PSProtocolType c) override {
    return note("OnGetUserConfList", a, b, c);
  }
  int OnGetActiveConfList(const unsigned long long& a, PSProtocolType b) override {
    return note("OnGetActiveConfList", a, b);
  }
  int OnGetPublicConfList(const unsigned long long& a, PSProtocolType b) override {
    return note("OnGetPublicConfList", a, b);
  }
  int OnGetRecordingParamsList(const unsigned long long& a, PSProtocolType b) override {
    return note("OnGetRecordingParamsList", a, b);
  }
  int OnAddReservation(const unsigned long long& a, const ConfIDString& b, const ReservationInfo& c,
                       PSProtocolType d) override {
    return note("OnAddReservation", a, b, c, d);
  }
  int OnRemoveReservation(const unsigned long long& a, const ConfIDString& b,
                          PSProtocolType c) override {
    return note("OnRemoveReservation", a, b, c);
  }
  int OnGetReservationList(const unsigned long long& a, const ConfIDString& b,
                           PSProtocolType c) override {
    return note("OnGetReservationList", a, b, c);
  }
  int OnGetReservationLoad(const unsigned long long& a, unsigned long b, unsigned long c,
                           PSProtocolType d) override {
    return note("OnGetReservationLoad", a, b, c, d);
  }
  int OnAddExtReservation(const unsigned long long& a, const ReservationInfo& b,
                          PSProtocolType c) override {
    return note("OnAddExtReservation", a, b, c);
  }
  int OnRemoveExtReservation(const unsigned long long& a, const SipUri& b,
                             PSProtocolType c) override {
    return note("OnRemoveExtReservation", a, b, c);
  }
  int OnGetRegisteredUserList(const unsigned long long& a, PSProtocolType b) override {
    return note("OnGetRegisteredUserList", a, b);
  }
  int OnAddRegisteredUser(const unsigned long long& a, const SipUri& b, const std::string& c,
                          PSProtocolType d) override {
    return note("OnAddRegisteredUser", a, b, c, d);
  }
  int OnRemoveRegisteredUser(const unsigned long long& a, const SipUri& b,
                             PSProtocolType c) override {
    return note("OnRemoveRegisteredUser", a, b, c);
  }
};

}  // namespace conflink::testing
