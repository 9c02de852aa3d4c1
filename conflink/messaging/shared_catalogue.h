// Type numbers of the control messages that both links carry with the same payload.
#pragma once

namespace conflink::msg {

// The server's shared replies to either client.
namespace ps_to_both {
// Sent with an empty payload; clients accept it and call no handler.
constexpr int kModeratorApprovalNeeded = 260;
}  // namespace ps_to_both

}  // namespace conflink::msg
