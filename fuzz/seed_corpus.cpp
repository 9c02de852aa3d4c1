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

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: fuzz_seed_corpus CORPUS_DIR\n");
    return 2;
  }
  const fs::path root = argv[1];
  for (const char* target : {"cc_dispatch", "cgi_dispatch", "describe", "decode_input",
                             "conference_params", "records"}) {
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
  return complete ? 0 : 1;
}
