// A queue number of its own for every cross-process messenger test, and the queue's shared
// object removed however the test ends.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <atomic>

#include <conflink/platform/cyclic_message_queue.h>

namespace conflink::testing {

class MessengerQueueTest : public ::testing::Test {
 protected:
  // `base` keeps the numbers of different test programs, which ctest may run at once, apart.
  explicit MessengerQueueTest(int base) : base_(base) {}
  void SetUp() override {
    static std::atomic<int> next{0};
    queueNumber_ = base_ + (getpid() % 10000) * 16 + next++ % 16;
  }
  void TearDown() override { shm_unlink(QueueObjectName(queueNumber_, "/bin/ping").c_str()); }
  int queueNumber_ = 0;

 private:
  int base_;
};

}  // namespace conflink::testing
