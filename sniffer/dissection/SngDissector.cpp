#include "dissection/SngDissector.h"

#include <chrono>
#include <exception>
#include <functional>
#include <system_error>

#include "base/Logger.h"
#include "forwarding/MediaHeader.h"

using namespace voip;

namespace {

// The wait of the classifying thread is limited: early segments in TCP streams expire.
constexpr std::chrono::milliseconds kIdleWait(100);
constexpr std::chrono::milliseconds kNoWait(0);
constexpr std::chrono::milliseconds kBetweenStarts(1000);  // of threads that could not be started

}  // namespace

std::atomic<SngDissector*> SngDissector::dissector_ = nullptr;

// ---- construction and set-up ----

SngDissector::SngDissector() {
  delete dissector_.load();
  dissector_ = this;
  lane_.configure({}, packetQueue_);
  lane_.setLastClass([this] { return router_.classifier().lastClass(); });
}

SngDissector::~SngDissector() {
  lane_.links().interrupt();
  lane_.commands().stop();
  if (FanOut* fanOut = fanOut_) fanOut->signalEnd();
  packetQueue_.wake();
  if (classifying_.joinable()) classifying_.join();
  ownFanOut_.reset();
  lane_.links().release();
  removeAllRtp();
  packetQueue_.clearFromSender();
  dissector_ = nullptr;
}

void SngDissector::setSettings(const Settings& settings) {
  settings_ = settings;
  networkOptions_ = voip::NetworkOptions::of(settings);
  if (readMoreRecorders(settings.moreRecorders).addresses.empty()) {
    packetQueue_.setLimit(static_cast<std::size_t>(settings.queueLimit) << 20);
    lane_.configure(settings, packetQueue_);
  } else {
    if (settings.queueLimit > 0) packetQueue_.setLimit(FanOut::queueLimitFor(settings));
    ownFanOut_ = std::make_unique<FanOut>(settings, rtpList_, lane_, statistics_);
    fanOut_ = ownFanOut_.get();
  }
  router_.configure(settings, fanOut_);
}

void SngDissector::makeConnection(bool embedded) {
  FanOut* const fanOut = fanOut_;
  if (embedded) {
    lane_.links().makeEmbedded(settings_);
    const auto* backlog = lane_.links().getMedia()->getBacklogSize();
    fanOut != nullptr ? fanOut->first().queue.setOthersWaiting(backlog) : packetQueue_.setOthersWaiting(backlog);
  } else {
    lane_.links().makeSockets(sniffer_->getServerProtocol(), recorder_, settings_, statistics_);
  }
  if (fanOut != nullptr) fanOut->makeConnections(settings_);
}

void SngDissector::setConnections(std::unique_ptr<BaseConnection> media, std::unique_ptr<BaseConnection> signalling) {
  lane_.links().take(std::move(media), std::move(signalling));
  if (FanOut* fanOut = fanOut_) fanOut->makeConnections(settings_);
}

// ---- commands ----

void* SngDissector::startCmdReaderLoop(void*) {
  if (SngDissector* live = dft(); live != nullptr) live->lane_.commands().run(*live->lane_.links().getMedia());
  return nullptr;
}

// ---- the queue ----

void SngDissector::producePacket(SniffedPacket& packet) {
  const bool isMedia =
      packetQueue_.hasLimit() && carriesMedia(packet.packet, packet.header->caplen, packet.linkType, networkOptions_);
  const u_int mostBytes = settings_.reassembleTcp ? kMaxPacketOfStreams : kMaxPacket;
  packetQueue_.push(packet, mostBytes, isMedia ? PacketQueue::Kind::kMedia : PacketQueue::Kind::kSignalling);
}

void SngDissector::consumePacket() {
  if (FanOut* fanOut = fanOut_) {
    forwardToFirst(*fanOut);
    return;
  }
  try {
    while (!engineHasEnded() && !takeBatch()) {
    }
    processBatch();
  } catch (...) {
    lane_.dropGroup();  // its bytes become invalid
    throw;
  }
  if (!engineHasEnded()) return;
  finish();
  router_.flush();
  packetQueue_.clearFromSender();
}

/// Forwards what streams have left, as far as the recorders take it without a wait and without a new connection.
void SngDissector::finish() {
  if (!settings_.reassembleTcp) return;
  lane_.links().stopConnecting();
  if (FanOut* fanOut = fanOut_) fanOut->stopConnecting();
  router_.finish();
}

/// Does the periodic work, then waits for packets. Returns false when there are none.
bool SngDissector::takeBatch() {
  hasMore_ = router_.expire();
  const std::chrono::milliseconds longest = lane_.prepareWait();
  const bool hasPackets = packetQueue_.takeBatch(hasMore_ ? kNoWait : longest);
  lane_.finishWait(hasPackets, isEmbedded());
  return hasPackets;
}

void SngDissector::processBatch() {
  const bool hasHost = isEmbedded() && fanOut_ == nullptr;
  while (!engineHasEnded()) {
    QueuedPacket* packet = packetQueue_.next();
    if (packet == nullptr) break;
    router_.takeFrame(packet->header, packet->bytes(), {packet->linkType, packet->zone}, packet->stamp);
    if (hasHost) lane_.checkHostCommands();
  }
  router_.flush();
}

