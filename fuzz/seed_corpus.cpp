// Writes the seed corpora of the fuzz targets: every message of both links sent through its own
// operation, with a value in every field, as the queue received it; the same bytes as lines of
// conflink_decode's input; and every record's encoding. Run from the source tree as
//
//   fuzz_seed_corpus fuzz/corpus
//
// It replaces the corpora it writes, and fails when a message that a link's messenger handles
// got no seed, so that a message added to a link cannot go unseeded.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <list>
#include <set>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include <conflink/cc/cc_catalogue.h>
#include <conflink/cc/cc_messages.h>
#include <conflink/cgi/cgi_catalogue.h>
#include <conflink/cgi/cgi_messages.h>
#include <conflink/messaging/shared_messages.h>
#include "fuzz/fuzz_support.h"
#include "fuzz/queue_object_input.h"
#include "tests/support/cc_recorder.h"
#include "tests/support/cgi_recorder.h"
#include "tests/support/fake_platform.h"
#include "tests/support/message_values.h"

namespace {

namespace fs = std::filesystem;
namespace msg = conflink::msg;
namespace wire = conflink::wire;

// Counted values: each field its own number or text, lists of two, every optional part present,
// so that a seed reaches every field's decoder.
class Counted {
 public:
  bool boolean() { return true; }
  unsigned long long number() { return static_cast<unsigned long long>(++n_); }
  double real() { return 0.5 + ++n_; }
  std::string text() { return "s" + std::to_string(++n_); }
  size_t listLength(int) { return 2; }
  bool present() { return true; }
  // The size beside it is a small number, well inside the block.
  const void* block() { return kBlock; }

