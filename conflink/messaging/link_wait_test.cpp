// The one-shot request of a web page, against a scripted queue: only the answer carrying the
// request's RequestId reaches its handler, another page's answer is reported and not dispatched,
// and a missing or departing server ends the request at once with its own result.
#include <conflink/cgi/cgi_to_ps_messenger.h>
#include <conflink/messaging/link_wait.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <conflink/platform/cyclic_message_queue.h>
#include "tests/support/fake_platform.h"

namespace {

using conflink::testing::Fake;
using conflink::testing::FakeMessage;

class Page : public CGIToPSMessenger {
 public:
  Page() : CGIToPSMessenger(41) {}
  std::vector<unsigned long long> answered;  // RequestIds that reached OnSendGeneralSettings
  std::vector<std::string> errors;
  int arrivals = 0;
  int departures = 0;

  int OnSendGeneralSettings(const unsigned long long& id, const ConfGeneralParams&) override {
    answered.push_back(id);
    return 0;
  }
  void Error(const char* text) override { errors.push_back(text); }
  void PeerConnected() override { ++arrivals; }
  void PeerDisconnected() override { ++departures; }
};

// The bytes PS sends for a settings answer to request `id`, as the queue carries them.
FakeMessage AnswerTo(unsigned long long id) {
  CGIToPSMessenger server(41);
  server.Connect(1, 0);
  server.SendGeneralSettings(id, ConfGeneralParams{});
  FakeMessage answer = Fake().sent.back();
  Fake().sent.pop_back();
  return answer;
}

const FakeMessage kArrival{conflink::kQueueEventPeerConnected, ""};
const FakeMessage kDeparture{conflink::kQueueEventPeerDisconnected, ""};

TEST(PageRequest, OnlyItsOwnAnswerIsDispatched) {
  constexpr unsigned long long kMine = 1795564993000051ull;
  struct Case {
    const char* what;
    bool serverAttached;
    int sendResult;
    std::vector<FakeMessage> inbox;  // what arrives after the request went
    int result;
    std::size_t requestsSent;
    std::vector<unsigned long long> answered;
    std::size_t errors;  // answers passed over
    int departures;
  };
  conflink::testing::ResetFake();
  const FakeMessage mine = AnswerTo(kMine), other = AnswerTo(kMine - 1);
  const FakeMessage tooShort{266, std::string("\0\0\0\2", 4)};
  const Case cases[] = {
      {"answer at once", true, 1, {kArrival, mine}, conflink::kRequestAnswered, 1, {kMine}, 0, 0},
      {"another page's answer first",
       true,
       1,
       {other, tooShort, mine},
       conflink::kRequestAnswered,
       1,
       {kMine},
       2,
       0},
      {"no server attached", false, 1, {mine}, conflink::kRequestNoServer, 0, {}, 0, 0},
      {"server leaves before answering",
       true,
       1,
       {kArrival, kDeparture, mine},
       conflink::kRequestServerLeft,
       1,
       {},
       0,
       1},
      {"only others' answers", true, 1, {other}, conflink::kRequestTimedOut, 1, {}, 1, 0},
      {"send refused",
       true,
       conflink::kQueuePeerDeparted,
       {mine},
       conflink::kRequestSendFailed,
       1,
       {},
       0,
       0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    conflink::testing::ResetFake();
    Page page;
    ASSERT_TRUE(page.Connect(1, 0));
    Fake().peerOnline = c.serverAttached;
    Fake().sendResult = c.sendResult;
    Fake().inbox.assign(c.inbox.begin(), c.inbox.end());
    int sent = 0;
    const int r = page.Request(
        kMine,
        [&] { return page.GetGeneralSettings(kMine, ConfIDString{"42"}, GetConferenceType{}); }, 30,
        &sent);
    EXPECT_EQ(r, c.result) << conflink::RequestResultText(r);
    EXPECT_EQ(Fake().sent.size(), c.requestsSent);
    if (c.requestsSent > 0) {
      EXPECT_EQ(sent, c.sendResult);
    }
    EXPECT_EQ(page.answered, c.answered);
    EXPECT_EQ(page.errors.size(), c.errors);
    for (const std::string& e : page.errors)
      EXPECT_NE(e.find("passed over"), std::string::npos) << e;
    EXPECT_EQ(page.departures, c.departures);
  }
}

TEST(PageRequest, AnUnconnectedPageSendsNothing) {
  conflink::testing::ResetFake();
  Page page;
  EXPECT_EQ(
      page.Request(
          1, [&] { return page.GetGeneralSettings(1, ConfIDString{"1"}, GetConferenceType{}); },
          10),
      conflink::kRequestNotConnected);
  EXPECT_TRUE(Fake().sent.empty());
}

TEST(PageRequest, ConnectWaitingPassesTheWaitAndSaysWhyItFailed) {
  conflink::testing::ResetFake();
  Fake().connectOnTry = 0;  // never connects
  Fake().openFailure = conflink::kQueueOpenPlacesHeld;
  Page page;
  std::string why;
  EXPECT_EQ(page.ConnectWaiting(1500, &why), conflink::kQueueOpenPlacesHeld);
  EXPECT_EQ(Fake().waitSeen, 1500);
  EXPECT_FALSE(page.IsConnected());
  EXPECT_EQ(Fake().queuesAlive, 0) << "a failed queue is not kept";
  Fake().connectOnTry = 1;
  EXPECT_EQ(page.ConnectWaiting(10), conflink::kQueueOpened);
  EXPECT_TRUE(page.IsConnected());
}

}  // namespace
