#include <conflink/cgi/cgi_to_ps_messenger.h>

#include <conflink/cgi/cgi_catalogue.h>
#include <conflink/cgi/cgi_messages.h>
#include <conflink/messaging/dispatch.h>
#include <conflink/messaging/link_wait.h>
#include <conflink/messaging/message_text.h>
#include <conflink/messaging/messenger_support.h>
#include <conflink/messaging/shared_control_impl.h>
#include <conflink/messaging/shared_messages.h>
#include <conflink/platform/cyclic_message_queue.h>
#include <conflink/platform/thread.h>

namespace msg = conflink::msg;

template class SharedClientControl<CGIToPSMessenger>;
template class SharedServerControl<CGIToPSMessenger>;

namespace {

namespace up = msg::cgi_to_ps;
namespace down = msg::ps_to_cgi;
using conflink::msg::send;
using M = CGIToPSMessenger;

// Type 11 has a case that accepts and drops it, but nothing on this link sends it, so it has no
// declaration: its entry is written here.
constexpr auto kUnsentEntries = std::array{
    conflink::dispatch::Entry<M>{msg::cgi_to_ps::kUnused11,
                                 conflink::dispatch::dropCase<M>("(unused 11)")},
};

// Everything either end of the link receives (types below kCgiLinkFirstType have no case).
constexpr auto kCases = conflink::dispatch::table<M, msg::kCgiLinkLastType + 1>(
    msg::cgiLinkEntries<M>(), kUnsentEntries, msg::sharedEntries<M>());

// The receive poll: tries, and the pause after each failed try.
constexpr int kPollTries = 20;
constexpr unsigned long kPollPauseMs = 250;

// Where this messenger's traced events happen.
conflink::LinkSite site(int queueNumber) {
  return {"cgi", queueNumber, &conflink::msg::DescribeCgiLinkMessage};
}

}  // namespace

std::string conflink::msg::DescribeCgiLinkMessage(int type, const char* data, size_t length) {
  return conflink::dispatch::describe(kCases, type, data, length);
}

std::string conflink::msg::DescribeCgiLinkMessage(int type, const char* data, size_t length,
                                                  MessageVerdict& verdict) {
  return conflink::dispatch::describe(kCases, type, data, length, &verdict);
}

std::vector<conflink::MessageName> conflink::msg::CgiLinkMessages() {
  return conflink::dispatch::catalogue(kCases);
}

CGIToPSMessenger::CGIToPSMessenger(int queueNumber)
    : SohoMessenger(queueNumber), mark_(conflink::kCgiLinkMark) {}

CGIToPSMessenger::~CGIToPSMessenger() = default;

// ---- Sending operations: each hands its message's declaration and its arguments to send ----

int CGIToPSMessenger::CreateConference(const unsigned long long& id, const unsigned long long& user,
                                       const ConferenceParams& params, ConfIDString conf,
                                       bool flag) {
  return send(*this, up::kCreateConference, id, user, params, conf, flag);
}

int CGIToPSMessenger::SaveConfGeneral(const unsigned long long& id, const ConfIDString& conf,
                                      const unsigned long long& user,
                                      const ConfGeneralParams& general) {
  return send(*this, up::kSaveConfGeneral, id, conf, user, general);
}

int CGIToPSMessenger::SaveConfNewParticipants(const unsigned long long& id,
                                              const ConfIDString& conf,
                                              const unsigned long long& user,
                                              const NewParticipantParams& defaults) {
  return send(*this, up::kSaveConfNewParticipants, id, conf, user, defaults);
}

int CGIToPSMessenger::SaveConfParticipants(const unsigned long long& id, const ConfIDString& conf,
                                           const unsigned long long& user,
                                           const std::list<ConferenceUser>& participants) {
  return send(*this, up::kSaveConfParticipants, id, conf, user, participants);
}

int CGIToPSMessenger::SaveConfSchedule(const unsigned long long& id, const ConfIDString& conf,
                                       const unsigned long long& user,
                                       const ScheduleParams& schedule) {
  return send(*this, up::kSaveConfSchedule, id, conf, user, schedule);
}

