// Helpers for the queue's tests: unique queue names, child processes that are always killed and
// reaped, shared objects that are always removed, and a pipe to pace two processes.
#pragma once

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include <conflink/platform/cyclic_message_queue.h>

namespace conflink::testing {

constexpr unsigned int kTestCapacity = 32768;

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
  std::unique_ptr<CyclicMessageQueue> Open(unsigned int capacity = kTestCapacity) const {
    return std::make_unique<CyclicMessageQueue>(number_, key_.c_str(), capacity, nullptr);
  }

 private:
  int number_;
  std::string key_;
};

// A forked child running `body`; its result is the exit status. The child is bounded by alarm()
// and is killed and reaped when the object goes, so a failing test leaves no process behind.
class Child {
 public:
  Child(std::function<int()> body, unsigned int limitSeconds = 30) {
    pid_ = fork();
    if (pid_ == 0) {
      alarm(limitSeconds);
      int code = 99;
      try {
        code = body();
      } catch (...) {
        code = 98;
      }
      _exit(code);
    }
  }
  ~Child() { Kill(); }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  bool started() const { return pid_ > 0; }
  pid_t pid() const { return pid_; }
  // Waits up to `ms` for the child to end; its exit code, 128 + signal when killed, -1 when it
  // is still running.
  int Wait(int ms = 30000) {
    if (pid_ <= 0) return status_;
    for (int waited = 0;; waited += 5) {
      int status = 0;
      if (waitpid(pid_, &status, WNOHANG) == pid_) {
        pid_ = 0;
        status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        return status_;
      }
      if (waited >= ms) return -1;
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
  }
  void Kill() {
    if (pid_ <= 0) return;
    kill(pid_, SIGKILL);
    Wait(60000);
  }

 private:
  pid_t pid_ = -1;
  int status_ = -1;
};

// A one-way pipe to pace two processes: one side Signal()s, the other Await()s.
class Pace {
 public:
  Pace() {
    if (pipe(fds_) != 0) fds_[0] = fds_[1] = -1;
  }
  ~Pace() {
    for (int fd : fds_)
      if (fd >= 0) close(fd);
  }
  Pace(const Pace&) = delete;
  Pace& operator=(const Pace&) = delete;
  void Signal(char c = 'x') { (void)!write(fds_[1], &c, 1); }
  // The next byte signalled, or 0 after `ms` without one.
  char Await(int ms = 10000) {
    pollfd p{fds_[0], POLLIN, 0};
    char c = 0;
    if (poll(&p, 1, ms) == 1 && read(fds_[0], &c, 1) == 1) return c;
    return 0;
  }

 private:
  int fds_[2];
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
