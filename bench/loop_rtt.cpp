// What a server's readiness loop costs beside the blocking receive: one link's round trip, a
// 64-byte request from call control answered by a 64-byte answer from the server in another
// process, with the server waiting in each of the ways the library offers:
//
//   blocking receive     WaitForMessageAndDispatch (the documented loop of the CC messenger)
//   deadline receive     WaitForMessageFor(60 s)
//   epoll loop           epoll_wait on ReadinessFd, then DispatchWaiting(64) until none is left
//   WaitSet loop         conflink::WaitSet::Wait(-1) over ReadinessFd (poll), the same dispatch
//
// Two figures for each: back to back (the next request goes as soon as the answer came), and
// after 1 ms of silence (the client sleeps 1 ms before each request, so that the server is
// asleep in its wait when the request arrives: what a server's first message after a pause
// costs). The client waits for each answer with WaitForMessageFor in every row. The four
// servers run side by side and the rows take turns in ten rounds, so that the machine's other
// work weighs on each row alike.
//
//   loop_rtt [--quick] [--json FILE] [--only ROW]   (ROW: blocking, deadline, epoll, WaitSet)
//
// Run it in a Release build (cmake --preset release), on an otherwise idle machine and again
// beside a busy process, and compare the rows: the readiness loops' back-to-back round trip
// against the blocking receive's, and their arrival after silence.
#include <signal.h>
#include <sys/epoll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <conflink/conflink.h>
#include <conflink/messaging/wait_set.h>

#include "bench_json.h"
#include "bench_machine.h"

#ifndef CONFLINK_BENCH_BUILD_TYPE
#define CONFLINK_BENCH_BUILD_TYPE "unknown"
#endif

namespace {

constexpr std::size_t kMessageBytes = 64;
const ConfIDString kConference{"1"};

enum class ServerWait { kBlocking, kDeadline, kEpoll, kWaitSet };
struct Row {
  ServerWait wait;
  const char* name;
};
const Row kRows[] = {{ServerWait::kBlocking, "blocking receive"},
                     {ServerWait::kDeadline, "deadline receive"},
                     {ServerWait::kEpoll, "epoll loop"},
                     {ServerWait::kWaitSet, "WaitSet loop"}};

// Both ends: the size of what they last sent, link mark included, so that the table states the
// bytes that really travelled.
class Party : public CCToPSMessenger {
 public:
  using CCToPSMessenger::CCToPSMessenger;
  using CCToPSMessenger::OnAddParticipant;
  std::size_t lastSent = 0;
  int SendMessage(const int* type, std::string* buffer) override {
    const int r = CCToPSMessenger::SendMessage(type, buffer);
    lastSent = buffer->size();
    return r;
  }
};

// The request: JoinConference, its media text padded so that the message is kMessageBytes.
int sendRequest(Party& p, unsigned long long id, const std::string& pad) {
  return p.JoinConference(id, kConference, pad, SipUri{}, false);
}
// The answer: JoinAccept carrying the request's id, its text padded likewise.
int sendAnswer(Party& p, unsigned long long id, const std::string& pad) {
  return p.JoinAccept(id, 1, kConference, {pad}, ParticipantParams{}, TransmitType{});
}
// The text that makes a message `send` builds kMessageBytes long (measured on a messenger with
// no queue, which still builds the message and appends the mark).
template <class Send>
std::string padFor(Send send) {
  Party sizer(0);
  send(sizer, 0, std::string());
  const std::size_t bare = sizer.lastSent;
  return std::string(bare < kMessageBytes ? kMessageBytes - bare : 0, 'x');
}

// The server: answers each JoinConference, stops at ParticipantLeft.
class Server : public Party {
 public:
  Server(int queue, std::string pad) : Party(queue), pad_(std::move(pad)) {}
  bool stopping = false;
  int OnJoinConference(const unsigned long long& id, const ConfIDString&, const std::string&,
                       const SipUri&, bool, PSProtocolType) override {
    return sendAnswer(*this, id, pad_);
  }
  int OnParticipantLeft(const unsigned long long&, const ConfIDString&, const unsigned long long&,
                        PSProtocolType) override {
    stopping = true;
    return 0;
  }

