// A server's loop on libevent: the same server as conflink_loop_epoll, with libevent's
// event_base in place of the raw epoll set. Each link's readiness descriptor gets a persistent
// read event whose callback dispatches what waits; the console socket and the stop signals are
// events of the same base.
//
//   conflink_loop_libevent CC_QUEUE CGI_QUEUE
//
// What to take from it:
// - event_new(base, messenger.ReadinessFd(), EV_READ | EV_PERSIST, ...) once the messenger is
//   connected; the callback calls DispatchWaiting(n) until it reports that it took nothing (the
//   receive that finds the queue empty is what clears the descriptor and watches again). The
//   descriptor is level-triggered: do not ask for EV_ET.
// - Nothing else is needed: no timer, no thread, no CPU while idle. The peer's arrival and
//   departure come through the same callback, to PeerConnected and PeerDisconnected.
//
// loop_server.h holds the server's handlers and its console. To see it serve peer processes:
//
//   conflink_loop_client path/to/conflink_loop_libevent
#include <event2/event.h>
#include <signal.h>

#include <cstdio>
#include <cstdlib>

#include "loop_server.h"

namespace {

// A read event on a messenger's readiness descriptor: dispatches what waits, until none is left.
template <class Messenger>
event* watchLink(event_base* base, Messenger& messenger) {
  auto dispatch = [](evutil_socket_t, short, void* m) {
    while (static_cast<Messenger*>(m)->DispatchWaiting(64)) {
    }
  };
  event* e = event_new(base, messenger.ReadinessFd(), EV_READ | EV_PERSIST, dispatch, &messenger);
  if (e != nullptr) event_add(e, nullptr);
  return e;
}

struct Server {
  loop::CallControlSide& cc;
  loop::WebSide& web;
  loop::Console& console;
  event_base* base;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: conflink_loop_libevent CC_QUEUE CGI_QUEUE\n");
    return 2;
  }
  loop::CallControlSide cc(std::atoi(argv[1]));
  loop::WebSide web(std::atoi(argv[2]));
  loop::Console console;
  if (!cc.Connect(50, 100) || !web.Connect(50, 100) || !console.Open()) {
    std::fprintf(stderr, "conflink_loop_libevent: could not open the queues or the console\n");
    return 1;
  }

  event_base* base = event_base_new();
  Server server{cc, web, console, base};
  event* ccEvent = watchLink(base, cc);
  event* webEvent = watchLink(base, web);
  event* consoleEvent = event_new(
      base, console.fd(), EV_READ | EV_PERSIST,
      [](evutil_socket_t, short, void* s) {
        Server& self = *static_cast<Server*>(s);
        if (!self.console.Serve(self.cc, self.web)) event_base_loopbreak(self.base);
      },
      &server);
  // libevent turns the signals into events of the base itself.
  auto stop = [](evutil_socket_t, short, void* b) {
    event_base_loopbreak(static_cast<event_base*>(b));
  };
  event* termEvent = evsignal_new(base, SIGTERM, stop, base);
  event* intEvent = evsignal_new(base, SIGINT, stop, base);
  if (ccEvent == nullptr || webEvent == nullptr || consoleEvent == nullptr ||
      termEvent == nullptr || intEvent == nullptr || event_add(consoleEvent, nullptr) != 0 ||
      event_add(termEvent, nullptr) != 0 || event_add(intEvent, nullptr) != 0) {
    std::fprintf(stderr, "conflink_loop_libevent: could not set up the events\n");
    return 1;
  }
  std::printf("server: console on 127.0.0.1 port %d (libevent %s, %s)\n", console.port(),
              event_get_version(), event_base_get_method(base));
  std::fflush(stdout);

  event_base_dispatch(base);

  loop::say("stopping");
  for (event* e : {ccEvent, webEvent, consoleEvent, termEvent, intEvent}) event_free(e);
  event_base_free(base);
  cc.Disconnect();  // leaves the queues; the last party to leave removes each
  web.Disconnect();
  return 0;
}
