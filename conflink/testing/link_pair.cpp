#include <conflink/testing/link_pair.h>

#include <conflink/cc/cc_catalogue.h>
#include <conflink/cgi/cgi_catalogue.h>
#include <conflink/messaging/messenger_support.h>

namespace conflink::testing {

namespace {
std::string describeCc(int type, const char* data, size_t length) {
  return msg::DescribeCcLinkMessage(type, data, length);
}
std::string describeCgi(int type, const char* data, size_t length) {
  return msg::DescribeCgiLinkMessage(type, data, length);
}
}  // namespace

InMemoryLink::InMemoryLink(const CCToPSMessenger*, int queueNumber)
    : ccLink_(true), mark_(kCcLinkMark), site_{"cc", queueNumber, &describeCc} {}

InMemoryLink::InMemoryLink(const CGIToPSMessenger*, int queueNumber)
    : ccLink_(false), mark_(kCgiLinkMark), site_{"cgi", queueNumber, &describeCgi} {}

int InMemoryLink::carry(End from, int type, std::string& buffer) {
  appendTrailer(mark_, &buffer);
  TraceMessage(site_, TraceKind::kSent, type, buffer.data(), buffer.size(), kQueueOk);
  inbox_[index(from == End::kServer ? End::kClient : End::kServer)].push_back({type, buffer});
  return kQueueOk;
}

bool InMemoryLink::take(End to, int& type, std::string& buffer) {
  std::deque<Message>& inbox = inbox_[index(to)];
  if (inbox.empty()) return false;
  type = inbox.front().type;
  buffer.swap(inbox.front().buffer);
  inbox.pop_front();
  TraceMessage(site_, TraceKind::kReceived, type, buffer.data(), buffer.size());
  return true;
}

void InMemoryLink::put(End to, int type, std::string buffer) {
  inbox_[index(to)].push_back({type, std::move(buffer)});
}

}  // namespace conflink::testing
