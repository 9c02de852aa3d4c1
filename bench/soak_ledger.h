// The soak's books: one block of memory shared by the controller and every incarnation of both
// parties (mapped before the first fork, so it outlives the kills), and the rules that judge
// what arrives.
//
// Traffic flows in four directions: each of the two links (CC, CGI) from party A to party B and
// from B to A. In each direction the sender sends numbered groups 1, 2, 3, ...: group g is zero
// or one unnumbered message (a type that carries no request identifier, which the receiver
// cannot place by itself) followed by one numbered message whose first field, the request
// identifier, is g. The receiver regenerates group g from the seed and compares the bytes.
//
// What must arrive (the queue's delivery rules): a message reaches the process its sender knew
// at the other place, whole, in order and once, and never a successor of that process; so when
// a sender takes its peer's departure, every group it sent so far is excused (the departed peer
// may not have taken it). Besides, a party of the link may die while a message is in flight: a
// dying receiver takes with it what it had taken or held, and what a dying sender left unread may
// be discarded. So when the controller has reaped a killed party it marks, in each direction of
// that party, every group sent or being sent so far as excused: groups below `excuseBelow` may be
// missing (counted as dropped, with that rule), every later group must arrive. A restarted sender
// starts after the group its predecessor may have been sending. When the peer stayed attached, a
// killed sender's groups must all arrive but the one it was sending. Words are 32-bit atomics:
// lock-free on the 32-bit target too, so they work across processes.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

namespace conflink::soak {

constexpr int kLinks = 2;         // 0: CC link, 1: CGI link
constexpr int kSides = 2;         // 0: party A, 1: party B
constexpr int kDirections = 4;    // link * 2 + sending side
constexpr int kResultCodes = 11;  // send results 0 .. -10

inline int direction(int link, int from) {
  return link * 2 + from;
}
const char* LinkName(int link);

// A 64-bit count kept as two words, written by one process at a time.
struct WideCount {
  std::atomic<uint32_t> low{0};
  std::atomic<uint32_t> high{0};
  void add(uint64_t n);
  uint64_t value() const;
};

struct DirectionBook {
  // Sender's side.
  std::atomic<uint32_t> next{1};        // the group being sent; groups below it were accepted
  std::atomic<uint32_t> senderDone{0};  // the sender stopped at the end of the run
  std::atomic<uint32_t> sentMessages{0};
  WideCount sentBytes;
  std::atomic<uint32_t> refused[kResultCodes] = {};  // sends refused, by -result
  // The controller's: groups below it were in flight when a party died; and single groups a
  // killed sender may have been sending while its peer stayed attached (the last kExcusedOnes).
  std::atomic<uint32_t> excuseBelow{1};
  static constexpr uint32_t kExcusedOnes = 64;
  std::atomic<uint32_t> excusedOne[kExcusedOnes] = {};
  std::atomic<uint32_t> excusedOnes{0};
  void excuseOne(uint32_t group);
  bool excused(uint32_t group) const;
  // Receiver's side.
  std::atomic<uint32_t> lastReceived{0};  // the last numbered group taken (0: none yet)
  std::atomic<uint32_t> receivedMessages{0};
  WideCount receivedBytes;
  std::atomic<uint32_t> delivered{0};   // groups that arrived whole and in order
  std::atomic<uint32_t> dropped{0};     // excused groups (and parts of groups) that did not arrive
  std::atomic<uint32_t> lost{0};        // groups that had to arrive and did not
  std::atomic<uint32_t> duplicated{0};  // arrived again, out of order, or despite a refusal
  std::atomic<uint32_t> corrupted{0};   // arrived with other bytes, or dispatched wrongly
  std::atomic<uint32_t> peerEvents{0};  // the peer's arrivals and departures seen
};

struct SideBook {
  std::atomic<uint32_t> incarnation{0};
  std::atomic<uint32_t> finished{0};  // drained at the end of the run
  std::atomic<uint32_t> attached{0};  // holds its place on both links
  // Memory of the running incarnation, KiB: VmHWM after its warm-up and now.
  std::atomic<uint32_t> hwmWarmKiB{0};
  std::atomic<uint32_t> hwmNowKiB{0};
};

struct Ledger {
  std::atomic<uint32_t> stop{0};  // the controller ends the run
  DirectionBook directions[kDirections];
  SideBook sides[kSides];
};

// Maps a fresh ledger shared with the children forked later; null on failure.
Ledger* MapLedger();
void UnmapLedger(Ledger* ledger);

// The controller's marks after reaping a killed party of `side`. In the directions it received,
// every group sent or being sent is excused. In the directions it sent, its successor skips the
// group it may have been sending; when its peer was attached on both links before it was
// killed, only that group is excused (what a departing sender left reaches an attached peer),
// otherwise every group before it too.
void ExcuseAfterDeath(Ledger& ledger, int side, bool peerAttached);
// A sender's mark when it takes its peer's departure: every group it sent or is sending may be
// missing, since what the departed peer had not taken is dropped, never handed to a successor.
void ExcuseSentToDeparted(DirectionBook& sent);

// A message as it travelled: type and buffer (payload, then the link mark).
struct Wire {
  int type = 0;
  std::string bytes;
  bool operator==(const Wire& o) const { return type == o.type && bytes == o.bytes; }
};

// What a receiver keeps for one direction between numbered messages.
class Arrivals {
 public:
  static constexpr size_t kMaxPending = 16;

  // An unnumbered message arrived; it belongs to the numbered one that follows. Too many in a
  // row are counted as corrupted (a group has at most one).
  void unnumbered(DirectionBook& book, Wire message);
  // Numbered group `index` arrived as `numbered`; `expected` is the group as sent (unnumbered
  // part first). Judges it and what came before it, and updates the book.
  void numbered(DirectionBook& book, uint32_t index, const Wire& numbered,
                const std::vector<Wire>& expected);

 private:
  std::vector<Wire> pending_;
};

// At the end of the run: groups the sender finished that never arrived.
void CountTail(DirectionBook& book);

}  // namespace conflink::soak
