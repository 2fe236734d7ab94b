#include "signalling/CallMaps.h"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <thread>

#include "support/TestLog.h"

using namespace voip;

namespace {

using Events = std::vector<std::string>;
using Address = CallMaps::h245Addr;

Events dump(CallMaps& calls, TestLog& log) {
  log.take();
  calls.display();
  return log.take();
}

TEST(CallMaps, FollowAnnouncementsAndReleases) {
  TestLog log;
  CallMaps calls;
  const Address first("10.0.0.1", 5000), second("10.0.0.1", 6000);
  EXPECT_EQ(dump(calls, log), (Events{"DEBUG CallRefMap is empty", "DEBUG h245Map is empty"}));

  // A second announcement leaves the first address with the call.
  calls.announce("9", first);
  EXPECT_EQ(log.take(), (Events{"DEBUG Inserted 9 and 10.0.0.1:5000 into Call Reference Map",
                                "DEBUG Inserted 10.0.0.1:5000 and 9 into H245 Map"}));
  calls.announce("9", second);
  calls.announce("10", {"10.0.0.1", 7000});
  EXPECT_EQ(dump(calls, log), (Events{"DEBUG Call Ref Map --- Key = 10, Value = 10.0.0.1:7000",
                                      "DEBUG Call Ref Map --- Key = 9, Value = 10.0.0.1:6000",
                                      "DEBUG h245Map --- Key = 10.0.0.1:5000, Value = 9",
                                      "DEBUG h245Map --- Key = 10.0.0.1:6000, Value = 9",
                                      "DEBUG h245Map --- Key = 10.0.0.1:7000, Value = 10"}));
  EXPECT_EQ(calls.callOf(first), "9");

  // Another call takes the address over. The release of the first call still removes it.
  calls.announce("10", second);
  EXPECT_EQ(calls.callOf(second), "10");
  log.take();
  calls.release("9");
  EXPECT_EQ(log.take(), (Events{"DEBUG Erased 9 and 10.0.0.1:6000 from Call Reference Map",
                                "DEBUG Erased 10.0.0.1:6000 and 9 from H245 Map"}));
  EXPECT_FALSE(calls.callOf(second));
  // Unknown calls, and a call whose address is removed already.
  calls.release("9");
  EXPECT_EQ(log.take(), Events());
  calls.release("10");
  EXPECT_EQ(log.take().size(), 1);
  EXPECT_EQ(dump(calls, log), (Events{"DEBUG CallRefMap is empty", "DEBUG h245Map --- Key = 10.0.0.1:5000, Value = 9",
                                      "DEBUG h245Map --- Key = 10.0.0.1:7000, Value = 10"}));
}

// An address belongs to the call that announced it last, regardless of earlier announcements and releases. AddressOrder
// agrees with h245comp.
TEST(CallMaps, FindWhatIsEqual) {
  TestLog log;
  log.setLevel(log4cxx::Level::getError());
  std::mt19937 random(7);
  for (const unsigned spread : {4U, 60U, 20000U}) {
    CallMaps calls;
    std::map<Address, std::string, CallMaps::AddressOrder> owners;
    std::map<std::string, Address> lasts;
    for (int step = 0; step < 30000; ++step) {
      const std::string call = std::to_string(random() % spread);
      const Address address("10.0.0." + std::to_string(random() % std::min(spread, 200U)), random() % spread);
      if (step % 4 == 3) {
        calls.release(call);
        if (lasts.contains(call)) owners.erase(lasts[call]);
        lasts.erase(call);
      } else {
        calls.announce(call, address);
        owners[address] = call;
        lasts[call] = address;
      }
      const Address asked = lasts.contains(call) ? lasts[call] : address;
      ASSERT_EQ(calls.callOf(asked).value_or("none"), owners.contains(asked) ? owners[asked].c_str() : "none");
    }
  }
  const CallMaps::h245comp before;
  const CallMaps::AddressOrder order;
  const Address addresses[] = {{"10.0.0.1", 9}, {"10.0.0.2", 8}, {"10.0.0.10", 9}, {"9.0.0.1", 8}, {"10.0.0.1", 8}};
  for (const Address& a : addresses) {
    for (const Address& b : addresses) {
      EXPECT_EQ(!before(a, b) && !before(b, a), a == b);
      EXPECT_TRUE(before(a, b) == before(b, a) || order(a, b) == before(a, b));
    }
  }
  EXPECT_TRUE(before(addresses[0], addresses[1]) && before(addresses[1], addresses[0]));
}

TEST(CallMaps, ForgetTheAddressAnnouncedLongestAgo) {
  TestLog log;
  log.setLevel(log4cxx::Level::getWarn());
  Statistics statistics;
  CallMaps calls(&statistics);
  for (unsigned port = 0; port < CallMaps::kMaxAddresses; ++port) calls.announce(PString(port), {"a", port});
  calls.announce("again", {"a", 0});
  calls.announce("new", {"b", 1});
  calls.announce("newer", {"b", 2});
  EXPECT_EQ(statistics.h245AddressesForgotten, 2);
  EXPECT_EQ(calls.callOf({"a", 0}), "again");
  EXPECT_FALSE(calls.callOf({"a", 1}) || calls.callOf({"a", 2}));
  EXPECT_EQ(calls.callOf({"a", 3}), "3");
  // A call whose last address is forgotten does not remove it from another call.
  calls.announce("newest", {"a", 1});
  calls.release("1");
  EXPECT_EQ(calls.callOf({"a", 1}), "newest");
  EXPECT_EQ(log.take().size(), 1);
}

// The thread that ends the sniffer logs the maps while another thread may still describe a segment.
TEST(CallMaps, AreLoggedWhileTheyChange) {
  TestLog log;
  CallMaps calls;
  std::thread changing([&] {
    for (unsigned step = 0; step < 300; ++step) {
      calls.announce(PString(step % 20), {"10.0.0.1", step % 30});
      calls.release(PString(step * 7 % 20));
    }
  });
  for (int step = 0; step < 100; ++step) calls.display();
  changing.join();
}

}  // namespace
