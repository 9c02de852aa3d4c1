// iceoryx publish/subscribe: one publisher and one subscriber per direction, the payload copied
// into a loaned chunk (the same messages as every other row, which lie in ordinary memory), and
// a receiver that sleeps in a wait set until a chunk comes. Publishers wait for a full
// subscriber queue instead of dropping, so nothing is lost.
//
// iceoryx needs its daemon, RouDi. The bench starts it with a configuration of its own (chunk
// pools for the 64 B, 4 KiB and 4 MiB messages), waits until it says it is ready, and stops it
// when the program ends: a process that has opened the iceoryx runtime stays registered with
// the daemon until it exits, and a daemon that stops earlier terminates the processes still
// registered with it. The daemon dies with this process (a parent-death signal) if the bench
// is killed or its watchdog fires. If another RouDi already runs here, ours does not start and
// the row is skipped with RouDi's own words.
//
// The answering child leaves without running destructors, so it unregisters from the daemon
// itself when its end closes: a daemon that stops while a dead process is still registered
// aborts, leaving its shared memory behind.
#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <thread>

#include <optional>

#include "iceoryx_hoofs/log/logmanager.hpp"
#include "iceoryx_posh/internal/runtime/ipc_interface_base.hpp"
#include "iceoryx_posh/internal/runtime/ipc_message.hpp"
#include "iceoryx_posh/popo/untyped_publisher.hpp"
#include "iceoryx_posh/popo/untyped_subscriber.hpp"
#include "iceoryx_posh/popo/wait_set.hpp"
#include "iceoryx_posh/runtime/posh_runtime.hpp"
#include "ipc_peers.h"
#include "ipc_process.h"

