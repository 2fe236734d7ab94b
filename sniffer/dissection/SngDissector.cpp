#include "SngDissector.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <utility>

#include "DottedDecimal.h"
#include "EmbeddedConnection.h"
#include "MediaHeader.h"
#include "SipAnyUri.h"

namespace {

constexpr int kEthernetLength = 14;
constexpr int kOneTagLength = 18;   // IEEE 802.1Q
constexpr int kTwoTagsLength = 22;  // IEEE 802.1ad: the inner tag is there as well
constexpr int kIpv4Length = 20;
constexpr int kUdpLength = 8;
constexpr int kTcpLength = 20;

// The end is signalled without the lock, and what has been kept grows old: the consumer's wait looks again.
constexpr std::chrono::milliseconds kLookAgain(100);

/// Headers stand at any address in a frame: they are copied out, never read in place.
template <typename Header>
Header headerAt(const u_char* at) {
  Header header;
  std::memcpy(&header, at, sizeof header);
  return header;
}

std::string hexAndDecimal(const char* heading, u_int rtpIp, u_short rtpPort) {
  char hexIp[16];
  char hexPort[16];
  std::snprintf(hexIp, sizeof hexIp, "%x", rtpIp);
  std::snprintf(hexPort, sizeof hexPort, "%x", rtpPort);
  return std::string(heading) + hexIp + "=" + dottedDecimal(rtpIp) + ", port=0x" + hexPort + "=" +
         std::to_string(rtpPort) + ")";
}

}  // namespace

std::atomic<SngDissector*> SngDissector::dissector = nullptr;
log4cxx::LoggerPtr SngDissector::logger = log4cxx::Logger::getLogger("SnifferClient");

// ---- construction and connections ----

SngDissector::SngDissector() {
  delete dissector.load();
  h323Parser = std::make_unique<H323Parser>(&statistics);
  sipHelper = std::make_unique<SipHelper>();
  dissector = this;
}

SngDissector::~SngDissector() {
  links.interrupt();
  commands.stop();
  links.release();
  removeAllRtp();
  clearQueue();
  dissector = nullptr;
}

void SngDissector::setSettings(const Settings& values) {
  settings = values;
  network = std::make_unique<NetworkStack>(settings, networkSink, statistics);
  packetQueue.setLimit(static_cast<std::size_t>(settings.queueLimit) << 20);
  if (settings.lookBack > 0) {
    lookBack = std::make_unique<LookBack>(std::chrono::milliseconds(settings.lookBack),
                                          static_cast<std::size_t>(settings.lookBackMemory) << 20, statistics);
  } else {
    lookBack.reset();
  }
  forwarder.configure(settings.captureTime, lookBack.get());
}

void SngDissector::makeConnection(bool embedded) {
  if (embedded) {
    links.makeEmbedded();
  } else {
    links.makeSockets(sniffer->getServerProtocol(), recorder, settings, link);
  }
}

void SngDissector::Link::forgetDestinations() {
  owner.forwarder.noteLinkLost();
  owner.removeAllRtp();
}

void SngDissector::Link::discardWaiting() {
  owner.forwarder.noteLinkLost();
  // What waits is to be kept for a recorder that is back soon: the consumer will, when it comes to it.
  if (owner.settings.lookBack == 0) owner.clearQueue();
}

// ---- commands ----

void SngDissector::startCmdReaderThread() {
  commands.start(startCmdReaderLoop);
}

void* SngDissector::startCmdReaderLoop(void*) {
  if (SngDissector* live = dft(); live != nullptr) live->commands.run(*live->links.getMedia());
  return nullptr;
}

void SngDissector::checkCommand() {
  commands.carryOutWaiting(*links.getMedia());
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
  // A frame of its own: the working header belongs to the consumer, which may be in the middle of a packet.
  u_char frame[FrameHeader::kLength];
  our_header{FrameHeader::kLength, FrameProtocol::Heartbeat}.write(frame);
  sendPayload(frame, FrameHeader::kLength);
  logger->debug("Heartbeat sent");
}

