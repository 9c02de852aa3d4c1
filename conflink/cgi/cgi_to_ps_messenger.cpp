#include <conflink/cgi/cgi_to_ps_messenger.h>

#include <conflink/cgi/cgi_catalogue.h>
#include <conflink/messaging/dispatch.h>
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

using M = CGIToPSMessenger;

// Type 11 has a case that accepts and drops it, but nothing on this link sends it, so it has no
// declaration: its entry is written here.
constexpr auto kUnsentEntries = std::array{
    conflink::dispatch::Entry<M>{msg::cgi_to_ps::kUnused11,
                                 conflink::dispatch::dropCase<M>("(unused 11)")},
};

// Everything either end of the link receives (types below kCgiLinkFirstType have no case).
constexpr auto kCases = conflink::dispatch::table<M, msg::kCgiLinkLastType + 1>(
    kUnsentEntries, conflink::msg::sharedEntries<M>());

// The receive poll: tries, and the pause after each failed try.
constexpr int kPollTries = 20;
constexpr unsigned long kPollPauseMs = 250;

}  // namespace

std::string conflink::msg::DescribeCgiLinkMessage(int type, const char* data, size_t length) {
  return conflink::dispatch::describe(kCases, type, data, length);
}

std::vector<conflink::MessageName> conflink::msg::CgiLinkMessages() {
  return conflink::dispatch::catalogue(kCases);
}

CGIToPSMessenger::CGIToPSMessenger(int queueNumber)
    : SohoMessenger(queueNumber), mark_(conflink::kCgiLinkMark) {}

CGIToPSMessenger::~CGIToPSMessenger() = default;

// ---- Queue events, receive loop and dispatch ----

void CGIToPSMessenger::PeerConnected() {}
void CGIToPSMessenger::PeerDisconnected() {}

int CGIToPSMessenger::WaitForMessageAndDispatch() {
  int type = 0;
  if (queue() != nullptr) {
    for (int i = 0; i < kPollTries; ++i) {
      if (queue()->PeekMessage(&type, &received_) > 0) {
        DispatchMessage(&type, received_.c_str(), static_cast<int>(received_.size()));
        return 0;
      }
      Thread::Sleep(kPollPauseMs);
    }
    if (queue()->IsPartyOnline() != 0) {
      conflink::logInfo("WaitForMessageAndDispatch timed out waiting for party to answer.");
      return 2;
    }
  }
  conflink::logInfo(
      "PeekMessage() failed in WaitForMessageAndDispatch and IsPartyOnline is false.");
  return 1;
}

bool CGIToPSMessenger::ProcessMessageFromQueue(int maxCount) {
  // Queue events included: every type goes to DispatchMessage, which does not know them.
  return conflink::takeWaiting([this] { return queue(); }, received_, maxCount,
                               [this](int type) {
                                 DispatchMessage(&type, received_.c_str(),
                                                 static_cast<int>(received_.size()));
                               });
}

int CGIToPSMessenger::SendMessage(const int* type, std::string* buffer) {
  return conflink::sendWithTrailer(queue(), mark_, type, buffer);
}

bool CGIToPSMessenger::DispatchMessage(const int* type, const char* data, int length) {
  return conflink::dispatch::frame(
      *this, kCases, *type, data, length,
      "Wrong message format! Sender doesn't belong to CGIToPSMessenger's hierarchy!");
}

void CGIToPSMessenger::Error(const char* text) {
  conflink::reportError(text);
}
