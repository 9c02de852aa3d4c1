// Waiting on a link the way long-lived servers and one-shot clients do: a receive bounded by a
// deadline that returns as soon as something arrives, and, for a client that asks one question
// and leaves (a web page), a request that waits for the answer carrying its RequestId.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>

#include <conflink/messaging/trace.h>
#include <conflink/platform/cyclic_message_queue.h>

namespace conflink {

// Results of WaitForMessageFor. 0, 1 and 2 mean what WaitForMessageAndDispatch's do.
enum WaitResult : int {
  kWaitDispatched = 0,   // one message or queue event was taken and dispatched
  kWaitFailed = 1,       // not connected, or the queue failed (LastError of the queue says why)
  kWaitTimedOut = 2,     // nothing arrived before the deadline
  kWaitInterrupted = 3,  // InterruptWait ended the wait
};

// Results of CGIToPSMessenger::Request.
enum RequestResult : int {
  kRequestAnswered = 0,      // the answer carrying the request's RequestId was dispatched
  kRequestNotConnected = 1,  // the messenger holds no queue
  kRequestTimedOut = 2,      // no answer before the deadline (the request was sent)
  kRequestInterrupted = 3,   // InterruptWait ended the wait
  kRequestNoServer = 4,      // nobody is attached at the other end: nothing was sent
  kRequestServerLeft = 5,    // the server left before it answered
  kRequestSendFailed = 6,    // the send failed (its queue result is given back too)
  kRequestQueueFailed = 7,   // the queue failed while waiting
};
const char* RequestResultText(int result);

// Traces, as a note, messages the queue dropped since the last call because they were for an
// earlier holder of this party's place. Costs nothing while tracing is off.
void traceDiscards(CyclicMessageQueue* queue, const LinkSite& site);

// Receives one message or queue event within `timeoutMs`, traces it and hands its type to
// `deliver` (the message is in `buffer`); a WaitResult.
template <class Deliver>
int waitAndDeliver(CyclicMessageQueue* queue, std::string& buffer, int timeoutMs,
                   const LinkSite& site, Deliver deliver) {
  if (queue == nullptr) return kWaitFailed;
  int type = 0;
  const int r = queue->ReceiveFor(&type, &buffer, timeoutMs < 0 ? 0 : timeoutMs);
  traceDiscards(queue, site);
  if (r > 0) {
    TraceMessage(site, TraceKind::kReceived, type, buffer.data(), buffer.size());
    deliver(type);
    return kWaitDispatched;
  }
  if (r == kQueueEmpty) return kWaitTimedOut;
  if (r == kQueueInterrupted) return kWaitInterrupted;
  return kWaitFailed;
}

// The RequestId that opens a message's payload (the first 8 bytes, big-endian), if the message
// is long enough to carry one besides its link mark.
bool leadingRequestId(const std::string& buffer, unsigned long long& id);

// The loop of a request: sends with `send`, then takes what arrives until the answer carrying
// `id` came (handed to `deliver`), the deadline passed, or the server left. Queue events go to
// `deliver` too; a message carrying another RequestId goes to `passOver` with a text that says
// what it was, and is not dispatched. `sendResult`, when given, receives the send's result.
template <class Send, class Deliver, class PassOver>
int requestAndWait(CyclicMessageQueue* queue, std::string& buffer, const LinkSite& site,
                   unsigned long long id, Send send, int timeoutMs, Deliver deliver,
                   PassOver passOver, int* sendResult) {
  if (queue == nullptr || queue->IsConnected() == 0) return kRequestNotConnected;
  if (queue->IsPartyOnline() == 0) return kRequestNoServer;
  const int sent = send();
  if (sendResult != nullptr) *sendResult = sent;
  if (sent <= 0) return kRequestSendFailed;
  using Clock = std::chrono::steady_clock;
  const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
  for (;;) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    if (left <= 0) return kRequestTimedOut;
    int type = 0;
    const int r = queue->ReceiveFor(&type, &buffer, static_cast<int>(left));
    traceDiscards(queue, site);
    if (r == kQueueEmpty) return kRequestTimedOut;
    if (r == kQueueInterrupted) return kRequestInterrupted;
    if (r == kQueueCorrupt) continue;  // a damaged message was dropped; the queue goes on
    if (r < 0) return kRequestQueueFailed;
    TraceMessage(site, TraceKind::kReceived, type, buffer.data(), buffer.size());
    if (type == kQueueEventPeerConnected || type == kQueueEventPeerDisconnected) {
      deliver(type);
      if (type == kQueueEventPeerDisconnected) return kRequestServerLeft;
      continue;
    }
    unsigned long long carried = 0;
    if (leadingRequestId(buffer, carried) && carried == id) {
      deliver(type);
      return kRequestAnswered;
    }
    passOver(type, carried, buffer.size());
  }
}

// The text a request reports for a message it passed over.
std::string passedOverText(unsigned long long awaited, int type, unsigned long long carried,
                           std::size_t length);

}  // namespace conflink
