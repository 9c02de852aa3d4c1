// Encoding and decoding a whole ConferenceParams, next to a plain memcpy of the same bytes.
//
// For 0, 10, 100 and 1,000 participants it measures:
//   Memcpy    copying the encoded bytes into a ready buffer: the physical floor;
//   Encode    operator<< into a buffer that already has the room: the encoder alone;
//   EncodeNew operator<< into a fresh string, allocation included;
//   Decode    operator>> into a target that already holds a record, as a receiver does.
// Each reports bytes/s, heap allocations per operation and its time relative to Memcpy of the
// same size; a summary at the end checks the goals: encoding within 4x memcpy with one
// allocation at most, and decoding 1,000 participants within 11x the time of 100.
#include <benchmark/benchmark.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <map>
#include <new>
#include <string>
#include <utility>

#include <conflink/records/records.h>

// Counts heap allocations, to show that encoding grows its buffer once and allocates nothing per
// field. Out of line, so that the compiler does not inline malloc and free into callers and then
// take them for a mismatched new and free.
static std::atomic<long> gAllocations{0};

__attribute__((noinline)) void* operator new(std::size_t n) {
  gAllocations.fetch_add(1, std::memory_order_relaxed);
  if (void* p = std::malloc(n != 0 ? n : 1)) return p;
  throw std::bad_alloc();
}
__attribute__((noinline)) void operator delete(void* p) noexcept {
  std::free(p);
}
__attribute__((noinline)) void operator delete(void* p, std::size_t) noexcept {
  std::free(p);
}

