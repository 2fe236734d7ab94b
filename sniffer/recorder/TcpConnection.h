#pragma once

#include <log4cxx/logger.h>
#include <netinet/in.h>

#include <atomic>
#include <mutex>

#include "BaseConnection.h"
#include "LinkObserver.h"

/// The recorder at the end of a TCP stream.
///
/// Nothing is opened before the first send. A lost connection is closed, and each later send makes one attempt to get
/// it back, followed by a pause of one second when it fails. The socket never blocks: a send buffer that stays full
/// counts as a lost connection. While there is none, every send makes the dissector forget its RTP destinations and
/// its queue, so that a recorder that comes back gets nothing stale.
///
/// The sending thread calls sendPacket(), the command thread receiveRequest() and, for heartbeats, sendPacket().
class TcpConnection : public BaseConnection {
 public:
  /// `host` is a dotted IPv4 address; the text is not copied and must outlive the object. `port` is in host order.
  TcpConnection(const char* host, int port);
  TcpConnection(const TcpConnection&) = delete;
  TcpConnection& operator=(const TcpConnection&) = delete;

  /// Who is told what becomes of the link. Before the first use; it must outlive the connection.
  void setObserver(LinkObserver* owner) { observer = owner; }

  /// How long a send waits for a recorder that makes no room, before the connection counts as lost. 0: not at all.
  void setSendTimeout(std::chrono::milliseconds time) { sendTimeout = time; }

  /// Decodes at most one command. Also answers true, with `request` as it was, while the beginning of a command waits
  /// for its rest; that command was sent in pieces, and the one before it is acted on again. Commands are read by one
  /// thread, from one connection of the process: all share one receive buffer.
  bool receiveRequest(SnifferRequest& request) override;

  /// Answers the bytes counted as sent, 0 for nothing to send, -1 after a second without a connection.
  int sendPacket(u_char* buffer, int length) override;

  void closeConnection() override;

  ~TcpConnection() override;

  /// A new non-blocking socket, or -1.
  int getSocket();

  /// One attempt to connect; it may still be in progress when this returns.
  void tcpConnect();

  bool isConnected() const { return connected; }

  /// What to do after a send that failed with `errnum`: 0 to go on with the frame, -1 to give it up.
  int checkError(int errnum);

  /// Sleeps; a signal cuts it short.
  void rest(long seconds, long nanoseconds);

 private:
  int sendFrame(const u_char* buffer, int length);
  void rejectFrame();
  bool reconnect();
  void setConnected();
  void logConnecting() const;

  LinkObserver* observer;
  std::chrono::milliseconds sendTimeout{0};
  sockaddr_in serverAddr{};
  int clientSd = -1;
  int serverPort;
  const char* serverHost;
  std::atomic<bool> connected = false;
  int connectRetries = 0;  ///< sends in a row that found no connection

  unsigned stream = 0;  ///< number of the established connection, different for each one in the process

  /// Held for a whole frame, and wherever the socket is used, so that no thread closes it under another. Recursive:
  /// a failing send closes the connection through the interface.
  std::recursive_mutex lock;

  static log4cxx::LoggerPtr logger;
};
