// The peers of a loop example, and the check that its loop serves them: call control and web
// pages against a server started from the given program, through real queues.
//
//   conflink_loop_client SERVER_PROGRAM [CC_QUEUE]    (the web link's queue is the next number)
//
// It starts the server, reads its console port, then:
// - call control attaches and joins twice, a web page asks three times: each answer is checked;
// - call control sends a burst of joins without waiting, more than the server takes per batch:
//   every one must be accepted, in order;
// - both leave and successors arrive, are served, and the server's counters must show each
//   arrival and departure reaching its handlers;
// - it stays silent for a second, over which the server may use almost no CPU (under 20 ms);
// - it stops the server through the console: both peers must hear it leave, it must end with
//   status 0 and no queue object may be left.
// Every wait has a deadline, and an alarm at 30 s kills the server and removes the queue
// objects, so that a failure leaves nothing behind. Exit status 0 when every check passed.
#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <sstream>
#include <string>
#include <thread>

#include <conflink/conflink.h>

namespace {

constexpr long long kIdleCpuLimitUs = 20000;
constexpr int kBurst = 300;
const ConfIDString kConference{"77"};

// ---- What a failure must clean up, also from the alarm's handler ----
pid_t serverPid = -1;
char objectNames[2][128];

void removeEverything() {
  if (serverPid > 0) kill(serverPid, SIGKILL);
  for (const char* name : objectNames) shm_unlink(name);
}
void onAlarm(int) {
  static const char text[] = "loop client: out of time; server killed, queues removed\n";
  (void)!write(2, text, sizeof text - 1);
  removeEverything();
  _exit(1);
}

int failures = 0;
void check(bool passed, const std::string& what) {
  std::printf("client: %-60s %s\n", what.c_str(), passed ? "ok" : "FAILED");
  std::fflush(stdout);
  if (!passed) ++failures;
}

// ---- The peers ----

class CallControlPeer : public CCToPSMessenger {
 public:
  using CCToPSMessenger::CCToPSMessenger;
  bool serverAttached = false;
  bool serverLeft = false;
  unsigned long long answeredId = 0;
  int accepted = 0;
  unsigned long long party = 0;
  std::string welcome;

  void PSPeerConnected() override { serverAttached = true; }
  void PSPeerDisConnected() override { serverLeft = true; }
  int OnJoinAccept(const unsigned long long& id, const unsigned long long& p, const ConfIDString&,
                   const std::list<std::string>& texts, const ParticipantParams&,
                   TransmitType) override {
    answeredId = id;
    ++accepted;
    party = p;
    welcome = texts.empty() ? "" : texts.front();
    return 0;
  }
};

class WebPage : public CGIToPSMessenger {
 public:
  using CGIToPSMessenger::CGIToPSMessenger;
  bool serverAttached = false;
  bool serverLeft = false;
  ConfGeneralParams settings{};

  void PeerConnected() override { serverAttached = true; }
  void PeerDisconnected() override { serverLeft = true; }
  int OnSendGeneralSettings(const unsigned long long&, const ConfGeneralParams& v) override {
    settings = v;
    return 0;
  }
};

// Takes messages with the messenger's deadline wait until `done` holds; false when the time ran
// out or the queue failed first.
template <class Messenger, class Done>
bool waitUntil(Messenger& m, Done done, int ms = 5000) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
  while (!done()) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                          deadline - std::chrono::steady_clock::now())
                          .count();
    if (left <= 0 || m.WaitForMessageFor(static_cast<int>(left)) == conflink::kWaitFailed) {
      return done();
    }
  }
  return true;
}

// Call control joins one participant; the server's acceptance must carry the join's id, the
// party number it gives and its welcome.
void join(CallControlPeer& cc, unsigned long long id, const char* who,
          unsigned long long expectedParty) {
  cc.JoinConference(id, kConference, "audio", SipUri{"sip:", who, "example.com", "5060"}, false);
  const bool answered = waitUntil(cc, [&] { return cc.answeredId == id; });
  check(answered && cc.party == expectedParty && cc.welcome == std::string("welcome ") + who,
        std::string("call control: ") + who + " joins as party " + std::to_string(expectedParty));
}