int CGIToPSMessenger::SaveConfSipSettings(const unsigned long long& id, const ConfIDString& conf,
                                          const unsigned long long& user,
                                          const SipRegistrationParams& sip) {
  return send(*this, up::kSaveConfSipSettings, id, conf, user, sip);
}

int CGIToPSMessenger::SaveConfRecording(const unsigned long long& id, const ConfIDString& conf,
                                        const unsigned long long& user,
                                        const RecordingParams& recording) {
  return send(*this, up::kSaveConfRecording, id, conf, user, recording);
}

int CGIToPSMessenger::SaveConfCodecs(const unsigned long long& id, const ConfIDString& conf,
                                     const unsigned long long& user,
                                     const EncodingParams& encoding) {
  return send(*this, up::kSaveConfCodecs, id, conf, user, encoding);
}

int CGIToPSMessenger::SaveConfSysMessages(const unsigned long long& id, const ConfIDString& conf,
                                          const unsigned long long& user,
                                          const SysMessageParams& sysMessage) {
  return send(*this, up::kSaveConfSysMessages, id, conf, user, sysMessage);
}

int CGIToPSMessenger::SaveConfAutoGainCtrl(const unsigned long long& id, const ConfIDString& conf,
                                           const unsigned long long& user,
                                           const AutoGainCtrlParams& autoGain) {
  return send(*this, up::kSaveConfAutoGainCtrl, id, conf, user, autoGain);
}

int CGIToPSMessenger::SaveAttendant(const unsigned long long& id, const ConfIDString& conf,
                                    const unsigned long long& user,
                                    const AttendantParams& attendant, bool flag) {
  return send(*this, up::kSaveAttendant, id, conf, user, attendant, flag);
}

int CGIToPSMessenger::SaveMailText(const unsigned long long& id, const ConfIDString& conf,
                                   const unsigned long long& user, const std::string& text,
                                   bool flag) {
  return send(*this, up::kSaveMailText, id, conf, user, text, flag);
}

int CGIToPSMessenger::RestoreMailDefaults(const unsigned long long& id, const ConfIDString& conf,
                                          const unsigned long long& user) {
  return send(*this, up::kRestoreMailDefaults, id, conf, user);
}

int CGIToPSMessenger::SaveStatisticsSettings(const unsigned long long& id, int first, int second) {
  return send(*this, up::kSaveStatisticsSettings, id, first, second);
}

int CGIToPSMessenger::ClearStatistics(const unsigned long long& id) {
  return send(*this, up::kClearStatistics, id);
}

int CGIToPSMessenger::ModifyLocalRoutingTable(const unsigned long long& id,
                                              const std::list<std::string>& routes) {
  return send(*this, up::kModifyLocalRoutingTable, id, routes);
}

int CGIToPSMessenger::UpdateTOSValues(const unsigned long long& id) {
  return send(*this, up::kUpdateTOSValues, id);
}

int CGIToPSMessenger::DeleteConference(const unsigned long long& id, const ConfIDString& conf,
                                       const unsigned long long& user) {
  return send(*this, up::kDeleteConference, id, conf, user);
}

int CGIToPSMessenger::ModifyConferenceMedia(const unsigned long long& id, const ConfIDString& conf,
                                            const unsigned long long& user,
                                            const ConfTopology& topology) {
  return send(*this, up::kModifyConferenceMedia, id, conf, user, topology);
}

int CGIToPSMessenger::ModifyParticipantMedia(const unsigned long long& id) {
  return send(*this, up::kModifyParticipantMedia, id);
}

int CGIToPSMessenger::SendCreationMails(const unsigned long long& id, const ConfIDString& conf,
                                        const unsigned long long& user) {
  return send(*this, up::kSendCreationMails, id, conf, user);
}

int CGIToPSMessenger::GetConference(const unsigned long long& id, const ConfIDString& conf,
                                    GetConferenceType kind) {
  return send(*this, up::kGetConference, id, conf, kind);
}

int CGIToPSMessenger::GetGeneralSettings(const unsigned long long& id, const ConfIDString& conf,
                                         GetConferenceType kind) {
  return send(*this, up::kGetGeneralSettings, id, conf, kind);
}

