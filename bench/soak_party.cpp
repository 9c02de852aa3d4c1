#include "bench/soak_party.h"

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>

#include <conflink/platform/cyclic_message_queue.h>
#include "bench/soak_traffic.h"
#include "tests/support/cc_recorder.h"
#include "tests/support/cgi_recorder.h"

namespace conflink::soak {

uint32_t PeakMemoryKiB() {
  std::FILE* status = std::fopen("/proc/self/status", "r");
  if (status == nullptr) return 0;
  char line[256];
  unsigned long kib = 0;
  while (std::fgets(line, sizeof line, status) != nullptr) {
    if (std::sscanf(line, "VmHWM: %lu kB", &kib) == 1) break;
  }
  std::fclose(status);
  return static_cast<uint32_t>(kib);
}

namespace {

using Clock = std::chrono::steady_clock;

long msSince(Clock::time_point t) {
  return static_cast<long>(
      std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - t).count());
}

// What arrives on one link's end is judged here.
class Judge {
 public:
  Judge(Ledger& ledger, int side, int link, const Traffic& traffic)
      : book_(ledger.directions[direction(link, 1 - side)]),
        sent_(ledger.directions[direction(link, side)]),
        from_(1 - side),
        traffic_(traffic) {}

  void peerEvent() { book_.peerEvents.fetch_add(1); }
  // The peer's departure was taken: what this party sent it and it had not taken is dropped
  // (a message is for the peer its sender knows, never for a successor).
  void peerLeft() {
    peerEvent();
    ExcuseSentToDeparted(sent_);
  }

  // A message the messenger dispatched, and how many handler calls and errors it made.
  void received(int type, const char* data, int length, size_t calls, size_t errors) {
    book_.receivedMessages.fetch_add(1);
    book_.receivedBytes.add(static_cast<uint64_t>(length));
    const TypeInfo* t = traffic_.info(type);
    if (t == nullptr || errors != 0 || calls != (t->handled ? 1u : 0u)) {
      book_.corrupted.fetch_add(1);
      return;
    }
    Wire message{type, std::string(data, static_cast<size_t>(length))};
    if (!t->numbered) {
      arrivals_.unnumbered(book_, std::move(message));
      return;
    }
    const uint32_t group = Traffic::groupOf(message.bytes);
    if (group == 0) {
      book_.corrupted.fetch_add(1);
      return;
    }
    const uint32_t last = book_.lastReceived.load();
    const uint32_t faults[] = {book_.lost.load(), book_.duplicated.load(), book_.corrupted.load()};
    arrivals_.numbered(book_, group, message, traffic_.expected(from_, group));
    const uint32_t now[] = {book_.lost.load(), book_.duplicated.load(), book_.corrupted.load()};
    if (now[0] != faults[0] || now[1] != faults[1] || now[2] != faults[2]) {
      std::fprintf(stderr,
                   "conflink_soak: %s %s->%s: group %u (type %d, %zu bytes) after group %u: "
                   "%u lost, %u duplicated, %u corrupted (excused below %u)\n",
                   LinkName(traffic_.link()), from_ == 0 ? "A" : "B", from_ == 0 ? "B" : "A", group,
                   type, message.bytes.size(), last, now[0] - faults[0], now[1] - faults[1],
                   now[2] - faults[2], book_.excuseBelow.load());
    }
  }

 private:
  DirectionBook& book_;
  DirectionBook& sent_;
  int from_;
  const Traffic& traffic_;
  Arrivals arrivals_;
};

// One end of a link: the link's recorder (every handler renders every value it gets), with each
// dispatched message handed to the judge.
template <class Recorder>
class End : public Recorder {
 public:
  End(int queue, Judge& judge) : Recorder(queue), judge_(judge) {}

  bool DispatchMessage(const int* type, const char* data, int length) override {
    if (*type == kQueueEventPeerConnected || *type == kQueueEventPeerDisconnected) {
      // The CGI messenger's ProcessMessageFromQueue hands queue events to its dispatcher.
      if (*type == kQueueEventPeerDisconnected) {
        judge_.peerLeft();
      } else {
        judge_.peerEvent();
      }
      return Recorder::DispatchMessage(type, data, length);
    }
    this->calls.clear();
    this->errors.clear();
    const bool known = Recorder::DispatchMessage(type, data, length);
    judge_.received(*type, data, length, this->calls.size(), this->errors.size());
    return known;
  }
  void PeerConnected() override { judge_.peerEvent(); }
  void PeerDisconnected() override { judge_.peerLeft(); }
  int SendMessage(const int* type, std::string* buffer) override {
    const int result = Recorder::SendMessage(type, buffer);
    lastBytes = buffer->size();
    return result;
  }

  const char* lastError() { return this->queue() != nullptr ? this->queue()->LastError() : ""; }

  size_t lastBytes = 0;

 private:
  Judge& judge_;
};

using CcEnd = End<testing::CcRecorder>;
using CgiEnd = End<testing::CgiRecorder>;

class Party {
 public:
  explicit Party(const PartyConfig& c)
      : ledger_(*c.ledger),
        side_(c.side),
        traffic_{Traffic(c.seed, 0), Traffic(c.seed, 1)},
        judges_{Judge(ledger_, side_, 0, traffic_[0]), Judge(ledger_, side_, 1, traffic_[1])},
        cc_(c.queues[0], judges_[0]),
        cgi_(c.queues[1], judges_[1]) {}

