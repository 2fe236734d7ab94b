#include "dissection/SngDissector.h"

#include <chrono>
#include <cstdio>

#include "base/DottedDecimal.h"
#include "base/Logger.h"
#include "forwarding/MediaHeader.h"

using namespace voip;

namespace {

// The consumer's wait for packets is limited: kept frames expire, and missed signalling is tried again.
constexpr std::chrono::milliseconds kIdleWait(100);
constexpr std::chrono::milliseconds kRoomWait(2);  // while kept media waits for space in the connection
constexpr std::chrono::milliseconds kNoWait(0);

std::string hexAndDecimal(const char* heading, u_int rtpIp, u_short rtpPort) {
  char hexIp[16];
  char hexPort[16];
  std::snprintf(hexIp, sizeof hexIp, "%x", rtpIp);
  std::snprintf(hexPort, sizeof hexPort, "%x", rtpPort);
  return std::string(heading) + hexIp + "=" + dottedDecimal(rtpIp) + ", port=0x" + hexPort + "=" +
         std::to_string(rtpPort) + ")";
}

}  // namespace

std::atomic<SngDissector*> SngDissector::dissector_ = nullptr;

// ---- construction and set-up ----

SngDissector::SngDissector() {
  delete dissector_.load();
  dissector_ = this;
}

SngDissector::~SngDissector() {
  links_.interrupt();
  commands_.stop();
  links_.release();
  removeAllRtp();
  packetQueue_.clearFromConsumer();
  dissector_ = nullptr;
}

void SngDissector::setSettings(const Settings& settings) {
  settings_ = settings;
  networkOptions_ = voip::NetworkOptions::of(settings);
  packetQueue_.setLimit(static_cast<std::size_t>(settings.queueLimit) << 20);
  lookBack_.reset();
  if (settings.lookBack > 0) {
    lookBack_ = std::make_unique<LookBack>(Instant(settings.lookBack),
                                           static_cast<std::size_t>(settings.lookBackMemory) << 20, statistics_);
  }
  forwarder_.configure(settings.captureTime, lookBack_.get());
  catchUp_.configure(lookBack_.get());
  router_.configure(settings, lookBack_.get());
}

void SngDissector::makeConnection(bool embedded) {
  if (embedded) {
    links_.makeEmbedded(settings_);
    packetQueue_.setOthersWaiting(links_.getMedia()->getBacklogSize());
  } else {
    links_.makeSockets(sniffer_->getServerProtocol(), recorder_, settings_, statistics_);
  }
}

// ---- commands ----

void* SngDissector::startCmdReaderLoop(void*) {
  if (SngDissector* live = dft(); live != nullptr) live->commands_.run(*live->links_.getMedia());
  return nullptr;
}

void SngDissector::carryOut(const SnifferRequest& request) {
  switch (request.request) {
    case SnifferRequest::kAddDestination:
      addRtp(request.rtpAddr, request.rtpPort);
      break;
    case SnifferRequest::kRemoveDestination:
      removeRtp(request.rtpAddr, request.rtpPort);
      break;
    case SnifferRequest::kHeartbeat:
      replyHeartbeat();
      break;
  }
}

void SngDissector::replyHeartbeat() {
  // The reply has its own frame, because the consumer may be using the classifier's header.
  std::uint8_t frame[FrameHeader::kLength];
  our_header{FrameHeader::kLength, FrameProtocol::Heartbeat}.write(frame);
  sendPayload(frame, FrameHeader::kLength);
  logger().debug("Heartbeat sent");
}

void SngDissector::addRtp(u_int rtpIp, u_short rtpPort) {
  if (lookBack_ != nullptr) {
    recalls_.add({rtpIp, rtpPort}, rtpList_);
    packetQueue_.wake();
  } else {
    rtpList_.add({rtpIp, rtpPort});
  }
  if (logger().isDebugEnabled()) logger().debug(hexAndDecimal("Added to list rtp (ip=0x", rtpIp, rtpPort));
}

void SngDissector::removeRtp(u_int rtpIp, u_short rtpPort) {
  rtpList_.remove({rtpIp, rtpPort});
  if (logger().isDebugEnabled()) logger().debug(hexAndDecimal("Removed from list rtp (ip=0x", rtpIp, rtpPort));
}

// ---- the queue ----

void SngDissector::producePacket(SniffedPacket& packet) {
  const bool isMedia =
      packetQueue_.hasLimit() && carriesMedia(packet.packet, packet.header->caplen, packet.linkType, networkOptions_);
  const u_int mostBytes = settings_.reassembleTcp ? kMaxPacketOfStreams : kMaxPacket;
  packetQueue_.push(packet, mostBytes, isMedia ? PacketQueue::Kind::kMedia : PacketQueue::Kind::kSignalling);
}

