// Type numbers of the control messages that both links carry with the same payload.
#pragma once

namespace conflink::msg {

// Requests of either client (call control or the web front end) to the server.
namespace both_to_ps {
constexpr int kAddParticipant = 2;
constexpr int kDialOut = 3;
constexpr int kDeleteParticipant = 4;
constexpr int kSetSpeaker = 5;
constexpr int kStartLectureMode = 6;
constexpr int kRequestToSpeak = 7;
constexpr int kAuthorizationRequest = 12;
constexpr int kStartConference = 14;
constexpr int kStopConference = 15;
constexpr int kRequestStartRecording = 16;
constexpr int kRequestStopRecording = 17;
constexpr int kRequestPauseRecording = 18;
constexpr int kRequestResumeRecording = 19;
constexpr int kInitiateDialOut = 21;
constexpr int kLockConference = 22;
constexpr int kGetConferenceParam = 56;
}  // namespace both_to_ps

// The server's shared replies to either client.
namespace ps_to_both {
constexpr int kSuccess = 258;
constexpr int kReject = 259;
// Sent with an empty payload; clients accept it and call no handler.
constexpr int kModeratorApprovalNeeded = 260;
constexpr int kAuthorizationPassed = 261;
constexpr int kConferenceLocked = 262;
constexpr int kSendConferenceParam = 278;
}  // namespace ps_to_both

}  // namespace conflink::msg
