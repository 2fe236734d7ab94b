#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "recorder/BaseConnection.h"

namespace voip {

/// A connected stream socket, as the StreamSending classes use it. The sending thread, with the connection's lock held.
class StreamSocket {
 public:
  /// Result of a wait for space in the send buffer.
  enum class Room {
    kThere,      ///< the socket takes data
    kNotInTime,  ///< the time-out has passed
    kClosed,     ///< the connection was closed meanwhile
  };

  /// As send(2) with MSG_NOSIGNAL: returns the number of bytes sent, or -1 with errno set.
  virtual ssize_t sendBytes(std::span<const std::uint8_t> bytes) = 0;

  /// Handles a send that failed with `errnum`. Returns 0 to continue with the frame, -1 to abandon it. May close the
  /// connection.
  virtual int checkError(int errnum) = 0;

  /// Waits until the socket takes data again, without the lock. Counts the wait and the number of `frames` it delays.
  virtual Room waitForRoom(std::size_t frames) = 0;

 protected:
  ~StreamSocket() = default;
};

/// The progress of sending a group of frames.
struct SendProgress {
  std::size_t dealtWith = 0;  ///< number of frames whose `sent` is set, from the first on
  bool mayContinue = true;    ///< the frames after these can be sent now
};

/// Sends frames on a stream, several with one system call. The implementations differ in how they treat a short send.
/// The sending thread, with the connection's lock held.
class StreamSending {
 public:
  virtual ~StreamSending() = default;

  /// Sends frames from the first on and sets their `sent`. The first frame must have at least one byte.
  virtual SendProgress send(std::span<OutgoingFrame> frames) = 0;

 protected:
  /// The result of one system call.
  struct GroupSend {
    std::size_t tried = 0;  ///< number of frames
    std::size_t whole = 0;  ///< number of frames sent whole; their `sent` is set
    ssize_t rest = 0;       ///< bytes sent of the next frame; -1 for a failure, with errno set

    bool endsBetweenFrames() const { return whole == tried || (whole > 0 && rest == 0); }
  };

  explicit StreamSending(StreamSocket& socket) : socket_(socket) {}

  /// Sends the first frames with one system call. The first frame must have at least one byte.
  GroupSend sendTogether(std::span<OutgoingFrame> frames);

  StreamSocket& socket_;

 private:
  std::size_t gather(std::span<const OutgoingFrame> frames);

  std::vector<std::uint8_t> together_;  ///< the bytes of one system call; reused
};

/// Sends with the accounting that recorders in the field know: a short send that completes a frame does not count, and
/// its bytes are sent again. A full send buffer is an error.
class AccountedSending final : public StreamSending {
 public:
  explicit AccountedSending(StreamSocket& socket) : StreamSending(socket) {}

  SendProgress send(std::span<OutgoingFrame> frames) override;

 private:
  int finish(std::span<const std::uint8_t> frame, ssize_t sentNow);
};

/// Sends each byte once and waits for space in the send buffer. Replies to commands that find no space are sent before
/// the next frame.
class ExactSending final : public StreamSending {
 public:
  explicit ExactSending(StreamSocket& socket) : StreamSending(socket) {}

  SendProgress send(std::span<OutgoingFrame> frames) override;

  /// Adds a copy of a reply to those that wait. Returns false when too many bytes wait. Any thread with the lock.
  bool addReply(std::span<const std::uint8_t> reply);

  /// Sends as much of the waiting replies as there is space for. Does not wait. Any thread with the lock.
  void sendRepliesNow();

  /// Sends the waiting replies, and waits for space. Returns false when they were not sent whole.
  bool sendReplies();

  /// Discards the waiting replies: a new connection begins.
  void dropReplies() { replies_.clear(); }

 private:
  enum class Patience { kYes, kNo };
  struct Finish {
    int sent = 0;  ///< bytes of the frame
    bool hasWaited = false;
    bool isClosed = false;  ///< the connection was closed meanwhile
  };
  Finish finish(std::span<const std::uint8_t> frame, ssize_t sentNow, std::size_t heldUp, Patience patience);

  std::vector<std::uint8_t> replies_;  ///< replies and parts of replies that wait
};

}  // namespace voip
