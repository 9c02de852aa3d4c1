// The two-party message queue between two processes of one machine.
//
// Both parties construct a queue with the same number, key path and capacity; the pair of them
// then exchange (type, buffer) messages in both directions. The class keeps the declaration and
// the virtual-slot order that the messengers were built against: slot 1 is the destructor, then
// send, blocking receive, non-blocking receive, four operations of our own, is-party-online, two
// more of our own, and is-connected.
//
// How it works, in short (the files named queue_*.h hold the details):
// - The shared state is one POSIX shared-memory object (see QueueObjectName), mode 0600, holding
//   a ring per direction with lock-free 32-bit head and tail words. `capacity` is the largest
//   record (header included); each ring holds sixteen of those (at most 256 MiB), so the
//   messengers' 32 KiB make 512 KiB rings, 1 MiB of shared memory per queue. The object's memory
//   is all taken when it is made: a full /dev/shm is an error at open, never a SIGBUS later.
// - Messages travel as records; one larger than a record travels in fragments and is
//   reassembled; it is delivered whole or not at all.
// - A waiting party spins briefly, only while the peer can answer (it runs on another
//   processor); when the peer is runnable on the party's own processor it yields that processor
//   to it a few times instead; then it sleeps on a futex word of its own, woken by the peer only
//   when it announced a wait for what the peer changed, and always with a timeout.
// - Each party holds a kernel lock on a byte of the object while attached; its release, on close
//   or death, is how the peer learns of a departure.
//
// Delivery rules:
// - A message is for the peer its sender knows: the process at the other place whose arrival
//   the sender received last (and whose departure it has not received). If that process has
//   left, the message is discarded, never delivered to a successor, like data for a closed
//   connection: a send that finds it gone fails with kQueuePeerDeparted (counted in the ring's
//   `refused`), and one that raced with the departure is dropped on arrival by the successor
//   (counted in the ring's `discarded`, see DiscardedMessages; the inspector shows both and what
//   is still queued for a process that left). This holds also when the sender has not yet
//   received the departure: a server answering a page that died never answers the next page.
// - A message sent while its sender knew of no peer (before any arrival was received, or after
//   a departure) waits in the ring for the next process to take the other place, for as long
//   as its sender stays attached (a send that does not fit the free space then fails with
//   kQueuePeerAbsentFull).
// - A message whose sender leaves before any peer took it, or that is still queued when both
//   places become free, is discarded: the last party to leave removes the object, and a party
//   that finds nobody attached makes the object afresh. (Leftovers of parties that crashed stay
//   in the object until then; the inspector reports them.) So a process never receives what a
//   process of its own side sent before it came.
// - The peer's arrival and departure are delivered in order with its messages: everything a
//   departed peer sent arrives before its departure.
//
// What the queue guarantees holds against a peer that crashes, hangs or writes garbage into
// the rings: every failure is a result code, never a stray access. It does not hold against a
// process of the same user that sets out to break it: such a process can open the object,
// shrink it (the parties then die of SIGBUS on their next access, which no check can prevent),
// rewrite its words or remove it. The object is private to the user (mode 0600), not to the
// parties.
//
// One thread at a time may use a queue object; Interrupt() may also be called from another
// thread or a signal handler. The object keeps no threads and installs no signal handlers. A
// queue object inherited by a forked child is inert in the child (reports not connected); the
// child opens its own queue if it wants one.
#pragma once

#include <string>

// Opaque transport hint of the companion library's interface. The messengers always pass null.
class Link;

