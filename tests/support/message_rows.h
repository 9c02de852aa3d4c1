// One check per message, for the tests of both links: a message sent through its operation by
// one messenger reaches its handler on the other with equal values, its description names it,
// and every proper prefix of its payload is refused with exactly one Error and no handler call.
//
// A test writes one row per message:
//
//   {"DialOut", [](Pair& p) { p.deliver(msg::both_to_ps::kDialOut, kId, kConf, 7ULL); }},
//
// The handler that the row expects comes from the message's declaration, and the values it
// expects are the row's own, so a row cannot disagree with itself; what it catches is a codec,
// a sending body or a form that moves, drops or changes a value on the way.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include <conflink/cc/cc_catalogue.h>
#include <conflink/cc/cc_to_ps_messenger.h>
#include <conflink/cgi/cgi_catalogue.h>
#include <conflink/cgi/cgi_to_ps_messenger.h>
#include <conflink/messaging/message.h>
#include <conflink/wire/text.h>
#include "tests/support/call_log.h"
#include "tests/support/fake_platform.h"

namespace conflink::testing {

// Two probes over the fake queue: `a` sends, `b` receives. They are usually of one link; the
// shared messages are also checked from either link's messenger to the other's.
template <class Probe, class Receiver = Probe>
struct Pair {
  Probe a;
  Receiver b;

  // What `from` put on the queue for the last operation, after checking that it was exactly one
  // message whose result came back unchanged.
  static FakeMessage sentBy(Probe& from, const std::function<int(Probe&)>& operation) {
    Fake().sent.clear();
    Fake().sendResult = 5;
    EXPECT_TRUE(from.Connect(1, 0));
    EXPECT_EQ(operation(from), 5) << "the queue's result comes back unchanged";
    EXPECT_EQ(Fake().sent.size(), 1u);
    return Fake().sent.empty() ? FakeMessage{} : Fake().sent.back();
  }

  // Hands `message` to `to`'s DispatchMessage; returns what its handlers recorded.
  template <class To>
  static std::vector<std::string> dispatch(To& to, const FakeMessage& message) {
    to.calls.clear();
    to.errors.clear();
    int type = message.type;
    EXPECT_TRUE(
        to.DispatchMessage(&type, message.buffer.data(), static_cast<int>(message.buffer.size())));
    return to.calls;
  }

  // Sends one message through its declared operation with `values` and checks everything the
  // receiving end makes of it (see the top of this file).
  template <int Type, auto Send, auto Handle, class Form, class... V>
  void deliver(const msg::Message<Type, Send, Handle, Form>& m, const V&... values) {
    SCOPED_TRACE(std::string(m.name) + " (type " + std::to_string(Type) + ")");
    const FakeMessage sent = sentBy(a, [&](Probe& p) { return (p.*Send)(values...); });
    EXPECT_EQ(sent.type, Type);
    ASSERT_GE(sent.buffer.size(), 4u);
    const size_t payload = sent.buffer.size() - 4;
    const std::string trailer = sent.buffer.substr(payload);
    EXPECT_EQ(trailer, std::string("\0\0\0", 3) + static_cast<char>(markOf<Probe>()));

    std::vector<std::string> expected;
    if (!std::is_same_v<Form, msg::form::Empty>) expected.push_back(expectedCall(m, values...));
    EXPECT_EQ(dispatch(b, sent), expected);
    EXPECT_EQ(b.errors, std::vector<std::string>{});

    const std::string text = describeOnLinkOf<Receiver>(Type, sent.buffer);
    EXPECT_EQ(text.find(m.name), 0u) << text;
    const std::string where =
        "[type " + std::to_string(Type) + ", mark " + std::to_string(markOf<Probe>()) + "]";
    EXPECT_NE(text.find(where), std::string::npos) << text;

    for (size_t cut = 0; cut < payload; ++cut) {
      const FakeMessage shorter{Type, sent.buffer.substr(0, cut) + trailer};
      EXPECT_EQ(dispatch(b, shorter), std::vector<std::string>{}) << "cut at " << cut;
      ASSERT_EQ(b.errors.size(), 1u) << "cut at " << cut;
      const std::string opening = "Malformed message " + std::to_string(Type) + " (" + m.name +
                                  ", " + std::to_string(cut) + " payload bytes): ";
      EXPECT_EQ(b.errors[0].rfind(opening, 0), 0u) << b.errors[0];
      EXPECT_EQ(describeOnLinkOf<Receiver>(Type, shorter.buffer), b.errors[0]);
    }
  }

 private:
  // "OnName(values the handler takes..., mark)": the values converted to the handler's types
  // (a form may leave the operation's last one unsent), then the link mark where the handler
  // takes one.
  template <int Type, auto Send, auto Handle, class Form, class... V>
  static std::string expectedCall(const msg::Message<Type, Send, Handle, Form>& m,
                                  const V&... values) {
    using Declared = msg::Message<Type, Send, Handle, Form>;
    using All = typename Declared::Handler::Values;
    using Taken = typename msg::detail::WithoutMark<All>::type;
    constexpr bool takesMark = std::tuple_size_v<All> != std::tuple_size_v<Taken>;
    if constexpr (std::is_same_v<Form, msg::form::SizedBlock>) {
      // The recorder keeps the block's bytes (see SharedRecorder), not its address.
      return sizedBlockCall(std::string("On") + m.name, values...);
    } else {
      return render(std::string("On") + m.name, std::forward_as_tuple(values...),
                    static_cast<Taken*>(nullptr),
                    std::make_index_sequence<std::tuple_size_v<Taken>>(), takesMark);
    }
  }
  static std::string sizedBlockCall(const std::string& name, const unsigned long long& id,
                                    ConferenceParamType type, unsigned int size, const void* data) {
    return callText(name, id, type, size, std::string(static_cast<const char*>(data), size));
  }
  template <class Given, class Taken, size_t... I>
  static std::string render(const std::string& name, const Given& given, Taken*,
                            std::index_sequence<I...>, bool takesMark) {
    const Taken taken{static_cast<std::tuple_element_t<I, Taken>>(std::get<I>(given))...};
    if (!takesMark) return callText(name, std::get<I>(taken)...);
    return callText(name, std::get<I>(taken)..., static_cast<PSProtocolType>(markOf<Probe>()));
  }
};

// One row of a link's table of messages.
template <class Probe, class Receiver = Probe>
struct MessageRow {
  const char* name;
  std::function<void(Pair<Probe, Receiver>&)> deliver;
};

// Runs every row with a fresh pair over a fresh fake queue.
template <class Probe, class Receiver = Probe>
void deliverEveryRow(const std::vector<MessageRow<Probe, Receiver>>& rows) {
  for (const MessageRow<Probe, Receiver>& row : rows) {
    SCOPED_TRACE(row.name);
    ResetFake();
    Pair<Probe, Receiver> pair;
    row.deliver(pair);
  }
}

}  // namespace conflink::testing