// ---- several recorders ----

void SngDissector::forwardToFirst(FanOut& fanOut) {
  startLanes(fanOut);
  fanOut.first().work(!engineHasEnded(), isEmbedded(), fanOut.hasEnded());
}

void SngDissector::startLanes(FanOut& fanOut) {
  if (classifying_.joinable() || fanOut.hasEnded()) return;
  try {
    classifying_ = std::thread(&SngDissector::classify, this, std::ref(fanOut));
    fanOut.start();
  } catch (const std::system_error& failure) {
    logger().error(std::string("Nothing is forwarded, there is no thread for it: ") + failure.what());
    fanOut.first().queue.takeBatch(kBetweenStarts);
  }
}

/// The body of the classifying thread.
void SngDissector::classify(FanOut& fanOut) {
  while (!fanOut.hasEnded()) {
    try {
      hasMore_ = router_.expire();
      router_.flush();
      packetQueue_.takeBatch(hasMore_ ? kNoWait : kIdleWait);
      processBatch();
      // The first recorder's lane may need none of these packets, but carries out the host's commands after them.
      if (isEmbedded() && lane_.links().getMedia()->mayHaveRequest()) fanOut.first().queue.wake();
    } catch (const std::exception& failure) {
      logger().error(std::string("A frame is lost: ") + failure.what());
    }
  }
}

void SngDissector::endLanes() {
  FanOut* const fanOut = fanOut_;
  if (fanOut == nullptr) return;
  if (classifying_.joinable()) classifying_.join();
  const std::size_t dropped = fanOut->join();
  try {
    finish();
    fanOut->drain();
  } catch (const std::exception& failure) {
    logger().error(std::string("A frame is lost: ") + failure.what());
  }
  packetQueue_.clearFromSender(dropped);
}

// ---- the end, and figures ----

void SngDissector::signalEnd() {
  lane_.commands().signalEnd();
  lane_.links().interrupt();
  if (FanOut* fanOut = fanOut_) fanOut->signalEnd();
  router_.classifier().h323Parser().displayCallIdMap();
  packetQueue_.wake();
}

bool SngDissector::isIdle() {
  FanOut* const fanOut = fanOut_;
  return packetQueue_.isIdle() && !hasMore_ && (fanOut == nullptr || fanOut->isIdle());
}

Statistics SngDissector::getStatistics() {
  Statistics now = statistics_;
  if (BaseConnection* media = lane_.links().getMedia()) {
    const HostBacklog backlog = media->getBacklog();
    now.hostWaiting = backlog.waiting;
    now.hostWaitingHighest = backlog.highest;
  }
  now.queueLength = getQueueLength();
  if (FanOut* fanOut = fanOut_) now.queueLength += fanOut->first().queue.size();
  now.rtpListLength = lane_.destinations().length();
  return now;
}

std::vector<RecorderStatistics> SngDissector::getRecorderStatistics() {
  FanOut* const fanOut = fanOut_;
  return fanOut != nullptr ? fanOut->getStatistics() : std::vector<RecorderStatistics>();
}

std::vector<std::string> SngDissector::reportRecorders() {
  std::vector<std::string> lines;
  for (const RecorderStatistics& one : getRecorderStatistics())
    lines.push_back(one.figures.reportOf(one.name, settings_));
  return lines;
}

// ---- single steps of the path of a frame ----

void SngDissector::processFrame(const pcap_pkthdr& header, std::uint8_t* frame, int linkType) {
  router_.takeFrame(header, frame, linkType, {});
  router_.flush();
}

void SngDissector::processPacket(u_char*, const pcap_pkthdr* header, u_char** packet) {
  router_.takePlainFrame({*packet, header->len});
  router_.flush();
}

void SngDissector::processUdp(const u_char* packet, const pcap_pkthdr* header, int size_header) {
  router_.takePlainUdp({const_cast<u_char*>(packet), header->len}, static_cast<std::size_t>(size_header));
  router_.flush();
}

void SngDissector::processTcp(u_char* packet, const pcap_pkthdr* header, int size_header) {
  router_.takePlainTcp({packet, header->len}, static_cast<std::size_t>(size_header));
  router_.flush();
}

void SngDissector::buildPayload(u_char* payload, int payloadLen, bool isUdp, u_char**) {
  const std::span frame(payload, static_cast<std::size_t>(payloadLen));
  if (isUdp) {
    router_.forward(frame);
  } else {
    router_.forwardDescription(router_.classifier().ends(), frame.subspan(FrameHeader::kLength));
  }
  router_.flush();
}

void SngDissector::sendPayload(u_char* payload, int len) {
  lane_.send(router_.classifier().lastClass(), {payload, static_cast<std::size_t>(len)});
}

void SngDissector::printFormatHeader(const u_char* ptr) {
  const our_header header = settings_.ipv6 ? our_header::of(ptr) : our_header::ofIpv4(ptr);
  logger().debug("len=" + std::to_string(header.len) + ", prot=" + std::to_string(ptr[our_header::kProtocolOffset]) +
                 ", dstIp=" + header.dstIp.text() + ", dstPort=" + std::to_string(header.dstPort) +
                 ", srcIp=" + header.srcIp.text() + ", srcPort=" + std::to_string(header.srcPort));
}
