#include <conflink/messaging/trace.h>

#include <fcntl.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include <conflink/platform/cyclic_message_queue.h>

namespace conflink {

namespace trace_detail {
std::atomic<TraceSink> gSink{nullptr};
}  // namespace trace_detail

namespace {

std::atomic<void*> gContext{nullptr};

// The destination of TraceTo: a descriptor, closed when replaced if it was opened here.
struct LineWriter {
  int fd = -1;
  bool owned = false;
};
LineWriter gWriter;

// Writes the whole line in one call where the system allows, so that lines of processes sharing
// a file (opened for appending) do not interleave.
void writeLine(void* context, const TraceRecord& record) {
  const int fd = static_cast<LineWriter*>(context)->fd;
  std::string out = record.line;
  out += '\n';
  const char* p = out.data();
  size_t left = out.size();
  while (left > 0) {
    const ssize_t n = ::write(fd, p, left);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return;  // a trace that cannot be written is lost, never an error of the caller
    p += n;
    left -= static_cast<size_t>(n);
  }
}

void releaseWriter() {
  if (gWriter.owned) ::close(gWriter.fd);
  gWriter = LineWriter{};
}

void appendTime(std::string& line, int64_t microseconds) {
  const time_t seconds = static_cast<time_t>(microseconds / 1000000);
  struct tm local {};
  localtime_r(&seconds, &local);
  char text[32];
  std::snprintf(text, sizeof text, "%02d:%02d:%02d.%06d", local.tm_hour, local.tm_min, local.tm_sec,
                static_cast<int>(microseconds % 1000000));
  line += text;
}

int64_t now() {
  struct timeval tv {};
  gettimeofday(&tv, nullptr);
  return static_cast<int64_t>(tv.tv_sec) * 1000000 + tv.tv_usec;
}

void emit(const LinkSite& site, TraceKind kind, int type, int result, const std::string& text) {
  const TraceSink sink = trace_detail::gSink.load(std::memory_order_acquire);
  if (sink == nullptr) return;
  TraceRecord record{now(), site.link, site.queueNumber, kind, type, result, text.c_str(), ""};
  std::string line;
  line.reserve(text.size() + 64);
  appendTime(line, record.microseconds);
  line += " pid " + std::to_string(static_cast<long>(getpid())) + " " + site.link + " queue " +
          std::to_string(site.queueNumber) + " " + TraceKindText(kind) + " " + text;
  if (kind == TraceKind::kSent) {
    line += " -> " + std::to_string(result);
    if (result <= 0) line += std::string(" (") + QueueResultText(result) + ")";
  }
  record.line = line.c_str();
  sink(gContext.load(std::memory_order_acquire), record);
}

// CONFLINK_TRACE, read once when the library is loaded.
bool startFromEnvironment() {
  const char* value = std::getenv("CONFLINK_TRACE");
  if (value == nullptr) return false;
  std::string error;
  if (TraceTo(value, &error)) return TraceOn();
  std::fprintf(stderr, "conflink: CONFLINK_TRACE=%s: %s; tracing stays off\n", value,
               error.c_str());
  return false;
}
[[maybe_unused]] const bool gTracingFromEnvironment = startFromEnvironment();

}  // namespace

const char* TraceKindText(TraceKind kind) {
  switch (kind) {
    case TraceKind::kSent:
      return "send";
    case TraceKind::kReceived:
      return "recv";
    case TraceKind::kError:
      return "error";
    case TraceKind::kNote:
      return "note";
  }
  return "?";
}

void SetTraceSink(TraceSink sink, void* context) {
  trace_detail::gSink.store(nullptr, std::memory_order_release);
  if (context != &gWriter) releaseWriter();
  gContext.store(context, std::memory_order_release);
  trace_detail::gSink.store(sink, std::memory_order_release);
}

bool TraceTo(const char* destination, std::string* error) {
  const std::string to = destination != nullptr ? destination : "";
  StopTrace();
  if (to.empty() || to == "0" || to == "off") return true;
  if (to == "stderr" || to == "1") {
    gWriter = LineWriter{STDERR_FILENO, false};
  } else if (to == "stdout") {
    gWriter = LineWriter{STDOUT_FILENO, false};
  } else {
    const int fd = ::open(to.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    if (fd < 0) {
      if (error != nullptr) *error = "cannot open " + to + ": " + std::strerror(errno);
      return false;
    }
    gWriter = LineWriter{fd, true};
  }
  SetTraceSink(&writeLine, &gWriter);
  return true;
}

void StopTrace() {
  SetTraceSink(nullptr, nullptr);
}

namespace trace_detail {

void emitMessage(const LinkSite& site, TraceKind kind, int type, const char* data, size_t length,
                 int result) {
  emit(site, kind, type, result, site.describe(type, data, length));
}

void emitText(const LinkSite& site, TraceKind kind, const char* text) {
  emit(site, kind, 0, 0, text != nullptr ? text : "");
}

}  // namespace trace_detail

}  // namespace conflink
