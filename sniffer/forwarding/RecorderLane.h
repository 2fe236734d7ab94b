#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <utility>

#include "forwarding/CatchUp.h"
#include "forwarding/CommandReader.h"
#include "forwarding/FrameForwarder.h"
#include "forwarding/LookBack.h"
#include "forwarding/Recalls.h"
#include "forwarding/RecorderLinks.h"
#include "forwarding/RtpDestinations.h"
#include "settings/Settings.h"
#include "statistics/Statistics.h"

namespace voip {

/// What belongs to one recorder: its connections, its list of destinations, its commands, its look-back and the frames
/// that are sent to it. The lanes of several recorders share only the table of destinations.
///
/// One thread, the lane's, forwards frames: the consumer, or with several recorders a thread for each.
class RecorderLane {
 public:
  /// `recorder` is the number of the recorder, from 0, in `all`. Both references must outlive the object.
  RecorderLane(RtpDestinations& all, unsigned recorder, Statistics& statistics);
  RecorderLane(const RecorderLane&) = delete;
  RecorderLane& operator=(const RecorderLane&) = delete;

  /// Applies the settings. Drops frames that the look-back has kept. `waiting`: the queue from which the lane's thread
  /// takes frames; the caller owns it.
  void configure(const Settings& settings, WaitingFrames& waiting);

  RecorderLinks& links() { return links_; }
  DestinationList& destinations() { return destinations_; }
  const DestinationList& destinations() const { return destinations_; }
  CommandReader& commands() { return commands_; }
  const CommandReader& commands() const { return commands_; }

  // ---- frames; the lane's thread ----

  /// Forwards a frame after a packet of class `packetClass`, or keeps it while older media of its destination is kept.
  /// The caller owns the bytes, which must be valid until flush().
  void forward(FrameProtocol packetClass, const KeptFrame& frame);

  /// Keeps media that the recorder has not asked for. There must be a look-back.
  void keepMedia(const KeptFrame& frame) { lookBack_->keepMedia(frame); }

  /// Takes a frame that some recorder may want. Forwards it if this recorder wants it, keeps it in the look-back, or
  /// drops and counts it.
  void take(const KeptFrame& frame);

  /// Sends the frames that forward() has collected. Returns what happened to the link.
  LinkEvent flush() { return forwarder_.flush(); }

  /// Drops these frames instead, because their bytes become invalid.
  void dropGroup() { forwarder_.dropGroup(); }

  /// Does the periodic work before a wait for frames: sends kept frames that are due. Returns how long the wait may
  /// take.
  std::chrono::milliseconds prepareWait();

  /// Does the periodic work after the wait, which has or has not found frames. `hasHost`: the lane's thread also
  /// carries out the commands.
  void finishWait(bool hasFrames, bool hasHost);

  /// Carries out the host's commands, if there are any.
  void checkHostCommands();

  // ---- commands; the command thread ----

  /// Carries out the commands that are readable now. Never waits.
  void checkCommands() { commands_.carryOutWaiting(*links_.getMedia()); }

  void addDestination(const IpEndpoint& destination);
  void removeDestination(const IpEndpoint& destination);

  /// Sends a heartbeat reply on the connection for a packet of class `packetClass`.
  void replyHeartbeat(FrameProtocol packetClass);

  /// Sends one frame, or a heartbeat reply, on that connection. The caller owns the bytes.
  void send(FrameProtocol packetClass, std::span<std::uint8_t> frame);

  /// Sets the source of the class that replies to heartbeats use; without it they leave on the media connection.
  void setLastClass(std::function<FrameProtocol()> lastClass) { lastClass_ = std::move(lastClass); }

 private:
  void carryOut(const SnifferRequest& request);
  bool hasToWait(std::span<const std::uint8_t> frame);
  void logNotSent();

  Statistics& statistics_;
  WaitingFrames* waiting_ = nullptr;
  DestinationList destinations_;
  Recalls recalls_;
  std::unique_ptr<LookBack> lookBack_;  ///< null without the setting
  RecorderLinks links_;
  FrameForwarder forwarder_{destinations_, statistics_};
  CatchUp catchUp_{recalls_, destinations_, links_, forwarder_};
  std::function<FrameProtocol()> lastClass_ = [] { return FrameProtocol::None; };
  std::atomic<bool> isListFull_ = false;  ///< the warning has been logged
  CommandReader commands_{[this](const SnifferRequest& request) { carryOut(request); }};
};

// ---- inline, since each frame needs them ----

inline void RecorderLane::forward(FrameProtocol packetClass, const KeptFrame& frame) {
  BaseConnection* connection = links_.forFrame(packetClass, FrameHeader::protocolOf(frame.frame.data()));
  if (connection == nullptr) {
    logNotSent();
  } else if (hasToWait(frame.frame)) {
    lookBack_->keepMedia(frame);
  } else {
    forwarder_.add(*connection, frame);
  }
}

/// Returns true for media of a destination whose older, kept media has not been sent yet.
inline bool RecorderLane::hasToWait(std::span<const std::uint8_t> frame) {
  if (recalls_.arePending()) catchUp_.takeRequests();
  if (!catchUp_.isActive() || FrameHeader::protocolOf(frame.data()) != FrameProtocol::Rtp) return false;
  return catchUp_.holds(FrameHeader::destinationOf(frame.data()));
}

}  // namespace voip
