#include <conflink/messaging/messenger_support.h>

#include <conflink/messaging/log_sink.h>

#include <conflink/wire/wire.h>

#include <syslog.h>

#include <cstdio>

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
