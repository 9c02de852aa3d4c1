// Placeholder until the shared-memory queue lands: every queue reports not connected.
#include <conflink/platform/cyclic_message_queue.h>

namespace conflink {
const char* QueueResultText(int) { return "queue not implemented"; }
std::string QueueObjectName(int, const char*) { return {}; }
}  // namespace conflink

struct CyclicMessageQueue::State {};
CyclicMessageQueue::CyclicMessageQueue(int, const char*, unsigned int, Link*) : state_(nullptr) {}
CyclicMessageQueue::~CyclicMessageQueue() = default;
int CyclicMessageQueue::Send(const int*, std::string*) { return conflink::kQueueNotConnected; }
int CyclicMessageQueue::Receive(int*, std::string*) { return conflink::kQueueNotConnected; }
int CyclicMessageQueue::PeekMessage(int*, std::string*) { return conflink::kQueueNotConnected; }
int CyclicMessageQueue::ReceiveFor(int*, std::string*, int) { return conflink::kQueueNotConnected; }
unsigned int CyclicMessageQueue::PendingBytes() { return 0; }
unsigned int CyclicMessageQueue::FreeBytes() { return 0; }
const char* CyclicMessageQueue::LastError() { return "queue not implemented"; }
int CyclicMessageQueue::IsPartyOnline() { return 0; }
int CyclicMessageQueue::QueueNumber() { return 0; }
unsigned int CyclicMessageQueue::Capacity() { return 0; }
int CyclicMessageQueue::IsConnected() { return 0; }
