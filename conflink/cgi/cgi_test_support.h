// Helpers for tests of the web front end's link: a messenger that records every handler call
// with its values, and populated records for the messages that the record helpers do not cover.
#pragma once

#include <any>
#include <list>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <conflink/cgi/cgi_to_ps_messenger.h>
#include <conflink/records/records_test_support.h>

namespace conflink::testing {

// A messenger whose every handler of this link records which handler ran and a copy of the
// values it was given (the link mark included), and whose Error keeps the texts.
class CgiProbe : public CGIToPSMessenger {
 public:
  struct Call {
    std::any handler;  // the handler's member pointer
    std::any values;   // std::tuple of the decayed parameter types
  };

  explicit CgiProbe(int queueNumber = 3) : CGIToPSMessenger(queueNumber) {}

  std::vector<Call> calls;
  std::vector<std::string> errors;

  void Error(const char* text) override { errors.push_back(text); }

  // The values of the one recorded call, if it was to `handler`; null otherwise.
  template <class C, class... A>
  const std::tuple<std::decay_t<A>...>* only(int (C::*handler)(A...)) const {
    if (calls.size() != 1) return nullptr;
    const auto* h = std::any_cast<int (C::*)(A...)>(&calls[0].handler);
    if (h == nullptr || *h != handler) return nullptr;
    return std::any_cast<std::tuple<std::decay_t<A>...>>(&calls[0].values);
  }

