// A readiness descriptor for a queue: one file descriptor that poll, select or epoll can watch
// beside sockets, readable while a message or a queue event waits to be taken. It lets a server
// wait on several links and its own sockets in one call, with no thread and no CPU while idle.
//
// It is an epoll instance (itself pollable) over two sources:
// - a datagram socket of the party's own, bound in the abstract namespace under a name made of
//   the object's name, the place and the party's generation (so that a predecessor's socket, or
//   one still held by a child it forked, never stands in the way). A peer that publishes a record,
//   arrives or leaves sends it one byte, but only when the party announced that it watches
//   (PartyBlock::watching) and nobody sent one since: a busy link costs no system call per
//   message.
// - an inotify watch on the object for a close by a writer: a peer that dies closes its
//   descriptor of the object whatever killed it, so a departure the peer could not announce
//   wakes the watcher too.
//
// Triggering is by level, with one allowance: the descriptor is readable while anything waits,
// and may be readable once more after the last thing was taken; a receive that then finds
// nothing clears it and watches again. A receive that finds nothing is what arms it (see
// CyclicMessageQueue::ReadinessFd), so a loop that takes messages until none is left never
// misses one.
#pragma once

#include <sys/socket.h>
#include <sys/un.h>

#include <cstdint>
#include <string>

#include <conflink/platform/queue_layout.h>

namespace conflink::queue {

// Values of PartyBlock::watching.
constexpr std::uint32_t kNotWatching = 0;
constexpr std::uint32_t kWatchArmed = 1;     // asleep in poll: send a datagram on any change
constexpr std::uint32_t kWatchNotified = 2;  // a datagram went (or the party is awake anyway)

// The abstract socket address of the party in `place` of generation `generation`.
void ReadinessAddress(const std::string& objectName, int place, std::uint32_t generation,
                      sockaddr_un& address, socklen_t& length);

class Readiness {
 public:
  Readiness() = default;
  ~Readiness() { Close(); }
  Readiness(const Readiness&) = delete;
  Readiness& operator=(const Readiness&) = delete;

  // Makes the descriptor for the party in `place` of `generation`, whose object is open as
  // `objectFd`. False with `error` on failure (nothing is then kept).
  bool Open(const std::string& objectName, int objectFd, int place, std::uint32_t generation,
            std::string& error);
  int fd() const { return epoll_; }
  bool open() const { return epoll_ >= 0; }
  // Empties whichever source has something (one system call when neither has). True when a
  // writer of the object closed it since the last drain: a peer may have died, and its liveness
  // must be asked of the kernel afresh.
  bool Drain();
  // Makes the descriptor readable: something is known to wait.
  void Poke();
  void Close();
  // In a forked child: close the descriptors (the parent keeps its own).
  void ForgetAfterFork() { Close(); }

 private:
  int epoll_ = -1;
  int bell_ = -1;
  int watch_ = -1;
};

// The sending side: rings the readiness socket of a peer that watches.
class ReadinessNotifier {
 public:
  ReadinessNotifier() = default;
  ~ReadinessNotifier() { Close(); }
  ReadinessNotifier(const ReadinessNotifier&) = delete;
  ReadinessNotifier& operator=(const ReadinessNotifier&) = delete;

  // Once `objectName` and the peer's `place` are known.
  void Bind(const std::string& objectName, int peerPlace) {
    objectName_ = objectName;
    peerPlace_ = peerPlace;
    generation_ = 0;
  }
  // After a change the peer may wait for has been published and a full fence passed (as
  // RingIfWaiting makes one): sends the peer one datagram if it watches and none went since.
  void Notify(PartyBlock& peer);
  void Close();
  void ForgetAfterFork() { Close(); }

 private:
  std::string objectName_;
  int peerPlace_ = -1;
  int socket_ = -1;               // to the peer's readiness socket (connected from its 2nd ring)
  std::uint32_t generation_ = 0;  // of the peer it rings
  std::uint32_t rings_ = 0;       // sent to that peer so far
  sockaddr_un address_{};
  socklen_t length_ = 0;
};

}  // namespace conflink::queue
