// A party that takes a place whose ring still holds what its predecessor sent: the predecessor's
// unread messages reach the peer intact, and the newcomer's messages follow them.
#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include <conflink/platform/queue_test_support.h>

namespace conflink::testing {
namespace {

int SendPattern(CyclicMessageQueue& q, int type, std::size_t size) {
  std::string buffer = Pattern(size, static_cast<std::uint32_t>(type));
  return q.Send(&type, &buffer);
}

TEST(QueueTakeover, ANewSenderWaitsForRoomBehindItsPredecessorsUnreadMessages) {
  TestQueueName name;
  auto receiver = name.Open();
  ASSERT_TRUE(receiver->IsConnected()) << receiver->LastError();
  {
    auto first = name.Open();
    ASSERT_TRUE(first->IsConnected()) << first->LastError();
    // Carry the ring's indices most of the way round, so that those of the unread messages below
    // wrap past the end of the index range.
    for (int i = 0; i < 6; ++i) {
      ASSERT_EQ(SendPattern(*first, 100, 8000), kQueueOk);
      int type = 0;
      while ((type = ReceiveType(*receiver)) != 100) ASSERT_NE(type, kNothing);
    }
    // Left unread when it goes: 27 KiB of the 32 KiB ring.
    for (int type = 1; type <= 3; ++type) ASSERT_EQ(SendPattern(*first, type, 9000), kQueueOk);
  }
  auto second = name.Open();
  ASSERT_TRUE(second->IsConnected()) << second->LastError();

  std::vector<std::pair<int, std::string>> taken;
  std::thread reader([&] {
    usleep(200 * 1000);  // the second party's send must wait for room meanwhile
    while (taken.size() < 4) {
      std::string data;
      const int type = ReceiveType(*receiver, &data);
      if (type == kNothing) return;
      if (type != kQueueEventPeerConnected && type != kQueueEventPeerDisconnected) {
        taken.emplace_back(type, data);
      }
    }
  });
  const int sent = SendPattern(*second, 4, 12000);
  reader.join();
  EXPECT_EQ(sent, kQueueOk) << second->LastError();
  ASSERT_EQ(taken.size(), 4u) << receiver->LastError();
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(taken[i].first, i + 1);
    EXPECT_TRUE(taken[i].second == Pattern(9000, static_cast<std::uint32_t>(i + 1)))
        << "message " << i + 1 << " of the first party was overwritten";
  }
  EXPECT_EQ(taken[3].first, 4);
  EXPECT_TRUE(taken[3].second == Pattern(12000, 4));
}

}  // namespace
}  // namespace conflink::testing
