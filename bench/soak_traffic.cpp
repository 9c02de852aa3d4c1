#include "bench/soak_traffic.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <tuple>
#include <type_traits>

#include <conflink/cc/cc_catalogue.h>
#include <conflink/cc/cc_to_ps_messenger.h>
#include <conflink/cgi/cgi_catalogue.h>
#include <conflink/cgi/cgi_to_ps_messenger.h>
#include <conflink/messaging/messenger_support.h>
#include "tests/support/message_values.h"

namespace conflink::soak {

uint64_t Rng::next() {
  uint64_t z = (state_ += 0x9e3779b97f4a7c15ULL);
  z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ULL;
  z = (z ^ (z >> 27)) * 0x94d049bb133111ebULL;
  return z ^ (z >> 31);
}

namespace {

namespace msg = conflink::msg;

// The raw block of a sized-block message points into this; its size is drawn within it.
constexpr size_t kBlockBytes = 65536;
const char* blockBytes() {
  static const std::string block = [] {
    std::string b(kBlockBytes, '\0');
    for (size_t i = 0; i < b.size(); ++i) b[i] = static_cast<char>(i * 131 + (i >> 8));
    return b;
  }();
  return block.data();
}

// Random values of one message within a byte budget drawn first: most messages are small, one
// in thirty is 32 to 256 KiB, larger than the queue's 32 KiB ring, so it travels in fragments.
// Strings and lists end where the budget does, so that no message is much larger than its budget
// (a list may still hold records of fixed size past it); the largest messages come early in a
// party's life, and its peak memory settles soon after.
class RandomValues {
 public:
  explicit RandomValues(uint64_t seed) : rng_(seed) {
    const uint64_t size = rng_.below(100);
    if (size < 85) {
      budget_ = 512, topList_ = 4, nestedList_ = 3, text_ = 24;
    } else if (size < 97) {
      budget_ = 8192, topList_ = 25, nestedList_ = 4, text_ = 300;
    } else {
      budget_ = 32768 + rng_.below(224 * 1024), topList_ = 160, nestedList_ = 4, text_ = 4096;
    }
  }
  bool boolean() { return (rng_.next() & 1) != 0; }
  unsigned long long number() { return rng_.next(); }
  double real() { return static_cast<double>(static_cast<int64_t>(rng_.next() >> 11)) / 1024.0; }
  std::string text() {
    std::string s(rng_.below(std::min(text_, budget_) + 1), '\0');
    budget_ -= s.size();
    for (char& c : s) c = static_cast<char>(rng_.next());
    return s;
  }
  size_t listLength(int depth) {
    if (budget_ == 0) return 0;
    return rng_.below((depth == 0 ? topList_ : nestedList_) + 1);
  }
  bool present() { return rng_.below(4) != 0; }
  const void* block() { return blockBytes(); }
  // The size of a raw block, within what is left of the budget.
  unsigned int blockSize() {
    return static_cast<unsigned int>(rng_.below(std::min<uint64_t>(budget_, kBlockBytes) + 1));
  }

 private:
  Rng rng_;
  uint64_t budget_ = 0, topList_ = 0, nestedList_ = 0, text_ = 0;
};

// Lists the link's messages as TypeInfo, in order.
struct Lister {
  std::vector<TypeInfo>* types;
  template <int Type, auto Send, auto Handle, class Form>
  void operator()(const msg::Message<Type, Send, Handle, Form>& m) {
    using Values = typename msg::Message<Type, Send, Handle, Form>::Sender::Values;
    TypeInfo t;
    t.type = Type;
    t.name = m.name;
    if constexpr (std::tuple_size_v < Values >> 0) {
      t.numbered = std::is_same_v<std::tuple_element_t<0, Values>, unsigned long long> &&
                   !std::is_same_v<Form, msg::form::Empty>;
    }
    types->push_back(t);
  }
};

// Sends the message at `position` of the link's list through `messenger`'s operation, with the
// values drawn from `seed`; a numbered one carries `group` as its request identifier.
template <class Messenger>
struct Sender {
  Messenger& messenger;
  size_t position;
  uint64_t seed;
  uint32_t group;
  size_t at = 0;
  int result = kQueueBadArgument;