  // Each link has a thread of its own, as a server of both links would: one thread driving both
  // would deadlock whenever each party waits for room on a different link.
  int run() {
    if (!cc_.Connect(200, 10) || !cgi_.Connect(200, 10)) return 3;
    ledger_.sides[side_].attached.store(1);
    const Clock::time_point start = Clock::now();
    std::thread cgi([this] { drive(1, cgi_); });
    drive(0, cc_);
    cgi.join();
    cc_.Disconnect();
    cgi_.Disconnect();
    sampleMemory(msSince(start));
    return 0;
  }

 private:
  DirectionBook& sent(int link) { return ledger_.directions[direction(link, side_)]; }
  DirectionBook& received(int link) { return ledger_.directions[direction(link, 1 - side_)]; }

  // Sends the next part of the current group; once stopping, only finishes a group begun.
  template <class Messenger>
  void step(int link, Messenger& end, bool stopping) {
    DirectionBook& book = sent(link);
    if (stopping && part_[link] == 0) {
      book.senderDone.store(1);
      return;
    }
    const uint32_t group = book.next.load();
    const int result = traffic_[link].send(end, side_, group, part_[link]);
    if (result == kQueueOk) {
      book.sentMessages.fetch_add(1);
      book.sentBytes.add(end.lastBytes);
      if (++part_[link] == traffic_[link].groupSize(side_, group)) {
        part_[link] = 0;
        book.next.store(group + 1);
      }
      return;
    }
    // Nothing of it was delivered: the same part is sent again.
    if (book.refused[std::min(-result, kResultCodes - 1)].fetch_add(1) < 3 &&
        result != kQueuePeerAbsentFull && result != kQueuePeerDeparted) {
      std::fprintf(stderr, "conflink_soak: party %s, %s link: group %u part %d refused: %s\n",
                   side_ == 0 ? "A" : "B", LinkName(link), group, part_[link], end.lastError());
    }
    if (result == kQueueNotConnected) end.Connect(1, 0);
    if (result == kQueuePeerAbsentFull) usleep(500);
  }

  // Everything the other party finished sending has arrived (or, where a death excused the rest
  // of it, nothing came for a while).
  bool drained(int link) {
    DirectionBook& book = received(link);
    if (book.senderDone.load() == 0) return false;
    if (book.lastReceived.load() + 1 >= book.next.load()) return true;
    for (uint32_t g = book.lastReceived.load() + 1; g < book.next.load(); ++g) {
      if (!book.excused(g)) return false;
    }
    if (quietSince_[link] == Clock::time_point{}) quietSince_[link] = Clock::now();
    if (book.lastReceived.load() != quietAt_[link]) {
      quietAt_[link] = book.lastReceived.load();
      quietSince_[link] = Clock::now();
    }
    return msSince(quietSince_[link]) >= 1000;
  }

  // Sends and receives on one link until the run ends and what the other party sent on it has
  // arrived; then stays attached until the other party has taken everything too. The CC link's
  // thread also samples the memory.
  template <class Messenger>
  void drive(int link, Messenger& end) {
    const Clock::time_point start = Clock::now();
    Clock::time_point sampled = start;
    Clock::time_point stopSeen{};
    bool stopping = false;
    for (;;) {
      if (!stopping && ledger_.stop.load() != 0) {
        stopping = true;
        stopSeen = Clock::now();
      }
      end.ProcessMessageFromQueue(32);
      step(link, end, stopping);
      if (link == 0 && msSince(sampled) >= 250) {
        sampled = Clock::now();
        sampleMemory(msSince(start));
      }
      if (stopping && (drained(link) || msSince(stopSeen) > kDrainSeconds * 1000)) break;
    }
    if (finishedLinks_.fetch_add(1) + 1 == kLinks) ledger_.sides[side_].finished.store(1);
    while (ledger_.sides[1 - side_].finished.load() == 0 &&
           msSince(stopSeen) < (kDrainSeconds + 5) * 1000) {
      end.ProcessMessageFromQueue(32);
      usleep(1000);
    }
  }

  void sampleMemory(long ageMs) {
    SideBook& me = ledger_.sides[side_];
    const uint32_t kib = PeakMemoryKiB();
    if (ageMs >= kWarmUpMs && me.hwmWarmKiB.load() == 0) me.hwmWarmKiB.store(kib);
    me.hwmNowKiB.store(kib);
  }

  Ledger& ledger_;
  int side_;
  Traffic traffic_[kLinks];
  Judge judges_[kLinks];
  CcEnd cc_;
  CgiEnd cgi_;
  int part_[kLinks] = {0, 0};
  Clock::time_point quietSince_[kLinks] = {};
  uint32_t quietAt_[kLinks] = {0, 0};
  std::atomic<int> finishedLinks_{0};
};

}  // namespace

int RunParty(const PartyConfig& config) {
  // Ctrl-C reaches the whole process group: the controller ends the run, the parties drain.
  signal(SIGINT, SIG_IGN);
  Party party(config);
  return party.run();
}

}  // namespace conflink::soak
