// The shared-memory queue as a transport under measurement, opened the way the messengers open
// it, with its receiver either blocking in Receive (a futex wake-up per message when the peer
// sleeps) or spinning on PeekMessage (busy poll: lowest latency, one CPU kept busy).
#include <sys/mman.h>

#include <conflink/platform/cyclic_message_queue.h>

#include "ipc_process.h"
#include "ipc_transport.h"

namespace conflink::bench {
namespace {

// The type every benchmark message travels with; the queue's own events are told apart by theirs.
constexpr int kBenchMessageType = 1;

class CyclicQueueEndpoint : public Endpoint {
 public:
  CyclicQueueEndpoint(int queueNumber, bool busyPoll)
      : queue_(queueNumber, kMessengerKeyPath, kMessengerCapacity, nullptr), busyPoll_(busyPoll) {}

  bool connected(std::string& error) {
    if (queue_.IsConnected() != 0) return true;
    error = std::string("queue not connected: ") + queue_.LastError();
    return false;
  }

  bool send(const char* data, std::size_t size) override {
    outgoing_.assign(data, size);
    return sendString(outgoing_);
  }
  bool sendString(std::string& message) override {
    int type = kBenchMessageType;
    const int result = queue_.Send(&type, &message);
    return result > 0 || failWith("Send", result);
  }

  // Skips the peer's arrival; its departure ends the wait, since nothing more can come.
  bool receive(std::string_view* message) override {
    for (;;) {
      int type = 0;
      const int result =
          busyPoll_ ? queue_.PeekMessage(&type, &incoming_) : queue_.Receive(&type, &incoming_);
      if (result == kQueueEmpty && busyPoll_) {
        cpuRelax();
        continue;
      }
      if (result <= 0) return failWith(busyPoll_ ? "PeekMessage" : "Receive", result);
      if (type == kQueueEventPeerConnected) continue;
      if (type == kQueueEventPeerDisconnected) return fail("the peer left the queue");
      if (type != kBenchMessageType) return fail("unexpected message type " + std::to_string(type));
      *message = incoming_;
      return true;
    }
  }

 private:
  bool failWith(const char* operation, int result) {
    return fail(std::string(operation) + ": " + QueueResultText(result) + " (" +
                queue_.LastError() + ")");
  }

  CyclicMessageQueue queue_;
  bool busyPoll_;
  std::string outgoing_;
  std::string incoming_;
};

class CyclicQueueTransport : public Transport {
 public:
  CyclicQueueTransport(int queueNumber, bool busyPoll)
      : queueNumber_(queueNumber), busyPoll_(busyPoll) {}

  std::string name() const override {
    return busyPoll_ ? "queue, busy poll (PeekMessage)" : "queue, blocking (Receive)";
  }
  std::string bigMessageNote() const override { return "one message, fragmented by the queue"; }

  // Each process opens the queue by name after the fork (a queue object belongs to the process
  // that opened it); here we only make sure no stale object is in the way, and that the object
  // goes away however the run ends.
  bool prepare(std::string&) override {
    const std::string name = QueueObjectName(queueNumber_, kMessengerKeyPath);
    shm_unlink(name.c_str());
    trackSharedObject(name);
    return true;
  }
  std::unique_ptr<Endpoint> open(int, std::string& error) override {
    auto end = std::make_unique<CyclicQueueEndpoint>(queueNumber_, busyPoll_);
    if (!end->connected(error)) return nullptr;
    return end;
  }

 private:
  int queueNumber_;
  bool busyPoll_;
};

}  // namespace

std::unique_ptr<Transport> makeCyclicQueueTransport(int queueNumber, bool busyPoll) {
  return std::make_unique<CyclicQueueTransport>(queueNumber, busyPoll);
}

}  // namespace conflink::bench
