#include <conflink/platform/thread.h>

#include <cerrno>
#include <ctime>

void Thread::Sleep(unsigned long ms) {
  timespec left{static_cast<time_t>(ms / 1000), static_cast<long>((ms % 1000) * 1000000L)};
  // nanosleep reports what is left when a signal interrupts it; sleep that remainder.
  while (nanosleep(&left, &left) != 0 && errno == EINTR) {
  }
}
