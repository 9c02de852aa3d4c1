// The call-control link as text, for logs and tools.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include <conflink/messaging/types.h>

namespace conflink::msg {

// Highest type number the call-control link carries.
constexpr int kCcLinkLastType = 288;

// A buffer of this link as the queue carries it (payload, then the 4-byte link mark), as one
// line of text: the message's name and its arguments as the receiving messenger decodes them,
// or why it would not be handled.
std::string DescribeCcLinkMessage(int type, const char* data, size_t length);
// The same, also telling what the messenger would make of it.
std::string DescribeCcLinkMessage(int type, const char* data, size_t length,
                                  MessageVerdict& verdict);
// The messages this link's messenger receives, in type order.
std::vector<MessageName> CcLinkMessages();

}  // namespace conflink::msg
