// The serialisers a user would pick instead of ours, each run by codec_bench on the very same
// ConferenceParams: encode from the record to bytes, decode from bytes back into the record.
#pragma once

#include <iterator>
#include <list>
#include <string>
#include <string_view>
#include <vector>

#include <conflink/records/records.h>

namespace conflink::bench {

struct CodecPeer {
  std::string name;        // short, used in benchmark names: "Protobuf"
  std::string encodeNote;  // what one encode includes
  std::string decodeNote;  // what one decode includes
  // Encodes `p`. The bytes stay valid until the next call; `scratch` is a buffer the caller
  // keeps between calls, so a ready buffer is reused as ours is.
  std::string_view (*encode)(const ConferenceParams& p, std::string& scratch);
  // Decodes the whole of `in` into `out`; false, with `out` unchanged, on malformed input.
  bool (*decode)(std::string_view in, ConferenceParams& out);
};

struct SkippedPeer {
  std::string name;
  std::string reason;
};

// The peers built into this program, and those that were not, with the reason.
std::vector<CodecPeer> codecPeers();
std::vector<SkippedPeer> skippedCodecPeers();

#ifdef CONFLINK_BENCH_WITH_PROTOBUF
CodecPeer protobufPeer();
#endif
#ifdef CONFLINK_BENCH_WITH_CEREAL
CodecPeer cerealPeer();
#endif
#ifdef CONFLINK_BENCH_WITH_FLATBUFFERS
CodecPeer flatbuffersPeer();
#endif

// Fills `list` with `count` elements made by `make(index)`, as a decode into our records does.
template <class T, class Make>
void fillList(std::list<T>& list, std::size_t count, Make make) {
  list.clear();
  for (std::size_t i = 0; i < count; ++i) list.push_back(make(i));
}

}  // namespace conflink::bench
