// Where the messengers' system-log lines go. By default they go to the system log (syslog(3)) at
// priority 6, informational; a program that logs elsewhere, or a test that checks what was
// logged, puts its own sink in their place.
#pragma once

namespace conflink {

// Receives each line the messengers would write to the system log, with its syslog priority.
using LogSink = void (*)(void* context, int priority, const char* text);

// Sends every later log line to `sink`, with `context` passed through; nullptr restores the
// system log. Set it before the messengers run: it is not synchronised with lines being logged.
void SetLogSink(LogSink sink, void* context);

}  // namespace conflink
