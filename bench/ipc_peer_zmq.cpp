// ZeroMQ PAIR sockets over an ipc:// endpoint (a Unix-domain stream socket under the hood): the
// parent binds, the child connects. Each process makes its own context after the fork, as
// ZeroMQ requires. A received message stays in ZeroMQ's buffer until the next receive.
#include <unistd.h>
#include <zmq.h>

#include <cerrno>
#include <cstdio>

#include "ipc_peers.h"
#include "ipc_process.h"

namespace conflink::bench {
namespace {

class ZmqEndpoint : public Endpoint {
 public:
  ZmqEndpoint() { zmq_msg_init(&incoming_); }
  ~ZmqEndpoint() override {
    zmq_msg_close(&incoming_);
    if (socket_ != nullptr) zmq_close(socket_);
    if (context_ != nullptr) zmq_ctx_term(context_);
  }

  bool open(int side, const std::string& address) {
    context_ = zmq_ctx_new();
    if (context_ == nullptr) return failErrno("zmq_ctx_new");
    socket_ = zmq_socket(context_, ZMQ_PAIR);
    if (socket_ == nullptr) return failErrno("zmq_socket");
    // Waits are cut into slices so that a parent whose child died stops waiting; nothing lingers
    // at close.
    const int slice = kPeerWaitSliceMs;
    const int linger = 0;
    if (zmq_setsockopt(socket_, ZMQ_RCVTIMEO, &slice, sizeof slice) != 0 ||
        zmq_setsockopt(socket_, ZMQ_SNDTIMEO, &slice, sizeof slice) != 0 ||
        zmq_setsockopt(socket_, ZMQ_LINGER, &linger, sizeof linger) != 0)
      return failErrno("zmq_setsockopt");
    const int r =
        side == 0 ? zmq_bind(socket_, address.c_str()) : zmq_connect(socket_, address.c_str());
    return r == 0 || failErrno(side == 0 ? "zmq_bind" : "zmq_connect");
  }

  bool send(const char* data, std::size_t size) override {
    while (zmq_send(socket_, data, size, 0) < 0) {
      if (!retry()) return failErrno(childEnded() ? "zmq_send (the peer ended)" : "zmq_send");
    }
    return true;
  }
  bool receive(std::string_view* message) override {
    while (zmq_msg_recv(&incoming_, socket_, 0) < 0) {
      if (!retry()) return failErrno(childEnded() ? "zmq_recv (the peer ended)" : "zmq_recv");
    }
    *message = std::string_view(static_cast<const char*>(zmq_msg_data(&incoming_)),
                                zmq_msg_size(&incoming_));
    return true;
  }

 private:
  static bool retry() { return (errno == EAGAIN || errno == EINTR) && !childEnded(); }

  void* context_ = nullptr;
  void* socket_ = nullptr;
  zmq_msg_t incoming_;
};

class ZmqPairTransport : public Transport {
 public:
  ~ZmqPairTransport() override {
    if (!path_.empty() && getpid() == owner_) ::unlink(path_.c_str());
  }
  std::string name() const override { return "ZeroMQ PAIR, ipc://"; }
  std::string bigMessageNote() const override { return "one message"; }
  bool prepare(std::string&) override {
    owner_ = getpid();
    char path[96];
    std::snprintf(path, sizeof path, "/tmp/conflink-ipc-bench.%ld.zmq", static_cast<long>(owner_));
    path_ = path;
    ::unlink(path);  // left over from an earlier run under the same process id
    return true;
  }
  std::unique_ptr<Endpoint> open(int side, std::string& error) override {
    auto end = std::make_unique<ZmqEndpoint>();
    if (end->open(side, "ipc://" + path_)) return end;
    error = end->error();
    return nullptr;
  }

 private:
  std::string path_;
  pid_t owner_ = 0;
};

}  // namespace

std::unique_ptr<Transport> makeZmqPairTransport() {
  return std::make_unique<ZmqPairTransport>();
}

}  // namespace conflink::bench
