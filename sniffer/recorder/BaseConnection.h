#pragma once

#include <sys/types.h>

#include <ctime>
#include <span>

#include "SnifferRequest.h"

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

  /// Sends one frame from the thread that takes commands. It never waits for the recorder to make room: where frames
  /// do, it goes out with one of them, and counts as sent.
  virtual int sendReply(u_char* buffer, int length) { return sendPacket(buffer, length); }

  /// Sends frames in order, so that nobody can tell it from a sendPacket() for each. Ends behind the first one that
  /// is not taken whole, or earlier: what follows has to be judged anew, for the recorder's wishes may have gone with
  /// the connection, and after a wait for the recorder a frame may have become late. Answers the number of frames dealt
  /// with, the last one included; their `sent` is set. None only after a wait, behind which there is room.
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
