// Pieces that both messengers' sending and receiving paths share.
#pragma once

#include <string>

#include <conflink/messaging/codec.h>
#include <conflink/messaging/types.h>

class CyclicMessageQueue;

namespace conflink {

// Builds one message from `args` (in order, each by its wire form) and hands it to the
// messenger's SendMessage. The buffer is measured and allocated once, with room for the trailer.
template <class M, class... A>
int send(M& m, int type, const A&... args) {
  std::string buffer;
  wire::append(buffer, 4, args...);
  return m.SendMessage(&type, &buffer);
}

// Appends the link mark to `buffer` in place and gives the message to the queue. An unconnected
// messenger (no queue) fails with the queue's not-connected code instead of crashing.
int sendWithTrailer(CyclicMessageQueue* queue, int mark, const int* type, std::string* buffer);

// Writes `text` to the standard error stream framed by line ends, and to the system log at
// priority 6 (informational).
void reportError(const char* text);

// Writes `text` to the system log at priority 6 only.
void logInfo(const char* text);

}  // namespace conflink
