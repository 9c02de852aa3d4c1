// The soak: two processes exchange random messages of every type of both links, in both
// directions, through real queues, while the controller (this process) kills either of them at
// random and starts it again. Every message is numbered, and the receiver regenerates what it
// must receive and compares the bytes; the books (soak_ledger.h) say what had to arrive.
//
//   conflink_soak [--seconds N] [--seed S] [--kill-every MS] [--json FILE]
//
// Exit status: 0 when nothing was lost, duplicated or corrupted, no party failed and memory
// stayed flat; 1 when one of those failed; 2 bad usage; 3 the run could not be set up or was
// interrupted.
#include <signal.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <conflink/platform/cyclic_message_queue.h>
#include "bench/bench_json.h"
#include "bench/soak_ledger.h"
#include "bench/soak_party.h"
#include "bench/soak_traffic.h"
#include "tests/support/child_process.h"

namespace {

namespace soak = conflink::soak;
using Clock = std::chrono::steady_clock;
using conflink::testing::ChildProcess;

constexpr const char* kKeyPath = "/bin/ping";  // the path every messenger opens its queue with
// Memory may grow by this much after the warm-up: a fifth, and 4 MiB.
constexpr double kGrowthShare = 0.20;
constexpr uint32_t kGrowthSlackKiB = 4096;
// Incarnations that lived at least this long have their memory judged.
constexpr long kJudgedLifeMs = 12000;
// AddressSanitizer keeps freed memory in quarantine (256 MiB by default), so a process's peak
// grows for a long while whatever the code does: figures are shown but not judged there.
#if defined(__SANITIZE_ADDRESS__)
constexpr bool kMemoryJudged = false;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr bool kMemoryJudged = false;
#else
constexpr bool kMemoryJudged = true;
#endif
#else
constexpr bool kMemoryJudged = true;
#endif

struct Options {
  int seconds = 30;
  uint64_t seed = 0;
  bool seedGiven = false;
  long killEveryMs = 3000;
  std::string json;
};

// What Ctrl-C, a termination request or the watchdog must clean up; set before they can come.
volatile sig_atomic_t gInterrupted = 0;
volatile pid_t gParty[soak::kSides] = {0, 0};
char gObject[soak::kLinks][128];

void removeObjects() {
  for (auto& name : gObject) {
    if (name[0] != '\0') shm_unlink(name);
  }
}

void onInterrupt(int) {
  gInterrupted = 1;
}

// The whole run overran its bound: kill the parties, remove the queues, and go.
void onWatchdog(int) {
  for (pid_t pid : gParty) {
    if (pid > 0) kill(pid, SIGKILL);
  }
  removeObjects();
  static const char text[] = "conflink_soak: the run overran its time bound\n";
  (void)!write(2, text, sizeof text - 1);
  _exit(3);
}

bool parse(int argc, char** argv, Options& o) {
  for (int i = 1; i < argc; ++i) {
    const std::string a = argv[i];
    const bool hasValue = i + 1 < argc;
    if (a == "--seconds" && hasValue) {
      o.seconds = std::atoi(argv[++i]);
      if (o.seconds <= 0) return false;
    } else if (a == "--seed" && hasValue) {
      o.seed = std::strtoull(argv[++i], nullptr, 0);
      o.seedGiven = true;
    } else if (a == "--kill-every" && hasValue) {
      o.killEveryMs = std::atol(argv[++i]);
      if (o.killEveryMs < 0) return false;
    } else if (a == "--json" && hasValue) {
      o.json = argv[++i];
    } else {
      return false;
    }
  }
  return true;
}

void usage() {
  std::fprintf(stderr,
               "usage: conflink_soak [--seconds N] [--seed S] [--kill-every MS] [--json FILE]\n"
               "  --seconds N       how long the parties exchange messages (default 30)\n"
               "  --seed S          the seed of every message and kill (default: from the clock)\n"
               "  --kill-every MS   mean interval between kills of a party; 0: none (default "
               "3000)\n"
               "  --json FILE       also write the figures to FILE\n");
}

// One incarnation's memory, as judged when it ended.
struct Life {
  long ms = 0;
  uint32_t warmKiB = 0;
  uint32_t endKiB = 0;
  bool judged() const { return kMemoryJudged && ms >= kJudgedLifeMs && warmKiB != 0; }
  uint32_t boundKiB() const {
    return static_cast<uint32_t>(warmKiB * kGrowthShare) + kGrowthSlackKiB;
  }
  long growthKiB() const { return static_cast<long>(endKiB) - static_cast<long>(warmKiB); }
  bool flat() const { return !judged() || growthKiB() <= static_cast<long>(boundKiB()); }
};

struct SideRecord {
  int kills = 0;
  int failures = 0;  // incarnations that ended by themselves other than cleanly
  int judged = 0;
  int grew = 0;
  Life longest;
  std::vector<std::string> notes;
};

class Controller {
 public:
  Controller(const Options& o, soak::Ledger& ledger) : o_(o), ledger_(ledger), rng_(o.seed) {
    const int base = 70000 + static_cast<int>(getpid() % 50000) * 2;
    for (int link = 0; link < soak::kLinks; ++link) {
      config_.queues[link] = base + link;
      const std::string name = conflink::QueueObjectName(base + link, kKeyPath);
      std::snprintf(gObject[link], sizeof gObject[link], "%s", name.c_str());
    }
    config_.ledger = &ledger_;
    config_.seed = o.seed;
  }

