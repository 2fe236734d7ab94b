#include "dissection/PacketRouter.h"

#include <time.h>

#include <cstdio>
#include <iterator>
#include <utility>

#include "base/FrameLimits.h"
#include "base/Logger.h"
#include "forwarding/MediaHeader.h"
#include "network/PlainPacket.h"
#include "network/Work.h"

namespace voip {

namespace {

/// The counters in the order of NetworkCount.
constexpr Statistics::Counter Statistics::*kCounters[] = {
    &Statistics::otherDropped,           &Statistics::tcpDropped,        &Statistics::duplicatesDropped,
    &Statistics::duplicatesForgotten,    &Statistics::fragmentsHeld,     &Statistics::fragmentsMalformed,
    &Statistics::datagramsReassembled,   &Statistics::datagramsTimedOut, &Statistics::datagramsDisplaced,
    &Statistics::datagramsContradictory, &Statistics::datagramsMixed,    &Statistics::segmentsFollowed,
    &Statistics::segmentsRetransmitted,  &Statistics::segmentsCut,       &Statistics::streamMessages,
    &Statistics::streamMessagesTooLong,  &Statistics::streamGaps,        &Statistics::streamsOutOfStep,
    &Statistics::streamsDisplaced,       &Statistics::ipv6Malformed,     &Statistics::jumboPayloads,
};
static_assert(std::size(kCounters) == static_cast<std::size_t>(NetworkCount::kJumboPayloads) + 1);

/// Returns the machine's monotonic time in microseconds, precise to a few milliseconds. The coarse clock is used
/// because it is read for each frame.
std::int64_t monotonic() {
  timespec time;
  clock_gettime(CLOCK_MONOTONIC_COARSE, &time);
  return time.tv_sec * std::int64_t{1'000'000} + time.tv_nsec / 1000;
}

std::string describe(const FlowEnds& ends) {
  return ends.source.textWithPort(ends.sourcePort) + " to " + ends.destination.textWithPort(ends.destinationPort);
}

/// Returns the place of the frame of a datagram: its header is written over the headers before the payload.
std::span<std::uint8_t> frameOf(const Datagram& datagram) {
  const std::size_t header = FrameHeader::lengthFor(datagram.ends.destination);
  return {datagram.payload.data() - header, datagram.payload.size() + header};
}

void logRefusal(const char* heading, const sniff_ip& ip) {
  // The 16-bit fields are printed in the byte order of the host, without conversion.
  char dump[160];
  std::snprintf(dump, sizeof dump, "%svhl=%02x tos=%02x len=%04x id=%04x off=%04x ttl=%02x p=%02x sum=%04x", heading,
                ip.ip_vhl, ip.ip_tos, ip.ip_len, ip.ip_id, ip.ip_off, ip.ip_ttl, ip.ip_p, ip.ip_sum);
  logger().error(dump);
}

}  // namespace

PacketRouter::PacketRouter(const RtpDestinations& destinations, RecorderLane& lane, Statistics& statistics)
    : lane_(lane), statistics_(statistics), classifier_(destinations, statistics) {
  configure({}, nullptr);
}

void PacketRouter::configure(const Settings& settings, FanOut* fanOut) {
  fanOut_ = fanOut;
  keepsMedia_ = settings.lookBack > 0;
  classifier_.setSipAnyUri(settings.sipAnyUri);
  classifier_.h323Parser().setIpv6(settings.ipv6);
  classifier_.h323Parser().setLimitsComplaints(settings.reassembleTcp);
  network_ = std::make_unique<NetworkStack>(NetworkOptions::of(settings), static_cast<NetworkSink&>(*this));
  isPlain_ = !settings.dropDuplicates && !settings.reassembleFragments && !settings.reassembleTcp;
}

// ---- frames ----

void PacketRouter::takeFrame(const pcap_pkthdr& header, u_char* frame, FrameSource source, const CaptureStamp& stamp) {
  stamp_ = stamp;
  const std::int64_t time = std::int64_t{header.ts.tv_sec} * 1'000'000 + header.ts.tv_usec;
  network_->takeFrame({frame, header.len}, source, time, isPlain_ ? 0 : clock_.at(time, monotonic()));
}

bool PacketRouter::expire() {
  return !isPlain_ && network_->expire(clock_.advance(monotonic()));
}

void PacketRouter::finish() {
  while (network_->flush()) {
  }
}

void PacketRouter::takePlainUdp(std::span<u_char> frame, std::size_t offset) {
  takeUdp(frame, offset, classifier_.ends(), true, *this);
}

void PacketRouter::takePlainTcp(std::span<u_char> frame, std::size_t offset) {
  takeTcp(frame, offset, classifier_.ends(), *this);
}

// ---- items of the network ----

void PacketRouter::countIpv6(const FlowEnds& ends) {
  if (!ends.areIpv4()) ++ipv6Items_;
}

void PacketRouter::takeDatagram(const Datagram& datagram) {
  const auto frame = frameOf(datagram);
  if (!datagram.ends.areIpv4()) {
    ++ipv6Items_;
    if (frame.size() > kMaxForwardedFrame) {
      statistics_.ipv6TooLong.add();
      return;
    }
  }
  if (classifier_.classify(datagram) == FrameProtocol::None || datagram.payload.empty()) {
    drop(datagram);
    return;
  }
  forward(frame);
  if (!datagram.isCaptured) release();  // its bytes are valid during this call only
}

void PacketRouter::drop(const Datagram& datagram) {
  if (!keepsMedia_ || !looksLikeMedia(datagram.payload.data(), static_cast<int>(datagram.payload.size()))) {
    statistics_.udpDropped.add();
    return;
  }
  const auto frame = frameOf(datagram);
  classifier_.header().protocol = FrameProtocol::Rtp;
  classifier_.header().write(frame.data());
  if (fanOut_ != nullptr) {
    fanOut_->takeForAll({stamp_, frame});
  } else {
    lane_.keepMedia({stamp_, frame});
  }
}

void PacketRouter::takeSegment(const Segment& segment) {
  countIpv6(segment.ends);
  if (segment.payload.empty()) {
    statistics_.tcpDropped.add();
  } else {
    forwardDescription(segment.ends, segment.payload);
  }
}

/// Returns the stamp of an item that was captured before the current frame.
CaptureStamp PacketRouter::stampAt(std::int64_t captured) const {
  return {captured, stamp_.seen - (stamp_.captured - captured)};
}

std::size_t PacketRouter::takeTpkt(const FlowEnds& ends, Octets tpkt, std::int64_t captured) {
  countIpv6(ends);
  const CaptureStamp inWork = std::exchange(stamp_, stampAt(captured));
  const bool isSent = forwardDescription(ends, {const_cast<u_char*>(tpkt.data()), tpkt.size()});  // it is only read
  stamp_ = inWork;
  return classifier_.h323Parser().steps() + (isSent ? Work::kSent : 0);
}

void PacketRouter::takeSipMessage(const FlowEnds& ends, Octets message, std::int64_t captured) {
  countIpv6(ends);
  make(ends, message);
  const std::size_t length = made_.size();
  made_.resize(length + kFrameSlack);
  // The framing of the stream accepts a start line with any URI. Without the setting, only requests to sip: URIs are
  // SIP.
  if (!classifier_.takesAnyUri() && !classifier_.isSip(made_.data() + FrameHeader::lengthFor(ends.destination))) {
    statistics_.tcpDropped.add();
    return;
  }
  classifier_.setClass(FrameProtocol::Sip, ends, message.size());
  made_.resize(length);
  const CaptureStamp inWork = std::exchange(stamp_, stampAt(captured));
  forwardMade();
  stamp_ = inWork;
}

bool PacketRouter::forwardDescription(const FlowEnds& ends, std::span<u_char> octets) {
  constexpr u_char kTpktVersion = 3;
  if (!octets.empty() && octets.front() == kTpktVersion && !sendEarlier()) return false;
  if (!classifier_.describe(ends, octets, description_)) {
    statistics_.tcpDropped.add();
    return false;
  }
  // A zero byte replaces the text's last character.
  make(ends, {reinterpret_cast<const std::uint8_t*>(description_.data()), description_.size()});
  made_.push_back(0);
  forwardMade();
  return true;
}

/// Makes a frame whose header is not written yet.
void PacketRouter::make(const FlowEnds& ends, Octets payload) {
  made_.assign(FrameHeader::lengthFor(ends.destination), 0);
  made_.insert(made_.end(), payload.begin(), payload.end());
}

void PacketRouter::forwardMade() {
  forward(made_);
  release();  // the next frame overwrites this one
}

/// Ends the use of the bytes of the last frame. The queues of several lanes have copies.
void PacketRouter::release() {
  if (fanOut_ == nullptr) lane_.flush();
}

// ---- to the recorder ----

void PacketRouter::addIpv6Items() {
  statistics_.ipv6Items.add(std::exchange(ipv6Items_, 0));
}

void PacketRouter::forward(std::span<u_char> frame) {
  classifier_.header().write(frame.data());
  const FrameProtocol packetClass = classifier_.lastClass();
  if (fanOut_ == nullptr) {
    lane_.forward(packetClass, {stamp_, frame});
  } else if (packetClass == FrameProtocol::Rtp) {
    fanOut_->takeMedia({stamp_, frame}, classifier_.wantedBy());
  } else {
    fanOut_->takeForAll({stamp_, frame});
  }
}

// ---- refused ----

/// Sends the frames of earlier packets before a packet is logged. Returns false if the recorder turns out to be
/// unreachable: the packets after the one that was not sent are discarded unread, the current one too.
bool PacketRouter::sendEarlier() {
  if (fanOut_ != nullptr || lane_.flush() != LinkEvent::kUnreachable || keepsMedia_) return true;
  statistics_.queueDiscarded.add();
  return false;
}

void PacketRouter::refuseHeader(const sniff_ip& ip) {
  if (!sendEarlier()) return;
  statistics_.otherDropped.add();
  logRefusal("*** Dropping IP packet with unknown IP header\n", ip);
}

void PacketRouter::refuseProtocol(const sniff_ip& ip) {
  if (!sendEarlier()) return;
  statistics_.otherDropped.add();
  logRefusal("*** Dropping IP packet with unknown upper layer protocol\n", ip);
}

void PacketRouter::refuseTcpHeader(int length) {
  if (!sendEarlier()) return;
  statistics_.tcpDropped.add();
  logger().info("*** Fragmented TCP message. Header length: " + std::to_string(length) + " bytes");
}

void PacketRouter::refuseMessage(const FlowEnds& ends, std::uint64_t length) {
  logger().warn("A message of " + std::to_string(length) + " bytes from " + describe(ends) +
                " over TCP does not fit a frame, not sent");
}

void PacketRouter::refuseTail(const FlowEnds& ends, std::size_t missing) {
  if (std::exchange(hasLoggedTail_, true)) return;
  logger().warn(
      "A segment from " + describe(ends) + " was captured without its last " + std::to_string(missing) +
      " bytes: it is longer than the snap length. Messages in such segments are lost; segmentsCut counts them");
}

void PacketRouter::count(NetworkCount what) {
  (statistics_.*kCounters[static_cast<std::size_t>(what)]).add();
}

}  // namespace voip
