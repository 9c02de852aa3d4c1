#include <conflink/cc/cc_to_ps_messenger.h>

#include <conflink/cc/cc_catalogue.h>
#include <conflink/cc/cc_messages.h>
#include <conflink/messaging/dispatch.h>
#include <conflink/messaging/link_wait.h>
#include <conflink/messaging/message_text.h>
#include <conflink/messaging/messenger_support.h>
#include <conflink/messaging/shared_control_impl.h>
#include <conflink/messaging/shared_messages.h>
#include <conflink/platform/cyclic_message_queue.h>

template class SharedClientControl<CCToPSMessenger>;
template class SharedServerControl<CCToPSMessenger>;

namespace {

namespace up = conflink::msg::cc_to_ps;
namespace down = conflink::msg::ps_to_cc;
using conflink::msg::send;

constexpr auto kCases =
    conflink::dispatch::table<CCToPSMessenger, conflink::msg::kCcLinkLastType + 1>(
        conflink::msg::ccLinkEntries<CCToPSMessenger>(),
        conflink::msg::sharedEntries<CCToPSMessenger>());

// Where this messenger's traced events happen.
conflink::LinkSite site(int queueNumber) {
  return {"cc", queueNumber, &conflink::msg::DescribeCcLinkMessage};
}

}  // namespace

std::string conflink::msg::DescribeCcLinkMessage(int type, const char* data, size_t length) {
  return conflink::dispatch::describe(kCases, type, data, length);
}

std::string conflink::msg::DescribeCcLinkMessage(int type, const char* data, size_t length,
                                                 MessageVerdict& verdict) {
  return conflink::dispatch::describe(kCases, type, data, length, &verdict);
}

std::vector<conflink::MessageName> conflink::msg::CcLinkMessages() {
  return conflink::dispatch::catalogue(kCases);
}

CCToPSMessenger::CCToPSMessenger(int queueNumber)
    : SohoMessenger(queueNumber), mark_(conflink::kCcLinkMark) {}

CCToPSMessenger::~CCToPSMessenger() = default;

// ---- Sending operations: each hands its message's declaration and its arguments to send ----

int CCToPSMessenger::JoinConference(const unsigned long long& id, const ConfIDString& conf,
                                    const std::string& text, const SipUri& uri, bool flag) {
  return send(*this, up::kJoinConference, id, conf, text, uri, flag);
}

int CCToPSMessenger::ActivateParticipant(const unsigned long long& id, const ConfIDString& conf,
                                         const unsigned long long& party, const std::string& text,
                                         bool flag) {
  return send(*this, up::kActivateParticipant, id, conf, party, text, flag);
}

int CCToPSMessenger::ParticipantLeft(const unsigned long long& id, const ConfIDString& conf,
                                     const unsigned long long& party) {
  return send(*this, up::kParticipantLeft, id, conf, party);
}

int CCToPSMessenger::HoldParticipant(const unsigned long long& id, const ConfIDString& conf,
                                     const unsigned long long& party, bool hold) {
  return send(*this, up::kHoldParticipant, id, conf, party, hold);
}

int CCToPSMessenger::ForwardParticipant(const unsigned long long& id, const ConfIDString& conf,
                                        const std::list<CallParams>& calls) {
  return send(*this, up::kForwardParticipant, id, conf, calls);
}

int CCToPSMessenger::GetEndpointTopology(const unsigned long long& id, const ConfIDString& conf,
                                         const unsigned long long& party) {
  return send(*this, up::kGetEndpointTopology, id, conf, party);
}

int CCToPSMessenger::RecordingTerminated(const unsigned long long& id, const ConfIDString& conf) {
  return send(*this, up::kRecordingTerminated, id, conf);
}

int CCToPSMessenger::InitiateConferenceServer() {
  return send(*this, up::kInitiateConferenceServer);
}

int CCToPSMessenger::Success(const unsigned long long& id, CCSuccessType result) {
  return send(*this, up::kSuccess, id, result);
}

int CCToPSMessenger::ReportError(const unsigned long long& id, ConfServError error) {
  return send(*this, up::kReportError, id, error);
}

int CCToPSMessenger::AddParticipant(const unsigned long long& id, const ConfIDString& conf,
                                    const SipUri& uri, const unsigned long long& party,
                                    const CallParams& call, const std::list<std::string>& texts,
                                    const ParticipantParams& params, TransmitType transmit) {
  return send(*this, down::kAddParticipant, id, conf, uri, party, call, texts, params, transmit);
}

int CCToPSMessenger::UpdateUserInfo(const unsigned long long& id, const CallParams& call,
                                    const CallExtraParams& extra) {
  return send(*this, down::kUpdateUserInfo, id, call, extra);
}

int CCToPSMessenger::RemoveParticipant(const unsigned long long& id, const ConfIDString& conf) {
  return send(*this, down::kRemoveParticipant, id, conf);
}

int CCToPSMessenger::SetupConference(const unsigned long long& id, ConfIDString conf,
                                     const RecordingParams& recording, const CallParams* call,
                                     const ConfSpecParams& setup, unsigned short value) {
  return send(*this, down::kSetupConference, id, conf, recording, call, setup, value);
}

int CCToPSMessenger::CloseConference(const unsigned long long& id, const ConfIDString& conf,
                                     CloseConferenceReason reason) {
  return send(*this, down::kCloseConference, id, conf, reason);
}

int CCToPSMessenger::StartConference(const unsigned long long& id, const ConfIDString& conf) {
  return send(*this, down::kStartConference, id, conf);
}

int CCToPSMessenger::StopConference(const unsigned long long& id, const ConfIDString& conf) {
  return send(*this, down::kStopConference, id, conf);
}

int CCToPSMessenger::PauseConference(const unsigned long long& id) {
  return send(*this, down::kPauseConference, id);
}

