// What another process can leave under a queue's name, and descriptors that outlive their owner:
// opening never blocks, never follows a link, never sizes a file that is not the queue's alone,
// and says which check refused the object; a descriptor a child kept does not keep the queue's
// locks.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <thread>

#include <conflink/platform/queue_examine.h>
#include <conflink/platform/queue_test_support.h>

namespace conflink::testing {
namespace {

using Clock = std::chrono::steady_clock;

std::string PathOf(const TestQueueName& name) {
  return std::string(queue::kSharedMemoryDirectory) + name.Object();
}

// A file of the user that a hostile name may point at; it must come out of every case intact.
class Victim {
 public:
  // Beside the queue objects, so that a hard link can reach it.
  Victim()
      : path_(std::string(queue::kSharedMemoryDirectory) + "/conflink-test-victim-" +
              std::to_string(getpid())) {
    FILE* f = std::fopen(path_.c_str(), "w");
    if (f != nullptr) {
      std::fputs(kContent, f);
      std::fclose(f);
    }
  }
  ~Victim() { unlink(path_.c_str()); }
  const std::string& path() const { return path_; }
  bool Intact() const {
    struct stat st {};
    return stat(path_.c_str(), &st) == 0 &&
           st.st_size == static_cast<off_t>(std::char_traits<char>::length(kContent));
  }

 private:
  static constexpr const char* kContent = "the user's own data\n";
  std::string path_;
};

struct Planted {
  const char* what;
  std::function<bool(const std::string& path, const Victim& victim)> plant;
  const char* reason;  // what the refusal says
};

TEST(QueueHostileObject, WhatIsPlantedUnderAQueuesNameIsRefusedWithTheReason) {
  const std::vector<Planted> cases = {
      {"a FIFO", [](const std::string& p, const Victim&) { return mkfifo(p.c_str(), 0600) == 0; },
       "FIFO"},
      {"a symbolic link to a file of the user",
       [](const std::string& p, const Victim& v) {
         return symlink(v.path().c_str(), p.c_str()) == 0;
       },
       "symbolic link"},
      {"a hard link to a file of the user",
       [](const std::string& p, const Victim& v) { return link(v.path().c_str(), p.c_str()) == 0; },
       "2 links"},
      {"an object open to others",
       [](const std::string& p, const Victim&) {
         const int fd = open(p.c_str(), O_CREAT | O_EXCL | O_WRONLY, 0600);
         const bool ok = fd >= 0 && fchmod(fd, 0666) == 0;
         if (fd >= 0) close(fd);
         return ok;
       },
       "mode 0666"},
  };
  for (const Planted& c : cases) {
    SCOPED_TRACE(c.what);
    TestQueueName name;
    Victim victim;
    const std::string path = PathOf(name);
    struct Unlinked {
      std::string path;
      ~Unlinked() { unlink(path.c_str()); }
    } unlinked{path};
    ASSERT_TRUE(c.plant(path, victim)) << "cannot plant: " << std::strerror(errno);
    // In a child, so that an open that blocks fails the case instead of hanging the test.
    Pace said;
    ChildProcess party(
        [&] {
          auto q = name.Open();
          if (q->IsConnected()) return 1;
          const std::string error = q->LastError();
          if (error.find(c.reason) == std::string::npos) {
            std::fprintf(stderr, "party refused with: %s\n", error.c_str());
            return 2;
          }
          queue::QueueReport report;
          std::string why;
          if (queue::InspectQueue(name.Object(), report, why) &&
              std::string(c.reason).find("mode") == std::string::npos)
            return 3;  // an inspector reports the mode, but must refuse the rest
          return 0;
        },
        5);
    EXPECT_EQ(party.wait(10000), 0);
    EXPECT_TRUE(victim.Intact()) << "the file behind the name was changed";
  }
}

TEST(QueueHostileObject, RemovingRefusesAPlantedFifoUnlessForced) {
  TestQueueName name;
  const std::string path = PathOf(name);
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  ChildProcess tool(
      [&] {
        queue::RemoveOutcome outcome;
        std::string error;
        if (queue::RemoveQueue(name.Object(), false, outcome, error)) return 1;
        if (error.find("FIFO") == std::string::npos) return 2;
        return queue::RemoveQueue(name.Object(), true, outcome, error) ? 0 : 3;
      },
      5);
  EXPECT_EQ(tool.wait(10000), 0);
  EXPECT_NE(access(path.c_str(), F_OK), 0) << "forced removal takes the FIFO away";
  unlink(path.c_str());
}

// A child made by a bare fork system call, as a fork racing with an open in another thread
// leaves it: the process's fork handlers did not run, so it holds a copy of the descriptor.
pid_t ForkWithoutHandlers() {
  return static_cast<pid_t>(syscall(SYS_clone, SIGCHLD, 0, 0, 0, 0));
}

TEST(QueueHostileObject, ADescriptorAChildKeptDoesNotKeepTheQueuesLocks) {
  TestQueueName name;
  auto peer = name.Open();
  auto leaving = name.Open();
  ASSERT_TRUE(peer->IsConnected() && leaving->IsConnected());
  ASSERT_EQ(ReceiveType(*peer), kQueueEventPeerConnected);
  const pid_t holder = ForkWithoutHandlers();
  if (holder == 0) {
    alarm(20);
    pause();
    _exit(0);
  }
  ASSERT_GT(holder, 0);
  struct Reaped {
    pid_t pid;
    ~Reaped() {
      kill(pid, SIGKILL);
      waitpid(pid, nullptr, 0);
    }
  } reaped{holder};

  leaving.reset();
  EXPECT_EQ(ReceiveType(*peer, nullptr, 2000), kQueueEventPeerDisconnected)
      << "the place's lock went with its owner";
  const auto start = Clock::now();
  auto next = name.Open();
  EXPECT_TRUE(next->IsConnected()) << next->LastError();
  EXPECT_LT(Clock::now() - start, std::chrono::seconds(1)) << "the bookkeeping lock is free";
}

}  // namespace
}  // namespace conflink::testing
