// One declaration per message: its type number, its name, its sending operation and its handler.
//
//   inline constexpr Message<3, &BothToPsInterface::DialOut, &PsToBothInterface::OnDialOut>
//       kDialOut{"DialOut"};
//
// The sending body hands the declaration and the operation's own arguments to `send`:
//
//   return send(self(), msg::kDialOut, id, conf, party);
//
// and the receiving table lists the declaration, nothing more: `on<M>(msg::kDialOut)`. Both sides
// come from the one declaration, so the compiler refuses what a test row would otherwise have to
// catch:
//  - a declaration whose operation and handler take different values (the handler's trailing
//    PSProtocolType aside, since the mark comes from the trailer, not the payload);
//  - a sending body whose arguments differ in type, number or order from its operation's
//    parameters (an `unsigned long` where an `unsigned long long` travels, a namesake's
//    declaration, a forgotten argument);
//  - a messenger sending a message whose operation it does not implement;
//  - an operation and a handler that are not the two sides of one direction of a link.
//
// Values are compared as values: a record passed by value travels exactly as one passed by const
// reference, so `SetupConference`'s by-value ConfIDString needs no exception. What travels
// differently from "every argument, in order" is named by the declaration's form (below).
#pragma once

#include <cstddef>
#include <cstring>
#include <memory>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>

#include <conflink/messaging/dispatch.h>
#include <conflink/messaging/message_doc.h>
#include <conflink/messaging/types.h>
#include <conflink/wire/codec.h>
#include <conflink/wire/text.h>

namespace conflink::msg {

// The class and the parameter values of an operation or handler.
template <class F>
struct Signature;
template <class C, class... A>
struct Signature<int (C::*)(A...)> {
  using Class = C;
  using Values = std::tuple<std::decay_t<A>...>;
};

namespace detail {
template <class Tuple, class Seq>
struct Take;
template <class Tuple, size_t... I>
struct Take<Tuple, std::index_sequence<I...>> {
  using type = std::tuple<std::tuple_element_t<I, Tuple>...>;
};
template <class Tuple>
using DropLast = typename Take<Tuple, std::make_index_sequence<std::tuple_size_v<Tuple> - 1>>::type;

// A handler's values less the link mark it may end with.
template <class Tuple, bool = (std::tuple_size_v<Tuple> > 0)>
struct WithoutMark {
  using type = Tuple;
};
template <class Tuple>
struct WithoutMark<Tuple, true> {
  using Last = std::tuple_element_t<std::tuple_size_v<Tuple> - 1, Tuple>;
  using type = std::conditional_t<std::is_same_v<Last, PSProtocolType>, DropLast<Tuple>, Tuple>;
};
}  // namespace detail

// Which interface's handlers receive what an interface's operations send, and the roles at the
// two ends (kFrom, kTo) for the protocol reference. Each role interface names its counterpart
// beside its declaration; a sender that names none has its handler's class left unchecked and
// cannot be documented, so its messages do not compile into a receiving table.
template <class Sender>
struct Counterpart {
  using type = void;
};

// How a message's arguments travel. A form appends the operation's arguments to a buffer, says
// which of them the handler receives, and makes the receiving table's case.
namespace form {

// The rule: every argument, in order, each by its wire form.
struct Arguments {
  template <class Sent>
  using Received = Sent;
  template <class Sent>
  static std::string payload() {
    return detail::wireNames<Sent>();
  }
  template <class... V>
  static void append(std::string& out, const V&... v) {
    wire::append(out, 4, v...);
  }
  template <class M, auto Handle>
  static constexpr dispatch::Case<M> receive(const char* name) {
    return dispatch::handlerCase<M, Handle>(name);
  }
};

// Nothing travels: the operation takes a RequestId, sends an empty payload, and the receiver
// accepts the message and calls no handler (the handler exists and is never called).
struct Empty {
  template <class Sent>
  using Received = Sent;
  template <class Sent>
  static std::string payload() {
    return "";
  }
  template <class... V>
  static void append(std::string& out, const V&...) {
    out.reserve(4);
  }
  template <class M, auto Handle>
  static constexpr dispatch::Case<M> receive(const char* name) {
    return dispatch::dropCase<M>(name);
  }
};

// The operation's last argument is accepted and not sent (the call-control link's three-argument
// ReportError and its flag); the rest travel as the rule says.
struct LastNotSent {
  template <class Sent>
  using Received = detail::DropLast<Sent>;
  template <class Sent>
  static std::string payload() {
    return detail::wireNames<detail::DropLast<Sent>>();
  }
  template <class... V>
  static void append(std::string& out, const V&... v) {
    appendAllButLast(out, std::forward_as_tuple(v...),
                     std::make_index_sequence<sizeof...(V) - 1>());
  }
  template <class M, auto Handle>
  static constexpr dispatch::Case<M> receive(const char* name) {
    return dispatch::handlerCase<M, Handle>(name);
  }

