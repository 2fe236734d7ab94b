#include "forwarding/LaneQueue.h"

#include <gtest/gtest.h>

#include "recorder/FrameHeader.h"
#include "support/Bytes.h"
#include "support/TestLog.h"

using namespace voip;

namespace {

/// A queue of 1 MB to which numbered frames of 1,000 bytes are pushed.
class QueueOfALane : public testing::Test {
 protected:
  void push(FrameProtocol protocol, int count) {
    for (; count > 0; --count) {
      Bytes frame(1000);
      FrameHeader{1000, protocol, 1, 5000, 2, 4000}.write(frame.data());
      queue.push({{number++, 0}, frame});
    }
    queue.publish();
  }
  /// Takes frames, and expects them in order.
  std::size_t take(FrameProtocol protocol, std::size_t most = SIZE_MAX) {
    std::size_t taken = 0;
    std::int64_t last = -1;
    while (queue.takeBatch(std::chrono::milliseconds(0))) {
      for (KeptFrame frame; taken < most && queue.next(frame);) {
        EXPECT_GT(frame.stamp.captured, last);
        last = frame.stamp.captured;
        if (FrameHeader::protocolOf(frame.frame.data()) == protocol) ++taken;
        if (taken == 1 && first < 0) first = last;
      }
      if (taken == most) break;
    }
    return taken;
  }

  TestLog log;
  Statistics statistics;
  LaneQueue queue{"recorder X", 1 << 20, statistics};
  std::int64_t number = 0;
  std::int64_t first = -1;
};

TEST_F(QueueOfALane, DropsTheOldestMediaAndSignallingLast) {
  push(FrameProtocol::Sip, 100);
  push(FrameProtocol::Rtp, 2000);
  const std::uint64_t lost = statistics.queueLimitMedia;
  EXPECT_EQ(queue.size() + lost, 2100U);
  EXPECT_LE(queue.size() * 1000, std::size_t{1} << 20);
  push(FrameProtocol::H323, 800);
  EXPECT_GT(statistics.queueLimitMedia, lost);
  EXPECT_EQ(statistics.queueLimitSignalling, 0U);
  push(FrameProtocol::Sip, 1000);
  EXPECT_EQ(statistics.queueLimitMedia, 2000U);
  const std::uint64_t lostSignalling = statistics.queueLimitSignalling;
  EXPECT_GT(lostSignalling, 800U);
  push(FrameProtocol::Rtp, 200);
  EXPECT_EQ(statistics.queueLimitSignalling, lostSignalling) << "no signalling is dropped for media";
  EXPECT_EQ(queue.size() + statistics.queueLimitMedia + lostSignalling, 4100U);
  EXPECT_EQ(log.count("WARN The queue to recorder X has reached its limit of 1 MB: its oldest frames are lost, media "
                      "first, until that recorder is faster again"),
            1);
  EXPECT_GT(take(FrameProtocol::Sip), 900U);
  EXPECT_GT(first, 2900) << "the oldest are lost";
  push(FrameProtocol::Rtp, 1);
  EXPECT_EQ(log.count("WARN The queue to recorder X is below its limit again; lost since the start for want of room: " +
                      std::to_string(statistics.queueLimitMedia) + " media and " + std::to_string(lostSignalling) +
                      " other frames"),
            1);
}

TEST_F(QueueOfALane, KeepsTheOrderOfSignallingAndMediaAndDropsABatch) {
  for (int i = 0; i < 300; ++i) push(i % 7 == 0 ? FrameProtocol::Sip : FrameProtocol::Rtp, 1);
  EXPECT_EQ(take(FrameProtocol::Rtp, 20), 20U);
  EXPECT_FALSE(queue.isIdle());
  queue.clearFromSender(5);
  EXPECT_EQ(statistics.queueDiscarded, 300U - 20 - 4 + 5);
  KeptFrame frame;
  EXPECT_FALSE(queue.next(frame));
  EXPECT_EQ(queue.size(), 0U);
  EXPECT_FALSE(queue.takeBatch(std::chrono::milliseconds(0)));
  EXPECT_TRUE(queue.isIdle());
  push(FrameProtocol::Sip, 1);
  EXPECT_EQ(take(FrameProtocol::Sip), 1U);
}

TEST_F(QueueOfALane, LeavesSpaceForSignallingWhenFramesWaitElsewhere) {
  const std::atomic<std::size_t> elsewhere = (1 << 20) / 4 * 3;
  queue.setOthersWaiting(&elsewhere);
  push(FrameProtocol::Rtp, 100);
  push(FrameProtocol::Sip, 100);
  EXPECT_EQ(statistics.queueLimitMedia, 100U);
  EXPECT_EQ(queue.size(), 100U);
}

}  // namespace