// ---- queue ----

void SngDissector::consumePacket() {
  bool any = false;
  while (!any && !engineHasEnded()) {
    forwardRecalled();
    sendMissedSignalling();
    any = packetQueue.takeBatch(kLookAgain);
    if (links.getMedia() == EmbeddedConnection::dft()) EmbeddedConnection::dft()->watchHost();
    if (lookBack && !any) lookBack->expire();
  }
  processBatch();
  if (engineHasEnded()) clearQueue();
}

void SngDissector::processBatch() {
  const bool embedded = sniffer != nullptr && sniffer->getEmbedded();
  inBatch = true;
  while (!engineHasEnded()) {
    QueuedPacket* packet = packetQueue.next();
    if (packet == nullptr) break;
    stamp = packet->stamp;
    processFrame(packet->header, packet->bytes(), packet->linkType);
    if (embedded) answerHost();
    if (recallPending.load(std::memory_order_relaxed)) forwardRecalled();
  }
  inBatch = false;
  forwarder.flush();
}

void SngDissector::answerHost() {
  if (links.getMedia() == EmbeddedConnection::dft() && !EmbeddedConnection::dft()->hasRequest()) return;
  // An answer comes behind the frames of the packets in front of it.
  forwarder.flush();
  checkCommand();
}

void SngDissector::clearQueue() {
  const std::size_t dumped = packetQueue.discard() + forwarder.discardRest();
  statistics.queueDiscarded.add(dumped);
  if (logger->isDebugEnabled()) {
    logger->debug("Dissector packet queue cleared. " + std::to_string(dumped) + " packets dumped.");
  }
}

void SngDissector::signalEnd() {
  commands.signalEnd();
  links.interrupt();
  h323Parser->displayCallIdMap();
  packetQueue.wake();
}

Statistics& SngDissector::getStatistics() {
  if (links.getMedia() != nullptr && links.getMedia() == EmbeddedConnection::dft()) {
    const EmbeddedConnection::Backlog backlog = EmbeddedConnection::dft()->getBacklog();
    statistics.hostWaiting = backlog.waiting;
    statistics.hostWaitingHighest = backlog.highest;
  }
  statistics.queueLength = getQueueLength();
  statistics.rtpListLength = rtpList.length();
  return statistics;
}

// ---- classification ----

void SngDissector::processFrame(const pcap_pkthdr& header, u_char* frame, int linkType) {
  if (!NetworkStack::isNeeded(settings, linkType)) {
    processPacket(nullptr, &header, &frame);
    return;
  }
  const std::int64_t time = std::int64_t{header.ts.tv_sec} * 1'000'000 + header.ts.tv_usec;
  network->takeFrame({frame, header.len}, linkType, time);
}

void SngDissector::processPacket(u_char*, const pcap_pkthdr* header, u_char** packet) {
  const u_char* frame = *packet;
  const auto ethernet = headerAt<sniff_ethernet>(frame);
  const int etherType = ethernet.ether_type[0] * 256 + ethernet.ether_type[1];
  int linkLength = kEthernetLength;
  if (etherType == 0x8100) linkLength = kOneTagLength;
  if (etherType == 0x88A8) linkLength = kTwoTagsLength;
  processIp(*packet, header, linkLength);
}

void SngDissector::processIp(u_char* packet, const pcap_pkthdr* header, int linkLength) {
  const auto ip = headerAt<sniff_ip>(packet + linkLength);
  const int ipLength = (ip.ip_vhl & 0x0F) * 4;
  if (ipLength < kIpv4Length) {
    statistics.otherDropped.add();
    logDrop("*** Dropping IP packet with unknown IP header\n", ip);
    return;
  }
  ohdr.dstIp = ntohl(ip.ip_dst);
  ohdr.srcIp = ntohl(ip.ip_src);
  if (ip.ip_p == IPPROTO_UDP) {
    processUdp(packet, header, linkLength + ipLength);
  } else if (ip.ip_p == IPPROTO_TCP) {
    processTcp(packet, header, linkLength + ipLength);
  } else {
    statistics.otherDropped.add();
    logDrop("*** Dropping IP packet with unknown upper layer protocol\n", ip);
  }
}

