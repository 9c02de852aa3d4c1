// Messages as text, for logs and the decoding tool: a link's dispatch table already knows each
// type's name and argument types, so it renders a buffer exactly as the receiving messenger
// would decode it.
#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include <conflink/messaging/dispatch.h>
#include <conflink/messaging/types.h>
#include <conflink/platform/cyclic_message_queue.h>

namespace conflink {

namespace dispatch {

// One line for a buffer as the queue carries it (payload, then the 4-byte link mark), e.g.
//   DialOut(7, ConfIDString{id="weekly"}, 42) [type 3, mark 2]
// Every outcome that DispatchMessage can have reads differently: queue events, unknown types,
// buffers too short for the mark, dropped types, malformed payloads (with the same text that
// Error reports) and bytes left after the last field. `verdict`, when given, tells which.
template <class M, size_t N>
std::string describe(const std::array<Case<M>, N>& cases, int type, const char* data, size_t length,
                     MessageVerdict* verdict = nullptr) {
  MessageVerdict ignored;
  MessageVerdict& v = verdict != nullptr ? *verdict : ignored;
  v = MessageVerdict::kQueueEvent;
  if (type == kQueueEventPeerConnected) return "queue event: the peer attached";
  if (type == kQueueEventPeerDisconnected) return "queue event: the peer left";
  // In the order DispatchMessage decides: the link's range, the room for the mark, the case.
  v = MessageVerdict::kUnknown;
  if (type < 0 || static_cast<size_t>(type) >= N) {
    return "type " + std::to_string(type) + ": not a message of this link";
  }
  const Case<M>* c = &cases[static_cast<size_t>(type)];
  const std::string number = std::to_string(type);
  if (length <= 3 || data == nullptr) {
    v = MessageVerdict::kTooShort;
    return (c->name != nullptr ? std::string(c->name) : "type " + number) + ": " +
           std::to_string(length) + " bytes, too short for the link mark [type " + number + "]";
  }
  if (c->name == nullptr) return "type " + number + ": not a message of this link";
  const size_t payload = length - 4;
  const std::string mark = std::to_string(static_cast<int>(trailer(data, length)));
  if (c->render == nullptr) {
    v = MessageVerdict::kDropped;
    return std::string(c->name) + ": accepted and dropped unread, " + std::to_string(payload) +
           " payload bytes [type " + number + ", mark " + mark + "]";
  }
  wire::Reader r(data, payload);
  std::string out = c->name;
  if (!c->render(r, out)) {
    v = MessageVerdict::kMalformed;
    return malformed(type, c->name, payload, r);
  }
  out += " [type " + number + ", mark " + mark + "]";
  v = MessageVerdict::kMessage;
  if (r.remaining() != 0) {
    v = MessageVerdict::kTrailingBytes;
    out += " with " + std::to_string(r.remaining()) + " bytes after the last field";
  }
  return out;
}

// The types that a table has cases for, in type order.
template <class M, size_t N>
std::vector<MessageName> catalogue(const std::array<Case<M>, N>& cases) {
  std::vector<MessageName> names;
  for (size_t t = 0; t < N; ++t) {
    if (cases[t].name == nullptr) continue;
    MessageName entry{};
    entry.type = static_cast<int>(t);
    entry.name = cases[t].name;
    entry.handled = cases[t].decode != nullptr;
    if (cases[t].doc != nullptr) {
      MessageDoc doc;
      cases[t].doc(doc, cases[t].name);
      entry.from = doc.from;
      entry.to = doc.to;
      entry.payload = std::move(doc.payload);
      entry.handler = std::move(doc.handler);
    }
    names.push_back(std::move(entry));
  }
  return names;
}

}  // namespace dispatch
}  // namespace conflink
