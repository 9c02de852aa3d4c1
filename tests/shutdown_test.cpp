// Ending a blocked receive: from another thread, from a signal handler, and a CC process that
// shuts down cleanly on SIGTERM while it waits in WaitForMessageAndDispatch.
#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>

#include <conflink/conflink.h>
#include <conflink/platform/queue_test_support.h>

namespace conflink::testing {
namespace {

using Clock = std::chrono::steady_clock;

// Who interrupts the child's receive, and when.
enum InterruptedHow { kFromThread, kFromSignal, kBeforeTheWait };

CyclicMessageQueue* signalledQueue = nullptr;
void InterruptFromHandler(int) {
  signalledQueue->Interrupt();
}

TEST(QueueInterrupt, EndsABlockedReceiveFromAThreadOrASignalAndLosesNothing) {
  for (InterruptedHow how : {kFromThread, kFromSignal, kBeforeTheWait}) {
    SCOPED_TRACE(how);
    TestQueueName name;
    auto peer = name.Open();
    ASSERT_TRUE(peer->IsConnected());
    Pace ready;
    Pace interrupted;  // the first receive returned, so the message may now be sent
    ChildProcess child([&] {
      auto q = name.Open();
      if (ReceiveType(*q) != kQueueEventPeerConnected) return 10;
      std::thread interrupter;
      if (how == kFromThread) {
        interrupter = std::thread([&] {
          std::this_thread::sleep_for(std::chrono::milliseconds(100));
          q->Interrupt();
        });
      } else if (how == kFromSignal) {
        signalledQueue = q.get();
        signal(SIGUSR1, InterruptFromHandler);
        ready.Signal();
      } else {
        q->Interrupt();  // none is blocked: the next receive returns at once
      }
      int type = 0;
      std::string buffer;
      const auto start = Clock::now();
      const int r = q->Receive(&type, &buffer);
      const auto blocked = Clock::now() - start;
      if (interrupter.joinable()) interrupter.join();
      interrupted.Signal(r == kQueueInterrupted ? 'i' : 'r');
      if (r != kQueueInterrupted) return 11;
      if (how == kBeforeTheWait && blocked > std::chrono::milliseconds(50)) return 12;
      if (how == kFromThread && blocked < std::chrono::milliseconds(90)) return 13;
      // The interrupt is used up: the next receive waits and gets the message.
      if (q->Receive(&type, &buffer) != kQueueOk || type != 5 || buffer != "later") return 14;
      return 0;
    });
    ASSERT_TRUE(child.started());
    if (how == kFromSignal) {
      ASSERT_EQ(ready.Await(), 'x');
      std::this_thread::sleep_for(std::chrono::milliseconds(100));  // let it block
      child.signal(SIGUSR1);
    }
    // The message goes only once the interrupted receive has returned, however slowly the
    // child runs: sent earlier, it would be what that receive returns.
    ASSERT_EQ(interrupted.Await(), 'i');
    int type = 5;
    std::string text = "later";
    ASSERT_EQ(peer->Send(&type, &text), kQueueOk);
    EXPECT_EQ(child.wait(10000), 0);
  }
}

TEST(QueueInterrupt, PeekNeitherWaitsNorUsesItUp) {
  TestQueueName name;
  auto a = name.Open();
  ASSERT_TRUE(a->IsConnected());
  EXPECT_EQ(a->Interrupt(), kQueueOk);
  int type = 0;
  std::string buffer;
  EXPECT_EQ(a->PeekMessage(&type, &buffer), kQueueEmpty);
  EXPECT_EQ(a->ReceiveFor(&type, &buffer, 2000), kQueueInterrupted);
  EXPECT_EQ(a->ReceiveFor(&type, &buffer, 0), kQueueEmpty) << "used up";
}

// A call-control process as the documented shutdown has it: SIGTERM interrupts the wait, the
// loop ends, the messenger leaves the queue.
CCToPSMessenger* runningMessenger = nullptr;
volatile sig_atomic_t stopping = 0;
void OnTerm(int) {
  stopping = 1;
  if (runningMessenger != nullptr) runningMessenger->InterruptWait();
}

TEST(Shutdown, CallControlBlockedInItsWaitExitsCleanlyOnSigterm) {
  const MessengerQueueNumber queue(200000);
  const int queueNumber = queue.number();
  const std::string& object = queue.Object();
  Pace ready;
  ChildProcess cc([&] {
    CCToPSMessenger messenger(queueNumber);
    if (!messenger.Connect(1, 0)) return 10;
    runningMessenger = &messenger;
    struct sigaction action {};
    action.sa_handler = OnTerm;
    sigemptyset(&action.sa_mask);
    sigaction(SIGTERM, &action, nullptr);
    ready.Signal();
    int waits = 0;
    while (!stopping) {
      messenger.WaitForMessageAndDispatch();
      if (++waits > 1000) return 11;  // a wait that returns without a reason
    }
    messenger.Disconnect();
    runningMessenger = nullptr;
    return 0;
  });
  ASSERT_TRUE(cc.started());
  ASSERT_EQ(ready.Await(), 'x');
  std::this_thread::sleep_for(std::chrono::milliseconds(200));  // blocked in the wait by now
  EXPECT_EQ(cc.wait(0), -1) << "the wait does not return on its own";
  const auto sent = Clock::now();
  cc.signal(SIGTERM);
  EXPECT_EQ(cc.wait(5000), 0);
  EXPECT_LT(Clock::now() - sent, std::chrono::seconds(1));
  const int fd = shm_open(object.c_str(), O_RDONLY, 0);
  EXPECT_LT(fd, 0) << "the queue object is removed when its only party leaves";
  if (fd >= 0) close(fd);
}

}  // namespace
}  // namespace conflink::testing