  int OnConferenceCreated(const unsigned long long& id, const ConfIDString& conf) override {
    return note(&CgiToPsInterface::OnConferenceCreated, id, conf);
  }
  int OnSendConference(const unsigned long long& id, const ConferenceParams& params) override {
    return note(&CgiToPsInterface::OnSendConference, id, params);
  }
  int OnSendGeneralSettings(const unsigned long long& id,
                            const ConfGeneralParams& general) override {
    return note(&CgiToPsInterface::OnSendGeneralSettings, id, general);
  }
  int OnSendNewParticipantSettings(const unsigned long long& id,
                                   const NewParticipantParams& defaults) override {
    return note(&CgiToPsInterface::OnSendNewParticipantSettings, id, defaults);
  }
  int OnSendParticipantsList(const unsigned long long& id,
                             const std::list<ConferenceUser>& participants) override {
    return note(&CgiToPsInterface::OnSendParticipantsList, id, participants);
  }
  int OnSendSipSettings(const unsigned long long& id, const SipRegistrationParams& sip) override {
    return note(&CgiToPsInterface::OnSendSipSettings, id, sip);
  }
  int OnSendRecordingSettings(const unsigned long long& id, const RecordingParams& recording,
                              const std::list<std::string>& texts) override {
    return note(&CgiToPsInterface::OnSendRecordingSettings, id, recording, texts);
  }
  int OnSendScheduleSettings(const unsigned long long& id,
                             const ScheduleParams& schedule) override {
    return note(&CgiToPsInterface::OnSendScheduleSettings, id, schedule);
  }
  int OnSendEncodingSettings(const unsigned long long& id, const EncodingParams& encoding,
                             const std::list<std::string>& extras) override {
    return note(&CgiToPsInterface::OnSendEncodingSettings, id, encoding, extras);
  }
  int OnSendSysMessageSettings(const unsigned long long& id, const SysMessageParams& sysMessage,
                               const double& value) override {
    return note(&CgiToPsInterface::OnSendSysMessageSettings, id, sysMessage, value);
  }
  int OnSendAutoGainCtrlSettings(const unsigned long long& id,
                                 const AutoGainCtrlParams& autoGain) override {
    return note(&CgiToPsInterface::OnSendAutoGainCtrlSettings, id, autoGain);
  }
  int OnSendAttendantSettings(const unsigned long long& id,
                              const AttendantParams& attendant) override {
    return note(&CgiToPsInterface::OnSendAttendantSettings, id, attendant);
  }
  int OnSendConferenceProgress(const unsigned long long& id,
                               const ConferenceProgress& progress) override {
    return note(&CgiToPsInterface::OnSendConferenceProgress, id, progress);
  }
  int OnSendConferenceStatus(const unsigned long long& id,
                             const ConferenceStatus& status) override {
    return note(&CgiToPsInterface::OnSendConferenceStatus, id, status);
  }
  int OnSendUserConfList(const unsigned long long& id,
                         const std::list<ConfInfo>& conferences) override {
    return note(&CgiToPsInterface::OnSendUserConfList, id, conferences);
  }
  int OnSendActiveConfList(const unsigned long long& id,
                           const std::list<ActiveConfInfo>& conferences) override {
    return note(&CgiToPsInterface::OnSendActiveConfList, id, conferences);
  }
  int OnSendPublicConfList(const unsigned long long& id,
                           const std::list<ActiveConfInfo>& conferences) override {
    return note(&CgiToPsInterface::OnSendPublicConfList, id, conferences);
  }
  int OnSendRecordingParamsList(const unsigned long long& id, const std::list<ConfIDString>& confs,
                                const std::list<RecordingParams>& recordings) override {
    return note(&CgiToPsInterface::OnSendRecordingParamsList, id, confs, recordings);
  }
  int OnSendReservationList(const unsigned long long& id,
                            const Reservations& reservations) override {
    return note(&CgiToPsInterface::OnSendReservationList, id, reservations);
  }
  int OnSendReservationLoad(const unsigned long long& id,
                            const std::list<LoadSegment>& load) override {
    return note(&CgiToPsInterface::OnSendReservationLoad, id, load);
  }
  int OnExtReservationAdded(const unsigned long long& id, const SipUri& uri,
                            const std::string& text) override {
    return note(&CgiToPsInterface::OnExtReservationAdded, id, uri, text);
  }
  int OnSendRegisteredUserList(const unsigned long long& id,
                               const std::list<RegisteredUserInfo>& users) override {
    return note(&CgiToPsInterface::OnSendRegisteredUserList, id, users);
  }
  int OnCgiReportError(const unsigned long long& id, ConfServError error) override {
    return note(&CgiToPsInterface::OnCgiReportError, id, error);
  }
  int OnCreateConference(const unsigned long long& id, const unsigned long long& user,
                         const ConferenceParams& params, ConfIDString conf, bool flag,
                         PSProtocolType link) override {
    return note(&PsToCgiInterface::OnCreateConference, id, user, params, conf, flag, link);
  }
  int OnSaveConfGeneral(const unsigned long long& id, const ConfIDString& conf,
                        const unsigned long long& user, const ConfGeneralParams& general,
                        PSProtocolType link) override {
    return note(&PsToCgiInterface::OnSaveConfGeneral, id, conf, user, general, link);
  }
  int OnSaveConfNewParticipants(const unsigned long long& id, const ConfIDString& conf,
                                const unsigned long long& user,
                                const NewParticipantParams& defaults,
                                PSProtocolType link) override {
    return note(&PsToCgiInterface::OnSaveConfNewParticipants, id, conf, user, defaults, link);
  }
  int OnSaveConfParticipants(const unsigned long long& id, const ConfIDString& conf,
                             const unsigned long long& user,
                             const std::list<ConferenceUser>& participants,
                             PSProtocolType link) override {
    return note(&PsToCgiInterface::OnSaveConfParticipants, id, conf, user, participants, link);
  }
  int OnSaveConfSchedule(const unsigned long long& id, const ConfIDString& conf,
                         const unsigned long long& user, const ScheduleParams& schedule,
                         PSProtocolType link) override {
    return note(&PsToCgiInterface::OnSaveConfSchedule, id, conf, user, schedule, link);
  }
  int OnSaveConfSipSettings(const unsigned long long& id, const ConfIDString& conf,
                            const unsigned long long& user, const SipRegistrationParams& sip,
                            PSProtocolType link) override {
    return note(&PsToCgiInterface::OnSaveConfSipSettings, id, conf, user, sip, link);
  }
  int OnSaveConfRecording(const unsigned long long& id, const ConfIDString& conf,
                          const unsigned long long& user, const RecordingParams& recording,
                          PSProtocolType link) override {
    return note(&PsToCgiInterface::OnSaveConfRecording, id, conf, user, recording, link);
  }
  int OnSaveConfCodecs(const unsigned long long& id, const ConfIDString& conf,
                       const unsigned long long& user, const EncodingParams& encoding,
                       PSProtocolType link) override {
    return note(&PsToCgiInterface::OnSaveConfCodecs, id, conf, user, encoding, link);
  }
  int OnSaveConfSysMessages(const unsigned long long& id, const ConfIDString& conf,
                            const unsigned long long& user, const SysMessageParams& sysMessage,
                            PSProtocolType link) override {
    return note(&PsToCgiInterface::OnSaveConfSysMessages, id, conf, user, sysMessage, link);
  }
  int OnSaveConfAutoGainCtrl(const unsigned long long& id, const ConfIDString& conf,
                             const unsigned long long& user, const AutoGainCtrlParams& autoGain,
                             PSProtocolType link) override {
    return note(&PsToCgiInterface::OnSaveConfAutoGainCtrl, id, conf, user, autoGain, link);
  }
  int OnSaveAttendant(const unsigned long long& id, const ConfIDString& conf,
                      const unsigned long long& user, const AttendantParams& attendant, bool flag,
                      PSProtocolType link) override {
    return note(&PsToCgiInterface::OnSaveAttendant, id, conf, user, attendant, flag, link);
  }
  int OnSaveMailText(const unsigned long long& id, const ConfIDString& conf,
                     const unsigned long long& user, const std::string& text, bool flag,
                     PSProtocolType link) override {
    return note(&PsToCgiInterface::OnSaveMailText, id, conf, user, text, flag, link);
  }
  int OnRestoreMailDefaults(const unsigned long long& id, const ConfIDString& conf,
                            const unsigned long long& user, PSProtocolType link) override {
    return note(&PsToCgiInterface::OnRestoreMailDefaults, id, conf, user, link);
  }
  int OnSaveStatisticsSettings(const unsigned long long& id, int first, int second,
                               PSProtocolType link) override {
    return note(&PsToCgiInterface::OnSaveStatisticsSettings, id, first, second, link);
  }
  int OnClearStatistics(const unsigned long long& id, PSProtocolType link) override {
    return note(&PsToCgiInterface::OnClearStatistics, id, link);
  }
  int OnModifyLocalRoutingTable(const unsigned long long& id, const std::list<std::string>& routes,
                                PSProtocolType link) override {
    return note(&PsToCgiInterface::OnModifyLocalRoutingTable, id, routes, link);
  }
  int OnUpdateTOSValues(const unsigned long long& id, PSProtocolType link) override {
    return note(&PsToCgiInterface::OnUpdateTOSValues, id, link);
  }
  int OnDeleteConference(const unsigned long long& id, const ConfIDString& conf,
                         const unsigned long long& user, PSProtocolType link) override {
    return note(&PsToCgiInterface::OnDeleteConference, id, conf, user, link);
  }
  int OnModifyConferenceMedia(const unsigned long long& id, const ConfIDString& conf,
                              const unsigned long long& user, const ConfTopology& topology,
                              PSProtocolType link) override {
    return note(&PsToCgiInterface::OnModifyConferenceMedia, id, conf, user, topology, link);
  }
  int OnModifyParticipantMedia(const unsigned long long& id, PSProtocolType link) override {
    return note(&PsToCgiInterface::OnModifyParticipantMedia, id, link);
  }
  int OnSendCreationMails(const unsigned long long& id, const ConfIDString& conf,
                          const unsigned long long& user, PSProtocolType link) override {
    return note(&PsToCgiInterface::OnSendCreationMails, id, conf, user, link);
  }
  int OnGetConference(const unsigned long long& id, const ConfIDString& conf,
                      GetConferenceType kind, PSProtocolType link) override {
    return note(&PsToCgiInterface::OnGetConference, id, conf, kind, link);
  }
  int OnGetGeneralSettings(const unsigned long long& id, const ConfIDString& conf,
                           GetConferenceType kind, PSProtocolType link) override {
    return note(&PsToCgiInterface::OnGetGeneralSettings, id, conf, kind, link);
  }
  int OnGetNewParticipantSettings(const unsigned long long& id, const ConfIDString& conf,
                                  PSProtocolType link) override {
    return note(&PsToCgiInterface::OnGetNewParticipantSettings, id, conf, link);
  }
  int OnGetParticipantsList(const unsigned long long& id, const ConfIDString& conf,
                            PSProtocolType link) override {
    return note(&PsToCgiInterface::OnGetParticipantsList, id, conf, link);
  }
  int OnGetSipSettings(const unsigned long long& id, const ConfIDString& conf,
                       GetConferenceType kind, PSProtocolType link) override {
    return note(&PsToCgiInterface::OnGetSipSettings, id, conf, kind, link);
  }
  int OnGetRecordingSettings(const unsigned long long& id, const ConfIDString& conf,
                             PSProtocolType link) override {
    return note(&PsToCgiInterface::OnGetRecordingSettings, id, conf, link);
  }
  int OnGetScheduleSettings(const unsigned long long& id, const ConfIDString& conf,
                            PSProtocolType link) override {
    return note(&PsToCgiInterface::OnGetScheduleSettings, id, conf, link);
  }
  int OnGetEncodingSettings(const unsigned long long& id, const ConfIDString& conf,
                            PSProtocolType link) override {
    return note(&PsToCgiInterface::OnGetEncodingSettings, id, conf, link);
  }
  int OnGetSysMessageSettings(const unsigned long long& id, const ConfIDString& conf,
                              PSProtocolType link) override {
    return note(&PsToCgiInterface::OnGetSysMessageSettings, id, conf, link);
  }
  int OnGetAutoGainCtrlSettings(const unsigned long long& id, const ConfIDString& conf,
                                PSProtocolType link) override {
    return note(&PsToCgiInterface::OnGetAutoGainCtrlSettings, id, conf, link);
  }
  int OnGetAttendantSettings(const unsigned long long& id, const ConfIDString& conf,
                             GetConferenceType kind, PSProtocolType link) override {
    return note(&PsToCgiInterface::OnGetAttendantSettings, id, conf, kind, link);
  }
  int OnGetConferenceProgress(const unsigned long long& id, const ConfIDString& conf,
                              PSProtocolType link) override {
    return note(&PsToCgiInterface::OnGetConferenceProgress, id, conf, link);
  }
  int OnGetConferenceStatus(const unsigned long long& id, const ConfIDString& conf,
                            PSProtocolType link) override {
    return note(&PsToCgiInterface::OnGetConferenceStatus, id, conf, link);
  }
  int OnGetUserConfList(const unsigned long long& id, const unsigned long long& user,
                        PSProtocolType link) override {
    return note(&PsToCgiInterface::OnGetUserConfList, id, user, link);
  }
  int OnGetActiveConfList(const unsigned long long& id, PSProtocolType link) override {
    return note(&PsToCgiInterface::OnGetActiveConfList, id, link);
  }
  int OnGetPublicConfList(const unsigned long long& id, PSProtocolType link) override {
    return note(&PsToCgiInterface::OnGetPublicConfList, id, link);
  }
  int OnGetRecordingParamsList(const unsigned long long& id, PSProtocolType link) override {
    return note(&PsToCgiInterface::OnGetRecordingParamsList, id, link);
  }
  int OnAddReservation(const unsigned long long& id, const ConfIDString& conf,
                       const ReservationInfo& reservation, PSProtocolType link) override {
    return note(&PsToCgiInterface::OnAddReservation, id, conf, reservation, link);
  }
  int OnRemoveReservation(const unsigned long long& id, const ConfIDString& conf,
                          PSProtocolType link) override {
    return note(&PsToCgiInterface::OnRemoveReservation, id, conf, link);
  }
  int OnGetReservationList(const unsigned long long& id, const ConfIDString& conf,
                           PSProtocolType link) override {
    return note(&PsToCgiInterface::OnGetReservationList, id, conf, link);
  }
  int OnGetReservationLoad(const unsigned long long& id, unsigned long from, unsigned long to,
                           PSProtocolType link) override {
    return note(&PsToCgiInterface::OnGetReservationLoad, id, from, to, link);
  }
  int OnAddExtReservation(const unsigned long long& id, const ReservationInfo& reservation,
                          PSProtocolType link) override {
    return note(&PsToCgiInterface::OnAddExtReservation, id, reservation, link);
  }
  int OnRemoveExtReservation(const unsigned long long& id, const SipUri& uri,
                             PSProtocolType link) override {
    return note(&PsToCgiInterface::OnRemoveExtReservation, id, uri, link);
  }
  int OnGetRegisteredUserList(const unsigned long long& id, PSProtocolType link) override {
    return note(&PsToCgiInterface::OnGetRegisteredUserList, id, link);
  }
  int OnAddRegisteredUser(const unsigned long long& id, const SipUri& uri, const std::string& text,
                          PSProtocolType link) override {
    return note(&PsToCgiInterface::OnAddRegisteredUser, id, uri, text, link);
  }
  int OnRemoveRegisteredUser(const unsigned long long& id, const SipUri& uri,
                             PSProtocolType link) override {
    return note(&PsToCgiInterface::OnRemoveRegisteredUser, id, uri, link);
  }

