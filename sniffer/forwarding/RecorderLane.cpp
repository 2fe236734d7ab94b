#include "forwarding/RecorderLane.h"

#include <cstdio>
#include <string>

#include "base/Logger.h"
#include "forwarding/MediaHeader.h"

namespace voip {

namespace {

// The wait for frames is limited: kept frames expire, and missed signalling is tried again.
constexpr std::chrono::milliseconds kIdleWait(100);
constexpr std::chrono::milliseconds kRoomWait(1);  // while kept media waits for space in the connection
constexpr std::chrono::milliseconds kNoWait(0);

/// Returns "Added to list rtp (ip=0xa010203=10.1.2.3, port=0x1f40=8000)"; an IPv6 address has only its own notation.
std::string hexAndDecimal(const char* heading, const IpEndpoint& destination) {
  const IpAddress& address = destination.address;
  char hexIp[16] = "";
  char hexPort[16];
  if (address.isIpv4()) std::snprintf(hexIp, sizeof hexIp, "0x%x=", address.ipv4());
  std::snprintf(hexPort, sizeof hexPort, "%x", destination.port);
  return std::string(heading) + hexIp + address.text() + ", port=0x" + hexPort + "=" +
         std::to_string(destination.port) + ")";
}

}  // namespace

RecorderLane::RecorderLane(RtpDestinations& all, unsigned recorder, Statistics& statistics)
    : statistics_(statistics), destinations_(all, recorder) {}

void RecorderLane::configure(const Settings& settings, WaitingFrames& waiting) {
  waiting_ = &waiting;
  lookBack_.reset();
  if (settings.lookBack > 0) {
    lookBack_ = std::make_unique<LookBack>(Instant(settings.lookBack), Instant(settings.resendLast),
                                           static_cast<std::size_t>(settings.lookBackMemory) << 20, statistics_);
  }
  forwarder_.configure(settings.captureTime, lookBack_.get(), waiting);
  catchUp_.configure(lookBack_.get());
}

// ---- frames ----

void RecorderLane::take(const KeptFrame& kept) {
  const std::uint8_t* const header = kept.frame.data();
  const FrameProtocol protocol = FrameHeader::protocolOf(header);
  if (protocol != FrameProtocol::Rtp || destinations_.contains(FrameHeader::destinationOf(header))) {
    forward(protocol, kept);
    return;
  }
  const auto payload = kept.frame.subspan(FrameHeader::lengthOf(header));
  if (lookBack_ != nullptr && looksLikeMedia(payload.data(), static_cast<int>(payload.size()))) {
    keepMedia(kept);
  } else {
    statistics_.udpDropped.add();
  }
}

void RecorderLane::logNotSent() {
  statistics_.notSent.add();
  logger().warn("PAYLOAD NOT SENT");
}

std::chrono::milliseconds RecorderLane::prepareWait() {
  forwarder_.flush();
  if (lookBack_ != nullptr && links_.keepConnected() != LinkEvent::kNone) forwarder_.noteLoss();
  catchUp_.takeRequests();
  forwarder_.sendMissed(
      [this](FrameProtocol protocol) -> BaseConnection& { return *links_.forFrame(protocol, protocol); });
  const bool hasMore = catchUp_.step();
  return hasMore ? kNoWait : catchUp_.isActive() ? kRoomWait : kIdleWait;
}

void RecorderLane::finishWait(bool hasFrames, bool hasHost) {
  if (BaseConnection* media = links_.getMedia()) media->watchHost();
  if (lookBack_ == nullptr || hasFrames) return;
  lookBack_->media.expire();
  lookBack_->expireSent(monotonicNow());
  if (hasHost) checkHostCommands();  // the host may ask for kept media while no packet arrives
}

void RecorderLane::checkHostCommands() {
  if (!links_.getMedia()->mayHaveRequest()) return;
  // A reply is sent after the frames of the packets before it.
  forwarder_.flush();
  checkCommands();
}

// ---- commands ----

void RecorderLane::carryOut(const SnifferRequest& request) {
  switch (request.request) {
    case SnifferRequest::kAddDestination:
      addDestination({request.rtpAddr, request.rtpPort});
      break;
    case SnifferRequest::kRemoveDestination:
      removeDestination({request.rtpAddr, request.rtpPort});
      break;
    case SnifferRequest::kAddIpv6Destination:
      if (request.hasIpv6) addDestination({request.ipv6Addr, request.rtpPort});
      break;
    case SnifferRequest::kRemoveIpv6Destination:
      if (request.hasIpv6) removeDestination({request.ipv6Addr, request.rtpPort});
      break;
    case SnifferRequest::kHeartbeat:
      replyHeartbeat(lastClass_());
      break;
  }
}

void RecorderLane::addDestination(const IpEndpoint& destination) {
  const bool isAdded = lookBack_ != nullptr ? recalls_.add(destination, destinations_) : destinations_.add(destination);
  if (lookBack_ != nullptr) waiting_->wake();
  if (!isAdded) {
    if (!isListFull_.exchange(true)) {
      logger().warn("The recorder has asked for more than " + std::to_string(RtpDestinations::kMaxOfEach) +
                    " destinations: further ones are ignored");
    }
  } else if (logger().isDebugEnabled()) {
    logger().debug(hexAndDecimal("Added to list rtp (ip=", destination));
  }
}

void RecorderLane::removeDestination(const IpEndpoint& destination) {
  destinations_.remove(destination);
  if (logger().isDebugEnabled()) logger().debug(hexAndDecimal("Removed from list rtp (ip=", destination));
}

void RecorderLane::replyHeartbeat(FrameProtocol packetClass) {
  // The reply has its own frame, because the lane's thread may be using another one.
  std::uint8_t frame[FrameHeader::kLength];
  FrameHeader{FrameHeader::kLength, FrameProtocol::Heartbeat}.write(frame);
  send(packetClass, frame);
  logger().debug("Heartbeat sent");
}

void RecorderLane::send(FrameProtocol packetClass, std::span<std::uint8_t> frame) {
  const FrameProtocol protocol = FrameHeader::protocolOf(frame.data());
  BaseConnection* connection = links_.forFrame(packetClass, protocol);
  if (connection == nullptr) {
    logNotSent();
  } else if (protocol == FrameProtocol::Heartbeat) {
    // A reply is no captured frame: it is neither counted nor kept.
    forwarder_.sendReply(*connection, connection == links_.getMedia(), frame);
  } else {
    forwarder_.add(*connection, {{}, frame});
    forwarder_.flush();
  }
}

}  // namespace voip
