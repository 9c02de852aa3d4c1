// Where a virtual function sits in its class's table, read from a pointer to it. The messengers'
// and the queue's slot order is a binary contract with programs built against earlier releases,
// so tests check it table by table with this.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

namespace conflink::testing {

// The Itanium C++ ABI (x86-64, 32-bit PowerPC Linux) represents a pointer to a virtual member
// function as 1 + the byte offset of its slot, followed by an adjustment of `this`; a
// non-virtual member's pointer is an even address. Returns the slot's index, or -1 for a
// function that is not virtual.
template <class F>
std::ptrdiff_t slotOf(F member) {
  struct Representation {
    std::uintptr_t pointer;
    std::ptrdiff_t adjustment;
  };
  static_assert(sizeof(F) == sizeof(Representation), "not an Itanium-ABI member pointer");
  Representation r;
  std::memcpy(&r, &member, sizeof r);
  if ((r.pointer & 1) == 0) return -1;
  return static_cast<std::ptrdiff_t>((r.pointer - 1) / sizeof(void*));
}

// The slots of several members, in the order given.
template <class... F>
std::vector<std::ptrdiff_t> slotsOf(F... members) {
  return {slotOf(members)...};
}

// The slots a table would have if `count` functions followed each other from `first` on.
inline std::vector<std::ptrdiff_t> consecutive(std::ptrdiff_t first, std::size_t count) {
  std::vector<std::ptrdiff_t> out;
  for (std::size_t i = 0; i < count; ++i) out.push_back(first + static_cast<std::ptrdiff_t>(i));
  return out;
}

// The first slot after a virtual destructor, which takes two (the complete-object and the
// deleting destructor).
constexpr std::ptrdiff_t kFirstAfterDestructor = 2;

}  // namespace conflink::testing
