// Type numbers of the web front end's link, by direction.
#pragma once

namespace conflink::msg {

namespace cgi_to_ps {
// Has a dispatch case that accepts and drops it; nothing on this link sends it.
constexpr int kUnused11 = 11;
}  // namespace cgi_to_ps

// Lowest and highest type numbers the web front end's link dispatches.
constexpr int kCgiLinkFirstType = 2;
constexpr int kCgiLinkLastType = 287;

}  // namespace conflink::msg
