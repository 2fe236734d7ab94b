#include "forwarding/RtpDestinations.h"

#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <random>
#include <thread>

using namespace voip;

TEST(Destinations, AreThoseAddedAndNotRemovedSince) {
  RtpDestinations list;
  std::map<std::pair<u_int, u_short>, std::size_t> expected = {{{7, 7}, 1}};
  list.add({7, 7});
  std::atomic<bool> stop = false;
  std::thread reader([&] {
    while (!stop) ASSERT_TRUE(list.contains({7, 7})) << "while other keys move";
  });
  std::mt19937 random(1);
  for (int i = 0; i < 20000; ++i) {
    const u_int ip = 0x0A000000 + random() % 50;
    const auto port = static_cast<u_short>(random() % 60);
    if (random() % 3 != 0) {
      list.add({ip, port});
      ++expected[{ip, port}];
    } else {
      list.remove({ip, port});
      expected.erase({ip, port});
    }
  }
  stop = true;
  reader.join();
  std::size_t length = 0;
  for (const auto& [destination, times] : expected) {
    EXPECT_TRUE(list.contains({destination.first, destination.second}));
    length += times;
  }
  EXPECT_EQ(list.length(), length);
  for (const auto& one : expected) list.remove({one.first.first, one.first.second});
  EXPECT_EQ(list.length(), 0U);
  for (u_int i = 0; i < 50 * 60; ++i) EXPECT_FALSE(list.contains({0x0A000000 + i / 60, static_cast<u_short>(i % 60)}));
}
