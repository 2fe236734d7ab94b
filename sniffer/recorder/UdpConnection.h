#pragma once

#include <log4cxx/logger.h>
#include <netinet/in.h>

#include <array>
#include <atomic>
#include <mutex>
#include <optional>

#include "BaseConnection.h"
#include "DatagramSender.h"
#include "LinkObserver.h"
#include "SocketWait.h"

/// The recorder at the end of UDP datagrams: one datagram a frame, one datagram a command. No state, no retry; a frame
/// that cannot be sent whole is logged and lost.
///
/// Frames go to the configured address until a command arrives; from then on to where the last command came from.
class UdpConnection : public BaseConnection {
 public:
  /// Opens and binds the socket, or ends the process with status 1. `host` is a dotted IPv4 address; the text is not
  /// copied and must outlive the object. `port` is in host order.
  UdpConnection(const char* host, int port);
  UdpConnection(const UdpConnection&) = delete;
  UdpConnection& operator=(const UdpConnection&) = delete;

  /// Who is told of commands that are not the recorder's. Before the first use; it must outlive the connection.
  void setObserver(LinkObserver* owner) { observer = owner; }

  /// Whether only datagrams from the host's address are commands. Before the first use.
  void setCommandsFromServerOnly(bool only) { serverOnly = only; }

  /// Decodes one waiting datagram. Bytes behind the seventh are ignored; a datagram shorter than that is completed by
  /// what earlier ones left in the buffer. Called by one thread.
  bool receiveRequest(SnifferRequest& request) override;

  /// Answers what the send gave: `length`, or -1.
  int sendPacket(u_char* buffer, int length) override;
  std::size_t sendPackets(std::span<OutgoingFrame> frames) override;

  void awaitRequest() override { wait.untilReadable(); }
  void interrupt() override { wait.end(); }

  void closeConnection() override;

  /// Leaves the socket open; closeConnection() closes it.
  ~UdpConnection() override = default;

  int getServerPort() const { return serverPort; }
  int getClientSd() const { return clientSd; }

 private:
  sockaddr_in recorder();

  LinkObserver* observer = nullptr;
  bool serverOnly = false;
  in_addr_t serverIp = 0;                                     ///< the configured one, in network order
  std::array<u_char, SnifferRequest::kWireLength> command{};  ///< the last one, and what is left of those before it
  sockaddr_in clientAddr{};
  sockaddr_in serverAddr{};  ///< where frames go; guarded by `serverAddrLock`
  int clientSd = -1;
  int serverPort;
  const char* serverHost;

  SocketWait wait;
  std::optional<DatagramSender> sender;  ///< guarded by `sendLock`
  std::mutex sendLock;
  std::mutex serverAddrLock;
  std::atomic<bool> closed = false;

  static log4cxx::LoggerPtr logger;
};
