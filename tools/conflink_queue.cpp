// conflink_queue: lists the queues of the calling user, shows the state of one, removes a stuck
// one. Reads queues without taking part in them (see queue_examine.h).
//
// Exit status: 0 done, 1 the operation failed (the reason on stderr), 2 bad usage.
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <conflink/platform/cyclic_message_queue.h>
#include <conflink/platform/queue_examine.h>

namespace {

using conflink::queue::InspectQueue;
using conflink::queue::ListedQueue;
using conflink::queue::QueueReport;
using conflink::queue::RemoveOutcome;

constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;
constexpr int kExitFindings = 3;  // inspected, and something in the queue is not as it should be

const char kUsage[] =
    "usage: conflink_queue list\n"
    "       conflink_queue inspect <object-name | number keypath>\n"
    "       conflink_queue remove [--force] <object-name | number keypath>\n"
    "       conflink_queue --help\n";

const char kHelp[] =
    "\n"
    "Lists, inspects and removes the shared-memory queues of the calling user.\n"
    "\n"
    "  list      every queue object of this user, with its capacity, live parties and the\n"
    "            bytes waiting in its rings\n"
    "  inspect   one queue's places (attached, generation, holder alive, asleep) and rings\n"
    "            (head, tail, pending and free bytes, message numbers), and any inconsistency\n"
    "  remove    removes a queue object; refused while a live party holds it, unless --force\n"
    "            (a party that still holds a removed queue no longer meets newcomers)\n"
    "\n"
    "A queue is named by its object name as `list` shows it (the leading '/' may be left out,\n"
    "or given as a path under /dev/shm), or by its queue number and key path, e.g. `7 /bin/ping`.\n"
    "Inspecting never attaches to the queue and writes nothing to it.\n"
    "\n"
    "Exit status: 0 done (for inspect: no inconsistency found); 1 the operation failed (no\n"
    "such queue, a removal refused while a live party holds the queue, an object that cannot\n"
    "be read as a queue), with the reason on standard error; 2 bad usage; 3 inspect found\n"
    "something to report (a dead party still attached, damaged indices or records), listed\n"
    "as findings.\n"
    "\n"
    "  $ conflink_queue inspect 7 /bin/ping\n"
    "  $ conflink_queue remove 7 /bin/ping\n";

int Usage(const std::string& problem) {
  std::fprintf(stderr, "conflink_queue: %s\n%s", problem.c_str(), kUsage);
  return kExitUsage;
}

int Fail(const std::string& problem) {
  std::fprintf(stderr, "conflink_queue: %s\n", problem.c_str());
  return kExitFailed;
}

// Columns padded to their widest cell; cells of numbers are aligned to the right.
class Table {
 public:
  explicit Table(std::vector<std::string> header) { rows_.push_back(std::move(header)); }
  void Add(std::vector<std::string> row) { rows_.push_back(std::move(row)); }
  void Print(const char* indent = "") const {
    std::vector<std::size_t> width;
    for (const auto& row : rows_) {
      if (width.size() < row.size()) width.resize(row.size(), 0);
      for (std::size_t c = 0; c < row.size(); ++c) width[c] = std::max(width[c], row[c].size());
    }
    for (std::size_t r = 0; r < rows_.size(); ++r) {
      std::string line = indent;
      for (std::size_t c = 0; c < rows_[r].size(); ++c) {
        const std::string& cell = rows_[r][c];
        const std::string pad(width[c] - cell.size(), ' ');
        const bool last = c + 1 == rows_[r].size();
        line += r > 0 && Numeric(cell) ? pad + cell : last ? cell : cell + pad;
        if (!last) line += "  ";
      }
      std::printf("%s\n", line.c_str());
    }
  }

