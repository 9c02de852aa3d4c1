// The messengers over a queue whose server process is killed at random moments and restarted:
// call control sees the server leave and come back through PSPeerDisConnected and
// PSPeerConnected, in order with the server's messages; every message a send reported accepted
// reaches a handler whole, in order and once (unless the server that took it died); no kill
// ever shows as a malformed message. A message altered in the queue by a faulty writer reaches
// the receiver's Error, not a handler.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <list>
#include <string>
#include <vector>

#include <conflink/conflink.h>
#include <conflink/platform/queue_layout.h>
#include <conflink/platform/queue_ring.h>
#include "tests/support/fault_injection.h"
#include "tests/support/messenger_queue_fixture.h"

namespace conflink::testing {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::uint32_t kCallControlStream = 5;
constexpr std::uint32_t kServerStream = 1000;  // plus the server's generation
constexpr unsigned long long kLastRequest = 0xffffffffull;

enum ReportKind : std::uint32_t { kServerSent = 1, kServerGot = 2, kServerOdd = 3 };

class MessengerFaults : public MessengerQueueTest {
 protected:
  MessengerFaults() : MessengerQueueTest(500000) {}
};

// The survivor: call control, which keeps its queue while servers come and go.
class CallControl : public CCToPSMessenger {
 public:
  using CCToPSMessenger::CCToPSMessenger;
  void PSPeerConnected() override { events += 'c'; }
  void PSPeerDisConnected() override { events += 'd'; }
  int OnJoinAccept(const unsigned long long& id, const unsigned long long& generation,
                   const ConfIDString&, const std::list<std::string>& texts,
                   const ParticipantParams&, TransmitType) override {
    const bool whole =
        texts.size() == 1 &&
        NumberOf(texts.front(), kServerStream + static_cast<std::uint32_t>(generation)) ==
            static_cast<long long>(id);
    if (!whole || events.empty() || events.back() != 'c') ++oddities;
    byGeneration.resize(generation + 1);
    byGeneration[generation].push_back(static_cast<std::uint32_t>(id));
    return 0;
  }
  void Error(const char* text) override { errors.push_back(text); }

  std::string events;  // 'c' for each arrival, 'd' for each departure
  std::vector<std::vector<std::uint32_t>> byGeneration;
  int oddities = 0;  // a message not whole, or from a server not announced
  std::vector<std::string> errors;
};

// A server: answers nothing, sends numbered acceptances and reports what it sent and received.
class Server : public CCToPSMessenger {
 public:
  Server(int queue, ReportPipe& reports) : CCToPSMessenger(queue), reports_(reports) {}
  void PSPeerConnected() override { greeted = true; }
  int OnJoinConference(const unsigned long long& id, const ConfIDString&, const std::string& text,
                       const SipUri&, bool, PSProtocolType) override {
    if (id == kLastRequest) {
      done = greeted;
    } else if (!greeted || NumberOf(text, kCallControlStream) != static_cast<long long>(id)) {
      reports_.Put(kServerOdd, static_cast<std::uint32_t>(id));
    } else {
      reports_.Put(kServerGot, static_cast<std::uint32_t>(id));
    }
    return 0;
  }
  void Error(const char*) override { reports_.Put(kServerOdd, 0, -1); }
  bool greeted = false;
  bool done = false;

