// The connection to the queue that both messengers share. It knows neither messages nor roles.
#pragma once

#include <string>

class CyclicMessageQueue;

class SohoMessenger {
 public:
  // Stores the queue number; no queue is opened until Connect.
  explicit SohoMessenger(int queueNumber);
  // Disconnects.
  ~SohoMessenger();

  // True when a queue exists and reports that it is connected.
  bool IsConnected();
  // Opens the queue, trying up to `attempts` times with `pauseMs` between tries (none after the
  // last). A queue that is already connected is kept. A queue that stopped reporting connected is
  // released before a fresh one is made. Returns true when connected.
  bool Connect(unsigned int attempts, int pauseMs);
  // Closes and frees the queue; harmless when there is none.
  void Disconnect();
  // Ends a receive of this messenger that blocks on the queue (the CC messenger's
  // WaitForMessageAndDispatch then returns 1), or, when none is blocked, makes the next one
  // return at once. Async-signal-safe, so that a process can shut down on SIGTERM:
  //
  //   CCToPSMessenger* messenger;            // set once connected
  //   volatile sig_atomic_t stopping = 0;
  //   void OnTerm(int) { stopping = 1; messenger->InterruptWait(); }
  //   ...
  //   while (!stopping) messenger->WaitForMessageAndDispatch();
  //   messenger->Disconnect();                // leaves the queue; the last to leave removes it
  //
  // Must not run while Connect or Disconnect runs (block the signal around them).
  void InterruptWait();

  // --- Beyond the documented surface (non-virtual) ---

  // Opens the queue like Connect, but when both places are held waits in line for one, at most
  // `waitMs` milliseconds: woken as soon as a holder leaves, first come first served (no sleeping
  // and retrying). For a process that must get in soon, such as a web page. Returns
  // kQueueOpened (1) or the QueueOpenResult that says why not (both places held for the whole
  // wait, the queue object refused, out of memory...); `why`, when given, receives the details.
  // A messenger already connected keeps its queue and returns 1.
  int ConnectWaiting(int waitMs, std::string* why = nullptr);
  // A descriptor to watch with poll, select or epoll beside sockets: readable while a message or
  // queue event waits (level-triggered; it may be readable once more after the last one was
  // taken). When it is readable, take messages with the messenger's DispatchWaiting (or
  // ProcessMessageFromQueue) until none is left; that clears it. It costs no CPU while idle.
  // -1 when not connected. It belongs to the queue: a messenger that reconnects has a new one.
  int ReadinessFd();

  SohoMessenger(const SohoMessenger&) = delete;
  SohoMessenger& operator=(const SohoMessenger&) = delete;

 protected:
  // The path and capacity both ends of every link open their queue with.
  static constexpr const char* kQueueKeyPath = "/bin/ping";
  static constexpr unsigned int kQueueCapacity = 32768;

  CyclicMessageQueue* queue() const { return queue_; }
  int queueNumber() const { return queueNumber_; }

 private:
  int queueNumber_;
  CyclicMessageQueue* queue_;
};