void SngDissector::logDrop(const char* heading, const sniff_ip& ip) {
  // The 16-bit fields are printed as the host reads them from the frame: a raw view.
  char dump[160];
  std::snprintf(dump, sizeof dump, "%svhl=%02x tos=%02x len=%04x id=%04x off=%04x ttl=%02x p=%02x sum=%04x", heading,
                ip.ip_vhl, ip.ip_tos, ip.ip_len, ip.ip_id, ip.ip_off, ip.ip_ttl, ip.ip_p, ip.ip_sum);
  logger->error(dump);
}

void SngDissector::processUdp(const u_char* packet, const pcap_pkthdr* header, int size_header) {
  const auto udp = headerAt<sniff_udp>(packet + size_header);
  ohdr.srcPort = ntohs(udp.uh_sport);
  ohdr.dstPort = ntohs(udp.uh_dport);
  const u_char* payload = packet + size_header + kUdpLength;
  // The frame's own length counts, not that of the UDP header: padding behind a short datagram is sent as well.
  const int frameLength = static_cast<int>(header->len) - size_header - kUdpLength + FrameHeader::kLength;
  const int payloadLength = frameLength - FrameHeader::kLength;
  const bool wanted = isSip(payload) || isSipWithAnyUri(payload, payloadLength) || isRtpFilter();
  u_char* frame = const_cast<u_char*>(payload) - FrameHeader::kLength;
  ohdr.len = static_cast<u_short>(frameLength);
  if (!wanted || frameLength <= FrameHeader::kLength) {
    dropUdp(frame, frameLength);
    return;
  }
  ohdr.protocol = payloadType;
  u_char* start = const_cast<u_char*>(packet);
  buildPayload(frame, frameLength, true, &start);
}

void SngDissector::dropUdp(u_char* frame, int length) {
  if (!lookBack || !looksLikeMedia(frame + FrameHeader::kLength, length - FrameHeader::kLength)) {
    statistics.udpDropped.add();
    return;
  }
  ohdr.protocol = FrameProtocol::Rtp;
  ohdr.write(frame);
  lookBack->keepMedia({stamp, {frame, static_cast<std::size_t>(length)}});
}

void SngDissector::processTcp(u_char* packet, const pcap_pkthdr* header, int size_header) {
  const auto tcp = headerAt<sniff_tcp>(packet + size_header);
  const int tcpLength = ((tcp.th_offx2 & 0xF0) >> 4) * 4;
  if (tcpLength < kTcpLength) {
    statistics.tcpDropped.add();
    logger->info("*** Fragmented TCP message. Header length: " + std::to_string(tcpLength) + " bytes");
    return;
  }
  ohdr.srcPort = ntohs(tcp.th_sport);
  ohdr.dstPort = ntohs(tcp.th_dport);
  const int frameLength = static_cast<int>(header->len) - size_header - tcpLength + FrameHeader::kLength;
  if (frameLength <= FrameHeader::kLength) {
    statistics.tcpDropped.add();
    return;
  }
  buildPayload(packet + size_header + tcpLength - FrameHeader::kLength, frameLength, false, &packet);
}

bool SngDissector::isSip(const u_char* payload) {
  if (!sipHelper->isRequest(payload) && !sipHelper->isResponse(payload)) return false;
  payloadType = FrameProtocol::Sip;
  return true;
}

