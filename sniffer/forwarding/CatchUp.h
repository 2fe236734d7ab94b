#pragma once

#include <cstdint>
#include <deque>
#include <unordered_set>

#include "forwarding/FrameForwarder.h"
#include "forwarding/LookBack.h"
#include "forwarding/Recalls.h"
#include "forwarding/RecorderLinks.h"
#include "forwarding/RtpDestinations.h"

namespace voip {

/// Sends kept media of the destinations that the recorder asks for, in small steps: each step sends as much as the
/// connection takes without delaying other frames. New media of these destinations is kept until the older media has
/// been sent, so that all media is sent in order. The lane's thread only.
class CatchUp {
 public:
  /// `destinations`: the recorder's. All other arguments must outlive the object.
  CatchUp(Recalls& recalls, const DestinationList& destinations, RecorderLinks& links, FrameForwarder& forwarder)
      : recalls_(recalls), destinations_(destinations), links_(links), forwarder_(forwarder) {}

  /// Sets the look-back, which the caller owns; null when no media is kept. To be called before the first packet.
  void configure(LookBack* lookBack) { lookBack_ = lookBack; }

  /// True while a destination has kept media to send.
  bool isActive() const { return !waiting_.empty(); }

  /// Takes the destinations that the recorder has asked for since the last call.
  void takeRequests();

  /// True when new media of the destination has to be kept.
  bool holds(const IpEndpoint& destination) const { return isActive() && held_.contains(destination); }

  /// Sends the next kept frames. Returns true when more may wait and the connection takes data now.
  bool step();

 private:
  struct Request {
    IpEndpoint destination;
    Instant at;
  };

  void finishFirst();

  Recalls& recalls_;
  const DestinationList destinations_;
  RecorderLinks& links_;
  FrameForwarder& forwarder_;
  LookBack* lookBack_ = nullptr;

  std::deque<Request> waiting_;                          ///< in the order of the requests; the first is being recalled
  std::unordered_set<IpEndpoint, IpEndpointHash> held_;  ///< the destinations of `waiting_`
  bool isRecalling_ = false;
};

}  // namespace voip
