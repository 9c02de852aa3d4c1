// The soak's judgement of what arrives, and the traffic it draws: a soak that miscounts would
// pass a queue that loses messages, or fail one that keeps its rules.
#include "bench/soak_ledger.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "bench/soak_traffic.h"

namespace conflink::soak {
namespace {

// A group as the tests send it: its numbered message carries `index`, and a group with an
// unnumbered part has it first.
std::vector<Wire> group(uint32_t index, bool withPart) {
  std::vector<Wire> g;
  if (withPart) g.push_back({70, "part of " + std::to_string(index)});
  g.push_back({3, "numbered " + std::to_string(index)});
  return g;
}

// One arrival: an unnumbered message, or a numbered one with its group.
struct Step {
  enum Kind { kPart, kNumbered } kind;
  uint32_t index;
  bool withPart;          // the group as sent has an unnumbered part
  std::string different;  // when not empty, what arrives instead of the sent bytes
};
Step part(uint32_t index, std::string different = "") {
  return {Step::kPart, index, true, std::move(different)};
}
Step numbered(uint32_t index, bool withPart = false, std::string different = "") {
  return {Step::kNumbered, index, withPart, std::move(different)};
}

struct Counts {
  uint32_t delivered, dropped, lost, duplicated, corrupted;
};

struct Row {
  const char* name;
  uint32_t excuseBelow;
  std::vector<Step> steps;
  Counts expected;
};

TEST(SoakArrivals, EachOutcomeIsCountedOnce) {
  const std::vector<Row> rows = {
      {"in order", 1, {numbered(1), numbered(2), numbered(3)}, {3, 0, 0, 0, 0}},
      {"a gap nobody's death excuses", 1, {numbered(1), numbered(3)}, {2, 0, 1, 0, 0}},
      {"a gap a death excuses", 4, {numbered(1), numbered(4)}, {2, 2, 0, 0, 0}},
      {"a gap half excused", 3, {numbered(1), numbered(5)}, {2, 1, 2, 0, 0}},
      {"the same group twice", 1, {numbered(1), numbered(2), numbered(2)}, {2, 0, 0, 1, 0}},
      {"an older group after a newer", 1, {numbered(2), numbered(1)}, {1, 0, 1, 1, 0}},
      {"other bytes", 1, {numbered(1, false, "garbage")}, {0, 0, 0, 0, 1}},
      {"a whole group with its part", 1, {part(1), numbered(1, true)}, {1, 0, 0, 0, 0}},
      {"its part missing", 1, {numbered(1, true)}, {1, 0, 1, 0, 0}},
      {"its part missing, excused", 2, {numbered(1, true)}, {1, 1, 0, 0, 0}},
      {"its part with other bytes", 1, {part(1, "garbage"), numbered(1, true)}, {1, 0, 0, 0, 1}},
      {"a part twice", 1, {part(1), part(1), numbered(1, true)}, {1, 0, 0, 1, 0}},
      {"a part of an excused group before the next",
       3,
       {numbered(1), part(2), numbered(3)},
       {2, 1, 0, 0, 0}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    DirectionBook book;
    book.excuseBelow.store(row.excuseBelow);
    Arrivals arrivals;
    for (const Step& s : row.steps) {
      const std::vector<Wire> sent = group(s.index, s.withPart);
      Wire arrived = s.kind == Step::kPart ? sent.front() : sent.back();
      if (!s.different.empty()) arrived.bytes = s.different;
      if (s.kind == Step::kPart) {
        arrivals.unnumbered(book, arrived);
      } else {
        arrivals.numbered(book, s.index, arrived, sent);
      }
    }
    EXPECT_EQ(book.delivered.load(), row.expected.delivered);
    EXPECT_EQ(book.dropped.load(), row.expected.dropped);
    EXPECT_EQ(book.lost.load(), row.expected.lost);
    EXPECT_EQ(book.duplicated.load(), row.expected.duplicated);
    EXPECT_EQ(book.corrupted.load(), row.expected.corrupted);
  }
}

TEST(SoakArrivals, TooManyPartsInARowAreCorrupt) {
  DirectionBook book;
  Arrivals arrivals;
  for (size_t i = 0; i <= Arrivals::kMaxPending; ++i) arrivals.unnumbered(book, {70, "x"});
  EXPECT_EQ(book.corrupted.load(), Arrivals::kMaxPending);
}

TEST(SoakBooks, GroupsFinishedButNeverTakenAreDroppedOrLostByTheExcuseMark) {
  DirectionBook book;
  book.next.store(6);  // groups 1 to 5 were accepted
  book.lastReceived.store(2);
  book.excuseBelow.store(4);
  CountTail(book);
  EXPECT_EQ(book.dropped.load(), 1u);  // group 3
  EXPECT_EQ(book.lost.load(), 2u);     // groups 4 and 5
}

TEST(SoakBooks, ADeathExcusesWhatWasInFlightBothWays) {
  Ledger ledger;
  for (DirectionBook& b : ledger.directions) b.next.store(10);
  ledger.directions[direction(1, 1)].next.store(7);
  ExcuseAfterDeath(ledger, 0, false);
  for (int link = 0; link < kLinks; ++link) {
    // What A sent: its successor skips the group it may have been sending.
    const DirectionBook& sent = ledger.directions[direction(link, 0)];
    EXPECT_EQ(sent.next.load(), 11u);
    EXPECT_EQ(sent.excuseBelow.load(), 11u);
  }
  // What B sent to A, up to the group B is sending now.
  EXPECT_EQ(ledger.directions[direction(0, 1)].excuseBelow.load(), 11u);
  EXPECT_EQ(ledger.directions[direction(1, 1)].excuseBelow.load(), 8u);
  EXPECT_EQ(ledger.directions[direction(1, 1)].next.load(), 7u);
}

TEST(SoakBooks, ASenderKilledBeforeAnAttachedPeerIsExcusedOnlyTheGroupItWasSending) {
  Ledger ledger;
  for (DirectionBook& b : ledger.directions) b.next.store(10);
  ExcuseAfterDeath(ledger, 1, true);
  DirectionBook& sent = ledger.directions[direction(0, 1)];
  EXPECT_EQ(sent.next.load(), 11u);
  EXPECT_EQ(sent.excuseBelow.load(), 1u);
  EXPECT_TRUE(sent.excused(10));
  EXPECT_FALSE(sent.excused(9));
  EXPECT_FALSE(sent.excused(11));
  // Groups 8 to 12 missing: 10 was excused, the others had to arrive.
  sent.lastReceived.store(7);
  sent.next.store(13);
  CountTail(sent);
  EXPECT_EQ(sent.dropped.load(), 1u);
  EXPECT_EQ(sent.lost.load(), 4u);
  // What A sent to B is excused as before.
  EXPECT_EQ(ledger.directions[direction(0, 0)].excuseBelow.load(), 11u);
}

TEST(SoakBooks, WideCountsCarry) {
  WideCount c;
  c.add(0xfffffff0u);
  c.add(0x20);
  c.add(0x100000000ULL);
  EXPECT_EQ(c.value(), 0x200000010ULL);
}

TEST(SoakTraffic, EveryTypeIsDrawnNumberedAndRegeneratedAlike) {
  for (int link = 0; link < kLinks; ++link) {
    SCOPED_TRACE(LinkName(link));
    const Traffic traffic(42, link);
    const Traffic again(42, link);
    std::set<int> types;
    size_t fragmented = 0;
    for (uint32_t index = 1; index <= 2000; ++index) {
      const std::vector<Wire> g = traffic.expected(0, index);
      ASSERT_EQ(g.size(), static_cast<size_t>(traffic.groupSize(0, index)));
      ASSERT_EQ(g, again.expected(0, index));
      for (size_t i = 0; i < g.size(); ++i) {
        const TypeInfo* t = traffic.info(g[i].type);
        ASSERT_NE(t, nullptr) << g[i].type;
        EXPECT_EQ(t->numbered, i + 1 == g.size()) << t->name;
        types.insert(g[i].type);
        if (g[i].bytes.size() > 32768) ++fragmented;
      }
      EXPECT_EQ(Traffic::groupOf(g.back().bytes), index);
    }
    EXPECT_EQ(types.size(), traffic.typeCount());
    EXPECT_GT(fragmented, 0u) << "no message larger than the ring";
    EXPECT_NE(traffic.expected(0, 7), traffic.expected(1, 7)) << "the directions differ";
  }
}

}  // namespace
}  // namespace conflink::soak
