#pragma once

#include <sys/types.h>

#include <cstddef>
#include <span>
#include <vector>

#include "recorder/BaseConnection.h"

namespace voip {

/// A connected stream socket as the two ways of sending see it.
class StreamSocket {
 public:
  enum class Room { kThere, kNotInTime, kClosed };

  /// As send(2), without SIGPIPE.
  virtual ssize_t sendBytes(std::span<const u_char> bytes) = 0;

  /// Decides on a failed send: 0 to go on with the frame, -1 to give it up. May close the connection.
  virtual int checkError(int errnum) = 0;

  /// Waits until the socket takes bytes again. `frames` are held up.
  virtual Room waitForRoom(std::size_t frames) = 0;

 protected:
  ~StreamSocket() = default;
};

/// How far a way of sending came with a group of frames.
struct SendProgress {
  std::size_t dealtWith = 0;
  bool goesOn = true;  ///< the frames after these can be sent now
};

/// Brings frames onto a stream, several with one system call. The implementations differ in what a short send means.
class StreamSending {
 public:
  virtual ~StreamSending() = default;

  /// Sends the first frames, one at least. All frames have bytes.
  virtual SendProgress send(std::span<OutgoingFrame> frames) = 0;

 protected:
  /// How far one system call came.
  struct GroupSend {
    std::size_t tried = 0;  ///< frames
    std::size_t whole = 0;  ///< frames that it took whole, their `sent` is set
    ssize_t rest = 0;       ///< bytes of the frame after these that it took; -1 for none, errno says why

    bool endsBetweenFrames() const { return whole == tried || (whole > 0 && rest == 0); }
  };

  explicit StreamSending(StreamSocket& socket) : socket_(socket) {}
  GroupSend sendTogether(std::span<OutgoingFrame> frames);

  StreamSocket& socket_;

 private:
  std::size_t gather(std::span<const OutgoingFrame> frames);

  std::vector<u_char> together_;  ///< the bytes of one system call, reused
};

/// Counts what was sent as recorders in the field know it: a short send that completes a frame does not count, and the
/// rest goes out again. A full send buffer is an error.
class AccountedSending final : public StreamSending {
 public:
  explicit AccountedSending(StreamSocket& socket) : StreamSending(socket) {}

  SendProgress send(std::span<OutgoingFrame> frames) override;

 private:
  int finish(std::span<const u_char> frame, ssize_t sentNow);
};

/// Sends each byte once, and waits for a recorder that makes no room. Answers to commands that find no room wait for
/// the next frame.
class ExactSending final : public StreamSending {
 public:
  explicit ExactSending(StreamSocket& socket) : StreamSending(socket) {}

  SendProgress send(std::span<OutgoingFrame> frames) override;

  /// Puts a reply after those that wait. Returns false when too many bytes wait.
  bool addReply(std::span<const u_char> reply);

  /// Sends the waiting replies as far as there is room.
  void sendRepliesNow();

  /// Sends the waiting replies. Returns false when one was not sent whole.
  bool sendReplies();

  /// A new connection begins.
  void dropReplies() { replies_.clear(); }

 private:
  enum class Patience { kYes, kNo };
  struct Finish {
    int sent = 0;
    bool hasWaited = false;
    bool isClosed = false;  ///< the recorder closed the stream meanwhile
  };
  Finish finish(std::span<const u_char> frame, ssize_t sentNow, std::size_t heldUp, Patience patience);

  std::vector<u_char> replies_;
};

}  // namespace voip
