// A server's loop on raw epoll: one epoll instance over the readiness descriptors of two links
// (call control's and the web front end's), a listening TCP socket and a signalfd, and one
// thread that sleeps in epoll_wait until one of them has something, then dispatches only what is
// ready. No thread per link, no sleeping poll, no CPU while idle.
//
//   conflink_loop_epoll CC_QUEUE CGI_QUEUE
//
// What to take from it:
// - Each messenger's ReadinessFd() goes into the epoll set like any socket, once the messenger
//   is connected (a messenger that reconnects has a new descriptor: watch that one instead).
// - Watch it level-triggered (epoll's default). When it is readable, call DispatchWaiting(n)
//   until it reports that it took nothing: the receive that finds the queue empty is what clears
//   the descriptor and watches again. Stopping after a batch while messages still wait can leave
//   them unannounced, and the loop would sleep beside them.
// - The peer's arrival and departure come the same way, to the messenger's PeerConnected and
//   PeerDisconnected (call control's messenger passes them on to PSPeerConnected and
//   PSPeerDisConnected), also when the peer died without a word.
//
// loop_server.h holds the server's handlers and its console. To see it serve peer processes:
//
//   conflink_loop_client path/to/conflink_loop_epoll
#include <signal.h>
#include <sys/epoll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "../stop_signals.h"
#include "loop_server.h"

namespace {

// What each watched descriptor is, carried in its epoll_event.
enum Source : unsigned { kCallControl, kWebFrontEnd, kConsole, kStopSignal };

bool watch(int epoll, int fd, Source source) {
  epoll_event event{};
  event.events = EPOLLIN;  // level-triggered
  event.data.u32 = source;
  return fd >= 0 && epoll_ctl(epoll, EPOLL_CTL_ADD, fd, &event) == 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: conflink_loop_epoll CC_QUEUE CGI_QUEUE\n");
    return 2;
  }
  // SIGINT and SIGTERM arrive as a readable descriptor, so that stopping is one more source.
  const int signals = examples::StopSignalDescriptor();

  loop::CallControlSide cc(std::atoi(argv[1]));
  loop::WebSide web(std::atoi(argv[2]));
  loop::Console console;
  if (!cc.Connect(50, 100) || !web.Connect(50, 100) || !console.Open()) {
    std::fprintf(stderr, "conflink_loop_epoll: could not open the queues or the console\n");
    return 1;
  }

  const int epoll = epoll_create1(EPOLL_CLOEXEC);
  if (!watch(epoll, cc.ReadinessFd(), kCallControl) ||
      !watch(epoll, web.ReadinessFd(), kWebFrontEnd) || !watch(epoll, console.fd(), kConsole) ||
      !watch(epoll, signals, kStopSignal)) {
    std::perror("conflink_loop_epoll: epoll");
    return 1;
  }
  std::printf("server: console on 127.0.0.1 port %d\n", console.port());
  std::fflush(stdout);

  bool running = true;
  while (running) {
    epoll_event ready[8];
    const int n = epoll_wait(epoll, ready, 8, -1);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      std::perror("conflink_loop_epoll: epoll_wait");
      break;
    }
    for (int i = 0; i < n; ++i) {
      switch (ready[i].data.u32) {
        case kCallControl:
          while (cc.DispatchWaiting(64)) {
          }
          break;
        case kWebFrontEnd:
          while (web.DispatchWaiting(64)) {
          }
          break;
        case kConsole:
          running = console.Serve(cc, web) && running;
          break;
        case kStopSignal: {
          signalfd_siginfo info{};
          (void)!read(signals, &info, sizeof info);
          running = false;
          break;
        }
      }
    }
  }
  loop::say("stopping");
  close(epoll);
  close(signals);
  cc.Disconnect();  // leaves the queues; the last party to leave removes each
  web.Disconnect();
  return 0;
}