int CGIToPSMessenger::GetNewParticipantSettings(const unsigned long long& id,
                                                const ConfIDString& conf) {
  return send(*this, up::kGetNewParticipantSettings, id, conf);
}

int CGIToPSMessenger::GetParticipantsList(const unsigned long long& id, const ConfIDString& conf) {
  return send(*this, up::kGetParticipantsList, id, conf);
}

int CGIToPSMessenger::GetSipSettings(const unsigned long long& id, const ConfIDString& conf,
                                     GetConferenceType kind) {
  return send(*this, up::kGetSipSettings, id, conf, kind);
}

int CGIToPSMessenger::GetRecordingSettings(const unsigned long long& id, const ConfIDString& conf) {
  return send(*this, up::kGetRecordingSettings, id, conf);
}

int CGIToPSMessenger::GetScheduleSettings(const unsigned long long& id, const ConfIDString& conf) {
  return send(*this, up::kGetScheduleSettings, id, conf);
}

int CGIToPSMessenger::GetEncodingSettings(const unsigned long long& id, const ConfIDString& conf) {
  return send(*this, up::kGetEncodingSettings, id, conf);
}

int CGIToPSMessenger::GetSysMessageSettings(const unsigned long long& id,
                                            const ConfIDString& conf) {
  return send(*this, up::kGetSysMessageSettings, id, conf);
}

int CGIToPSMessenger::GetAutoGainCtrlSettings(const unsigned long long& id,
                                              const ConfIDString& conf) {
  return send(*this, up::kGetAutoGainCtrlSettings, id, conf);
}

int CGIToPSMessenger::GetAttendantSettings(const unsigned long long& id, const ConfIDString& conf,
                                           GetConferenceType kind) {
  return send(*this, up::kGetAttendantSettings, id, conf, kind);
}

int CGIToPSMessenger::GetConferenceProgress(const unsigned long long& id,
                                            const ConfIDString& conf) {
  return send(*this, up::kGetConferenceProgress, id, conf);
}

int CGIToPSMessenger::GetConferenceStatus(const unsigned long long& id, const ConfIDString& conf) {
  return send(*this, up::kGetConferenceStatus, id, conf);
}

int CGIToPSMessenger::GetUserConfList(const unsigned long long& id,
                                      const unsigned long long& user) {
  return send(*this, up::kGetUserConfList, id, user);
}

int CGIToPSMessenger::GetActiveConfList(const unsigned long long& id) {
  return send(*this, up::kGetActiveConfList, id);
}

int CGIToPSMessenger::GetPublicConfList(const unsigned long long& id) {
  return send(*this, up::kGetPublicConfList, id);
}

int CGIToPSMessenger::GetRecordingParamsList(const unsigned long long& id) {
  return send(*this, up::kGetRecordingParamsList, id);
}

int CGIToPSMessenger::AddReservation(const unsigned long long& id, const ConfIDString& conf,
                                     const ReservationInfo& reservation) {
  return send(*this, up::kAddReservation, id, conf, reservation);
}

int CGIToPSMessenger::RemoveReservation(const unsigned long long& id, const ConfIDString& conf) {
  return send(*this, up::kRemoveReservation, id, conf);
}

int CGIToPSMessenger::GetReservationList(const unsigned long long& id, const ConfIDString& conf) {
  return send(*this, up::kGetReservationList, id, conf);
}

int CGIToPSMessenger::GetReservationLoad(const unsigned long long& id, unsigned long from,
                                         unsigned long to) {
  return send(*this, up::kGetReservationLoad, id, from, to);
}

int CGIToPSMessenger::AddExtReservation(const unsigned long long& id,
                                        const ReservationInfo& reservation) {
  return send(*this, up::kAddExtReservation, id, reservation);
}

int CGIToPSMessenger::RemoveExtReservation(const unsigned long long& id, const SipUri& uri) {
  return send(*this, up::kRemoveExtReservation, id, uri);
}

int CGIToPSMessenger::GetRegisteredUserList(const unsigned long long& id) {
  return send(*this, up::kGetRegisteredUserList, id);
}

int CGIToPSMessenger::AddRegisteredUser(const unsigned long long& id, const SipUri& uri,
                                        const std::string& text) {
  return send(*this, up::kAddRegisteredUser, id, uri, text);
}

