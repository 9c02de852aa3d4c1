#include <conflink/platform/queue_examine.h>

#include <dirent.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <thread>

#include <conflink/platform/cyclic_message_queue.h>
#include <conflink/platform/queue_layout.h>
#include <conflink/platform/queue_locks.h>
#include <conflink/platform/queue_object_file.h>
#include <conflink/platform/queue_ring.h>
#include <conflink/platform/queue_wait.h>

namespace conflink::queue {
namespace {

// How long an inspection or removal waits for a party to finish attaching or leaving.
constexpr int kBookkeepingWaitMs = 1000;
// Records counted per ring at most, so that an inspection holding the bookkeeping lock stays
// short even on a huge ring full of empty messages.
constexpr std::uint32_t kWalkLimit = 1u << 20;

const char kNamePrefix[] = "conflink.";

std::string SystemError(const std::string& what) {
  return what + ": " + std::strerror(errno);
}

std::string Hex32(std::uint32_t v) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%08x", static_cast<unsigned>(v));
  return text;
}

// A decimal number as QueueObjectName writes it: digits only, no leading zero unless it is "0".
bool ParseDecimal(const std::string& text, std::uint64_t max, std::uint64_t& value) {
  if (text.empty() || text.size() > 20 || (text.size() > 1 && text[0] == '0')) return false;
  value = 0;
  for (char c : text) {
    if (c < '0' || c > '9') return false;
    const auto digit = static_cast<std::uint64_t>(c - '0');
    if (value > (max - digit) / 10) return false;
    value = value * 10 + digit;
  }
  return true;
}

bool ParseHash(const std::string& text, std::uint64_t& value) {
  if (text.size() != 16) return false;
  value = 0;
  for (char c : text) {
    std::uint64_t digit = 0;
    if (c >= '0' && c <= '9') {
      digit = static_cast<std::uint64_t>(c - '0');
    } else if (c >= 'a' && c <= 'f') {
      digit = static_cast<std::uint64_t>(c - 'a' + 10);
    } else {
      return false;
    }
    value = (value << 4) | digit;
  }
  return true;
}

bool ReadableKey(const std::string& key) {
  if (key.size() > 64) return false;
  for (char c : key) {
    const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                       c == '-' || c == '_';
    if (!plain) return false;
  }
  return true;
}

// A descriptor closed when it goes.
class Descriptor {
 public:
  explicit Descriptor(int fd) : fd_(fd) {}
  ~Descriptor() {
    if (fd_ >= 0) close(fd_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int get() const { return fd_; }

 private:
  int fd_;
};

// A read-only mapping removed when it goes.
class Mapping {
 public:
  Mapping() = default;
  ~Mapping() {
    if (base_ != nullptr) munmap(base_, bytes_);
  }
  Mapping(const Mapping&) = delete;
  Mapping& operator=(const Mapping&) = delete;
  bool Map(int fd, std::size_t bytes) {
    void* p = mmap(nullptr, bytes, PROT_READ, MAP_SHARED, fd, 0);
    if (p == MAP_FAILED) return false;
    base_ = p;
    bytes_ = bytes;
    return true;
  }
  const unsigned char* bytes() const { return static_cast<const unsigned char*>(base_); }

 private:
  void* base_ = nullptr;
  std::size_t bytes_ = 0;
};

// A shared lock on the bookkeeping byte for as long as it lives. Parties take that byte
// exclusively to attach, leave or re-initialise the object, so while it is held the object keeps
// its size and its places keep their holders; it is no place lock, so no party sees a peer in it.
class BookkeepingHold {
 public:
  explicit BookkeepingHold(int fd) : fd_(fd) {
    const auto deadline =
        std::chrono::steady_clock::now() + std::chrono::milliseconds(kBookkeepingWaitMs);
    for (;;) {
      if (Set(F_RDLCK)) {
        held_ = true;
        return;
      }
      if (errno != EAGAIN && errno != EACCES && errno != EINTR) return;
      if (std::chrono::steady_clock::now() >= deadline) return;
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  }
  ~BookkeepingHold() {
    if (held_) Set(F_UNLCK);
  }
  BookkeepingHold(const BookkeepingHold&) = delete;
  BookkeepingHold& operator=(const BookkeepingHold&) = delete;
  bool held() const { return held_; }

 private:
  bool Set(short type) { return SetByteLock(fd_, type, kBookkeepingLockByte); }
  int fd_;
  bool held_ = false;
};

// Whether another open of the object holds the lock of `place`, asked as the parties ask it.
// When the kernel cannot say, the place counts as held (so that a removal is refused) and `why`
// says so.
bool PlaceHeld(int fd, int place, std::string& why) {
  bool failed = false;
  const bool held = ByteLockHeldElsewhere(fd, PlaceLockByte(place), &failed);
  if (failed) {
    why = SystemError("cannot ask the kernel about the lock of place " + std::to_string(place));
  }
  return held;
}

std::string Place(int p) {
  return "place " + std::to_string(p);
}
std::string Ring(int r) {
  return "ring " + std::to_string(r) + " (place " + std::to_string(r) + " to place " +
         std::to_string(1 - r) + ")";
}

// Reads ring r's indices and counts its pending records. Every index is checked before it is
// used and records are read through RingBytes, which stays within the ring.
void ReadRing(const Segment& seg, const unsigned char* base, std::uint32_t capacity, int r,
              const PlaceReport& consumerPlace, RingReport& out,
              std::vector<std::string>& findings) {
  const RingIndex index(capacity);
  out.head = seg.producer[r].head.load(std::memory_order_acquire);
  out.tail = seg.consumer[r].tail.load(std::memory_order_acquire);
  out.messageSeq = seg.producer[r].messageSeq.load(std::memory_order_relaxed);
  out.abandonedSeq = seg.producer[r].abandonedSeq.load(std::memory_order_relaxed);
  out.epochStart = seg.producer[r].epochStart.load(std::memory_order_relaxed);
  out.refused = seg.producer[r].refused.load(std::memory_order_relaxed);
  out.discarded = seg.consumer[r].discarded.load(std::memory_order_relaxed);
  const std::string span = "[0, " + std::to_string(2ull * capacity) + ")";
  if (!index.Valid(out.head))
    findings.push_back(Ring(r) + ": head " + std::to_string(out.head) + " is outside " + span);
  if (!index.Valid(out.tail))
    findings.push_back(Ring(r) + ": tail " + std::to_string(out.tail) + " is outside " + span);
  if (!index.Valid(out.epochStart))
    findings.push_back(Ring(r) + ": epoch start " + std::to_string(out.epochStart) +
                       " is outside " + span);
  if (!index.Valid(out.head) || !index.Valid(out.tail)) return;
  const std::uint32_t used = index.Distance(out.tail, out.head);
  if (used > capacity) {
    findings.push_back(Ring(r) + ": head " + std::to_string(out.head) + " is " +
                       std::to_string(used) + " bytes ahead of tail " + std::to_string(out.tail) +
                       ", more than the capacity of " + std::to_string(capacity));
    return;
  }
  out.indicesValid = true;
  out.pendingBytes = used;
  out.freeBytes = capacity - used;

  // The records between tail and head do not change until the consumer moves the tail, so a
  // record that reads badly is a finding only if the tail stayed where it was meanwhile.
  const RingBytes ring(const_cast<unsigned char*>(base) + RingOffset(capacity, r), capacity);
  std::uint32_t at = out.tail;
  std::uint32_t left = used;
  while (left > 0) {
    if (out.pendingRecords == kWalkLimit) {
      findings.push_back(Ring(r) + ": stopped counting after " + std::to_string(kWalkLimit) +
                         " records");
      return;
    }
    RecordHeader header{};
    const RecordFault fault = ring.ReadHeader(at, left, header);
    if (fault != RecordFault::kNone) {
      if (seg.consumer[r].tail.load(std::memory_order_acquire) == out.tail)
        findings.push_back(Ring(r) + ": record at index " + std::to_string(at) + ", " +
                           std::to_string(index.Distance(out.tail, at)) +
                           " bytes past the tail: " + RecordFaultText(fault));
      return;
    }
    ++out.pendingRecords;
    if ((header.marker & kRecordLast) != 0) ++out.pendingMessages;
    // A message for a process that is no longer in the consumer's place (see RecordHeader::to).
    if ((header.marker & kRecordFirst) != 0 && header.to != kAnyPeer &&
        !(consumerPlace.alive && consumerPlace.generation == header.to))
      ++out.pendingForDeparted;
    const std::uint32_t size = kRecordHeaderBytes + header.length;
    at = index.Advance(at, size);
    left -= size;
  }
  out.walkComplete = true;
}

void ReadPlaces(const Segment& seg, QueueReport& report) {
  for (int p = 0; p < 2; ++p) {
    PlaceReport& place = report.place[p];
    place.attachWord = seg.party[p].attach.load(std::memory_order_acquire);
    place.attached = Attached(place.attachWord);
    place.generation = Generation(place.attachWord);
    place.waiting = seg.party[p].waiting.load(std::memory_order_relaxed);
    place.bell = seg.party[p].bell.load(std::memory_order_relaxed);
    if (place.attached && !place.alive)
      report.findings.push_back(Place(p) + ": attached (generation " +
                                std::to_string(place.generation) +
                                ") but nobody holds its lock: its holder ended without leaving; "
                                "the next party to open the queue takes the place over");
    if (!place.attached && place.alive)
      report.findings.push_back(Place(p) +
                                ": its lock is held but its attach word says free: a party is "
                                "attaching or leaving, or the word was overwritten");
    if (place.waiting > (kWaitForData | kWaitForRoom | kWaitRung) || place.waiting == kWaitRung)
      report.findings.push_back(Place(p) + ": waiting word " + std::to_string(place.waiting) +
                                " is not a value a party writes");
  }
}

// Checks the header against the object's real size. Fills what it reads into `report`.
bool CheckHeader(const SegmentHeader& header, QueueReport& report, std::string& error) {
  const std::uint32_t magic = header.magic.load(std::memory_order_acquire);
  report.version = header.version.load(std::memory_order_relaxed);
  report.capacity = header.capacity.load(std::memory_order_relaxed);
  report.segmentBytes = header.segmentBytes.load(std::memory_order_relaxed);
  const std::string name = report.objectName;
  if (magic != kLayoutMagic) {
    error = name + " is not a queue: magic " + Hex32(magic) + " where a queue has " +
            Hex32(kLayoutMagic) + " (or its creator died before finishing it)";
    return false;
  }
  if (report.version != kLayoutVersion) {
    error = name + " has layout version " + std::to_string(report.version) +
            ", this build reads version " + std::to_string(kLayoutVersion);
    return false;
  }
  if (report.capacity < kMinQueueCapacity || report.capacity > kMaxQueueCapacity) {
    error = name + " has capacity " + std::to_string(report.capacity) + ", outside [" +
            std::to_string(kMinQueueCapacity) + ", " + std::to_string(kMaxQueueCapacity) + "]";
    return false;
  }
  const std::uint64_t needed = SegmentBytes(report.capacity);
  if (report.segmentBytes != needed) {
    error = name + "'s header gives its size as " + std::to_string(report.segmentBytes) +
            " bytes, but a capacity of " + std::to_string(report.capacity) + " needs " +
            std::to_string(needed);
    return false;
  }
  if (report.objectBytes < needed) {
    error = name + " is truncated: a capacity of " + std::to_string(report.capacity) + " needs " +
            std::to_string(needed) + " bytes, the object has " + std::to_string(report.objectBytes);
    return false;
  }
  if (report.objectBytes > needed) {
    error = name + " is " + std::to_string(report.objectBytes) + " bytes, its header says " +
            std::to_string(needed);
    return false;
  }
  return true;
}

}  // namespace

bool ParseQueueObjectName(const std::string& name, QueueNameParts& parts) {
  std::string rest = !name.empty() && name[0] == '/' ? name.substr(1) : name;
  if (rest.compare(0, sizeof kNamePrefix - 1, kNamePrefix) != 0) return false;
  rest.erase(0, sizeof kNamePrefix - 1);
  std::vector<std::string> fields;
  for (std::size_t start = 0;;) {
    const std::size_t dot = rest.find('.', start);
    fields.push_back(rest.substr(start, dot == std::string::npos ? dot : dot - start));
    if (dot == std::string::npos) break;
    start = dot + 1;
  }
  if (fields.size() != 4) return false;
  QueueNameParts out;
  std::uint64_t uid = 0;
  if (!ParseDecimal(fields[0], 0xffffffffull, uid) || !ReadableKey(fields[1]) ||
      !ParseHash(fields[2], out.hash))
    return false;
  const std::string& number = fields[3];
  const bool negative = !number.empty() && number[0] == '-';
  std::uint64_t magnitude = 0;
  if (!ParseDecimal(negative ? number.substr(1) : number, negative ? 0x80000000ull : 0x7fffffffull,
                    magnitude) ||
      (negative && magnitude == 0))
    return false;
  out.uid = static_cast<std::uint32_t>(uid);
  out.key = fields[1];
  out.queueNumber = negative ? static_cast<int>(-static_cast<std::int64_t>(magnitude))
                             : static_cast<int>(magnitude);
  parts = out;
  return true;
}

bool ResolveQueueObjectName(const std::string& text, std::string& objectName, std::string& error) {
  const std::string directory = std::string(kSharedMemoryDirectory) + "/";
  const std::string name =
      text.compare(0, directory.size(), directory) == 0 ? text.substr(directory.size()) : text;
  QueueNameParts parts;
  if (!ParseQueueObjectName(name, parts)) {
    error = "'" + text +
            "' is not the name of a queue object (/conflink.<uid>.<key>.<16 hex digits>.<number>)";
    return false;
  }
  objectName = name[0] == '/' ? name : "/" + name;
  return true;
}

bool ListQueues(std::vector<ListedQueue>& queues, std::string& error) {
  queues.clear();
  DIR* dir = opendir(kSharedMemoryDirectory);
  if (dir == nullptr) {
    error = SystemError(std::string("cannot read ") + kSharedMemoryDirectory);
    return false;
  }
  const auto euid = static_cast<std::uint32_t>(geteuid());
  while (const dirent* entry = readdir(dir)) {
    ListedQueue q;
    if (!ParseQueueObjectName(entry->d_name, q.parts) || q.parts.uid != euid) continue;
    struct stat st {};
    if (fstatat(dirfd(dir), entry->d_name, &st, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISREG(st.st_mode) ||
        static_cast<std::uint32_t>(st.st_uid) != euid)
      continue;
    q.objectName = std::string("/") + entry->d_name;
    q.objectBytes = st.st_size > 0 ? static_cast<std::uint64_t>(st.st_size) : 0;
    queues.push_back(std::move(q));
  }
  closedir(dir);
  std::sort(queues.begin(), queues.end(), [](const ListedQueue& a, const ListedQueue& b) {
    if (a.parts.key != b.parts.key) return a.parts.key < b.parts.key;
    if (a.parts.queueNumber != b.parts.queueNumber)
      return a.parts.queueNumber < b.parts.queueNumber;
    return a.objectName < b.objectName;
  });
  return true;
}

bool InspectQueue(const std::string& objectName, QueueReport& report, std::string& error) {
  report = QueueReport{};
  report.objectName = objectName;
  report.nameParsed = ParseQueueObjectName(objectName, report.parts);
  struct stat st {};
  const Descriptor fd(OpenQueueObject(objectName, O_RDONLY, 0, Ownership::kAny, st, error));
  if (fd.get() < 0) return false;
  const BookkeepingHold hold(fd.get());
  if (!hold.held())
    report.findings.push_back("the bookkeeping lock stayed taken for " +
                              std::to_string(kBookkeepingWaitMs) +
                              " ms: a party is stuck attaching or leaving, and what follows may "
                              "change while it is read");
  if (fstat(fd.get(), &st) != 0) {
    error = SystemError("cannot inspect " + objectName);
    return false;
  }
  report.objectBytes = st.st_size > 0 ? static_cast<std::uint64_t>(st.st_size) : 0;
  report.ownerUid = static_cast<std::uint32_t>(st.st_uid);
  report.mode = static_cast<std::uint32_t>(st.st_mode & 07777);
  if (report.ownerUid != static_cast<std::uint32_t>(geteuid()) || (report.mode & 0077) != 0)
    report.findings.push_back("the object belongs to user " + std::to_string(report.ownerUid) +
                              " with mode " + std::to_string(report.mode >> 6 & 7) +
                              std::to_string(report.mode >> 3 & 7) +
                              std::to_string(report.mode & 7) +
                              ": parties refuse an object of another user or open to others");
  for (int p = 0; p < 2; ++p) {
    std::string why;
    report.place[p].alive = PlaceHeld(fd.get(), p, why);
    if (!why.empty()) report.findings.push_back(why);
  }

  if (report.objectBytes == 0) {
    error = objectName + " is empty: not a queue, or its creator died before sizing it";
    return false;
  }
  if (report.objectBytes < sizeof(Segment)) {
    error = objectName + " is truncated: " + std::to_string(report.objectBytes) +
            " bytes, fewer than the " + std::to_string(sizeof(Segment)) +
            " of a queue's header and control blocks";
    return false;
  }
  if (report.objectBytes > SegmentBytes(kMaxQueueCapacity)) {
    error =
        objectName + " is " + std::to_string(report.objectBytes) + " bytes, larger than any queue";
    return false;
  }
  Mapping mapping;
  if (!mapping.Map(fd.get(), static_cast<std::size_t>(report.objectBytes))) {
    error = SystemError("cannot map " + objectName);
    return false;
  }
  const auto& seg = *reinterpret_cast<const Segment*>(mapping.bytes());
  if (!CheckHeader(seg.header, report, error)) return false;
  ReadPlaces(seg, report);
  for (int r = 0; r < 2; ++r) {
    RingReport& ring = report.ring[r];
    ReadRing(seg, mapping.bytes(), report.capacity, r, report.place[1 - r], ring, report.findings);
    if (ring.pendingForDeparted > 0)
      report.findings.push_back(
          Ring(r) + ": " + std::to_string(ring.pendingForDeparted) +
          " message(s) queued for a process that has left place " + std::to_string(1 - r) +
          "; they are dropped on arrival, never delivered to whoever takes the place");
  }
  if (!report.place[0].alive && !report.place[1].alive) {
    for (int r = 0; r < 2; ++r) {
      const RingReport& ring = report.ring[r];
      if (ring.pendingBytes == 0) continue;
      report.findings.push_back(
          "ring " + std::to_string(r) + ": " + std::to_string(ring.pendingMessages) +
          " messages (" + std::to_string(ring.pendingBytes) +
          " bytes) left by parties that have gone; with nobody attached they can reach no one "
          "and are discarded when the queue is next opened");
    }
  }
  return true;
}

bool InspectQueue(int queueNumber, const char* keyPath, QueueReport& report, std::string& error) {
  return InspectQueue(QueueObjectName(queueNumber, keyPath), report, error);
}

bool RemoveQueue(const std::string& objectName, bool force, RemoveOutcome& outcome,
                 std::string& error) {
  outcome = RemoveOutcome{};
  std::string name;
  if (!ResolveQueueObjectName(objectName, name, error)) return false;
  struct stat st {};
  const Descriptor fd(OpenQueueObject(name, O_RDONLY, 0, Ownership::kAny, st, error));
  if (fd.get() < 0) {
    // Whatever was planted under a queue's name can still be taken away by force.
    if (!force || errno == ENOENT) return false;
    if (shm_unlink(name.c_str()) != 0) {
      error = SystemError("cannot remove " + name);
      return false;
    }
    return true;
  }
  // Held until the object is gone, so that no party attaches between the look and the removal.
  const BookkeepingHold hold(fd.get());
  if (!hold.held() && !force) {
    error = "the bookkeeping lock of " + name + " stayed taken for " +
            std::to_string(kBookkeepingWaitMs) +
            " ms (a party is stuck attaching or leaving); not removed";
    return false;
  }
  std::string live;
  for (int p = 0; p < 2; ++p) {
    std::string why;
    outcome.livePlace[p] = PlaceHeld(fd.get(), p, why);
    if (outcome.livePlace[p]) live += (live.empty() ? "" : " and ") + std::to_string(p);
  }
  if (!live.empty() && !force) {
    error = name + " is held by a live party (" + (live.size() > 1 ? "places " : "place ") + live +
            "); not removed";
    return false;
  }
  if (shm_unlink(name.c_str()) != 0) {
    error = SystemError("cannot remove " + name);
    return false;
  }
  return true;
}

}  // namespace conflink::queue
