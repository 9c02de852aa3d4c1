// The peer libraries' rows carry the same script as every other row: each built one delivers a
// small plan with every figure measured, and a peer that dies mid-run fails the row in bounded
// time instead of hanging it. Also: the queue-against-peers verdicts and the JSON text.
#include <unistd.h>

#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "bench_json.h"
#include "ipc_measure.h"
#include "ipc_peers.h"
#include "ipc_process.h"
#include "ipc_report_json.h"

namespace conflink::bench {
namespace {

Plan tinyPlan() {
  Plan plan;
  plan.roundTrips = 100;
  plan.warmUpRoundTrips = 10;
  plan.idleRoundTrips = 5;
  plan.idleGapUs = 200;
  plan.smallMessages = 3000;  // more than any peer's queue holds, so senders must wait
  plan.pageMessages = 300;
  plan.bigMessages = 2;
  plan.warmUpBigMessages = 1;
  plan.limitSeconds = 20;
  return plan;
}

// The answering side's end exits the child after `lives` receives.
class DyingEndpoint : public Endpoint {
 public:
  DyingEndpoint(std::unique_ptr<Endpoint> inner, int lives)
      : inner_(std::move(inner)), lives_(lives) {}
  bool send(const char* data, std::size_t size) override { return inner_->send(data, size); }
  bool receive(std::string_view* message) override {
    if (lives_-- == 0) _exit(7);
    return inner_->receive(message);
  }

 private:
  std::unique_ptr<Endpoint> inner_;
  int lives_;
};

class DyingTransport : public Transport {
 public:
  explicit DyingTransport(std::unique_ptr<Transport> inner) : inner_(std::move(inner)) {}
  std::string name() const override { return inner_->name(); }
  std::size_t maxMessage() const override { return inner_->maxMessage(); }
  std::string bigMessageNote() const override { return inner_->bigMessageNote(); }
  bool prepare(std::string& error) override { return inner_->prepare(error); }
  std::unique_ptr<Endpoint> open(int side, std::string& error) override {
    std::unique_ptr<Endpoint> end = inner_->open(side, error);
    if (side == 0 || end == nullptr) return end;
    return std::make_unique<DyingEndpoint>(std::move(end), 50);
  }

