// The web front end's link over the real queue, between two processes: the front end saves a
// conference's general settings and reads them back, creates a conference whose record is larger
// than the ring, and receives a conference of 1,000 participants within one receive poll.
#include <sys/mman.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <conflink/conflink.h>
#include <conflink/records/records_test_support.h>
#include "tests/support/child_process.h"
#include "tests/support/messenger_queue_fixture.h"

namespace {

using conflink::testing::ChildProcess;
using conflink::testing::sampleConference;
using conflink::testing::t;
using Clock = std::chrono::steady_clock;

constexpr unsigned long long kAdmin = 77;
const ConfIDString kWeekly{"weekly"};
const ConfIDString kLarge{"large"};

// A conference whose record is well over the ring's 32 KiB.
ConferenceParams largeConference() {
  return sampleConference(3, 100);
}
// A conference of `users` participants of about 185 bytes each.
ConferenceParams crowdedConference(int users) {
  ConferenceParams p = sampleConference(4, 0);
  for (int i = 0; i < users; ++i) {
    ConferenceUser u = conflink::testing::sampleUser(i);
    u.text6 = t(i, "dial-in through the front lobby desk");
    p.participants.push_back(u);
  }
  return p;
}
size_t encodedSize(const ConferenceParams& p) {
  std::string out;
  out << p;
  return out.size();
}

// The server's end: answers each request as the server would, and checks what it was sent. Its
// result is 0 while every request arrived as sent, otherwise the number of the first that did not.
class Server : public CGIToPSMessenger {
 public:
  using CGIToPSMessenger::CGIToPSMessenger;
  int result = 0;
  bool peerLeft = false;

  bool DispatchMessage(const int* type, const char* data, int length) override {
    if (*type == conflink::kQueueEventPeerDisconnected) peerLeft = true;
    return CGIToPSMessenger::DispatchMessage(type, data, length);
  }
  int OnSaveConfGeneral(const unsigned long long& id, const ConfIDString& conf,
                        const unsigned long long& user, const ConfGeneralParams& general,
                        PSProtocolType link) override {
    check(23, conf == kWeekly && user == kAdmin && link == conflink::kCgiLinkMark);
    saved_ = general;
    return Success(id, static_cast<PSSuccessType>(1));
  }
  int OnGetGeneralSettings(const unsigned long long& id, const ConfIDString& conf,
                           GetConferenceType, PSProtocolType link) override {
    check(44, conf == kWeekly && link == conflink::kCgiLinkMark);
    return SendGeneralSettings(id, saved_);
  }
  int OnCreateConference(const unsigned long long& id, const unsigned long long& user,
                         const ConferenceParams& params, ConfIDString conf, bool flag,
                         PSProtocolType link) override {
    check(13, user == kAdmin && params == largeConference() && conf == kLarge && flag &&
                  link == conflink::kCgiLinkMark);
    return ConferenceCreated(id, conf);
  }
  int OnGetConference(const unsigned long long& id, const ConfIDString& conf, GetConferenceType,
                      PSProtocolType) override {
    check(43, conf == kLarge);
    return SendConference(id, crowdedConference(1000));
  }

 private:
  void check(int type, bool ok) {
    if (!ok && result == 0) result = type;
  }
  ConfGeneralParams saved_;
};

// The front end's end: keeps what the server answered.
class Admin : public CGIToPSMessenger {
 public:
  using CGIToPSMessenger::CGIToPSMessenger;
  bool peerArrived = false;
  std::vector<std::string> seen;
  ConfGeneralParams general;
  ConferenceParams conference;

