// Tracing: one line for every message a messenger of this process sends or takes from its queue,
// every queue event and every report through Error, e.g.
//
//   14:03:07.512034 pid 4242 cgi queue 41 send DialOut(1, ConfIDString{id="42"}, 7) ... -> 1
//   14:03:07.512311 pid 4242 cgi queue 41 recv Success(1, 0) [type 258, mark 2]
//   14:03:07.513002 pid 4242 cc queue 40 recv queue event: the peer left
//   14:03:07.513100 pid 4242 cc queue 40 error Malformed message 3 (DialOut, 2 payload bytes): ...
//
// The fields are the wall-clock time, the process, the link, the queue number, what happened
// (send, recv, error, note) and the message as its receiving messenger would decode it; a send
// ends with the queue's result. Tracing is off unless the process asks for it:
//
//  - the environment variable CONFLINK_TRACE, read once when the library is loaded: `stderr`
//    (or `1`), `stdout`, or the path of a file to append to (created 0644 when missing); empty,
//    `0` or `off` leave tracing off. A file that cannot be opened is said once on stderr.
//  - TraceTo(destination), with the same values, or SetTraceSink with a function of the caller's,
//    for a process that wants the lines in its own log.
//
// Off, a messenger pays one load of a pointer and a not-taken branch per message: nothing is
// rendered or formatted. Set or change tracing before messengers run on other threads (the sink
// and its context are read by whichever thread traces).
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>

namespace conflink {

enum class TraceKind {
  kSent,      // a message handed to the queue, with the queue's result
  kReceived,  // a message or queue event taken from the queue
  kError,     // a text reported through Error
  kNote,      // a text the library writes to the system log only (a receive poll that timed out)
};

// The words a trace line uses for each kind: "send", "recv", "error", "note".
const char* TraceKindText(TraceKind kind);

// One traced event, handed to a sink. The pointers live while the sink runs.
struct TraceRecord {
  int64_t microseconds;  // wall-clock time since the epoch
  const char* link;      // "cc" or "cgi"
  int queueNumber;
  TraceKind kind;
  int type;          // the message type or queue event; 0 for error and note
  int result;        // the queue's result of a send; 0 otherwise
  const char* text;  // the rendered message, or the error or note text
  const char* line;  // the whole line as TraceTo writes it, without the line end
};

using TraceSink = void (*)(void* context, const TraceRecord& record);

// Hands every traced event to `sink` (replacing any destination); a null sink stops tracing.
void SetTraceSink(TraceSink sink, void* context);
// Writes trace lines to "stderr" (or "1"), "stdout", or appends them to a file. "", "0" and "off"
// stop tracing. False, with the reason in `error` when given, when the file cannot be opened;
// tracing is then off.
bool TraceTo(const char* destination, std::string* error = nullptr);
// Stops tracing.
void StopTrace();

namespace trace_detail {
extern std::atomic<TraceSink> gSink;
}  // namespace trace_detail

// True while some destination takes trace lines.
inline bool TraceOn() {
  return trace_detail::gSink.load(std::memory_order_relaxed) != nullptr;
}

// Where a traced event happened: the link, its queue and how the link renders a buffer.
struct LinkSite {
  const char* link;
  int queueNumber;
  std::string (*describe)(int type, const char* data, size_t length);
};

namespace trace_detail {
void emitMessage(const LinkSite& site, TraceKind kind, int type, const char* data, size_t length,
                 int result);
void emitText(const LinkSite& site, TraceKind kind, const char* text);
}  // namespace trace_detail

// Traces a buffer as the queue carries it (payload, then the link mark), or a queue event.
inline void TraceMessage(const LinkSite& site, TraceKind kind, int type, const char* data,
                         size_t length, int result = 0) {
  if (TraceOn()) trace_detail::emitMessage(site, kind, type, data, length, result);
}
// Traces an Error report or a note.
inline void TraceText(const LinkSite& site, TraceKind kind, const char* text) {
  if (TraceOn()) trace_detail::emitText(site, kind, text);
}

}  // namespace conflink
