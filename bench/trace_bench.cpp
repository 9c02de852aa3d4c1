// What tracing costs a messenger: the send path and a send-and-dispatch through a real queue, each
// with tracing off, on (lines written to /dev/null), and as a baseline that does the same work
// with no tracing hook at all. Prints nanoseconds per message, the median of several rounds.
//
//   trace_bench [--quick]
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include <conflink/conflink.h>
#include <conflink/messaging/messenger_support.h>
#include <conflink/messaging/trace.h>

namespace {

// Sends and handles through the library's own paths; also reaches the queue directly, for the
// baselines that bypass the hooks.
class Bench : public CCToPSMessenger {
 public:
  explicit Bench(int queueNumber) : CCToPSMessenger(queueNumber) {}
  bool hooked = true;
  // Without hooks: the trailer and the queue, as sending was before tracing existed.
  int SendMessage(const int* type, std::string* buffer) override {
    if (hooked) return CCToPSMessenger::SendMessage(type, buffer);
    conflink::appendTrailer(0, buffer);
    return queue() == nullptr ? conflink::kQueueNotConnected : queue()->Send(type, buffer);
  }
  // Without hooks: the loop of ProcessMessageFromQueue for one message.
  bool takeOneUnhooked() {
    int type = 0;
    if (queue() == nullptr || queue()->PeekMessage(&type, &received) <= 0) return false;
    DispatchMessage(&type, received.data(), static_cast<int>(received.size()));
    return true;
  }
  int OnDialOut(const unsigned long long& id, const ConfIDString&, const unsigned long long&,
                PSProtocolType) override {
    handled += id;
    return 0;
  }
  unsigned long long handled = 0;
  std::string received;
};

double nanosPerOp(long count, const std::function<void()>& op) {
  const auto start = std::chrono::steady_clock::now();
  for (long i = 0; i < count; ++i) op();
  const auto end = std::chrono::steady_clock::now();
  return std::chrono::duration<double, std::nano>(end - start).count() / static_cast<double>(count);
}

double median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  return v[v.size() / 2];
}

enum class Mode { kBaseline, kOff, kOn };
const char* modeName(Mode m) {
  return m == Mode::kBaseline ? "no hook (baseline)"
         : m == Mode::kOff    ? "tracing off"
                              : "tracing on";
}
void setMode(Mode m) {
  if (m == Mode::kOn) {
    conflink::TraceTo("/dev/null");
  } else {
    conflink::StopTrace();
  }
}

}  // namespace

int main(int argc, char** argv) {
  const bool quick = argc > 1 && std::strcmp(argv[1], "--quick") == 0;
  const int rounds = quick ? 3 : 7;
  const long sends = quick ? 200000 : 2000000;
  const long trips = quick ? 50000 : 500000;
  const ConfIDString conf{"weekly-staff-meeting"};
  const Mode modes[] = {Mode::kBaseline, Mode::kOff, Mode::kOn};

  std::printf("tracing cost, ns per message (median of %d rounds)\n\n", rounds);

  // One queue, both parties in this process: every message is sent, then taken and handled. The
  // same messengers serve every mode, so that the modes differ in the hook alone.
  const int queueNumber = 61000 + static_cast<int>(getpid() % 1000);
  Bench sender(queueNumber), receiver(queueNumber), lone(1);
  if (!sender.Connect(5, 10) || !receiver.Connect(5, 10)) {
    std::fprintf(stderr, "trace_bench: could not open the queue\n");
    return 1;
  }
  // The queue events of the parties' arrival, out of the way of the counts.
  while (receiver.ProcessMessageFromQueue(16) || sender.ProcessMessageFromQueue(16)) {
  }

  // Rounds interleave the modes, so that a slow spell of the machine touches all of them.
  std::vector<double> send[3], trip[3];
  for (int r = 0; r < rounds; ++r) {
    for (int m = 0; m < 3; ++m) {
      const bool plain = modes[m] == Mode::kBaseline;
      setMode(modes[m]);
      lone.hooked = sender.hooked = !plain;
      send[m].push_back(nanosPerOp(sends, [&] { lone.DialOut(1, conf, 7); }));
      trip[m].push_back(nanosPerOp(trips, [&] {
        sender.DialOut(1, conf, 7);
        if (plain) {
          receiver.takeOneUnhooked();
        } else {
          receiver.ProcessMessageFromQueue(1);
        }
      }));
    }
  }
  double result[3][2] = {};
  for (int m = 0; m < 3; ++m) {
    result[m][0] = median(send[m]);
    result[m][1] = median(trip[m]);
  }
  conflink::StopTrace();
  std::printf("%-22s %24s %28s\n", "", "DialOut encode+send,", "DialOut through a queue,");
  std::printf("%-22s %24s %28s\n", "", "no queue", "taken and dispatched");
  for (int m = 0; m < 3; ++m) {
    std::printf("%-22s %17.1f (%4.2fx) %21.1f (%4.2fx)\n", modeName(modes[m]), result[m][0],
                result[m][0] / result[0][0], result[m][1], result[m][1] / result[0][1]);
  }
  // Both parties of the queue are this process: leave, then remove what a party's departure left
  // queued for the other.
  sender.Disconnect();
  receiver.Disconnect();
  shm_unlink(conflink::QueueObjectName(queueNumber, "/bin/ping").c_str());
  const unsigned long long expected =
      3ULL * static_cast<unsigned long long>(trips) * static_cast<unsigned long long>(rounds);
  if (receiver.handled != expected) {
    std::fprintf(stderr, "trace_bench: %llu messages handled, expected %llu\n", receiver.handled,
                 expected);
    return 1;
  }
  return 0;
}
