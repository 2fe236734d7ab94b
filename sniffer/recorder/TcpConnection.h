#pragma once

#include <netinet/in.h>

#include <atomic>
#include <chrono>
#include <memory>

#include "base/Mutex.h"
#include "recorder/BaseConnection.h"
#include "recorder/CommandStream.h"
#include "recorder/SocketWait.h"
#include "recorder/StreamSending.h"
#include "statistics/Statistics.h"

/// The recorder at the end of a TCP stream.
///
/// Nothing is opened before the first send. A lost connection is closed, and each later send makes one attempt to get
/// it back. The socket never blocks: a send buffer that stays full counts as a lost connection, at once or after the
/// time-out for sending.
///
/// The sending thread calls sendPacket(), sendPackets() and pause(), the command thread receiveRequest(),
/// awaitRequest() and sendReply().
class TcpConnection : public BaseConnection, private voip::StreamSocket {
 public:
  /// `host` is a dotted IPv4 address; the text is not copied and must outlive the object. `port` is in host order.
  TcpConnection(const char* host, int port);
  TcpConnection(const TcpConnection&) = delete;
  TcpConnection& operator=(const TcpConnection&) = delete;

  /// Connections and waits are counted there. Before the first use; it must outlive the connection.
  void setStatistics(voip::Statistics& statistics) { statistics_ = &statistics; }

  /// How long a send waits for a recorder that makes no room, before the connection counts as lost. Each byte is then
  /// sent once, and a short send that completes a frame counts. 0: no wait, and the accounting of sendPacket(). Before
  /// the first use.
  void setSendTimeout(std::chrono::milliseconds time);

  /// Decodes at most one command. Also returns true, with `request` as it was, while the beginning of a command waits
  /// for its rest; that command was sent in pieces, and the one before it is acted on again.
  bool receiveRequest(SnifferRequest& request) override;

  /// Returns the bytes counted as sent, 0 for nothing to send, -1 after a second without a connection. A short send is
  /// logged and counted, unless it completes the frame: then the rest goes out again.
  int sendPacket(u_char* buffer, int length) override;
  voip::SendResult sendPackets(std::span<voip::OutgoingFrame> frames) override;

  /// With a time-out for sending, a reply that finds no room goes out after the frame in work, and counts as sent; -1
  /// when too many wait already.
  voip::LinkEvent sendReply(voip::OutgoingFrame& reply) override;

  void pause() override;
  std::size_t getRoom() override;
  void awaitRequest() override { wait_.untilReadable(); }
  void interrupt() override { wait_.end(); }

  void closeConnection() override;

  ~TcpConnection() override;

  /// A new non-blocking socket, or -1.
  int getSocket();

  /// One attempt to connect; it may still be in progress when this returns.
  void tcpConnect();

  bool isConnected() const { return connected_; }

  /// Decides on a send that failed with `errnum`: 0 to go on with the frame, -1 to give it up. May close the
  /// connection.
  int checkError(int errnum) override;

  /// Sleeps; a signal cuts it short.
  void rest(long seconds, long nanoseconds);

 private:
  using Clock = std::chrono::steady_clock;

  bool isExact() const { return exact_ != nullptr; }
  voip::LinkEvent sendReplyExactly(voip::OutgoingFrame& reply) REQUIRES(lock_);
  voip::SendProgress sendFrames(std::span<voip::OutgoingFrame> frames) REQUIRES(lock_);
  bool reconnect() REQUIRES(lock_);
  void setConnected() REQUIRES(lock_);
  void countLoss();
  std::string address() const;
  static void logCommand(const SnifferRequest& request);

  ssize_t sendBytes(std::span<const u_char> bytes) override;
  Room waitForRoom(std::size_t frames) REQUIRES(lock_) override;

  voip::Statistics* statistics_ = nullptr;
  std::chrono::milliseconds sendTimeout_{0};
  sockaddr_in serverAddr_{};
  const int serverPort_;
  const char* const serverHost_;

  /// Held for a whole frame but for the wait for room, and wherever the socket is used, so that no thread closes it
  /// under another. Recursive: a failing send closes the connection through the interface.
  voip::Mutex lock_{"", voip::Mutex::kRecursive};
  voip::Condition noneWaits_;
  int clientSd_ = -1;
  std::atomic<bool> connected_ = false;
  int connectRetries_ GUARDED_BY(lock_) = 0;  ///< sends in a row that found no connection
  bool isStalled_ = false;                    ///< room was there, but nothing has been sent since
  Clock::time_point stalledSince_;
  bool waitingForRoom_ = false;  ///< the sending thread waits without the lock; the stream stays its own
  voip::LinkEvent event_ = voip::LinkEvent::kNone;  ///< of the send in work
  std::unique_ptr<voip::StreamSending> sending_;
  voip::ExactSending* exact_ = nullptr;  ///< `sending_`, with a time-out for sending
  voip::CommandStream commands_ GUARDED_BY(lock_);

  voip::SocketWait wait_;
};
