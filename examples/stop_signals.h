// The example servers stop on SIGINT and SIGTERM between two dispatches, never in the middle of
// one: the signals are blocked and arrive only as a readable descriptor, one more source of the
// server's loop.
#pragma once

#include <signal.h>
#include <sys/signalfd.h>

namespace examples {

// A signalfd for SIGINT and SIGTERM, both blocked from now on; `flags` adds to SFD_CLOEXEC.
// -1 with errno set when it cannot be made.
inline int StopSignalDescriptor(int flags = 0) {
  sigset_t stopSignals;
  sigemptyset(&stopSignals);
  sigaddset(&stopSignals, SIGINT);
  sigaddset(&stopSignals, SIGTERM);
  sigprocmask(SIG_BLOCK, &stopSignals, nullptr);
  return signalfd(-1, &stopSignals, SFD_CLOEXEC | flags);
}

}  // namespace examples