void SngDissector::consumePacket() {
  try {
    while (!engineHasEnded() && !takeBatch()) {
    }
    processBatch();
  } catch (...) {
    forwarder_.dropGroup();  // its bytes become invalid
    throw;
  }
  if (!engineHasEnded()) return;
  router_.flush();
  forwarder_.flush();
  packetQueue_.clearFromConsumer();
}

/// Does the periodic work, then waits for packets. Returns false when there are none.
bool SngDissector::takeBatch() {
  router_.expire();
  forwarder_.flush();
  if (lookBack_ != nullptr && links_.keepConnected() != LinkEvent::kNone) rtpList_.clear();
  catchUp_.takeRequests();
  sendMissedSignalling();
  const bool hasMore = catchUp_.step();
  const auto longest = hasMore ? kNoWait : catchUp_.isActive() ? kRoomWait : kIdleWait;
  const bool hasPackets = packetQueue_.takeBatch(longest);
  if (BaseConnection* media = links_.getMedia()) media->watchHost();
  if (lookBack_ == nullptr || hasPackets) return hasPackets;
  lookBack_->media.expire();
  if (isEmbedded()) checkHostCommands();  // the host may ask for kept media while no packet arrives
  return false;
}

void SngDissector::processBatch() {
  const bool hasHost = isEmbedded();
  while (!engineHasEnded()) {
    QueuedPacket* packet = packetQueue_.next();
    if (packet == nullptr) break;
    router_.takeFrame(packet->header, packet->bytes(), packet->linkType, packet->stamp);
    if (hasHost) checkHostCommands();
  }
  forwarder_.flush();
}

void SngDissector::checkHostCommands() {
  if (!links_.getMedia()->mayHaveRequest()) return;
  // A reply is sent after the frames of the packets before it.
  forwarder_.flush();
  checkCommand();
}

void SngDissector::sendMissedSignalling() {
  forwarder_.sendMissed(
      [this](FrameProtocol protocol) -> BaseConnection& { return *links_.forFrame(protocol, protocol); });
}

void SngDissector::signalEnd() {
  commands_.signalEnd();
  links_.interrupt();
  router_.classifier().h323Parser().displayCallIdMap();
  packetQueue_.wake();
}

Statistics SngDissector::getStatistics() {
  Statistics now = statistics_;
  if (BaseConnection* media = links_.getMedia()) {
    const HostBacklog backlog = media->getBacklog();
    now.hostWaiting = backlog.waiting;
    now.hostWaitingHighest = backlog.highest;
  }
  now.queueLength = getQueueLength();
  now.rtpListLength = rtpList_.length();
  return now;
}

// ---- single steps of the path of a frame ----

void SngDissector::processFrame(const pcap_pkthdr& header, std::uint8_t* frame, int linkType) {
  router_.takeFrame(header, frame, linkType, {});
  forwarder_.flush();
}

void SngDissector::processPacket(u_char*, const pcap_pkthdr* header, u_char** packet) {
  router_.takePlainFrame({*packet, header->len});
  forwarder_.flush();
}

void SngDissector::processUdp(const u_char* packet, const pcap_pkthdr* header, int size_header) {
  router_.takePlainUdp({const_cast<u_char*>(packet), header->len}, static_cast<std::size_t>(size_header));
  forwarder_.flush();
}

void SngDissector::processTcp(u_char* packet, const pcap_pkthdr* header, int size_header) {
  router_.takePlainTcp({packet, header->len}, static_cast<std::size_t>(size_header));
  forwarder_.flush();
}

void SngDissector::buildPayload(u_char* payload, int payloadLen, bool isUdp, u_char**) {
  const std::span frame(payload, static_cast<std::size_t>(payloadLen));
  if (isUdp) {
    router_.forward(frame);
  } else {
    router_.forwardDescription(router_.classifier().ends(), frame.subspan(FrameHeader::kLength));
  }
  forwarder_.flush();
}

void SngDissector::sendPayload(u_char* payload, int len) {
  const FrameProtocol protocol = FrameHeader::protocolOf(payload);
  BaseConnection* connection = links_.forFrame(router_.classifier().lastClass(), protocol);
  const std::span frame(payload, static_cast<std::size_t>(len));
  if (connection == nullptr) {
    statistics_.notSent.add();
    logger().warn("PAYLOAD NOT SENT");
  } else if (protocol == FrameProtocol::Heartbeat) {
    // A reply is no captured frame: it is neither counted nor kept.
    forwarder_.sendReply(*connection, connection == links_.getMedia(), frame);
  } else {
    forwarder_.add(*connection, {{}, frame});
    forwarder_.flush();
  }
}

void SngDissector::printFormatHeader(const u_char* ptr) {
  const our_header header = our_header::of(ptr);
  logger().debug("len=" + std::to_string(header.len) + ", prot=" + std::to_string(static_cast<int>(header.protocol)) +
                 ", dstIp=" + dottedDecimal(header.dstIp) + ", dstPort=" + std::to_string(header.dstPort) +
                 ", srcIp=" + dottedDecimal(header.srcIp) + ", srcPort=" + std::to_string(header.srcPort));
}
