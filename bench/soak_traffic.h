// What the soak sends: for each direction and group number, a group of messages drawn from a
// generator seeded by (seed, link, sending side, group), so that the receiver regenerates exactly
// what it must receive. Every message type of the link is drawn, with random values in every
// field: lists and strings of random lengths, some large enough to travel in fragments.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "bench/soak_ledger.h"

class CCToPSMessenger;
class CGIToPSMessenger;

namespace conflink::soak {

// splitmix64: small, fast, and the same on every target.
class Rng {
 public:
  explicit Rng(uint64_t seed) : state_(seed) {}
  uint64_t next();
  // Uniform in [0, bound) (bound > 0).
  uint64_t below(uint64_t bound) { return next() % bound; }

 private:
  uint64_t state_;
};

// One message type of a link as the soak sees it.
struct TypeInfo {
  int type = -1;
  const char* name = nullptr;
  bool numbered = false;  // its first field is the request identifier, and it travels
  bool handled = false;   // the receiving messenger calls a handler for it
};

class Traffic {
 public:
  Traffic(uint64_t seed, int link);

  int link() const { return link_; }
  // Messages in group `index` sent by `from` (1 or 2; the numbered one last).
  int groupSize(int from, uint32_t index) const;
  // Sends part `part` of the group through the messenger's own operation for it, with the
  // group's values; returns the operation's result.
  int send(CCToPSMessenger& messenger, int from, uint32_t index, int part) const;
  int send(CGIToPSMessenger& messenger, int from, uint32_t index, int part) const;
  // The group as it must arrive: each part's type and buffer (payload, then the link mark).
  std::vector<Wire> expected(int from, uint32_t index) const;

  // The link's type `type`, or null when the link sends no such type.
  const TypeInfo* info(int type) const;
  // The group number a numbered message carries.
  static uint32_t groupOf(const std::string& bytes);
  // How many of the link's types are drawn.
  size_t typeCount() const { return types_.size(); }

 private:
  struct Plan {
    int parts = 0;
    size_t position[2] = {0, 0};  // into types_
    uint64_t seed[2] = {0, 0};
  };
  Plan plan(int from, uint32_t index) const;

  uint64_t seed_;
  int link_;
  std::vector<TypeInfo> types_;  // in the order the link's messages are listed
  std::vector<size_t> numbered_;
  std::vector<size_t> unnumbered_;
};

}  // namespace conflink::soak