bool SngDissector::isSipWithAnyUri(const u_char* payload, int length) {
  if (!settings.sipAnyUri || length <= 0) return false;
  if (!isSipRequestWithAnyUri(payload, static_cast<std::size_t>(length))) return false;
  payloadType = FrameProtocol::Sip;
  return true;
}

bool SngDissector::isRtpFilter() {
  if (!isInRtpList(ohdr.dstIp, ohdr.dstPort)) return false;
  payloadType = FrameProtocol::Rtp;
  return true;
}

// ---- what the network stack has found ----

void SngDissector::Network::takePacket(std::span<std::uint8_t> frame, std::size_t ipOffset, bool isCaptured) {
  const auto length = static_cast<bpf_u_int32>(frame.size());
  const pcap_pkthdr header{{}, length, length};
  owner.processIp(frame.data(), &header, static_cast<int>(ipOffset));
  if (!isCaptured) owner.forwarder.flush();  // its bytes do not stay
}

void SngDissector::Network::setEnds(const StreamEnds& ends) {
  owner.ohdr.srcIp = ends.source;
  owner.ohdr.srcPort = ends.sourcePort;
  owner.ohdr.dstIp = ends.destination;
  owner.ohdr.dstPort = ends.destinationPort;
}

void SngDissector::Network::takeSipMessage(const StreamEnds& ends, std::span<const std::uint8_t> message) {
  setEnds(ends);
  std::vector<u_char>& frame = owner.description;
  frame.assign(FrameHeader::kLength, 0);
  frame.insert(frame.end(), message.begin(), message.end());
  const std::size_t length = frame.size();
  frame.resize(length + SniffedPacket::kSlack);
  // The start line has been read in full; whether that is enough is the setting's to say.
  if (!owner.settings.sipAnyUri && !owner.isSip(frame.data() + FrameHeader::kLength)) {
    owner.statistics.tcpDropped.add();
    return;
  }
  owner.payloadType = owner.ohdr.protocol = FrameProtocol::Sip;
  owner.ohdr.len = static_cast<u_short>(length);
  owner.forward(frame.data(), static_cast<int>(length));
  owner.forwarder.flush();  // the next message takes its place
}

void SngDissector::Network::takeTpkt(const StreamEnds& ends, std::span<const std::uint8_t> tpkt) {
  setEnds(ends);
  u_char* segment = const_cast<u_char*>(tpkt.data());  // read only
  if (!owner.describeSegment(segment, static_cast<int>(tpkt.size()), 0)) {
    owner.statistics.tcpDropped.add();
    return;
  }
  owner.forward(owner.description.data(), static_cast<int>(owner.description.size()));
  owner.forwarder.flush();
}

// ---- RTP destinations ----

void SngDissector::addRtp(u_int rtpIp, u_short rtpPort) {
  if (settings.lookBack > 0) {
    // The flag before the entry, and the lock over both: whoever finds the entry finds what is to be done first.
    const std::lock_guard guard(recallLock);
    recallPending = true;
    rtpList.add({rtpIp, rtpPort});
    recalls.emplace_back(rtpIp, rtpPort);
  } else {
    rtpList.add({rtpIp, rtpPort});
  }
  if (settings.lookBack > 0) packetQueue.wake();
  if (logger->isDebugEnabled()) logger->debug(hexAndDecimal("Added to list rtp (ip=0x", rtpIp, rtpPort));
}

void SngDissector::removeRtp(u_int rtpIp, u_short rtpPort) {
  rtpList.remove({rtpIp, rtpPort});
  if (logger->isDebugEnabled()) logger->debug(hexAndDecimal("Removed from list rtp (ip=0x", rtpIp, rtpPort));
}

void SngDissector::forwardRecalled() {
  if (!recallPending) return;
  std::vector<RtpAddr> wanted;
  {
    const std::lock_guard guard(recallLock);
    wanted.swap(recalls);
    recallPending = false;
  }
  for (const RtpAddr& destination : wanted) {
    if (!rtpList.contains(destination)) continue;
    payloadType = FrameProtocol::Rtp;
    for (const KeptFrame& kept : lookBack->recallMedia(destination)) forwarder.add(*links.getMedia(), kept);
    forwarder.flush();
    lookBack->releaseRecalled();
  }
}

