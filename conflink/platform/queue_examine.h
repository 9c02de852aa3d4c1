// Looking at queues from outside: listing the queue objects of the calling user, reading one
// object's state without taking part in it, and removing a stuck one. For operators' tools.
//
// An inspection opens the object read-only and maps it read-only; it never writes a word and
// never takes a place lock, so the parties see no peer. While it reads, it holds a shared lock on
// the bookkeeping byte (see queue_attachment.h), which keeps a party from attaching, leaving or
// re-initialising the object under it for those microseconds: a party attaching meanwhile waits
// that long, nothing else changes for it. Every word is checked before it is used, and nothing
// outside the mapping is read, whatever the object holds.
//
// Nothing here throws (std::bad_alloc aside); failures are a false result and a text.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace conflink::queue {

// Where the system shows its POSIX shared-memory objects as files.
constexpr const char* kSharedMemoryDirectory = "/dev/shm";

// The parts of a queue object's name, as QueueObjectName composes it:
// "/conflink.<uid>.<readable key>.<hash>.<queue number>".
struct QueueNameParts {
  std::uint32_t uid = 0;
  std::string key;  // the key path as made readable: at most 64 bytes of [A-Za-z0-9_-]
  std::uint64_t hash = 0;
  int queueNumber = 0;
};

// Whether `name` (with or without its leading '/') is a queue object's name, of any user. Numbers
// must be written as QueueObjectName writes them: decimal, no sign but a '-' on a negative queue
// number, no leading zeros, in range; the hash is exactly 16 lower-case hex digits.
bool ParseQueueObjectName(const std::string& name, QueueNameParts& parts);

// The object name an operator means by `text`: an object name with or without its leading '/',
// or a path under kSharedMemoryDirectory. False (and `error`) when it is no queue object's name.
bool ResolveQueueObjectName(const std::string& text, std::string& objectName, std::string& error);

struct ListedQueue {
  std::string objectName;  // with the leading '/', as shm_open takes it
  QueueNameParts parts;
  std::uint64_t objectBytes = 0;
};

// The queue objects of the calling user (their names carry its effective user id and it owns
// them), sorted by key, then queue number.
bool ListQueues(std::vector<ListedQueue>& queues, std::string& error);

// One place of a queue, as its words and its lock say.
struct PlaceReport {
  std::uint32_t attachWord = 0;
  bool attached = false;  // the attach word says a process holds the place
  std::uint32_t generation = 0;
  bool alive = false;         // the kernel holds the place's lock for some open of the object
  std::uint32_t waiting = 0;  // 0 awake; else what it sleeps for, and whether it was rung
  std::uint32_t bell = 0;
  bool sleeping() const { return waiting != 0; }
};

// One ring: ring r carries what the party in place r sends to the party in place 1 - r.
struct RingReport {
  std::uint32_t head = 0;
  std::uint32_t tail = 0;
  bool indicesValid = false;       // both indices in range and at most a ring apart
  std::uint32_t pendingBytes = 0;  // published and not yet taken, record headers included
  std::uint32_t freeBytes = 0;
  std::uint32_t pendingRecords = 0;   // records between tail and head
  std::uint32_t pendingMessages = 0;  // of them, the records that end a message
  bool walkComplete = false;          // every pending record was read and found well-formed
  std::uint32_t messageSeq = 0;       // number of the message most recently started
  std::uint32_t abandonedSeq = 0;     // number of the message most recently given up
  std::uint32_t epochStart = 0;       // head when the current producer attached
  // Messages for a process that has left: still queued (the consumer's successor will drop
  // them), refused by the producer at send time, and dropped on arrival by the consumer.
  std::uint32_t pendingForDeparted = 0;
  std::uint32_t refused = 0;
  std::uint32_t discarded = 0;
};

struct QueueReport {
  std::string objectName;
  bool nameParsed = false;
  QueueNameParts parts;
  std::uint64_t objectBytes = 0;
  std::uint32_t ownerUid = 0;
  std::uint32_t mode = 0;
  // From the header; valid only when InspectQueue returned true.
  std::uint32_t version = 0;
  std::uint32_t capacity = 0;
  std::uint32_t segmentBytes = 0;
  // Places are read from their lock bytes whatever the object holds; their words only from an
  // object whose header is valid.
  PlaceReport place[2];
  RingReport ring[2];
  // Inconsistencies found in a queue whose header is valid, one sentence each.
  std::vector<std::string> findings;
};

// Reads the state of the queue object `objectName` (as shm_open takes it). Returns false with
// `error` when the object cannot be opened or is not a queue (wrong magic or version, a capacity
// out of range, a size that disagrees with its header, truncated); `report` then holds what could
// be learnt (size, owner, place locks). Damaged indices and records are findings, not errors.
bool InspectQueue(const std::string& objectName, QueueReport& report, std::string& error);
// The same for queue `queueNumber` under `keyPath`, named by QueueObjectName.
bool InspectQueue(int queueNumber, const char* keyPath, QueueReport& report, std::string& error);

struct RemoveOutcome {
  bool livePlace[2] = {false, false};  // places whose lock was held when the object was removed
};

// Removes the queue object `objectName`. Refused while a live party holds one of its places, or
// while the bookkeeping lock stays taken, unless `force`: a party that still has it keeps using
// the removed object, and a newcomer creates a new one, so the two no longer meet. Only names of
// queue objects are accepted, so that a mistyped name removes nothing else.
bool RemoveQueue(const std::string& objectName, bool force, RemoveOutcome& outcome,
                 std::string& error);

}  // namespace conflink::queue
