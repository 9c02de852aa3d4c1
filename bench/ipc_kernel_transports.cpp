// The kernel's own transports, the yardsticks the queue is measured against: a Unix-domain
// SOCK_SEQPACKET socketpair, a pair of pipes and a pair of POSIX message queues.
#include <fcntl.h>
#include <mqueue.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <vector>

#include "ipc_process.h"
#include "ipc_transport.h"

namespace conflink::bench {

bool Endpoint::failErrno(const char* what) {
  return fail(std::string(what) + ": " + std::strerror(errno));
}

void cpuRelax() {
#if defined(__x86_64__) || defined(__i386__)
  __builtin_ia32_pause();
#else
  std::atomic_signal_fence(std::memory_order_seq_cst);
#endif
}

namespace {

// A blocking call interrupted by a signal is retried, unless the signal said the peer is gone.
bool retryAfter(long result) {
  return result < 0 && errno == EINTR && !childEnded();
}

void closeIfOpen(int& fd) {
  if (fd >= 0) ::close(fd);
  fd = -1;
}

std::string kibText(std::size_t bytes) {
  return std::to_string(bytes / 1024) + " KiB";
}

// ---- Unix-domain SOCK_SEQPACKET socketpair ----

// A record on such a socket must fit the sender's socket buffer, so a 4 MiB message goes in
// chunks; 64 KiB chunks fit the default buffer with room for several in flight.
constexpr std::size_t kSeqpacketChunk = 64 * 1024;

class SeqpacketEndpoint : public Endpoint {
 public:
  explicit SeqpacketEndpoint(int fd) : fd_(fd), incoming_(kSeqpacketChunk) {}
  ~SeqpacketEndpoint() override { closeIfOpen(fd_); }

  bool send(const char* data, std::size_t size) override {
    ssize_t n;
    do n = ::send(fd_, data, size, MSG_NOSIGNAL);
    while (retryAfter(n));
    if (n < 0) return failErrno("send on the socket");
    if (static_cast<std::size_t>(n) != size) return fail("socket took part of a record");
    return true;
  }
  bool receive(std::string_view* message) override {
    ssize_t n;
    do n = ::recv(fd_, incoming_.data(), incoming_.size(), MSG_TRUNC);
    while (retryAfter(n));
    if (n < 0) return failErrno("recv on the socket");
    if (n == 0) return fail("the peer closed the socket");
    if (static_cast<std::size_t>(n) > incoming_.size()) return fail("record larger than a chunk");
    *message = std::string_view(incoming_.data(), static_cast<std::size_t>(n));
    return true;
  }

 private:
  int fd_;
  std::vector<char> incoming_;
};

class SeqpacketTransport : public Transport {
 public:
  ~SeqpacketTransport() override {
    closeIfOpen(fds_[0]);
    closeIfOpen(fds_[1]);
  }
  std::string name() const override { return "unix socket, SOCK_SEQPACKET"; }
  std::size_t maxMessage() const override { return kSeqpacketChunk; }
  std::string bigMessageNote() const override {
    return "in " + kibText(kSeqpacketChunk) + " chunks";
  }
  bool prepare(std::string& error) override {
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, fds_) == 0) return true;
    error = std::string("socketpair: ") + std::strerror(errno);
    return false;
  }
  std::unique_ptr<Endpoint> open(int side, std::string&) override {
    closeIfOpen(fds_[1 - side]);
    const int fd = fds_[side];
    fds_[side] = -1;
    return std::make_unique<SeqpacketEndpoint>(fd);
  }

 private:
  int fds_[2] = {-1, -1};
};

// ---- Pipes ----

// A pipe is a byte stream: each message is framed by its length. The reader reads what the pipe
// holds into a buffer and cuts messages out of it, as a program using pipes would.
constexpr std::size_t kPipeReadBuffer = 64 * 1024;
// A length beyond this is a broken frame, not a message to allocate for.
constexpr std::uint32_t kPipeLargestMessage = 64u * 1024u * 1024u;

class PipeEndpoint : public Endpoint {
 public:
  PipeEndpoint(int readFd, int writeFd)
      : readFd_(readFd), writeFd_(writeFd), buffer_(kPipeReadBuffer) {}
  ~PipeEndpoint() override {
    closeIfOpen(readFd_);
    closeIfOpen(writeFd_);
  }

