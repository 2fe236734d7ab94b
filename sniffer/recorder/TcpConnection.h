#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

#include "base/Mutex.h"
#include "recorder/BaseConnection.h"
#include "recorder/CommandStream.h"
#include "recorder/SocketAddress.h"
#include "recorder/SocketWait.h"
#include "recorder/StreamSending.h"
#include "statistics/Statistics.h"

/// The link to a recorder over TCP.
///
/// The constructor does not connect: tcpConnect() or the first send does. A lost connection is closed, and each later
/// send makes one attempt to connect. The socket does not block: a full send buffer counts as a lost connection, at
/// once or after the time-out for sending.
///
/// The sending thread calls sendPacket(), sendPackets(), keepConnected(), getRoom() and pause(), the command thread
/// receiveRequest(), awaitRequest() and sendReply().
class TcpConnection : public BaseConnection, private voip::StreamSocket {
 public:
  /// `host` as in SocketAddress; the text is not copied and must outlive the object. `port` is in host order.
  TcpConnection(const char* host, int port);
  TcpConnection(const TcpConnection&) = delete;
  TcpConnection& operator=(const TcpConnection&) = delete;

  /// Counts connections, losses and waits in `statistics`, which must outlive the connection. To be called before the
  /// first use.
  void setStatistics(voip::Statistics& statistics) { statistics_ = &statistics; }

  /// Sets how long a send waits for space in the send buffer before the connection counts as lost. Each byte is then
  /// sent once, and a short send that completes a frame counts. 0, the default: no wait, and the accounting of
  /// sendPacket(). To be called before the first use.
  void setSendTimeout(std::chrono::milliseconds time);

  /// Sets whether the sending thread hears of each loss, also of one that another thread has noticed. To be called
  /// before the first use.
  void setReportsEachLoss(bool on) { reportsEachLoss_ = on; }

  /// Sets whether closeConnection() also closes a socket that is still connecting. Otherwise it stays open until the
  /// process ends. To be called before the first use.
  void setClosesAttempts(bool on) { closesAttempts_ = on; }

  /// Sets whether commands may have IPv6 addresses. To be called before the first use.
  void setIpv6(bool on);

  /// Decodes at most one command. Also returns true, with `request` unchanged, while the rest of a command is missing:
  /// the caller then carries out the previous command again. Command thread.
  bool receiveRequest(SnifferRequest& request) override;

  /// Returns the number of bytes counted as sent; 0 for a null `buffer` or a `length` below 1; -1, after a pause of a
  /// second, without a connection. A short send is logged and counted, unless it completes the frame: then it is not
  /// counted, and its bytes are sent again. Sending thread.
  int sendPacket(u_char* buffer, int length) override;

  voip::SendResult sendPackets(std::span<voip::OutgoingFrame> frames) override;

  /// With a time-out for sending, a reply that finds no space is sent after the current frame and counts as sent; when
  /// too many replies wait, its `sent` is -1. Command thread.
  voip::LinkEvent sendReply(voip::OutgoingFrame& reply) override;

  /// Attempts are 250 ms apart, and one that gets no answer ends after 3 s.
  voip::LinkEvent keepConnected() override;
  void stopConnecting() override;

  bool reportsEachLoss() const override { return reportsEachLoss_; }
  void pause() override;
  std::size_t getRoom() override;
  void awaitRequest() override { wait_.untilReadable(); }
  void interrupt() override { wait_.end(); }

  /// Closes the connection; a later send connects again. Any thread.
  void closeConnection() override;

  /// Closes the connection.
  ~TcpConnection() override;

  /// Returns a new non-blocking socket, which the caller owns, or -1. Logs a failure.
  int getSocket();

  /// Makes one attempt to connect, which may still be in progress on return. Any thread.
  void tcpConnect();

  /// True while a connection is established. Any thread.
  bool isConnected() const override { return connected_; }

  /// Logs a send that failed with `errnum` and closes the connection if it is lost. Returns 0 to continue with the
  /// frame, -1 to abandon it.
  int checkError(int errnum) override;

  /// Sleeps for the given time, or until a signal.
  void rest(long seconds, long nanoseconds);

 private:
  using Clock = std::chrono::steady_clock;

  bool isExact() const { return exact_ != nullptr; }
  voip::LinkEvent sendReplyNow(voip::OutgoingFrame& reply) REQUIRES(lock_);
  voip::LinkEvent sendReplyExactly(voip::OutgoingFrame& reply) REQUIRES(lock_);
  voip::SendProgress sendFrames(std::span<voip::OutgoingFrame> frames) REQUIRES(lock_);
  bool reconnect() REQUIRES(lock_);
  void setConnected() REQUIRES(lock_);
  void logAttempt() REQUIRES(lock_);
  std::size_t spaceForKept() REQUIRES(lock_);
  void countLoss();
  std::string getAddress() const;
  static void logCommand(const SnifferRequest& request);

  ssize_t sendBytes(std::span<const std::uint8_t> bytes) override;
  Room waitForRoom(std::size_t frames) REQUIRES(lock_) override;

  voip::Statistics* statistics_ = nullptr;
  std::chrono::milliseconds sendTimeout_{0};
  bool reportsEachLoss_ = false;
  bool closesAttempts_ = false;
  voip::SocketAddress serverAddr_;
  const int serverPort_;
  const char* const serverHost_;

  /// Held for every use of the socket, so that no thread closes it while another uses it, and for a whole frame except
  /// during a wait for space. Recursive: a failed send closes the connection through the interface.
  voip::Mutex lock_{"", voip::Mutex::kRecursive};
  voip::Condition noneWaits_;  ///< `waitingForRoom_` has become false
  int clientSd_ = -1;
  std::atomic<bool> connected_ = false;
  int connectRetries_ GUARDED_BY(lock_) = 0;  ///< consecutive sends without a connection
  bool mayConnect_ = true;                    ///< until stopConnecting()
  bool isConnecting_ = false;                 ///< an attempt to connect is pending
  bool isLossKnown_ = true;                   ///< the sending thread knows that the last connection was lost
  Clock::time_point attemptedAt_;             ///< start of the last attempt to connect
  std::size_t sentSinceRoom_ = 0;             ///< bytes since the last getRoom()
  bool isStalled_ = false;                    ///< poll() reported space, but nothing has been sent since
  Clock::time_point stalledSince_;
  bool waitingForRoom_ = false;  ///< the sending thread waits without the lock; no other thread may send
  voip::LinkEvent event_ = voip::LinkEvent::kNone;  ///< of the current send
  std::unique_ptr<voip::StreamSending> sending_;
  voip::ExactSending* exact_ = nullptr;  ///< `sending_` if there is a time-out for sending, else null
  voip::CommandStream commands_ GUARDED_BY(lock_);

  voip::SocketWait wait_;
};
