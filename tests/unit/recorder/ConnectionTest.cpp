#include <gtest/gtest.h>
#include <netdb.h>
#include <sys/resource.h>

#include <array>
#include <cerrno>

#include "recorder/EmbeddedConnection.h"
#include "recorder/UdpConnection.h"
#include "support/Loopback.h"
#include "support/TestLog.h"

using namespace voip;

namespace {

int segmentRefusal = 0;  // errno of sends with segmentation offload, or 0 when they succeed
int segmentSends = 0;    // their number

}  // namespace

extern "C" int sendmmsg(int sd, mmsghdr* messages, unsigned count, int flags) {
  static const auto real = systemCall<int(int, mmsghdr*, unsigned, int)>("sendmmsg");
  for (unsigned i = 0; i < count; ++i) {
    if (messages[i].msg_hdr.msg_controllen == 0) continue;
    ++segmentSends;
    if (segmentRefusal == 0) continue;
    errno = segmentRefusal;
    return i > 0 ? real(sd, messages, i, flags) : -1;
  }
  return real(sd, messages, count, flags);
}

namespace {

class Udp : public testing::Test {
 protected:
  /// Sends a datagram to the connection. Returns true when it is taken as a command.
  bool commands(const Loopback& from, const Bytes& datagram) {
    from.writeTo(Loopback(dup(connection.getClientSd())).port(), datagram);
    connection.awaitRequest();
    return connection.receiveRequest(request);
  }