void SngDissector::sendMissedSignalling() {
  if (!lookBack) return;
  forwarder.sendMissed([this](const KeptFrame& missed) -> BaseConnection& {
    const FrameProtocol protocol = FrameHeader::protocolOf(missed.frame.data());
    return *links.forFrame(protocol, protocol);
  });
}

// ---- forwarded frames ----

void SngDissector::buildPayload(u_char* payload, int payloadLen, bool isUdp, u_char**) {
  if (isUdp) {
    forward(payload, payloadLen);
  } else if (describeSegment(payload, payloadLen)) {
    forward(description.data(), static_cast<int>(description.size()));
    forwarder.flush();  // the next description takes its place
  } else {
    statistics.tcpDropped.add();
  }
}

bool SngDissector::describeSegment(u_char* payload, int payloadLen, int ourHdrLen) {
  PString upStreamPayload;
  const u_int source = htonl(ohdr.srcIp);
  const u_int destination = htonl(ohdr.dstIp);
  const u_int sourcePort = ohdr.srcPort;
  const u_int destinationPort = ohdr.dstPort;
  if (!h323Parser->parseH323(payload, payloadLen, ourHdrLen, source, destination, sourcePort, destinationPort,
                             upStreamPayload)) {
    return false;
  }
  const std::size_t textLength = upStreamPayload.GetLength();
  const std::size_t length = textLength + FrameHeader::kLength;
  if (textLength == 0 || length > FrameHeader::kMaxFrame) {
    logger->warn("H.323 description of " + std::to_string(textLength) + " characters does not fit a frame, not sent");
    return false;
  }
  payloadType = ohdr.protocol = FrameProtocol::H323;
  ohdr.len = static_cast<u_short>(length);
  description.resize(length);
  // A zero byte takes the place of the text's last character.
  std::memcpy(description.data() + FrameHeader::kLength, static_cast<const char*>(upStreamPayload), textLength - 1);
  description.back() = 0;
  return true;
}

void SngDissector::forward(u_char* frame, int length) {
  ohdr.write(frame);
  BaseConnection* connection = links.forFrame(payloadType, ohdr.protocol);
  if (connection == nullptr) {
    sendPayload(frame, length);
    return;
  }
  // Asked for a moment ago: what was kept for it goes first.
  if (recallPending.load(std::memory_order_acquire)) forwardRecalled();
  forwarder.add(*connection, {stamp, {frame, static_cast<std::size_t>(length)}});
  if (!inBatch) forwarder.flush();
}

void SngDissector::sendPayload(u_char* payload, int len) {
  const FrameProtocol protocol = FrameHeader::protocolOf(payload);
  BaseConnection* connection = links.forFrame(payloadType, protocol);
  if (connection == nullptr) {
    statistics.notSent.add();
    logger->warn("PAYLOAD NOT SENT");
  } else if (protocol == FrameProtocol::Heartbeat) {
    connection->sendReply(payload, len);  // not a captured frame: not counted, and not kept
  } else {
    forwarder.add(*connection, {stamp, {payload, static_cast<std::size_t>(len)}});
    forwarder.flush();
  }
}

void SngDissector::printFormatHeader(const u_char* ptr) {
  const our_header header = our_header::of(ptr);
  logger->debug("len=" + std::to_string(header.len) + ", prot=" + std::to_string(static_cast<int>(header.protocol)) +
                ", dstIp=" + dottedDecimal(header.dstIp) + ", dstPort=" + std::to_string(header.dstPort) +
                ", srcIp=" + dottedDecimal(header.srcIp) + ", srcPort=" + std::to_string(header.srcPort));
}
