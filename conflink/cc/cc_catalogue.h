// Type numbers of the call-control link, by direction.
#pragma once

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

}  // namespace conflink::msg
