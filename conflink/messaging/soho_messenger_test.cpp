#include <conflink/messaging/soho_messenger.h>

#include <gtest/gtest.h>

#include <vector>

#include "tests/support/fake_platform.h"

namespace {

using conflink::testing::Fake;

class SohoMessengerTest : public ::testing::Test {
 protected:
  void SetUp() override { conflink::testing::ResetFake(); }
};

// Connect's tries and pauses against a peer that answers on a given try (0: never).
TEST_F(SohoMessengerTest, ConnectTriesAndPausesAsAsked) {
  struct Case {
    unsigned int attempts;
    int pauseMs;
    int connectOnTry;
    bool connected;
    int queuesMade;
    std::vector<unsigned long> sleeps;
  };
  const Case cases[] = {
      {0, 100, 1, false, 0, {}},          // no attempt, no queue
      {1, 100, 1, true, 1, {}},           // first try
      {3, 500, 0, false, 3, {500, 500}},  // absent peer: no pause after the last try
      {3, 500, 2, true, 2, {500}},        // second try
      {3, 500, 3, true, 3, {500, 500}},   // last try
      {1, 500, 0, false, 1, {}},
  };
  for (const Case& c : cases) {
    conflink::testing::ResetFake();
    Fake().connectOnTry = c.connectOnTry;
    {
      SohoMessenger m(17);
      EXPECT_EQ(m.Connect(c.attempts, c.pauseMs), c.connected)
          << c.attempts << "/" << c.connectOnTry;
      EXPECT_EQ(m.IsConnected(), c.connected);
      EXPECT_EQ(Fake().queuesMade, c.queuesMade);
      EXPECT_EQ(Fake().queuesAlive, c.connected ? 1 : 0) << "failed tries are released";
      EXPECT_EQ(Fake().sleeps, c.sleeps);
    }
    EXPECT_EQ(Fake().queuesAlive, 0) << "the destructor disconnects";
  }
}

TEST_F(SohoMessengerTest, OpensTheQueueWithTheLinkParameters) {
  SohoMessenger m(42);
  ASSERT_TRUE(m.Connect(1, 0));
  EXPECT_EQ(Fake().queueNumberSeen, 42);
  EXPECT_EQ(Fake().keyPathSeen, "/bin/ping");
  EXPECT_EQ(Fake().capacitySeen, 32768u);
  EXPECT_TRUE(Fake().linkWasNull);
}

TEST_F(SohoMessengerTest, ConnectKeepsAConnectedQueue) {
  SohoMessenger m(1);
  ASSERT_TRUE(m.Connect(1, 0));
  ASSERT_TRUE(m.Connect(5, 10));
  EXPECT_EQ(Fake().queuesMade, 1);
  EXPECT_TRUE(Fake().sleeps.empty());
}

TEST_F(SohoMessengerTest, ReconnectReleasesAQueueThatWentBad) {
  SohoMessenger m(1);
  ASSERT_TRUE(m.Connect(1, 0));
  Fake().dropConnection = true;
  EXPECT_FALSE(m.IsConnected());
  EXPECT_FALSE(m.Connect(2, 5));
  EXPECT_EQ(Fake().queuesAlive, 0) << "no queue is leaked on reconnect";
  Fake().dropConnection = false;
  EXPECT_TRUE(m.Connect(1, 0));
  EXPECT_EQ(Fake().queuesAlive, 1);
}

TEST_F(SohoMessengerTest, DisconnectIsHarmlessTwice) {
  SohoMessenger m(1);
  m.Disconnect();
  ASSERT_TRUE(m.Connect(1, 0));
  m.Disconnect();
  m.Disconnect();
  EXPECT_FALSE(m.IsConnected());
  EXPECT_EQ(Fake().queuesDestroyed, 1);
  EXPECT_EQ(Fake().queuesAlive, 0);
}

}  // namespace
