// The transports a team would reach for instead of the queue, measured by ipc_bench beside the
// kernel's: ZeroMQ PAIR sockets over ipc://, a pair of Boost.Interprocess message queues and
// iceoryx publish/subscribe. Each is optional at build time; a row that cannot run says why.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "ipc_transport.h"

namespace conflink::bench {

// One library's row: `make` builds its transport, or returns null and says why it cannot run
// here (not built, or its runtime is missing).
struct PeerRow {
  std::string label;
  std::function<std::unique_ptr<Transport>(std::string& whyNot)> make;
};

// Every peer row, in the order they are measured (iceoryx last: its daemon stays up until the
// program ends, see ipc_peer_iceoryx.cpp).
std::vector<PeerRow> peerRows();

// Blocking calls of the peers wait in slices of this length, so that the parent notices a child
// that died (childEnded) instead of waiting forever for its message.
constexpr int kPeerWaitSliceMs = 200;

#ifdef CONFLINK_BENCH_WITH_ZMQ
std::unique_ptr<Transport> makeZmqPairTransport();
#endif
#ifdef CONFLINK_BENCH_WITH_BOOST_IPC
std::unique_ptr<Transport> makeBoostQueueTransport();
#endif
#ifdef CONFLINK_BENCH_WITH_ICEORYX
// Null with `whyNot` set when the daemon cannot be started here.
std::unique_ptr<Transport> makeIceoryxTransport(std::string& whyNot);
#endif

}  // namespace conflink::bench
