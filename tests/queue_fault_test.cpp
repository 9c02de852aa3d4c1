// The queue between real processes that fail: a peer killed with SIGKILL at random moments and
// restarted, a third process that tries to join, a peer that stops taking. The survivor must
// see each departure and arrival in order with the messages, never a failure code for what was
// only a death, and every message a send reported accepted must arrive whole, in order and once,
// unless the process that took it from the ring died with it.
#include <signal.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <string>
#include <vector>

#include <conflink/platform/queue_test_support.h>
#include "tests/support/fault_injection.h"

namespace conflink::testing {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int kFromSurvivor = 200;
constexpr int kFromPeer = 300;
constexpr int kEnd = 400;
constexpr std::uint32_t kSurvivorStream = 7;

// What a peer reports on its pipe.
enum ReportKind : std::uint32_t {
  kPeerSent = 1,     // number, and the send's result
  kPeerGot = 2,      // number of a whole survivor message
  kPeerDamaged = 3,  // a survivor message that was not whole
  kPeerOdd = 4,      // something the delivery rules rule out: a type, or a result
};

int Send(CyclicMessageQueue& q, int type, std::string message) {
  return q.Send(&type, &message);
}

// ---- A peer killed at random moments ----

enum class PeerMode { kSends, kReads, kBoth, kIdle };
const char* ModeName(PeerMode m) {
  switch (m) {
    case PeerMode::kSends:
      return "sends";
    case PeerMode::kReads:
      return "reads";
    case PeerMode::kBoth:
      return "sends and reads";
    case PeerMode::kIdle:
      return "takes nothing";
  }
  return "?";
}

struct PeerPlan {
  std::uint32_t generation;
  PeerMode mode;
  unsigned dieAfterMs;  // 0: lives until the survivor's end message, then leaves
  std::uint64_t seed;
};

// The peer: sends its own numbered messages and/or takes the survivor's, reporting every send's
// result and every arrival, until its kill timer fires.
int RunPeer(const TestQueueName& name, const PeerPlan& plan, ReportPipe& reports) {
  auto q = name.Open();
  if (!q->IsConnected()) return 10;
  if (plan.dieAfterMs != 0) DieWithSigkillAfterMs(plan.dieAfterMs);
  FaultRng rng(plan.seed);
  const std::uint32_t stream = 1000 + plan.generation;
  std::uint32_t next = 0;
  bool greeted = false;
  int type = 0;
  std::string buffer;
  for (;;) {
    if (plan.mode == PeerMode::kSends || (plan.mode == PeerMode::kBoth && rng.Percent(50))) {
      const int r = Send(*q, kFromPeer, Numbered(stream, next, MessageSize(rng)));
      reports.Put(kPeerSent, next++, r);
    }
    if (plan.mode == PeerMode::kReads || plan.mode == PeerMode::kBoth) {
      const int r = q->ReceiveFor(&type, &buffer, 2);
      if (r == kQueueOk && type == kQueueEventPeerConnected && !greeted) {
        greeted = true;  // the survivor was there first: its arrival comes before anything
      } else if (r == kQueueOk && type == kFromSurvivor && greeted) {
        const long long n = NumberOf(buffer, kSurvivorStream);
        reports.Put(n < 0 ? kPeerDamaged : kPeerGot, n < 0 ? 0 : static_cast<std::uint32_t>(n));
      } else if (r == kQueueOk && type == kEnd && greeted) {
        return 0;
      } else if (r != kQueueEmpty) {
        reports.Put(kPeerOdd, static_cast<std::uint32_t>(type), r);
      }
    }
    if (plan.mode == PeerMode::kIdle) usleep(1000);
  }
}

TEST(QueueFaults, APeerKilledAtRandomMomentsLosesNothingAccepted) {
  SeededRun run;
  FaultRng& rng = run.rng;
  TestQueueName name;
  auto q = name.Open();
  ASSERT_TRUE(q->IsConnected()) << q->LastError();

  // At least kMinRounds, more while the run is young (a slow emulated target does fewer).
  constexpr std::uint32_t kMinRounds = 12, kMaxRounds = 40;
  const auto start = Clock::now();
  SurvivorLog log;
  std::vector<std::vector<std::uint32_t>> receivedBy;
  int type = 0;
  std::string buffer;
  for (std::uint32_t gen = 0;; ++gen) {
    const bool last = gen + 1 >= kMaxRounds ||
                      (gen + 1 >= kMinRounds && Clock::now() - start > std::chrono::seconds(3));
    const PeerPlan plan{gen, last ? PeerMode::kBoth : static_cast<PeerMode>(rng.Between(0, 3)),
                        last ? 0u : rng.Between(1, 40), rng.Next()};
    // The survivor polls, or waits long in a blocking receive (a kill must end that wait).
    const int waitMs = !last && rng.Percent(40) ? 2000 : 1;
    SCOPED_TRACE(
        "round " + std::to_string(gen) + ": the peer " + ModeName(plan.mode) +
        (last ? ", then leaves" : ", killed after " + std::to_string(plan.dieAfterMs) + " ms") +
        (waitMs > 1 ? "; the survivor blocks in receive" : "; the survivor polls"));
    ReportPipe pipe;
    ChildProcess peer([&] { return RunPeer(name, plan, pipe); }, 30);
    ASSERT_TRUE(peer.started());
    std::vector<Report> reports;
    std::vector<std::uint32_t> fromPeer;
    bool arrived = false, departed = false, endSent = false;
    int sends = 0;
    const auto deadline = Clock::now() + std::chrono::milliseconds(kPatientMs);
    while (!departed) {
      ASSERT_LT(Clock::now(), deadline) << "the peer's departure was never reported";
      if (last && sends >= 20 && arrived && !endSent) {  // once the peer is surely there
        ASSERT_EQ(Send(*q, kEnd, "end"), kQueueOk) << q->LastError();
        endSent = true;
      } else if (!endSent && rng.Percent(50)) {
        const auto n = static_cast<std::uint32_t>(log.result.size());
        const int r = Send(*q, kFromSurvivor, Numbered(kSurvivorStream, n, MessageSize(rng)));
        // A death ends a wait for room; with nobody there only what fits goes.
        ASSERT_TRUE(r == kQueueOk || r == kQueuePeerDeparted || r == kQueuePeerAbsentFull)
            << "send " << n << ": " << r << " " << q->LastError();
        log.Sent(r);
        ++sends;
      }
      for (int r; !departed && (r = q->ReceiveFor(&type, &buffer, waitMs)) != kQueueEmpty;) {
        ASSERT_EQ(r, kQueueOk) << "a death is no failure: " << q->LastError();
        if (type == kQueueEventPeerConnected) {
          ASSERT_FALSE(arrived) << "one arrival per peer";
          arrived = true;
        } else if (type == kQueueEventPeerDisconnected) {
          ASSERT_TRUE(arrived) << "the arrival comes before the departure";
          departed = true;
          log.Departed();
        } else {
          ASSERT_TRUE(arrived) << "the peer's arrival comes before its messages";
          ASSERT_EQ(type, kFromPeer);
          const long long n = NumberOf(buffer, 1000 + gen);
          ASSERT_GE(n, 0) << "a message arrives whole (" << buffer.size() << " bytes)";
          fromPeer.push_back(static_cast<std::uint32_t>(n));
        }
      }
      pipe.Collect(reports);
    }
    ASSERT_EQ(peer.wait(kPatientMs), last ? 0 : 128 + SIGKILL);
    pipe.Collect(reports);
    // Everything the peer sent was delivered before its departure.
    EXPECT_TRUE(EveryAcceptedMessageArrived(fromPeer, reports, kPeerSent));
    receivedBy.emplace_back();
    for (const Report& r : reports) {
      ASSERT_NE(r.kind, kPeerDamaged) << "the peer received a damaged message";
      ASSERT_NE(r.kind, kPeerOdd) << "the peer received type " << static_cast<int>(r.number)
                                  << " with result " << r.result;
      if (r.kind == kPeerGot) receivedBy.back().push_back(r.number);
    }
    if (HasFatalFailure() || last) break;
  }
  EXPECT_TRUE(OnlyDeadPeersLostAnything(log, receivedBy));
  std::size_t delivered = 0;
  for (const auto& g : receivedBy) delivered += g.size();
  RecordProperty("rounds", static_cast<int>(receivedBy.size()));
  RecordProperty("survivor_messages_delivered", static_cast<int>(delivered));
}

// An answer is for the process it answers: what a killed peer never took, and what was sent to
// it after it died but before its departure was received, is dropped, never handed to the
// process that takes its place. What is sent once the departure was received waits for the next.
TEST(QueueFaults, WhatWasForAKilledPeerNeverReachesItsSuccessor) {
  TestQueueName name;
  auto q = name.Open();
  Pace attached;
  ChildProcess first([&] {
    auto mine = name.Open();
    DieWithSigkillAfterMs(300);  // takes nothing, and dies while the survivor waits for room
    attached.Signal();
    pause();
    return 1;
  });
  ASSERT_EQ(attached.Await(kPatientMs), 'x');
  ASSERT_EQ(ReceiveType(*q, nullptr, kPatientMs), kQueueEventPeerConnected);
  std::vector<int> results;
  for (std::uint32_t n = 0; n < 5; ++n)
    results.push_back(Send(*q, kFromSurvivor, Numbered(kSurvivorStream, n, 100 + n)));
  // Larger than the ring: its first fragment goes, then it waits for a peer that dies.
  results.push_back(Send(*q, kFromSurvivor, Numbered(kSurvivorStream, 5, 3 * kTestCapacity)));
  EXPECT_NE(std::string(q->LastError()).find("left"), std::string::npos) << q->LastError();
  EXPECT_EQ(results, (std::vector<int>{1, 1, 1, 1, 1, kQueuePeerDeparted}));
  EXPECT_EQ(first.wait(), 128 + SIGKILL);
  // Dead, its departure not yet received: still addressed to it, so refused or later dropped.
  const int late = Send(*q, kFromSurvivor, Numbered(kSurvivorStream, 6, 106));
  EXPECT_TRUE(late == kQueueOk || late == kQueuePeerDeparted) << late;
  EXPECT_EQ(ReceiveType(*q, nullptr, kPatientMs), kQueueEventPeerDisconnected);
  EXPECT_EQ(q->AddressedPeer(), 0u);
  // Known to be gone: for whoever comes next.
  EXPECT_EQ(Send(*q, kFromSurvivor, Numbered(kSurvivorStream, 7, 107)), kQueueOk);

  ReportPipe discarded;
  ChildProcess successor([&] {
    auto mine = name.Open();
    std::string text;
    if (ReceiveType(*mine, nullptr, kPatientMs) != kQueueEventPeerConnected) return 1;
    for (std::uint32_t n : {7u, 8u})
      if (ReceiveType(*mine, &text, kPatientMs) != kFromSurvivor ||
          NumberOf(text, kSurvivorStream) != n)
        return 10 + static_cast<int>(n);
    discarded.Put(0, mine->DiscardedMessages());
    return ReceiveType(*mine, nullptr, 300) == kNothing ? 0 : 2;
  });
  ASSERT_EQ(ReceiveType(*q, nullptr, kPatientMs), kQueueEventPeerConnected);
  EXPECT_NE(q->AddressedPeer(), 0u);
  EXPECT_EQ(Send(*q, kFromSurvivor, Numbered(kSurvivorStream, 8, 108)), kQueueOk);
  EXPECT_EQ(successor.wait(), 0);
  std::vector<Report> got;
  discarded.Collect(got);
  ASSERT_EQ(got.size(), 1u);
  // Messages 0 to 4, the begun fragment of 5, and 6 if it went.
  EXPECT_EQ(got[0].number, late == kQueueOk ? 7u : 6u) << "messages dropped by the successor";
}

// ---- A third process ----

TEST(QueueFaults, AThirdProcessIsRefusedAndThePairGoesOnUndisturbed) {
  SeededRun run;
  FaultRng& rng = run.rng;
  TestQueueName name;
  auto q = name.Open();
  // The peer echoes every message until the end message; anything but the survivor's arrival and
  // its messages fails it.
  ChildProcess echo([&] {
    auto mine = name.Open();
    int type = 0;
    std::string buffer;
    if (ReceiveType(*mine, nullptr, kPatientMs) != kQueueEventPeerConnected) return 1;
    for (;;) {
      const int r = mine->ReceiveFor(&type, &buffer, kPatientMs);
      if (r != kQueueOk) return 2;
      if (type == kEnd) return 0;
      if (type != kFromSurvivor || mine->Send(&type, &buffer) != kQueueOk) return 3;
    }
  });
  ASSERT_EQ(ReceiveType(*q, nullptr, kPatientMs), kQueueEventPeerConnected);
  constexpr int kIntruders = 3, kTries = 15;
  std::vector<std::unique_ptr<ChildProcess>> intruders;
  for (int i = 0; i < kIntruders; ++i) {
    const std::uint64_t mySeed = rng.Next();
    intruders.push_back(std::make_unique<ChildProcess>([&name, mySeed] {
      FaultRng mine(mySeed);
      for (int t = 0; t < kTries; ++t) {
        auto third = name.Open();
        std::string buffer = "intrusion";
        int type = kFromSurvivor;
        if (third->IsConnected() != 0) return 1;
        if (std::string(third->LastError()).find("both places") == std::string::npos) return 2;
        if (third->Send(&type, &buffer) != kQueueNotConnected) return 3;
        if (third->ReceiveFor(&type, &buffer, 1) != kQueueNotConnected) return 4;
        if (third->IsPartyOnline() != 0) return 5;
        usleep(mine.Between(0, 3000));
      }
      return 0;
    }));
  }
  // Meanwhile the pair exchanges, large messages included.
  int type = 0;
  std::string buffer;
  for (std::uint32_t n = 0; n < 40; ++n) {
    const std::string message = Numbered(kSurvivorStream, n, MessageSize(rng));
    ASSERT_EQ(Send(*q, kFromSurvivor, message), kQueueOk) << q->LastError();
    ASSERT_EQ(q->ReceiveFor(&type, &buffer, 5000), kQueueOk) << q->LastError();
    ASSERT_EQ(type, kFromSurvivor) << "no event: the intruders never took a place";
    ASSERT_TRUE(buffer == message) << "echo " << n;
  }
  for (auto& intruder : intruders) EXPECT_EQ(intruder->wait(kPatientMs), 0);
  ASSERT_EQ(Send(*q, kEnd, "end"), kQueueOk);
  EXPECT_EQ(echo.wait(kPatientMs), 0);
  EXPECT_EQ(ReceiveType(*q, nullptr, kPatientMs), kQueueEventPeerDisconnected);
  EXPECT_EQ(ReceiveType(*q, nullptr, 100), kNothing);
}

// ---- A peer that stops taking ----

struct StallCase {
  const char* what;
  bool killed;   // the silent peer is killed while the survivor waits (else it stays)
  int expected;  // how the survivor's waiting send ends
};

TEST(QueueFaults, APeerThatStopsTakingEndsTheWaitingSendAndLosesNothingAccepted) {
  const std::vector<StallCase> cases = {
      {"the peer stays attached and takes nothing", false, kQueuePeerStalled},
      {"the peer takes nothing and is killed", true, kQueuePeerDeparted},
  };
  for (const StallCase& c : cases) {
    SCOPED_TRACE(c.what);
    TestQueueName name;
    auto q = name.Open();
    Pace attached, resume;
    ReportPipe reports;
    // Takes nothing until resumed (or killed); then reports every survivor message to the end.
    auto reader = [&](bool silentFirst) {
      auto mine = name.Open();
      if (silentFirst) {
        if (c.killed) DieWithSigkillAfterMs(500);
        attached.Signal();
        if (resume.Await(kPatientMs) == 0) return 1;
      }
      std::string text;
      if (ReceiveType(*mine, nullptr, kPatientMs) != kQueueEventPeerConnected) return 2;
      for (;;) {
        const int type = ReceiveType(*mine, &text, kPatientMs);
        if (type == kEnd) return 0;
        const long long n = NumberOf(text, kSurvivorStream);
        if (type != kFromSurvivor || n < 0) return 3;
        reports.Put(kPeerGot, static_cast<std::uint32_t>(n));
      }
    };
    auto silent = std::make_unique<ChildProcess>([&] { return reader(true); });
    ASSERT_EQ(attached.Await(kPatientMs), 'x');
    ASSERT_EQ(ReceiveType(*q, nullptr, kPatientMs), kQueueEventPeerConnected);
    // Small messages until a quarter of the ring is used, then one larger than the ring: its
    // first fragment goes, and the rest waits.
    std::uint32_t accepted = 0;
    while (q->FreeBytes() > 3 * kTestCapacity / 4)
      ASSERT_EQ(Send(*q, kFromSurvivor, Numbered(kSurvivorStream, accepted++, 500)), kQueueOk);
    const auto start = Clock::now();
    const int r = Send(*q, kFromSurvivor, Numbered(kSurvivorStream, accepted, 3 * kTestCapacity));
    const auto waited = Clock::now() - start;
    EXPECT_EQ(r, c.expected) << q->LastError();
    if (c.killed) {
      EXPECT_LT(waited, std::chrono::milliseconds(500 + 3000)) << "a death is noticed in time";
      EXPECT_EQ(silent->wait(kPatientMs), 128 + SIGKILL);
      EXPECT_EQ(ReceiveType(*q, nullptr, kPatientMs), kQueueEventPeerDisconnected);
      silent = std::make_unique<ChildProcess>([&] { return reader(false); });
      EXPECT_EQ(ReceiveType(*q, nullptr, kPatientMs), kQueueEventPeerConnected);
    } else {
      EXPECT_GE(waited, std::chrono::milliseconds(kQueueStallMs - 100));
      EXPECT_NE(std::string(q->LastError()).find("took nothing"), std::string::npos);
      resume.Signal();
    }
    // Nothing accepted is lost while its reader lives, the given-up message never arrives, what
    // was for a killed reader never reaches its successor, and the queue goes on.
    ASSERT_EQ(Send(*q, kFromSurvivor, Numbered(kSurvivorStream, accepted + 1, 100)), kQueueOk);
    ASSERT_EQ(Send(*q, kEnd, "end"), kQueueOk);
    EXPECT_EQ(silent->wait(kPatientMs), 0);
    std::vector<Report> got;
    reports.Collect(got);
    std::vector<std::uint32_t> numbers, expected;
    for (const Report& g : got) numbers.push_back(g.number);
    if (!c.killed)
      for (std::uint32_t n = 0; n < accepted; ++n) expected.push_back(n);
    expected.push_back(accepted + 1);
    EXPECT_EQ(numbers, expected);
  }
}

}  // namespace
}  // namespace conflink::testing
