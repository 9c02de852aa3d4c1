// One wait over several links and the process's own descriptors: the loop of a server that
// serves the CC link, the CGI link and its sockets from one thread, with no sleeping poll.
//
//   conflink::WaitSet loop;
//   loop.AddMessenger(ccLink);              // its handlers run when messages wait
//   loop.AddMessenger(cgiLink);
//   loop.Add(listenSocket, POLLIN, [&](int fd, short) { AcceptClient(fd); });
//   while (!stopping) loop.Wait(-1);
//
// It is poll(2) underneath, so it works wherever the library does; a program with an event
// loop of its own watches each messenger's ReadinessFd there instead (see the examples). A
// messenger that reconnects has a new descriptor: add it again. Not thread-safe; handlers may
// add and remove entries.
#pragma once

#include <poll.h>

#include <functional>
#include <vector>

namespace conflink {

class WaitSet {
 public:
  using Handler = std::function<void(int fd, short revents)>;

  // Watches `fd` for `events` (POLLIN, POLLOUT...); `handler` runs when poll reports any of
  // them, or an error or hang-up. Replaces an entry for the same descriptor. False for fd < 0.
  bool Add(int fd, short events, Handler handler);
  // Watches a messenger's readiness descriptor and, when it is readable, dispatches up to
  // `maxPerWake` waiting messages (fewer leave the descriptor readable for the next Wait, so one
  // busy link cannot starve the others). False when the messenger is not connected.
  template <class Messenger>
  bool AddMessenger(Messenger& messenger, int maxPerWake = 64) {
    return Add(messenger.ReadinessFd(), POLLIN,
               [&messenger, maxPerWake](int, short) { messenger.DispatchWaiting(maxPerWake); });
  }
  // Stops watching `fd`; false when it was not watched.
  bool Remove(int fd);
  std::size_t size() const { return fds_.size(); }

  // Waits at most `timeoutMs` milliseconds (-1: without limit) until a watched descriptor is
  // ready, then runs the handler of each ready one. Returns how many ran, 0 when the time ran
  // out, -1 when poll failed (errno says why; EINTR when a signal arrived, so that a loop can
  // look at a stop flag).
  int Wait(int timeoutMs);

 private:
  std::vector<pollfd> fds_;
  std::vector<Handler> handlers_;
};

}  // namespace conflink
