#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <span>

#include "base/CaptureStamp.h"
#include "recorder/SnifferRequest.h"

namespace voip {

/// One frame of a group that is sent together.
struct OutgoingFrame {
  std::uint8_t* bytes;   ///< the whole frame, header first; owned by the caller
  int length;            ///< bytes
  int sent = 0;          ///< set by the send: the result of a sendPacket() of this frame
  CaptureStamp stamp{};  ///< zero for a frame that was not captured; used only where announcesCaptureTime()
};

/// What happened to the link to the recorder during a send.
enum class LinkEvent {
  kNone,
  kLost,         ///< the connection failed and is closed; the recorder asks again for its destinations
  kUnreachable,  ///< there is no connection, and an attempt to connect failed
};

/// The result of sending a group of frames.
struct SendResult {
  std::size_t dealtWith = 0;  ///< number of frames whose `sent` is set, from the first on
  LinkEvent link = LinkEvent::kNone;
};

/// Number of frames that wait for the host.
struct HostBacklog {
  std::size_t waiting = 0;  ///< now
  std::size_t highest = 0;  ///< the highest number so far
};

}  // namespace voip

/// The link to the recorder. The sending thread forwards frames; the command thread, which may be the same, takes
/// commands and sends the replies to them. An implementation never mixes the bytes of two frames.
class BaseConnection {
 public:
  /// Takes the next command. Never waits. Returns false, with `request` unchanged, when there is nothing to act on now.
  /// Command thread.
  virtual bool receiveRequest(SnifferRequest& request) = 0;

  /// Sends one whole frame of `length` bytes, header first; the caller owns `buffer`. Returns the number of bytes sent;
  /// each connection documents what it returns for a failure. Sending thread.
  virtual int sendPacket(u_char* buffer, int length) = 0;

  /// Closes the link, also while other threads use it.
  virtual void closeConnection() = 0;

  /// Sends frames in order. The recorder receives the same bytes as from a sendPacket() for each frame. Stops after the
  /// first frame that was not sent whole, or earlier, so that the caller can check the other frames again: a lost
  /// recorder has lost its destinations, and after a wait a frame may be late. May deal with no frame at all, after a
  /// wait or when the recorder closed the stream meanwhile; the next call then attempts to connect. Sending thread.
  ///
  /// Does not pause after a failed attempt to connect. The caller acts on the event first and then calls pause().
  virtual voip::SendResult sendPackets(std::span<voip::OutgoingFrame> frames) {
    for (std::size_t i = 0; i < frames.size(); ++i) {
      frames[i].sent = sendPacket(frames[i].bytes, frames[i].length);
      if (frames[i].sent != frames[i].length) return {i + 1};
    }
    return {frames.size()};
  }

  /// Sends the reply to a command. Command thread.
  ///
  /// Never waits for space in the send buffer: a connection that waits with frames sends the reply after one of them,
  /// and the reply counts as sent. Never connects: the sending thread has to act on a lost connection before commands
  /// arrive on the next one.
  virtual voip::LinkEvent sendReply(voip::OutgoingFrame& reply) { return sendPackets({&reply, 1}).link; }

  /// Returns false when a send would first have to connect. Any thread.
  virtual bool isConnected() const { return true; }

  /// Waits until the next attempt to connect is due. To be called after LinkEvent::kUnreachable. Sending thread.
  virtual void pause() {}

  /// Connects without a frame to send: makes an attempt when one is due, and completes a pending one. Returns kLost,
  /// and does not connect, once after a connection was lost, so that the caller acts on the loss first. To be called
  /// about ten times a second by a caller that wants it. Sending thread.
  virtual voip::LinkEvent keepConnected() { return voip::LinkEvent::kNone; }

  /// Waits until receiveRequest() may return true. A connection without a descriptor to wait for only yields. Command
  /// thread.
  virtual void awaitRequest() {
    const timespec yield{0, 200};
    nanosleep(&yield, nullptr);
  }

  /// Returns false only when receiveRequest() would return false. Takes no lock. Command thread.
  virtual bool mayHaveRequest() const { return true; }

  /// Ends all waits in this connection, present and future. Any thread.
  virtual void interrupt() {}

  /// Makes no new connection from now on: without one, sendPackets() returns LinkEvent::kUnreachable. Sending thread.
  virtual void stopConnecting() {}

  /// Returns true when frames that were sent can be lost with the link, and the sending thread hears of each loss from
  /// sendPackets() or keepConnected() before frames are sent on the next link. Sending thread.
  virtual bool reportsEachLoss() const { return false; }

  /// Returns how many bytes can be sent now without delaying the frames that follow; 0 while the recorder is slow.
  /// Kept media observes it, other frames do not. Sending thread.
  virtual std::size_t getRoom() { return SIZE_MAX; }

  /// Returns true when the connection itself sends the capture time before a late frame. The caller then sets the
  /// stamps of captured frames and sends no frames of protocol 5. Sending thread.
  virtual bool announcesCaptureTime() const { return false; }

  /// Returns the frames that wait for the host; none unless the recorder is the host. Any thread.
  virtual voip::HostBacklog getBacklog() { return {}; }

  /// Returns the size in bytes of the frames that wait for the host; null unless the recorder is the host. The
  /// connection owns the counter. Any thread.
  virtual const std::atomic<std::size_t>* getBacklogSize() const { return nullptr; }

  /// Logs a warning when the host has not fetched its frames for too long. To be called regularly. Sending thread.
  virtual void watchHost() {}

  virtual ~BaseConnection() = default;
};
