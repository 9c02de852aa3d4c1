#include <conflink/messaging/soho_messenger.h>

#include <conflink/platform/cyclic_message_queue.h>
#include <conflink/platform/thread.h>

#include <new>

SohoMessenger::SohoMessenger(int queueNumber) : queueNumber_(queueNumber), queue_(nullptr) {}

SohoMessenger::~SohoMessenger() {
  Disconnect();
}

bool SohoMessenger::IsConnected() {
  return queue_ != nullptr && queue_->IsConnected() != 0;
}

bool SohoMessenger::Connect(unsigned int attempts, int pauseMs) {
  if (IsConnected()) return true;
  // A queue that went bad is released rather than leaked when it is replaced.
  Disconnect();
  while (attempts > 0) {
    --attempts;
    queue_ = new CyclicMessageQueue(queueNumber_, kQueueKeyPath, kQueueCapacity, nullptr);
    if (IsConnected()) return true;
    Disconnect();
    if (attempts > 0) Thread::Sleep(static_cast<unsigned long>(pauseMs < 0 ? 0 : pauseMs));
  }
  return false;
}

void SohoMessenger::Disconnect() {
  delete queue_;
  queue_ = nullptr;
}

void SohoMessenger::InterruptWait() {
  CyclicMessageQueue* queue = queue_;
  if (queue != nullptr) queue->Interrupt();
}

int SohoMessenger::ConnectWaiting(int waitMs, std::string* why) {
  if (IsConnected()) return conflink::kQueueOpened;
  Disconnect();
  queue_ = new (std::nothrow)
      CyclicMessageQueue(queueNumber_, kQueueKeyPath, kQueueCapacity, nullptr, waitMs);
  if (queue_ == nullptr) {
    if (why != nullptr) *why = "out of memory";
    return conflink::kQueueOpenNoMemory;
  }
  if (IsConnected()) return conflink::kQueueOpened;
  const int result = queue_->OpenResult();
  if (why != nullptr) *why = queue_->LastError();
  Disconnect();
  return result == conflink::kQueueOpened ? conflink::kQueueOpenSystemError : result;
}

int SohoMessenger::ReadinessFd() {
  return queue_ == nullptr ? -1 : queue_->ReadinessFd();
}
