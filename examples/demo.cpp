// A conference server (PS), a call-control process (CC) and a web front end (CGI), as three
// processes talking through two real queues.
//
// The program forks twice. The CC child connects, waits for the server, asks it to initialise
// and to dial out a party, and waits for the answer. The CGI child connects and at once asks the
// server to add a participant: the request waits in the queue until the server is there. The
// parent plays PS on both links: it prints every message it receives as text, as a PS
// developer would log them, answers each request with Success on the link it came on, and ends
// when both clients have left. Everything is bounded in time, and the queue objects are gone when
// the program ends.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

#include <conflink/cc/cc_catalogue.h>
#include <conflink/cgi/cgi_catalogue.h>
#include <conflink/conflink.h>

namespace {

constexpr int kConnectTries = 50;
constexpr int kConnectPauseMs = 100;
const PSSuccessType kDone = static_cast<PSSuccessType>(0);

// ---- PS: one messenger per link, each logging what arrives and answering requests ----

template <class Messenger>
class ServerLink : public Messenger {
 public:
  using Describe = std::string (*)(int, const char*, size_t);
  ServerLink(int queueNumber, const char* name, Describe describe)
      : Messenger(queueNumber), name_(name), describe_(describe) {}
  bool clientLeft = false;
  int answered = 0;

  bool DispatchMessage(const int* type, const char* data, int length) override {
    std::printf("PS <- %s: %s\n", name_,
                describe_(*type, data, length > 0 ? static_cast<size_t>(length) : 0).c_str());
    if (*type == conflink::kQueueEventPeerDisconnected) clientLeft = true;
    return Messenger::DispatchMessage(type, data, length);
  }
  int OnDialOut(const unsigned long long& id, const ConfIDString&, const unsigned long long&,
                PSProtocolType) override {
    return answer(id);
  }
  int OnAddParticipant(const unsigned long long& id, const ConfIDString&, const unsigned long long&,
                       const ConferenceUser&, PSProtocolType) override {
    return answer(id);
  }