  int run() {
    removeObjects();  // a queue left under these numbers by an earlier run
    for (int side = 0; side < soak::kSides; ++side) start(side);
    const Clock::time_point begin = Clock::now();
    Clock::time_point nextKill = begin + killInterval();
    while (!gInterrupted && Clock::now() - begin < std::chrono::seconds(o_.seconds)) {
      usleep(5000);
      for (int side = 0; side < soak::kSides; ++side) {
        const int code = party_[side]->wait(0);
        if (code >= 0) ended(side, code, false, false);
      }
      if (o_.killEveryMs > 0 && Clock::now() >= nextKill) {
        const int side = static_cast<int>(rng_.below(2));
        // The peer cannot come or go meanwhile: only this controller starts parties.
        const bool peerAttached = ledger_.sides[1 - side].attached.load() != 0;
        party_[side]->kill9();
        ended(side, party_[side]->wait(), true, peerAttached);
        nextKill = Clock::now() + killInterval();
      }
    }
    seconds_ = std::chrono::duration<double>(Clock::now() - begin).count();
    ledger_.stop.store(1);
    for (int side = 0; side < soak::kSides; ++side) {
      const int code = party_[side]->wait((soak::kDrainSeconds + 15) * 1000);
      if (code < 0) {
        record_[side].notes.push_back("did not finish at the end of the run: killed");
        ++record_[side].failures;
        party_[side]->stop();
      } else if (code != 0) {
        ++record_[side].failures;
        record_[side].notes.push_back("ended with " + describeExit(code) +
                                      " at the end of the run");
      }
      judgeLife(side);
      gParty[side] = 0;
    }
    for (soak::DirectionBook& book : ledger_.directions) soak::CountTail(book);
    removeObjects();
    return gInterrupted ? 3 : 0;
  }

  double seconds() const { return seconds_; }
  const SideRecord& record(int side) const { return record_[side]; }
  const soak::PartyConfig& config() const { return config_; }

 private:
  std::chrono::milliseconds killInterval() {
    // Exponential, with the given mean, so that kills land at every phase of the traffic.
    const double u = (static_cast<double>(rng_.next() >> 11) + 0.5) / 9007199254740992.0;
    return std::chrono::milliseconds(static_cast<long>(-std::log(u) * o_.killEveryMs) + 1);
  }

  static std::string describeExit(int code) {
    if (code >= 128) return "signal " + std::to_string(code - 128);
    return "exit code " + std::to_string(code);
  }

  void start(int side) {
    soak::SideBook& book = ledger_.sides[side];
    book.hwmWarmKiB.store(0);
    book.hwmNowKiB.store(0);
    book.attached.store(0);
    book.incarnation.fetch_add(1);
    soak::PartyConfig c = config_;
    c.side = side;
    started_[side] = Clock::now();
    party_[side] = std::make_unique<ChildProcess>([c] { return soak::RunParty(c); },
                                                  static_cast<unsigned>(o_.seconds + 90));
    gParty[side] = party_[side]->pid();
  }

