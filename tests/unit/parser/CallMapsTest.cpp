// Calls and the H.245 addresses that they announce.

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <set>
#include <thread>

#include "../TestLog.h"
#include "Segments.h"

namespace {

constexpr std::size_t kCallReference = kHeaderLength + 4 + 2;

struct Address {
  std::string ip;
  u_int port = 0;

  auto operator<=>(const Address&) const = default;
  std::string text() const { return ip + ":" + std::to_string(port); }
};

/// One parser and the messages of a call to put to it, with any reference and any address.
class Calls {
 public:
  H323Parser parser;

  void announce(int reference, const Address& address) {
    PString callReference(reference);
    H323Parser::h245Addr addr(PString(address.ip), address.port);
    parser.updateMaps(callReference, addr);
  }

  Description release(int reference, bool byDestination = false) {
    releaseComplete.payload[kCallReference] = static_cast<u_char>(reference >> 8 | (byDestination ? 0x80 : 0));
    releaseComplete.payload[kCallReference + 1] = static_cast<u_char>(reference);
    return describe(parser, releaseComplete);
  }

  /// An OpenLogicalChannel on an H.245 connection of its own.
  Description open(const Address& from, const Address& to) {
    openLogicalChannel.tx_ip = inet_addr(from.ip.c_str());
    openLogicalChannel.tx_port = from.port;
    openLogicalChannel.rx_ip = inet_addr(to.ip.c_str());
    openLogicalChannel.rx_port = to.port;
    return describe(parser, openLogicalChannel);
  }

  static Description channelOf(const std::string& reference) {
    return {true, "t:130\nr:" + reference + "\nm:101:fcodec:g711Alaw64k 20,\n"};
  }

