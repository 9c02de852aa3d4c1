#include <conflink/messaging/messenger_support.h>

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

void reportError(const char* text) {
  std::fprintf(stderr, "\n\r%s\r\n", text);
  std::fflush(stderr);
  syslog(LOG_INFO, "%s", text);
}

void logInfo(const char* text) {
  syslog(LOG_INFO, "%s", text);
}

}  // namespace conflink