  void judgeLife(int side) {
    const soak::SideBook& book = ledger_.sides[side];
    Life life;
    life.ms = static_cast<long>(
        std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - started_[side])
            .count());
    life.warmKiB = book.hwmWarmKiB.load();
    life.endKiB = book.hwmNowKiB.load();
    SideRecord& r = record_[side];
    if (life.judged()) {
      ++r.judged;
      if (!life.flat()) {
        ++r.grew;
        r.notes.push_back("memory grew from " + std::to_string(life.warmKiB) + " to " +
                          std::to_string(life.endKiB) + " KiB in " + std::to_string(life.ms) +
                          " ms");
      }
    }
    if (life.ms > r.longest.ms) r.longest = life;
  }

  // A party died (killed, or by itself while it should not have): the books excuse what was in
  // flight, and a new one takes its place.
  void ended(int side, int code, bool killed, bool peerAttached) {
    SideRecord& r = record_[side];
    if (killed) {
      ++r.kills;
    } else {
      ++r.failures;
      r.notes.push_back("ended by itself with " + describeExit(code));
    }
    judgeLife(side);
    soak::ExcuseAfterDeath(ledger_, side, peerAttached);
    start(side);
  }

  Options o_;
  soak::Ledger& ledger_;
  soak::Rng rng_;
  soak::PartyConfig config_;
  std::unique_ptr<ChildProcess> party_[soak::kSides];
  Clock::time_point started_[soak::kSides];
  SideRecord record_[soak::kSides];
  double seconds_ = 0;
};

struct Totals {
  uint64_t lost = 0, duplicated = 0, corrupted = 0, dropped = 0, delivered = 0;
};

const char* sideName(int side) {
  return side == 0 ? "A" : "B";
}

std::string directionName(int d) {
  const int link = d / 2, from = d % 2;
  return std::string(soak::LinkName(link)) + " " + sideName(from) + "->" + sideName(1 - from);
}

std::string mib(uint64_t bytes) {
  char text[32];
  std::snprintf(text, sizeof text, "%.1f MiB", static_cast<double>(bytes) / 1048576.0);
  return text;
}

uint32_t refusedTotal(const soak::DirectionBook& b) {
  uint32_t n = 0;
  for (const auto& r : b.refused) n += r.load();
  return n;
}

