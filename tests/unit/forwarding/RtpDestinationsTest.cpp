#include "forwarding/RtpDestinations.h"

#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <random>
#include <thread>
#include <tuple>

using namespace voip;

TEST(Destinations, AreThoseThatEachRecorderAddedAndDidNotRemoveSince) {
  for (const unsigned recorders : {1U, 3U, RtpDestinations::kMaxRecorders}) {
    SCOPED_TRACE(recorders);
    RtpDestinations all;
    all.setRecorders(recorders);
    std::map<std::tuple<unsigned, u_int, u_short>, std::size_t> expected = {{{0, 7, 7}, 1}};
    all.add({7, 7}, 0);
    std::atomic<bool> stop = false;
    std::thread reader([&] {
      while (!stop) ASSERT_EQ(all.wantedBy({7, 7}), 1U) << "while other keys move";
    });
    std::mt19937 random(1);
    for (int i = 0; i < 40000; ++i) {
      const auto recorder = static_cast<unsigned>(random() % recorders);
      const u_int ip = 0x0A000000 + random() % 50;
      const auto port = static_cast<u_short>(random() % 60);
      if (recorder != 0 && random() % 5000 == 0) {
        all.clear(recorder);
        std::erase_if(expected, [&](const auto& one) { return std::get<0>(one.first) == recorder; });
      } else if (random() % 3 != 0) {
        EXPECT_TRUE(all.add({ip, port}, recorder));
        ++expected[{recorder, ip, port}];
      } else {
        all.remove({ip, port}, recorder);
        expected.erase({recorder, ip, port});
      }
    }
    stop = true;
    reader.join();
    std::vector<std::size_t> lengths(recorders);
    std::map<std::pair<u_int, u_short>, std::uint32_t> bits;
    for (const auto& [entry, times] : expected) {
      const auto& [recorder, ip, port] = entry;
      bits[{ip, port}] |= 1U << recorder;
      lengths[recorder] += times;
    }
    for (u_int i = 0; i < 50 * 60; ++i) {
      const RtpAddr destination(0x0A000000 + i / 60, static_cast<u_short>(i % 60));
      EXPECT_EQ(all.wantedBy(destination), (bits[{destination.rtpIp, destination.rtpPort}]));
    }
    for (unsigned recorder = 0; recorder < recorders; ++recorder) {
      EXPECT_EQ(all.length(recorder), lengths[recorder]);
      all.clear(recorder);
      EXPECT_EQ(all.length(recorder), 0U);
    }
    EXPECT_EQ(all.wantedBy({7, 7}), 0U);
  }
}

TEST(Destinations, OfOneOfSeveralRecordersAreLimited) {
  RtpDestinations all;
  all.setRecorders(2);
  const auto fill = [&] {
    for (u_int i = 0; i < RtpDestinations::kMaxOfEach; ++i) ASSERT_TRUE(all.add({i, 1}, 1));
  };
  fill();
  EXPECT_FALSE(all.add({0, 2}, 1));
  EXPECT_TRUE(all.add({0, 1}, 1)) << "an equal entry";
  EXPECT_TRUE(all.add({0, 2}, 0)) << "another recorder";
  all.clear(1);
  EXPECT_EQ(all.wantedBy({0, 1}), 0U);
  fill();
  EXPECT_EQ(all.length(1), RtpDestinations::kMaxOfEach);
  EXPECT_EQ(all.wantedBy({0, 2}), 1U);
}