 private:
  static bool Numeric(const std::string& cell) {
    return cell.find_first_of("0123456789") != std::string::npos &&
           cell.find_first_not_of("0123456789-") == std::string::npos;
  }
  std::vector<std::vector<std::string>> rows_;
};

std::string Num(std::uint64_t v) {
  return std::to_string(v);
}

// The object named by the operands: one object name, or a queue number and a key path.
bool ObjectFromOperands(const std::vector<std::string>& operands, std::string& objectName,
                        std::string& problem) {
  if (operands.size() == 1)
    return conflink::queue::ResolveQueueObjectName(operands[0], objectName, problem);
  if (operands.size() == 2) {
    const std::string& text = operands[0];
    char* end = nullptr;
    errno = 0;
    const long long number = std::strtoll(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || errno != 0 || number < INT32_MIN || number > INT32_MAX) {
      problem = "'" + text + "' is not a queue number";
      return false;
    }
    objectName = conflink::QueueObjectName(static_cast<int>(number), operands[1].c_str());
    return true;
  }
  problem = operands.empty() ? "name a queue: an object name, or a number and a key path"
                             : "too many operands";
  return false;
}

int List() {
  std::vector<ListedQueue> queues;
  std::string error;
  if (!conflink::queue::ListQueues(queues, error)) return Fail(error);
  if (queues.empty()) {
    std::printf("no queues of user %u under %s\n", static_cast<unsigned>(geteuid()),
                conflink::queue::kSharedMemoryDirectory);
    return 0;
  }
  Table table({"NUMBER", "KEY", "BYTES", "CAPACITY", "LIVE", "PENDING", "STATE", "OBJECT"});
  for (const ListedQueue& q : queues) {
    QueueReport report;
    std::string why;
    const bool ok = InspectQueue(q.objectName, report, why);
    const int live = (report.place[0].alive ? 1 : 0) + (report.place[1].alive ? 1 : 0);
    std::string state = ok ? "ok" : "damaged";
    if (ok && !report.findings.empty())
      state =
          Num(report.findings.size()) + (report.findings.size() == 1 ? " finding" : " findings");
    table.Add({std::to_string(q.parts.queueNumber), q.parts.key.empty() ? "\"\"" : q.parts.key,
               Num(q.objectBytes), ok ? Num(report.capacity) : "-",
               Num(static_cast<std::uint64_t>(live)) + "/2",
               ok ? Num(static_cast<std::uint64_t>(report.ring[0].pendingBytes) +
                        report.ring[1].pendingBytes)
                  : "-",
               state, q.objectName});
  }
  table.Print();
  return 0;
}

std::string YesNo(bool b) {
  return b ? "yes" : "no";
}

// Messages and records of a ring, or what is known of them when the walk stopped short.
std::string Counted(const conflink::queue::RingReport& ring, std::uint32_t n) {
  if (!ring.indicesValid) return "-";
  return ring.walkComplete ? Num(n) : Num(n) + "+?";
}

// "dead" when the place says attached but nobody holds its lock.
std::string Holder(const conflink::queue::PlaceReport& place, bool wordsKnown) {
  if (place.alive) return "alive";
  return wordsKnown && place.attached ? "dead" : "-";
}

void PrintPlaces(const QueueReport& report, bool wordsKnown) {
  Table places({"PLACE", "ATTACHED", "GENERATION", "HOLDER", "ASLEEP"});
  for (int p = 0; p < 2; ++p) {
    const auto& place = report.place[p];
    places.Add({Num(static_cast<std::uint64_t>(p)), wordsKnown ? YesNo(place.attached) : "?",
                wordsKnown ? Num(place.generation) : "?", Holder(place, wordsKnown),
                wordsKnown ? YesNo(place.sleeping()) : "?"});
  }
  places.Print("  ");
}

int Inspect(const std::vector<std::string>& operands) {
  std::string name, problem;
  if (!ObjectFromOperands(operands, name, problem)) return Usage(problem);
  QueueReport report;
  std::string error;
  const bool ok = InspectQueue(name, report, error);
  if (!ok && report.mode == 0) return Fail(error);  // not even opened
  std::printf("object    %s\n", name.c_str());
  if (report.nameParsed)
    std::printf("queue     %d, key %s\n", report.parts.queueNumber,
                report.parts.key.empty() ? "\"\"" : report.parts.key.c_str());
  std::printf("size      %llu bytes, owner %u, mode %04o\n",
              static_cast<unsigned long long>(report.objectBytes),
              static_cast<unsigned>(report.ownerUid), static_cast<unsigned>(report.mode));
  if (!ok) {
    std::printf("\n");
    PrintPlaces(report, false);
    return Fail(error);
  }
  std::printf("capacity  %u bytes per ring, layout version %u\n\n",
              static_cast<unsigned>(report.capacity), static_cast<unsigned>(report.version));
  PrintPlaces(report, true);
  std::printf("\n");
  Table rings({"RING", "FROM", "TO", "HEAD", "TAIL", "PENDING", "FREE", "MESSAGES", "RECORDS",
               "LAST SEQ", "ABANDONED SEQ", "FOR GONE", "REFUSED", "DROPPED"});
  for (int r = 0; r < 2; ++r) {
    const auto& ring = report.ring[r];
    rings.Add({Num(static_cast<std::uint64_t>(r)), "place " + Num(static_cast<std::uint64_t>(r)),
               "place " + Num(static_cast<std::uint64_t>(1 - r)), Num(ring.head), Num(ring.tail),
               ring.indicesValid ? Num(ring.pendingBytes) : "-",
               ring.indicesValid ? Num(ring.freeBytes) : "-", Counted(ring, ring.pendingMessages),
               Counted(ring, ring.pendingRecords), Num(ring.messageSeq), Num(ring.abandonedSeq),
               Counted(ring, ring.pendingForDeparted), Num(ring.refused), Num(ring.discarded)});
  }
  rings.Print("  ");
  if (report.findings.empty()) {
    std::printf("\nno inconsistencies found\n");
  } else {
    std::printf("\nfindings:\n");
    for (const std::string& f : report.findings) std::printf("  - %s\n", f.c_str());
  }
  return report.findings.empty() ? 0 : kExitFindings;
}

int Remove(std::vector<std::string> operands) {
  bool force = false;
  std::vector<std::string> rest;
  for (const std::string& op : operands) {
    if (op == "--force" || op == "-f") {
      force = true;
    } else if (op.size() > 1 && op[0] == '-' && op.find_first_not_of("0123456789", 1) != op.npos) {
      return Usage("unknown option '" + op + "'");
    } else {
      rest.push_back(op);
    }
  }
  std::string name, problem;
  if (!ObjectFromOperands(rest, name, problem)) return Usage(problem);
  RemoveOutcome outcome;
  std::string error;
  if (!conflink::queue::RemoveQueue(name, force, outcome, error)) {
    const bool forceHelps = !force && (outcome.livePlace[0] || outcome.livePlace[1] ||
                                       error.find("bookkeeping lock") != std::string::npos);
    return Fail(error + (forceHelps ? " (--force removes it anyway)" : ""));
  }
  std::printf("removed %s\n", name.c_str());
  for (int p = 0; p < 2; ++p)
    if (outcome.livePlace[p])
      std::printf(
          "note: the party in place %d still holds the removed queue; a newcomer creates "
          "a new one and will not meet it\n",
          p);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> args(argv + 1, argv + argc);
  if (args.empty()) return Usage("no command given");
  const std::string& command = args[0];
  const std::vector<std::string> operands(args.begin() + 1, args.end());
  const bool help = command == "help" || std::any_of(args.begin(), args.end(), [](const auto& a) {
                      return a == "--help" || a == "-h";
                    });
  if (help) {
    std::printf("%s%s", kUsage, kHelp);
    return 0;
  }
  if (command == "list") {
    if (!operands.empty()) return Usage("list takes no operands");
    return List();
  }
  if (command == "inspect") return Inspect(operands);
  if (command == "remove") return Remove(operands);
  return Usage("unknown command '" + command + "'");
}
