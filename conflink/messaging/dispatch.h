// The dispatch frame shared by both messengers.
//
// A messenger's receiving side is one table indexed by message type, built at compile time from
// the link's message declarations (message.h); building it fails to compile when two entries
// claim one type number. A handler's argument types come from its signature and are decoded in
// order into locals; the link mark from the trailer is passed where the handler's parameter is a
// PSProtocolType.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <tuple>
#include <type_traits>

#include <conflink/messaging/trace.h>
#include <conflink/messaging/types.h>
#include <conflink/wire/codec.h>
#include <conflink/wire/text.h>
#include <conflink/wire/wire.h>

namespace conflink::dispatch {

// Decodes a payload and calls a handler on `m`; false when the payload did not decode (the reader
// then says why and no handler ran).
template <class M>
using Decoder = bool (*)(M& m, wire::Reader& r, PSProtocolType link);

// Decodes a payload as a handler's arguments and appends them to `out` as "(a, b, c)", for logs
// and tools; false when the payload did not decode (the reader then says why).
using Renderer = bool (*)(wire::Reader& r, std::string& out);

// What the protocol reference says of a message, taken from its declaration (message.h).
struct MessageDoc {
  const char* from = "";  // the sending role: "CC", "CGI", "CC or CGI" or "PS"
  const char* to = "";
  std::string payload;  // the wire types of the fields in order, e.g. "u64, ConfIDString, u64"
  std::string handler;  // the receiving interface and handler, e.g. "PsToBothInterface::OnDialOut"
};
using Documenter = void (*)(MessageDoc& doc, const char* name);

template <class M>
struct Case {
  const char* name = nullptr;   // null: no case for this type
  Decoder<M> decode = nullptr;  // null with a name: accepted and dropped on purpose
  Renderer render = nullptr;    // set whenever decode is
  Documenter doc = nullptr;     // set for every declared message
};

template <class M>
struct Entry {
  int type;
  Case<M> c;
};

// How a handler parameter of type A is held while the handler runs.
template <class A, class = void>
struct Local {
  using type = std::decay_t<A>;
  static void read(wire::Reader& r, type& v, PSProtocolType) { wire::Codec<type>::read(r, v); }
  static type& get(type& v) { return v; }
};
// The link mark, taken from the trailer rather than the payload.
template <>
struct Local<PSProtocolType> {
  using type = PSProtocolType;
  static void read(wire::Reader&, type& v, PSProtocolType link) { v = link; }
  static type get(type v) { return v; }
};
// An optional record, passed to the handler as a pointer that is null when absent and valid
// until the handler returns.
template <class T>
struct Local<const T*, std::enable_if_t<!std::is_void_v<T>>> {
  using type = std::optional<T>;
  static void read(wire::Reader& r, type& v, PSProtocolType) { wire::Codec<type>::read(r, v); }
  static const T* get(type& v) { return v ? &*v : nullptr; }
};

template <class F>
struct MemberFunction;
template <class C, class R, class... A>
struct MemberFunction<R (C::*)(A...)> {
  using Class = C;
  using Locals = std::tuple<typename Local<A>::type...>;

  // Reads every argument, left to right in wire order (a comma fold); false when the payload ran
  // short.
  static bool readAll(wire::Reader& r, Locals& locals, PSProtocolType link) {
    std::apply([&](auto&... l) { (Local<A>::read(r, l, link), ...); }, locals);
    return r.ok();
  }

  template <class M, auto Pmf>
  static bool decodeAndCall(M& m, wire::Reader& r, PSProtocolType link) {
    Locals locals;
    if (!readAll(r, locals, link)) return false;
    std::apply([&](auto&... l) { (static_cast<C&>(m).*Pmf)(Local<A>::get(l)...); }, locals);
    return true;
  }

  // The arguments as the handler would see them; the link mark is not among them, since it comes
  // from the trailer and not the payload.
  static bool render(wire::Reader& r, std::string& out) {
    Locals locals;
    if (!readAll(r, locals, PSProtocolType{})) return false;
    auto text = wire::TextList::arguments(out);
    auto one = [&text](const auto& l) {
      if constexpr (!std::is_same_v<std::decay_t<decltype(l)>, PSProtocolType>) text(l);
    };
    std::apply([&](const auto&... l) { (one(l), ...); }, locals);
    return true;
  }
};

// The case of a message whose payload is decoded into the arguments of handler `Pmf`.
template <class M, auto Pmf>
constexpr Case<M> handlerCase(const char* name) {
  using F = MemberFunction<decltype(Pmf)>;
  return {name, &F::template decodeAndCall<M, Pmf>, &F::render};
}
// The case of a message that is accepted and dropped without decoding or calling a handler.
template <class M>
constexpr Case<M> dropCase(const char* name) {
  return {name, nullptr, nullptr};
}

// The dense table indexed by type, from lists of entries (a link's own, and those both links
// share). Compilation stops at the `throw` when an entry lies outside the table or two entries
// share a type.
template <class M, size_t N, size_t... K>
constexpr std::array<Case<M>, N> table(const std::array<Entry<M>, K>&... lists) {
  std::array<Case<M>, N> t{};
  auto place = [&t](const auto& list) {
    for (const Entry<M>& e : list) {
      if (e.type < 0 || static_cast<size_t>(e.type) >= N) throw "message type outside the table";
      if (t[static_cast<size_t>(e.type)].name != nullptr) throw "two messages share a type number";
      t[static_cast<size_t>(e.type)] = e.c;
    }
  };
  (place(lists), ...);
  return t;
}

// Reads the trailer (the last four bytes, big-endian) of a buffer of at least four bytes.
inline PSProtocolType trailer(const char* data, size_t length) {
  wire::Reader r(data + length - 4, 4);
  return static_cast<PSProtocolType>(r.i32());
}

// The report of a payload that did not decode, naming the message and what ran short.
inline std::string malformed(int type, const char* name, size_t payload, const wire::Reader& r) {
  return "Malformed message " + std::to_string(type) + " (" + name + ", " +
         std::to_string(payload) + " payload bytes): " + r.describe();
}

// Traces a report, then hands it to the messenger's Error (which a program may override).
template <class M>
void report(M& m, const LinkSite& site, const char* text) {
  TraceText(site, TraceKind::kError, text);
  m.Error(text);
}

// The body of DispatchMessage for both messengers.
//  - a type outside the table: false, nothing reported.
//  - 3 bytes or fewer: `Error(wrongFormat)`, true, no handler.
//  - a type without a case: false, nothing reported.
//  - an accepted-and-dropped type: true.
//  - a payload that runs short of its fields: one `Error` naming the type, no handler, true.
template <class M, size_t N>
bool frame(M& m, const std::array<Case<M>, N>& cases, int type, const char* data, int length,
           const char* wrongFormat, const LinkSite& site) {
  // A type outside the link's range is unknown whatever its length; so the queue events, which
  // carry no payload, are dropped silently as unknown types rather than reported as malformed.
  if (type < 0 || static_cast<size_t>(type) >= N) return false;
  if (length <= 3 || data == nullptr) {
    report(m, site, wrongFormat);
    return true;
  }
  const Case<M>& c = cases[static_cast<size_t>(type)];
  if (c.name == nullptr) return false;
  if (c.decode == nullptr) return true;
  const size_t payload = static_cast<size_t>(length) - 4;
  wire::Reader r(data, payload);
  if (!c.decode(m, r, trailer(data, static_cast<size_t>(length)))) {
    report(m, site, malformed(type, c.name, payload, r).c_str());
  }
  return true;
}

}  // namespace conflink::dispatch