  bool DispatchMessage(const int* type, const char* data, int length) override {
    if (*type == conflink::kQueueEventPeerConnected) peerArrived = true;
    return CGIToPSMessenger::DispatchMessage(type, data, length);
  }
  void Error(const char* text) override { seen.push_back(std::string("error ") + text); }
  int OnSuccess(const unsigned long long& id, PSSuccessType result) override {
    seen.push_back("success " + std::to_string(id) + " " + std::to_string(result));
    return 0;
  }
  int OnSendGeneralSettings(const unsigned long long& id, const ConfGeneralParams& g) override {
    seen.push_back("general settings " + std::to_string(id));
    general = g;
    return 0;
  }
  int OnConferenceCreated(const unsigned long long& id, const ConfIDString& conf) override {
    seen.push_back("created " + std::to_string(id) + " " + conf.id);
    return 0;
  }
  int OnSendConference(const unsigned long long& id, const ConferenceParams& params) override {
    seen.push_back("conference " + std::to_string(id));
    conference = params;
    return 0;
  }
  int OnCgiReportError(const unsigned long long& id, ConfServError error) override {
    seen.push_back("report " + std::to_string(id) + " " + std::to_string(error));
    return 0;
  }
};

class CgiLinkIpcTest : public conflink::testing::MessengerQueueTest {
 protected:
  CgiLinkIpcTest() : MessengerQueueTest(200000) {}
};

TEST_F(CgiLinkIpcTest, FrontEndSavesReadsBackCreatesAndReceivesALargeConference) {
  ASSERT_GT(encodedSize(largeConference()), 32u * 1024) << "larger than the ring";
  const ConferenceParams crowded = crowdedConference(1000);
  ASSERT_GT(encodedSize(crowded), 150u * 1000) << "several times the ring";

  auto admin = std::make_unique<Admin>(queueNumber_);
  ASSERT_TRUE(admin->Connect(1, 0)) << "the front end opens the queue alone";

  const int queue = queueNumber_;
  ChildProcess ps(
      [queue] {
        Server server(queue);
        if (!server.Connect(50, 20)) return 1;
        const auto deadline = Clock::now() + std::chrono::seconds(40);
        while (!server.peerLeft && Clock::now() < deadline) {
          if (!server.ProcessMessageFromQueue(16)) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
          }
        }
        if (!server.peerLeft) return 2;
        return server.result;
      },
      45);
  ASSERT_TRUE(ps.started());

  // The server's arrival comes first; only then does a message reach it.
  for (int i = 0; i < 3 && !admin->peerArrived; ++i) admin->WaitForMessageAndDispatch();
  ASSERT_TRUE(admin->peerArrived);

  const ConferenceParams settings = sampleConference(2, 0);
  EXPECT_GT(admin->SaveConfGeneral(1, kWeekly, kAdmin, settings.general), 0);
  EXPECT_EQ(admin->WaitForMessageAndDispatch(), 0);
  EXPECT_GT(admin->GetGeneralSettings(2, kWeekly, static_cast<GetConferenceType>(0)), 0);
  EXPECT_EQ(admin->WaitForMessageAndDispatch(), 0);
  EXPECT_TRUE(admin->general == settings.general);

  EXPECT_GT(admin->CreateConference(3, kAdmin, largeConference(), kLarge, true), 0);
  EXPECT_EQ(admin->WaitForMessageAndDispatch(), 0);

  EXPECT_GT(admin->GetConference(4, kLarge, static_cast<GetConferenceType>(0)), 0);
  const auto asked = Clock::now();
  EXPECT_EQ(admin->WaitForMessageAndDispatch(), 0) << "the whole reply within one poll";
  const auto took = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - asked);
  EXPECT_TRUE(admin->conference == crowded);
  std::printf("1,000-participant conference (%zu bytes) received in %lld ms\n",
              encodedSize(crowded), static_cast<long long>(took.count()));

  EXPECT_EQ(admin->seen, (std::vector<std::string>{"success 1 1", "general settings 2",
                                                   "created 3 large", "conference 4"}));
  admin.reset();  // the server sees the front end leave and ends
  EXPECT_EQ(ps.wait(45000), 0) << "0: every request arrived as sent; else the type that did not";
}

}  // namespace