 private:
  std::unique_ptr<Transport> inner_;
};

// Each case runs every peer once. iceoryx runs at most once per process (its runtime is one per
// process), and CTest runs each case in a process of its own; run together in one process, the
// second case leaves iceoryx out and says so.
std::unique_ptr<Transport> makeOrSay(const PeerRow& peer) {
  std::string whyNot;
  std::unique_ptr<Transport> transport = peer.make(whyNot);
  if (!transport) std::printf("not checked: %s: %s\n", peer.label.c_str(), whyNot.c_str());
  return transport;
}

class PeerRows : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { installWatchdog(); }
};

TEST_F(PeerRows, EachDeliversASmallPlanAndEveryFigureIsMeasured) {
  for (const PeerRow& peer : peerRows()) {
    SCOPED_TRACE(peer.label);
    std::unique_ptr<Transport> transport = makeOrSay(peer);
    if (!transport) continue;
    const Figures f = measureTransport(*transport, tinyPlan());
    ASSERT_TRUE(f.ok) << f.error;
    for (double figure : {f.roundTripMedianUs, f.idleRoundTripMedianUs, f.small.messagesPerSecond,
                          f.page.messagesPerSecond, f.bigGigabytesPerSecond}) {
      EXPECT_TRUE(std::isfinite(figure) && figure > 0) << figure;
    }
  }
}

TEST_F(PeerRows, EachFailsItsRowSoonWhenItsPeerDies) {
  for (const PeerRow& peer : peerRows()) {
    SCOPED_TRACE(peer.label);
    std::unique_ptr<Transport> transport = makeOrSay(peer);
    if (!transport) continue;
    DyingTransport dying(std::move(transport));
    const std::int64_t start = nowNs();
    const Figures d = measureTransport(dying, tinyPlan());
    EXPECT_FALSE(d.ok);
    EXPECT_NE(d.error.find("round trip"), std::string::npos) << d.error;
    EXPECT_NE(d.error.find("status 7"), std::string::npos) << d.error;
    EXPECT_LT(nowNs() - start, 5'000'000'000LL) << "noticed late";
  }
}

Figures figures(double roundTripUs, double smallPerSecond) {
  Figures f;
  f.ok = true;
  f.roundTripMedianUs = roundTripUs;
  f.small.messagesPerSecond = smallPerSecond;
  return f;
}

TEST(PeerGoals, TheQueueMustBeStrictlyAheadOfEveryPeerOnBothFigures) {
  Figures failed = figures(1, 1e7);
  failed.ok = false;
  struct Case {
    const char* what;
    Figures queue;
    Figures peer;
    bool roundTripMet;
    bool throughputMet;
  };
  const Case cases[] = {
      {"ahead on both", figures(1, 5e6), figures(10, 1e6), true, true},
      {"level is not ahead", figures(10, 1e6), figures(10, 1e6), false, false},
      {"behind on both", figures(11, 0.9e6), figures(10, 1e6), false, false},
      {"faster trip, fewer messages", figures(1, 0.5e6), figures(10, 1e6), true, false},
      {"the peer failed", figures(1, 5e6), failed, false, false},
      {"the queue failed", failed, figures(10, 1e6), false, false},
      {"the peer measured nothing", figures(1, 5e6), Figures{}, false, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    const std::vector<Row> rows = {{"socket", "", RowRole::kBaseline, figures(20, 1e6)},
                                   {"queue", "", RowRole::kQueue, c.queue},
                                   {"peer", "", RowRole::kPeer, c.peer},
                                   {"pipe", "", RowRole::kOther, figures(30, 1e5)}};
    const std::vector<PeerVerdict> verdicts = judgePeerGoals(rows);
    ASSERT_EQ(verdicts.size(), 2u);  // the pipe and the socket are no peers
    EXPECT_EQ(verdicts[0].met, c.roundTripMet);
    EXPECT_EQ(verdicts[1].met, c.throughputMet);
  }
}

TEST(PeerGoals, EveryQueueRowMeetsEveryPeer) {
  const std::vector<Row> rows = {{"blocking", "", RowRole::kQueue, figures(1, 5e6)},
                                 {"busy", "", RowRole::kQueue, figures(1, 5e6)},
                                 {"a", "", RowRole::kPeer, figures(2, 1e6)},
                                 {"b", "", RowRole::kPeer, figures(0.5, 1e6)}};
  std::vector<std::string> judged;
  for (const PeerVerdict& v : judgePeerGoals(rows))
    judged.push_back(v.queue->label + "/" + v.peer->label + (v.met ? " met" : " missed"));
  EXPECT_EQ(judged, (std::vector<std::string>{"blocking/a met", "blocking/b missed", "busy/a met",
                                              "busy/b missed", "blocking/a met", "blocking/b met",
                                              "busy/a met", "busy/b met"}));
}

// The file a script reads: ratios against the socket of the same run, the setting, the skipped
// rows and the verdicts, with what was not measured as null.
TEST(RunJson, CarriesRatiosToTheSocketTheSkippedRowsAndThePeerVerdicts) {
  Figures failedPeer = figures(2, 1e6);
  failedPeer.ok = false;
  failedPeer.error = "the peer ended";
  const std::vector<Row> rows = {{"socket", "", RowRole::kBaseline, figures(8, 1e6)},
                                 {"queue", "", RowRole::kQueue, figures(2, 4e6)},
                                 {"zmq", "one message", RowRole::kPeer, figures(4, 5e6)},
                                 {"boost", "", RowRole::kPeer, failedPeer}};
  RunSetting setting;
  setting.load = 2;
  setting.buildType = "Release";
  char path[] = "/tmp/conflink-ipc-peer-test.XXXXXX";
  const int fd = mkstemp(path);
  ASSERT_GE(fd, 0);
  close(fd);
  std::string error;
  ASSERT_TRUE(writeRunJson(path, setting, rows, {{"iceoryx", "no daemon"}}, error)) << error;
  std::ifstream file(path);
  const std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  unlink(path);

  auto has = [&](const std::string& fragment) { return text.find(fragment) != std::string::npos; };
  EXPECT_TRUE(has("\"load\": 2,")) << text;
  EXPECT_TRUE(has("\"build_type\": \"Release\"")) << text;
  // The queue's round trip is a quarter of the socket's, its throughput four times.
  EXPECT_TRUE(has("\"round_trip_p50_us\": 0.25,")) << text;
  EXPECT_TRUE(has("\"msg_64B_per_s\": 4,")) << text;
  EXPECT_TRUE(has("\"round_trip_p99_us\": null")) << text;
  EXPECT_TRUE(has("\"reason\": \"no daemon\"")) << text;
  EXPECT_TRUE(has("\"error\": \"the peer ended\"")) << text;
  // Ahead of zmq on the round trip (2 against 4 us), behind it on throughput (4M against 5M).
  EXPECT_TRUE(
      has("\"peer\": \"zmq\",\n      \"value\": 2,\n      \"peer_value\": 4,\n"
          "      \"ratio_to_peer\": 0.5,\n      \"counts\": true,\n      \"met\": true"))
      << text;
  EXPECT_TRUE(has("\"ratio_to_peer\": 0.8,\n      \"counts\": true,\n      \"met\": false"))
      << text;
}

TEST(JsonWriter, NestsEscapesAndWritesUnmeasuredFiguresAsNull) {
  JsonWriter json;
  json.beginObject();
  json.member("text", std::string("a\"b\\c\n\x01"));
  json.member("figure", 1.5).member("none", std::nan("")).member("count", 3);
  json.key("list").beginArray().value(true).beginObject().endObject().endArray();
  json.key("empty").beginArray().endArray();
  json.endObject();
  EXPECT_EQ(json.text(),
            "{\n"
            "  \"text\": \"a\\\"b\\\\c\\u000a\\u0001\",\n"
            "  \"figure\": 1.5,\n"
            "  \"none\": null,\n"
            "  \"count\": 3,\n"
            "  \"list\": [\n"
            "    true,\n"
            "    {}\n"
            "  ],\n"
            "  \"empty\": []\n"
            "}");
}

}  // namespace
}  // namespace conflink::bench