 private:
  std::string pad_;
};

int serve(int queue, ServerWait wait, const std::string& pad) {
  Server server(queue, pad);
  if (!server.Connect(50, 100)) return 3;
  switch (wait) {
    case ServerWait::kBlocking:
      while (!server.stopping && server.WaitForMessageAndDispatch() == 0) {
      }
      break;
    case ServerWait::kDeadline:
      while (!server.stopping && server.WaitForMessageFor(60000) != conflink::kWaitFailed) {
      }
      break;
    case ServerWait::kEpoll: {
      const int epoll = epoll_create1(EPOLL_CLOEXEC);
      epoll_event event{};
      event.events = EPOLLIN;
      if (epoll_ctl(epoll, EPOLL_CTL_ADD, server.ReadinessFd(), &event) != 0) return 4;
      while (!server.stopping) {
        epoll_event ready{};
        if (epoll_wait(epoll, &ready, 1, -1) != 1) continue;
        while (server.DispatchWaiting(64)) {
        }
      }
      close(epoll);
      break;
    }
    case ServerWait::kWaitSet: {
      conflink::WaitSet loop;
      // Not AddMessenger: its one batch per wake can leave the descriptor unarmed while a
      // message waits (the same loop as the epoll row, so that the two differ only in the wait).
      if (!loop.Add(server.ReadinessFd(), POLLIN, [&server](int, short) {
            while (server.DispatchWaiting(64)) {
            }
          })) {
        return 4;
      }
      while (!server.stopping) loop.Wait(-1);
      break;
    }
  }
  server.Disconnect();
  return 0;
}

// The client: call control's end.
class Client : public Party {
 public:
  using Party::Party;
  bool serverAttached = false;
  unsigned long long answered = 0;
  void PSPeerConnected() override { serverAttached = true; }
  void PSPeerDisConnected() override { serverAttached = false; }
  int OnJoinAccept(const unsigned long long& id, const unsigned long long&, const ConfIDString&,
                   const std::list<std::string>&, const ParticipantParams&, TransmitType) override {
    answered = id;
    return 0;
  }
  // Waits for the answer to `id` (5 s at most); false when it did not come.
  bool awaitAnswer(unsigned long long id) {
    while (answered != id) {
      if (WaitForMessageFor(5000) != conflink::kWaitDispatched) return false;
    }
    return true;
  }
};

struct Figures {
  double p50 = NAN, p99 = NAN, mean = NAN;
  std::size_t count = 0;
};
Figures summarise(std::vector<double>& ns) {
  Figures f;
  f.count = ns.size();
  if (ns.empty()) return f;
  std::sort(ns.begin(), ns.end());
  auto at = [&ns](double q) {
    return ns[std::min(ns.size() - 1,
                       static_cast<std::size_t>(q * static_cast<double>(ns.size())))];
  };
  f.p50 = at(0.50);
  f.p99 = at(0.99);
  double sum = 0;
  for (double v : ns) sum += v;
  f.mean = sum / static_cast<double>(ns.size());
  return f;
}

struct Result {
  Figures backToBack, afterSilence;
  bool ran = false;
  bool ok = false;
};

// Times `count` round trips; `pause` before each request when non-zero.
bool measure(Client& client, unsigned long long& id, int count, long pauseNs,
             const std::string& pad, std::vector<double>& ns) {
  using Clock = std::chrono::steady_clock;
  for (int i = 0; i < count; ++i) {
    if (pauseNs > 0) {
      timespec pause{0, pauseNs};
      nanosleep(&pause, nullptr);
    }
    const auto start = Clock::now();
    const int sent = sendRequest(client, ++id, pad);
    if (sent <= 0 || !client.awaitAnswer(id)) {
      std::fprintf(stderr, "loop_rtt: request %llu %s\n", id,
                   sent <= 0 ? conflink::QueueResultText(sent) : "not answered within 5 s");
      return false;
    }
    ns.push_back(std::chrono::duration<double, std::nano>(Clock::now() - start).count());
  }
  return true;
}

// One row's server process and the client's end of its link.
struct Session {
  const Row* row = nullptr;
  pid_t pid = -1;
  std::unique_ptr<Client> client;
  unsigned long long id = 0;
  bool ok = false;
  std::vector<double> backToBack, afterSilence;
  Result result;
};

void start(Session& s, const Row& row, int queue, const std::string& answerPad) {
  s.row = &row;
  s.result.ran = true;
  std::fflush(nullptr);
  const pid_t parent = getpid();
  s.pid = fork();
  if (s.pid == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) _exit(1);
    _exit(serve(queue, row.wait, answerPad));
  }
  if (s.pid < 0) return;
  s.client = std::make_unique<Client>(queue);
  s.ok = s.client->Connect(50, 100);
  while (s.ok && !s.client->serverAttached) s.ok = s.client->WaitForMessageFor(5000) == 0;
}

