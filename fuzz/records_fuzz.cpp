// Every record's decoder and renderer on any bytes: the first byte picks the record, the rest is
// its encoding. A decode either fails with a reason or gives a record that renders and reads
// back equal from its own encoding.
#include <string>
#include <tuple>
#include <utility>

#include <conflink/wire/codec.h>
#include <conflink/wire/text.h>
#include "fuzz/fuzz_support.h"

namespace {

using conflink::fuzz::fail;
namespace wire = conflink::wire;

template <class T>
void decodeRenderAndReadBack(const char* data, size_t size) {
  wire::Reader r(data, size);
  T decoded{};
  wire::read(r, decoded);
  if (!r.ok()) {
    if (r.describe().empty()) fail("a failed decode says why", "");
    return;
  }
  const std::string text = wire::toText(decoded);
  std::string encoded;
  wire::append(encoded, 0, decoded);
  wire::Reader back(encoded.data(), encoded.size());
  T again{};
  wire::read(back, again);
  if (!back.ok() || back.remaining() != 0 || !(again == decoded)) {
    fail("a decoded record reads back equal from its own encoding", text);
  }
}

template <size_t... I>
void pick(size_t which, const char* data, size_t size, std::index_sequence<I...>) {
  ((which == I
        ? decodeRenderAndReadBack<std::tuple_element_t<I, conflink::fuzz::Records>>(data, size)
        : void()),
   ...);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  pick(data[0] % conflink::fuzz::kRecordCount, reinterpret_cast<const char*>(data + 1), size - 1,
       std::make_index_sequence<conflink::fuzz::kRecordCount>());
  return 0;
}
