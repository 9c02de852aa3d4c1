#include "codec_peers.h"

namespace conflink::bench {

std::vector<CodecPeer> codecPeers() {
  std::vector<CodecPeer> peers;
#ifdef CONFLINK_BENCH_WITH_PROTOBUF
  peers.push_back(protobufPeer());
#endif
#ifdef CONFLINK_BENCH_WITH_CEREAL
  peers.push_back(cerealPeer());
#endif
#ifdef CONFLINK_BENCH_WITH_FLATBUFFERS
  peers.push_back(flatbuffersPeer());
#endif
  return peers;
}

std::vector<SkippedPeer> skippedCodecPeers() {
  std::vector<SkippedPeer> skipped;
#ifndef CONFLINK_BENCH_WITH_PROTOBUF
  skipped.push_back({"Protobuf", "not built: protoc and libprotobuf-dev were not found"});
#endif
#ifndef CONFLINK_BENCH_WITH_CEREAL
  skipped.push_back({"Cereal", "not built: cereal (libcereal-dev) was not found"});
#endif
#ifndef CONFLINK_BENCH_WITH_FLATBUFFERS
  skipped.push_back({"FlatBuffers", "not built: flatc and libflatbuffers-dev were not found"});
#endif
  return skipped;
}

}  // namespace conflink::bench
