// Pieces that both messengers' sending and receiving paths share.
#pragma once

#include <string>

#include <conflink/messaging/trace.h>
#include <conflink/messaging/types.h>
#include <conflink/platform/cyclic_message_queue.h>

namespace conflink {

// Appends the link mark to `buffer` in place.
void appendTrailer(int mark, std::string* buffer);

// Appends the link mark to `buffer` in place and gives the message to the queue; traces it. An
// unconnected messenger (no queue) fails with the queue's not-connected code instead of crashing.
int sendWithTrailer(CyclicMessageQueue* queue, int mark, const int* type, std::string* buffer,
                    const LinkSite& site);

// Writes `text` to the standard error stream framed by line ends, and to the system log at
// priority 6 (informational), through the log sink (see log_sink.h).
void reportError(const char* text);

// Writes `text` to the system log at priority 6 only, through the log sink.
void logInfo(const char* text);

// The loop of ProcessMessageFromQueue: takes up to `maxCount` waiting messages without blocking,
// each into `buffer`, traces it and hands its type to `take`. True when at least one was taken.
//
// The queue is asked of `queueOf` before every message, never kept: a handler may disconnect or
// reconnect the messenger (a departure handler that reopens the link does), and the next message
// must come from the queue the messenger holds then, not from one that was freed.
template <class QueueOf, class Take>
bool takeWaiting(QueueOf queueOf, std::string& buffer, int maxCount, const LinkSite& site,
                 Take take) {
  bool took = false;
  int type = 0;
  for (int i = 0; i < maxCount; ++i) {
    CyclicMessageQueue* queue = queueOf();
    if (queue == nullptr || queue->PeekMessage(&type, &buffer) <= 0) break;
    took = true;
    TraceMessage(site, TraceKind::kReceived, type, buffer.data(), buffer.size());
    take(type);
  }
  return took;
}

// Hands a message or queue event that was taken into `received` to the messenger: the peer's
// arrival and departure to PeerConnected and PeerDisconnected, a message to DispatchMessage.
template <class Messenger>
void deliverTaken(Messenger& messenger, int type, const std::string& received) {
  if (type == kQueueEventPeerConnected) {
    messenger.PeerConnected();
  } else if (type == kQueueEventPeerDisconnected) {
    messenger.PeerDisconnected();
  } else {
    messenger.DispatchMessage(&type, received.c_str(), static_cast<int>(received.size()));
  }
}

}  // namespace conflink