namespace conflink::bench {
namespace {

// Pools for every message the script sends: stamps, end markers and confirmations (up to a few
// hundred bytes), 4 KiB pages and 4 MiB messages. Each pool holds more chunks than a subscriber
// queue (256) plus what both sides hold at once.
constexpr const char* kRoudiConfig =
    "[general]\n"
    "version = 1\n"
    "\n"
    "[[segment]]\n"
    "\n"
    "[[segment.mempool]]\n"
    "size = 128\n"
    "count = 2000\n"
    "\n"
    "[[segment.mempool]]\n"
    "size = 1024\n"
    "count = 600\n"
    "\n"
    "[[segment.mempool]]\n"
    "size = 4608\n"
    "count = 600\n"
    "\n"
    "[[segment.mempool]]\n"
    "size = 4195328\n"
    "count = 8\n";

constexpr int kRoudiStartSeconds = 10;
// One RouDi per machine: a second run of the bench (or a test beside it) waits this long for
// the first to finish with its daemon.
constexpr int kDaemonLockSeconds = 60;
constexpr const char* kDaemonLockPath = "/tmp/conflink-ipc-bench-iceoryx.lock";
constexpr int kConnectSeconds = 10;

struct Daemon {
  pid_t pid = -1;
  std::string directory;  // the configuration and the daemon's log
};
Daemon gDaemon;
// Set once this process has opened the iceoryx runtime: there is one per process, and a child
// forked afterwards would inherit it, so iceoryx runs at most once per process.
bool gRuntimeOpened = false;
// Set when the driving end saw a failure: the answering child may have died still registered
// with the daemon, which then needs its monitoring to drop it before it can stop cleanly.
bool gChildMayBeRegistered = false;
// The daemon drops a process that sent no keep-alive for 1.5 s.
constexpr int kDeadProcessDropSeconds = 3;

// Takes the machine-wide lock for our daemon and holds it until this process ends.
bool lockDaemon(std::string& why) {
  static int fd = -1;
  if (fd >= 0) return true;
  const int opened = ::open(kDaemonLockPath, O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  if (opened < 0) {
    why = std::string("open ") + kDaemonLockPath + ": " + std::strerror(errno);
    return false;
  }
  for (int i = 0; i < kDaemonLockSeconds * 10; ++i) {
    if (flock(opened, LOCK_EX | LOCK_NB) == 0) {
      fd = opened;
      return true;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  ::close(opened);
  why = "another process has held " + std::string(kDaemonLockPath) + " for " +
        std::to_string(kDaemonLockSeconds) + " s";
  return false;
}

std::string fileContents(const std::string& path) {
  std::ifstream file(path);
  return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

// Stops the daemon and removes its directory, at the end of the program (after the runtime of
// this process has unregistered, see startDaemon).
void stopDaemon() {
  if (gDaemon.pid > 0) {
    const std::string log = gDaemon.directory + "/roudi.log";
    for (int i = 0; gChildMayBeRegistered && i < kDeadProcessDropSeconds * 20; ++i) {
      if (fileContents(log).find("--> removing it") != std::string::npos) break;
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    kill(gDaemon.pid, SIGTERM);
    int status = 0;
    bool reaped = false;
    for (int i = 0; i < 100 && !reaped; ++i) {
      reaped = waitpid(gDaemon.pid, &status, WNOHANG) == gDaemon.pid;
      if (!reaped) std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    if (!reaped) {
      kill(gDaemon.pid, SIGKILL);
      waitpid(gDaemon.pid, &status, 0);
    }
    gDaemon.pid = -1;
  }
  if (!gDaemon.directory.empty()) {
    std::remove((gDaemon.directory + "/roudi.toml").c_str());
    std::remove((gDaemon.directory + "/roudi.log").c_str());
    rmdir(gDaemon.directory.c_str());
    gDaemon.directory.clear();
  }
}

// Starts RouDi and waits until it is ready. False with `why` when it cannot run here.
bool startDaemon(std::string& why) {
  if (gDaemon.pid > 0) return true;
  if (!lockDaemon(why)) return false;
  if (access(CONFLINK_BENCH_IOX_ROUDI, X_OK) != 0) {
    why = std::string("the daemon ") + CONFLINK_BENCH_IOX_ROUDI + " is not installed";
    return false;
  }
  char directory[] = "/tmp/conflink-ipc-bench-iceoryx.XXXXXX";
  if (mkdtemp(directory) == nullptr) {
    why = std::string("mkdtemp: ") + std::strerror(errno);
    return false;
  }
  gDaemon.directory = directory;
  // Registered before this process opens its runtime, so it runs after the runtime's own
  // destructor at exit (which unregisters from the daemon).
  static const bool registered = std::atexit(stopDaemon) == 0;
  (void)registered;
  const std::string config = gDaemon.directory + "/roudi.toml";
  const std::string log = gDaemon.directory + "/roudi.log";
  std::ofstream(config) << kRoudiConfig;

  const pid_t parent = getpid();
  const pid_t pid = fork();
  if (pid < 0) {
    why = std::string("fork: ") + std::strerror(errno);
    return false;
  }
  if (pid == 0) {
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (getppid() != parent) _exit(125);
    std::freopen(log.c_str(), "w", stdout);
    std::freopen(log.c_str(), "a", stderr);
    execl(CONFLINK_BENCH_IOX_ROUDI, "iox-roudi", "-c", config.c_str(), "-l", "warning",
          static_cast<char*>(nullptr));
    _exit(127);
  }
  gDaemon.pid = pid;
  for (int i = 0; i < kRoudiStartSeconds * 20; ++i) {
    if (fileContents(log).find("RouDi is ready for clients") != std::string::npos) return true;
    int status = 0;
    if (waitpid(pid, &status, WNOHANG) == pid) {
      gDaemon.pid = -1;
      why = "RouDi ended at start: " + fileContents(log);
      while (!why.empty() && (why.back() == '\n' || why.back() == '\r')) why.pop_back();
      return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  why = "RouDi did not become ready within " + std::to_string(kRoudiStartSeconds) + " s";
  stopDaemon();
  return false;
}

iox::capro::ServiceDescription channel(pid_t owner, int toSide) {
  using iox::capro::IdString_t;
  const std::string instance = std::to_string(owner);
  return iox::capro::ServiceDescription(
      IdString_t("conflink-ipc-bench"), IdString_t(iox::cxx::TruncateToCapacity, instance.c_str()),
      IdString_t(iox::cxx::TruncateToCapacity, toSide == 0 ? "to-parent" : "to-child"));
}

iox::popo::PublisherOptions publisherOptions() {
  iox::popo::PublisherOptions options;
  options.subscriberTooSlowPolicy = iox::popo::ConsumerTooSlowPolicy::WAIT_FOR_CONSUMER;
  return options;
}
iox::popo::SubscriberOptions subscriberOptions() {
  iox::popo::SubscriberOptions options;
  options.queueFullPolicy = iox::popo::QueueFullPolicy::BLOCK_PRODUCER;
  return options;
}

// Tells the daemon that this process leaves, as the runtime does when it is destroyed at a
// normal exit, and removes the runtime's socket and its lock file.
void unregisterFromDaemon() {
  namespace rt = iox::runtime;
  rt::PoshRuntime& runtime = rt::PoshRuntime::getInstance();
  const std::string name = runtime.getInstanceName().c_str();
  rt::IpcMessage request;
  request << rt::IpcMessageTypeToString(rt::IpcMessageType::TERMINATION) << name;
  rt::IpcMessage answer;
  runtime.sendRequestToRouDi(request, answer);
  ::unlink(("/tmp/" + name).c_str());
  ::unlink(("/tmp/" + name + ".lock").c_str());
}

class IceoryxEndpoint : public Endpoint {
 public:
  IceoryxEndpoint(pid_t owner, int side)
      : side_(side),
        publisher_(std::in_place, channel(owner, 1 - side), publisherOptions()),
        subscriber_(std::in_place, channel(owner, side), subscriberOptions()) {
    waitSet_.attachState(*subscriber_, iox::popo::SubscriberState::HAS_DATA).or_else([&](auto) {
      fail("the wait set would not take the subscriber");
    });
  }
  ~IceoryxEndpoint() override {
    if (held_ != nullptr) subscriber_->release(held_);
    waitSet_.detachState(*subscriber_, iox::popo::SubscriberState::HAS_DATA);
    subscriber_.reset();
    publisher_.reset();
    if (side_ == 1) unregisterFromDaemon();
  }

  // Waits until the peer's subscriber is connected to this publisher, so that the first message
  // is not published to nobody.
  bool connect() {
    if (!error().empty()) return false;
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(kConnectSeconds);
    while (!publisher_->hasSubscribers()) {
      if (std::chrono::steady_clock::now() > until || childEnded())
        return failed("the peer's subscriber did not connect");
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
  }

  bool send(const char* data, std::size_t size) override {
    void* chunk = nullptr;
    std::string problem;
    // A pool that is empty for now (the receiver still holds its chunks) is waited for.
    while (chunk == nullptr) {
      publisher_->loan(static_cast<std::uint32_t>(size))
          .and_then([&](void* loaned) { chunk = loaned; })
          .or_else([&](auto error) {
            if (error != iox::popo::AllocationError::RUNNING_OUT_OF_CHUNKS)
              problem = "loan failed (" + std::to_string(static_cast<int>(error)) + ")";
          });
      if (!problem.empty()) return failed(problem);
      if (chunk == nullptr) {
        if (childEnded()) return failed("loan: the peer ended");
        std::this_thread::yield();
      }
    }
    std::memcpy(chunk, data, size);
    publisher_->publish(chunk);
    return true;
  }

  bool receive(std::string_view* message) override {
    if (held_ != nullptr) subscriber_->release(held_);
    held_ = nullptr;
    for (;;) {
      std::string problem;
      subscriber_->take()
          .and_then([&](const void* payload) { held_ = payload; })
          .or_else([&](auto result) {
            if (result != iox::popo::ChunkReceiveResult::NO_CHUNK_AVAILABLE)
              problem = "take failed (" + std::to_string(static_cast<int>(result)) + ")";
          });
      if (!problem.empty()) return failed(problem);
      if (held_ != nullptr) break;
      if (childEnded()) return failed("receive: the peer ended");
      waitSet_.timedWait(iox::units::Duration::fromMilliseconds(kPeerWaitSliceMs));
    }
    *message = std::string_view(static_cast<const char*>(held_),
                                iox::mepoo::ChunkHeader::fromUserPayload(held_)->userPayloadSize());
    return true;
  }

 private:
  bool failed(std::string text) {
    if (side_ == 0) gChildMayBeRegistered = true;
    return fail(std::move(text));
  }

  int side_;
  std::optional<iox::popo::UntypedPublisher> publisher_;
  std::optional<iox::popo::UntypedSubscriber> subscriber_;
  iox::popo::WaitSet<> waitSet_;
  const void* held_ = nullptr;
};

// The runtime's name, which is also the name of its socket and lock file in /tmp.
std::string runtimeName(pid_t owner, int side) {
  return "conflink-ipc-bench-" + std::to_string(owner) + (side == 0 ? "-drive" : "-answer");
}

class IceoryxTransport : public Transport {
 public:
  // In the driving process, after the row: the files of an answering child that died without
  // unregistering are removed (they are gone already when it left normally).
  ~IceoryxTransport() override {
    if (owner_ != getpid()) return;
    const std::string files = "/tmp/" + runtimeName(owner_, 1);
    ::unlink(files.c_str());
    ::unlink((files + ".lock").c_str());
  }
  std::string name() const override { return "iceoryx publish/subscribe"; }
  std::string bigMessageNote() const override { return "one chunk"; }
  bool prepare(std::string& error) override {
    owner_ = getpid();
    return startDaemon(error);
  }
  std::unique_ptr<Endpoint> open(int side, std::string& error) override {
    // Each process opens the runtime once, under a name of its own.
    if (!gRuntimeOpened) {
      const std::string name = runtimeName(owner_, side);
      iox::log::LogManager::GetLogManager().SetDefaultLogLevel(iox::log::LogLevel::kWarn);
      iox::runtime::PoshRuntime::initRuntime(
          iox::RuntimeName_t(iox::cxx::TruncateToCapacity, name.c_str()));
      gRuntimeOpened = true;
    }
    auto end = std::make_unique<IceoryxEndpoint>(owner_, side);
    if (end->connect()) return end;
    error = end->error();
    return nullptr;
  }

 private:
  pid_t owner_ = 0;
};

}  // namespace

std::unique_ptr<Transport> makeIceoryxTransport(std::string& whyNot) {
  if (gRuntimeOpened) {
    whyNot = "iceoryx ran in this process already (its runtime is one per process)";
    return nullptr;
  }
  // Started here, before the row is measured: a daemon that cannot run makes a skipped row, not
  // a failed one.
  if (!startDaemon(whyNot)) return nullptr;
  return std::make_unique<IceoryxTransport>();
}

}  // namespace conflink::bench