 private:
  template <class Tuple, size_t... I>
  static void appendAllButLast(std::string& out, const Tuple& t, std::index_sequence<I...>) {
    wire::append(out, 4, std::get<I>(t)...);
  }
};

// The last two arguments are a size and a pointer to that many opaque bytes: the size travels as
// a u32 and the bytes follow it with no prefix of their own (nothing is read from the pointer
// when the size is 0). The handler gets a copy of the block in size + 1 bytes, never null, that
// lives while it runs; nothing is allocated before the size is checked against the payload.
struct SizedBlock {
  template <class Sent>
  using Received = Sent;
  template <class Sent>
  static std::string payload() {
    const std::string leading = detail::wireNames<detail::DropLast<detail::DropLast<Sent>>>();
    return leading + (leading.empty() ? "" : ", ") + "u32 n, bytes(n)";
  }
  template <class... V>
  static void append(std::string& out, const V&... v) {
    appendWithBlock(out, std::forward_as_tuple(v...), std::make_index_sequence<sizeof...(V) - 2>());
  }
  template <class M, auto Handle>
  static constexpr dispatch::Case<M> receive(const char* name) {
    return {name, &decodeAndCall<M, Handle>, &render<decltype(Handle)>};
  }

 private:
  template <class Tuple, size_t... I>
  static void appendWithBlock(std::string& out, const Tuple& t, std::index_sequence<I...>) {
    constexpr size_t n = std::tuple_size_v<Tuple>;
    const unsigned int size = std::get<n - 2>(t);
    wire::append(out, 4, std::get<I>(t)..., size, wire::RawBytes{std::get<n - 1>(t), size});
  }

  // The leading values, then the size and a view of the block inside the payload.
  template <class F>
  struct Parts;
  template <class C, class... A>
  struct Parts<int (C::*)(A...)> {
    using Leading = detail::DropLast<detail::DropLast<std::tuple<std::decay_t<A>...>>>;
    Leading leading;
    uint32_t size = 0;
    const char* bytes = nullptr;
    bool read(wire::Reader& r) {
      std::apply([&r](auto&... l) { (wire::read(r, l), ...); }, leading);
      size = r.u32();
      bytes = r.bytes(size);
      return r.ok();
    }
  };

  template <class M, auto Handle>
  static bool decodeAndCall(M& m, wire::Reader& r, PSProtocolType) {
    Parts<decltype(Handle)> p;
    if (!p.read(r)) return false;
    std::unique_ptr<char[]> block(new char[static_cast<size_t>(p.size) + 1]);
    if (p.size != 0) std::memcpy(block.get(), p.bytes, p.size);
    using C = typename Signature<decltype(Handle)>::Class;
    std::apply([&](const auto&... l) { (static_cast<C&>(m).*Handle)(l..., p.size, block.get()); },
               p.leading);
    return true;
  }
  template <class F>
  static bool render(wire::Reader& r, std::string& out) {
    Parts<F> p;
    if (!p.read(r)) return false;
    auto text = wire::TextList::arguments(out);
    std::apply([&text](const auto&... l) { (text(l), ...); }, p.leading);
    text(p.size)(wire::RawBytes{p.bytes, p.size});
    return true;
  }
};

}  // namespace form

// The declaration of one message. `Send` is the sending operation, `Handle` the handler that the
// other end's dispatcher calls; `Form` says how the arguments travel.
template <int Type, auto Send, auto Handle, class Form = form::Arguments>
struct Message {
  static constexpr int kType = Type;
  static constexpr auto kSend = Send;
  static constexpr auto kHandle = Handle;
  using Sender = Signature<decltype(Send)>;
  using Handler = Signature<decltype(Handle)>;
  using Travel = Form;

  const char* name;

  static_assert(Type >= 0, "message type numbers are not negative");
  static_assert(std::is_same_v<typename Form::template Received<typename Sender::Values>,
                               typename detail::WithoutMark<typename Handler::Values>::type>,
                "the handler does not take what the sending operation sends");
  static_assert(std::is_void_v<typename Counterpart<typename Sender::Class>::type> ||
                    std::is_same_v<typename Counterpart<typename Sender::Class>::type,
                                   typename Handler::Class>,
                "the handler is not on the interface that receives this operation's messages");
};

// Builds one message from the sending operation's arguments and hands it to the messenger's
// SendMessage. The buffer is measured and allocated once, with room for the trailer.
template <class M, int Type, auto Send, auto Handle, class Form, class... A>
int send(M& m, const Message<Type, Send, Handle, Form>&, const A&... args) {
  using Declared = Message<Type, Send, Handle, Form>;
  static_assert(std::is_base_of_v<typename Declared::Sender::Class, M>,
                "this messenger does not implement the message's sending operation");
  static_assert(std::is_same_v<std::tuple<A...>, typename Declared::Sender::Values>,
                "the arguments differ from the sending operation's parameters");
  std::string buffer;
  Form::append(buffer, args...);
  int type = Type;
  return m.SendMessage(&type, &buffer);
}

// The protocol reference's entry for a declared message. Handlers are named "On" and the
// message's name.
template <class Declared>
void document(dispatch::MessageDoc& doc, const char* name) {
  using Sender = typename Declared::Sender;
  doc.from = Counterpart<typename Sender::Class>::kFrom;
  doc.to = Counterpart<typename Sender::Class>::kTo;
  doc.payload = Declared::Travel::template payload<typename Sender::Values>();
  doc.handler = TypeNameOf(typeid(typename Declared::Handler::Class)) + "::On" + name;
}

// The receiving table's entry for a declared message, with its reference entry.
template <class M, int Type, auto Send, auto Handle, class Form>
constexpr dispatch::Entry<M> on(const Message<Type, Send, Handle, Form>& message) {
  dispatch::Case<M> c = Form::template receive<M, Handle>(message.name);
  c.doc = &document<Message<Type, Send, Handle, Form>>;
  return {Type, c};
}

}  // namespace conflink::msg
