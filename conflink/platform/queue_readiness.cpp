#include <conflink/platform/queue_readiness.h>

#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace conflink::queue {
namespace {

std::string SystemError(const char* what) {
  return std::string(what) + ": " + std::strerror(errno);
}

void CloseFd(int& fd) {
  if (fd >= 0) close(fd);
  fd = -1;
}

}  // namespace

void ReadinessAddress(const std::string& objectName, int place, std::uint32_t generation,
                      sockaddr_un& address, socklen_t& length) {
  std::uint64_t hash = 0xcbf29ce484222325ull;  // FNV-1a: the object's name is too long to use
  for (unsigned char c : objectName) hash = (hash ^ c) * 0x100000001b3ull;
  address = sockaddr_un{};
  address.sun_family = AF_UNIX;
  // Abstract namespace: a leading NUL, no file, gone with the last descriptor of its owner.
  const int n = std::snprintf(
      address.sun_path + 1, sizeof address.sun_path - 1, "conflink.ready.%lu.%016llx.%d.%lu",
      static_cast<unsigned long>(geteuid()), static_cast<unsigned long long>(hash), place,
      static_cast<unsigned long>(generation));
  length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + n);
}

bool Readiness::Open(const std::string& objectName, int objectFd, int place,
                     std::uint32_t generation, std::string& error) {
  Close();
  epoll_ = epoll_create1(EPOLL_CLOEXEC);
  if (epoll_ < 0) {
    error = SystemError("cannot make the readiness descriptor");
    return false;
  }
  bell_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  socklen_t length = 0;
  ReadinessAddress(objectName, place, generation, address, length);
  if (bell_ < 0 || bind(bell_, reinterpret_cast<sockaddr*>(&address), length) != 0) {
    error = SystemError("cannot bind the readiness socket");
    Close();
    return false;
  }
  // The object through our own descriptor of it: wherever the system keeps shared memory.
  char path[64];
  std::snprintf(path, sizeof path, "/proc/self/fd/%d", objectFd);
  watch_ = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  if (watch_ < 0 || inotify_add_watch(watch_, path, IN_CLOSE_WRITE) < 0) {
    error = SystemError("cannot watch the queue object for departures");
    Close();
    return false;
  }
  epoll_event event{};
  event.events = EPOLLIN;
  event.data.fd = bell_;
  const bool added = epoll_ctl(epoll_, EPOLL_CTL_ADD, bell_, &event) == 0;
  event.data.fd = watch_;
  if (!added || epoll_ctl(epoll_, EPOLL_CTL_ADD, watch_, &event) != 0) {
    error = SystemError("cannot set up the readiness descriptor");
    Close();
    return false;
  }
  return true;
}

bool Readiness::Drain() {
  // One look at both sources (a system call that finds nothing costs as much as one that finds
  // something): most of the time neither has anything, and only what is ready is read.
  epoll_event events[2];
  const int n = epoll_wait(epoll_, events, 2, 0);
  bool closed = false;
  for (int i = 0; i < n; ++i) {
    if (events[i].data.fd == bell_) {
      char bytes[64];
      while (recv(bell_, bytes, sizeof bytes, MSG_DONTWAIT) >= 0) {
      }
    } else {
      alignas(inotify_event) char buffer[512];
      while (read(watch_, buffer, sizeof buffer) > 0) closed = true;
    }
  }
  return closed;
}

void Readiness::Poke() {
  sockaddr_un address{};
  socklen_t length = sizeof address;
  if (getsockname(bell_, reinterpret_cast<sockaddr*>(&address), &length) != 0) return;
  const char byte = 0;
  sendto(bell_, &byte, 1, MSG_DONTWAIT | MSG_NOSIGNAL, reinterpret_cast<sockaddr*>(&address),
         length);
}

void Readiness::Close() {
  CloseFd(epoll_);
  CloseFd(bell_);
  CloseFd(watch_);
}

void ReadinessNotifier::Notify(PartyBlock& peer) {
  std::uint32_t watching = peer.watching.load(std::memory_order_relaxed);
  if (watching != kWatchArmed) return;
  if (!peer.watching.compare_exchange_strong(watching, kWatchNotified, std::memory_order_relaxed))
    return;
  const int saved = errno;  // the caller's errno is theirs
  const std::uint32_t generation = Generation(peer.attach.load(std::memory_order_acquire));
  if (socket_ >= 0 && generation != generation_) Close();
  if (socket_ < 0) {
    socket_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    ReadinessAddress(objectName_, peerPlace_, generation, address_, length_);
    generation_ = generation;
    rings_ = 0;
  }
  // The first ring goes to the address (a page that rings once, on arrival, makes no more system
  // calls than that); from the second on the socket is connected, so that a send skips the
  // look-up of the address.
  const char byte = 0;
  ssize_t sent = -1;
  if (socket_ >= 0 && ++rings_ == 2 &&
      connect(socket_, reinterpret_cast<sockaddr*>(&address_), length_) != 0)
    rings_ = 1;  // stay unconnected
  if (socket_ >= 0)
    sent = rings_ >= 2 ? send(socket_, &byte, 1, MSG_DONTWAIT | MSG_NOSIGNAL)
                       : sendto(socket_, &byte, 1, MSG_DONTWAIT | MSG_NOSIGNAL,
                                reinterpret_cast<sockaddr*>(&address_), length_);
  if (socket_ >= 0 && sent < 0 && errno != EAGAIN) Close();  // its socket went: afresh next time
  errno = saved;
}

void ReadinessNotifier::Close() {
  CloseFd(socket_);
  generation_ = 0;
}

}  // namespace conflink::queue