namespace conflink {

// Results of the queue's operations. Success is positive; every failure has its own non-positive
// code so that a caller (and a log line) can tell why a message did not go.
enum QueueResult : int {
  kQueueOk = 1,               // message sent, or message or queue event received
  kQueueEmpty = 0,            // receive: nothing waiting (or the timed wait ran out)
  kQueueNotConnected = -1,    // the queue could not be opened, or a third party tried to use it
  kQueuePeerAbsentFull = -2,  // send: the outbound ring is full and the peer is not attached
  kQueuePeerDeparted = -3,    // send: the peer the message is for has left (or left mid-way)
  kQueueTooLarge = -4,        // send: the message exceeds kMaxQueueMessageBytes
  kQueuePeerStalled = -5,     // send: the peer is attached but took nothing for kQueueStallMs
  kQueueCorrupt = -6,         // the shared state failed validation; the message was dropped
  kQueueNoMemory = -7,        // memory ran out; the message was not sent or was dropped
  kQueueBadArgument = -8,     // a null pointer, or a send with a type reserved for queue events
  kQueueInterrupted = -9,     // receive: Interrupt() ended the wait
  kQueueBacklogFull = -10,    // send: what the peer sent meanwhile filled kQueueMaxHeldBytes
};
// The lowest result code, for tables over every code.
constexpr int kQueueLowestResult = kQueueBacklogFull;

// Why opening a queue failed (OpenResult), so that a caller can tell a busy queue from a broken
// one; LastError() gives the details.
enum QueueOpenResult : int {
  kQueueOpened = 1,
  kQueueOpenPlacesHeld = -1,   // both places were held (for the whole wait, when it waited)
  kQueueOpenRefused = -2,      // the object exists but fails a check; LastError names which
  kQueueOpenCapacity = -3,     // capacity out of range, or not the one the queue was made with
  kQueueOpenBusy = -4,         // another process kept the bookkeeping lock for seconds
  kQueueOpenSystemError = -5,  // a system call failed; LastError names it and why
  kQueueOpenNoMemory = -6,
};
const char* QueueOpenResultText(int result);

// Largest message (buffer bytes) the queue carries; larger sends fail with kQueueTooLarge.
constexpr unsigned int kMaxQueueMessageBytes = 64u * 1024u * 1024u;
// Bounds of the capacity given to the constructor (bytes of the largest record).
constexpr unsigned int kMinQueueCapacity = 64;
constexpr unsigned int kMaxQueueCapacity = 256u * 1024u * 1024u;
// How long a sender waits for an attached peer that takes nothing from a full ring.
constexpr int kQueueStallMs = 5000;
// How much of what the peer sends a sender keeps in local memory while it waits for room (see
// Send); it may overshoot by one ring.
constexpr unsigned int kQueueMaxHeldBytes = 64u * 1024u * 1024u;
// How long a poll (PeekMessage) that found a message in fragments begun waits for the next
// fragment before it gives up for this call (what arrived is kept for the next).
constexpr int kQueuePollStallMs = 50;
// How often a process waiting in line for a place looks again on its own (a holder that dies
// cannot wake it; one that leaves does at once).
constexpr int kQueueLineRecheckMs = 50;
// Queue events, delivered in order with the messages and with an empty buffer.
constexpr int kQueueEventPeerConnected = static_cast<int>(0x80000000u);
constexpr int kQueueEventPeerDisconnected = static_cast<int>(0x80000001u);

// A short text for a QueueResult, for log lines and error reports.
const char* QueueResultText(int result);

// The name of the shared-memory object behind queue `queueNumber` under `keyPath` for the
// calling user, as shm_open sees it (e.g. for tools that inspect or remove queues):
//
//   "/conflink.<euid>.<readable>.<hash>.<queueNumber>"
//
// <euid> is the effective user id in decimal; <readable> is the key path's first 64 bytes with
// every byte other than [A-Za-z0-9_-] replaced by '_' ("/bin/ping" gives "_bin_ping"); <hash> is
// the 64-bit FNV-1a hash of the whole key path as 16 lower-case hex digits, so that paths that
// read alike stay apart; <queueNumber> is in decimal, with '-' when negative. A null key path
// counts as "". The name is at most 120 bytes, well below NAME_MAX, with one leading '/'.
// Example: queue 3 under "/bin/ping" for user 1000 is
// "/conflink.1000._bin_ping.<16 hex digits>.3", a file of that name under /dev/shm.
std::string QueueObjectName(int queueNumber, const char* keyPath);

}  // namespace conflink

class CyclicMessageQueue {
 public:
  // Opens (creating if need be) the queue and takes one of its two places. `capacity` is the size
  // in bytes of the largest record a message travels in, within [kMinQueueCapacity,
  // kMaxQueueCapacity] (each direction's ring holds sixteen records, see the top), and must
  // equal the existing queue's while anyone is attached or messages are queued. `link` is not
  // used. Never throws; IsConnected() tells whether it worked, LastError() why not.
  CyclicMessageQueue(int queueNumber, const char* keyPath, unsigned int capacity, Link* link);
  // As above, but when both places are held, waits in line for one for at most `waitMs`
  // milliseconds: woken as soon as a holder leaves (a holder that dies is noticed within
  // kQueueLineRecheckMs), in the order the waiters came. A process that opens without waiting
  // still takes a free place at once.
  CyclicMessageQueue(int queueNumber, const char* keyPath, unsigned int capacity, Link* link,
                     int waitMs);
  // Leaves the queue; the peer receives kQueueEventPeerDisconnected.
  virtual ~CyclicMessageQueue();

