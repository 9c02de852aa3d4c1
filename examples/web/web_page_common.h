// What the two admin pages share: reading the request from QUERY_STRING, the page id, the shape
// of the page they print, and the record a page appends for the benchmark. The page with the
// library and the plain page (no queue, the yardstick) print the same page, so that a web server
// and a load generator see the same bytes from both.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <conflink/conflink.h>

namespace web {

// The GetGeneralSettings kind this example's server reads as "answer only after a delay": a page
// that asks with it is still waiting when its visitor gives up, which is how a page comes to be
// killed while its answer is on the way.
constexpr GetConferenceType kAnswerLate = static_cast<GetConferenceType>(90);
constexpr GetConferenceType kAnswerNow = static_cast<GetConferenceType>(0);
constexpr PSSuccessType kSaved = static_cast<PSSuccessType>(0);

// What a request asks for: conf=ID&op=get|set|slow[&title=TEXT][&rec=1].
struct PageRequest {
  std::string conf = "1";
  std::string op = "get";
  std::string title;
  bool record = false;  // append this page's record (outcome and timings) to CONFLINK_WEB_RECORDS
};

inline int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// %XX and '+' decoded; anything malformed is kept as it came.
inline std::string urlDecode(const std::string& in) {
  std::string out;
  for (std::size_t i = 0; i < in.size(); ++i) {
    if (in[i] == '+') {
      out += ' ';
    } else if (in[i] == '%' && i + 2 < in.size() && hexDigit(in[i + 1]) >= 0 &&
               hexDigit(in[i + 2]) >= 0) {
      out += static_cast<char>(hexDigit(in[i + 1]) * 16 + hexDigit(in[i + 2]));
      i += 2;
    } else {
      out += in[i];
    }
  }
  return out;
}

inline PageRequest parseQuery(const char* query) {
  PageRequest r;
  const std::string q = query != nullptr ? query : "";
  std::size_t start = 0;
  while (start <= q.size()) {
    std::size_t end = q.find('&', start);
    if (end == std::string::npos) end = q.size();
    const std::string pair = q.substr(start, end - start);
    const std::size_t eq = pair.find('=');
    const std::string key = pair.substr(0, eq);
    const std::string value = eq == std::string::npos ? "" : urlDecode(pair.substr(eq + 1));
    if (key == "conf" && !value.empty()) r.conf = value;
    if (key == "op" && !value.empty()) r.op = value;
    if (key == "title") r.title = value;
    if (key == "rec") r.record = value == "1";
    start = end + 1;
  }
  return r;
}

// A RequestId no other page of this machine uses at the same time: the process id above the
// microseconds of the wall clock.
inline unsigned long long pageRequestId() {
  const auto us = std::chrono::duration_cast<std::chrono::microseconds>(
                      std::chrono::system_clock::now().time_since_epoch())
                      .count();
  return (static_cast<unsigned long long>(getpid()) << 32) |
         (static_cast<unsigned long long>(us) & 0xffffffffULL);
}

// The settings a conference has before anyone saved any: what both the server's store and the
// plain page answer with.
inline ConfGeneralParams defaultGeneral(const std::string& conf) {
  ConfGeneralParams g{};
  g.text1 = "Conference " + conf;
  g.text2 = "owner of " + conf;
  g.value1 = std::atoi(conf.c_str());
  return g;
}

// What a page learnt, to print.
struct PageOutcome {
  int status = 200;
  const char* reason = "OK";
  unsigned long long sent = 0;
  unsigned long long answered = 0;  // the RequestId the answer carried (0: none)
  std::string answer;               // the answer's kind: settings, saved, refused
  std::string title;
  int value = 0;
  int passedOver = 0;  // other requests' answers the request saw and did not take
  std::string note;    // why there is no answer
};

// The page. Numbers are printed with fixed widths so that every answered page of one conference
// has the same length (a load generator counts a page of another length as a failure).
inline void printPage(const char* server, const std::string& conf, const PageOutcome& o) {
  std::printf("Status: %d %s\r\nContent-Type: text/plain\r\nCache-Control: no-store\r\n\r\n",
              o.status, o.reason);
  std::printf("page %s %07d\n", server, static_cast<int>(getpid()));
  std::printf("sent %016llx\n", o.sent);
  std::printf("answer %016llx %s\n", o.answered, o.answer.c_str());
  std::printf("conf %s\n", conf.c_str());
  std::printf("title %s\n", o.title.c_str());
  std::printf("value %d\n", o.value);
  std::printf("passed-over %d\n", o.passedOver);
  if (!o.note.empty()) std::printf("note %s\n", o.note.c_str());
  std::fflush(stdout);
}

// Appends one line for the benchmark: which page, its status, whether the answer was its own,
// and the nanoseconds spent connecting, sending, waiting and leaving. One write with O_APPEND,
// so that lines of pages running at once do not mix.
inline void appendRecord(const char* kind, const PageOutcome& o, long long connectNs,
                         long long sendNs, long long waitNs, long long leaveNs) {
  const char* path = std::getenv("CONFLINK_WEB_RECORDS");
  if (path == nullptr || *path == '\0') return;
  char line[256];
  const int n =
      std::snprintf(line, sizeof line, "%s %d %d %s %d %lld %lld %lld %lld\n", kind,
                    static_cast<int>(getpid()), o.status, o.answered == o.sent ? "own" : "other",
                    o.passedOver, connectNs, sendNs, waitNs, leaveNs);
  const int fd = open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
  if (fd < 0) return;
  if (write(fd, line, static_cast<std::size_t>(n)) != n) {
    // A lost record shows as a missing line in the benchmark's count.
  }
  close(fd);
}

}  // namespace web
