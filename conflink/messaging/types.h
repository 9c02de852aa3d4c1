// The scalar types that messages carry. The enumerations travel as their 32-bit value; the
// library neither defines nor checks their values, so any int round-trips.
#pragma once

#include <string>

// Message type number; travels beside the buffer, not inside it.
typedef int MessageType;

// The link mark of a received message, handed to the server's handlers: 0 from the call-control
// link, 2 from the web front end's link.
enum PSProtocolType : int {};

// Carried on both links.
enum PSSuccessType : int {};
enum RejectReason : int {};
enum ConfServError : int {};
enum ConferenceParamType : int {};

// Carried on the call-control link.
enum CCSuccessType : int {};
enum CloseConferenceReason : int {};
enum ScenarioType : int {};
enum TransmitType : int {};

// Carried on the web front end's link.
enum GetConferenceType : int {};

namespace conflink {
// The marks each messenger appends to what it sends.
constexpr PSProtocolType kCcLinkMark = static_cast<PSProtocolType>(0);
constexpr PSProtocolType kCgiLinkMark = static_cast<PSProtocolType>(2);

// One entry of a link's catalogue of the messages its messenger receives, with what the protocol
// reference says of it (empty for a type that nothing sends).
struct MessageName {
  int type;
  const char* name;
  bool handled;  // false: accepted and dropped without a handler
  const char* from = "";
  const char* to = "";
  std::string payload;  // wire types in order ("" for an empty payload)
  std::string handler;
};

// What a link's messenger would make of a buffer, as its description tells it.
enum class MessageVerdict {
  kMessage,        // a message of the link: its handler would run with these values
  kQueueEvent,     // the peer attached or left
  kDropped,        // a type the link accepts and drops unread
  kTrailingBytes,  // handled, but bytes follow the last field
  kUnknown,        // not a type of this link: dropped silently
  kTooShort,       // no room for the link mark: reported through Error
  kMalformed,      // the payload runs short of its fields: reported through Error, no handler
};

}  // namespace conflink
