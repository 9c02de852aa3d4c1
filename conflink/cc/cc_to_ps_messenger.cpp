#include <conflink/cc/cc_to_ps_messenger.h>

#include <conflink/cc/cc_catalogue.h>
#include <conflink/messaging/dispatch.h>
#include <conflink/messaging/message_text.h>
#include <conflink/messaging/messenger_support.h>
#include <conflink/messaging/shared_catalogue.h>
#include <conflink/messaging/shared_control_impl.h>
#include <conflink/messaging/shared_dispatch.h>
#include <conflink/platform/cyclic_message_queue.h>

using conflink::send;
namespace msg = conflink::msg;

template class SharedControl<CCToPSMessenger>;

namespace {

using M = CCToPSMessenger;
template <auto Pmf>
constexpr conflink::dispatch::Entry<M> on(int type, const char* name) {
  return conflink::dispatch::on<Pmf, M>(type, name);
}
constexpr conflink::dispatch::Entry<M> drop(int type, const char* name) {
  return conflink::dispatch::drop<M>(type, name);
}

// Everything either end of the link receives: a messenger serves both ends, so one table holds
// both directions, and no number may serve two messages.
constexpr auto kCases = conflink::dispatch::table<M, msg::kCcLinkLastType + 1>(
    {
        // Call control to the server.
        on<&PsToCcInterface::OnInitiateConferenceServer>(msg::cc_to_ps::kInitiateConferenceServer,
                                                         "InitiateConferenceServer"),
        // The server to call control.
        drop(msg::ps_to_cc::kPauseConference, "PauseConference"),
        drop(msg::ps_to_cc::kResumeConference, "ResumeConference"),
        drop(msg::ps_to_cc::kModifyParticipantMedia, "ModifyParticipantMedia"),
    },
    conflink::dispatch::sharedEntries<M>());

}  // namespace

std::string conflink::msg::DescribeCcLinkMessage(int type, const char* data, size_t length) {
  return conflink::dispatch::describe(kCases, type, data, length);
}

std::vector<conflink::MessageName> conflink::msg::CcLinkMessages() {
  return conflink::dispatch::catalogue(kCases);
}

CCToPSMessenger::CCToPSMessenger(int queueNumber)
    : SohoMessenger(queueNumber), mark_(conflink::kCcLinkMark) {}

CCToPSMessenger::~CCToPSMessenger() = default;

// ---- Sending operations ----

int CCToPSMessenger::InitiateConferenceServer() {
  return send(*this, msg::cc_to_ps::kInitiateConferenceServer);
}

int CCToPSMessenger::ReportError(const unsigned long long& id, ConfServError error, bool) {
  return send(*this, msg::ps_to_cc::kReportError, id, error);
}

// ---- Default handlers ----

int CCToPSMessenger::OnInitiateConferenceServer(PSProtocolType) {
  return 0;
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
  // Queue events are not filtered here: they reach DispatchMessage as unknown types.
  DispatchMessage(&type, received_.c_str(), static_cast<int>(received_.size()));
  return 0;
}

bool CCToPSMessenger::ProcessMessageFromQueue(int maxCount) {
  return conflink::takeWaiting(queue(), received_, maxCount, [this](int type) {
    if (type == conflink::kQueueEventPeerConnected) {
      PeerConnected();
    } else if (type == conflink::kQueueEventPeerDisconnected) {
      PeerDisconnected();
    } else {
      DispatchMessage(&type, received_.c_str(), static_cast<int>(received_.size()));
    }
  });
}

int CCToPSMessenger::SendMessage(const int* type, std::string* buffer) {
  return conflink::sendWithTrailer(queue(), mark_, type, buffer);
}

bool CCToPSMessenger::DispatchMessage(const int* type, const char* data, int length) {
  return conflink::dispatch::frame(
      *this, kCases, *type, data, length,
      "Wrong message format! Sender doesn't belong to CCToPSMessenger's hierarchy!");
}

void CCToPSMessenger::Error(const char* text) {
  conflink::reportError(text);
}
