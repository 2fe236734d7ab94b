#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <span>

#include "recorder/SnifferRequest.h"

namespace voip {

/// One frame of a group that is sent together.
struct OutgoingFrame {
  u_char* bytes;  ///< the caller's
  int length;
  int sent = 0;  ///< what sendPacket() would have returned
};

/// What a send found out about the link to the recorder.
enum class LinkEvent {
  kNone,
  kLost,         ///< the connection failed and is closed; the recorder will ask again for what it wants
  kUnreachable,  ///< there is no connection, and the attempt to make one failed
};

struct SendResult {
  std::size_t dealtWith = 0;  ///< frames; the `sent` of each is set
  LinkEvent link = LinkEvent::kNone;
};

/// Frames that wait for a host in this process.
struct HostBacklog {
  std::size_t waiting = 0;
  std::size_t highest = 0;  ///< most that ever waited
};

}  // namespace voip

/// The link to the recorder. One thread sends frames while another takes commands and may answer them with a frame:
/// an implementation lets no frame of one thread get into a frame of the other.
class BaseConnection {
 public:
  /// Takes the next command. Never waits. Returns false when there is nothing to act on now.
  virtual bool receiveRequest(SnifferRequest& request) = 0;

  /// Sends one whole frame of `length` bytes; `buffer` stays the caller's. Returns the bytes sent, or what the
  /// connection documents for a failure.
  virtual int sendPacket(u_char* buffer, int length) = 0;

  virtual void closeConnection() = 0;

  /// Sends frames in order; the recorder cannot tell this from a sendPacket() for each. Ends after the first frame that
  /// was not taken whole, or earlier: the caller judges the other frames anew, since a lost recorder's wishes are void,
  /// and after a wait for the recorder a frame may be late. May deal with no frame after a wait, or when the recorder
  /// closed the stream meanwhile; the next call then makes an attempt to connect.
  ///
  /// Does not pause after a failed attempt to connect: the caller does, with pause(), once it has acted on the event.
  virtual voip::SendResult sendPackets(std::span<voip::OutgoingFrame> frames) {
    for (std::size_t i = 0; i < frames.size(); ++i) {
      frames[i].sent = sendPacket(frames[i].bytes, frames[i].length);
      if (frames[i].sent != frames[i].length) return {i + 1};
    }
    return {frames.size()};
  }

  /// Sends one frame from the thread that takes commands. Never waits for the recorder to make room: where frames do,
  /// it goes out with one of them, and counts as sent. Never connects: only the thread that forwards frames does, so
  /// that it has acted on the loss of a connection before the next one brings commands.
  virtual voip::LinkEvent sendReply(voip::OutgoingFrame& reply) { return sendPackets({&reply, 1}).link; }

  /// Sleeps until the next attempt to connect makes sense, after LinkEvent::kUnreachable.
  virtual void pause() {}

  /// Sleeps until receiveRequest() may have something to act on. A mere yield where commands come without a descriptor.
  /// The thread that takes commands.
  virtual void awaitRequest() {
    const timespec yield{0, 200};
    nanosleep(&yield, nullptr);
  }

  /// False when receiveRequest() would return false. Cheap.
  virtual bool mayHaveRequest() const { return true; }

  /// From now on nothing waits in this connection, and what waits goes on at once. Any thread.
  virtual void interrupt() {}

  /// Bytes that can be sent now without delay to frames that follow: 0 while the recorder is slow. Frames do not heed
  /// it; what has no hurry does.
  virtual std::size_t getRoom() { return SIZE_MAX; }

  /// Of a host in this process; without one nothing ever waits. Any thread.
  virtual voip::HostBacklog getBacklog() { return {}; }

  /// Bytes of the frames in the backlog; null when nothing ever waits. Any thread.
  virtual const std::atomic<std::size_t>* getBacklogSize() const { return nullptr; }

  /// Warns in the log of a host that does not fetch its frames. To be called now and then by the thread that sends.
  virtual void watchHost() {}

  virtual ~BaseConnection() = default;
};
