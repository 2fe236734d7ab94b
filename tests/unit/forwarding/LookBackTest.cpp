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

TEST(LookBack, DropsMediaThatIsTooOld) {
  Statistics statistics;
  KeptMedia media(Instant(1), statistics);
  Bytes frame = frameOf(FrameProtocol::Rtp, 20);
  media.keep({{}, frame}, 1 << 20);
  EXPECT_TRUE(eventually([&] {
    media.expire();
    return statistics.udpDropped == 1;
  }));
  EXPECT_TRUE(media.recall({1, 5000}).empty());
}

TEST(MissedSignalling, IsBoundedInTimeAndMemoryAndTriedOnceASecond) {
  Statistics statistics;
  MissedSignalling missed(Instant(5'000), 10'000, statistics);
  const Instant start(100'000);
  EXPECT_FALSE(missed.isDue(start));
  for (u_char number = 0; number < 10; ++number) {
    Bytes message = frameOf(FrameProtocol::Sip, 85);
    message.back() = number;
    missed.keep({{}, message}, start + Instant(number));
  }
  EXPECT_TRUE(missed.isDue(start));
  missed.fail(start);
  EXPECT_FALSE(missed.isDue(start + Instant(999)));
  EXPECT_TRUE(missed.isDue(start + Instant(1'000)));
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