 private:
  ReportPipe& reports_;
};

int RunServer(int queue, std::uint32_t generation, unsigned dieAfterMs, std::uint64_t seed,
              ReportPipe& reports) {
  Server ps(queue, reports);
  if (!ps.Connect(100, 10)) return 10;
  if (dieAfterMs != 0) DieWithSigkillAfterMs(dieAfterMs);
  FaultRng rng(seed);
  for (std::uint32_t n = 0; !ps.done;) {
    if (rng.Percent(50)) {
      const std::string text = Numbered(kServerStream + generation, n, MessageSize(rng));
      const int r = ps.JoinAccept(n, generation, ConfIDString{"c"}, {text}, ParticipantParams{},
                                  static_cast<TransmitType>(0));
      reports.Put(kServerSent, n++, r);
    }
    if (!ps.ProcessMessageFromQueue(16)) usleep(500);
  }
  return 0;
}

TEST_F(MessengerFaults, ServerKilledAndRestartedWhileCallControlSends) {
  SeededRun run;
  FaultRng& rng = run.rng;
  CallControl cc(queueNumber_);
  ASSERT_TRUE(cc.Connect(1, 0));
  const int queue = queueNumber_;

  constexpr std::uint32_t kMinRounds = 8, kMaxRounds = 25;
  const auto start = Clock::now();
  SurvivorLog log;
  std::vector<std::vector<std::uint32_t>> receivedBy;
  for (std::uint32_t gen = 0;; ++gen) {
    const bool last = gen + 1 >= kMaxRounds ||
                      (gen + 1 >= kMinRounds && Clock::now() - start > std::chrono::seconds(3));
    const unsigned dieAfterMs = last ? 0 : rng.Between(5, 60);
    const std::uint64_t serverSeed = rng.Next();
    SCOPED_TRACE(
        "server " + std::to_string(gen) +
        (last ? " leaves at the end" : " killed after " + std::to_string(dieAfterMs) + " ms"));
    ReportPipe pipe;
    ChildProcess server([&] { return RunServer(queue, gen, dieAfterMs, serverSeed, pipe); }, 30);
    std::vector<Report> reports;
    const std::size_t departuresBefore = gen;
    int sends = 0;
    bool endSent = false;
    const auto deadline = Clock::now() + std::chrono::milliseconds(kPatientMs);
    while (cc.events.size() < 2 * departuresBefore + 2) {
      ASSERT_LT(Clock::now(), deadline) << "the server's departure never reached call control";
      const bool arrived = cc.events.size() == 2 * departuresBefore + 1;
      if (last && sends >= 15 && arrived && !endSent) {  // once the server is surely there
        ASSERT_EQ(cc.JoinConference(kLastRequest, ConfIDString{"c"}, "end", SipUri{}, false),
                  kQueueOk);
        endSent = true;
      } else if (!endSent && rng.Percent(50)) {
        const auto n = static_cast<std::uint32_t>(log.result.size());
        const int r =
            cc.JoinConference(n, ConfIDString{"c"},
                              Numbered(kCallControlStream, n, MessageSize(rng)), SipUri{}, false);
        ASSERT_TRUE(r == kQueueOk || r == kQueuePeerDeparted || r == kQueuePeerAbsentFull) << r;
        log.Sent(r);
        ++sends;
      }
      const std::size_t before = cc.events.size();
      if (!cc.ProcessMessageFromQueue(16)) usleep(500);
      if (cc.events.size() > before && cc.events.back() == 'd') log.Departed();
      pipe.Collect(reports);
    }
    ASSERT_EQ(server.wait(kPatientMs), last ? 0 : 128 + SIGKILL);
    pipe.Collect(reports);
    cc.byGeneration.resize(gen + 1);
    EXPECT_TRUE(EveryAcceptedMessageArrived(cc.byGeneration[gen], reports, kServerSent));
    receivedBy.emplace_back();
    for (const Report& r : reports) {
      ASSERT_NE(r.kind, kServerOdd)
          << "the server got request " << r.number << " damaged, early or malformed";
      if (r.kind == kServerGot) receivedBy.back().push_back(r.number);
    }
    if (HasFatalFailure() || last) break;
  }
  std::string alternating;
  for (std::size_t i = 0; i < receivedBy.size(); ++i) alternating += "cd";
  EXPECT_EQ(cc.events, alternating) << "each server's arrival, then its departure";
  EXPECT_EQ(cc.oddities, 0);
  EXPECT_EQ(cc.errors, std::vector<std::string>{}) << "a kill never shows as a malformed message";
  EXPECT_TRUE(OnlyDeadPeersLostAnything(log, receivedBy));
}

// The web front end: polls, and records everything its messenger hands it.
class WebFrontEnd : public CGIToPSMessenger {
 public:
  using CGIToPSMessenger::CGIToPSMessenger;
  bool DispatchMessage(const int* type, const char* data, int length) override {
    if (*type == kQueueEventPeerConnected || *type == kQueueEventPeerDisconnected)
      events += *type == kQueueEventPeerConnected ? 'c' : 'd';
    return CGIToPSMessenger::DispatchMessage(type, data, length);
  }
  void PeerConnected() override { ++peerCalls; }
  void PeerDisconnected() override { ++peerCalls; }
  int OnSendConferenceParam(const unsigned long long& id, ConferenceParamType generation,
                            unsigned int size, const void* data) override {
    const std::string block(static_cast<const char*>(data), size);
    const auto stream = kServerStream + static_cast<std::uint32_t>(generation);
    if (NumberOf(block, stream) != static_cast<long long>(id)) ++oddities;
    byGeneration.resize(static_cast<std::size_t>(generation) + 1);
    byGeneration[static_cast<std::size_t>(generation)].push_back(static_cast<std::uint32_t>(id));
    return 0;
  }
  void Error(const char* text) override { errors.push_back(text); }

