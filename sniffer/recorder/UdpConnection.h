#pragma once

#include <netinet/in.h>

#include <array>
#include <atomic>
#include <chrono>
#include <optional>

#include "base/Mutex.h"
#include "recorder/BaseConnection.h"
#include "recorder/DatagramSender.h"
#include "recorder/SocketWait.h"
#include "statistics/Statistics.h"

/// The recorder at the end of UDP datagrams: one datagram a frame, one datagram a command. No state, no retry; a frame
/// that cannot be sent whole is logged and lost.
///
/// Frames go to the configured address until a command arrives; from then on to the source of the last command.
class UdpConnection : public BaseConnection {
 public:
  /// Opens and binds the socket, or ends the process with status 1. `host` is a dotted IPv4 address; the text is not
  /// copied and must outlive the object. `port` is in host order.
  UdpConnection(const char* host, int port);
  UdpConnection(const UdpConnection&) = delete;
  UdpConnection& operator=(const UdpConnection&) = delete;

  /// Commands from elsewhere are counted there. Before the first use; it must outlive the connection.
  void setStatistics(voip::Statistics& statistics) { statistics_ = &statistics; }

  /// Whether only datagrams from the host's address are commands. Before the first use.
  void setCommandsFromServerOnly(bool only) { serverOnly_ = only; }

  /// Decodes one waiting datagram. Bytes after the seventh are ignored; a shorter datagram is completed by what earlier
  /// ones left in the buffer. Called by one thread.
  bool receiveRequest(SnifferRequest& request) override;

  /// Returns `length`, or -1 when the datagram was not sent.
  int sendPacket(u_char* buffer, int length) override;
  voip::SendResult sendPackets(std::span<voip::OutgoingFrame> frames) override;

  /// Not more than 16 MB a second, so that a recorder's socket does not overflow.
  std::size_t getRoom() override;

  void awaitRequest() override { wait_.untilReadable(); }
  void interrupt() override { wait_.end(); }

  void closeConnection() override;

  /// Leaves the socket open; closeConnection() closes it.
  ~UdpConnection() override = default;

  int getServerPort() const { return serverPort_; }
  int getClientSd() const { return clientSd_; }

 private:
  sockaddr_in recorder();

  voip::Statistics* statistics_ = nullptr;
  bool serverOnly_ = false;
  in_addr_t serverIp_ = 0;                                     ///< the configured one, in network order
  std::array<u_char, SnifferRequest::kWireLength> command_{};  ///< the last one, and what is left of those before it
  sockaddr_in clientAddr_{};
  int clientSd_ = -1;
  const int serverPort_;
  const char* const serverHost_;

  std::chrono::steady_clock::time_point roomAt_;  ///< `room_` is of that time; the sending thread's
  std::size_t room_ = 0;

  voip::SocketWait wait_;
  voip::Mutex serverAddrLock_;
  sockaddr_in serverAddr_ GUARDED_BY(serverAddrLock_){};  ///< where frames go
  voip::Mutex sendLock_;
  std::optional<voip::DatagramSender> sender_ GUARDED_BY(sendLock_);
  std::atomic<bool> closed_ = false;
};
