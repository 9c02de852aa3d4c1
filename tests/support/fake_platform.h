// A scriptable stand-in for the platform library, linked into unit tests instead of the real
// queue: it counts queues made and destroyed, records sleeps without sleeping, and serves
// receives from a script, so connection and dispatch behaviour is tested in one process.
#pragma once

#include <deque>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace conflink::testing {

struct FakeMessage {
  int type;
  std::string buffer;
};

struct FakePlatform {
  // Queue construction: the n-th queue made (1-based) and every later one report connected when
  // n == connectOnTry; 0 means never.
  int connectOnTry = 1;
  int queuesMade = 0;
  int queuesDestroyed = 0;
  int queuesAlive = 0;
  // The queues that exist now, and how many calls reached one that had been destroyed (a
  // messenger keeping a pointer to a queue it released).
  std::set<const void*> liveQueues;
  int callsOnDestroyedQueues = 0;
  // Set to make live queues stop reporting connected (a queue that went bad).
  bool dropConnection = false;
  std::vector<unsigned long> sleeps;  // every Thread::Sleep argument, in order
  bool peerOnline = true;
  std::deque<FakeMessage> inbox;  // what Receive / PeekMessage hand out, front first
  int emptyPeeks = 0;             // PeekMessage reports nothing this many times first
  int peeks = 0;                  // PeekMessage calls made
  std::vector<FakeMessage> sent;  // what Send was given
  int sendResult = 1;
  int receiveFailure = 0;  // result of Receive when the inbox is empty
  int queueNumberSeen = -1;
  std::string keyPathSeen;
  unsigned int capacitySeen = 0;
  bool linkWasNull = true;
  int waitSeen = -1;     // the wait for a place the last queue was made with
  int openFailure = -1;  // OpenResult of a queue that did not connect
};

// The one script every fake queue reads; Reset() before each test.
FakePlatform& Fake();
void ResetFake();

}  // namespace conflink::testing
