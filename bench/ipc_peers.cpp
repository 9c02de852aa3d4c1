#include "ipc_peers.h"

namespace conflink::bench {
namespace {

// A row whose library was not found when this program was built.
[[maybe_unused]] PeerRow notBuilt(const char* label, const char* package) {
  const std::string why = std::string("not built: ") + package + " was not found at build time";
  return {label, [why](std::string& whyNot) -> std::unique_ptr<Transport> {
            whyNot = why;
            return nullptr;
          }};
}

}  // namespace

std::vector<PeerRow> peerRows() {
  std::vector<PeerRow> rows;
#ifdef CONFLINK_BENCH_WITH_ZMQ
  rows.push_back({"ZeroMQ PAIR, ipc://", [](std::string&) { return makeZmqPairTransport(); }});
#else
  rows.push_back(notBuilt("ZeroMQ PAIR, ipc://", "libzmq (libzmq3-dev)"));
#endif
#ifdef CONFLINK_BENCH_WITH_BOOST_IPC
  rows.push_back({"Boost.Interprocess message_queue pair",
                  [](std::string&) { return makeBoostQueueTransport(); }});
#else
  rows.push_back(notBuilt("Boost.Interprocess message_queue pair", "Boost (libboost-dev)"));
#endif
#ifdef CONFLINK_BENCH_WITH_ICEORYX
  rows.push_back({"iceoryx publish/subscribe", makeIceoryxTransport});
#else
  rows.push_back(notBuilt("iceoryx publish/subscribe",
                          "iceoryx (libiceoryx-posh-dev and the iceoryx daemon package)"));
#endif
  return rows;
}

}  // namespace conflink::bench
