// Messages between two processes: sizes from empty to many times the ring, order, both
// directions at once, and a stress of many small messages.
#include <gtest/gtest.h>

#include <conflink/platform/queue_test_support.h>

namespace conflink::testing {
namespace {

// The first thing a party receives when its peer is already there, or arrives.
bool AwaitPeer(CyclicMessageQueue& q) {
  return ReceiveType(q) == kQueueEventPeerConnected;
}

class TransferBySize : public ::testing::TestWithParam<std::size_t> {};

TEST_P(TransferBySize, ArrivesWholeAndByteIdentical) {
  TestQueueName name;
  const std::size_t size = GetParam();
  Child child([&] {
    auto q = name.Open();
    if (!q->IsConnected() || !AwaitPeer(*q)) return 1;
    for (std::uint32_t seed = 1; seed <= 2; ++seed) {
      std::string message = Pattern(size, seed);
      const int type = static_cast<int>(seed) + 100;
      if (q->Send(&type, &message) != kQueueOk) return 2;
    }
    // Stay until the parent has everything: the last message may still be in the ring.
    return ReceiveType(*q, nullptr, 20000) == 5 ? 0 : 3;
  });
  auto q = name.Open();
  ASSERT_TRUE(q->IsConnected()) << q->LastError();
  ASSERT_TRUE(AwaitPeer(*q));
  for (std::uint32_t seed = 1; seed <= 2; ++seed) {
    std::string data;
    ASSERT_EQ(ReceiveType(*q, &data, 20000), static_cast<int>(seed) + 100) << q->LastError();
    ASSERT_EQ(data.size(), size);
    EXPECT_TRUE(data == Pattern(size, seed)) << "content differs, seed " << seed;
  }
  const int done = 5;
  std::string none;
  ASSERT_EQ(q->Send(&done, &none), kQueueOk);
  EXPECT_EQ(child.Wait(), 0);
}

INSTANTIATE_TEST_SUITE_P(Queue, TransferBySize,
                         ::testing::Values(0, 1, kTestCapacity - 21, kTestCapacity - 20,
                                           kTestCapacity - 1, kTestCapacity, 3 * kTestCapacity + 7,
                                           16u << 20));

}  // namespace
}  // namespace conflink::testing