Totals report(const Options& o, const Controller& c, const soak::Ledger& ledger,
              uint32_t ownWarmKiB, uint32_t ownEndKiB, long childrenMaxRssKiB, bool& memoryOk) {
  std::printf(
      "conflink soak: %.1f s, seed %llu, kills every %ld ms on average%s, queues %d (cc) "
      "and %d (cgi)\n\n",
      c.seconds(), static_cast<unsigned long long>(o.seed), o.killEveryMs,
      o.killEveryMs == 0 ? " (none)" : "", c.config().queues[0], c.config().queues[1]);
  std::printf("%-12s %10s %11s %10s %11s %9s %8s %5s %5s %8s %8s\n", "direction", "sent", "bytes",
              "received", "bytes", "groups", "dropped", "lost", "dup", "corrupt", "refused");
  Totals t;
  for (int d = 0; d < soak::kDirections; ++d) {
    const soak::DirectionBook& b = ledger.directions[d];
    std::printf("%-12s %10u %11s %10u %11s %9u %8u %5u %5u %8u %8u\n", directionName(d).c_str(),
                b.sentMessages.load(), mib(b.sentBytes.value()).c_str(), b.receivedMessages.load(),
                mib(b.receivedBytes.value()).c_str(), b.delivered.load(), b.dropped.load(),
                b.lost.load(), b.duplicated.load(), b.corrupted.load(), refusedTotal(b));
    t.lost += b.lost.load();
    t.duplicated += b.duplicated.load();
    t.corrupted += b.corrupted.load();
    t.dropped += b.dropped.load();
    t.delivered += b.delivered.load();
  }
  std::printf("\nrefused sends (the same message sent again): ");
  bool any = false;
  for (int code = 1; code < soak::kResultCodes; ++code) {
    uint32_t n = 0;
    for (const auto& b : ledger.directions) n += b.refused[code].load();
    if (n == 0) continue;
    std::printf("%s%u x %d (%s)", any ? ", " : "", n, -code, conflink::QueueResultText(-code));
    any = true;
  }
  std::printf("%s\n", any ? "" : "none");
  std::printf(
      "dropped: groups in flight when a party died, which the delivery rules let go: a killed\n"
      "  receiver takes with it what it had taken or held (every group sent to it before it was\n"
      "  reaped is excused); a killed sender's unread messages reach a peer that was attached\n"
      "  when it died (only the group it was sending is excused) and are discarded otherwise\n"
      "  (all its groups are excused). Every other group had to arrive: missing ones are lost\n");

  const int kills = c.record(0).kills + c.record(1).kills;
  std::printf("\nrestarts survived: %d (A killed %d times, B %d times)\n", kills, c.record(0).kills,
              c.record(1).kills);
  memoryOk = true;
  std::printf(
      "memory (VmHWM, KiB; judged for incarnations that lived >= %ld s: growth after a %d "
      "ms warm-up within %.0f%% + %u KiB):\n",
      kJudgedLifeMs / 1000, soak::kWarmUpMs, kGrowthShare * 100, kGrowthSlackKiB);
  for (int side = 0; side < soak::kSides; ++side) {
    const SideRecord& r = c.record(side);
    const Life& l = r.longest;
    std::printf(
        "  party %s: longest life %.1f s: %u after warm-up, %u at its end, growth %ld "
        "(bound %u); %d judged, %d grew\n",
        sideName(side), l.ms / 1000.0, l.warmKiB, l.endKiB, l.growthKiB(), l.boundKiB(), r.judged,
        r.grew);
    if (r.grew > 0) memoryOk = false;
    for (const std::string& note : r.notes) std::printf("    %s\n", note.c_str());
  }
  std::printf("  controller: %u at start, %u at end; largest party max RSS %ld\n", ownWarmKiB,
              ownEndKiB, childrenMaxRssKiB);
  const long ownGrowth = static_cast<long>(ownEndKiB) - static_cast<long>(ownWarmKiB);
  if (kMemoryJudged && ownGrowth > static_cast<long>(ownWarmKiB * kGrowthShare + kGrowthSlackKiB)) {
    memoryOk = false;
  }
  if (!kMemoryJudged) {
    std::printf("  (not judged in this build: AddressSanitizer's quarantine holds freed memory)\n");
  }
  std::printf(
      "\nlost %llu, duplicated %llu, corrupted %llu; delivered %llu groups, dropped %llu\n",
      static_cast<unsigned long long>(t.lost), static_cast<unsigned long long>(t.duplicated),
      static_cast<unsigned long long>(t.corrupted), static_cast<unsigned long long>(t.delivered),
      static_cast<unsigned long long>(t.dropped));
  return t;
}