  TestLog log;
  Statistics statistics;
  Loopback recorder{SOCK_DGRAM, 0, 0, INADDR_LOOPBACK + 1};
  Loopback other{SOCK_DGRAM, 0};
  UdpConnection connection{"127.0.0.2", recorder.port()};
  SnifferRequest request;
};

TEST_F(Udp, SendsFramesToTheSourceOfTheLastCommand) {
  EXPECT_EQ(connection.getServerPort(), recorder.port());
  EXPECT_FALSE(connection.receiveRequest(request));
  Bytes frame(1400, 0x11), heartbeat = command(3, 0x0A000007, 40000), two = heartbeat;
  EXPECT_EQ(connection.sendPacket(frame.data(), 1400), 1400);
  EXPECT_EQ(recorder.readDatagram(), frame);
  append(two, command(1, 1, 1));
  const struct {
    const Loopback& from;
    Bytes datagram;
    SnifferRequest decoded;
  } cases[] = {{other, heartbeat, {3, 0x0A000007, 40000}},
               {recorder, {1, 192}, {1, 0xC0000007, 40000}},  // too short: the rest is that of the last command
               {other, two, {3, 0x0A000007, 40000}}};         // too long: the rest is ignored
  for (const auto& [from, datagram, decoded] : cases) {
    EXPECT_TRUE(commands(from, datagram));
    EXPECT_EQ(request, decoded);
    EXPECT_EQ(connection.sendPacket(frame.data(), 1400), 1400);
    EXPECT_EQ(from.readDatagram(), frame);
  }
  EXPECT_TRUE(log.contains("DEBUG rx from server cmd=3, ip=10.0.0.7, port=40000, nRcvd=7"));
  EXPECT_FALSE(commands(recorder, {})) << "no bytes, no command";
}

TEST_F(Udp, TakesIpv6AddressesByTheLengthOfTheDatagram) {
  Bytes add = {4};
  append(add, Bytes(15, 0));
  append(add, 0x05'9C40, 3);
  const SnifferRequest is7{4, 0, 0}, is19{4, IpAddress::read(add.data() + 1), 40000};
  Bytes longer = add;
  longer.push_back(1);
  for (const bool isOn : {false, true}) {
    connection.setIpv6(isOn);
    for (const auto& [datagram, decoded] : {std::pair{add, isOn ? is19 : is7},
                                            {longer, isOn ? is19 : is7},
                                            {Bytes(add.begin(), add.end() - 1), is7},
                                            {Bytes{2}, SnifferRequest{2, 0, 0}}}) {
      EXPECT_TRUE(commands(recorder, datagram));
      EXPECT_EQ(request, decoded);
    }
  }
  EXPECT_TRUE(log.contains("DEBUG rx from server cmd=4, ip=::5, port=40000, nRcvd=19"));
}

TEST(SocketAddress, IsReadFromItsText) {
  const auto textOf = [](const char* host) -> std::string {
    const SocketAddress address(host, 6000);
    char text[NI_MAXHOST], port[NI_MAXSERV];
    getnameinfo(address.data(), address.size(), text, sizeof text, port, sizeof port, NI_NUMERICHOST | NI_NUMERICSERV);
    return std::string(text) + " " + port;
  };
  const std::pair<const char*, const char*> cases[] = {{"10.0.0.5", "10.0.0.5 6000"},
                                                       {"2001:db8::5", "2001:db8::5 6000"},
                                                       {"fe80::5%lo", "fe80::5%lo 6000"},
                                                       {"fe80::5", "fe80::5 6000"},
                                                       {"name", "255.255.255.255 6000"},
                                                       {"2001:db8::5:", "255.255.255.255 6000"},
                                                       {"fe80::5%", "255.255.255.255 6000"},
                                                       {"", "255.255.255.255 6000"},
                                                       {"[2001:db8::5]", "255.255.255.255 6000"}};
  for (const auto& [host, expected] : cases) EXPECT_EQ(textOf(host), expected) << host;
  EXPECT_TRUE(SocketAddress("::1", 1).hasAddressOf({"0::1", 2}));
  EXPECT_FALSE(SocketAddress("::1", 1).hasAddressOf({"::2", 1}));
  EXPECT_FALSE(SocketAddress("::1", 1).hasAddressOf({"0.0.0.1", 1}));
}

TEST_F(Udp, TakesCommandsOnlyFromTheServerIfConfigured) {
  connection.setStatistics(statistics);
  connection.setCommandsFromServerOnly(true);
  EXPECT_FALSE(commands(other, command(1, 0xFFFFFFFF, 9)));
  EXPECT_TRUE(commands(recorder, {2, 10}));
  EXPECT_EQ(request, SnifferRequest(2, 0x0A000000, 0)) << "without bytes of the ignored command";
  EXPECT_EQ(statistics.commandsIgnored, 1U);
}

TEST_F(Udp, SendsEachFrameOfAGroupAsOneDatagramInOrder) {
  std::vector<int> sizes(70, 200);  // more than one send can have segments
  sizes.insert(sizes.end(), {100, 300, 300, 0, 1400, 1400, 70000, 50, 50});
  // Segments that the path cannot take are not tried again; after a temporary error they are.
  for (const auto& [refusal, attempts] : {std::pair{0, 14}, {EINVAL, 3}, {EIO, 1}, {EAGAIN, 6}}) {
    SCOPED_TRACE(refusal);
    UdpConnection fresh("127.0.0.2", recorder.port());
    segmentRefusal = refusal;
    segmentSends = 0;
    for (int round = 0; round < 2; ++round) {
      std::vector<Bytes> frames;
      std::vector<OutgoingFrame> group;
      for (const int size : sizes) frames.emplace_back(size, static_cast<std::uint8_t>(frames.size()));
      for (Bytes& frame : frames) group.push_back({frame.data(), static_cast<int>(frame.size())});
      EXPECT_EQ(fresh.sendPackets(group).dealtWith, 77U) << "stops after the frame that is too long";
      EXPECT_EQ(fresh.sendPackets(std::span(group).subspan(77)).dealtWith, 2U);
      EXPECT_EQ(group[76].sent, -1);
      frames.erase(frames.begin() + 76);
      for (const Bytes& frame : frames) EXPECT_EQ(recorder.readDatagram(), frame);
    }
    EXPECT_EQ(log.take(), std::vector<std::string>(2, "ERROR len=70000, sent=-1\nError sento on socket"));
    EXPECT_EQ(segmentSends, attempts);
  }
  segmentRefusal = 0;
}

TEST_F(Udp, ClosesItsDescriptorOnce) {
  connection.closeConnection();
  const Loopback successor(SOCK_DGRAM, 0);
  ASSERT_EQ(successor.sd, connection.getClientSd()) << "the system gives the number to the next socket";
  connection.closeConnection();
  EXPECT_NE(fcntl(successor.sd, F_GETFD), -1);
  std::uint8_t byte = 0;
  EXPECT_EQ(connection.sendPacket(&byte, 1), -1);
  EXPECT_FALSE(connection.receiveRequest(request));
}

TEST_F(Udp, ExitsWhenThereIsNoSocket) {
  const auto withoutDescriptors = [] {
    const rlimit none{};
    setrlimit(RLIMIT_NOFILE, &none);
    const UdpConnection unused("127.0.0.1", 9);
  };
  EXPECT_EXIT(withoutDescriptors(), testing::ExitedWithCode(1), "");
}

/// Counts the entries and their depth.
struct CountingMonitor : HostMonitor {
  void enter() override { ++entered, ++depth; }
  void leave() override { --depth; }
  int entered = 0;
  int depth = 0;
};

TEST(Embedded, QueuesFramesAndCommandsInOrder) {
  EXPECT_EQ(EmbeddedConnection::dft(), EmbeddedConnection::dft());
  EmbeddedConnection connection;
  CountingMonitor monitor;
  connection.setHostMonitor(&monitor);
  std::array<char, 64> buffer{};
  EXPECT_EQ(connection.receivePacket(buffer.data()), 0);
  Bytes first = {1, 2, 3}, second(40, 9);
  OutgoingFrame group[] = {{first.data(), 3}, {second.data(), 40}};
  EXPECT_EQ(connection.sendPackets(group).dealtWith, 2U);
  EXPECT_EQ(monitor.entered, 1) << "once a group";
  first[0] = 77;  // the queue has its own copy
  EXPECT_EQ(connection.receivePacket(buffer.data(), 3), 3);
  EXPECT_EQ(std::string(buffer.data(), 4), std::string("\1\2\3\0", 4));
  EXPECT_EQ(connection.receivePacket(buffer.data()), 40);
  EXPECT_EQ(connection.receivePacket(buffer.data()), 0);

  // All waiting commands can be taken at once.
  std::vector<u_int> carriedOut;
  SnifferRequest request(1, 0, 1);
  for (; request.rtpAddr < 5000; ++request.rtpAddr) EXPECT_TRUE(connection.sendRequest(request));
  EXPECT_TRUE(connection.mayHaveRequest());
  EXPECT_EQ(monitor.entered, 1) << "on the dissector's side only";
  while (connection.receiveRequest(request)) carriedOut.push_back(request.rtpAddr);
  ASSERT_EQ(carriedOut.size(), 5000U);
  EXPECT_TRUE(std::is_sorted(carriedOut.begin(), carriedOut.end()));

  // The setting at the time when a command is carried out decides whether its IPv6 address counts.
  SnifferRequest ipv6(SnifferRequest::kAddIpv6Destination, IpAddress(), 5000);
  for (const bool isOn : {false, true}) {
    connection.sendRequest(ipv6);
    connection.setIpv6(isOn);
    EXPECT_TRUE(connection.receiveRequest(request));
    EXPECT_EQ(request.hasIpv6, isOn);
  }

  connection.sendRequest(request);
  connection.sendPacket(first.data(), 3);
  connection.closeConnection();
  EXPECT_EQ(connection.receivePacket(buffer.data()), 0);
  EXPECT_FALSE(connection.receiveRequest(request));
  EXPECT_EQ(connection.sendPacket(first.data(), 3), 3);
  EXPECT_EQ(connection.receivePacket(buffer.data()), 3);
  EXPECT_EQ(monitor.depth, 0);
}

TEST(Embedded, FetchesManyFramesWholeAndInOrder) {
  TestLog log("EmbeddedConnection");
  std::array<char, 70000> buffer{};
  const auto lengthOf = [](int i) { return i % 10 == 9 ? 0 : i % 7 == 0 ? 65535 - i : 15 + i % 1500; };
  // A buffer that holds one long frame, one that holds many frames, and one that ends within the first long frame.
  for (const int capacity : {65535, 70000, 3000}) {
    EmbeddedConnection connection;
    Bytes expected, got;
    for (int i = 1; i < 700; ++i) {
      Bytes frame(static_cast<std::size_t>(lengthOf(i)), static_cast<std::uint8_t>(i));
      connection.sendPacket(frame.data(), lengthOf(i));
      expected.insert(expected.end(), frame.begin(), frame.end());
    }
    int length = 0, fetches = 0;
    const auto fetch = [&] {
      const bool many = ++fetches % 3 != 0;  // sometimes one frame only
      std::fill(buffer.begin(), buffer.end(), static_cast<char>(0xEE));
      length = many ? connection.receivePackets(buffer.data(), capacity) : connection.receivePacket(buffer.data());
      return length > 0 || (!many && length == 0 && connection.getBacklog().waiting > 0);
    };
    while (fetch()) {
      got.insert(got.end(), buffer.begin(), buffer.begin() + length);
      EXPECT_EQ(std::count(buffer.begin() + length, buffer.end(), static_cast<char>(0xEE)), 70000 - length);
    }
    if (capacity == 3000) {
      EXPECT_EQ(length, -lengthOf(7));
      EXPECT_TRUE(std::equal(got.begin(), got.end(), expected.begin())) << "the frames before it";
      EXPECT_EQ(connection.receivePacket(buffer.data()), lengthOf(7)) << "it stays";
    } else {
      EXPECT_EQ(got, expected);
      EXPECT_EQ(*connection.getBacklogSize(), 0U);
    }
  }
  EmbeddedConnection connection;
  Bytes frame(15);
  connection.sendPacket(frame.data(), 15);
  connection.setHostPatience(std::chrono::hours(0));
  connection.watchHost();
  EXPECT_EQ(connection.receivePackets(buffer.data(), 14), -15);
  EXPECT_EQ(connection.receivePackets(buffer.data(), 15), 15);
  EXPECT_EQ(log.take(), std::vector<std::string>({"WARN The host has fetched nothing for 0 s, 1 frames wait",
                                                  "WARN The host fetches frames again, 0 wait"}));
}

TEST(Embedded, AnnouncesFramesThatAreLateWhenTheHostFetches) {
  TestLog log("EmbeddedConnection");
  constexpr std::int64_t kLong = 1'700'000'000'000'000, kTimely = INT64_MAX;
  // A frame is named by its length, which is also its port and part of the time at which it was seen.
  const std::pair<u_short, std::int64_t> frames[] = {{100, kLong + 100},     {50, kTimely}, {60, kLong + 60}, {15, 0},
                                                     {65535, kLong + 65535}, {16, 0}};
  const struct {
    bool fetchesMany;
    int capacity;
    std::size_t announcesFrom;  // the frame before which the setting is switched on
    std::string fetches;
  } cases[] = {{true, 65558, 6, "100 50 60 15 | 65535 16 | "},
               {true, 65558, 0, "t100 100 50 t60 60 15 | t65535 65535 | 16 | "},
               {true, 65535, 0, "t100 100 50 t60 60 15 | t65535 | 65535 | 16 | "},
               {true, 65535, 2, "100 50 t60 60 15 | t65535 | 65535 | 16 | "},
               {true, 132, 0, "t100 100 | 50 | t60 60 15 | -65535 | "},
               {true, 100, 0, "t100 | 100 | 50 | t60 60 15 | -65535 | "},
               {true, 99, 0, "-100 | "},
               {false, 65535, 6, "100 | 50 | 60 | 15 | 65535 | 16 | "},
               {false, 65535, 0, "t100 | 100 | 50 | t60 | 60 | 15 | t65535 | 65535 | 16 | "},
               {false, 99, 0, "t100 | "},
               {false, 22, 0, ""}};
  std::vector<char> buffer(65558);
  for (const auto& [fetchesMany, capacity, announcesFrom, fetches] : cases) {
    EmbeddedConnection connection;
    connection.setCaptureTime(announcesFrom == 0);
    for (std::size_t i = 0; i < std::size(frames); ++i) {
      const auto [length, seen] = frames[i];
      if (i == announcesFrom) connection.setCaptureTime(true);
      Bytes bytes(length);
      FrameHeader{length, FrameProtocol::Rtp, 1, 2, 3, length}.write(bytes.data());
      OutgoingFrame frame{bytes.data(), length, 0, {1, seen}};
      connection.sendPackets({&frame, 1});
    }
    std::size_t waiting = std::size(frames), bytesWaiting = *connection.getBacklogSize();
    std::string fetched;
    for (int length = 1; length > 0 && waiting > 0;) {
      length = fetchesMany ? connection.receivePackets(buffer.data(), capacity)
                           : connection.receivePacket(buffer.data(), capacity);
      const auto* at = reinterpret_cast<const std::uint8_t*>(buffer.data());
      if (length < 0) fetched += std::to_string(length) + " ";
      for (const auto* const end = at + std::max(length, 0); at < end; at += FrameHeader::of(at).len) {
        const FrameHeader header = FrameHeader::of(at);
        std::uint64_t time = 0;
        const bool isTime = header.protocol == FrameProtocol::CaptureTime && header.len == 23 && header.dstPort == 2;
        for (int i = 15; isTime && i < 23; ++i) time = time << 8 | at[i];
        EXPECT_EQ(time, isTime ? kLong + header.srcPort : 0U);
        fetched += (isTime ? "t" : "") + std::to_string(header.srcPort) + " ";
        if (!isTime) --waiting, bytesWaiting -= header.len;
      }
      if (length != 0) fetched += "| ";
      EXPECT_EQ(connection.getBacklog().waiting, waiting);
      EXPECT_EQ(*connection.getBacklogSize(), bytesWaiting);
    }
    EXPECT_EQ(fetched, fetches);
  }
}

TEST(Embedded, AnnouncesFramesWithIpv6Addresses) {
  const std::uint8_t octets[16] = {0xFD, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};
  const IpAddress address = IpAddress::read(octets);
  Bytes bytes(50);
  FrameHeader{50, FrameProtocol::Rtp, address, 5000, address, 4000}.write(bytes.data());
  EmbeddedConnection connection;
  connection.setCaptureTime(true);
  for (const int capacity : {46, 49, 50, 96, 97}) {
    OutgoingFrame frame{bytes.data(), 50, 0, {1, 1}};
    connection.sendPackets({&frame, 1});
    Bytes fetched(200);
    int length = connection.receivePackets(reinterpret_cast<char*>(fetched.data()), capacity);
    if (capacity < 50) {
      EXPECT_EQ(length, -50);
      length = connection.receivePackets(reinterpret_cast<char*>(fetched.data()), 97);
    }
    if (length == 47) {
      EXPECT_LT(capacity, 97);
      length += connection.receivePackets(reinterpret_cast<char*>(fetched.data()) + 47, 50);
    }
    ASSERT_EQ(length, 97);
    EXPECT_EQ(Bytes(fetched.begin(), fetched.begin() + 3), Bytes({0, 47, 69}));
    EXPECT_TRUE(std::equal(bytes.begin() + 3, bytes.begin() + 39, fetched.begin() + 3));
    EXPECT_EQ(fetched[46], 1);
    EXPECT_TRUE(std::equal(bytes.begin(), bytes.end(), fetched.begin() + 47));
  }
}

TEST(Embedded, KeepsABurstInOrderAndWarnsWhenTheHostDoesNotFetch) {
  TestLog log("EmbeddedConnection");
  EmbeddedConnection connection;
  std::vector<char> buffer(1 << 20);
  // More frames than the spare blocks hold, frames at the end of a block, and one that is larger than a block.
  const auto lengthOf = [](int i) { return i == 500 ? 1 << 20 : i % 2 == 0 ? 15 + i : 65535 - i; };
  const auto send = [&](int i) {
    Bytes frame(static_cast<std::size_t>(lengthOf(i)), static_cast<std::uint8_t>(i));
    connection.sendPacket(frame.data(), lengthOf(i));
  };
  for (int round = 0; round < 2; ++round) {
    for (int i = 0; i < 501; ++i) send(i);
    EXPECT_EQ(connection.getBacklog().waiting, 501U);
    for (int i = 0; i < 501; ++i) {
      ASSERT_EQ(connection.receivePacket(buffer.data()), lengthOf(i));
      EXPECT_EQ(std::count(buffer.begin(), buffer.begin() + lengthOf(i), static_cast<char>(i)), lengthOf(i));
    }
  }
  EXPECT_EQ(connection.getBacklog().highest, 501U);
  send(0), send(2);
  for (int again = 0; again < 2; ++again) {
    connection.setHostPatience(std::chrono::hours(again == 0 ? 1 : 0));
    connection.watchHost();
    EXPECT_EQ(connection.receivePacket(buffer.data(), 14), 0) << "a frame that does not fit stays";
  }
  connection.receivePacket(buffer.data());
  EXPECT_EQ(
      log.take(),
      std::vector<std::string>(
          {"WARN A frame of 15 bytes waits, the host's array holds 14: nothing is fetched until it is larger",
           "WARN The host has fetched nothing for 0 s, 2 frames wait", "WARN The host fetches frames again, 1 wait"}));
}

}  // namespace