int CGIToPSMessenger::RemoveRegisteredUser(const unsigned long long& id, const SipUri& uri) {
  return send(*this, up::kRemoveRegisteredUser, id, uri);
}

int CGIToPSMessenger::ConferenceCreated(const unsigned long long& id, const ConfIDString& conf) {
  return send(*this, down::kConferenceCreated, id, conf);
}

int CGIToPSMessenger::SendConference(const unsigned long long& id, const ConferenceParams& params) {
  return send(*this, down::kSendConference, id, params);
}

int CGIToPSMessenger::SendGeneralSettings(const unsigned long long& id,
                                          const ConfGeneralParams& general) {
  return send(*this, down::kSendGeneralSettings, id, general);
}

int CGIToPSMessenger::SendNewParticipantSettings(const unsigned long long& id,
                                                 const NewParticipantParams& defaults) {
  return send(*this, down::kSendNewParticipantSettings, id, defaults);
}

int CGIToPSMessenger::SendParticipantsList(const unsigned long long& id,
                                           const std::list<ConferenceUser>& participants) {
  return send(*this, down::kSendParticipantsList, id, participants);
}

int CGIToPSMessenger::SendSipSettings(const unsigned long long& id,
                                      const SipRegistrationParams& sip) {
  return send(*this, down::kSendSipSettings, id, sip);
}

int CGIToPSMessenger::SendRecordingSettings(const unsigned long long& id,
                                            const RecordingParams& recording,
                                            const std::list<std::string>& texts) {
  return send(*this, down::kSendRecordingSettings, id, recording, texts);
}

int CGIToPSMessenger::SendScheduleSettings(const unsigned long long& id,
                                           const ScheduleParams& schedule) {
  return send(*this, down::kSendScheduleSettings, id, schedule);
}

int CGIToPSMessenger::SendEncodingSettings(const unsigned long long& id,
                                           const EncodingParams& encoding,
                                           const std::list<std::string>& extras) {
  return send(*this, down::kSendEncodingSettings, id, encoding, extras);
}

int CGIToPSMessenger::SendSysMessageSettings(const unsigned long long& id,
                                             const SysMessageParams& sysMessage,
                                             const double& value) {
  return send(*this, down::kSendSysMessageSettings, id, sysMessage, value);
}

int CGIToPSMessenger::SendAutoGainCtrlSettings(const unsigned long long& id,
                                               const AutoGainCtrlParams& autoGain) {
  return send(*this, down::kSendAutoGainCtrlSettings, id, autoGain);
}

int CGIToPSMessenger::SendAttendantSettings(const unsigned long long& id,
                                            const AttendantParams& attendant) {
  return send(*this, down::kSendAttendantSettings, id, attendant);
}

int CGIToPSMessenger::SendConferenceProgress(const unsigned long long& id,
                                             const ConferenceProgress& progress) {
  return send(*this, down::kSendConferenceProgress, id, progress);
}

int CGIToPSMessenger::SendConferenceStatus(const unsigned long long& id,
                                           const ConferenceStatus& status) {
  return send(*this, down::kSendConferenceStatus, id, status);
}

int CGIToPSMessenger::SendUserConfList(const unsigned long long& id,
                                       const std::list<ConfInfo>& conferences) {
  return send(*this, down::kSendUserConfList, id, conferences);
}

int CGIToPSMessenger::SendActiveConfList(const unsigned long long& id,
                                         const std::list<ActiveConfInfo>& conferences) {
  return send(*this, down::kSendActiveConfList, id, conferences);
}

int CGIToPSMessenger::SendPublicConfList(const unsigned long long& id,
                                         const std::list<ActiveConfInfo>& conferences) {
  return send(*this, down::kSendPublicConfList, id, conferences);
}

int CGIToPSMessenger::SendRecordingParamsList(const unsigned long long& id,
                                              const std::list<ConfIDString>& confs,
                                              const std::list<RecordingParams>& recordings) {
  return send(*this, down::kSendRecordingParamsList, id, confs, recordings);
}

