// Helpers for the queue's tests: unique queue names whose shared objects are always removed,
// message patterns, bounded receives; child processes and pacing come from child_process.h.
#pragma once

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include <conflink/platform/cyclic_message_queue.h>
#include <conflink/platform/queue_layout.h>
#include "tests/support/child_process.h"

namespace conflink::testing {

// The bytes of each ring of a test queue. Test queues are opened with records of at most
// kTestRecordBytes, which makes rings of this size; messages larger than a record travel in
// fragments, messages larger than the ring in more than one ring's worth of them.
constexpr unsigned int kTestCapacity = 32768;
constexpr unsigned int kTestRecordBytes = kTestCapacity / queue::kRingRecords;
static_assert(queue::RingBytesFor(kTestRecordBytes) == kTestCapacity, "test rings of 32 KiB");

// A key path and queue number no other test (or test run) shares; the object is removed when the
// guard goes, whatever the test's outcome.
class TestQueueName {
 public:
  explicit TestQueueName(int number = 7) : number_(number) {
    const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
    key_ = "/tmp/conflink-test-" + std::to_string(getpid()) + "-" +
           (info != nullptr ? std::string(info->test_suite_name()) + "." + info->name() : "x");
    shm_unlink(Object().c_str());
  }
  ~TestQueueName() { shm_unlink(Object().c_str()); }
  TestQueueName(const TestQueueName&) = delete;
  TestQueueName& operator=(const TestQueueName&) = delete;

  const char* key() const { return key_.c_str(); }
  int number() const { return number_; }
  std::string Object() const { return QueueObjectName(number_, key_.c_str()); }
  bool ObjectExists() const {
    const int fd = shm_open(Object().c_str(), O_RDONLY, 0);
    if (fd >= 0) close(fd);
    return fd >= 0;
  }
  std::unique_ptr<CyclicMessageQueue> Open(unsigned int capacity = kTestRecordBytes) const {
    return std::make_unique<CyclicMessageQueue>(number_, key_.c_str(), capacity, nullptr);
  }

 private:
  int number_;
  std::string key_;
};

// The queue a messenger opens (the messengers' key path) under a number of this test run only;
// its object is removed when the guard goes, whatever the test's outcome. `base` keeps the
// numbers of different tests apart.
class MessengerQueueNumber {
 public:
  explicit MessengerQueueNumber(int base)
      : number_(base + static_cast<int>(getpid() % 100000)),
        object_(QueueObjectName(number_, "/bin/ping")) {
    shm_unlink(object_.c_str());
  }
  ~MessengerQueueNumber() { shm_unlink(object_.c_str()); }
  MessengerQueueNumber(const MessengerQueueNumber&) = delete;
  MessengerQueueNumber& operator=(const MessengerQueueNumber&) = delete;
  int number() const { return number_; }
  const std::string& Object() const { return object_; }

 private:
  int number_;
  std::string object_;
};

// Deterministic content, so that both processes know what a message of a given size and seed
// holds.
inline std::string Pattern(std::size_t size, std::uint32_t seed) {
  std::string s(size, '\0');
  std::uint32_t x = seed * 2654435761u + 1;
  for (std::size_t i = 0; i < size; ++i) {
    x = x * 1664525u + 1013904223u;
    s[i] = static_cast<char>(x >> 24);
  }
  return s;
}

// Receives with a bound: the received type, or `kNothing` when nothing came in `ms`.
constexpr int kNothing = 0x7fffffee;
inline int ReceiveType(CyclicMessageQueue& q, std::string* data = nullptr, int ms = 5000) {
  int type = kNothing;
  std::string buffer;
  const int r = q.ReceiveFor(&type, &buffer, ms);
  if (data != nullptr) *data = buffer;
  return r == kQueueOk ? type : kNothing;
}

}  // namespace conflink::testing
