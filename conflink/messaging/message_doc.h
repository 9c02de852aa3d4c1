// The protocol reference's view of a message declaration (message.h): who sends it, the wire
// types of its payload in order, and the handler that receives it. Everything is read from the
// declaration's own types, so the reference cannot differ from what the messengers do.
#pragma once

#include <list>
#include <optional>
#include <string>
#include <tuple>
#include <type_traits>
#include <typeinfo>

#include <conflink/messaging/dispatch.h>

namespace conflink::msg {

// The readable name of a type, from the compiler's own (e.g. "ConfIDString").
std::string TypeNameOf(const std::type_info& type);

// The wire name of a field: a primitive's (u64, i32, u32, u16, bool32, enum32, f64, str), list<T>,
// opt<T> for an optional record, or the record's own name.
template <class T, class = void>
struct WireName {
  static std::string get() { return TypeNameOf(typeid(T)); }
};
template <class T>
struct WireName<T, std::enable_if_t<std::is_enum_v<T>>> {
  static std::string get() { return "enum32 " + TypeNameOf(typeid(T)); }
};
template <>
struct WireName<unsigned long long> {
  static std::string get() { return "u64"; }
};
template <>
struct WireName<int> {
  static std::string get() { return "i32"; }
};
template <>
struct WireName<unsigned int> {
  static std::string get() { return "u32"; }
};
template <>
struct WireName<unsigned long> {
  static std::string get() { return "u32"; }
};
template <>
struct WireName<unsigned short> {
  static std::string get() { return "u16"; }
};
template <>
struct WireName<bool> {
  static std::string get() { return "bool32"; }
};
template <>
struct WireName<double> {
  static std::string get() { return "f64"; }
};
template <>
struct WireName<std::string> {
  static std::string get() { return "str"; }
};
template <class T>
struct WireName<std::list<T>> {
  static std::string get() { return "list<" + WireName<T>::get() + ">"; }
};
template <class T>
struct WireName<const T*> {
  static std::string get() { return "opt<" + WireName<T>::get() + ">"; }
};

namespace detail {
template <class Tuple, size_t... I>
std::string wireNames(std::index_sequence<I...>) {
  std::string out;
  ((out += (I == 0 ? "" : ", ") + WireName<std::tuple_element_t<I, Tuple>>::get()), ...);
  return out;
}
template <class Tuple>
std::string wireNames() {
  return wireNames<Tuple>(std::make_index_sequence<std::tuple_size_v<Tuple>>());
}
}  // namespace detail

}  // namespace conflink::msg