namespace {

// The calling thread's CPU time in nanoseconds: other processes sharing the machine do not
// stretch it. Read once before and once after each measured loop.
double cpuNanos() {
  timespec ts{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
  return static_cast<double>(ts.tv_sec) * 1e9 + static_cast<double>(ts.tv_nsec);
}

const char* const kFirst[] = {"Anna",  "Bernd",   "Chiara", "Dmitri", "Elif",  "Farid",
                              "Grete", "Hiroshi", "Ines",   "Jonas",  "Kasia", "Luca"};
const char* const kLast[] = {"Schmidt", "Rossi",     "Nowak",     "Yilmaz",    "Tanaka",
                             "Dubois",  "Andersson", "Kowalczyk", "Fernandes", "Okafor"};

ConferenceUser makeUser(int i) {
  const std::string first = kFirst[i % 12];
  const std::string last = kLast[(i / 12) % 10];
  const std::string handle = first + "." + last + std::to_string(i);
  ConferenceUser u{};
  u.id = 0x5000000000ULL + static_cast<unsigned>(i);
  u.text1 = first + " " + last;
  u.text2 = "sip:" + handle + "@conf.example.com";
  u.text3 = handle + "@mail.example.org";
  u.text4 = "+49 30 5550" + std::to_string(1000 + i);
  u.text5 = i % 3 == 0 ? "Engineering" : "Sales";
  u.text6 = "";
  u.short1 = static_cast<unsigned short>(i % 2);
  u.short2 = 8;
  u.value1 = i;
  u.value2 = 1;
  u.value3 = 0;
  u.value4 = 60;
  u.value5 = 2;
  u.value6 = -1;
  u.value7 = 3;
  u.value8 = 0;
  u.value9 = 1;
  u.value10 = 5;
  u.value11 = 7;
  return u;
}

ConferenceParams makeConference(int participants) {
  ConferenceParams p{};
  p.general = {"Weekly engineering sync",
               "Standing call of the platform team",
               1,
               "sip:eng-sync@conf.example.com",
               "organiser@mail.example.org",
               40,
               1700000000ULL,
               1700003600ULL,
               0,
               1,
               1,
               0,
               30,
               250};
  p.newParticipant = {1, 8, 0, 1, 1, 0, 0, 1, 60, 2, 0};
  for (int i = 0; i < participants; ++i) p.participants.push_back(makeUser(i));
  p.sip = {"registrar.example.com",
           "5060",
           "eng-sync",
           "secret-token",
           "example.com",
           3600,
           "proxy.example.com",
           "5061",
           "tls",
           "Conference Bridge",
           "bridge",
           "",
           1,
           0,
           30};
  p.recording = {1,
                 {"/var/rec/eng-sync", "mp3", "stereo"},
                 0,
                 0,
                 128,
                 1,
                 SipUri{"sip:", "recorder", "rec.example.com", "5060"}};
  p.schedule = {
      {{1, "weekly", "MO 09:00-10:00"}, {2, "except", "2024-12-25"}}, 1, 0, 9, 0, "Europe/Berlin"};
  for (int i = 0; i < 5; ++i) {
    p.reservations.items.push_back({1700000000ULL + 604800ULL * static_cast<unsigned>(i),
                                    static_cast<unsigned short>(20 + i), 60, i});
  }
  p.encoding = {{"PCMU", "PCMA", "G722", "opus", "H264"}, 1};
  p.encodingExtras = {"telephone-event", "red"};
  p.sysMessage = {1};
  p.autoGainCtrl = {1, 3, 9};
  return p;
}

const int kSizes[] = {0, 10, 100, 1000};

// Mean time per operation in nanoseconds, by benchmark kind and participant count: the best of
// the runs of each benchmark (with --benchmark_repetitions, the least disturbed one), for the
// summary.
std::map<std::pair<std::string, int>, double> gNanos;
std::map<std::pair<std::string, int>, double> gAllocs;

void finish(benchmark::State& state, const char* kind, int users, double elapsedNanos,
            long allocations, size_t bytes) {
  const double iterations = static_cast<double>(state.iterations());
  const double nanos = elapsedNanos / iterations;
  const auto seen = gNanos.find({kind, users});
  if (seen == gNanos.end() || nanos < seen->second) gNanos[{kind, users}] = nanos;
  gAllocs[{kind, users}] = static_cast<double>(allocations) / iterations;
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(bytes));
  state.counters["bytes"] = static_cast<double>(bytes);
  state.counters["allocs/op"] = static_cast<double>(allocations) / iterations;
  const auto base = gNanos.find({"Memcpy", users});
  if (base != gNanos.end() && std::string(kind) != "Memcpy") {
    state.counters["x_memcpy"] = nanos / base->second;
  }
}

void BM_Memcpy(benchmark::State& state) {
  const int users = static_cast<int>(state.range(0));
  std::string encoded;
  encoded << makeConference(users);
  std::string copy(encoded.size(), '\0');
  const long allocs = gAllocations.load();
  const double start = cpuNanos();
  for (auto _ : state) {
    std::memcpy(&copy[0], encoded.data(), encoded.size());
    benchmark::DoNotOptimize(copy.data());
    benchmark::ClobberMemory();
  }
  finish(state, "Memcpy", users, cpuNanos() - start, gAllocations.load() - allocs, encoded.size());
}

void BM_Encode(benchmark::State& state) {
  const int users = static_cast<int>(state.range(0));
  const ConferenceParams p = makeConference(users);
  std::string out;
  out << p;
  const long allocs = gAllocations.load();
  const double start = cpuNanos();
  for (auto _ : state) {
    out.clear();
    out << p;
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
  }
  finish(state, "Encode", users, cpuNanos() - start, gAllocations.load() - allocs, out.size());
}

void BM_EncodeNew(benchmark::State& state) {
  const int users = static_cast<int>(state.range(0));
  const ConferenceParams p = makeConference(users);
  size_t bytes = 0;
  const long allocs = gAllocations.load();
  const double start = cpuNanos();
  for (auto _ : state) {
    std::string out;
    out << p;
    bytes = out.size();
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
  }
  finish(state, "EncodeNew", users, cpuNanos() - start, gAllocations.load() - allocs, bytes);
}

// Each round first refills the input, which the decode consumes: the figure includes one copy of
// the encoded bytes, about the Memcpy figure of the same size, a few percent of the decode.
void BM_Decode(benchmark::State& state) {
  const int users = static_cast<int>(state.range(0));
  std::string encoded;
  encoded << makeConference(users);
  std::string in;
  in.reserve(encoded.size());
  ConferenceParams target = makeConference(users);
  const long allocs = gAllocations.load();
  const double start = cpuNanos();
  for (auto _ : state) {
    in.assign(encoded);
    in >> target;
    if (!in.empty()) state.SkipWithError("decode failed");
    benchmark::DoNotOptimize(target.participants.size());
  }
  finish(state, "Decode", users, cpuNanos() - start, gAllocations.load() - allocs, encoded.size());
}

void sizes(benchmark::internal::Benchmark* b) {
  for (int n : kSizes) b->Arg(n);
}

BENCHMARK(BM_Memcpy)->Apply(sizes);
BENCHMARK(BM_Encode)->Apply(sizes);
BENCHMARK(BM_EncodeNew)->Apply(sizes);
BENCHMARK(BM_Decode)->Apply(sizes);

void printSummary() {
  std::printf("\n%-12s %10s %10s %10s %10s %10s %10s %10s\n", "participants", "bytes", "memcpy ns",
              "encode ns", "x memcpy", "encNew ns", "x memcpy", "decode ns");
  bool within4x = true;
  bool allocOnce = true;
  for (int n : kSizes) {
    std::string encoded;
    encoded << makeConference(n);
    const double copy = gNanos[{"Memcpy", n}];
    const double enc = gNanos[{"Encode", n}];
    const double encNew = gNanos[{"EncodeNew", n}];
    std::printf("%-12d %10zu %10.1f %10.1f %10.2f %10.1f %10.2f %10.1f\n", n, encoded.size(), copy,
                enc, enc / copy, encNew, encNew / copy, gNanos[{"Decode", n}]);
    within4x = within4x && enc <= 4 * copy;
    allocOnce = allocOnce && gAllocs[{"Encode", n}] == 0 && gAllocs[{"EncodeNew", n}] <= 1.0;
  }
  const double growth = gNanos[{"Decode", 1000}] / gNanos[{"Decode", 100}];
  std::printf("\nencode within 4x memcpy at every size: %s\n", within4x ? "met" : "MISSED");
  std::printf("encode allocates once into a new buffer, never into a ready one: %s\n",
              allocOnce ? "met" : "MISSED");
  std::printf("decode 1000 participants / decode 100: %.2fx (goal <= 11x): %s\n", growth,
              growth <= 11.0 ? "met" : "MISSED");
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  printSummary();
  return 0;
}