  template <int Type, auto Send, auto Handle, class Form>
  void operator()(const msg::Message<Type, Send, Handle, Form>&) {
    if (at++ != position) return;
    using Values = typename msg::Message<Type, Send, Handle, Form>::Sender::Values;
    Values values;
    RandomValues random(seed);
    testing::ValueFiller<RandomValues> filler(random);
    std::apply([&](auto&... v) { (filler.fill(v), ...); }, values);
    if constexpr (std::tuple_size_v < Values >> 0) {
      if constexpr (std::is_same_v<std::tuple_element_t<0, Values>, unsigned long long>) {
        std::get<0>(values) = group;
      }
    }
    if constexpr (std::is_same_v<Form, msg::form::SizedBlock>) {
      // The size that travels before the block says how much of it to send.
      std::get<std::tuple_size_v<Values> - 2>(values) = random.blockSize();
    }
    result = std::apply([this](const auto&... v) { return (messenger.*Send)(v...); }, values);
  }
};

// Messengers that keep what their operations would send instead of queueing it.
template <class Base>
class Capture : public Base {
 public:
  Capture() : Base(0) {}
  int SendMessage(const int* type, std::string* buffer) override {
    appendTrailer(std::is_same_v<Base, CCToPSMessenger> ? 0 : 2, buffer);
    captured.type = *type;
    captured.bytes = *buffer;
    return kQueueOk;
  }
  Wire captured;
};

// The link is the messenger's.
template <class Messenger>
int sendAt(Messenger& messenger, size_t position, uint64_t seed, uint32_t group) {
  Sender<Messenger> sender{messenger, position, seed, group};
  if constexpr (std::is_base_of_v<CCToPSMessenger, Messenger>) {
    testing::forEachCcLinkMessage(sender);
  } else {
    testing::forEachCgiLinkMessage(sender);
  }
  return sender.result;
}

}  // namespace

Traffic::Traffic(uint64_t seed, int link) : seed_(seed), link_(link) {
  Lister lister{&types_};
  if (link == 0) {
    testing::forEachCcLinkMessage(lister);
  } else {
    testing::forEachCgiLinkMessage(lister);
  }
  const std::vector<MessageName> catalogue =
      link == 0 ? msg::CcLinkMessages() : msg::CgiLinkMessages();
  for (size_t i = 0; i < types_.size(); ++i) {
    for (const MessageName& m : catalogue) {
      if (m.type == types_[i].type) types_[i].handled = m.handled;
    }
    (types_[i].numbered ? numbered_ : unnumbered_).push_back(i);
  }
}

Traffic::Plan Traffic::plan(int from, uint32_t index) const {
  Rng rng(seed_ ^ (static_cast<uint64_t>(link_ * 2 + from) << 56) ^
          (static_cast<uint64_t>(index) * 0x9e3779b97f4a7c15ULL));
  rng.next();
  Plan p;
  if (!unnumbered_.empty() && rng.below(8) == 0) {
    p.position[p.parts] = unnumbered_[rng.below(unnumbered_.size())];
    p.seed[p.parts++] = rng.next();
  }
  p.position[p.parts] = numbered_[rng.below(numbered_.size())];
  p.seed[p.parts++] = rng.next();
  return p;
}

int Traffic::groupSize(int from, uint32_t index) const {
  return plan(from, index).parts;
}

int Traffic::send(CCToPSMessenger& messenger, int from, uint32_t index, int part) const {
  const Plan p = plan(from, index);
  return sendAt(messenger, p.position[part], p.seed[part], index);
}

int Traffic::send(CGIToPSMessenger& messenger, int from, uint32_t index, int part) const {
  const Plan p = plan(from, index);
  return sendAt(messenger, p.position[part], p.seed[part], index);
}

std::vector<Wire> Traffic::expected(int from, uint32_t index) const {
  const Plan p = plan(from, index);
  std::vector<Wire> group;
  for (int part = 0; part < p.parts; ++part) {
    if (link_ == 0) {
      Capture<CCToPSMessenger> capture;
      sendAt(capture, p.position[part], p.seed[part], index);
      group.push_back(std::move(capture.captured));
    } else {
      Capture<CGIToPSMessenger> capture;
      sendAt(capture, p.position[part], p.seed[part], index);
      group.push_back(std::move(capture.captured));
    }
  }
  return group;
}

const TypeInfo* Traffic::info(int type) const {
  for (const TypeInfo& t : types_) {
    if (t.type == type) return &t;
  }
  return nullptr;
}

uint32_t Traffic::groupOf(const std::string& bytes) {
  if (bytes.size() < 8) return 0;
  uint64_t id = 0;
  for (size_t i = 0; i < 8; ++i) id = id << 8 | static_cast<unsigned char>(bytes[i]);
  return id > 0xffffffffULL ? 0 : static_cast<uint32_t>(id);
}

}  // namespace conflink::soak
