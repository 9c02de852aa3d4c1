// The conference server's side of the web front end: one process that serves the CGI link from
// a readiness loop, with a small in-memory store of each conference's general settings.
//
//   conflink_web_ps QUEUE [SLOW_MS]
//
// Pages come and go, one process per HTTP request, each holding the link's second place for the
// time of one request. The server answers GetGeneralSettings with SendGeneralSettings and
// SaveConfGeneral with Success. A GetGeneralSettings of the kind web::kAnswerLate stands for a
// request whose work takes long (a slow disk, a question to call control): the server spends
// SLOW_MS milliseconds (1500 by default) on it before it answers. Meanwhile the page that asked
// may be killed and the next page may take its place; the answer must then reach nobody (the
// queue refuses it, since its page left), never the next page.
//
// One conflink::WaitSet over the link and a signalfd for SIGTERM and SIGINT: the thread sleeps
// in poll until one of them has something. At the end it leaves the queue (the last to leave
// removes it) and prints what it did.
#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <thread>

#include <conflink/messaging/wait_set.h>

#include "../stop_signals.h"
#include "web_page_common.h"

namespace {

using Clock = std::chrono::steady_clock;

struct Counts {
  unsigned long pages = 0;     // pages that attached
  unsigned long answered = 0;  // answers the queue took
  unsigned long refused = 0;   // answers the queue refused: their page had left
  unsigned long slow = 0;      // requests that took SLOW_MS
};

class WebServer : public CGIToPSMessenger {
 public:
  WebServer(int queueNumber, int slowMs) : CGIToPSMessenger(queueNumber), slowMs_(slowMs) {}

  Counts counts;

  void PeerConnected() override { ++counts.pages; }
  void PeerDisconnected() override {}

  int OnGetGeneralSettings(const unsigned long long& id, const ConfIDString& conf,
                           GetConferenceType kind, PSProtocolType) override {
    if (kind == web::kAnswerLate) {
      ++counts.slow;
      std::this_thread::sleep_for(std::chrono::milliseconds(slowMs_));  // the long work
    }
    return tally(SendGeneralSettings(id, settings(conf.id)));
  }
  int OnSaveConfGeneral(const unsigned long long& id, const ConfIDString& conf,
                        const unsigned long long&, const ConfGeneralParams& general,
                        PSProtocolType) override {
    store_[conf.id] = general;
    return tally(Success(id, web::kSaved));
  }

 private:
  const ConfGeneralParams& settings(const std::string& conf) {
    auto found = store_.find(conf);
    if (found == store_.end()) found = store_.emplace(conf, web::defaultGeneral(conf)).first;
    return found->second;
  }
  int tally(int sendResult) {
    if (sendResult > 0) {
      ++counts.answered;
    } else {
      ++counts.refused;
    }
    return 0;
  }

  int slowMs_;
  std::map<std::string, ConfGeneralParams> store_;  // by conference id
};

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: conflink_web_ps QUEUE [SLOW_MS]\n");
    return 2;
  }
  const int queueNumber = std::atoi(argv[1]);
  const int slowMs = argc > 2 ? std::atoi(argv[2]) : 1500;

  // SIGTERM and SIGINT arrive only as a readable signalfd, so that the loop stops between two
  // dispatches and never in the middle of one.
  const int signals = examples::StopSignalDescriptor(SFD_NONBLOCK);
  if (signals < 0) {
    std::perror("web PS: signalfd");
    return 1;
  }

  WebServer server(queueNumber, slowMs);
  if (!server.Connect(50, 100)) {
    std::fprintf(stderr, "web PS: could not open queue %d\n", queueNumber);
    return 1;
  }

  bool stopping = false;
  conflink::WaitSet loop;
  if (!loop.AddMessenger(server)) {
    std::fprintf(stderr, "web PS: queue %d has no readiness descriptor\n", queueNumber);
    server.Disconnect();
    return 1;
  }
  loop.Add(signals, POLLIN, [&stopping](int fd, short) {
    signalfd_siginfo info{};
    while (read(fd, &info, sizeof info) == sizeof info) {
    }
    stopping = true;
  });
  std::printf("web PS: serving queue %d (slow requests take %d ms), pid %d\n", queueNumber, slowMs,
              static_cast<int>(getpid()));
  std::fflush(stdout);

  int status = 0;
  while (!stopping) {
    if (loop.Wait(-1) < 0 && errno != EINTR) {
      std::perror("web PS: poll");
      status = 1;
      break;
    }
  }
  server.Disconnect();
  close(signals);
  const Counts& c = server.counts;
  std::printf(
      "web PS: stopping; %lu page(s) attached, %lu answer(s) taken, %lu refused (their page had "
      "left), %lu slow request(s)\n",
      c.pages, c.answered, c.refused, c.slow);
  return status;
}
