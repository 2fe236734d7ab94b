#include "forwarding/LookBack.h"

#include <gtest/gtest.h>

#include "recorder/FrameHeader.h"
#include "support/Bytes.h"
#include "support/Eventually.h"

using namespace voip;

namespace {

Bytes frameOf(FrameProtocol protocol, std::size_t payload) {
  Bytes frame(FrameHeader::kLength + payload, 0x80);
  FrameHeader{static_cast<u_short>(frame.size()), protocol, 1, 5000, 2, 4000}.write(frame.data());
  return frame;
}

const IpEndpoint kDestination{1, 5000};

TEST(KeptMedia, DropsExpiredFrames) {
  Statistics statistics;
  KeptMedia media(Instant(1), 1 << 20, statistics);
  Bytes frame = frameOf(FrameProtocol::Rtp, 20);
  media.keep({{}, frame}, 0);
  EXPECT_TRUE(eventually([&] {
    media.expire();
    return statistics.udpDropped == 1;
  }));
  EXPECT_FALSE(media.beginRecall(kDestination));
}

TEST(KeptMedia, RecallsInOrderDespiteInterruptions) {
  Statistics statistics;
  KeptMedia media(Instant(60'000), 1 << 20, statistics);
  std::uint8_t number = 0;
  const auto keep = [&](int count) {
    for (; count > 0; --count) {
      Bytes frame = frameOf(FrameProtocol::Rtp, 20);
      frame.back() = number++;
      media.keep({{}, frame}, 0);
    }
  };
  std::uint8_t expected = 0;
  const auto send = [&](std::size_t peek, std::size_t count) {
    const auto frames = media.peekRecalled(peek);
    ASSERT_GE(frames.size(), count);
    for (std::size_t i = 0; i < count; ++i) EXPECT_EQ(frames[i].frame.back(), expected++);
    media.popRecalled(count);
  };
  keep(10);
  ASSERT_TRUE(media.beginRecall(kDestination));
  send(6, 4);
  keep(3);
  send(100, 2);
  media.cancelRecall();
  keep(2);
  ASSERT_TRUE(media.beginRecall(kDestination));
  keep(1);
  send(100, 9);
  EXPECT_TRUE(media.peekRecalled(1).empty());
  ASSERT_TRUE(media.beginRecall(kDestination)) << "kept during the recall";
  send(100, 1);
  EXPECT_FALSE(media.beginRecall(kDestination));
  EXPECT_EQ(expected, number);
  EXPECT_EQ(statistics.lookBackWaiting, 0U);
}

TEST(KeptMedia, LimitsMemoryForFramesAndDestinations) {
  Statistics statistics;
  KeptMedia media(Instant(60'000), 1 << 20, statistics);
  Bytes frame = frameOf(FrameProtocol::Rtp, 172);
  constexpr int kFrames = 50'000;
  ASSERT_FALSE(media.beginRecall(kDestination));
  for (u_int i = 0; i < kFrames; ++i) {
    FrameHeader{static_cast<u_short>(frame.size()), FrameProtocol::Rtp, i << 16, 5000, 2, 4000}.write(frame.data());
    media.keep({{}, frame}, 0);
    if (i == kFrames - 1000) media.beginRecall({i << 16, 5000});  // its frames are dropped before any is recalled
  }
  EXPECT_LT(statistics.lookBackWaiting, 5'000U);
  EXPECT_EQ(statistics.lookBackWaiting + statistics.lookBackOverflow, kFrames);
  media.cancelRecall();
  EXPECT_TRUE(media.beginRecall({(kFrames - 1U) << 16, 5000}));
}

TEST(MissedSignalling, LimitsTimeAndMemoryAndIsDueAgainAfterAPause) {
  Statistics statistics;
  MissedSignalling missed(Instant(5'000), 10'000, statistics);
  const Instant start(100'000);
  EXPECT_FALSE(missed.isDue(start));
  for (std::uint8_t number = 0; number < 10; ++number) {
    Bytes message = frameOf(FrameProtocol::Sip, 85);
    message.back() = number;
    missed.keep({{}, message}, start + Instant(number));
  }
  EXPECT_TRUE(missed.isDue(start));
  missed.fail(start);
  EXPECT_FALSE(missed.isDue(start + Instant(249)));
  EXPECT_TRUE(missed.isDue(start + Instant(250)));
  EXPECT_EQ(missed.front().frame.back(), 0);
  missed.pop();
  EXPECT_EQ(missed.front().frame.back(), 1);
  missed.expire(start + Instant(5'004));
  EXPECT_EQ(missed.front().frame.back(), 4) << "the others are older than 5 s";
  EXPECT_EQ(statistics.queueDiscarded, 3U);

  Bytes large = frameOf(FrameProtocol::Sip, 9'000);
  missed.keep({{}, large}, start);
  EXPECT_LE(missed.size(), 10'000U);
  EXPECT_EQ(statistics.lookBackOverflow + statistics.lookBackWaiting, 7U);
  missed.keep({{}, large}, start);
  EXPECT_EQ(statistics.lookBackWaiting, 1U);
}

}  // namespace
