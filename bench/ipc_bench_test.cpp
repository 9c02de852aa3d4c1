// The harness's one duty besides timing: a transport that loses, repeats, cuts short, reorders
// or damages a message, or whose peer dies, fails its row (and never hangs the run). Every
// transport is also run through a small plan, which is a delivery check of the queue itself.
#include <unistd.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <conflink/platform/cyclic_message_queue.h>

#include "ipc_measure.h"
#include "ipc_messenger_row.h"
#include "ipc_process.h"
#include "ipc_report.h"
#include "ipc_transport.h"

namespace conflink::bench {
namespace {

Plan smallPlan() {
  Plan plan;
  plan.roundTrips = 200;
  plan.warmUpRoundTrips = 20;
  plan.idleRoundTrips = 10;
  plan.idleGapUs = 200;
  plan.smallMessages = 2000;
  plan.pageMessages = 500;
  plan.bigMessages = 2;
  plan.warmUpBigMessages = 1;
  plan.limitSeconds = 20;
  return plan;
}

int uniqueQueueNumber() {
  static int next = 0;
  return 1500000000 + static_cast<int>(getpid() % 100000) * 64 + next++ % 64;
}

using MakeTransport = std::function<std::unique_ptr<Transport>()>;

struct NamedTransport {
  const char* name;
  MakeTransport make;
};

const NamedTransport kTransports[] = {
    {"seqpacket", makeSeqpacketTransport},
    {"pipe", makePipeTransport},
    {"posix_mq", makePosixQueueTransport},
    {"queue_blocking", [] { return makeCyclicQueueTransport(uniqueQueueNumber(), false); }},
    {"queue_busy_poll", [] { return makeCyclicQueueTransport(uniqueQueueNumber(), true); }},
};

// ---- A transport that commits one fault ----

enum class Fault {
  kDropSmall,    // one 64-byte one-way message is not sent
  kRepeatSmall,  // one 64-byte one-way message is sent twice
  kShortPage,    // one 4 KiB message loses its last bytes
  kFlipBig,      // one bit of the first large send (a whole 4 MiB message or a chunk) flips
  kSwapChunks,   // two chunks of a large message travel in the wrong order
  kBadEcho,      // the answering side echoes one round trip a byte short
  kPeerDies,     // the answering side exits in the middle of the round trips
};

class FaultyEndpoint : public Endpoint {
 public:
  FaultyEndpoint(std::unique_ptr<Endpoint> inner, Fault fault, const Plan& plan)
      : inner_(std::move(inner)),
        fault_(fault),
        busyRoundTrips_(plan.warmUpRoundTrips + plan.roundTrips),
        roundTrips_(busyRoundTrips_ + plan.idleRoundTrips) {}

  bool send(const char* data, std::size_t size) override {
    std::string copy(data, size);
    return sendString(copy);
  }

  bool sendString(std::string& message) override {
    const std::size_t size = message.size();
    if (size == kSmallBytes) ++smallSent_;
    if (size == kPageBytes) ++pageSent_;
    if (size > kPageBytes) ++largeSent_;
    // The one-way 64-byte messages come after the round trips.
    const bool oneWaySmall = size == kSmallBytes && smallSent_ == roundTrips_ + 7;
    switch (fault_) {
      case Fault::kDropSmall:
        if (oneWaySmall) return true;
        break;
      case Fault::kRepeatSmall:
        if (oneWaySmall && !pass(message)) return false;
        break;
      case Fault::kShortPage:
        if (size == kPageBytes && pageSent_ == 10) {
          std::string cut = message.substr(0, size - 4);
          return pass(cut);
        }
        break;
      case Fault::kFlipBig:
        if (size > kPageBytes && largeSent_ == 1) {
          std::string damaged = message;
          damaged[size / 2] = static_cast<char>(damaged[size / 2] ^ 0x10);
          return pass(damaged);
        }
        break;
      case Fault::kSwapChunks:
        if (size > kPageBytes && largeSent_ == 2) {
          held_ = message;  // sent after the next chunk
          return true;
        }
        if (size > kPageBytes && largeSent_ == 3) return pass(message) && pass(held_);
        break;
      case Fault::kBadEcho:
        if (size == kSmallBytes && smallSent_ == 5) {
          std::string cut = message.substr(0, size - 1);
          return pass(cut);
        }
        break;
      case Fault::kPeerDies:
        if (size == kSmallBytes && smallSent_ == busyRoundTrips_ / 2) _exit(9);
        break;
    }
    return pass(message);
  }

  bool receive(std::string_view* message) override {
    return inner_->receive(message) || fail(inner_->error());
  }

 private:
  bool pass(std::string& message) { return inner_->sendString(message) || fail(inner_->error()); }

