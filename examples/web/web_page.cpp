// An admin page of the web front end: a CGI program that the web server runs once per HTTP
// request. It reads what is asked from QUERY_STRING, waits in line for the link's free place,
// sends one request carrying a RequestId of its own, waits for the answer carrying that id,
// prints the page and leaves.
//
//   QUERY_STRING="conf=42&op=get"  (op: get, set with title=TEXT, slow: the server takes long)
//   CONFLINK_WEB_QUEUE=N            the link's queue number (set by the web server's config)
//   CONFLINK_WEB_RECORDS=PATH       with rec=1, where to append this page's outcome and timings
//
// Status 503 when it could not get in (both places held for the whole wait), 502 when no server
// is attached or it left, 504 when no answer came in time. The page takes whatever answer
// Request hands to its handlers and shows the RequestId that answer carried, so that a page
// given someone else's answer shows it.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "web_page_common.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kGetInMs = 2000;   // waiting in line for the place
constexpr int kAnswerMs = 3000;  // waiting for the answer, beyond a slow request's work

class AdminPage : public CGIToPSMessenger {
 public:
  AdminPage(int queueNumber, web::PageOutcome& outcome)
      : CGIToPSMessenger(queueNumber), outcome_(outcome) {}

  int OnSendGeneralSettings(const unsigned long long& id,
                            const ConfGeneralParams& general) override {
    outcome_.answered = id;
    outcome_.answer = "settings";
    outcome_.title = general.text1;
    outcome_.value = general.value1;
    return 0;
  }
  int OnSuccess(const unsigned long long& id, PSSuccessType) override {
    outcome_.answered = id;
    outcome_.answer = "saved";
    return 0;
  }
  int OnCgiReportError(const unsigned long long& id, ConfServError error) override {
    outcome_.answered = id;
    outcome_.answer = "refused";
    outcome_.value = static_cast<int>(error);
    return 0;
  }
  // Request reports here the answers to other requests that reached this page; the page counts
  // them instead of writing to the web server's error log.
  void Error(const char*) override { ++outcome_.passedOver; }

 private:
  web::PageOutcome& outcome_;
};

long long since(Clock::time_point from, Clock::time_point to) {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(to - from).count();
}

void fail(web::PageOutcome& o, int status, const char* reason, const std::string& note) {
  o.status = status;
  o.reason = reason;
  o.note = note;
}

}  // namespace

int main() {
  const web::PageRequest request = web::parseQuery(std::getenv("QUERY_STRING"));
  web::PageOutcome outcome;
  outcome.sent = web::pageRequestId();
  const char* queueText = std::getenv("CONFLINK_WEB_QUEUE");
  if (queueText == nullptr || std::atoi(queueText) <= 0) {
    fail(outcome, 500, "Internal Server Error", "CONFLINK_WEB_QUEUE is not set");
    web::printPage("lib", request.conf, outcome);
    return 0;
  }

  AdminPage page(std::atoi(queueText), outcome);
  const Clock::time_point start = Clock::now();
  std::string why;
  const int opened = page.ConnectWaiting(kGetInMs, &why);
  const Clock::time_point connected = Clock::now();
  Clock::time_point sent = connected;
  Clock::time_point finished = connected;
  if (opened != conflink::kQueueOpened) {
    fail(outcome, 503, "Service Unavailable",
         std::string("could not get in: ") + conflink::QueueOpenResultText(opened) + ": " + why);
  } else {
    const unsigned long long id = outcome.sent;
    const ConfIDString conf{request.conf};
    auto send = [&]() {
      int r = 0;
      if (request.op == "set") {
        ConfGeneralParams general = web::defaultGeneral(request.conf);
        general.text1 = request.title;
        r = page.SaveConfGeneral(id, conf, 0, general);
      } else {
        r = page.GetGeneralSettings(id, conf,
                                    request.op == "slow" ? web::kAnswerLate : web::kAnswerNow);
      }
      sent = Clock::now();
      return r;
    };
    int sendResult = 0;
    const int r = page.Request(id, send, kAnswerMs, &sendResult);
    finished = Clock::now();
    if (r == conflink::kRequestNoServer || r == conflink::kRequestServerLeft) {
      fail(outcome, 502, "Bad Gateway", conflink::RequestResultText(r));
    } else if (r == conflink::kRequestTimedOut) {
      fail(outcome, 504, "Gateway Timeout", conflink::RequestResultText(r));
    } else if (r != conflink::kRequestAnswered) {
      fail(outcome, 500, "Internal Server Error",
           std::string(conflink::RequestResultText(r)) + " (send " + std::to_string(sendResult) +
               ")");
    }
  }
  page.Disconnect();
  const Clock::time_point left = Clock::now();
  web::printPage("lib", request.conf, outcome);
  if (request.record) {
    web::appendRecord("lib", outcome, since(start, connected), since(connected, sent),
                      since(sent, finished), since(finished, left));
  }
  return 0;
}
