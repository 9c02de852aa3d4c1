// ipc_bench: the shared-memory queue against the kernel's own transports, between two processes
// of this machine, and the messengers' own path over the queue.
//
//   ipc_bench [--quick] [--round-trips N] [--only TEXT] [--load N] [--json FILE]
//
// Beside them run the libraries a user would pick instead (ZeroMQ, Boost.Interprocess, iceoryx,
// see ipc_peers.h); a row whose library was not built or cannot run here is listed as skipped.
//
// Prints one table (round-trip median and 99th percentile of a 64-byte message, one-way
// throughput of 64-byte and 4 KiB messages, the rate at which one 4 MiB message moves), each
// figure with its ratio to the Unix socket's, then the queue's goals, met or missed. With --load N,
// N CPU-bound processes run beside the parties for the whole measurement. Exits 1 when a
// transport failed to deliver what it was sent, 2 on a bad option, 3 when the watchdog fired, 4
// when the JSON file could not be written.
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <conflink/platform/queue_layout.h>

#include "bench_machine.h"
#include "ipc_load.h"
#include "ipc_measure.h"
#include "ipc_messenger_row.h"
#include "ipc_peers.h"
#include "ipc_process.h"
#include "ipc_report.h"
#include "ipc_report_json.h"
#include "ipc_transport.h"

using namespace conflink::bench;

namespace {

void printUsage(std::FILE* to) {
  std::fprintf(to,
               "usage: ipc_bench [--quick] [--round-trips N] [--only TEXT] [--load N]\n"
               "                 [--json FILE]\n"
               "  --quick           fewer iterations, for a smoke run\n"
               "  --round-trips N   measured round trips per transport (default 100000)\n"
               "  --only TEXT       only the rows whose label contains TEXT (and the unix\n"
               "                    socket, the yardstick); may be given more than once\n"
               "  --load N          run N CPU-bound processes beside the parties while\n"
               "                    measuring (0 to 8; the goals differ with and without)\n"
               "  --json FILE       also write every figure, ratio and goal to FILE\n");
}

// Fewer of everything: a whole run in a few seconds, figures rougher.
Plan quickPlan() {
  Plan plan;
  plan.roundTrips = 10000;
  plan.warmUpRoundTrips = 1000;
  plan.idleRoundTrips = 300;
  plan.smallMessages = 100000;
  plan.pageMessages = 20000;
  plan.bigMessages = 5;
  plan.warmUpBigMessages = 1;
  return plan;
}

struct Options {
  Plan plan;
  std::vector<std::string> only;  // label fragments; empty: every row
  std::string json;               // where to write the figures as JSON; empty: nowhere
  bool quick = false;
  int load = 0;  // CPU-bound processes beside the parties

