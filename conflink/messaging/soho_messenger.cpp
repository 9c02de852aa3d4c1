#include <conflink/messaging/soho_messenger.h>

#include <conflink/platform/cyclic_message_queue.h>
#include <conflink/platform/thread.h>

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
