// Two Boost.Interprocess message queues, one per direction. Their shared memory is made in the
// parent before the fork and its names removed at once: the child inherits the mappings, and no
// name is left behind whatever happens next. Like a POSIX message queue, a queue holds messages
// up to a fixed size, so 4 MiB travels in chunks.
#include <unistd.h>

#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <boost/interprocess/exceptions.hpp>
#include <boost/interprocess/ipc/message_queue.hpp>
#include <cstdio>
#include <vector>

#include "ipc_peers.h"
#include "ipc_process.h"

namespace conflink::bench {
namespace {

namespace ipc = boost::interprocess;

// 64 KiB messages as on the Unix socket; 128 of them in flight per direction (16 MiB in all).
constexpr std::size_t kBoostMessageBytes = 64 * 1024;
constexpr std::size_t kBoostDepth = 128;

boost::posix_time::ptime sliceDeadline() {
  return boost::posix_time::microsec_clock::universal_time() +
         boost::posix_time::milliseconds(kPeerWaitSliceMs);
}

class BoostQueueEndpoint : public Endpoint {
 public:
  BoostQueueEndpoint(std::unique_ptr<ipc::message_queue> in,
                     std::unique_ptr<ipc::message_queue> out)
      : in_(std::move(in)), out_(std::move(out)), incoming_(kBoostMessageBytes) {}

  bool send(const char* data, std::size_t size) override {
    try {
      while (!out_->timed_send(data, size, 0, sliceDeadline())) {
        if (childEnded()) return fail("message_queue send: the peer ended");
      }
      return true;
    } catch (const ipc::interprocess_exception& e) {
      return fail(std::string("message_queue send: ") + e.what());
    }
  }
  bool receive(std::string_view* message) override {
    try {
      ipc::message_queue::size_type got = 0;
      unsigned int priority = 0;
      while (
          !in_->timed_receive(incoming_.data(), incoming_.size(), got, priority, sliceDeadline())) {
        if (childEnded()) return fail("message_queue receive: the peer ended");
      }
      *message = std::string_view(incoming_.data(), got);
      return true;
    } catch (const ipc::interprocess_exception& e) {
      return fail(std::string("message_queue receive: ") + e.what());
    }
  }

 private:
  std::unique_ptr<ipc::message_queue> in_;
  std::unique_ptr<ipc::message_queue> out_;
  std::vector<char> incoming_;
};

class BoostQueueTransport : public Transport {
 public:
  std::string name() const override { return "Boost.Interprocess message_queue pair"; }
  std::size_t maxMessage() const override { return kBoostMessageBytes; }
  std::string bigMessageNote() const override {
    return "in " + std::to_string(kBoostMessageBytes / 1024) + " KiB chunks, " +
           std::to_string(kBoostDepth) + " deep";
  }
  bool prepare(std::string& error) override {
    for (int i = 0; i < 2; ++i) {
      char name[64];
      std::snprintf(name, sizeof name, "conflink-ipc-bench.%ld.boost.%d",
                    static_cast<long>(getpid()), i);
      ipc::message_queue::remove(name);  // left over from an earlier run under the same id
      try {
        queues_[i] = std::make_unique<ipc::message_queue>(ipc::create_only, name, kBoostDepth,
                                                          kBoostMessageBytes);
      } catch (const ipc::interprocess_exception& e) {
        error = std::string("message_queue ") + name + ": " + e.what();
      }
      ipc::message_queue::remove(name);
      if (!queues_[i]) return false;
    }
    return true;
  }
  std::unique_ptr<Endpoint> open(int side, std::string&) override {
    // Queue 0 carries parent to child, queue 1 child to parent.
    return std::make_unique<BoostQueueEndpoint>(std::move(queues_[1 - side]),
                                                std::move(queues_[side]));
  }

 private:
  std::unique_ptr<ipc::message_queue> queues_[2];
};

}  // namespace

std::unique_ptr<Transport> makeBoostQueueTransport() {
  return std::make_unique<BoostQueueTransport>();
}

}  // namespace conflink::bench
