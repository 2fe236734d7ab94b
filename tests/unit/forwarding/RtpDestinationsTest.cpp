#include "forwarding/RtpDestinations.h"

#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <random>
#include <thread>
#include <tuple>

using namespace voip;

namespace {

/// Returns 10.0.0.`number`, or for an odd number 2001:db8:`number`::10.0.0.5. All IPv6 addresses have the same end.
IpEndpoint at(u_int number, std::uint16_t port) {
  if (number % 2 == 0) return {0x0A000000 + number, port};
  const std::uint8_t octets[16] = {0x20,
                                   1,
                                   0x0D,
                                   0xB8,
                                   static_cast<std::uint8_t>(number >> 16),
                                   static_cast<std::uint8_t>(number >> 8),
                                   static_cast<std::uint8_t>(number),
                                   0,
                                   0,
                                   0,
                                   0,
                                   0,
                                   10,
                                   0,
                                   0,
                                   5};
  return {IpAddress::read(octets), port};
}

}  // namespace

TEST(Destinations, AreThoseThatEachRecorderAddedAndDidNotRemoveSince) {
  for (const unsigned recorders : {1U, 3U, RtpDestinations::kMaxRecorders}) {
    SCOPED_TRACE(recorders);
    RtpDestinations all;
    all.setRecorders(recorders);
    std::map<std::tuple<unsigned, u_int, u_short>, std::size_t> expected = {{{0, 70, 70}, 1}, {{0, 71, 70}, 1}};
    for (const u_int ip : {70U, 71U}) all.add(at(ip, 70), 0);
    std::atomic<bool> stop = false;
    std::thread reader([&] {
      while (!stop) {
        ASSERT_EQ(all.wantedBy(at(70, 70)), 1U) << "while other keys move";
        ASSERT_EQ(all.wantedBy(at(71, 70)), 1U);
        ASSERT_EQ(all.wantedBy(at(73, 70)), 0U);
      }
    });
    std::mt19937 random(1);
    for (int i = 0; i < 40000; ++i) {
      const auto recorder = static_cast<unsigned>(random() % recorders);
      const u_int ip = random() % 50;
      const auto port = static_cast<u_short>(random() % 60);
      if (recorder != 0 && random() % 5000 == 0) {
        all.clear(recorder);
        std::erase_if(expected, [&](const auto& one) { return std::get<0>(one.first) == recorder; });
      } else if (random() % 3 != 0) {
        EXPECT_TRUE(all.add(at(ip, port), recorder));
        ++expected[{recorder, ip, port}];
      } else {
        all.remove(at(ip, port), recorder);
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
      const auto port = static_cast<u_short>(i % 60);
      EXPECT_EQ(all.wantedBy(at(i / 60, port)), (bits[{i / 60, port}]));
    }
    for (unsigned recorder = 0; recorder < recorders; ++recorder) {
      EXPECT_EQ(all.length(recorder), lengths[recorder]);
      all.clear(recorder);
      EXPECT_EQ(all.length(recorder), 0U);
    }
    EXPECT_EQ(all.wantedBy(at(71, 70)), 0U);
  }
}

TEST(Destinations, OfOneOfSeveralRecordersAreLimited) {
  RtpDestinations all;
  all.setRecorders(2);
  const auto fill = [&] {
    for (u_int i = 0; i < RtpDestinations::kMaxOfEach; ++i) ASSERT_TRUE(all.add(at(i, 1), 1));
  };
  fill();
  EXPECT_FALSE(all.add(at(0, 2), 1) || all.add(at(1, 2), 1));
  EXPECT_TRUE(all.add(at(0, 1), 1)) << "an equal entry";
  EXPECT_TRUE(all.add(at(0, 2), 0)) << "another recorder";
  all.clear(1);
  EXPECT_EQ(all.wantedBy(at(0, 1)), 0U);
  fill();
  EXPECT_EQ(all.length(1), RtpDestinations::kMaxOfEach);
  EXPECT_EQ(all.wantedBy(at(0, 2)), 1U);
}