int CCToPSMessenger::ResumeConference(const unsigned long long& id) {
  return send(*this, down::kResumeConference, id);
}

int CCToPSMessenger::StartRecording(const unsigned long long& id, const ConfIDString& conf) {
  return send(*this, down::kStartRecording, id, conf);
}

int CCToPSMessenger::StopRecording(const unsigned long long& id, const ConfIDString& conf) {
  return send(*this, down::kStopRecording, id, conf);
}

int CCToPSMessenger::PauseRecording(const unsigned long long& id, const ConfIDString& conf) {
  return send(*this, down::kPauseRecording, id, conf);
}

int CCToPSMessenger::ResumeRecording(const unsigned long long& id, const ConfIDString& conf) {
  return send(*this, down::kResumeRecording, id, conf);
}

int CCToPSMessenger::ModifyConferenceMedia(const unsigned long long& id, const ConfIDString& conf,
                                           const ConfTopology& topology) {
  return send(*this, down::kModifyConferenceMedia, id, conf, topology);
}

int CCToPSMessenger::ModifyParticipantMedia(const unsigned long long& id) {
  return send(*this, down::kModifyParticipantMedia, id);
}

int CCToPSMessenger::SetSpeaker(const unsigned long long& id, const ConfIDString& conf, bool on) {
  return send(*this, down::kSetSpeaker, id, conf, on);
}

int CCToPSMessenger::RegisterConfID(const unsigned long long& id, const ConfIDString& conf,
                                    const RegisterParams& first, const RegisterParams& second) {
  return send(*this, down::kRegisterConfID, id, conf, first, second);
}

int CCToPSMessenger::RegisterAllConferences(const std::list<RegisterParams>& registrations) {
  return send(*this, down::kRegisterAllConferences, registrations);
}

int CCToPSMessenger::AddScenario(const unsigned long long& id, const ConfIDString& conf,
                                 ScenarioType scenario) {
  return send(*this, down::kAddScenario, id, conf, scenario);
}

int CCToPSMessenger::UpdateScenario(const unsigned long long& id, const ConfIDString& conf,
                                    ScenarioType scenario) {
  return send(*this, down::kUpdateScenario, id, conf, scenario);
}

int CCToPSMessenger::RemoveScenario(const unsigned long long& id, const ConfIDString& conf,
                                    ScenarioType scenario) {
  return send(*this, down::kRemoveScenario, id, conf, scenario);
}

int CCToPSMessenger::JoinAccept(const unsigned long long& id, const unsigned long long& party,
                                const ConfIDString& conf, const std::list<std::string>& texts,
                                const ParticipantParams& params, TransmitType transmit) {
  return send(*this, down::kJoinAccept, id, party, conf, texts, params, transmit);
}

int CCToPSMessenger::JoinReject(const unsigned long long& id, RejectReason reason,
                                const std::list<std::string>& texts) {
  return send(*this, down::kJoinReject, id, reason, texts);
}

int CCToPSMessenger::ActivateAttendant(const unsigned long long& id, const ConfIDString& conf,
                                       const std::list<std::string>& texts,
                                       const AttendantZeroOutParams& params, bool flag) {
  return send(*this, down::kActivateAttendant, id, conf, texts, params, flag);
}

int CCToPSMessenger::SendEndpointTopology(const unsigned long long& id, const ConfIDString& conf,
                                          const EndpointTopology& topology) {
  return send(*this, down::kSendEndpointTopology, id, conf, topology);
}

int CCToPSMessenger::ReportError(const unsigned long long& id, ConfServError error, bool flag) {
  return send(*this, down::kReportError, id, error, flag);
}

// ---- Queue events, receive loop and dispatch ----

void CCToPSMessenger::PeerConnected() {
  PSPeerConnected();
}
void CCToPSMessenger::PeerDisconnected() {
  PSPeerDisConnected();
}
void CCToPSMessenger::PSPeerConnected() {}
void CCToPSMessenger::PSPeerDisConnected() {}

int CCToPSMessenger::WaitForMessageAndDispatch() {
  int type = 0;
  if (queue() == nullptr || queue()->Receive(&type, &received_) <= 0) return 1;
  conflink::TraceMessage(site(queueNumber()), conflink::TraceKind::kReceived, type,
                         received_.data(), received_.size());
  // Queue events are not filtered here: they reach DispatchMessage as unknown types.
  DispatchMessage(&type, received_.c_str(), static_cast<int>(received_.size()));
  return 0;
}

bool CCToPSMessenger::ProcessMessageFromQueue(int maxCount) {
  // On this link the documented loop already hands queue events to their handlers.
  return DispatchWaiting(maxCount);
}

int CCToPSMessenger::WaitForMessageFor(int timeoutMs) {
  return conflink::waitAndDeliver(
      queue(), received_, timeoutMs, site(queueNumber()),
      [this](int type) { conflink::deliverTaken(*this, type, received_); });
}

bool CCToPSMessenger::DispatchWaiting(int maxCount) {
  return conflink::takeWaiting(
      [this] { return queue(); }, received_, maxCount, site(queueNumber()),
      [this](int type) { conflink::deliverTaken(*this, type, received_); });
}

int CCToPSMessenger::SendMessage(const int* type, std::string* buffer) {
  return conflink::sendWithTrailer(queue(), mark_, type, buffer, site(queueNumber()));
}

bool CCToPSMessenger::DispatchMessage(const int* type, const char* data, int length) {
  return conflink::dispatch::frame(
      *this, kCases, *type, data, length,
      "Wrong message format! Sender doesn't belong to CCToPSMessenger's hierarchy!",
      site(queueNumber()));
}

void CCToPSMessenger::Error(const char* text) {
  conflink::reportError(text);
}
