#include "forwarding/LookBack.h"

#include <gtest/gtest.h>

#include <random>
#include <tuple>

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
  KeptMedia media(Instant(60'000), 16 << 20, statistics);
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

  std::size_t left = 40'005;  // more than two calls look up
  keep(40'000);
  ASSERT_TRUE(media.beginRecall(kDestination));
  EXPECT_TRUE(media.lookUpMore());
  keep(5);
  media.cancelRecall();
  ASSERT_TRUE(media.beginRecall(kDestination));
  while (media.lookUpMore()) {
  }
  for (std::size_t count; left > 0; left -= count) send(64, count = std::min<std::size_t>(left, 64));
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

// Each new connection gets everything again, in order, wherever the last one was lost.
TEST(LookBack, PutsBackWhatWasSentBeforeWhatIsKept) {
  for (unsigned seed = 0; seed < 200; ++seed) {
    Statistics statistics;
    LookBack lookBack(Instant(60'000), Instant(60'000), 64 << 20, statistics);
    std::mt19937 random(seed);
    std::uint8_t captured = 0;
    std::uint8_t expected = 0;
    bool isRecalling = false;
    const auto recall = [&](std::size_t atMost) {
      if (!isRecalling) isRecalling = lookBack.media.beginRecall(kDestination);
      const auto frames = lookBack.media.peekRecalled(atMost);
      for (const KeptFrame& frame : frames) {
        ASSERT_EQ(frame.frame.back(), expected++) << "seed " << seed;
        lookBack.keepSent(frame, monotonicNow());
      }
      if (frames.empty()) isRecalling = false;
      lookBack.media.popRecalled(frames.size());
    };
    const auto lose = [&] {
      lookBack.putBackSent();
      expected = 0;
    };
    for (int step = 0; step < 100 && !HasFatalFailure(); ++step) {
      switch (random() % 8) {
        case 0:
          lose();
          break;
        case 1:
        case 2:
          recall(random() % 5);
          break;
        default: {
          Bytes frame = frameOf(FrameProtocol::Rtp, 20);
          frame.back() = captured++;
          lookBack.keepMedia({{}, frame});
        }
      }
    }
    lose();
    lookBack.media.cancelRecall();
    isRecalling = false;
    recall(1000);
    EXPECT_EQ(expected, captured) << "seed " << seed;
    EXPECT_EQ(statistics.lookBackWaiting, 0U);
  }
}

TEST(LookBack, PutsBackOnlyWhatWasSentLast) {
  Statistics statistics;
  LookBack lookBack(Instant(2'000), Instant(1'000), 1 << 20, statistics);  // signalling: for the longer time
  const Instant start = monotonicNow();
  const auto send = [&](std::uint8_t number, std::size_t payload, Instant at) {
    Bytes frame = frameOf(FrameProtocol::Sip, payload);
    frame.back() = number;
    lookBack.keepSent({{}, frame}, at);
  };
  Bytes missed = frameOf(FrameProtocol::Sip, 20);
  missed.back() = 9;
  lookBack.keepSignalling({{}, missed});
  for (std::uint8_t number = 0; number < 5; ++number) send(number, 20, start + Instant(1000 * number));
  lookBack.putBackSent();
  EXPECT_EQ(statistics.resent, 3U);
  for (const int number : {2, 3, 4, 9}) {
    EXPECT_EQ(lookBack.signalling.front().frame.back(), number);
    lookBack.signalling.pop();
  }
  for (int i = 0; i < 1000; ++i) send(0, 1000, start);
  EXPECT_GT(statistics.resendForgotten, 700U);
  lookBack.expireSent(start + Instant(2'001));
  lookBack.putBackSent();
  EXPECT_EQ(statistics.resent, 3U);
}

TEST(LookBack, GivesSentFramesHalfOfTheMemory) {
  constexpr std::size_t kMegabyte = 1 << 20, kFrames = 10'000;
  const std::tuple<std::size_t, FrameProtocol, std::size_t> cases[] = {
      {16 * kMegabyte, FrameProtocol::Rtp, 7 * kMegabyte},
      {16 * kMegabyte, FrameProtocol::Sip, kMegabyte},
      {kMegabyte, FrameProtocol::Rtp, kMegabyte / 4},
      {kMegabyte, FrameProtocol::Sip, kMegabyte / 4},
  };
  for (const auto& [memory, protocol, share] : cases) {
    Statistics statistics;
    LookBack lookBack(Instant(60'000), Instant(60'000), memory, statistics);
    Bytes frame = frameOf(protocol, 985);
    for (std::size_t i = 0; i < kFrames; ++i) lookBack.keepSent({{}, frame}, monotonicNow());
    const std::size_t kept = (kFrames - statistics.resendForgotten) * 1040;  // with 40 bytes for each
    EXPECT_LE(kept, share);
    EXPECT_GT(kept, share - 160 * 1024) << "a block and the ends of the others";
  }
}

// A frame is on five connections, then it may be the reason for the losses.
TEST(LookBack, DoesNotSendAgainForever) {
  Statistics statistics;
  LookBack lookBack(Instant(2'000), Instant(1'000), 1 << 20, statistics);
  const Instant start = monotonicNow();
  for (std::uint8_t connection = 0; connection < 9; ++connection) {
    Bytes message = frameOf(FrameProtocol::Sip, 20), packet = frameOf(FrameProtocol::Rtp, 20);
    message.back() = packet.back() = connection;
    lookBack.keepSignalling({{}, message});
    lookBack.keepMedia({{}, packet});
    ASSERT_TRUE(lookBack.media.beginRecall(kDestination));
    const auto packets = lookBack.media.peekRecalled(100);
    ASSERT_EQ(packets.size(), std::min<std::size_t>(connection + 1, 5));
    for (std::size_t i = 0; i < packets.size(); ++i) {
      EXPECT_EQ(packets[i].frame.back(), connection + 1 - packets.size() + i);
      EXPECT_EQ(lookBack.signalling.front().frame.back(), packets[i].frame.back());
      for (const KeptFrame& kept : {lookBack.signalling.front(), packets[i]}) {
        lookBack.keepSent(kept, start + Instant(800) * connection);
      }
      lookBack.signalling.pop();
    }
    EXPECT_TRUE(lookBack.signalling.empty());
    lookBack.media.popRecalled(packets.size());
    lookBack.putBackSent();
  }
}

TEST(MissedSignalling, LimitsTimeAndMemory) {
  Statistics statistics;
  MissedSignalling missed(Instant(5'000), 10'000, statistics);
  const Instant start(100'000);
  for (std::uint8_t number = 0; number < 10; ++number) {
    Bytes message = frameOf(FrameProtocol::Sip, 85);
    message.back() = number;
    missed.keep({{}, message}, start + Instant(number));
  }
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
