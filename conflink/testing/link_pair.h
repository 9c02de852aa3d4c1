// Both ends of one link inside one process, without a queue: for unit tests of a program's
// handlers. A test calls one end's sending operations; the messages are encoded, carried in
// memory and dispatched to the other end's handlers by the messengers' own encoding and dispatch,
// exactly as through a queue.
//
//   class MyServer : public CGIToPSMessenger { ... handlers that answer with Success ... };
//   class MyWebClient : public CGIToPSMessenger { ... OnSuccess records the answer ... };
//
//   conflink::testing::LinkPair<MyServer, MyWebClient> pair;
//   pair.client().SaveConfGeneral(1, ConfIDString{"42"}, 7, general);
//   pair.settle();                        // the server's handler runs, its answer reaches the
//   client EXPECT_EQ(pair.client().answers, 1);
//
// Nothing is delivered until the test asks: settle() delivers until no message waits, deliver()
// one at a time. The ends' receive entry points (ProcessMessageFromQueue and
// WaitForMessageAndDispatch) take from the in-memory link too, and never block; a program's own
// receive loop can run against the pair. attach() gives each end the queue event of its peer's
// arrival, as a queue would. Sends return 1. Both classes must derive from the same messenger
// and be constructible from a queue number, as the messengers are; IsConnected stays false.
// Tracing (see messaging/trace.h) shows the pair's traffic like a queue's.
#pragma once

#include <cstddef>
#include <deque>
#include <string>
#include <type_traits>
#include <utility>

#include <conflink/cc/cc_to_ps_messenger.h>
#include <conflink/cgi/cgi_to_ps_messenger.h>
#include <conflink/messaging/trace.h>
#include <conflink/platform/cyclic_message_queue.h>

namespace conflink::testing {

// Which end of a pair.
enum class End { kServer = 0, kClient = 1 };

// The messages in flight between the two ends, with the link's mark and rendering.
class InMemoryLink {
 public:
  InMemoryLink(const CCToPSMessenger*, int queueNumber);
  InMemoryLink(const CGIToPSMessenger*, int queueNumber);

  // Appends the link mark to `buffer`, traces the send and queues the message for the other end.
  int carry(End from, int type, std::string& buffer);
  // Takes the oldest message waiting for `to`, tracing it; false when none waits.
  bool take(End to, int& type, std::string& buffer);
  // Queues a buffer as the queue would carry it (payload, then the mark), or a queue event with
  // an empty buffer, for `to`.
  void put(End to, int type, std::string buffer);
  size_t waiting(End to) const { return inbox_[index(to)].size(); }
  bool ccLink() const { return ccLink_; }

 private:
  static size_t index(End e) { return static_cast<size_t>(e); }
  struct Message {
    int type;
    std::string buffer;
  };
  bool ccLink_;
  int mark_;
  LinkSite site_;
  std::deque<Message> inbox_[2];
};

// One end: the program's messenger class with its sending and receiving rerouted to the link.
template <class Base>
class PairEnd final : public Base {
 public:
  PairEnd(InMemoryLink& link, End end, int queueNumber)
      : Base(queueNumber), link_(link), end_(end) {}

  int SendMessage(const int* type, std::string* buffer) override {
    return link_.carry(end_, *type, *buffer);
  }
  bool ProcessMessageFromQueue(int maxCount) override {
    bool took = false;
    for (int i = 0; i < maxCount && link_.take(end_, type_, received_); ++i) {
      took = true;
      handOver(true);
    }
    return took;
  }
  int WaitForMessageAndDispatch() override {
    if (!link_.take(end_, type_, received_)) return 1;
    handOver(false);
    return 0;
  }

 private:
  // As the messengers' own loops do: the call-control messenger's ProcessMessageFromQueue turns
  // queue events into PeerConnected and PeerDisconnected; everything else goes to DispatchMessage.
  void handOver(bool eventsToPeerHandlers) {
    if constexpr (std::is_base_of_v<CCToPSMessenger, Base>) {
      if (eventsToPeerHandlers && type_ == kQueueEventPeerConnected) return this->PeerConnected();
      if (eventsToPeerHandlers && type_ == kQueueEventPeerDisconnected) {
        return this->PeerDisconnected();
      }
    }
    (void)eventsToPeerHandlers;
    this->DispatchMessage(&type_, received_.data(), static_cast<int>(received_.size()));
  }

  InMemoryLink& link_;
  End end_;
  int type_ = 0;
  std::string received_;
};

template <class Server, class Client>
class LinkPair {
  static constexpr bool kCc = std::is_base_of_v<CCToPSMessenger, Server>;
  using Messenger = std::conditional_t<kCc, CCToPSMessenger, CGIToPSMessenger>;
  static_assert(std::is_base_of_v<Messenger, Server> && std::is_base_of_v<Messenger, Client>,
                "both ends derive from the same messenger, CCToPSMessenger or CGIToPSMessenger");

 public:
  explicit LinkPair(int queueNumber = 0)
      : link_(static_cast<const Messenger*>(nullptr), queueNumber),
        server_(link_, End::kServer, queueNumber),
        client_(link_, End::kClient, queueNumber) {}

  Server& server() { return server_; }
  Client& client() { return client_; }

  // Delivers waiting messages, the server's first, then the client's, until none waits; returns
  // how many were delivered. A conversation that never ends stops after `maxMessages`.
  size_t settle(size_t maxMessages = 10000) {
    size_t delivered = 0;
    while (delivered < maxMessages && (deliver(End::kServer) || deliver(End::kClient))) {
      ++delivered;
    }
    return delivered;
  }
  // Delivers the oldest message waiting for `to`; false when none waits.
  bool deliver(End to) {
    return to == End::kServer ? server_.ProcessMessageFromQueue(1)
                              : client_.ProcessMessageFromQueue(1);
  }
  // Gives each end the queue event of its peer's arrival (delivered by the next settle).
  void attach() {
    link_.put(End::kServer, kQueueEventPeerConnected, std::string());
    link_.put(End::kClient, kQueueEventPeerConnected, std::string());
  }
  // Gives `to` the queue event of its peer's departure.
  void detach(End to) { link_.put(to, kQueueEventPeerDisconnected, std::string()); }
  // Queues a buffer for `to` as a queue would carry it (payload, then the 4-byte mark), such as
  // a malformed one.
  void inject(End to, int type, std::string buffer) { link_.put(to, type, std::move(buffer)); }
  size_t waiting(End to) const { return link_.waiting(to); }

  LinkPair(const LinkPair&) = delete;
  LinkPair& operator=(const LinkPair&) = delete;

 private:
  InMemoryLink link_;
  PairEnd<Server> server_;
  PairEnd<Client> client_;
};

}  // namespace conflink::testing
