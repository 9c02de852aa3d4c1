// Tracing: each messenger writes one line per message it sends or takes, per queue event and per
// report, with the link, the queue, the direction and the message as its receiver decodes it; and
// nothing at all once tracing stops.
#include <conflink/messaging/trace.h>

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <functional>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include <conflink/cc/cc_to_ps_messenger.h>
#include <conflink/cgi/cgi_to_ps_messenger.h>
#include <conflink/platform/cyclic_message_queue.h>
#include <conflink/wire/codec.h>
#include "tests/support/fake_platform.h"

namespace {

using conflink::TraceKind;
using conflink::TraceRecord;
using conflink::testing::Fake;

struct Seen {
  TraceKind kind;
  int type;
  std::string line;
};

void collect(void* context, const TraceRecord& record) {
  static_cast<std::vector<Seen>*>(context)->push_back({record.kind, record.type, record.line});
}

// A messenger whose Error keeps quiet: the trace, not the standard error stream, is under test.
template <class Base>
class Quiet : public Base {
 public:
  Quiet() : Base(41) {}
  void Error(const char*) override { ++errors; }
  int errors = 0;
};

std::string withMark(std::string payload, int mark) {
  conflink::wire::append(payload, 0, mark);
  return payload;
}

class TraceTest : public ::testing::Test {
 protected:
  void SetUp() override {
    conflink::testing::ResetFake();
    conflink::SetTraceSink(&collect, &seen);
  }
  void TearDown() override { conflink::StopTrace(); }
  std::vector<Seen> seen;
};

struct TraceCase {
  const char* what;
  std::function<void()> act;
  TraceKind kind;
  int type;
  const char* line;  // regular expression for the whole line
};

const char kStamp[] = R"(^\d\d:\d\d:\d\d\.\d{6} pid \d+ )";

TEST_F(TraceTest, EachKindOfEventIsOneLineWithTheRenderedMessage) {
  Quiet<CCToPSMessenger> cc;
  Quiet<CGIToPSMessenger> cgi;
  ASSERT_TRUE(cc.Connect(1, 0));
  ASSERT_TRUE(cgi.Connect(1, 0));
  auto inbox = [](int type, const std::string& buffer) { Fake().inbox.push_back({type, buffer}); };
  const std::string successPayload = [] {
    std::string p;
    conflink::wire::append(p, 0, 9ULL, 0);
    return p;
  }();

  const std::vector<TraceCase> cases = {
      {"a request sent on the CC link, with the queue's result",
       [&] { cc.DialOut(1, ConfIDString{"42"}, 7); }, TraceKind::kSent, 3,
       R"(cc queue 41 send DialOut\(1, ConfIDString\{id="42"\}, 7\) \[type 3, mark 0\] -> 1$)"},
      {"a failed send names the queue's code",
       [&] {
         Fake().sendResult = conflink::kQueuePeerAbsentFull;
         cgi.CgiReportError(5, static_cast<ConfServError>(3));
       },
       TraceKind::kSent, 263,
       R"(cgi queue 41 send CgiReportError\(5, 3\) \[type 263, mark 2\] -> -2 \(.+\)$)"},
      {"a reply taken by the CGI poll",
       [&] {
         inbox(258, withMark(successPayload, 2));
         cgi.WaitForMessageAndDispatch();
       },
       TraceKind::kReceived, 258, R"(cgi queue 41 recv Success\(9, 0\) \[type 258, mark 2\]$)"},
      {"a queue event taken by the CC loop",
       [&] {
         inbox(conflink::kQueueEventPeerConnected, "");
         cc.ProcessMessageFromQueue(1);
       },
       TraceKind::kReceived, conflink::kQueueEventPeerConnected,
       R"(cc queue 41 recv queue event: the peer attached$)"},
      {"a message taken by the CC's blocking receive",
       [&] {
         inbox(112, withMark(successPayload, 0));
         cc.WaitForMessageAndDispatch();
       },
       TraceKind::kReceived, 112, R"(cc queue 41 recv Success\(9, 0\) \[type 112, mark 0\]$)"},
      {"a malformed message is received, then reported",
       [&] {
         inbox(3, withMark("\x01\x02", 0));
         cc.ProcessMessageFromQueue(1);
       },
       TraceKind::kError, 0,
       R"(cc queue 41 error Malformed message 3 \(DialOut, 2 payload bytes\): u64 at offset 0.*$)"},
      {"a receive poll that times out leaves a note", [&] { cgi.WaitForMessageAndDispatch(); },
       TraceKind::kNote, 0,
       R"(cgi queue 41 note WaitForMessageAndDispatch timed out waiting for party to answer\.$)"},
  };
  for (const TraceCase& c : cases) {
    seen.clear();
    Fake().sendResult = 1;
    c.act();
    ASSERT_FALSE(seen.empty()) << c.what;
    const Seen& last = seen.back();
    EXPECT_EQ(last.kind, c.kind) << c.what;
    EXPECT_EQ(last.type, c.type) << c.what;
    EXPECT_TRUE(std::regex_search(last.line, std::regex(std::string(kStamp) + c.line)))
        << c.what << "\n  line: " << last.line;
  }
  EXPECT_EQ(cc.errors, 1) << "the trace does not take the report away from Error";
}

TEST_F(TraceTest, AMalformedMessageIsTracedAsTakenAndThenAsReported) {
  Quiet<CGIToPSMessenger> cgi;
  ASSERT_TRUE(cgi.Connect(1, 0));
  Fake().inbox.push_back({23, withMark(std::string(2, '\0'), 2)});
  cgi.ProcessMessageFromQueue(1);
  ASSERT_EQ(seen.size(), 2u);
  EXPECT_EQ(seen[0].kind, TraceKind::kReceived);
  EXPECT_EQ(seen[1].kind, TraceKind::kError);
  EXPECT_NE(seen[0].line.find("Malformed message 23 (SaveConfGeneral"), std::string::npos);
}

std::vector<std::string> linesOf(const std::string& path) {
  std::ifstream in(path);
  std::vector<std::string> lines;
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

TEST_F(TraceTest, AFileGetsOneLinePerEventAndNothingAfterTracingStops) {
  const std::string path = ::testing::TempDir() + "conflink_trace_" + std::to_string(getpid());
  std::remove(path.c_str());
  std::string error;
  ASSERT_TRUE(conflink::TraceTo(path.c_str(), &error)) << error;
  Quiet<CCToPSMessenger> cc;
  ASSERT_TRUE(cc.Connect(1, 0));
  cc.InitiateConferenceServer();
  cc.RecordingTerminated(2, ConfIDString{"c"});
  conflink::StopTrace();
  cc.InitiateConferenceServer();
  const std::vector<std::string> lines = linesOf(path);
  std::remove(path.c_str());
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_NE(lines[0].find(" send InitiateConferenceServer() [type 70, mark 0] -> 1"),
            std::string::npos);
  EXPECT_NE(lines[1].find(" send RecordingTerminated(2, ConfIDString{id=\"c\"})"),
            std::string::npos);
  EXPECT_FALSE(conflink::TraceOn());
}

TEST_F(TraceTest, DestinationsAreCheckedAndOffValuesTurnTracingOff) {
  std::string error;
  EXPECT_FALSE(conflink::TraceTo("/nonexistent-directory/trace", &error));
  EXPECT_NE(error.find("cannot open /nonexistent-directory/trace"), std::string::npos) << error;
  EXPECT_FALSE(conflink::TraceOn());
  for (const char* off : {"", "0", "off"}) {
    ASSERT_TRUE(conflink::TraceTo("stderr"));
    EXPECT_TRUE(conflink::TraceOn());
    EXPECT_TRUE(conflink::TraceTo(off));
    EXPECT_FALSE(conflink::TraceOn()) << '"' << off << '"';
  }
}

}  // namespace