  bool wanted(const std::string& label) const {
    if (only.empty()) return true;
    for (const std::string& fragment : only)
      if (label.find(fragment) != std::string::npos) return true;
    return false;
  }
};

// False on an option it does not know; --help prints the usage and ends the program.
bool parseOptions(int argc, char** argv, Options& options) {
  Plan& plan = options.plan;
  bool quick = false;
  long roundTrips = -1;
  for (int i = 1; i < argc; ++i) {
    const std::string option = argv[i];
    if (option == "--help" || option == "-h") {
      printUsage(stdout);
      std::exit(0);
    } else if (option == "--quick") {
      quick = true;
    } else if (option == "--round-trips" && i + 1 < argc) {
      char* end = nullptr;
      roundTrips = std::strtol(argv[++i], &end, 10);
      if (*end != '\0' || roundTrips < 1 || roundTrips > 10000000) return false;
    } else if (option == "--load" && i + 1 < argc) {
      char* end = nullptr;
      const long load = std::strtol(argv[++i], &end, 10);
      if (*end != '\0' || load < 0 || load > 8) return false;
      options.load = static_cast<int>(load);
    } else if (option == "--only" && i + 1 < argc) {
      options.only.push_back(argv[++i]);
    } else if (option == "--json" && i + 1 < argc) {
      options.json = argv[++i];
    } else {
      return false;
    }
  }
  options.quick = quick;
  if (quick) plan = quickPlan();
  if (roundTrips > 0) {
    plan.roundTrips = static_cast<int>(roundTrips);
    plan.warmUpRoundTrips = std::max(1000, plan.roundTrips / 10);
  }
  // Generous for a healthy transport (a blocking round trip takes tens of microseconds here),
  // short enough that a stuck one cannot hold the run for long.
  plan.limitSeconds = (quick ? 20 : 40) + static_cast<unsigned>(plan.roundTrips / 5000);
  return true;
}

std::string fileText(const char* path) {
  std::ifstream file(path);
  std::string text;
  return std::getline(file, text) ? text : "unknown";
}

void printSetting(const Plan& plan, int load) {
  utsname system{};
  uname(&system);
  std::printf("ipc_bench: two processes (fork), nothing pinned\n");
  std::printf("  machine      %ld CPUs online, %s, Linux %s\n", sysconf(_SC_NPROCESSORS_ONLN),
              cpuModel().c_str(), system.release);
  std::printf("  load average %s (other work on the machine moves the figures)\n",
              fileText("/proc/loadavg").c_str());
  std::printf("  busy load    %d CPU-bound process%s beside the parties while measuring\n", load,
              load == 1 ? "" : "es");
  std::printf("  round trips  %d of 64 bytes after %d warm-up; median and 99th percentile\n",
              plan.roundTrips, plan.warmUpRoundTrips);
  std::printf(
      "  idle trips   %d round trips, each after %d us of silence (a blocking receiver is\n"
      "               asleep when the message comes: the cost of waking it)\n",
      plan.idleRoundTrips, plan.idleGapUs);
  std::printf(
      "  one-way      %d messages of 64 bytes, %d of 4 KiB (each after a tenth as warm-up)\n",
      plan.smallMessages, plan.pageMessages);
  std::printf("  4 MiB        median of %d messages after %d warm-up, every byte checked\n",
              plan.bigMessages, plan.warmUpBigMessages);
  std::printf(
      "  queue        key path %s, capacity %u bytes (records of at most that, rings of %u bytes\n"
      "               per direction; as the messengers)\n",
      kMessengerKeyPath, kMessengerCapacity, conflink::queue::RingBytesFor(kMessengerCapacity));
  std::printf("  POSIX mq     msgsize_max %s, msg_max %s\n",
              fileText("/proc/sys/fs/mqueue/msgsize_max").c_str(),
              fileText("/proc/sys/fs/mqueue/msg_max").c_str());
  std::printf(
      "  MB = 10^6 bytes, GB = 10^9 bytes; one-way time runs from the first send to the\n"
      "  receiver holding the last message (one clock shared by both processes; for\n"
      "  64 B and 4 KiB, read when the end marker sent after the last message arrives)\n\n");
  std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  if (!parseOptions(argc, argv, options)) {
    printUsage(stderr);
    return 2;
  }
  const Plan& plan = options.plan;
  installWatchdog();
  printSetting(plan, options.load);
  const std::int64_t started = nowNs();
  const std::string loadBefore = fileText("/proc/loadavg");
  // Bounded by the whole run's worst case; stopped as soon as the measurements are done.
  BusyLoad load;
  if (!load.start(options.load, 3600)) {
    std::fprintf(stderr, "ipc_bench: cannot start the busy processes\n");
    return 1;
  }

  // Queue numbers of this run only, far from the small numbers the product's processes use.
  const int queueBase = 1000000000 + static_cast<int>(getpid() % 1000000) * 4;
  struct Planned {
    RowRole role;
    std::function<std::unique_ptr<Transport>()> make;  // null: the messengers' row
  };
  const std::vector<Planned> planned = {
      {RowRole::kBaseline, makeSeqpacketTransport},
      {RowRole::kQueue, [&] { return makeCyclicQueueTransport(queueBase, false); }},
      {RowRole::kQueue, [&] { return makeCyclicQueueTransport(queueBase + 1, true); }},
      {RowRole::kMessengers, nullptr},
      {RowRole::kOther, makePosixQueueTransport},
      {RowRole::kOther, makePipeTransport},
  };

  std::vector<Row> rows;
  for (const Planned& p : planned) {
    Row row;
    row.role = p.role;
    std::unique_ptr<Transport> transport = p.make ? p.make() : nullptr;
    row.label = transport ? transport->name() : messengerRowLabel();
    row.note = transport ? transport->bigMessageNote() : messengerRowNote();
    if (p.role != RowRole::kBaseline && !options.wanted(row.label)) continue;
    std::fprintf(stderr, "measuring %s ...\n", row.label.c_str());
    row.figures =
        transport ? measureTransport(*transport, plan) : measureMessengers(queueBase + 2, plan);
    rows.push_back(std::move(row));
  }
  std::vector<SkippedRow> skipped;
  for (const PeerRow& peer : peerRows()) {
    if (!options.wanted(peer.label)) continue;
    Row row;
    row.role = RowRole::kPeer;
    row.label = peer.label;
    std::string whyNot;
    std::unique_ptr<Transport> transport = peer.make(whyNot);
    if (!transport) {
      std::fprintf(stderr, "skipping %s: %s\n", peer.label.c_str(), whyNot.c_str());
      skipped.push_back({peer.label, whyNot});
      continue;
    }
    row.note = transport->bigMessageNote();
    std::fprintf(stderr, "measuring %s ...\n", row.label.c_str());
    row.figures = measureTransport(*transport, plan);
    rows.push_back(std::move(row));
  }

  load.stop();

  printTable(rows);
  printGoals(rows, options.load);
  printPeerGoals(rows);
  if (!skipped.empty()) std::printf("\n");
  printSkipped(skipped);
  const double seconds = static_cast<double>(nowNs() - started) / 1e9;
  const std::string loadAfter = fileText("/proc/loadavg");
  std::printf("\nwhole run: %.1f s; load average now %s\n", seconds, loadAfter.c_str());
  if (!options.json.empty()) {
    RunSetting setting;
    setting.loadAverageBefore = loadBefore;
    setting.loadAverageAfter = loadAfter;
    setting.buildType = CONFLINK_BENCH_BUILD_TYPE;
    setting.quick = options.quick;
    setting.load = options.load;
    setting.plan = plan;
    setting.seconds = seconds;
    std::string error;
    if (!writeRunJson(options.json, setting, rows, skipped, error)) {
      std::fprintf(stderr, "ipc_bench: %s\n", error.c_str());
      return 4;
    }
  }

  for (const Row& row : rows)
    if (!row.figures.ok) return 1;
  return 0;
}
