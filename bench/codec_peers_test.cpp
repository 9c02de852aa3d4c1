// Each peer serialiser built into codec_bench gives back the record it was handed, keeps the
// target's recording address when the record carries none (as our decode does), and refuses cut
// input without touching the target: otherwise its figures would not be for the same work.
#include <gtest/gtest.h>

#include <conflink/records/records_test_support.h>

#include "codec_peers.h"

namespace conflink::bench {
namespace {

TEST(CodecPeers, EachRoundTripsTheRecordAndRefusesCutInputLeavingTheTargetAlone) {
  const std::vector<CodecPeer> peers = codecPeers();
  for (const SkippedPeer& skipped : skippedCodecPeers())
    std::printf("not checked: %s: %s\n", skipped.name.c_str(), skipped.reason.c_str());
  for (const CodecPeer& peer : peers) {
    for (int users : {0, 1, 7}) {
      SCOPED_TRACE(peer.name + ", " + std::to_string(users) + " participants");
      const ConferenceParams sent = testing::sampleConference(3, users);
      std::string scratch;
      const std::string bytes(peer.encode(sent, scratch));
      ConferenceParams target = testing::sampleConference(9, 2);
      ASSERT_TRUE(peer.decode(bytes, target));
      EXPECT_TRUE(target == sent);

      // Cut in half: refused, the target as it was.
      const ConferenceParams before = testing::sampleConference(5, 1);
      target = before;
      EXPECT_FALSE(peer.decode(std::string_view(bytes).substr(0, bytes.size() / 2), target));
      EXPECT_TRUE(target == before);
    }
  }
}

TEST(CodecPeers, ARecordWithoutAddressKeepsTheTargetsAddress) {
  for (const CodecPeer& peer : codecPeers()) {
    SCOPED_TRACE(peer.name);
    ConferenceParams sent = testing::sampleConference(4, 2);
    sent.recording.value3 = 1;  // no address travels
    std::string scratch;
    const std::string bytes(peer.encode(sent, scratch));
    ConferenceParams target = testing::sampleConference(8, 0);
    const SipUri kept = target.recording.uri;
    ASSERT_TRUE(peer.decode(bytes, target));
    EXPECT_TRUE(target.recording.uri == kept);
    target.recording.uri = sent.recording.uri;
    EXPECT_TRUE(target == sent);
  }
}

}  // namespace
}  // namespace conflink::bench
