// Type numbers of the web front end's link, by direction.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include <conflink/messaging/types.h>

namespace conflink::msg {

namespace cgi_to_ps {
// Has a dispatch case that accepts and drops it; nothing on this link sends it.
constexpr int kUnused11 = 11;
}  // namespace cgi_to_ps

// Lowest and highest type numbers the web front end's link dispatches.
constexpr int kCgiLinkFirstType = 2;
constexpr int kCgiLinkLastType = 287;

// A buffer of this link as the queue carries it (payload, then the 4-byte link mark), as one
// line of text: the message's name and its arguments as the receiving messenger decodes them,
// or why it would not be handled.
std::string DescribeCgiLinkMessage(int type, const char* data, size_t length);
// The same, also telling what the messenger would make of it.
std::string DescribeCgiLinkMessage(int type, const char* data, size_t length,
                                   MessageVerdict& verdict);
// The messages this link's messenger receives, in type order.
std::vector<MessageName> CgiLinkMessages();

}  // namespace conflink::msg