  bool send(const char* data, std::size_t size) override {
    const auto length = static_cast<std::uint32_t>(size);
    iovec parts[2] = {{const_cast<std::uint32_t*>(&length), sizeof length},
                      {const_cast<char*>(data), size}};
    std::size_t left = sizeof length + size;
    iovec* part = parts;
    int count = 2;
    while (left > 0) {
      const ssize_t n = ::writev(writeFd_, part, count);
      if (retryAfter(n)) continue;
      if (n < 0) return failErrno("write to the pipe");
      left -= static_cast<std::size_t>(n);
      // Skip what was written, for the rare short write of a large message.
      auto done = static_cast<std::size_t>(n);
      while (count > 0 && done >= part->iov_len) {
        done -= part->iov_len;
        ++part;
        --count;
      }
      if (count > 0) {
        part->iov_base = static_cast<char*>(part->iov_base) + done;
        part->iov_len -= done;
      }
    }
    return true;
  }

  bool receive(std::string_view* message) override {
    std::uint32_t length = 0;
    if (!fill(sizeof length)) return false;
    std::memcpy(&length, buffer_.data() + begin_, sizeof length);
    begin_ += sizeof length;
    if (length > kPipeLargestMessage) return fail("broken frame on the pipe");
    if (length <= buffer_.size()) {
      if (!fill(length)) return false;
      *message = std::string_view(buffer_.data() + begin_, length);
      begin_ += length;
      return true;
    }
    // Larger than the buffer: what is buffered, then the rest read straight into place.
    if (large_.size() < length) large_.resize(length);
    const std::size_t held = end_ - begin_;
    std::memcpy(large_.data(), buffer_.data() + begin_, held);
    begin_ = end_ = 0;
    for (std::size_t got = held; got < length;) {
      const ssize_t n = ::read(readFd_, large_.data() + got, length - got);
      if (retryAfter(n)) continue;
      if (n <= 0) return n == 0 ? fail("the peer closed the pipe") : failErrno("read the pipe");
      got += static_cast<std::size_t>(n);
    }
    *message = std::string_view(large_.data(), length);
    return true;
  }

 private:
  // Makes at least `want` (<= buffer size) unread bytes lie in the buffer.
  bool fill(std::size_t want) {
    if (end_ - begin_ >= want) return true;
    if (begin_ + want > buffer_.size()) {
      std::memmove(buffer_.data(), buffer_.data() + begin_, end_ - begin_);
      end_ -= begin_;
      begin_ = 0;
    }
    while (end_ - begin_ < want) {
      const ssize_t n = ::read(readFd_, buffer_.data() + end_, buffer_.size() - end_);
      if (retryAfter(n)) continue;
      if (n <= 0) return n == 0 ? fail("the peer closed the pipe") : failErrno("read the pipe");
      end_ += static_cast<std::size_t>(n);
    }
    return true;
  }

  int readFd_;
  int writeFd_;
  std::vector<char> buffer_;
  std::size_t begin_ = 0;
  std::size_t end_ = 0;
  std::vector<char> large_;
};

class PipeTransport : public Transport {
 public:
  ~PipeTransport() override {
    for (int* pipe : {toChild_, toParent_}) {
      closeIfOpen(pipe[0]);
      closeIfOpen(pipe[1]);
    }
  }
  std::string name() const override { return "pipe pair"; }
  std::string bigMessageNote() const override { return "one write (byte stream)"; }
  bool prepare(std::string& error) override {
    if (pipe2(toChild_, O_CLOEXEC) == 0 && pipe2(toParent_, O_CLOEXEC) == 0) return true;
    error = std::string("pipe2: ") + std::strerror(errno);
    return false;
  }
  std::unique_ptr<Endpoint> open(int side, std::string&) override {
    int* in = side == 0 ? toParent_ : toChild_;
    int* out = side == 0 ? toChild_ : toParent_;
    closeIfOpen(in[1]);
    closeIfOpen(out[0]);
    auto end = std::make_unique<PipeEndpoint>(in[0], out[1]);
    in[0] = out[1] = -1;
    return end;
  }

 private:
  int toChild_[2] = {-1, -1};
  int toParent_[2] = {-1, -1};
};

// ---- POSIX message queues ----

long readSystemLimit(const char* path, long fallback) {
  std::ifstream file(path);
  long value = 0;
  return file >> value && value > 0 ? value : fallback;
}

// A message queue does not tell one end that the other has gone, so every wait is cut into
// slices, and after each slice the parent asks whether its child is still running.
constexpr long kPosixQueueWaitSliceNs = 200 * 1000000L;

timespec sliceDeadline() {
  timespec at{};
  clock_gettime(CLOCK_REALTIME, &at);
  at.tv_nsec += kPosixQueueWaitSliceNs;
  if (at.tv_nsec >= 1000000000L) {
    at.tv_nsec -= 1000000000L;
    ++at.tv_sec;
  }
  return at;
}

// Retried after an interrupting signal or a slice that ran out, unless the peer is gone.
bool retryPosixQueue(long result) {
  return result < 0 && (errno == EINTR || errno == ETIMEDOUT) && !childEnded();
}