// One round of a row: a few unmeasured round trips, then its share of both measurements.
void round(Session& s, int roundTrips, int pauses, const std::string& requestPad) {
  std::vector<double> warm;
  s.ok = s.ok && measure(*s.client, s.id, roundTrips / 10 + 1, 0, requestPad, warm);
  s.ok = s.ok && measure(*s.client, s.id, roundTrips, 0, requestPad, s.backToBack);
  s.ok = s.ok && measure(*s.client, s.id, pauses, 1000000, requestPad, s.afterSilence);
}

void finish(Session& s) {
  if (s.pid <= 0) return;
  // The server stops on ParticipantLeft and leaves; one that does not within 5 s is killed.
  Client& client = *s.client;
  client.ParticipantLeft(0, kConference, 0);
  while (client.serverAttached && client.WaitForMessageFor(5000) == conflink::kWaitDispatched) {
  }
  if (client.serverAttached) {
    kill(s.pid, SIGKILL);
    s.ok = false;
  }
  int status = -1;
  waitpid(s.pid, &status, 0);
  client.Disconnect();
  s.result.backToBack = summarise(s.backToBack);
  s.result.afterSilence = summarise(s.afterSilence);
  s.result.ok = s.ok && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

std::string us(double ns) {
  if (!std::isfinite(ns)) return "-";
  char text[32];
  std::snprintf(text, sizeof text, "%.2f", ns / 1000.0);
  return text;
}

}  // namespace

