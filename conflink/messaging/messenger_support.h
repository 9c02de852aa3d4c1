// Pieces that both messengers' sending and receiving paths share.
#pragma once

#include <string>

#include <conflink/wire/codec.h>
#include <conflink/messaging/types.h>
#include <conflink/platform/cyclic_message_queue.h>

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

// The loop of ProcessMessageFromQueue: takes up to `maxCount` waiting messages without blocking,
// each into `buffer`, and hands its type to `take`. True when at least one was taken.
template <class Take>
bool takeWaiting(CyclicMessageQueue* queue, std::string& buffer, int maxCount, Take take) {
  bool took = false;
  int type = 0;
  for (int i = 0; i < maxCount && queue != nullptr; ++i) {
    if (queue->PeekMessage(&type, &buffer) <= 0) break;
    took = true;
    take(type);
  }
  return took;
}

}  // namespace conflink