  std::unique_ptr<Endpoint> inner_;
  Fault fault_;
  long busyRoundTrips_;  // the round trips without a pause before them
  long roundTrips_;      // all round trips, those after a silence included
  long smallSent_ = 0;
  long pageSent_ = 0;
  long largeSent_ = 0;
  std::string held_;
};

class FaultyTransport : public Transport {
 public:
  FaultyTransport(std::unique_ptr<Transport> inner, Fault fault, const Plan& plan)
      : inner_(std::move(inner)), fault_(fault), plan_(plan) {}

  std::string name() const override { return inner_->name(); }
  std::size_t maxMessage() const override { return inner_->maxMessage(); }
  std::string bigMessageNote() const override { return inner_->bigMessageNote(); }
  bool prepare(std::string& error) override { return inner_->prepare(error); }
  std::unique_ptr<Endpoint> open(int side, std::string& error) override {
    std::unique_ptr<Endpoint> end = inner_->open(side, error);
    // The driving side commits the faults on what it sends, the answering side those on echoes
    // and its own death.
    const bool answering = fault_ == Fault::kBadEcho || fault_ == Fault::kPeerDies;
    if (end == nullptr || (side == 1) != answering) return end;
    return std::make_unique<FaultyEndpoint>(std::move(end), fault_, plan_);
  }