  // Slot 2: sends `*type` and the whole `*buffer` as one message. kQueueOk when it is in the ring
  // (a message that fits is queued even while the peer is absent). Otherwise, with nothing of it
  // delivered: kQueueNotConnected, kQueueTooLarge, kQueuePeerAbsentFull (no room for all of it
  // and no peer), kQueuePeerDeparted (the peer the message is for has left, or it left or was
  // replaced while we waited for room; see the delivery rules at the top),
  // kQueuePeerStalled (the peer took nothing for kQueueStallMs), kQueueCorrupt (the ring's
  // indices are inconsistent), kQueueNoMemory, kQueueBadArgument (null pointer, or a queue
  // event's type), kQueueBacklogFull (see below). While waiting for room it keeps taking what
  // the peer sends into local memory, for the receives that follow, so that two parties sending
  // to each other never deadlock; once that holds kQueueMaxHeldBytes and the peer still sends
  // rather than takes, the send fails with kQueueBacklogFull. Nothing received is lost: what is
  // held and what is still in the ring arrive with the next receives.
  virtual int Send(const int* type, std::string* buffer);
  // Slot 3: waits until a message or queue event arrives and fills type and buffer (an event has
  // an empty buffer). kQueueOk when something was received; otherwise kQueueNotConnected,
  // kQueueCorrupt (a damaged message was dropped; the next call goes on), kQueueNoMemory or
  // kQueueBadArgument, and type and buffer are left as they were. The message goes into the
  // storage the buffer already has when it is large enough, so a caller that keeps one buffer
  // for its receives does not allocate for each message.
  virtual int Receive(int* type, std::string* buffer);
  // Slot 4: as Receive, but returns kQueueEmpty at once when nothing is waiting (having yielded
  // the processor once if the peer is runnable on the caller's, so that two parties that poll
  // on one processor take turns per message rather than per time slice). A message larger than
  // the ring whose first fragment is there is taken whole in this call, as fast as its sender
  // supplies it: the call waits for each next fragment, and gives up (kQueueEmpty, the part
  // that arrived kept) only when none came for kQueuePollStallMs.
  virtual int PeekMessage(int* type, std::string* buffer);
  // Slot 5: as Receive, but gives up with kQueueEmpty after `timeoutMs` milliseconds (0 or less:
  // does not wait).
  virtual int ReceiveFor(int* type, std::string* buffer, int timeoutMs);
  // Slot 6: bytes of messages received but not yet taken: held locally, partly reassembled, or
  // still in the inbound ring (there counted with their record headers).
  virtual unsigned int PendingBytes();
  // Slot 7: free bytes in the outbound ring right now.
  virtual unsigned int FreeBytes();
  // Slot 8: a text describing the most recent failure of this object ("" when none).
  virtual const char* LastError();
  // Slot 9: non-zero while the other party is attached (asks the kernel for its lock).
  virtual int IsPartyOnline();
  // Slot 10: ends the wait of a Receive or ReceiveFor of this object that is blocked, or, when
  // none is, makes the next one return at once: it returns kQueueInterrupted, and the interrupt
  // is used up. Messages are not touched; the receive after it goes on normally. PeekMessage
  // neither waits nor uses it up. May be called from
  // another thread, or from a signal handler (it only stores to memory and makes one system
  // call, and keeps errno). Returns kQueueOk, or kQueueNotConnected when the object holds no
  // place (then no receive can block).
  virtual int Interrupt();
  // Slot 11: the capacity given to the constructor (the ring of each direction is larger, see
  // the top; FreeBytes counts the ring's bytes).
  virtual unsigned int Capacity();
  // Slot 12: non-zero when the queue was opened and this object holds one of its two places.
  virtual int IsConnected();

  // --- Beyond the companion library's slots (non-virtual) ---

  // kQueueOpened, or why the constructor could not take a place.
  int OpenResult() const;
  // A descriptor that poll, select or epoll can watch beside sockets: readable while a message
  // or queue event waits (level-triggered; it may stay readable once more after the last one
  // was taken). A receive (of any kind) that finds nothing clears it and watches again, so a loop
  // that, whenever it is readable, takes messages with PeekMessage until one returns kQueueEmpty
  // never misses one and uses no CPU while idle. Made on the first call and kept until the queue
  // is destroyed; the queue owns it (do not close it). -1 when it cannot be made (LastError says
  // why) or the queue is not connected. Once it exists, a poll that finds nothing first spins
  // briefly and hands the processor to the peer as a blocking receive does (at most 16 us, and
  // only while the peer runs and can answer), so that a loop serving a busy link takes an answer
  // on its way without sleeping in poll and being woken.
  int ReadinessFd();
  // Messages this party dropped on arrival: they were for an earlier holder of its place (their
  // sender had not yet heard that it left). Such a message is never delivered to a successor.
  unsigned int DiscardedMessages() const;
  // How many of those were dropped since the last call (for a trace line that says so).
  unsigned int TakeNewDiscards();
  // The generation of the peer that what this party sends now is for: the one whose arrival
  // was received last and whose departure was not; 0 when none (then a message waits for
  // whoever takes the other place next).
  unsigned int AddressedPeer() const;

  CyclicMessageQueue(const CyclicMessageQueue&) = delete;
  CyclicMessageQueue& operator=(const CyclicMessageQueue&) = delete;

 private:
  struct State;
  State* state_;
};
