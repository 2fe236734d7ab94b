#pragma once

#include <pcap/pcap.h>

#include <string>
#include <utility>

#include "base/Mutex.h"
#include "settings/TunnelPorts.h"

namespace voip {

/// The packet sockets that share the frames of one network device: the kernel gives each frame to one of them. Any
/// thread.
///
/// The kernel spreads media by addresses and ports, both directions of a stream to the same socket, so that the frames
/// of a stream stay in order. Everything else goes to the first socket, so that one thread queues it in the order of
/// its capture: SIP, TCP, fragments, tunnels, and what this machine sends. A call depends on the order of its
/// signalling across connections, and a datagram on that of its fragments.
class FanoutGroup {
 public:
  enum class Result {
    kJoined,
    kAlone,   ///< the kernel makes no group; the handle gets all frames of the device
    kFailed,  ///< the handle gets nothing
  };

  explicit FanoutGroup(TunnelPorts tunnels) : tunnels_(std::move(tunnels)) {}
  FanoutGroup(const FanoutGroup&) = delete;
  FanoutGroup& operator=(const FanoutGroup&) = delete;

  /// Makes an opened handle deliver nothing until join(). To be called before pcap_activate().
  static void silence(pcap_t* handle);

  /// Starts the delivery of frames to the handle's socket, as the first socket of the group or as a further one. A
  /// filter has to be set afterwards; until then no frame passes. Unless it returns kJoined, `reason` says why. A
  /// further socket fails without a first one. Every socket fails while the group belongs to a device that is gone.
  Result join(pcap_t* handle, bool isFirst, std::string& reason);

  /// Notes that the socket of a member is about to be closed.
  void leave();

  /// True when a further socket can join.
  bool hasMembers();

 private:
  Result makeGroup(int sd, std::string& reason) REQUIRES(mutex_);

  const TunnelPorts tunnels_;
  Mutex mutex_;
  int id_ GUARDED_BY(mutex_) = 0;       ///< the kernel's number of the group
  int members_ GUARDED_BY(mutex_) = 0;  ///< the group exists as long as there are any
};

}  // namespace voip