 private:
  int answer(const unsigned long long& id) {
    const int sent = this->Success(id, kDone);
    std::printf("PS -> %s: Success for request %llu (%s)\n", name_, id,
                conflink::QueueResultText(sent));
    ++answered;
    return 0;
  }
  const char* name_;
  Describe describe_;
};

// The CC link reports its queue events through PeerConnected/PeerDisconnected rather than
// DispatchMessage.
class ServerCcLink : public ServerLink<CCToPSMessenger> {
 public:
  ServerCcLink(int queueNumber)
      : ServerLink(queueNumber, "CC", &conflink::msg::DescribeCcLinkMessage) {}
  void PSPeerConnected() override { std::printf("PS: call control attached\n"); }
  void PSPeerDisConnected() override {
    std::printf("PS: call control left\n");
    clientLeft = true;
  }
};

int runServer(int ccQueue, int cgiQueue) {
  ServerCcLink cc(ccQueue);
  ServerLink<CGIToPSMessenger> cgi(cgiQueue, "CGI", &conflink::msg::DescribeCgiLinkMessage);
  if (!cc.Connect(kConnectTries, kConnectPauseMs) || !cgi.Connect(kConnectTries, kConnectPauseMs)) {
    std::fprintf(stderr, "PS: could not connect to queues %d and %d\n", ccQueue, cgiQueue);
    return 1;
  }
  std::printf("PS: serving call control on queue %d and the web front end on queue %d\n", ccQueue,
              cgiQueue);
  // One thread serves both links by polling each in turn and resting when neither had anything.
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (!(cc.clientLeft && cgi.clientLeft) && std::chrono::steady_clock::now() < deadline) {
    const bool any = cc.ProcessMessageFromQueue(16) | cgi.ProcessMessageFromQueue(16);
    if (!any) std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return cc.clientLeft && cgi.clientLeft && cc.answered == 1 && cgi.answered == 1 ? 0 : 1;
}

// ---- The clients: each sends its requests and waits for the server's answer ----

template <class Messenger>
class DemoClient : public Messenger {
 public:
  DemoClient(int queueNumber, const char* name) : Messenger(queueNumber), name_(name) {}
  bool answered = false;
  int OnSuccess(const unsigned long long& id, PSSuccessType) override {
    std::printf("%s: request %llu succeeded\n", name_, id);
    answered = true;
    return 0;
  }
  bool Connected(int queueNumber) {
    if (this->Connect(kConnectTries, kConnectPauseMs)) return true;
    std::fprintf(stderr, "%s: could not connect to queue %d\n", name_, queueNumber);
    return false;
  }
  // Dispatches until the answer came; false when the server went silent or away first.
  bool AwaitAnswer() {
    while (!answered && this->WaitForMessageAndDispatch() == 0) {
    }
    return answered;
  }

 private:
  const char* name_;
};

// CC waits for the server, so that nothing is left queued for a server not yet started.
class DemoCallControl : public DemoClient<CCToPSMessenger> {
 public:
  using DemoClient::DemoClient;
  bool serverAttached = false;
  void PSPeerConnected() override { serverAttached = true; }
};

int runCallControl(int queueNumber) {
  alarm(10);
  DemoCallControl cc(queueNumber, "CC");
  if (!cc.Connected(queueNumber)) return 1;
  while (!cc.serverAttached) {
    if (!cc.ProcessMessageFromQueue(16)) std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  std::printf("CC: server attached\n");
  const int initiated = cc.InitiateConferenceServer();
  const int dialled = cc.DialOut(1, ConfIDString{"1001"}, 7);
  std::printf("CC: InitiateConferenceServer and DialOut sent (%s, %s)\n",
              conflink::QueueResultText(initiated), conflink::QueueResultText(dialled));
  return cc.AwaitAnswer() && initiated > 0 && dialled > 0 ? 0 : 1;
}

// CGI sends at once: its request waits in the queue until the server attaches. Its wait returns 0
// whenever something was dispatched (the server's arrival counts), 2 when the server is silent
// and 1 when it is gone.
int runWebFrontEnd(int queueNumber) {
  alarm(10);
  DemoClient<CGIToPSMessenger> cgi(queueNumber, "CGI");
  if (!cgi.Connected(queueNumber)) return 1;
  ConferenceUser user{};
  user.id = 7001;
  user.text1 = "Ada Lovelace";
  user.text2 = "sip:ada@conf.example.com";
  const int sent = cgi.AddParticipant(2, ConfIDString{"1001"}, 7001, user);
  std::printf("CGI: AddParticipant sent (%s)\n", conflink::QueueResultText(sent));
  return cgi.AwaitAnswer() && sent > 0 ? 0 : 1;
}

pid_t start(int (*run)(int), int queueNumber) {
  const pid_t pid = fork();
  if (pid == 0) {
    std::fflush(stdout);
    _exit(run(queueNumber));
  }
  return pid;
}

bool succeeded(pid_t pid, bool killFirst) {
  if (pid <= 0) return false;
  if (killFirst) kill(pid, SIGKILL);
  int status = 0;
  return waitpid(pid, &status, 0) == pid && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

}  // namespace

int main(int argc, char** argv) {
  // Line by line, so that the processes' lines appear in the order they happened.
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  const int ccQueue = argc > 1 ? std::atoi(argv[1]) : 40000 + 2 * (getpid() % 10000);
  const int cgiQueue = ccQueue + 1;
  const pid_t webFrontEnd = start(&runWebFrontEnd, cgiQueue);
  const pid_t callControl = start(&runCallControl, ccQueue);
  const bool served = runServer(ccQueue, cgiQueue) == 0;
  const bool ccDone = succeeded(callControl, !served);
  const bool cgiDone = succeeded(webFrontEnd, !served);
  const bool ok = served && ccDone && cgiDone;
  std::printf(ok ? "demo: exchange complete\n" : "demo: exchange FAILED\n");
  return ok ? 0 : 1;
}
