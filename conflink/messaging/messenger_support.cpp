#include <conflink/messaging/messenger_support.h>

#include <conflink/messaging/log_sink.h>

#include <conflink/wire/wire.h>

#include <syslog.h>

#include <cstdio>

#include <conflink/messaging/link_wait.h>
#include <conflink/platform/cyclic_message_queue.h>

namespace conflink {

void appendTrailer(int mark, std::string* buffer) {
  const uint32_t big = wire::toBig32(static_cast<uint32_t>(mark));
  buffer->append(reinterpret_cast<const char*>(&big), sizeof big);
}

int sendWithTrailer(CyclicMessageQueue* queue, int mark, const int* type, std::string* buffer,
                    const LinkSite& site) {
  appendTrailer(mark, buffer);
  const int result = queue == nullptr ? kQueueNotConnected : queue->Send(type, buffer);
  TraceMessage(site, TraceKind::kSent, *type, buffer->data(), buffer->size(), result);
  return result;
}

namespace {

void toSystemLog(void*, int priority, const char* text) {
  syslog(priority, "%s", text);
}

LogSink logSink = toSystemLog;
void* logContext = nullptr;

}  // namespace

void SetLogSink(LogSink sink, void* context) {
  logSink = sink != nullptr ? sink : toSystemLog;
  logContext = sink != nullptr ? context : nullptr;
}

void reportError(const char* text) {
  std::fprintf(stderr, "\n\r%s\r\n", text);
  std::fflush(stderr);
  logSink(logContext, LOG_INFO, text);
}

void logInfo(const char* text) {
  logSink(logContext, LOG_INFO, text);
}

}  // namespace conflink

namespace conflink {

const char* RequestResultText(int result) {
  switch (result) {
    case kRequestAnswered:
      return "answered";
    case kRequestNotConnected:
      return "not connected";
    case kRequestTimedOut:
      return "no answer before the deadline";
    case kRequestInterrupted:
      return "interrupted";
    case kRequestNoServer:
      return "no server attached";
    case kRequestServerLeft:
      return "the server left before answering";
    case kRequestSendFailed:
      return "the request could not be sent";
    case kRequestQueueFailed:
      return "the queue failed while waiting";
    default:
      return "unknown request result";
  }
}

void traceDiscards(CyclicMessageQueue* queue, const LinkSite& site) {
  if (!TraceOn() || queue == nullptr) return;
  const unsigned int n = queue->TakeNewDiscards();
  if (n == 0) return;
  const std::string text = "dropped " + std::to_string(n) +
                           " message(s) on arrival: they were for the process that held this "
                           "place before";
  TraceText(site, TraceKind::kNote, text.c_str());
}

bool leadingRequestId(const std::string& buffer, unsigned long long& id) {
  if (buffer.size() < 8 + 4) return false;
  id = 0;
  for (int i = 0; i < 8; ++i) id = (id << 8) | static_cast<unsigned char>(buffer[i]);
  return true;
}

std::string passedOverText(unsigned long long awaited, int type, unsigned long long carried,
                           std::size_t length) {
  std::string text =
      "Request " + std::to_string(awaited) + ": passed over message " + std::to_string(type);
  if (length >= 12)
    text += " carrying request " + std::to_string(carried) + ", not this request's answer";
  else
    text += " of " + std::to_string(length) + " bytes, which carries no request";
  return text;
}

}  // namespace conflink
