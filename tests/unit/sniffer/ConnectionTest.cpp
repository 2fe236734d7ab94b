#include <gtest/gtest.h>
#include <sys/resource.h>

#include <array>
#include <cerrno>

#include "EmbeddedConnection.h"
#include "Loopback.h"
#include "TestLog.h"
#include "UdpConnection.h"

namespace {

TEST(Udp, AnswersWhereTheLastCommandCameFrom) {
  TestLog log;
  const Loopback recorder(SOCK_DGRAM, 0);
  const Loopback other(SOCK_DGRAM, 0);
  UdpConnection connection("127.0.0.1", recorder.port());
  EXPECT_EQ(connection.getServerPort(), recorder.port());
  Bytes frame(1400, 0x11);
  SnifferRequest request;
  EXPECT_FALSE(connection.receiveRequest(request));
  EXPECT_EQ(connection.sendPacket(frame.data(), 1400), 1400);
  EXPECT_EQ(recorder.readDatagram(), frame);

  sockaddr_in local{};
  socklen_t size = sizeof local;
  getsockname(connection.getClientSd(), reinterpret_cast<sockaddr*>(&local), &size);
  Bytes heartbeat = command(3, 0x0A000007, 40000);
  other.writeTo(ntohs(local.sin_port), heartbeat);
  EXPECT_TRUE(eventually([&] { return connection.receiveRequest(request); }));
  EXPECT_EQ(request, SnifferRequest(3, 0x0A000007, 40000)) << "a heartbeat is decoded like any other";
  EXPECT_TRUE(log.contains("DEBUG rx from server cmd=3, ip=10.0.0.7, port=40000, nRcvd=7"));
  EXPECT_EQ(connection.sendPacket(frame.data(), 1400), 1400);
  EXPECT_EQ(other.readDatagram(), frame);

  // Too short: completed by what the buffer holds. Too long: the rest is ignored. Empty: no command.
  recorder.writeTo(ntohs(local.sin_port), {1, 192});
  EXPECT_TRUE(eventually([&] { return connection.receiveRequest(request); }));
  EXPECT_EQ(request, SnifferRequest(1, 0xC0000007, 40000));
  append(heartbeat, heartbeat);
  recorder.writeTo(ntohs(local.sin_port), heartbeat);
  EXPECT_TRUE(eventually([&] { return connection.receiveRequest(request); }));
  EXPECT_EQ(request, SnifferRequest(3, 0x0A000007, 40000));
  EXPECT_FALSE(connection.receiveRequest(request));
  recorder.writeTo(ntohs(local.sin_port), {});
  EXPECT_FALSE(connection.receiveRequest(request));

  Bytes tooLong(70000);
  EXPECT_EQ(connection.sendPacket(tooLong.data(), 70000), -1);
  EXPECT_TRUE(log.contains("ERROR len=70000, sent=-1\nError sento on socket"));
}

TEST(Udp, ClosesItsDescriptorOnce) {
  TestLog log;
  UdpConnection connection("127.0.0.1", 9);
  connection.closeConnection();
  const Loopback successor(SOCK_DGRAM, 0);
  ASSERT_EQ(successor.sd, connection.getClientSd()) << "the system gives the number to the next socket";
  connection.closeConnection();
  EXPECT_NE(fcntl(successor.sd, F_GETFD), -1);
  u_char byte = 0;
  SnifferRequest request;
  EXPECT_EQ(connection.sendPacket(&byte, 1), -1);
  EXPECT_FALSE(connection.receiveRequest(request));
}

TEST(Udp, WithoutASocketTheProcessEnds) {
  EXPECT_EXIT(
      {
        const TestLog log;
        const rlimit none{};
        setrlimit(RLIMIT_NOFILE, &none);
        const UdpConnection connection("127.0.0.1", 9);
      },
      testing::ExitedWithCode(1), "");
}

TEST(Embedded, QueuesFramesAndCommandsInOrder) {
  EmbeddedConnection& connection = *EmbeddedConnection::dft();
  EXPECT_EQ(EmbeddedConnection::dft(), &connection);
  std::array<char, 64> buffer{};
  EXPECT_EQ(connection.receivePacket(buffer.data()), 0);
  Bytes first = {1, 2, 3};
  Bytes second(40, 9);
  EXPECT_EQ(connection.sendPacket(first.data(), 3), 3);
  EXPECT_EQ(connection.sendPacket(second.data(), 40), 40);
  first[0] = 77;  // the queue has its own copy
  EXPECT_EQ(connection.receivePacket(buffer.data(), 2), 0) << "a frame that does not fit stays";
  EXPECT_EQ(connection.receivePacket(buffer.data(), 3), 3);
  EXPECT_EQ(std::string(buffer.data(), 4), std::string("\1\2\3\0", 4));
  EXPECT_EQ(connection.receivePacket(buffer.data()), 40);
  EXPECT_EQ(connection.receivePacket(buffer.data()), 0);

  SnifferRequest add(1, 0x0A000007, 40000);
  SnifferRequest heartbeat(3, 0, 0);
  SnifferRequest request;
  EXPECT_FALSE(connection.receiveRequest(request));
  EXPECT_TRUE(connection.sendRequest(add));
  EXPECT_TRUE(connection.sendRequest(heartbeat));
  EXPECT_TRUE(connection.receiveRequest(request));
  EXPECT_EQ(request, add);
  EXPECT_TRUE(connection.receiveRequest(request));
  EXPECT_EQ(request, heartbeat);
  EXPECT_FALSE(connection.receiveRequest(request));

  connection.sendRequest(add);
  connection.sendPacket(first.data(), 3);
  connection.closeConnection();
  EXPECT_EQ(connection.receivePacket(buffer.data()), 0);
  EXPECT_FALSE(connection.receiveRequest(request));
  EXPECT_EQ(connection.sendPacket(first.data(), 3), 3);
  EXPECT_EQ(connection.receivePacket(buffer.data()), 3);
}

/// Counts how often it is held, and that it is never left without having been entered.
struct CountingMonitor : HostMonitor {
  void enter() override { ++entered, ++depth; }
  void leave() override { --depth; }
  int entered = 0;
  int depth = 0;
};

TEST(Embedded, HoldsTheMonitorOnTheDissectorsSideOnly) {
  EmbeddedConnection connection;
  CountingMonitor monitor;
  connection.setHostMonitor(&monitor);
  Bytes frame(8);
  SnifferRequest request;
  std::array<char, 8> buffer{};
  connection.sendPacket(frame.data(), 8);
  connection.receiveRequest(request);
  EXPECT_EQ(monitor.entered, 2);
  connection.sendRequest(request);
  connection.receivePacket(buffer.data());
  EXPECT_EQ(monitor.entered, 2);
  connection.closeConnection();
  EXPECT_EQ(monitor.entered, 3);
  EXPECT_EQ(monitor.depth, 0);
}

}  // namespace
