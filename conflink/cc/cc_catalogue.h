// Type numbers of the call-control link, by direction.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include <conflink/messaging/types.h>

namespace conflink::msg {

// Call control to the server.
namespace cc_to_ps {
constexpr int kInitiateConferenceServer = 70;
}  // namespace cc_to_ps

// The server to call control.
namespace ps_to_cc {
// Commands whose payload is empty and that call control accepts and drops without a handler.
constexpr int kPauseConference = 135;
constexpr int kResumeConference = 136;
constexpr int kModifyParticipantMedia = 142;
// Error report of the server to call control; the same number serves the web front end's link.
constexpr int kReportError = 263;
}  // namespace ps_to_cc

// Highest type number the call-control link carries.
constexpr int kCcLinkLastType = 288;

// A buffer of this link as the queue carries it (payload, then the 4-byte link mark), as one
// line of text: the message's name and its arguments as the receiving messenger decodes them,
// or why it would not be handled.
std::string DescribeCcLinkMessage(int type, const char* data, size_t length);
// The messages this link's messenger receives, in type order.
std::vector<MessageName> CcLinkMessages();

}  // namespace conflink::msg