int CGIToPSMessenger::SendReservationList(const unsigned long long& id,
                                          const Reservations& reservations) {
  return send(*this, down::kSendReservationList, id, reservations);
}

int CGIToPSMessenger::SendReservationLoad(const unsigned long long& id,
                                          const std::list<LoadSegment>& load) {
  return send(*this, down::kSendReservationLoad, id, load);
}

int CGIToPSMessenger::ExtReservationAdded(const unsigned long long& id, const SipUri& uri,
                                          const std::string& text) {
  return send(*this, down::kExtReservationAdded, id, uri, text);
}

int CGIToPSMessenger::SendRegisteredUserList(const unsigned long long& id,
                                             const std::list<RegisteredUserInfo>& users) {
  return send(*this, down::kSendRegisteredUserList, id, users);
}

int CGIToPSMessenger::CgiReportError(const unsigned long long& id, ConfServError error) {
  return send(*this, down::kCgiReportError, id, error);
}

// ---- Queue events, receive loop and dispatch ----

void CGIToPSMessenger::PeerConnected() {}
void CGIToPSMessenger::PeerDisconnected() {}

int CGIToPSMessenger::WaitForMessageAndDispatch() {
  // What the poll says in the system log goes to the trace too.
  auto note = [this](const char* text) {
    conflink::TraceText(site(queueNumber()), conflink::TraceKind::kNote, text);
    conflink::logInfo(text);
  };
  int type = 0;
  if (queue() != nullptr) {
    for (int i = 0; i < kPollTries; ++i) {
      if (queue()->PeekMessage(&type, &received_) > 0) {
        conflink::TraceMessage(site(queueNumber()), conflink::TraceKind::kReceived, type,
                               received_.data(), received_.size());
        DispatchMessage(&type, received_.c_str(), static_cast<int>(received_.size()));
        return 0;
      }
      Thread::Sleep(kPollPauseMs);
    }
    if (queue()->IsPartyOnline() != 0) {
      note("WaitForMessageAndDispatch timed out waiting for party to answer.");
      return 2;
    }
  }
  note("PeekMessage() failed in WaitForMessageAndDispatch and IsPartyOnline is false.");
  return 1;
}

bool CGIToPSMessenger::ProcessMessageFromQueue(int maxCount) {
  // Queue events included: every type goes to DispatchMessage, which does not know them.
  return conflink::takeWaiting([this] { return queue(); }, received_, maxCount, site(queueNumber()),
                               [this](int type) {
                                 DispatchMessage(&type, received_.c_str(),
                                                 static_cast<int>(received_.size()));
                               });
}

int CGIToPSMessenger::WaitForMessageFor(int timeoutMs) {
  return conflink::waitAndDeliver(
      queue(), received_, timeoutMs, site(queueNumber()),
      [this](int type) { conflink::deliverTaken(*this, type, received_); });
}

bool CGIToPSMessenger::DispatchWaiting(int maxCount) {
  return conflink::takeWaiting(
      [this] { return queue(); }, received_, maxCount, site(queueNumber()),
      [this](int type) { conflink::deliverTaken(*this, type, received_); });
}

int CGIToPSMessenger::Request(const unsigned long long& id, const std::function<int()>& send,
                              int timeoutMs, int* sendResult) {
  return conflink::requestAndWait(
      queue(), received_, site(queueNumber()), id, [&] { return send ? send() : 0; }, timeoutMs,
      [this](int type) { conflink::deliverTaken(*this, type, received_); },
      [this, id](int type, unsigned long long carried, std::size_t length) {
        Error(conflink::passedOverText(id, type, carried, length).c_str());
      },
      sendResult);
}

int CGIToPSMessenger::SendMessage(const int* type, std::string* buffer) {
  return conflink::sendWithTrailer(queue(), mark_, type, buffer, site(queueNumber()));
}

bool CGIToPSMessenger::DispatchMessage(const int* type, const char* data, int length) {
  return conflink::dispatch::frame(
      *this, kCases, *type, data, length,
      "Wrong message format! Sender doesn't belong to CGIToPSMessenger's hierarchy!",
      site(queueNumber()));
}

void CGIToPSMessenger::Error(const char* text) {
  conflink::reportError(text);
}