// A page asks for the general settings; the answer must name the conference and count the
// requests the server has served.
void ask(WebPage& page, unsigned long long id, int expectedCount) {
  const int r = page.Request(
      id, [&] { return page.GetGeneralSettings(id, kConference, GetConferenceType{}); }, 5000);
  check(r == conflink::kRequestAnswered &&
            page.settings.text1 == "settings of conference " + kConference.id &&
            page.settings.value1 == expectedCount,
        "web page: request " + std::to_string(id) + " answered (" + conflink::RequestResultText(r) +
            ")");
}

// One console command; the answer line ("" when the console could not be reached).
std::string console(int port, const char* command) {
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<uint16_t>(port));
  std::string answer;
  if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) {
    const std::string line = std::string(command) + "\n";
    (void)!write(fd, line.data(), line.size());
    char c = 0;
    while (read(fd, &c, 1) == 1 && c != '\n') answer += c;
  }
  close(fd);
  return answer;
}

std::map<std::string, long long> status(int port) {
  std::map<std::string, long long> values;
  std::istringstream words(console(port, "status"));
  std::string word;
  while (words >> word) {
    const auto equals = word.find('=');
    if (equals != std::string::npos) {
      values[word.substr(0, equals)] = std::atoll(word.c_str() + equals + 1);
    }
  }
  return values;
}

// Starts the server with its standard output on a pipe; the read end, or -1.
int startServer(const char* program, int ccQueue) {
  int out[2];
  if (pipe2(out, O_CLOEXEC) != 0) return -1;
  std::fflush(nullptr);
  const pid_t parent = getpid();
  serverPid = fork();
  if (serverPid == 0) {
    prctl(PR_SET_PDEATHSIG, SIGTERM);  // a client that dies takes its server down
    if (getppid() != parent) _exit(127);
    dup2(out[1], 1);
    const std::string cc = std::to_string(ccQueue), cgi = std::to_string(ccQueue + 1);
    execl(program, program, cc.c_str(), cgi.c_str(), static_cast<char*>(nullptr));
    std::perror(program);
    _exit(127);
  }
  close(out[1]);
  return serverPid > 0 ? out[0] : -1;
}

