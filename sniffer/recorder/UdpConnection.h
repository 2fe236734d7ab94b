#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <optional>

#include "base/Mutex.h"
#include "recorder/BaseConnection.h"
#include "recorder/DatagramSender.h"
#include "recorder/SocketAddress.h"
#include "recorder/SocketWait.h"
#include "statistics/Statistics.h"

/// The link to a recorder over UDP: each frame and each command is one datagram. There is no connection state and no
/// retry; a frame that cannot be sent whole is logged and lost.
///
/// Frames go to the configured address until a command arrives, afterwards to the source of the last command.
class UdpConnection : public BaseConnection {
 public:
  /// Opens and binds the socket; ends the process with status 1 when that fails. `host` as in SocketAddress. `port` is
  /// in host order.
  UdpConnection(const char* host, int port);
  UdpConnection(const UdpConnection&) = delete;
  UdpConnection& operator=(const UdpConnection&) = delete;

  /// Counts ignored commands in `statistics`, which must outlive the connection. To be called before the first use.
  void setStatistics(voip::Statistics& statistics) { statistics_ = &statistics; }

  /// Sets whether only datagrams from the configured address are commands; others are then ignored and counted. To be
  /// called before the first use.
  void setCommandsFromServerOnly(bool only) { serverOnly_ = only; }

  /// Sets whether commands may have IPv6 addresses: those with the codes 4 and 5 in datagrams of at least 19 bytes. To
  /// be called before the first use.
  void setIpv6(bool on) { ipv6_ = on; }

  /// Decodes one waiting datagram. Bytes after the command are ignored; missing bytes of the first 7 have their values
  /// from earlier datagrams. Command thread.
  bool receiveRequest(SnifferRequest& request) override;

  /// Returns `length`, or -1 when the datagram was not sent. Any thread.
  int sendPacket(u_char* buffer, int length) override;

  voip::SendResult sendPackets(std::span<voip::OutgoingFrame> frames) override;

  /// Allows 16 MB a second, so that the recorder's receive buffer does not overflow. Sending thread.
  std::size_t getRoom() override;

  void awaitRequest() override { wait_.untilReadable(); }
  void interrupt() override { wait_.end(); }

  /// Closes the socket permanently: later sends return -1. Any thread.
  void closeConnection() override;

  /// Does not close the socket; closeConnection() does.
  ~UdpConnection() override = default;

  /// Returns the configured port in host order.
  int getServerPort() const { return serverPort_; }
  /// Returns the descriptor of the socket, which the connection owns.
  int getClientSd() const { return clientSd_; }

 private:
  voip::SocketAddress getRecorder();

  voip::Statistics* statistics_ = nullptr;
  bool serverOnly_ = false;
  bool ipv6_ = false;
  const voip::SocketAddress configured_;
  std::array<std::uint8_t, SnifferRequest::kWireLength> command_{};  ///< bytes of the last datagrams
  int clientSd_ = -1;
  const int serverPort_;

  voip::SocketWait wait_;
  voip::Mutex serverAddrLock_;
  voip::SocketAddress serverAddr_ GUARDED_BY(serverAddrLock_);  ///< destination of the frames
  voip::Mutex sendLock_;
  std::chrono::steady_clock::time_point roomAt_ GUARDED_BY(sendLock_);  ///< time of `room_`
  std::size_t room_ GUARDED_BY(sendLock_) = 0;  ///< result of the last getRoom(), less what was sent since
  std::optional<voip::DatagramSender> sender_ GUARDED_BY(sendLock_);
  std::atomic<bool> closed_ = false;
};
