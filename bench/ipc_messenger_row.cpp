#include "ipc_messenger_row.h"

#include <sys/mman.h>

#include <chrono>
#include <cstdio>
#include <thread>
#include <vector>

#include <conflink/conflink.h>
#include <conflink/platform/cyclic_message_queue.h>

#include "ipc_process.h"

namespace conflink::bench {
namespace {

// The request and its answer: a shared request of a client (DialOut: id, conference, party) and
// the server's shared reply (Success: id, result), as a PS and a CC exchange them.
const ConfIDString kConference{"conference-0042"};
constexpr unsigned long long kParty = 0x1234;
constexpr PSSuccessType kDone = static_cast<PSSuccessType>(1);

// One end of the link as the benchmark drives it. The PS end counts the DialOut requests that
// arrive and answers the ones its script says to with Success, from inside its handler, as a
// server would; the CC end counts the answers.
class BenchSide : public CCToPSMessenger {
 public:
  using CCToPSMessenger::CCToPSMessenger;

  // Answers every message up to the `answerAllUpTo`th, and the `answerAlsoA`th and `answerAlsoB`th.
  long answerAllUpTo = 0;
  long answerAlsoA = -1;
  long answerAlsoB = -1;

  long received = 0;
  bool answerFailed = false;
  bool peerArrived = false;
  bool peerLeft = false;

  int OnDialOut(const unsigned long long& id, const ConfIDString&, const unsigned long long&,
                PSProtocolType) override {
    ++received;
    if (received <= answerAllUpTo || received == answerAlsoA || received == answerAlsoB) {
      if (Success(id, kDone) <= 0) answerFailed = true;
    }
    return 0;
  }
  int OnSuccess(const unsigned long long&, PSSuccessType) override {
    ++received;
    return 0;
  }
  void PSPeerConnected() override { peerArrived = true; }
  void PSPeerDisConnected() override { peerLeft = true; }
  // The blocking wait passes the queue's events to DispatchMessage, which drops them as unknown
  // types; the benchmark still wants to know of them.
  bool DispatchMessage(const int* type, const char* data, int length) override {
    if (*type == kQueueEventPeerConnected) peerArrived = true;
    if (*type == kQueueEventPeerDisconnected) peerLeft = true;
    return CCToPSMessenger::DispatchMessage(type, data, length);
  }

  // Blocks until `count` messages have arrived in all; false when the link failed first.
  bool awaitReceived(long count) {
    while (received < count) {
      if (WaitForMessageAndDispatch() != 0 || peerLeft) return false;
    }
    return true;
  }
};

constexpr unsigned kConnectAttempts = 50;
constexpr int kConnectPauseMs = 20;

int throughputWarmUp(const Plan& plan) {
  return std::max(1, plan.smallMessages / 10);
}

// The PS side, in the child: answers the round trips and the last message of each one-way run,
// then stays until the CC side leaves, so that nothing it sent is lost with it.
int answerSide(int queueNumber, const Plan& plan) {
  BenchSide ps(queueNumber);
  if (!ps.Connect(kConnectAttempts, kConnectPauseMs)) {
    std::fprintf(stderr, "ipc_bench: messengers, PS side: cannot connect\n");
    return 10;
  }
  const long roundTrips = plan.warmUpRoundTrips + plan.roundTrips;
  ps.answerAllUpTo = roundTrips;
  ps.answerAlsoA = roundTrips + throughputWarmUp(plan);
  ps.answerAlsoB = ps.answerAlsoA + plan.smallMessages;
  while (!ps.peerLeft) {
    if (ps.WaitForMessageAndDispatch() != 0) {
      std::fprintf(stderr, "ipc_bench: messengers, PS side: the queue failed\n");
      return 11;
    }
  }
  if (ps.answerFailed || ps.received != ps.answerAlsoB) {
    std::fprintf(stderr, "ipc_bench: messengers, PS side: got %ld of %ld messages%s\n", ps.received,
                 ps.answerAlsoB, ps.answerFailed ? ", an answer failed" : "");
    return 12;
  }
  return 0;
}

bool driveRoundTrips(BenchSide& cc, const Plan& plan, Figures& figures, std::string& why) {
  std::vector<std::int64_t> times(static_cast<std::size_t>(plan.roundTrips));
  const int total = plan.warmUpRoundTrips + plan.roundTrips;
  for (int i = 0; i < total; ++i) {
    const std::int64_t start = nowNs();
    if (cc.DialOut(static_cast<unsigned long long>(i), kConference, kParty) <= 0 ||
        !cc.awaitReceived(cc.received + 1)) {
      why = "round trip " + std::to_string(i) + " failed";
      return false;
    }
    if (i >= plan.warmUpRoundTrips)
      times[static_cast<std::size_t>(i - plan.warmUpRoundTrips)] = nowNs() - start;
  }
  summariseRoundTrips(times.data(), times.size(), &figures.roundTripMedianUs,
                      &figures.roundTripP99Us);
  return true;
}

// Sends `count` messages; the PS side answers the last one once it has counted all of them.
// The time runs to that answer's arrival, one message more than the run itself.
bool driveOneWay(BenchSide& cc, int count, double* seconds, std::string& why) {
  const long answered = cc.received + 1;
  const std::int64_t start = nowNs();
  for (int i = 0; i < count; ++i) {
    if (cc.DialOut(static_cast<unsigned long long>(i), kConference, kParty) <= 0) {
      why = "one-way message " + std::to_string(i) + " was not sent";
      return false;
    }
  }
  if (!cc.awaitReceived(answered)) {
    why = "no confirmation after " + std::to_string(count) + " one-way messages";
    return false;
  }
  *seconds = static_cast<double>(nowNs() - start) / 1e9;
  return true;
}

bool drive(int queueNumber, const Plan& plan, Figures& figures, std::string& why) {
  BenchSide cc(queueNumber);
  if (!cc.Connect(kConnectAttempts, kConnectPauseMs)) {
    why = "CC side cannot connect";
    return false;
  }
  // Waits for the PS side through the messenger's own polling path, which reports arrivals.
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (!cc.peerArrived && std::chrono::steady_clock::now() < deadline) {
    if (!cc.ProcessMessageFromQueue(1)) std::this_thread::sleep_for(std::chrono::microseconds(200));
  }
  if (!cc.peerArrived) {
    why = "the PS side never arrived";
    return false;
  }
  double seconds = 0;
  if (!driveRoundTrips(cc, plan, figures, why) ||
      !driveOneWay(cc, throughputWarmUp(plan), &seconds, why) ||
      !driveOneWay(cc, plan.smallMessages, &seconds, why))
    return false;
  figures.small.messagesPerSecond = plan.smallMessages / seconds;
  return true;  // leaving the queue tells the PS side that the script is over
}

}  // namespace

std::string messengerRowLabel() {
  return "messengers, DialOut answered by Success";
}

std::string messengerRowNote() {
  return "CCToPSMessenger pair over the queue";
}

Figures measureMessengers(int queueNumber, const Plan& plan) {
  Figures figures;
  const std::string object = QueueObjectName(queueNumber, kMessengerKeyPath);
  shm_unlink(object.c_str());
  trackSharedObject(object);

  runRow(
      messengerRowLabel(), plan.limitSeconds, figures,
      [&] { return answerSide(queueNumber, plan); },
      [&](std::string& why) { return drive(queueNumber, plan, figures, why); });
  return figures;
}

}  // namespace conflink::bench