// Reads the server's output until its console port is announced (at most 10 s); 0 if never.
int readPort(int fd) {
  std::string text;
  pollfd p{fd, POLLIN, 0};
  while (poll(&p, 1, 10000) == 1) {
    char chunk[256];
    const ssize_t n = read(fd, chunk, sizeof chunk);
    if (n <= 0) break;
    text.append(chunk, static_cast<size_t>(n));
    const auto at = text.find("port ");
    if (at != std::string::npos && text.find('\n', at) != std::string::npos) {
      std::fputs(text.c_str(), stdout);
      return std::atoi(text.c_str() + at + 5);
    }
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: conflink_loop_client SERVER_PROGRAM [CC_QUEUE]\n");
    return 2;
  }
  const int ccQueue = argc > 2 ? std::atoi(argv[2]) : 30000 + 2 * (getpid() % 4000);
  for (int i = 0; i < 2; ++i) {
    std::snprintf(objectNames[i], sizeof objectNames[i], "%s",
                  conflink::QueueObjectName(ccQueue + i, "/bin/ping").c_str());
  }
  signal(SIGALRM, onAlarm);
  alarm(30);

  const int serverOutput = startServer(argv[1], ccQueue);
  const int port = serverOutput < 0 ? 0 : readPort(serverOutput);
  check(port > 0, "server started, console port announced");
  if (port <= 0) {
    removeEverything();
    return 1;
  }

  {
    // The first call control and the first page: attach, then served.
    CallControlPeer cc(ccQueue);
    WebPage page(ccQueue + 1);
    check(cc.Connect(50, 100) && waitUntil(cc, [&] { return cc.serverAttached; }),
          "call control: server's arrival reached the handler");
    check(page.ConnectWaiting(5000) == conflink::kQueueOpened &&
              waitUntil(page, [&] { return page.serverAttached; }),
          "web page: server's arrival reached the handler");
    join(cc, 1, "ada", 101);
    for (int i = 1; i <= 3; ++i) ask(page, 10 + i, i);
    join(cc, 2, "grace", 102);

    // A burst: the server finds many waiting at once and must take them all.
    const int before = cc.accepted;
    for (unsigned long long id = 1000; id < 1000 + kBurst; ++id) {
      cc.JoinConference(id, kConference, "audio", SipUri{"sip:", "crowd", "", ""}, false);
    }
    const bool all = waitUntil(cc, [&] { return cc.accepted == before + kBurst; });
    check(all && cc.answeredId == 1000 + kBurst - 1 && cc.party == 102 + kBurst,
          "call control: a burst of " + std::to_string(kBurst) + " joins, all accepted in order");
  }  // both leave

  CallControlPeer cc(ccQueue);
  WebPage page(ccQueue + 1);
  check(cc.Connect(50, 100) && waitUntil(cc, [&] { return cc.serverAttached; }),
        "a second call control attached");
  check(page.ConnectWaiting(5000) == conflink::kQueueOpened &&
            waitUntil(page, [&] { return page.serverAttached; }),
        "a second web page attached");
  join(cc, 3, "alan", 103 + kBurst);
  ask(page, 20, 4);

  // What the server's handlers counted: each departure and arrival, each request.
  const auto counted = status(port);
  const std::pair<const char*, long long> expected[] = {{"cc_arrivals", 2},    {"cc_departures", 1},
                                                        {"joins", 3 + kBurst}, {"cgi_arrivals", 2},
                                                        {"cgi_departures", 1}, {"requests", 4}};
  for (const auto& [name, value] : expected) {
    const auto found = counted.find(name);
    const long long got = found == counted.end() ? -1 : found->second;
    check(got == value, std::string("server counted ") + name + " = " + std::to_string(value) +
                            " (" + std::to_string(got) + ")");
  }

  // Silence for a second: the server sleeps in its wait.
  const long long before = status(port)["cpu_us"];
  std::this_thread::sleep_for(std::chrono::seconds(1));
  const long long after = status(port)["cpu_us"];
  check(before > 0 && after >= before && after - before < kIdleCpuLimitUs,
        "server idle 1 s used " + std::to_string(after - before) + " us of CPU (limit " +
            std::to_string(kIdleCpuLimitUs) + ")");

  // Stop it: both peers hear it leave, it ends cleanly.
  check(console(port, "quit") == "stopping", "server told to stop");
  check(waitUntil(cc, [&] { return cc.serverLeft; }), "call control: server's departure heard");
  check(waitUntil(page, [&] { return page.serverLeft; }), "web page: server's departure heard");
  int status = -1;
  const bool ended = waitpid(serverPid, &status, 0) == serverPid;
  if (ended) serverPid = -1;
  check(ended && WIFEXITED(status) && WEXITSTATUS(status) == 0, "server ended with status 0");
  char rest[4096];
  for (ssize_t n; (n = read(serverOutput, rest, sizeof rest)) > 0;) {
    (void)!std::fwrite(rest, 1, static_cast<size_t>(n), stdout);
  }

  cc.Disconnect();
  page.Disconnect();
  for (const char* name : objectNames) {
    const bool gone = access((std::string("/dev/shm") + name).c_str(), F_OK) != 0;
    check(gone, std::string("no queue object ") + name + " left");
  }
  removeEverything();
  std::printf("client: %s\n", failures == 0 ? "all checks passed" : "checks FAILED");
  return failures == 0 ? 0 : 1;
}
