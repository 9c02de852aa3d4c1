// Helpers for tests that kill, stall and corrupt the parties of a queue: a small seeded random
// generator whose choices are the same on every platform, the seed of a run (printed with every
// failure, settable to replay the same choices), a pipe on which a child reports what happened
// to it, and a timer that kills the calling process at a chosen moment of its own work.
#pragma once

#include <fcntl.h>
#include <signal.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <conflink/platform/cyclic_message_queue.h>
#include <conflink/platform/queue_test_support.h>

namespace conflink::testing {

// How long a test waits for what must come: generous, for an emulated target on a machine that
// other work keeps busy. Nothing waits this long when all is well.
constexpr int kPatientMs = 30000;

// splitmix64: the same sequence for a seed on every compiler and byte order, unlike the
// standard distributions.
class FaultRng {
 public:
  explicit FaultRng(std::uint64_t seed) : state_(seed) {}
  std::uint64_t Next() {
    std::uint64_t z = (state_ += 0x9e3779b97f4a7c15ull);
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ull;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebull;
    return z ^ (z >> 31);
  }
  std::uint32_t Word() { return static_cast<std::uint32_t>(Next() >> 32); }
  // A number in [lo, hi].
  std::uint32_t Between(std::uint32_t lo, std::uint32_t hi) {
    return lo + static_cast<std::uint32_t>(Next() % (static_cast<std::uint64_t>(hi) - lo + 1));
  }
  bool Percent(unsigned chance) { return Next() % 100 < chance; }

 private:
  std::uint64_t state_;
};

// The seed of this run: CONFLINK_FAULT_SEED when set (to replay a failure's choices; the
// moments at which the processes meet still vary), otherwise from the clock.
inline std::uint64_t FaultSeed() {
  if (const char* text = std::getenv("CONFLINK_FAULT_SEED")) return std::strtoull(text, nullptr, 0);
  return static_cast<std::uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count()) ^
         (static_cast<std::uint64_t>(getpid()) << 32);
}
inline std::string SeedNote(std::uint64_t seed) {
  return "seed " + std::to_string(seed) + " (CONFLINK_FAULT_SEED=" + std::to_string(seed) +
         " replays its choices)";
}

// A message of `size` bytes (at least 8) of stream `stream`: its stream and number, then a
// pattern that only this stream, number and size produce.
inline std::string Numbered(std::uint32_t stream, std::uint32_t number, std::size_t size) {
  std::string s = Pattern(size < 8 ? 8 : size, stream * 7919u + number);
  std::memcpy(&s[0], &stream, 4);
  std::memcpy(&s[4], &number, 4);
  return s;
}
// The number of an intact message of `stream`, or -1.
inline long long NumberOf(const std::string& s, std::uint32_t stream) {
  if (s.size() < 8) return -1;
  std::uint32_t st = 0, n = 0;
  std::memcpy(&st, s.data(), 4);
  std::memcpy(&n, s.data() + 4, 4);
  return st == stream && s == Numbered(stream, n, s.size()) ? n : -1;
}
// Mostly small messages; about a third larger than the ring, which travel in fragments.
inline std::size_t MessageSize(FaultRng& rng) {
  return rng.Percent(70) ? rng.Between(8, 2000) : rng.Between(kTestCapacity + 1, 3 * kTestCapacity);
}

// A test's random choices: the run's seed, named in every failure of the test while this lives,
// and the generator it seeds.
struct SeededRun {
  SeededRun() : seed(FaultSeed()), trace(__FILE__, __LINE__, SeedNote(seed)), rng(seed) {}
  std::uint64_t seed;
  ::testing::ScopedTrace trace;
  FaultRng rng;
};

// What a child reports to its parent: a kind, a number and a result, written whole (a pipe
// write of this size is atomic, so a child killed mid-report leaves no half record).
struct Report {
  std::uint32_t kind;
  std::uint32_t number;
  std::int32_t result;
};

// A pipe from child to parent. The parent reads without blocking, so it must Collect() while
// the child runs too (a child that fills the pipe waits for it).
class ReportPipe {
 public:
  ReportPipe() {
    if (pipe(fds_) != 0) fds_[0] = fds_[1] = -1;
    if (fds_[0] >= 0) fcntl(fds_[0], F_SETFL, fcntl(fds_[0], F_GETFL) | O_NONBLOCK);
  }
  ~ReportPipe() {
    for (int fd : fds_)
      if (fd >= 0) close(fd);
  }
  ReportPipe(const ReportPipe&) = delete;
  ReportPipe& operator=(const ReportPipe&) = delete;

