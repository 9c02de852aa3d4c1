// The transports compared by ipc_bench, all seen through one small interface so that every one
// runs the very same measurement script and only the carrying of bytes differs.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

namespace conflink::bench {

// One process's end of a bidirectional message transport.
class Endpoint {
 public:
  virtual ~Endpoint() = default;
  // Sends `size` bytes as one message; `size` is at most the transport's maxMessage() when that
  // is not zero.
  virtual bool send(const char* data, std::size_t size) = 0;
  // Sends a message that already lies in a string. The queue takes its messages as strings, so
  // its end sends this one without a copy; the others send the bytes.
  virtual bool sendString(std::string& message) { return send(message.data(), message.size()); }
  // Waits for the next message. `message` stays valid until the next call on this end.
  virtual bool receive(std::string_view* message) = 0;

  // Why the last call failed.
  const std::string& error() const { return error_; }

 protected:
  bool fail(std::string text) {
    error_ = std::move(text);
    return false;
  }
  // Sets the error to `what` followed by the text of errno.
  bool failErrno(const char* what);

 private:
  std::string error_;
};

// A transport: what both processes share is made in the parent before the fork, then each
// process opens its own end after it.
class Transport {
 public:
  virtual ~Transport() = default;
  // The row label in the table.
  virtual std::string name() const = 0;
  // Largest message carried whole; 0 when a 4 MiB message goes as one. Larger messages are sent
  // in chunks of this size and reassembled by the receiver.
  virtual std::size_t maxMessage() const { return 0; }
  // How a 4 MiB message travels, for the table.
  virtual std::string bigMessageNote() const = 0;
  // Makes what both processes share. False with `error` set on failure.
  virtual bool prepare(std::string& error) = 0;
  // Opens this process's end after the fork: side 0 is the parent, side 1 the child. Null with
  // `error` set on failure.
  virtual std::unique_ptr<Endpoint> open(int side, std::string& error) = 0;
};

// A Unix-domain SOCK_SEQPACKET socketpair.
std::unique_ptr<Transport> makeSeqpacketTransport();
// Two pipes, one per direction; a message is a 4-byte length and its bytes.
std::unique_ptr<Transport> makePipeTransport();
// Two POSIX message queues, one per direction, with the largest messages the system allows.
std::unique_ptr<Transport> makePosixQueueTransport();
// The shared-memory queue with the messengers' key path and capacity. `busyPoll` makes the
// receiver spin on PeekMessage instead of blocking in Receive.
std::unique_ptr<Transport> makeCyclicQueueTransport(int queueNumber, bool busyPoll);

// The key path and ring capacity that the messengers open their queues with.
constexpr const char* kMessengerKeyPath = "/bin/ping";
constexpr unsigned int kMessengerCapacity = 32768;

// Tells the processor that this is a spin-wait loop.
void cpuRelax();

}  // namespace conflink::bench
