// The admin page without the link: the same request parsing and the same page, answered from
// the defaults in the process itself. What a page costs the web server with no messaging at
// all, the yardstick of the benchmark.
#include <cstdlib>

#include "web_page_common.h"

int main() {
  const web::PageRequest request = web::parseQuery(std::getenv("QUERY_STRING"));
  web::PageOutcome outcome;
  outcome.sent = web::pageRequestId();
  outcome.answered = outcome.sent;
  const ConfGeneralParams general = web::defaultGeneral(request.conf);
  if (request.op == "set") {
    outcome.answer = "saved";
  } else {
    outcome.answer = "settings";
    outcome.title = general.text1;
    outcome.value = general.value1;
  }
  web::printPage("plain", request.conf, outcome);
  if (request.record) web::appendRecord("plain", outcome, 0, 0, 0, 0);
  return 0;
}
