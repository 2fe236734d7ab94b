#pragma once

#include <log4cxx/logger.h>
#include <netinet/in.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <vector>

#include "BaseConnection.h"
#include "CommandStream.h"
#include "LinkObserver.h"
#include "SocketWait.h"

/// The recorder at the end of a TCP stream.
///
/// Nothing is opened before the first send. A lost connection is closed, and each later send makes one attempt to get
/// it back, followed by a pause of one second when it fails. The socket never blocks: a send buffer that stays full
/// counts as a lost connection, at once or after the time-out for sending. While there is none, every send makes the
/// dissector forget its RTP destinations and its queue, so that a recorder that comes back gets nothing stale.
///
/// The sending thread calls sendPacket() and sendPackets(), the command thread receiveRequest(), awaitRequest() and
/// sendReply().
class TcpConnection : public BaseConnection {
 public:
  /// `host` is a dotted IPv4 address; the text is not copied and must outlive the object. `port` is in host order.
  TcpConnection(const char* host, int port);
  TcpConnection(const TcpConnection&) = delete;
  TcpConnection& operator=(const TcpConnection&) = delete;

  /// Who is told what becomes of the link. Before the first use; it must outlive the connection.
  void setObserver(LinkObserver* owner) { observer = owner; }

  /// How long a send waits for a recorder that makes no room, before the connection counts as lost. Then also what is
  /// left of a frame after a short send is sent once and counted. 0: neither. Before the first use.
  void setSendTimeout(std::chrono::milliseconds time) { sendTimeout = time; }

  /// Decodes at most one command. Also answers true, with `request` as it was, while the beginning of a command waits
  /// for its rest; that command was sent in pieces, and the one before it is acted on again.
  bool receiveRequest(SnifferRequest& request) override;

  /// Answers the bytes counted as sent, 0 for nothing to send, -1 after a second without a connection.
  int sendPacket(u_char* buffer, int length) override;
  std::size_t sendPackets(std::span<OutgoingFrame> frames) override;

  /// As sendPacket(); with a time-out for sending it leaves what finds no room to the sending thread, behind the frame
  /// in work, and then answers `length`. -1 when too much is left there already.
  int sendReply(u_char* buffer, int length) override;

  void awaitRequest() override { wait.untilReadable(); }
  void interrupt() override { wait.end(); }

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
  using Lock = std::unique_lock<std::recursive_mutex>;
  enum class Room { kThere, kNotInTime, kNeverMore };

  /// Sends the first frames in one system call, and finishes the one in which that ended. False when that one is not
  /// taken whole. Counts in `done` all that were dealt with.
  bool sendGroup(std::span<OutgoingFrame> frames, std::size_t& done, Lock& held);
  /// Puts the first frames into `together`, where there are several, and answers how many: one at least.
  std::size_t gather(std::span<const OutgoingFrame> frames);
  /// Goes on with a frame of which the last send gave `n`. `frames` wait with it.
  int sendRest(std::span<const u_char> bytes, ssize_t n, std::size_t frames, bool patient, Lock& held);
  bool sendReplies(Lock& held);
  Room waitForRoom(std::size_t frames, Lock& held);
  int reject(Lock& held);
  bool reconnect();
  void setConnected();
  void logConnecting() const;
  static void logCommand(const SnifferRequest& request);

  LinkObserver* observer;
  std::chrono::milliseconds sendTimeout{0};
  sockaddr_in serverAddr{};
  int clientSd = -1;
  int serverPort;
  const char* serverHost;
  std::atomic<bool> connected = false;
  int connectRetries = 0;  ///< sends in a row that found no connection

  SocketWait wait;
  bool waitingForRoom = false;   ///< the sending thread, without the lock: the stream and the socket are its own
  std::vector<u_char> together;  ///< the bytes of one system call, reused
  std::vector<u_char> replies;   ///< what goes out before the next frame
  CommandStream commands;        ///< of this connection to the recorder

  /// Held for a whole frame but for the wait for room, and wherever the socket is used, so that no thread closes it
  /// under another. Recursive: a failing send closes the connection through the interface.
  std::recursive_mutex lock;
  std::condition_variable_any noneWaits;

  static log4cxx::LoggerPtr logger;
};
