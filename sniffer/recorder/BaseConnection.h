#pragma once

#include <sys/types.h>

#include <ctime>
#include <span>

/// One command of the recorder.
///
/// On the wire it is 7 bytes: the code (1), an IPv4 address (4) and a port (2), both in network byte order. Over TCP
/// commands follow each other without anything between them.
struct SnifferRequest {
  static constexpr int kWireLength = 7;

  u_short request = 0;  ///< 1 add an RTP destination, 2 remove it, 3 heartbeat
  u_int rtpAddr = 0;    ///< IPv4 address in host order: the first octet is the most significant byte
  u_short rtpPort = 0;  ///< UDP port in host order

  SnifferRequest() = default;
  SnifferRequest(u_short code, u_int addr, u_short port) : request(code), rtpAddr(addr), rtpPort(port) {}
  bool operator==(const SnifferRequest&) const = default;

  /// Decodes the 7 bytes at `wire`.
  static SnifferRequest fromWire(const u_char* wire) {
    return {wire[0], u_int{wire[1]} << 24 | u_int{wire[2]} << 16 | u_int{wire[3]} << 8 | u_int{wire[4]},
            static_cast<u_short>(wire[5] << 8 | wire[6])};
  }
};

/// One frame of a group that is sent together.
struct OutgoingFrame {
  u_char* bytes;  ///< the caller's
  int length;
  int sent = 0;  ///< what sendPacket() would have answered
};

/// The link to the recorder. One thread sends frames while another takes commands and may answer them with a frame:
/// an implementation lets no frame of one thread get into a frame of the other.
class BaseConnection {
 public:
  /// Takes the next command. Never waits. False when there is nothing to act on now.
  virtual bool receiveRequest(SnifferRequest& request) = 0;

  /// Sends one whole frame of `length` bytes; `buffer` stays the caller's. Answers the bytes sent, or what the
  /// connection documents for a failure.
  virtual int sendPacket(u_char* buffer, int length) = 0;

  virtual void closeConnection() = 0;

  /// Sends frames in order, so that nobody can tell it from a sendPacket() for each. Ends behind the first one that
  /// is not taken whole: what follows has to be judged anew, for the recorder's wishes may have gone with the
  /// connection. Answers the number of frames dealt with, the last one included; their `sent` is set.
  virtual std::size_t sendPackets(std::span<OutgoingFrame> frames) {
    for (std::size_t i = 0; i < frames.size(); ++i) {
      frames[i].sent = sendPacket(frames[i].bytes, frames[i].length);
      if (frames[i].sent != frames[i].length) return i + 1;
    }
    return frames.size();
  }

  /// Sleeps until receiveRequest() may have something to act on. Of no use, and so a mere yield, where commands come
  /// without a descriptor. The thread that takes commands.
  virtual void awaitRequest() {
    const timespec pause{0, 200};
    nanosleep(&pause, nullptr);
  }

  /// From now on nothing waits in this connection; what waits goes on at once. Any thread.
  virtual void interrupt() {}

  virtual ~BaseConnection() = default;
};
