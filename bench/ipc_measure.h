// The measurement script that every transport runs, between this process and a forked child:
// round trips of a small message, one-way throughput of small and page-sized messages, and the
// time to move one large message. Every received message is checked (size, sequence, and for
// the large message every byte), so a transport that loses or damages data fails its row.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <string>

#include "ipc_transport.h"

namespace conflink::bench {

constexpr std::size_t kSmallBytes = 64;
constexpr std::size_t kPageBytes = 4096;
constexpr std::size_t kBigBytes = 4u << 20;

// How much of each measurement a run does. The warm-ups are run and thrown away.
struct Plan {
  int roundTrips = 100000;
  int warmUpRoundTrips = 10000;
  // Round trips that each follow a silence longer than the queue's spin before sleeping, so that
  // a blocking receiver is asleep in the kernel when the message comes: the cost of a wake-up.
  int idleRoundTrips = 2000;
  int idleGapUs = 1000;
  int smallMessages = 1000000;
  int pageMessages = 200000;
  int bigMessages = 20;
  int warmUpBigMessages = 3;
  // The child's alarm for one transport's whole script; the parent's watchdog allows a little more.
  unsigned limitSeconds = 60;
};

constexpr double kNotMeasured = std::numeric_limits<double>::quiet_NaN();

struct Throughput {
  double messagesPerSecond = kNotMeasured;
  double megabytesPerSecond = kNotMeasured;  // 10^6 bytes of message payload per second
};

// One row of results. A row that failed carries the reason and whichever figures it got.
struct Figures {
  bool ok = false;
  std::string error;
  double roundTripMedianUs = kNotMeasured;
  double roundTripP99Us = kNotMeasured;
  double idleRoundTripMedianUs = kNotMeasured;  // round trips after a silence of idleGapUs
  double idleRoundTripP99Us = kNotMeasured;
  Throughput small;
  Throughput page;
  double bigGigabytesPerSecond = kNotMeasured;  // 10^9 bytes per second, median of the messages
};

// Runs one row under the watchdog: `answer` in a forked child (dying after `limitSeconds`),
// `drive` here. Sets figures.ok, and figures.error from `drive`'s reason and the child's end;
// removes the tracked shared objects afterwards.
void runRow(const std::string& label, unsigned limitSeconds, Figures& figures,
            const std::function<int()>& answer, const std::function<bool(std::string& why)>& drive);

// Runs the script over `transport`: this process drives, a forked child answers.
Figures measureTransport(Transport& transport, const Plan& plan);

// Nanoseconds on the monotonic clock, which every process of the machine shares: a time taken
// by the child can be compared with one taken by the parent.
std::int64_t nowNs();

// Median and 99th percentile, in microseconds, of round-trip times in nanoseconds (reorders them).
void summariseRoundTrips(std::int64_t* times, std::size_t count, double* medianUs, double* p99Us);

}  // namespace conflink::bench
