#include "SngDissector.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "DottedDecimal.h"
#include "EmbeddedConnection.h"
#include "MutexLock.h"
#include "TcpConnection.h"
#include "UdpConnection.h"

namespace {

constexpr int kUdpHeaderLength = 8;
constexpr int kMaxFrameLength = 65535;  // its length is a 16-bit field

/// Frames and their headers stand at any address: they are copied out, never read in place.
template <typename Header>
Header read(const u_char* at) {
  Header header;
  std::memcpy(&header, at, sizeof header);
  return header;
}

u_char* write(u_char* at, const void* value, std::size_t size) {
  std::memcpy(at, value, size);
  return at + size;
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

SniffedPacket SniffedPacket::copyOf(const pcap_pkthdr& header, const u_char* frame, u_int maxLength) {
  const u_int length = std::min({header.len, header.caplen, maxLength});
  SniffedPacket copy;
  copy.header = new pcap_pkthdr(header);
  copy.header->len = copy.header->caplen = length;
  copy.packet = new u_char[length + kSlack];
  std::memcpy(copy.packet, frame, length);
  std::memset(copy.packet + length, 0, kSlack);
  return copy;
}

void SniffedPacket::release() {
  delete[] args;
  delete header;
  delete[] packet;
  *this = {};
}

// ---- construction and connections ----

SngDissector::SngDissector() {
  delete dissector.load();
  h323Parser = std::make_unique<H323Parser>();
  const auto logFailure = [](const char* what) {
    const int error = errno;
    logger->debug(what + std::to_string(error) + ":" + std::strerror(error));
  };
  if (pthread_mutex_init(&rtpListLock, nullptr) != 0) logFailure("Mutex rtpListLock init problem:");
  if (pthread_cond_init(&packetPresent, nullptr) != 0) logFailure("Condition variable packetPresent init problem:");
  if (pthread_mutex_init(&packetQueueLock, nullptr) != 0) logFailure("Mutex packetQueueLock init problem:");
  sipHelper = std::make_unique<SipHelper>();
  dissector = this;
}

SngDissector::~SngDissector() {
  interruptConnections();
  commands.stop();
  if (conMedia != nullptr) {
    conMedia->closeConnection();
    if (conMedia != EmbeddedConnection::dft()) delete conMedia;
  }
  if (conSig != nullptr) {
    conSig->closeConnection();
    delete conSig;
  }
  removeAllRtp();
  clearQueue();
  pthread_mutex_destroy(&rtpListLock);
  pthread_mutex_destroy(&packetQueueLock);
  pthread_cond_destroy(&packetPresent);
  dissector = nullptr;
}

void SngDissector::makeConnection(bool embedded) {
  if (embedded) {
    logger->info("Embedded connection created");
    conMedia = EmbeddedConnection::dft();
    conSig = nullptr;
    return;
  }
  // Three characters decide, so a copy that is shorter is padded with zeros.
  u_char transport[4] = {};
  std::strncpy(reinterpret_cast<char*>(transport), sniffer->getServerProtocol(), 3);
  const auto is = [&](const char* name) {
    return sipHelper->memcmpNocase(reinterpret_cast<const u_char*>(name), transport, 3) == 0;
  };
  if (is("UDP")) {
    makeUdpConnections();
    return;
  }
  if (!is("TCP")) logger->error("Invalid ServerProtocol assuming TCP");
  makeTcpConnections();
}

bool SngDissector::sharesMediaConnection() const {
  if (serverNameSig == nullptr) return true;
  return serverPortMedia == serverPortSig && std::strcmp(serverNameMedia, serverNameSig) == 0;
}

void SngDissector::makeUdpConnections() {
  conMedia = newUdpConnection(serverNameMedia, serverPortMedia);
  logger->info("UDP connection created");
  conSig = sharesMediaConnection() ? nullptr : newUdpConnection(serverNameSig, serverPortSig);
}

BaseConnection* SngDissector::newUdpConnection(const char* host, int port) {
  auto* connection = new UdpConnection(host, port);
  connection->setObserver(&link);
  connection->setCommandsFromServerOnly(settings.commandsFromServerOnly);
  return connection;
}

TcpConnection* SngDissector::newTcpConnection(const char* host, int port) {
  auto* connection = new TcpConnection(host, port);
  connection->setObserver(&link);
  connection->setSendTimeout(std::chrono::milliseconds(settings.sendTimeout));
  return connection;
}

void SngDissector::makeTcpConnections() {
  TcpConnection* media = newTcpConnection(serverNameMedia, serverPortMedia);
  conMedia = media;
  logger->info("TCP connection created");
  media->tcpConnect();
  const std::string recorder = std::string(serverNameMedia) + ":" + std::to_string(serverPortMedia);
  logger->info((media->isConnected() ? "Connected to recorder " : "Connecting to recorder ") + recorder);
  if (sharesMediaConnection()) {
    conSig = nullptr;
    return;
  }
  TcpConnection* signalling = newTcpConnection(serverNameSig, serverPortSig);
  conSig = signalling;
  signalling->tcpConnect();
}

void SngDissector::setConnections(std::unique_ptr<BaseConnection> media, std::unique_ptr<BaseConnection> signalling) {
  conMedia = media.release();
  conSig = signalling.release();
}

void SngDissector::closeConnection() {
  if (conSig != nullptr) conSig->closeConnection();
  if (conMedia != nullptr) conMedia->closeConnection();
}

void SngDissector::interruptConnections() {
  if (conMedia != nullptr) conMedia->interrupt();
  if (conSig != nullptr) conSig->interrupt();
}

// ---- commands ----

void SngDissector::startCmdReaderThread() {
  commands.start(startCmdReaderLoop);
}

void* SngDissector::startCmdReaderLoop(void*) {
  if (SngDissector* live = dft(); live != nullptr) live->commands.run(*live->conMedia);
  return nullptr;
}

void SngDissector::checkCommand() {
  commands.carryOutWaiting(*conMedia);
}

void SngDissector::carryOut(const SnifferRequest& request) {
  switch (request.request) {
    case 1:
      addRtp(request.rtpAddr, request.rtpPort);
      break;
    case 2:
      removeRtp(request.rtpAddr, request.rtpPort);
      break;
    case 3:
      replyHeartbeat();
      break;
  }
}

void SngDissector::replyHeartbeat() {
  // A frame of its own: the working header belongs to the consumer, which may be in the middle of a packet.
  u_char frame[kHeaderLength] = {0, kHeaderLength, kHeartbeat};
  sendPayload(frame, kHeaderLength);
  logger->debug("Heartbeat sent");
}

// ---- queue ----

void SngDissector::producePacket(SniffedPacket& packet) {
  {
    const MutexLock guard(packetQueueLock);
    packetQueue.push_back(packet);
    if (packetQueue.size() > statistics.queueHighest) statistics.queueHighest = packetQueue.size();
  }
  pthread_cond_signal(&packetPresent);
}

void SngDissector::consumePacket() {
  SniffedPacket packet;
  {
    const MutexLock guard(packetQueueLock);
    processing = false;
    while (packetQueue.empty() && !engineHasEnded()) {
      // The end is signalled without the lock and could be missed, so the wait looks again every 100 ms.
      timespec until;
      clock_gettime(CLOCK_REALTIME, &until);
      until.tv_nsec += 100'000'000;
      until.tv_sec += until.tv_nsec / 1'000'000'000;
      until.tv_nsec %= 1'000'000'000;
      pthread_cond_timedwait(&packetPresent, &packetQueueLock, &until);
    }
    if (!packetQueue.empty() && !engineHasEnded()) {
      packet = packetQueue.front();
      packetQueue.pop_front();
      processing = true;
    }
  }
  if (packet.header == nullptr) {
    clearQueue();
    return;
  }
  processPacket(packet.args, packet.header, &packet.packet);
  packet.release();
  if (sniffer != nullptr && sniffer->getEmbedded()) checkCommand();
}

void SngDissector::clearQueue() {
  const MutexLock guard(packetQueueLock);
  const std::size_t dumped = packetQueue.size();
  for (SniffedPacket& packet : packetQueue) packet.release();
  packetQueue.clear();
  count(statistics.queueDiscarded, dumped);
  if (logger->isDebugEnabled()) {
    logger->debug("Dissector packet queue cleared. " + std::to_string(dumped) + " packets dumped.");
  }
}

void SngDissector::signalEnd() {
  commands.signalEnd();
  interruptConnections();
  h323Parser->displayCallIdMap();
  pthread_cond_signal(&packetPresent);
}

bool SngDissector::isIdle() {
  const MutexLock guard(packetQueueLock);
  return packetQueue.empty() && !processing;
}

// ---- classification ----

void SngDissector::processPacket(u_char*, const pcap_pkthdr* header, u_char** packet) {
  const u_char* frame = *packet;
  const auto ethernet = read<sniff_ethernet>(frame);
  const int etherType = ethernet.ether_type[0] * 256 + ethernet.ether_type[1];
  int linkLength = 14;
  if (etherType == 0x8100) linkLength = 18;  // one IEEE 802.1Q tag
  if (etherType == 0x88A8) linkLength = 22;  // IEEE 802.1ad: the inner tag is there as well

  const auto ip = read<sniff_ip>(frame + linkLength);
  const int ipLength = (ip.ip_vhl & 0x0F) * 4;
  if (ipLength < 20) {
    count(statistics.otherDropped);
    logDrop("*** Dropping IP packet with unknown IP header\n", ip);
    return;
  }
  ohdr.protocol = ip.ip_p;
  ohdr.dstIp = ntohl(ip.ip_dst);
  ohdr.srcIp = ntohl(ip.ip_src);
  if (ip.ip_p == IPPROTO_UDP) {
    processUdp(frame, header, linkLength + ipLength);
  } else if (ip.ip_p == IPPROTO_TCP) {
    processTcp(*packet, header, linkLength + ipLength);
  } else {
    count(statistics.otherDropped);
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
  const auto udp = read<sniff_udp>(packet + size_header);
  ohdr.srcPort = ntohs(udp.uh_sport);
  ohdr.dstPort = ntohs(udp.uh_dport);
  const u_char* payload = packet + size_header + kUdpHeaderLength;
  // The frame's own length counts, not that of the UDP header: padding behind a short datagram is sent as well.
  const int frameLength = static_cast<int>(header->len) - size_header - kUdpHeaderLength + kHeaderLength;
  const bool wanted = isSip(payload) || isRtpFilter();
  if (!wanted || frameLength <= kHeaderLength) {
    count(statistics.udpDropped);
    return;
  }
  ohdr.protocol = static_cast<u_char>(payloadType);
  ohdr.len = htons(static_cast<u_short>(frameLength));
  u_char* frame = const_cast<u_char*>(packet);
  buildPayload(const_cast<u_char*>(payload) - kHeaderLength, frameLength, true, &frame);
}

void SngDissector::processTcp(u_char* packet, const pcap_pkthdr* header, int size_header) {
  const auto tcp = read<sniff_tcp>(packet + size_header);
  const int tcpLength = ((tcp.th_offx2 & 0xF0) >> 4) * 4;
  if (tcpLength < 20) {
    count(statistics.tcpDropped);
    logger->info("*** Fragmented TCP message. Header length: " + std::to_string(tcpLength) + " bytes");
    return;
  }
  ohdr.srcPort = ntohs(tcp.th_sport);
  ohdr.dstPort = ntohs(tcp.th_dport);
  const int frameLength = static_cast<int>(header->len) - size_header - tcpLength + kHeaderLength;
  if (frameLength <= kHeaderLength) {
    count(statistics.tcpDropped);
    return;
  }
  ohdr.len = htons(static_cast<u_short>(frameLength));
  buildPayload(packet + size_header + tcpLength - kHeaderLength, frameLength, false, &packet);
}

bool SngDissector::isSip(const u_char* payload) {
  if (!sipHelper->isRequest(payload) && !sipHelper->isResponse(payload)) return false;
  payloadType = kSip;
  return true;
}

bool SngDissector::isRtpFilter() {
  if (!isInRtpList(ohdr.dstIp, ohdr.dstPort)) return false;
  payloadType = kRtp;
  return true;
}

// ---- RTP destinations ----

void SngDissector::applyClear() {
  // The plain read first: every datagram comes by here, and an exchange locks the bus.
  if (rtpListCleared && rtpListCleared.exchange(false)) rtpList.clear();
}

void SngDissector::addRtp(u_int rtpIp, u_short rtpPort) {
  {
    const MutexLock guard(rtpListLock);
    applyClear();
    rtpList.emplace_back(rtpIp, rtpPort);
  }
  if (logger->isDebugEnabled()) logger->debug(hexAndDecimal("Added to list rtp (ip=0x", rtpIp, rtpPort));
}

void SngDissector::removeRtp(u_int rtpIp, u_short rtpPort) {
  {
    const MutexLock guard(rtpListLock);
    applyClear();
    std::erase(rtpList, RtpAddr(rtpIp, rtpPort));
  }
  if (logger->isDebugEnabled()) logger->debug(hexAndDecimal("Removed from list rtp (ip=0x", rtpIp, rtpPort));
}

bool SngDissector::isInRtpList(u_int rtpIp, u_short rtpPort) {
  const MutexLock guard(rtpListLock);
  applyClear();
  const std::uint64_t key = RtpAddr(rtpIp, rtpPort).key();
  return std::any_of(rtpList.begin(), rtpList.end(), [key](const RtpAddr& one) { return one.key() == key; });
}

// ---- forwarded frames ----

void SngDissector::buildPayload(u_char* payload, int payloadLen, bool isUdp, u_char**) {
  ohdr.srcIp = htonl(ohdr.srcIp);
  ohdr.dstIp = htonl(ohdr.dstIp);
  if (isUdp) {
    sendFrame(payload, payloadLen);
  } else if (describeSegment(payload, payloadLen)) {
    sendFrame(description.data(), static_cast<int>(description.size()));
  } else {
    count(statistics.tcpDropped);
  }
}

bool SngDissector::describeSegment(u_char* payload, int payloadLen) {
  PString upStreamPayload;
  const u_int srcPort = ohdr.srcPort;
  const u_int dstPort = ohdr.dstPort;
  if (!h323Parser->parseH323(payload, payloadLen, kHeaderLength, ohdr.srcIp, ohdr.dstIp, srcPort, dstPort,
                             upStreamPayload)) {
    return false;
  }
  const std::size_t textLength = upStreamPayload.GetLength();
  const std::size_t length = textLength + kHeaderLength;
  if (textLength == 0 || length > kMaxFrameLength) {
    logger->warn("H.323 description of " + std::to_string(textLength) + " characters does not fit a frame, not sent");
    return false;
  }
  payloadType = kH323;
  ohdr.protocol = kH323;
  ohdr.len = htons(static_cast<u_short>(length));
  description.resize(length);
  // A zero byte takes the place of the text's last character.
  std::memcpy(description.data() + kHeaderLength, static_cast<const char*>(upStreamPayload), textLength - 1);
  description.back() = 0;
  return true;
}

void SngDissector::sendFrame(u_char* frame, int length) {
  ohdr.srcPort = htons(ohdr.srcPort);
  ohdr.dstPort = htons(ohdr.dstPort);
  u_char* at = frame;
  at = write(at, &ohdr.len, sizeof ohdr.len);
  at = write(at, &ohdr.protocol, sizeof ohdr.protocol);
  at = write(at, &ohdr.dstIp, sizeof ohdr.dstIp);
  at = write(at, &ohdr.dstPort, sizeof ohdr.dstPort);
  at = write(at, &ohdr.srcIp, sizeof ohdr.srcIp);
  write(at, &ohdr.srcPort, sizeof ohdr.srcPort);
  sendPayload(frame, length);
}

BaseConnection* SngDissector::connectionFor(const u_char* frame) const {
  const int type = payloadType;
  if (type == kRtp) return conMedia;
  if (conSig != nullptr && type == kSip) return conSig;
  if (type == kSip || type == kH323 || frame[2] == kHeartbeat) return conMedia;
  return nullptr;
}

void SngDissector::sendPayload(u_char* payload, int len) {
  BaseConnection* connection = connectionFor(payload);
  if (connection == nullptr) {
    count(statistics.notSent);
    logger->warn("PAYLOAD NOT SENT");
    return;
  }
  const u_char protocol = payload[2];
  const bool sent = connection->sendPacket(payload, len) == len;
  if (protocol == kHeartbeat) return;  // not a captured frame
  if (!sent) {
    count(statistics.notSent);
  } else if (protocol == kSip) {
    count(statistics.sipForwarded);
  } else if (protocol == kRtp) {
    count(statistics.rtpForwarded);
  } else if (protocol == kH323) {
    count(statistics.h323Forwarded);
  }
}

std::size_t SngDissector::getQueueLength() {
  const MutexLock guard(packetQueueLock);
  return packetQueue.size();
}

Statistics& SngDissector::getStatistics() {
  if (conMedia != nullptr && conMedia == EmbeddedConnection::dft()) {
    const EmbeddedConnection::Backlog backlog = EmbeddedConnection::dft()->getBacklog();
    statistics.hostWaiting = backlog.waiting;
    statistics.hostWaitingHighest = backlog.highest;
  }
  statistics.queueLength = getQueueLength();
  const MutexLock guard(rtpListLock);
  applyClear();
  statistics.rtpListLength = rtpList.size();
  return statistics;
}

std::string SngDissector::reportStatistics() {
  return getStatistics().report(settings);
}

void SngDissector::printFormatHeader(const u_char* ptr) {
  const auto number = [](const u_char* at) { return std::to_string(at[0] << 8 | at[1]); };
  const auto address = [](const u_char* at) { return dottedDecimal(ntohl(read<u_int>(at))); };
  logger->debug("len=" + number(ptr) + ", prot=" + std::to_string(ptr[2]) + ", dstIp=" + address(ptr + 3) +
                ", dstPort=" + number(ptr + 7) + ", srcIp=" + address(ptr + 9) + ", srcPort=" + number(ptr + 13));
}
