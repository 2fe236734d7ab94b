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

/// Brings kept media to a recorder that asked for it late: in small steps, as much at a time as the connection takes
/// without delay to other frames. Until a destination has caught up, its new media is kept, too, so that all of it
/// leaves in order. Consumer only.
class CatchUp {
 public:
  CatchUp(Recalls& recalls, const RtpDestinations& destinations, RecorderLinks& links, FrameForwarder& forwarder)
      : recalls_(recalls), destinations_(destinations), links_(links), forwarder_(forwarder) {}

  /// `lookBack` may be null; then there is nothing to catch up with.
  void configure(LookBack* lookBack) { lookBack_ = lookBack; }

  bool isActive() const { return !waiting_.empty(); }

  /// Takes in the destinations that were asked for.
  void takeRequests();

  /// True when media to the destination has to be kept for now.
  bool holds(RtpAddr destination) const { return isActive() && held_.contains(destination.key()); }

  /// Sends the next kept frames. Returns true when there are more and the connection takes more now.
  bool step();

 private:
  void finishFirst();

  Recalls& recalls_;
  const RtpDestinations& destinations_;
  RecorderLinks& links_;
  FrameForwarder& forwarder_;
  LookBack* lookBack_ = nullptr;

  std::deque<RtpAddr> waiting_;  ///< the first one's media is being recalled
  std::unordered_set<std::uint64_t> held_;
  bool isRecalling_ = false;
};

}  // namespace voip
