// The companion library's thread helpers; the messengers need only the sleep.
#pragma once

class Thread {
 public:
  // Sleeps the calling thread for at least `ms` milliseconds, resuming after signal interruptions.
  static void Sleep(unsigned long ms);
};