class PosixQueueEndpoint : public Endpoint {
 public:
  PosixQueueEndpoint(mqd_t in, mqd_t out, std::size_t messageBytes)
      : in_(in), out_(out), incoming_(messageBytes) {}
  ~PosixQueueEndpoint() override {
    mq_close(in_);
    mq_close(out_);
  }

  bool send(const char* data, std::size_t size) override {
    int r;
    do {
      const timespec deadline = sliceDeadline();
      r = mq_timedsend(out_, data, size, 0, &deadline);
    } while (retryPosixQueue(r));
    return r == 0 || failErrno(childEnded() ? "mq_send (the peer ended)" : "mq_send");
  }
  bool receive(std::string_view* message) override {
    ssize_t n;
    do {
      const timespec deadline = sliceDeadline();
      n = mq_timedreceive(in_, incoming_.data(), incoming_.size(), nullptr, &deadline);
    } while (retryPosixQueue(n));
    if (n < 0) return failErrno(childEnded() ? "mq_receive (the peer ended)" : "mq_receive");
    *message = std::string_view(incoming_.data(), static_cast<std::size_t>(n));
    return true;
  }

 private:
  mqd_t in_;
  mqd_t out_;
  std::vector<char> incoming_;
};

class PosixQueueTransport : public Transport {
 public:
  // The largest messages the system allows (up to 4 MiB, the largest we send), and as many of
  // them in flight as the system allows, within the user's byte budget for message queues.
  PosixQueueTransport() {
    const long sizeLimit = readSystemLimit("/proc/sys/fs/mqueue/msgsize_max", 8192);
    messageBytes_ = std::min<std::size_t>(static_cast<std::size_t>(sizeLimit), 4u << 20);
    depth_ = readSystemLimit("/proc/sys/fs/mqueue/msg_max", 10);
    rlimit budget{};
    if (getrlimit(RLIMIT_MSGQUEUE, &budget) == 0 && budget.rlim_cur != RLIM_INFINITY) {
      constexpr std::size_t kPerMessageOverhead = 64;  // roughly what the kernel charges on top
      const auto fits =
          static_cast<long>(budget.rlim_cur / (2 * (messageBytes_ + kPerMessageOverhead)));
      depth_ = std::max(1L, std::min(depth_, fits));
    }
  }
  ~PosixQueueTransport() override {
    for (mqd_t q : queues_)
      if (q != static_cast<mqd_t>(-1)) mq_close(q);
  }
  std::string name() const override { return "POSIX message queue pair"; }
  std::size_t maxMessage() const override { return messageBytes_; }
  std::string bigMessageNote() const override {
    return "in " + kibText(messageBytes_) + " chunks (msgsize_max), " + std::to_string(depth_) +
           " deep";
  }

  // Both queues are opened here and their names removed at once: the descriptors pass to the
  // child through the fork, and no name is left behind whatever happens next.
  bool prepare(std::string& error) override {
    for (int i = 0; i < 2; ++i) {
      char name[64];
      std::snprintf(name, sizeof name, "/conflink-ipc-bench.%ld.%d", static_cast<long>(getpid()),
                    i);
      mq_unlink(name);  // left over from an earlier run under the same process id
      mq_attr attr{};
      attr.mq_maxmsg = depth_;
      attr.mq_msgsize = static_cast<long>(messageBytes_);
      queues_[i] = mq_open(name, O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600, &attr);
      const int openError = errno;
      mq_unlink(name);
      if (queues_[i] == static_cast<mqd_t>(-1)) {
        error = std::string("mq_open ") + name + ": " + std::strerror(openError);
        return false;
      }
    }
    return true;
  }
  std::unique_ptr<Endpoint> open(int side, std::string&) override {
    // Queue 0 carries parent to child, queue 1 child to parent.
    auto end =
        std::make_unique<PosixQueueEndpoint>(queues_[1 - side], queues_[side], messageBytes_);
    queues_[0] = queues_[1] = static_cast<mqd_t>(-1);
    return end;
  }

 private:
  std::size_t messageBytes_ = 0;
  long depth_ = 0;
  mqd_t queues_[2] = {static_cast<mqd_t>(-1), static_cast<mqd_t>(-1)};
};

}  // namespace

std::unique_ptr<Transport> makeSeqpacketTransport() {
  return std::make_unique<SeqpacketTransport>();
}
std::unique_ptr<Transport> makePipeTransport() {
  return std::make_unique<PipeTransport>();
}
std::unique_ptr<Transport> makePosixQueueTransport() {
  return std::make_unique<PosixQueueTransport>();
}

}  // namespace conflink::bench