int main(int argc, char** argv) {
  bool quick = false;
  std::string jsonPath;
  std::string only;  // one row, for a profile of its server (strace -f -c, perf)
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--quick") == 0) {
      quick = true;
    } else if (std::strcmp(argv[i], "--json") == 0 && i + 1 < argc) {
      jsonPath = argv[++i];
    } else if (std::strcmp(argv[i], "--only") == 0 && i + 1 < argc) {
      only = argv[++i];
    } else {
      std::fprintf(stderr, "usage: loop_rtt [--quick] [--json FILE] [--only ROW]\n");
      return 2;
    }
  }
  const std::string requestPad = padFor(sendRequest);
  const std::string answerPad = padFor(sendAnswer);
  Party answerSizer(0);
  sendAnswer(answerSizer, 0, answerPad);

  Party requestSizer(0);
  sendRequest(requestSizer, 0, requestPad);

  std::printf(
      "loop_rtt (%s build): one link's round trip, %zu-byte request and %zu-byte answer,\n"
      "server in another process; microseconds\n\n",
      CONFLINK_BENCH_BUILD_TYPE, requestSizer.lastSent, answerSizer.lastSent);
  std::printf("%-18s %12s %12s %12s   %12s %12s\n", "server waits in", "p50", "p99", "mean",
              "silence p50", "silence p99");

  // All servers run at once; the rows take turns, a round each, so that a change in the
  // machine's load (another process starting or ending) falls on every row alike.
  constexpr std::size_t kRowCount = sizeof kRows / sizeof kRows[0];
  const int rounds = 10;
  const int roundTrips = (quick ? 2000 : 20000) / rounds;
  const int pauses = (quick ? 300 : 2000) / rounds;
  const int base = 38000 + 8 * (getpid() % 1000);
  std::vector<Session> sessions(kRowCount);
  for (std::size_t r = 0; r < kRowCount; ++r) {
    if (!only.empty() && only.compare(0, std::string::npos, kRows[r].name, only.size()) != 0) {
      sessions[r].result.ok = true;
      continue;
    }
    start(sessions[r], kRows[r], base + static_cast<int>(r), answerPad);
  }
  for (int i = 0; i < rounds; ++i) {
    for (Session& s : sessions) {
      if (s.result.ran) round(s, roundTrips, pauses, requestPad);
    }
  }
  std::vector<Result> results;
  for (std::size_t r = 0; r < kRowCount; ++r) {
    finish(sessions[r]);
    results.push_back(sessions[r].result);
    const Result& x = results.back();
    if (!x.ran) continue;
    std::printf("%-18s %12s %12s %12s   %12s %12s%s\n", kRows[r].name, us(x.backToBack.p50).c_str(),
                us(x.backToBack.p99).c_str(), us(x.backToBack.mean).c_str(),
                us(x.afterSilence.p50).c_str(), us(x.afterSilence.p99).c_str(),
                x.ok ? "" : "  (FAILED: incomplete)");
  }

  // The goals: a readiness loop's round trip at most 1.5 times the blocking receive's (p50), and
  // its arrival after silence no slower (p50).
  const Result& blocking = results[0];
  std::printf("\nagainst the blocking receive (p50):\n");
  std::vector<std::pair<double, double>> ratios;
  for (std::size_t r = 2; r < results.size(); ++r) {
    if (!blocking.ran || !results[r].ran) {
      ratios.emplace_back(NAN, NAN);
      continue;
    }
    const double rt = results[r].backToBack.p50 / blocking.backToBack.p50;
    const double silent = results[r].afterSilence.p50 / blocking.afterSilence.p50;
    ratios.emplace_back(rt, silent);
    std::printf(
        "  %-14s round trip %.2fx (goal <= 1.5x: %s), after silence %.2fx (goal <= 1x: %s)\n",
        kRows[r].name, rt, rt <= 1.5 ? "met" : "MISSED", silent, silent <= 1.0 ? "met" : "MISSED");
    std::printf("  %-14s (p99: round trip %.2fx, after silence %.2fx; mean: %.2fx, %.2fx)\n", "",
                results[r].backToBack.p99 / blocking.backToBack.p99,
                results[r].afterSilence.p99 / blocking.afterSilence.p99,
                results[r].backToBack.mean / blocking.backToBack.mean,
                results[r].afterSilence.mean / blocking.afterSilence.mean);
  }

  if (!jsonPath.empty()) {
    conflink::bench::JsonWriter json;
    json.beginObject();
    json.member("bench", "loop_rtt").member("build", CONFLINK_BENCH_BUILD_TYPE);
    json.member("quick", quick);
    conflink::bench::writeMachine(json);
    json.member("request_bytes", static_cast<long>(requestSizer.lastSent));
    json.member("answer_bytes", static_cast<long>(answerSizer.lastSent));
    json.key("rows").beginArray();
    for (std::size_t r = 0; r < results.size(); ++r) {
      const Result& x = results[r];
      if (!x.ran) continue;
      json.beginObject().member("server_wait", kRows[r].name).member("complete", x.ok);
      json.member("round_trips", static_cast<long>(x.backToBack.count));
      json.member("p50_ns", x.backToBack.p50).member("p99_ns", x.backToBack.p99);
      json.member("mean_ns", x.backToBack.mean);
      json.member("after_silence_count", static_cast<long>(x.afterSilence.count));
      json.member("after_silence_p50_ns", x.afterSilence.p50);
      json.member("after_silence_p99_ns", x.afterSilence.p99);
      if (r >= 2) {
        json.member("round_trip_vs_blocking", ratios[r - 2].first);
        json.member("after_silence_vs_blocking", ratios[r - 2].second);
      }
      json.endObject();
    }
    json.endArray().endObject();
    if (!json.save(jsonPath)) {
      std::fprintf(stderr, "loop_rtt: could not write %s\n", jsonPath.c_str());
      return 1;
    }
  }
  for (const Result& x : results) {
    if (!x.ok) return 1;
  }
  return 0;
}
