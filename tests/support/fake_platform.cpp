#include "tests/support/fake_platform.h"

#include <conflink/platform/platform.h>

namespace conflink::testing {
namespace {
FakePlatform fake;
}
FakePlatform& Fake() {
  return fake;
}
void ResetFake() {
  fake = FakePlatform{};
}
}  // namespace conflink::testing

using conflink::testing::Fake;

namespace conflink {
const char* QueueResultText(int) {
  return "fake queue";
}
const char* QueueOpenResultText(int) {
  return "fake open";
}
std::string QueueObjectName(int, const char*) {
  return "fake";
}
}  // namespace conflink

struct CyclicMessageQueue::State {
  bool connected;
};

CyclicMessageQueue::CyclicMessageQueue(int queueNumber, const char* keyPath, unsigned int capacity,
                                       Link* link)
    : CyclicMessageQueue(queueNumber, keyPath, capacity, link, 0) {}
CyclicMessageQueue::CyclicMessageQueue(int queueNumber, const char* keyPath, unsigned int capacity,
                                       Link* link, int waitMs)
    : state_(new State{false}) {
  Fake().waitSeen = waitMs;
  auto& f = Fake();
  ++f.queuesMade;
  ++f.queuesAlive;
  f.liveQueues.insert(this);
  f.queueNumberSeen = queueNumber;
  f.keyPathSeen = keyPath;
  f.capacitySeen = capacity;
  f.linkWasNull = link == nullptr;
  state_->connected = f.connectOnTry != 0 && f.queuesMade >= f.connectOnTry;
}
CyclicMessageQueue::~CyclicMessageQueue() {
  ++Fake().queuesDestroyed;
  --Fake().queuesAlive;
  Fake().liveQueues.erase(this);
  delete state_;
}
int CyclicMessageQueue::Send(const int* type, std::string* buffer) {
  Fake().sent.push_back({*type, *buffer});
  return Fake().sendResult;
}
int CyclicMessageQueue::Receive(int* type, std::string* buffer) {
  auto& f = Fake();
  if (f.inbox.empty()) return f.receiveFailure;
  *type = f.inbox.front().type;
  *buffer = std::move(f.inbox.front().buffer);
  f.inbox.pop_front();
  return 1;
}
int CyclicMessageQueue::PeekMessage(int* type, std::string* buffer) {
  auto& f = Fake();
  ++f.peeks;
  if (f.liveQueues.count(this) == 0) ++f.callsOnDestroyedQueues;
  if (f.emptyPeeks > 0) {
    --f.emptyPeeks;
    return 0;
  }
  return f.inbox.empty() ? 0 : Receive(type, buffer);
}
int CyclicMessageQueue::ReceiveFor(int* type, std::string* buffer, int) {
  return PeekMessage(type, buffer);
}
unsigned int CyclicMessageQueue::PendingBytes() {
  return 0;
}
unsigned int CyclicMessageQueue::FreeBytes() {
  return 0;
}
const char* CyclicMessageQueue::LastError() {
  return "";
}
int CyclicMessageQueue::IsPartyOnline() {
  return Fake().peerOnline ? 1 : 0;
}
int CyclicMessageQueue::Interrupt() {
  return 1;
}
unsigned int CyclicMessageQueue::Capacity() {
  return Fake().capacitySeen;
}
int CyclicMessageQueue::IsConnected() {
  return state_->connected && !Fake().dropConnection;
}

int CyclicMessageQueue::OpenResult() const {
  return state_->connected ? conflink::kQueueOpened : Fake().openFailure;
}
int CyclicMessageQueue::ReadinessFd() {
  return -1;
}
unsigned int CyclicMessageQueue::DiscardedMessages() const {
  return 0;
}
unsigned int CyclicMessageQueue::TakeNewDiscards() {
  return 0;
}
unsigned int CyclicMessageQueue::AddressedPeer() const {
  return 0;
}

void Thread::Sleep(unsigned long ms) {
  Fake().sleeps.push_back(ms);
}