 private:
  std::unique_ptr<Transport> inner_;
  Fault fault_;
  Plan plan_;
};

class IpcBench : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { installWatchdog(); }
};

TEST_F(IpcBench, EveryTransportDeliversASmallPlanAndEveryFigureIsMeasured) {
  for (const NamedTransport& t : kTransports) {
    SCOPED_TRACE(t.name);
    std::unique_ptr<Transport> transport = t.make();
    const Figures f = measureTransport(*transport, smallPlan());
    ASSERT_TRUE(f.ok) << f.error;
    for (double figure : {f.roundTripMedianUs, f.roundTripP99Us, f.small.messagesPerSecond,
                          f.small.megabytesPerSecond, f.page.messagesPerSecond,
                          f.page.megabytesPerSecond, f.bigGigabytesPerSecond}) {
      EXPECT_TRUE(std::isfinite(figure) && figure > 0) << figure;
    }
    EXPECT_LE(f.roundTripMedianUs, f.roundTripP99Us);
  }
}

TEST_F(IpcBench, MessengersPingPongMessage70) {
  const Figures f = measureMessengers(uniqueQueueNumber(), smallPlan());
  ASSERT_TRUE(f.ok) << f.error;
  EXPECT_GT(f.roundTripMedianUs, 0);
  EXPECT_GT(f.small.messagesPerSecond, 0);
}

struct FaultCase {
  const char* transport;
  Fault fault;
  const char* reported;  // a fragment of the row's error
};

// Chunked (socket, POSIX queue) and whole (pipe, queue) large messages are both covered.
const FaultCase kFaultCases[] = {
    {"queue_busy_poll", Fault::kDropSmall, "receiver got 199 ("},
    {"pipe", Fault::kDropSmall, "receiver got 199 ("},
    {"seqpacket", Fault::kRepeatSmall, "stamped as message 6"},
    {"queue_blocking", Fault::kShortPage, "4092 bytes where 4096 were due"},
    {"queue_busy_poll", Fault::kFlipBig, "content differs"},
    {"pipe", Fault::kFlipBig, "content differs"},
    {"seqpacket", Fault::kFlipBig, "content differs"},
    {"seqpacket", Fault::kSwapChunks, "content differs"},
    {"posix_mq", Fault::kSwapChunks, "content differs"},
    {"queue_blocking", Fault::kBadEcho, "reply of 63 bytes"},
    {"seqpacket", Fault::kPeerDies, "round trip 109"},
    {"pipe", Fault::kPeerDies, "round trip 109"},
    {"posix_mq", Fault::kPeerDies, "round trip 109"},
    {"queue_blocking", Fault::kPeerDies, "round trip 109"},
    {"queue_busy_poll", Fault::kPeerDies, "round trip 109"},
};

TEST_F(IpcBench, AFaultyTransportFailsItsRowWithTheReason) {
  for (const FaultCase& c : kFaultCases) {
    SCOPED_TRACE(std::string(c.transport) + ", expecting '" + c.reported + "'");
    MakeTransport make;
    for (const NamedTransport& t : kTransports)
      if (std::string(t.name) == c.transport) make = t.make;
    ASSERT_TRUE(make);
    FaultyTransport transport(make(), c.fault, smallPlan());
    const Figures f = measureTransport(transport, smallPlan());
    EXPECT_FALSE(f.ok);
    EXPECT_NE(f.error.find(c.reported), std::string::npos) << f.error;
  }
}

TEST(RoundTripSummary, NinetyNinthPercentileIsTheTimeThatNinetyNinePercentStayWithin) {
  struct Case {
    int fast;  // round trips of 1 us
    int slow;  // round trips of 1000 us
    double median;
    double p99;
  };
  const Case cases[] = {
      {1, 0, 1, 1},      // one sample is its own median and percentile
      {99, 1, 1, 1},     // one slow in a hundred is outside the 99 percent
      {98, 2, 1, 1000},  // two are not
      {49, 51, 1000, 1000}, {990, 10, 1, 1}, {989, 11, 1, 1000},
  };
  for (const Case& c : cases) {
    std::vector<std::int64_t> times;
    times.insert(times.end(), static_cast<std::size_t>(c.slow), 1000000);  // slow first
    times.insert(times.end(), static_cast<std::size_t>(c.fast), 1000);
    double median = 0;
    double p99 = 0;
    summariseRoundTrips(times.data(), times.size(), &median, &p99);
    EXPECT_EQ(median, c.median) << c.fast << " fast, " << c.slow << " slow";
    EXPECT_EQ(p99, c.p99) << c.fast << " fast, " << c.slow << " slow";
  }
}

Figures measured(double roundTripUs, double smallPerSecond, double bigGbps) {
  Figures f;
  f.ok = true;
  f.roundTripMedianUs = roundTripUs;
  f.small.messagesPerSecond = smallPerSecond;
  f.bigGigabytesPerSecond = bigGbps;
  return f;
}

TEST(Goals, AreJudgedAtTheirBoundsAgainstTheUnixSocket) {
  const Figures socket = measured(40, 1e6, 5);
  struct Case {
    const char* what;
    Figures queue;
    bool roundTripMet, throughputMet, bigMet;
  };
  Figures failed = measured(1, 1e7, 10);
  failed.ok = false;
  const Case cases[] = {
      {"exactly at every bound", measured(10, 5e6, 1), true, true, true},
      {"just past every bound", measured(10.01, 4.99e6, 0.99), false, false, false},
      {"far better", measured(0.5, 2e7, 8), true, true, true},
      {"failed row, whatever its figures", failed, false, false, false},
      {"nothing measured", Figures{}, false, false, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    const std::vector<Row> rows = {{"socket", "", RowRole::kBaseline, socket},
                                   {"queue", "", RowRole::kQueue, c.queue}};
    const std::vector<Verdict> verdicts = judgeGoals(rows);
    ASSERT_EQ(verdicts.size(), 3u);
    EXPECT_EQ(verdicts[0].met, c.roundTripMet);
    EXPECT_EQ(verdicts[1].met, c.throughputMet);
    EXPECT_EQ(verdicts[2].met, c.bigMet);
  }
}

TEST(Goals, WithBusyProcessesBesideThePartiesTheBoundsAreTheSocketsOwnFigures) {
  const auto figures = [](double p50, double p99, double small, double page, double big) {
    Figures f = measured(p50, small, big);
    f.roundTripP99Us = p99;
    f.page.messagesPerSecond = page;
    return f;
  };
  const Figures socket = figures(4, 6, 1e6, 5e5, 5);
  struct Case {
    const char* what;
    Figures queue;
    bool met;  // every goal
  };
  const Case cases[] = {
      {"exactly at every bound", figures(4, 9, 1e6, 5e5, 1), true},
      {"just past every bound", figures(4.01, 9.01, 0.99e6, 4.99e5, 0.99), false},
  };
  for (int load : {1, 2}) {
    for (const Case& c : cases) {
      SCOPED_TRACE(std::string(c.what) + ", load " + std::to_string(load));
      const std::vector<Row> rows = {{"socket", "", RowRole::kBaseline, socket},
                                     {"queue", "", RowRole::kQueue, c.queue}};
      const std::vector<Verdict> verdicts = judgeGoals(rows, load);
      ASSERT_EQ(verdicts.size(), 5u) << "p50, p99, 64 B, 4 KiB, 4 MiB";
      for (const Verdict& v : verdicts) EXPECT_EQ(v.met, c.met) << v.goal;
    }
  }
}

TEST(Goals, RelativeGoalsAreMissedWithoutASocketFigureAndMessengersSkipTheLargeMessage) {
  Figures socket = measured(40, 1e6, 5);
  socket.ok = false;  // the yardstick itself failed
  Figures messengers = measured(1, 1e7, kNotMeasured);
  const std::vector<Row> rows = {{"socket", "", RowRole::kBaseline, socket},
                                 {"queue", "", RowRole::kQueue, measured(1, 1e7, 2)},
                                 {"messengers", "", RowRole::kMessengers, messengers}};
  std::vector<std::string> judged;
  for (const Verdict& v : judgeGoals(rows))
    judged.push_back(v.row->label + (v.met ? " met" : " missed"));
  EXPECT_EQ(judged, (std::vector<std::string>{"queue missed", "messengers missed", "queue missed",
                                              "messengers missed", "queue met"}));
}

}  // namespace
}  // namespace conflink::bench
