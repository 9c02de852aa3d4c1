// A conference server (PS) and a call-control process (CC) talking through a real queue.
//
// The program forks: the child plays CC, connects, waits for the server and asks it to initialise
// itself; the parent plays PS, learns of the peer's arrival, handles the request and sees the peer
// leave.
// Everything is bounded in time, and the queue object is gone when both have left.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include <conflink/conflink.h>

namespace {

constexpr int kConnectTries = 50;
constexpr int kConnectPauseMs = 100;

class DemoServer : public CCToPSMessenger {
 public:
  using CCToPSMessenger::CCToPSMessenger;
  bool initiated = false;
  bool peerLeft = false;

  void PSPeerConnected() override { std::printf("PS: call control attached\n"); }
  void PSPeerDisConnected() override {
    std::printf("PS: call control left\n");
    peerLeft = true;
  }
  int OnInitiateConferenceServer(PSProtocolType link) override {
    std::printf("PS: InitiateConferenceServer received on link %d\n", static_cast<int>(link));
    initiated = true;
    return 0;
  }
};

// The CC end: waits until the server is attached, so the request is not left queued for a server
// that has not started yet, then asks it to initialise.
class DemoCallControl : public CCToPSMessenger {
 public:
  using CCToPSMessenger::CCToPSMessenger;
  bool serverAttached = false;
  void PSPeerConnected() override { serverAttached = true; }
};

int runCallControl(int queueNumber) {
  alarm(10);
  DemoCallControl cc(queueNumber);
  if (!cc.Connect(kConnectTries, kConnectPauseMs)) {
    std::fprintf(stderr, "CC: could not connect to queue %d\n", queueNumber);
    return 1;
  }
  std::printf("CC: connected to queue %d\n", queueNumber);
  while (!cc.serverAttached) {
    if (!cc.ProcessMessageFromQueue(16)) std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  std::printf("CC: server attached\n");
  const int sent = cc.InitiateConferenceServer();
  std::printf("CC: InitiateConferenceServer sent (%s)\n", conflink::QueueResultText(sent));
  std::fflush(stdout);
  return sent > 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  // Line by line, so that the two processes' lines appear in the order they happened.
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  const int queueNumber = argc > 1 ? std::atoi(argv[1]) : 40000 + getpid() % 20000;
  std::fflush(stdout);
  const pid_t child = fork();
  if (child < 0) {
    std::perror("fork");
    return 1;
  }
  if (child == 0) _exit(runCallControl(queueNumber));

  int status = 1;
  {
    DemoServer ps(queueNumber);
    if (ps.Connect(kConnectTries, kConnectPauseMs)) {
      std::printf("PS: connected to queue %d\n", queueNumber);
      const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
      while (!(ps.initiated && ps.peerLeft) && std::chrono::steady_clock::now() < deadline) {
        if (!ps.ProcessMessageFromQueue(16)) {
          std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
      }
      status = ps.initiated && ps.peerLeft ? 0 : 1;
    } else {
      std::fprintf(stderr, "PS: could not connect to queue %d\n", queueNumber);
    }
  }
  int childStatus = 0;
  if (status != 0) kill(child, SIGKILL);
  waitpid(child, &childStatus, 0);
  const bool ok = status == 0 && WIFEXITED(childStatus) && WEXITSTATUS(childStatus) == 0;
  std::printf(ok ? "demo: exchange complete\n" : "demo: exchange FAILED\n");
  return ok ? 0 : 1;
}