 private:
  static constexpr char kBlock[64] = "a parameter block in the server's own form";
  int n_ = 0;
};

// Fills `v` with counted values from 1.
template <class T>
void fillCounted(T& v) {
  Counted counted;
  conflink::testing::ValueFiller<Counted>(counted).fill(v);
}

void write(const fs::path& file, const std::string& bytes) {
  std::ofstream(file, std::ios::binary)
      .write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

std::string hexText(const std::string& bytes) {
  std::string out;
  wire::renderHex(out, bytes.data(), bytes.size());
  return out;
}

std::string fileName(int type, const char* name) {
  char number[8];
  std::snprintf(number, sizeof number, "%03d", type);
  return std::string(number) + "-" + name;
}

// Sends messages through one messenger over the fake queue and writes what the queue received.
template <class Messenger>
class LinkSeeds {
 public:
  LinkSeeds(const fs::path& root, const char* dispatchCorpus)
      : root_(root), dispatch_(dispatchCorpus) {
    conflink::testing::ResetFake();
    if (!messenger_.Connect(1, 0)) failed_ = true;
  }

  template <int Type, auto Send, auto Handle, class Form>
  void operator()(const msg::Message<Type, Send, Handle, Form>& m) {
    one(m);
  }

  // False when a message this link's messenger handles got no seed.
  bool complete(const std::vector<conflink::MessageName>& catalogue) const {
    bool all = !failed_;
    for (const conflink::MessageName& m : catalogue) {
      if (m.handled && types_.count(m.type) == 0) {
        std::fprintf(stderr, "no seed for message %d (%s)\n", m.type, m.name);
        all = false;
      }
    }
    return all;
  }

 private:
  template <int Type, auto Send, auto Handle, class Form>
  void one(const msg::Message<Type, Send, Handle, Form>& m) {
    using Values = typename msg::Message<Type, Send, Handle, Form>::Sender::Values;
    Values values;
    Counted counted;
    conflink::testing::ValueFiller<Counted> filler(counted);
    std::apply([&](auto&... v) { (filler.fill(v), ...); }, values);
    auto& sent = conflink::testing::Fake().sent;
    sent.clear();
    std::apply([this](const auto&... v) { (messenger_.*Send)(v...); }, values);
    if (sent.size() != 1 || sent[0].type != Type) {
      std::fprintf(stderr, "%s (%d) did not reach the queue as one message\n", m.name, Type);
      failed_ = true;
      return;
    }
    types_.insert(Type);
    const std::string file = fileName(Type, m.name);
    const std::string& buffer = sent[0].buffer;
    write(root_ / dispatch_ / file, conflink::fuzz::receivedInput(Type, buffer));
    write(root_ / "describe" / file, conflink::fuzz::receivedInput(Type, buffer));
    write(root_ / "decode_input" / (std::string(dispatch_) + "-" + file),
          std::to_string(Type) + " " + hexText(buffer) + "\n");
  }

  fs::path root_;
  const char* dispatch_;
  Messenger messenger_;
  std::set<int> types_;
  bool failed_ = false;
};

// Each record filled and empty, behind the byte that picks it.
template <size_t... I>
void writeRecords(const fs::path& dir, std::index_sequence<I...>) {
  auto one = [&dir](size_t index, auto* type) {
    using T = std::remove_pointer_t<decltype(type)>;
    T filled{};
    fillCounted(filled);
    const std::string pick(1, static_cast<char>(index));
    std::string bytes = pick;
    wire::append(bytes, 0, filled);
    write(dir / (std::to_string(index) + "-filled"), bytes);
    bytes = pick;
    wire::append(bytes, 0, T{});
    write(dir / (std::to_string(index) + "-empty"), bytes);
  };
  (one(I, static_cast<std::tuple_element_t<I, conflink::fuzz::Records>*>(nullptr)), ...);
}

// Sequences that a queue carries without damage, on every ring size: messages of sizes about a
// single record's limit and of several rings (in fragments, while the peer takes; given up,
// while it does not), both ways, around a party that leaves and one that joins, an interrupted
// receive, and a message in fragments written into the ring as its producer would.
void writeQueueObjectSeeds(const fs::path& dir) {
  namespace qi = conflink::fuzz::queue_input;
  for (std::uint8_t ring = 0; ring < qi::kCapacityChoices; ++ring) {
    const std::string suffix = "-ring" + std::to_string(ring);
    qi::InputWriter limit(ring);
    limit.Peek(0).Peek(1);
    for (std::int8_t delta : {-1, 0, 1}) limit.SendNearRecordLimit(0, delta, false).Peek(1);
    limit.SendNearRecordLimit(1, 1, true).Counters(0).Peek(0).Counters(1);
    write(dir / ("record-limit" + suffix), limit.bytes());

    qi::InputWriter fragments(ring);
    fragments.SendRings(0, 2, 5, true).Peek(1).Peek(1).SendRings(1, 3, -3, true).Peek(0);
    fragments.SendRings(0, 1, 0, false).Peek(1).SendSmall(0, 10).Peek(1).ReceiveFor(1, 0);
    write(dir / ("fragments" + suffix), fragments.bytes());
  }
  qi::InputWriter bothWays(1);
  for (int i = 0; i < 4; ++i) bothWays.SendSmall(0, 30).SendSmall(1, 20);
  bothWays.Counters(0).Peek(1).Peek(1).Peek(0).SendSmall(1, 60, true).Peek(0).Peek(0).Peek(1);
  write(dir / "both-ways", bothWays.bytes());

  qi::InputWriter comings(2);
  comings.SendSmall(0, 40).Leave(1).SendSmall(0, 41).Join().Peek(1).Peek(1).Peek(1);
  comings.SendSmall(1, 5).Leave(0).Peek(1).Join().Join().Peek(1).Peek(0).Counters(0);
  write(dir / "leave-and-join", comings.bytes());

  qi::InputWriter interrupted(0);
  interrupted.InterruptedReceive(0, true).SendSmall(1, 3).InterruptedReceive(0, false);
  interrupted.ReceiveFor(0, 2).ReceiveFor(0, 1);
  write(dir / "interrupted", interrupted.bytes());

  qi::InputWriter injected(2);
  injected.Peek(1).Inject(0, qi::kRecordFirstFlag, 1, 9, 100, 50);
  injected.Inject(0, qi::kRecordLastFlag, 2, 9, 100, 50).Peek(1).SendSmall(0, 7).Peek(1);
  write(dir / "injected-fragments", injected.bytes());
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: fuzz_seed_corpus CORPUS_DIR\n");
    return 2;
  }
  const fs::path root = argv[1];
  for (const char* target : {"cc_dispatch", "cgi_dispatch", "describe", "decode_input",
                             "conference_params", "records", "queue_object"}) {
    fs::remove_all(root / target);
    fs::create_directories(root / target);
  }

  bool complete = true;
  {
    LinkSeeds<conflink::testing::CcRecorder> cc(root, "cc_dispatch");
    conflink::testing::forEachCcLinkMessage(cc);
    complete = cc.complete(msg::CcLinkMessages()) && complete;
  }
  {
    LinkSeeds<conflink::testing::CgiRecorder> cgi(root, "cgi_dispatch");
    conflink::testing::forEachCgiLinkMessage(cgi);
    complete = cgi.complete(msg::CgiLinkMessages()) && complete;
  }

  // A conference with every section filled, an empty one, and a filled one with bytes after it.
  ConferenceParams filled{};
  fillCounted(filled);
  std::string encoded;
  encoded << filled;
  write(root / "conference_params" / "filled", encoded);
  write(root / "conference_params" / "filled-then-more", encoded + "more");
  std::string empty;
  empty << ConferenceParams{};
  write(root / "conference_params" / "empty", empty);

  writeRecords(root / "records", std::make_index_sequence<conflink::fuzz::kRecordCount>());
  writeQueueObjectSeeds(root / "queue_object");
  return complete ? 0 : 1;
}