 private:
  template <class F, class... A>
  int note(F handler, const A&... values) {
    calls.push_back({handler, std::make_tuple(values...)});
    return 0;
  }
};

// Populated records in which every field holds a value that depends on `s`.
inline AttendantParams sampleAttendant(int s) {
  return {t(s, "attendant"),
          sampleSipRegistration(s + 1),
          0xA0A1A2A3A4A5A6A7ULL + s,
          7ULL + s,
          s + 1,
          -s - 2,
          sampleUri(s + 2)};
}
inline ConfTopology sampleTopology(int s) {
  return {{{10ULL + s, {{20ULL + s, s + 1}, {~0ULL, -s - 2}}}, {30ULL + s, {}}}};
}
inline ReservationInfo sampleReservation(int s) {
  return {0x8000000000000001ULL + s, static_cast<unsigned short>(0xFFFE - s), s + 5, -s - 6};
}
inline ConferenceProgress sampleProgress(int s, int users) {
  ConferenceProgress p{t(s, "p1"), t(s, "p2"),
                       t(s, "p3"), t(s, "p4"),
                       t(s, "p5"), t(s, "p6"),
                       s + 1,      s + 2,
                       s + 3,      s + 4,
                       -s - 5,     static_cast<unsigned short>(0x8001 + s),
                       s + 6,      static_cast<unsigned short>(s + 7),
                       -s - 8,     {}};
  for (int i = 0; i < users; ++i) p.participants.push_back(sampleUser(s * 10 + i));
  return p;
}
inline ConfInfo sampleConfInfo(int s) {
  return {t(s, "i1"),
          t(s, "i2"),
          t(s, "i3"),
          t(s, "i4"),
          t(s, "i5"),
          t(s, "i6"),
          t(s, "i7"),
          s + 1,
          s + 2,
          -s - 3,
          0xFEDCBA9876543210ULL + s,
          {t(s, "a"), "", t(s, "c")}};
}
inline ActiveConfInfo sampleActiveConf(int s) {
  return {t(s, "a1"),
          t(s, "a2"),
          t(s, "a3"),
          t(s, "a4"),
          t(s, "a5"),
          t(s, "a6"),
          s + 1,
          s + 2,
          -s - 3,
          static_cast<unsigned short>(0xFFFF - s),
          static_cast<unsigned short>(s + 4)};
}
inline RegisteredUserInfo sampleRegisteredUser(int s) {
  RegisteredUserInfo u;
  static_cast<SipUri&>(u) = sampleUri(s);
  return u;
}
// A recording whose address does not travel (its second number is not 0); it arrives with an
// empty address, so it is built with one.
inline RecordingParams sampleRecordingWithoutAddress(int s) {
  return {s + 1, {t(s, "r")}, s + 2, s + 3, s + 4, -s - 5, SipUri{}};
}

}  // namespace conflink::testing
