// What the demo's three programs share: how they are started, how they connect and how they
// print. See demo.cpp for the session as a whole.
#pragma once

#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include <conflink/conflink.h>

namespace demo {

// Every wait is bounded: a demo that hangs teaches nothing.
constexpr int kConnectTries = 50;
constexpr int kConnectPauseMs = 100;
constexpr auto kLifetime = std::chrono::seconds(20);

// The conference the session is about, and the numbers the server answers with.
inline const ConfIDString kConference{"1001"};
constexpr PSSuccessType kDone = static_cast<PSSuccessType>(0);
constexpr CCSuccessType kCcDone = static_cast<CCSuccessType>(0);
constexpr ConfServError kNoSuchConference = static_cast<ConfServError>(404);
constexpr ConfServError kNoSuchParticipant = static_cast<ConfServError>(410);
constexpr ConfServError kNoAddress = static_cast<ConfServError>(420);

// One line, prefixed with the program's role, written at once (the three programs share a
// terminal).
inline void say(const char* who, const char* format, ...) {
  std::va_list args;
  va_start(args, format);
  std::printf("%-4s ", who);
  std::vprintf(format, args);
  std::printf("\n");
  std::fflush(stdout);
  va_end(args);
}

// The queue number given as argument `index`; exits with a usage message when there is none.
inline int queueArgument(int argc, char** argv, int index, const char* usage) {
  if (argc <= index) {
    std::fprintf(stderr, "usage: %s\n", usage);
    std::exit(2);
  }
  return std::atoi(argv[index]);
}

// Connects, or says why not.
template <class Messenger>
bool connect(Messenger& m, const char* who, int queueNumber) {
  if (m.Connect(kConnectTries, kConnectPauseMs)) return true;
  std::fprintf(stderr, "%s: could not open queue %d\n", who, queueNumber);
  return false;
}

inline bool expired(std::chrono::steady_clock::time_point start) {
  return std::chrono::steady_clock::now() - start > kLifetime;
}

// The milliseconds left of the lifetime that began at `start` (0 once it is over): the deadline
// of a program's next wait.
inline int msLeft(std::chrono::steady_clock::time_point start) {
  const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
      start + kLifetime - std::chrono::steady_clock::now());
  return left.count() > 0 ? static_cast<int>(left.count()) : 0;
}

}  // namespace demo
