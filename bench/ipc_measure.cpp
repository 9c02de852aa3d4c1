#include "ipc_measure.h"

#include "tests/support/child_process.h"

#include <time.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string_view>
#include <thread>
#include <vector>

#include "ipc_process.h"

namespace conflink::bench {

std::int64_t nowNs() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<std::int64_t>(now.tv_sec) * 1000000000 + now.tv_nsec;
}

void summariseRoundTrips(std::int64_t* times, std::size_t count, double* medianUs, double* p99Us) {
  if (count == 0) return;
  const std::size_t middle = count / 2;
  const std::size_t p99 = std::min(count - 1, (count * 99 + 99) / 100 - 1);
  std::nth_element(times, times + middle, times + count);
  *medianUs = static_cast<double>(times[middle]) / 1000.0;
  std::nth_element(times, times + p99, times + count);
  *p99Us = static_cast<double>(times[p99]) / 1000.0;
}

namespace {

// The bytes every message is made of: a pseudo-random sequence, so that a chunk put in the wrong
// place or a stale buffer shows in the content check. Made before the fork, so both processes
// hold the same bytes without sending them.
const std::string& messageBody() {
  static const std::string body = [] {
    std::string bytes(kBigBytes, '\0');
    std::uint64_t x = 0x9e3779b97f4a7c15ull;
    for (std::size_t i = 0; i + 8 <= bytes.size(); i += 8) {
      x ^= x << 13;
      x ^= x >> 7;
      x ^= x << 17;
      std::memcpy(&bytes[i], &x, 8);
    }
    return bytes;
  }();
  return body;
}

// The first 8 bytes of every measured message: which run of the script and which message of it,
// so a lost, repeated or reordered message is caught where it happens.
std::uint64_t stampFor(std::uint64_t series, std::uint64_t index) {
  return (series << 32) | index;
}
void stamp(std::string& message, std::uint64_t value) {
  std::memcpy(&message[0], &value, sizeof value);
}
std::uint64_t stampOf(std::string_view message) {
  std::uint64_t value = 0;
  std::memcpy(&value, message.data(), std::min(sizeof value, message.size()));
  return value;
}

// Ends a one-way run: a size no measured message or chunk has, with a magic word and the count.
constexpr char kEndMagic[8] = {'e', 'n', 'd', '-', 'r', 'u', 'n', '!'};
constexpr std::size_t kEndMarkerBytes = 16;
bool isEndMarker(std::string_view piece) {
  return piece.size() == kEndMarkerBytes && std::memcmp(piece.data(), kEndMagic, 8) == 0;
}

constexpr char kHello[8] = {'h', 'e', 'l', 'l', 'o', '.', '.', '.'};
constexpr char kBye[8] = {'b', 'y', 'e', '.', '.', '.', '.', '.'};

// The receiver's account of a one-way run, followed on the wire by the text of the first problem.
struct Confirmation {
  std::uint64_t messages;
  std::uint64_t bytes;
  std::int64_t lastArrivalNs;  // when the last message (unchecked runs: the end marker) was in
  std::uint64_t ok;
};

bool chunked(std::size_t chunk, std::size_t size) {
  return chunk != 0 && size > chunk;
}

bool sendWhole(Endpoint& end, std::size_t chunk, std::string& message) {
  if (!chunked(chunk, message.size())) return end.sendString(message);
  for (std::size_t at = 0; at < message.size(); at += chunk)
    if (!end.send(message.data() + at, std::min(chunk, message.size() - at))) return false;
  return true;
}

bool expectExactly(Endpoint& end, const char (&word)[8], std::string& why) {
  std::string_view got;
  if (!end.receive(&got)) {
    why = end.error();
    return false;
  }
  if (got.size() == sizeof word && std::memcmp(got.data(), word, sizeof word) == 0) return true;
  why = "expected '" + std::string(word, sizeof word) + "', got " + std::to_string(got.size()) +
        " other bytes";
  return false;
}

// ---- The driving side (parent) ----

bool driveRoundTrips(Endpoint& end, const Plan& plan, Figures& figures, std::string& why) {
  std::string ping = messageBody().substr(0, kSmallBytes);
  std::vector<std::int64_t> busy(static_cast<std::size_t>(plan.roundTrips));
  std::vector<std::int64_t> idle(static_cast<std::size_t>(plan.idleRoundTrips));
  const int measured = plan.warmUpRoundTrips + plan.roundTrips;
  const int total = measured + plan.idleRoundTrips;
  for (int i = 0; i < total; ++i) {
    if (i >= measured) std::this_thread::sleep_for(std::chrono::microseconds(plan.idleGapUs));
    stamp(ping, static_cast<std::uint64_t>(i));
    std::string_view reply;
    const std::int64_t start = nowNs();
    if (!end.sendString(ping) || !end.receive(&reply)) {
      why = "round trip " + std::to_string(i) + ": " + end.error();
      return false;
    }
    const std::int64_t finish = nowNs();
    if (reply.size() != kSmallBytes || stampOf(reply) != static_cast<std::uint64_t>(i)) {
      why = "round trip " + std::to_string(i) + ": reply of " + std::to_string(reply.size()) +
            " bytes stamped " + std::to_string(stampOf(reply));
      return false;
    }
    if (i >= measured) {
      idle[static_cast<std::size_t>(i - measured)] = finish - start;
    } else if (i >= plan.warmUpRoundTrips) {
      busy[static_cast<std::size_t>(i - plan.warmUpRoundTrips)] = finish - start;
    }
  }
  summariseRoundTrips(busy.data(), busy.size(), &figures.roundTripMedianUs,
                      &figures.roundTripP99Us);
  if (!idle.empty())
    summariseRoundTrips(idle.data(), idle.size(), &figures.idleRoundTripMedianUs,
                        &figures.idleRoundTripP99Us);
  return true;
}

// Sends `count` messages of `message`'s size and returns the seconds from the first send to the
// receiver holding the last message, once the receiver has confirmed every one of them.
bool driveOneWay(Endpoint& end, std::size_t chunk, std::string& message, int count,
                 std::uint64_t series, double* seconds, std::string& why) {
  const std::int64_t start = nowNs();
  for (int i = 0; i < count; ++i) {
    stamp(message, stampFor(series, static_cast<std::uint64_t>(i)));
    if (!sendWhole(end, chunk, message)) {
      why = "message " + std::to_string(i) + " of " + std::to_string(message.size()) +
            " bytes: " + end.error();
      return false;
    }
  }
  char marker[kEndMarkerBytes];
  const auto expected = static_cast<std::uint64_t>(count);
  std::memcpy(marker, kEndMagic, 8);
  std::memcpy(marker + 8, &expected, 8);
  std::string_view reply;
  if (!end.send(marker, sizeof marker) || !end.receive(&reply)) {
    why = "end of " + std::to_string(message.size()) + "-byte run: " + end.error();
    return false;
  }
  Confirmation confirmed{};
  if (reply.size() < sizeof confirmed) {
    why = "confirmation of " + std::to_string(reply.size()) + " bytes";
    return false;
  }
  std::memcpy(&confirmed, reply.data(), sizeof confirmed);
  const std::string problem(reply.substr(sizeof confirmed));
  if (confirmed.ok == 0 || confirmed.messages != expected ||
      confirmed.bytes != expected * message.size() || confirmed.lastArrivalNs <= start) {
    why = "sent " + std::to_string(count) + " messages of " + std::to_string(message.size()) +
          " bytes; receiver got " + std::to_string(confirmed.messages) + " (" +
          std::to_string(confirmed.bytes) + " bytes)" + (problem.empty() ? "" : ": " + problem);
    return false;
  }
  *seconds = static_cast<double>(confirmed.lastArrivalNs - start) / 1e9;
  return true;
}

bool driveThroughput(Endpoint& end, std::size_t chunk, std::size_t size, int count,
                     std::uint64_t& series, Throughput& result, std::string& why) {
  std::string message = messageBody().substr(0, size);
  double seconds = 0;
  if (!driveOneWay(end, chunk, message, std::max(1, count / 10), series++, &seconds, why))
    return false;  // warm-up
  if (!driveOneWay(end, chunk, message, count, series++, &seconds, why)) return false;
  result.messagesPerSecond = count / seconds;
  result.megabytesPerSecond = count * static_cast<double>(size) / seconds / 1e6;
  return true;
}

bool driveBigMessages(Endpoint& end, std::size_t chunk, const Plan& plan, std::uint64_t& series,
                      Figures& figures, std::string& why) {
  std::string message = messageBody();
  std::vector<double> seconds;
  for (int i = 0; i < plan.warmUpBigMessages + plan.bigMessages; ++i) {
    double took = 0;
    if (!driveOneWay(end, chunk, message, 1, series++, &took, why)) return false;
    if (i >= plan.warmUpBigMessages) seconds.push_back(took);
  }
  if (seconds.empty()) return true;
  std::nth_element(seconds.begin(), seconds.begin() + seconds.size() / 2, seconds.end());
  figures.bigGigabytesPerSecond =
      static_cast<double>(kBigBytes) / seconds[seconds.size() / 2] / 1e9;
  return true;
}

bool drive(Transport& transport, const Plan& plan, Figures& figures, std::string& why) {
  std::unique_ptr<Endpoint> end = transport.open(0, why);
  if (end == nullptr) return false;
  const std::size_t chunk = transport.maxMessage();
  std::uint64_t series = 1;
  if (!expectExactly(*end, kHello, why)) return false;
  if (!driveRoundTrips(*end, plan, figures, why)) return false;
  if (!driveThroughput(*end, chunk, kSmallBytes, plan.smallMessages, series, figures.small, why))
    return false;
  if (!driveThroughput(*end, chunk, kPageBytes, plan.pageMessages, series, figures.page, why))
    return false;
  if (!driveBigMessages(*end, chunk, plan, series, figures, why)) return false;
  if (!end->send(kBye, sizeof kBye)) {
    why = end->error();
    return false;
  }
  return true;
}

// ---- The answering side (child) ----

bool answerRoundTrips(Endpoint& end, const Plan& plan, std::string& why) {
  std::string echo;
  for (int i = 0; i < plan.warmUpRoundTrips + plan.roundTrips + plan.idleRoundTrips; ++i) {
    std::string_view ping;
    if (!end.receive(&ping)) {
      why = "round trip " + std::to_string(i) + ": " + end.error();
      return false;
    }
    if (ping.size() != kSmallBytes) {
      why = "round trip " + std::to_string(i) + ": " + std::to_string(ping.size()) + " bytes";
      return false;
    }
    echo.assign(ping);
    if (!end.sendString(echo)) {
      why = "round trip " + std::to_string(i) + ": " + end.error();
      return false;
    }
  }
  return true;
}

// Takes messages of `size` bytes (reassembling chunks) until the end marker, checks each one's
// size and stamp (and, with `checkContent`, every byte), and confirms what arrived. Problems
// with the messages go back in the confirmation; only a failing transport ends the script.
bool answerOneWay(Endpoint& end, std::size_t chunk, std::size_t size, std::uint64_t series,
                  bool checkContent, std::string& assembly, std::string& why) {
  const std::string& body = messageBody();
  const bool inChunks = chunked(chunk, size);
  if (inChunks && assembly.size() < size) assembly.resize(size);
  Confirmation confirmed{};
  std::string problem;
  auto note = [&](const std::string& text) {
    if (problem.empty()) problem = text;
  };
  auto noteMessage = [&](const std::string& text) {
    note("message " + std::to_string(confirmed.messages) + ": " + text);
  };
  std::size_t partial = 0;
  std::string_view piece;
  for (;;) {
    if (!end.receive(&piece)) {
      why = "receiving " + std::to_string(size) + "-byte messages: " + end.error();
      return false;
    }
    if (isEndMarker(piece)) {
      if (!checkContent) confirmed.lastArrivalNs = nowNs();
      break;
    }
    const std::size_t want = inChunks ? std::min(chunk, size - partial) : size;
    if (piece.size() != want) {
      noteMessage(std::to_string(piece.size()) + " bytes where " + std::to_string(want) +
                  " were due");
      partial = 0;
      continue;
    }
    std::string_view whole = piece;
    if (inChunks) {
      std::memcpy(&assembly[partial], piece.data(), piece.size());
      partial += piece.size();
      if (partial < size) continue;
      partial = 0;
      whole = std::string_view(assembly.data(), size);
    }
    const std::uint64_t stamped = stampOf(whole);
    if (stamped != stampFor(series, confirmed.messages)) {
      noteMessage("stamped as message " + std::to_string(stamped & 0xffffffffu) + " of run " +
                  std::to_string(stamped >> 32) + " (this is run " + std::to_string(series) + ")");
    }
    // Reading the clock costs tens of nanoseconds here, as much as a fifth of what one small
    // message costs on the fastest transports; so a run of unchecked messages reads it once, when
    // the end marker (sent straight after the last message) arrives. A checked message takes the
    // time before its check, which is not part of it.
    if (checkContent) confirmed.lastArrivalNs = nowNs();
    if (checkContent && std::memcmp(whole.data() + 8, body.data() + 8, size - 8) != 0)
      noteMessage("content differs from what was sent");
    ++confirmed.messages;
    confirmed.bytes += size;
  }
  std::uint64_t announced = 0;
  std::memcpy(&announced, piece.data() + 8, sizeof announced);
  if (partial != 0) note("the run ended inside a message");
  if (announced != confirmed.messages)
    note(std::to_string(announced) + " messages sent, " + std::to_string(confirmed.messages) +
         " arrived whole");
  confirmed.ok = problem.empty() ? 1 : 0;
  std::string reply(reinterpret_cast<const char*>(&confirmed), sizeof confirmed);
  reply += problem;
  if (!end.sendString(reply)) {
    why = "confirming: " + end.error();
    return false;
  }
  return true;
}

bool answerThroughput(Endpoint& end, std::size_t chunk, std::size_t size, std::uint64_t& series,
                      std::string& assembly, std::string& why) {
  return answerOneWay(end, chunk, size, series++, false, assembly, why) &&  // warm-up
         answerOneWay(end, chunk, size, series++, false, assembly, why);
}

int answer(Transport& transport, const Plan& plan) {
  std::string why;
  std::unique_ptr<Endpoint> end = transport.open(1, why);
  const std::size_t chunk = transport.maxMessage();
  std::uint64_t series = 1;
  std::string assembly;
  bool ok = end != nullptr && end->send(kHello, sizeof kHello);
  if (end != nullptr && !ok && why.empty()) why = end->error();
  ok = ok && answerRoundTrips(*end, plan, why) &&
       answerThroughput(*end, chunk, kSmallBytes, series, assembly, why) &&
       answerThroughput(*end, chunk, kPageBytes, series, assembly, why);
  for (int i = 0; ok && i < plan.warmUpBigMessages + plan.bigMessages; ++i)
    ok = answerOneWay(*end, chunk, kBigBytes, series++, true, assembly, why);
  ok = ok && expectExactly(*end, kBye, why);
  if (ok) return 0;
  std::fprintf(stderr, "ipc_bench: %s, answering side: %s\n", transport.name().c_str(),
               why.c_str());
  return 1;
}

}  // namespace