  std::string events;
  int peerCalls = 0;  // the web front end's messenger reports no queue events to these
  int oddities = 0;
  std::vector<std::vector<std::uint32_t>> byGeneration;
  std::vector<std::string> errors;
};

TEST_F(MessengerFaults, WebFrontEndGetsWholeRepliesFromAServerKilledMidReply) {
  SeededRun run;
  FaultRng& rng = run.rng;
  WebFrontEnd cgi(queueNumber_);
  ASSERT_TRUE(cgi.Connect(1, 0));
  const int queue = queueNumber_;
  constexpr std::uint32_t kRounds = 8;
  for (std::uint32_t gen = 0; gen < kRounds; ++gen) {
    const unsigned dieAfterMs = rng.Between(5, 60);
    const std::uint64_t serverSeed = rng.Next();
    SCOPED_TRACE("server " + std::to_string(gen) + " killed after " + std::to_string(dieAfterMs) +
                 " ms");
    ReportPipe pipe;
    ChildProcess server(
        [&] {
          CGIToPSMessenger ps(queue);
          if (!ps.Connect(100, 10)) return 10;
          DieWithSigkillAfterMs(dieAfterMs);
          FaultRng r(serverSeed);
          for (std::uint32_t n = 0;; ++n) {
            const std::string block = Numbered(kServerStream + gen, n, MessageSize(r));
            const int sent =
                ps.SendConferenceParam(n, static_cast<ConferenceParamType>(gen),
                                       static_cast<unsigned>(block.size()), block.data());
            pipe.Put(kServerSent, n, sent);
          }
        },
        30);
    std::vector<Report> reports;
    const auto deadline = Clock::now() + std::chrono::milliseconds(kPatientMs);
    while (cgi.events.size() < 2 * gen + 2) {
      ASSERT_LT(Clock::now(), deadline) << "the server's departure never came";
      if (!cgi.ProcessMessageFromQueue(16)) usleep(500);
      pipe.Collect(reports);
    }
    ASSERT_EQ(server.wait(kPatientMs), 128 + SIGKILL);
    pipe.Collect(reports);
    cgi.byGeneration.resize(gen + 1);
    EXPECT_TRUE(EveryAcceptedMessageArrived(cgi.byGeneration[gen], reports, kServerSent));
    if (HasFatalFailure()) break;
  }
  std::string alternating;
  for (std::uint32_t i = 0; i < kRounds; ++i) alternating += "cd";
  EXPECT_EQ(cgi.events, alternating) << "each server's arrival, then its departure";
  EXPECT_EQ(cgi.peerCalls, 0);
  EXPECT_EQ(cgi.oddities, 0);
  EXPECT_EQ(cgi.errors, std::vector<std::string>{}) << "a kill never shows as a malformed reply";
}

TEST_F(MessengerFaults, AReplyAlteredInTheQueueReachesErrorNotAHandler) {
  WebFrontEnd cgi(queueNumber_);
  ASSERT_TRUE(cgi.Connect(1, 0));  // first: place 0; the server's replies go in ring 1
  const int queue = queueNumber_;
  Pace written;
  ChildProcess server([&] {
    CGIToPSMessenger ps(queue);
    if (!ps.Connect(100, 10)) return 10;
    const int fd = shm_open(QueueObjectName(queue, "/bin/ping").c_str(), O_RDWR, 0);
    if (fd < 0) return 11;
    // The messengers ask for records of 32768 bytes; the rings hold several.
    const std::uint32_t ringBytes = queue::RingBytesFor(32768);
    const std::size_t bytes = queue::SegmentBytes(ringBytes);
    void* p = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    close(fd);
    if (p == MAP_FAILED) return 12;
    auto* seg = static_cast<queue::Segment*>(p);
    queue::RingBytes ring(static_cast<unsigned char*>(p) + queue::RingOffset(ringBytes, 1),
                          ringBytes);
    const std::uint32_t at = seg->producer[1].head.load();
    const std::string block(100, 'b');
    if (ps.SendConferenceParam(1, static_cast<ConferenceParamType>(4), 100, block.data()) <= 0)
      return 13;
    // The block's size word (after the 8-byte id and the 4-byte parameter) now claims more
    // bytes than the message holds.
    const unsigned char huge[4] = {0x7f, 0xff, 0xff, 0xff};
    ring.CopyIn(ring.index().Advance(at, queue::kRecordHeaderBytes + 12), huge, 4);
    if (ps.SendConferenceParam(2, static_cast<ConferenceParamType>(4), 100, block.data()) <= 0)
      return 14;
    munmap(p, bytes);
    written.Signal();
    return 0;
  });
  ASSERT_EQ(written.Await(kPatientMs), 'x');
  EXPECT_EQ(server.wait(kPatientMs), 0);
  for (int i = 0; i < 50 && cgi.events.size() < 2; ++i)
    if (!cgi.ProcessMessageFromQueue(16)) usleep(2000);
  EXPECT_EQ(cgi.events, "cd");
  ASSERT_EQ(cgi.errors.size(), 1u);
  EXPECT_NE(cgi.errors[0].find("Malformed message 278"), std::string::npos) << cgi.errors[0];
  ASSERT_EQ(cgi.byGeneration.size(), 5u);
  EXPECT_EQ(cgi.byGeneration[4], std::vector<std::uint32_t>{2}) << "only the intact reply";
}

}  // namespace
}  // namespace conflink::testing