void writeJson(const std::string& path, const Options& o, const Controller& c,
               const soak::Ledger& ledger, const Totals& t, uint32_t ownWarmKiB, uint32_t ownEndKiB,
               bool pass) {
  conflink::bench::JsonWriter j;
  j.beginObject();
  j.member("seconds", c.seconds());
  j.member("seed", std::to_string(o.seed));
  j.member("kill_every_ms", static_cast<double>(o.killEveryMs));
  j.key("directions").beginArray();
  for (int d = 0; d < soak::kDirections; ++d) {
    const soak::DirectionBook& b = ledger.directions[d];
    j.beginObject();
    j.member("link", soak::LinkName(d / 2));
    j.member("from", sideName(d % 2));
    j.member("sent_messages", static_cast<double>(b.sentMessages.load()));
    j.member("sent_bytes", static_cast<double>(b.sentBytes.value()));
    j.member("received_messages", static_cast<double>(b.receivedMessages.load()));
    j.member("received_bytes", static_cast<double>(b.receivedBytes.value()));
    j.member("groups_delivered", static_cast<double>(b.delivered.load()));
    j.member("dropped", static_cast<double>(b.dropped.load()));
    j.member("lost", static_cast<double>(b.lost.load()));
    j.member("duplicated", static_cast<double>(b.duplicated.load()));
    j.member("corrupted", static_cast<double>(b.corrupted.load()));
    j.member("refused_sends", static_cast<double>(refusedTotal(b)));
    j.member("peer_events", static_cast<double>(b.peerEvents.load()));
    j.endObject();
  }
  j.endArray();
  j.key("parties").beginArray();
  for (int side = 0; side < soak::kSides; ++side) {
    const SideRecord& r = c.record(side);
    j.beginObject();
    j.member("side", sideName(side));
    j.member("killed", r.kills);
    j.member("failures", r.failures);
    j.member("longest_life_s", r.longest.ms / 1000.0);
    j.member("vmhwm_warm_kib", static_cast<double>(r.longest.warmKiB));
    j.member("vmhwm_end_kib", static_cast<double>(r.longest.endKiB));
    j.member("growth_kib", static_cast<double>(r.longest.growthKiB()));
    j.member("incarnations_judged", r.judged);
    j.member("incarnations_grown", r.grew);
    j.endObject();
  }
  j.endArray();
  j.member("restarts", c.record(0).kills + c.record(1).kills);
  j.member("controller_vmhwm_start_kib", static_cast<double>(ownWarmKiB));
  j.member("controller_vmhwm_end_kib", static_cast<double>(ownEndKiB));
  j.member("lost", static_cast<double>(t.lost));
  j.member("duplicated", static_cast<double>(t.duplicated));
  j.member("corrupted", static_cast<double>(t.corrupted));
  j.member("dropped", static_cast<double>(t.dropped));
  j.member("pass", pass);
  j.endObject();
  if (!j.save(path)) std::fprintf(stderr, "conflink_soak: cannot write %s\n", path.c_str());
}

}  // namespace

int main(int argc, char** argv) {
  Options o;
  if (!parse(argc, argv, o)) {
    usage();
    return 2;
  }
  if (!o.seedGiven) {
    o.seed = static_cast<uint64_t>(Clock::now().time_since_epoch().count()) ^
             (static_cast<uint64_t>(getpid()) << 32);
  }
  soak::Ledger* ledger = soak::MapLedger();
  if (ledger == nullptr) {
    std::perror("conflink_soak: shared books");
    return 3;
  }
  struct sigaction interrupt {};
  interrupt.sa_handler = onInterrupt;
  sigaction(SIGINT, &interrupt, nullptr);
  sigaction(SIGTERM, &interrupt, nullptr);
  struct sigaction watchdog {};
  watchdog.sa_handler = onWatchdog;
  sigaction(SIGALRM, &watchdog, nullptr);
  alarm(static_cast<unsigned>(o.seconds + soak::kDrainSeconds * 2 + 60));

  const uint32_t ownWarmKiB = soak::PeakMemoryKiB();
  int code = 0;
  bool pass = false;
  {
    Controller controller(o, *ledger);
    code = controller.run();
    alarm(0);
    const uint32_t ownEndKiB = soak::PeakMemoryKiB();
    rusage children{};
    getrusage(RUSAGE_CHILDREN, &children);
    bool memoryOk = true;
    const Totals t = report(o, controller, *ledger, ownWarmKiB, ownEndKiB,
                            static_cast<long>(children.ru_maxrss), memoryOk);
    const bool partiesOk = controller.record(0).failures == 0 && controller.record(1).failures == 0;
    pass = code == 0 && t.lost == 0 && t.duplicated == 0 && t.corrupted == 0 && memoryOk &&
           partiesOk && t.delivered > 0;
    if (!o.json.empty()) writeJson(o.json, o, controller, *ledger, t, ownWarmKiB, ownEndKiB, pass);
    std::printf("%s\n", pass ? "PASS" : code == 3 ? "INTERRUPTED" : "FAIL");
  }
  soak::UnmapLedger(ledger);
  if (code != 0) return code;
  return pass ? 0 : 1;
}