 private:
  Segment releaseComplete = segmentOf(kCalls[2], "t:90");
  Segment openLogicalChannel = segmentOf(kCalls[2], "t:130");
};

using Events = std::vector<std::string>;

TEST(CallMaps, FollowAnnouncementsAndReleases) {
  TestLog log;
  Calls calls;
  const Address first{"10.0.0.1", 5000};
  const Address second{"10.0.0.1", 6000};
  const Address elsewhere{"10.9.0.1", 1};
  const auto dump = [&] {
    log.take();
    calls.parser.displayCallIdMap();
    return log.take();
  };
  EXPECT_EQ(dump(), (Events{"DEBUG CallRefMap is empty", "DEBUG h245Map is empty"}));

  // A second announcement leaves the first address with the call.
  calls.announce(9, first);
  EXPECT_EQ(log.take(), (Events{"DEBUG Inserted 9 and 10.0.0.1:5000 into Call Reference Map",
                                "DEBUG Inserted 10.0.0.1:5000 and 9 into H245 Map"}));
  calls.announce(9, second);
  calls.announce(10, {"10.0.0.1", 7000});
  EXPECT_EQ(dump(), (Events{"DEBUG Call Ref Map --- Key = 10, Value = 10.0.0.1:7000",
                            "DEBUG Call Ref Map --- Key = 9, Value = 10.0.0.1:6000",
                            "DEBUG h245Map --- Key = 10.0.0.1:5000, Value = 9",
                            "DEBUG h245Map --- Key = 10.0.0.1:6000, Value = 9",
                            "DEBUG h245Map --- Key = 10.0.0.1:7000, Value = 10"}));
  EXPECT_EQ(calls.open(first, elsewhere), Calls::channelOf("9"));
  EXPECT_EQ(calls.open(elsewhere, second), Calls::channelOf("9"));

  // Another call takes the address over; then a release by the first call takes it from that one.
  calls.announce(10, second);
  EXPECT_EQ(calls.open(second, first), Calls::channelOf("10"));
  log.take();
  calls.release(9, true);
  EXPECT_EQ(log.take(), (Events{"DEBUG ReleaseComplete CallId: 781df4d9-bfe3-f111-9794-4a1b0e11fba3 CallRef:9",
                                "DEBUG Erased 9 and 10.0.0.1:6000 from Call Reference Map",
                                "DEBUG Erased 10.0.0.1:6000 and 9 from H245 Map"}));
  EXPECT_EQ(calls.open(second, elsewhere), (Description{false, "t:130\n"}));
  EXPECT_EQ(log.take(), (Events{"ERROR Dropping pkt as received OLC does not match existing session",
                                "DEBUG Tx IP:Port=10.0.0.1:6000\nRx IP:Port=10.9.0.1:1",
                                "DEBUG Call Ref Map --- Key = 10, Value = 10.0.0.1:6000",
                                "DEBUG h245Map --- Key = 10.0.0.1:5000, Value = 9",
                                "DEBUG h245Map --- Key = 10.0.0.1:7000, Value = 10"}));
  // Unknown calls and calls whose address is gone.
  calls.release(9);
  EXPECT_EQ(log.take().size(), 1);
  calls.release(10);
  EXPECT_EQ(log.take().size(), 2);
  EXPECT_EQ(dump(), (Events{"DEBUG CallRefMap is empty", "DEBUG h245Map --- Key = 10.0.0.1:5000, Value = 9",
                            "DEBUG h245Map --- Key = 10.0.0.1:7000, Value = 10"}));
}

// The order of the addresses has each of these two in front of the other.
TEST(CallMaps, AreAsOddAsTheOrderOfTheirAddresses) {
  const H323Parser::h245comp before;
  const H323Parser::h245Addr low("10.0.0.1", 9);
  const H323Parser::h245Addr high("10.0.0.2", 8);
  EXPECT_TRUE(before(low, high));
  EXPECT_TRUE(before(high, low));
  EXPECT_FALSE(before(low, low));
  EXPECT_TRUE(before({"10.0.0.10", 1}, {"10.0.0.9", 1}));  // as texts
}

// Announcements and releases by the hundred thousand, with addresses that collide and addresses that are new. The order
// of the addresses may hide an entry, but the call that is found is one that announced the address.
TEST(CallMaps, StayWholeUnderHostileAddresses) {
  std::mt19937 random(7);
  const auto below = [&](u_int limit) { return static_cast<u_int>(random() % limit); };
  for (const u_int spread : {3U, 12U, 60000U}) {
    TestLog log;
    log.setLevel(log4cxx::Level::getFatal());
    Calls calls;
    std::map<std::string, std::string> callRefMap;
    std::map<Address, std::set<int>> announcedBy;
    Address last;
    int found = 0;
    for (int step = 0; step < 35000; ++step) {
      const int reference = static_cast<int>(below(std::min(spread * 10, 32768U)));
      switch (below(4)) {
        case 0:
        case 1:
          last = {"10." + std::to_string(below(3)) + ".0." + std::to_string(below(std::min(spread, 256U))),
                  below(spread)};
          calls.announce(reference, last);
          callRefMap[std::to_string(reference)] = last.text();
          announcedBy[last].insert(reference);
          break;
        case 2:
          EXPECT_TRUE(calls.release(reference).forwarded);
          callRefMap.erase(std::to_string(reference));
          break;
        case 3:
          const Description channel = calls.open(last, last);
          if (!channel.forwarded) break;
          const int owner = std::stoi(channel.text.substr(channel.text.find("r:") + 2));
          ASSERT_EQ(channel, Calls::channelOf(std::to_string(owner)));
          ASSERT_TRUE(announcedBy[last].contains(owner)) << last.text() << " " << owner;
          ++found;
      }
    }
    EXPECT_GT(found, 0) << spread;

    log.setLevel(log4cxx::Level::getDebug());
    calls.parser.displayCallIdMap();
    Events expected;
    for (const auto& [reference, address] : callRefMap) {
      expected.push_back("DEBUG Call Ref Map --- Key = " + reference + ", Value = " + address);
    }
    const Events events = log.take();
    ASSERT_GE(events.size(), expected.size());
    EXPECT_TRUE(std::equal(expected.begin(), expected.end(), events.begin()));
  }
}

// The thread that ends the sniffer has the maps logged while the other may still be at a segment.
TEST(CallMaps, AreLoggedWhileTheyChange) {
  TestLog log;
  Calls calls;
  std::thread changing([&] {
    for (int step = 0; step < 300; ++step) {
      calls.announce(step % 20, {"10.0.0.1", static_cast<u_int>(step % 30)});
      calls.release(step * 7 % 20);
    }
  });
  for (int step = 0; step < 100; ++step) calls.parser.displayCallIdMap();
  changing.join();
}

}  // namespace
