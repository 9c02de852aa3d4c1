#include "bench/soak_ledger.h"

#include <sys/mman.h>

#include <algorithm>
#include <new>

namespace conflink::soak {

const char* LinkName(int link) {
  return link == 0 ? "cc" : "cgi";
}

void WideCount::add(uint64_t n) {
  const uint32_t part = static_cast<uint32_t>(n);
  const uint32_t before = low.fetch_add(part);
  uint32_t carry = static_cast<uint32_t>(n >> 32);
  if (static_cast<uint32_t>(before + part) < before) ++carry;
  if (carry != 0) high.fetch_add(carry);
}

uint64_t WideCount::value() const {
  return (static_cast<uint64_t>(high.load()) << 32) | low.load();
}

Ledger* MapLedger() {
  void* memory =
      mmap(nullptr, sizeof(Ledger), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) return nullptr;
  return new (memory) Ledger();
}

void UnmapLedger(Ledger* ledger) {
  if (ledger == nullptr) return;
  ledger->~Ledger();
  munmap(ledger, sizeof(Ledger));
}

namespace {

void raise(std::atomic<uint32_t>& word, uint32_t atLeast) {
  uint32_t now = word.load();
  while (now < atLeast && !word.compare_exchange_weak(now, atLeast)) {
  }
}

// Groups [first, end) did not arrive: those below the excuse mark, or excused one by one, were
// allowed not to.
void countMissing(DirectionBook& book, uint32_t first, uint32_t end) {
  if (end <= first) return;
  const uint32_t excusedEnd = std::clamp(book.excuseBelow.load(), first, end);
  uint32_t ones = 0;
  const uint32_t kept = std::min(book.excusedOnes.load(), DirectionBook::kExcusedOnes);
  for (uint32_t i = 0; i < kept; ++i) {
    const uint32_t g = book.excusedOne[i].load();
    if (g >= excusedEnd && g < end) ++ones;
  }
  book.dropped.fetch_add(excusedEnd - first + ones);
  book.lost.fetch_add(end - excusedEnd - ones);
}

}  // namespace

void DirectionBook::excuseOne(uint32_t group) {
  const uint32_t slot = excusedOnes.load();
  excusedOne[slot % kExcusedOnes].store(group);
  excusedOnes.store(slot + 1);
}

bool DirectionBook::excused(uint32_t group) const {
  if (group < excuseBelow.load()) return true;
  const uint32_t kept = std::min(excusedOnes.load(), kExcusedOnes);
  for (uint32_t i = 0; i < kept; ++i) {
    if (excusedOne[i].load() == group) return true;
  }
  return false;
}

void ExcuseSentToDeparted(DirectionBook& sent) {
  raise(sent.excuseBelow, sent.next.load() + 1);
}

void ExcuseAfterDeath(Ledger& ledger, int side, bool peerAttached) {
  for (int link = 0; link < kLinks; ++link) {
    DirectionBook& sent = ledger.directions[direction(link, side)];
    // The group it may have been sending when it died: its successor starts after it.
    const uint32_t sending = sent.next.load();
    sent.next.store(sending + 1);
    if (peerAttached) {
      sent.excuseOne(sending);
    } else {
      raise(sent.excuseBelow, sending + 1);
    }
    // What the survivor sent it, up to the group being sent now, may have died with it.
    DirectionBook& received = ledger.directions[direction(link, 1 - side)];
    raise(received.excuseBelow, received.next.load() + 1);
  }
}

void Arrivals::unnumbered(DirectionBook& book, Wire message) {
  if (pending_.size() >= kMaxPending) {
    book.corrupted.fetch_add(static_cast<uint32_t>(pending_.size()));
    pending_.clear();
  }
  pending_.push_back(std::move(message));
}

void Arrivals::numbered(DirectionBook& book, uint32_t index, const Wire& numbered,
                        const std::vector<Wire>& expected) {
  const uint32_t last = book.lastReceived.load();
  if (index <= last) {
    // Taken before, or older than what was taken: the same group twice, or out of order.
    book.duplicated.fetch_add(1 + static_cast<uint32_t>(pending_.size()));
    pending_.clear();
    return;
  }
  countMissing(book, last + 1, index);
  const bool excused = book.excused(index);

  // The group's unnumbered part must be the last of those pending.
  size_t extras = pending_.size();
  if (expected.size() > 1) {
    const Wire& part = expected.front();
    if (!pending_.empty() && pending_.back() == part) {
      --extras;
    } else if (!pending_.empty() && pending_.back().type == part.type) {
      --extras;
      book.corrupted.fetch_add(1);
    } else if (excused) {
      book.dropped.fetch_add(1);
    } else {
      book.lost.fetch_add(1);
    }
  }
  // Others are parts of groups that went missing before it; with no gap, nothing else was sent.
  if (extras > 0 && index == last + 1) book.duplicated.fetch_add(static_cast<uint32_t>(extras));
  pending_.clear();

  if (expected.empty() || !(numbered == expected.back())) {
    book.corrupted.fetch_add(1);
  } else {
    book.delivered.fetch_add(1);
  }
  book.lastReceived.store(index);
}

void CountTail(DirectionBook& book) {
  countMissing(book, book.lastReceived.load() + 1, book.next.load());
}

}  // namespace conflink::soak