  void Put(std::uint32_t kind, std::uint32_t number, std::int32_t result = 0) {
    const Report r{kind, number, result};
    while (write(fds_[1], &r, sizeof r) < 0 && errno == EINTR) {
    }
  }
  // Appends every whole report waiting in the pipe. A read may end inside a report; its start
  // waits in `pending_` for the rest, so no read is ever aimed at a computed place in a
  // fixed-size buffer.
  void Collect(std::vector<Report>& into) {
    for (;;) {
      unsigned char chunk[16 * sizeof(Report)];
      const ssize_t n = read(fds_[0], chunk, sizeof chunk);
      if (n <= 0) return;
      pending_.insert(pending_.end(), chunk, chunk + n);
      std::size_t at = 0;
      for (; pending_.size() - at >= sizeof(Report); at += sizeof(Report)) {
        Report r;
        std::memcpy(&r, pending_.data() + at, sizeof r);
        into.push_back(r);
      }
      pending_.erase(pending_.begin(), pending_.begin() + static_cast<std::ptrdiff_t>(at));
    }
  }

 private:
  int fds_[2];
  std::vector<unsigned char> pending_;
};

// Kills the calling process with SIGKILL `ms` milliseconds from now, wherever it then is (in the
// middle of a fragment, waiting for room, asleep). Replaces the process's alarm, which it
// shortens: the child stays bounded.
inline void DieWithSigkillAfterMs(unsigned ms) {
  struct sigaction action {};
  action.sa_handler = [](int) { kill(getpid(), SIGKILL); };
  sigaction(SIGALRM, &action, nullptr);
  itimerval timer{};
  timer.it_value.tv_sec = static_cast<time_t>(ms / 1000);
  timer.it_value.tv_usec = static_cast<suseconds_t>((ms % 1000) * 1000);
  setitimer(ITIMER_REAL, &timer, nullptr);
}

// What the survivor received from one peer (the numbers of its messages, in arrival order) against
// that peer's reports of kind `sentKind` (one per send, numbered from 0): every send the peer saw
// accepted arrived, once and in order, and nothing else did but the message whose send the peer
// never finished (it was killed inside it, after the message's last byte went).
inline ::testing::AssertionResult EveryAcceptedMessageArrived(
    const std::vector<std::uint32_t>& received, const std::vector<Report>& reports,
    std::uint32_t sentKind) {
  std::uint32_t accepted = 0;
  for (const Report& r : reports) {
    if (r.kind != sentKind) continue;
    if (r.number != accepted || r.result != kQueueOk)
      return ::testing::AssertionFailure()
             << "the peer's send " << r.number << " returned " << r.result << " ("
             << QueueResultText(r.result) << "), expected " << accepted << " to succeed";
    ++accepted;
  }
  for (std::size_t i = 0; i < received.size(); ++i)
    if (received[i] != i)
      return ::testing::AssertionFailure()
             << "arrival " << i << " was message " << received[i] << " (lost, repeated or late)";
  if (received.size() < accepted || received.size() > accepted + 1)
    return ::testing::AssertionFailure() << received.size() << " messages arrived; the peer's "
                                         << "send reported " << accepted << " accepted";
  return ::testing::AssertionSuccess();
}

// The survivor's side of a run in which its peers come and go: the result of each of its sends
// (numbered from 0), the moment of each (a counter of its sends and observed departures), and the
// moment at which it saw each peer generation leave.
struct SurvivorLog {
  std::vector<int> result;
  std::vector<long long> at;
  std::vector<long long> departedAt;
  long long clock = 0;
  void Sent(int r) {
    result.push_back(r);
    at.push_back(++clock);
  }
  void Departed() { departedAt.push_back(++clock); }
};

// What the survivor's successive peers received (`receivedBy[g]`: generation g's arrivals, as
// numbers): in order and at most once across all of them, and only messages whose send was
// accepted. An accepted message may be missing only when a peer that died could have taken it
// from the ring: it was accepted before the survivor saw the departure of a peer older than the
// first one that received a later message.
inline ::testing::AssertionResult OnlyDeadPeersLostAnything(
    const SurvivorLog& log, const std::vector<std::vector<std::uint32_t>>& receivedBy) {
  std::vector<char> got(log.result.size(), 0);
  long long previous = -1;
  for (std::size_t g = 0; g < receivedBy.size(); ++g) {
    for (std::uint32_t n : receivedBy[g]) {
      if (n >= log.result.size() || static_cast<long long>(n) <= previous)
        return ::testing::AssertionFailure()
               << "peer " << g << " received message " << n << " after message " << previous;
      if (log.result[n] != kQueueOk)
        return ::testing::AssertionFailure() << "peer " << g << " received message " << n
                                             << ", whose send failed with " << log.result[n];
      got[n] = 1;
      previous = n;
    }
  }
  for (std::size_t n = 0; n < log.result.size(); ++n) {
    if (log.result[n] != kQueueOk || got[n]) continue;
    std::size_t g = 0;
    while (g < receivedBy.size() && (receivedBy[g].empty() || receivedBy[g].back() < n)) ++g;
    if (g == receivedBy.size())
      return ::testing::AssertionFailure() << "accepted message " << n << " never arrived";
    if (g == 0 || g > log.departedAt.size() || log.at[n] >= log.departedAt[g - 1])
      return ::testing::AssertionFailure()
             << "accepted message " << n << " is missing, although peer " << g
             << " received later ones and no peer that died before it could have taken it";
  }
  return ::testing::AssertionSuccess();
}

}  // namespace conflink::testing