void runRow(const std::string& label, unsigned limitSeconds, Figures& figures,
            const std::function<int()>& answer,
            const std::function<bool(std::string& why)>& drive) {
  static std::string step;
  step = "the row '" + label + "'";
  armWatchdog(limitSeconds + 10, step.c_str());
  watchChild(0);
  conflink::testing::ChildProcess child(answer, limitSeconds);
  if (!child.started()) {
    figures.error = "fork failed";
  } else {
    watchChild(child.pid());
    std::string why;
    const bool driven = drive(why);
    // After a failure the child is given a moment to say what it saw, then killed.
    int status = child.wait(driven ? 10000 : 1000);
    if (status < 0) child.stop();
    figures.ok = driven && status == 0;
    if (!figures.ok) {
      figures.error = driven ? describeChildStatus(status)
                             : why + (status > 0 ? "; " + describeChildStatus(status) : "");
    }
  }
  watchChild(0);
  disarmWatchdog();
  removeSharedObjects();
}

Figures measureTransport(Transport& transport, const Plan& plan) {
  Figures figures;
  messageBody();  // made now, before the fork
  if (!transport.prepare(figures.error)) return figures;
  runRow(
      transport.name(), plan.limitSeconds, figures, [&] { return answer(transport, plan); },
      [&](std::string& why) { return drive(transport, plan, figures, why); });
  return figures;
}

}  // namespace conflink::bench
