#include "FrameForwarder.h"

#include <endian.h>

#include <algorithm>
#include <cstring>
#include <functional>

#include "MediaHeader.h"

namespace {

constexpr std::size_t kMostTogether = 128;
constexpr std::int64_t kBetweenAttempts = 1'000'000;

bool isSignalling(FrameProtocol protocol) {
  return protocol != FrameProtocol::Rtp;
}

void writeTimeFrame(u_char* to, const KeptFrame& announced) {
  FrameHeader header = FrameHeader::of(announced.frame.data());
  header.len = FrameForwarder::kTimeFrameLength;
  header.protocol = FrameProtocol::CaptureTime;
  header.write(to);
  const std::uint64_t time = htobe64(static_cast<std::uint64_t>(announced.stamp.captured));
  std::memcpy(to + FrameHeader::kLength, &time, sizeof time);
}

}  // namespace

void FrameForwarder::configure(bool announceCaptureTime, LookBack* keeper) {
  captureTime = announceCaptureTime;
  lookBack = keeper;
}

void FrameForwarder::add(BaseConnection& to, const KeptFrame& frame) {
  if (connection != &to || group.size() == kMostTogether) flush();
  const Entry entry{frame, FrameHeader::protocolOf(frame.frame.data())};
  // What the recorder missed comes first.
  if (lookBack != nullptr && !sendingMissed && isSignalling(entry.protocol) && lookBack->hasSignalling()) {
    lookBack->keepSignalling(frame);
    return;
  }
  connection = &to;
  group.push_back(entry);
}

void FrameForwarder::flush() {
  std::size_t done = 0;
  while (done < group.size()) {
    prepare(done);
    linkLost = false;
    restDiscarded = false;
    sender = std::this_thread::get_id();
    const std::size_t dealtWith = connection->sendPackets(outgoing);
    sender = std::thread::id();
    done = settle(done, dealtWith);
    if (restDiscarded) break;
    // Ended early: the recorder may have been lost, and with it what it asked for.
    judgeAnew(done);
  }
  group.clear();
}

std::size_t FrameForwarder::discardRest() {
  if (sender.load() != std::this_thread::get_id() || lookBack != nullptr) return 0;
  restDiscarded = true;
  // Those in front of the failing one have been taken whole.
  auto failing = std::find_if(outgoing.begin(), outgoing.end(), [](const auto& one) { return one.sent != one.length; });
  const auto isTime = [](const OutgoingFrame& one) {
    return FrameHeader::protocolOf(one.bytes) == FrameProtocol::CaptureTime;
  };
  if (failing != outgoing.end() && isTime(*failing)) ++failing;
  const auto behind = failing == outgoing.end() ? failing : failing + 1;
  return static_cast<std::size_t>(std::count_if(behind, outgoing.end(), std::not_fn(isTime)));
}

void FrameForwarder::prepare(std::size_t from) {
  outgoing.clear();
  if (captureTime) timeFrames.resize(group.size());
  const std::int64_t lateSince = captureTime ? CaptureStamp::now() - kLate : 0;
  for (std::size_t i = from; i < group.size(); ++i) {
    const KeptFrame& frame = group[i].frame;
    if (captureTime && frame.stamp.seen < lateSince) {
      writeTimeFrame(timeFrames[i].data(), frame);
      outgoing.push_back({timeFrames[i].data(), kTimeFrameLength});
    }
    outgoing.push_back({frame.frame.data(), static_cast<int>(frame.frame.size())});
  }
}

std::size_t FrameForwarder::settle(std::size_t from, std::size_t dealtWith) {
  std::uint64_t sip = 0, h323 = 0, rtp = 0;
  for (std::size_t i = 0; i < dealtWith; ++i) {
    const OutgoingFrame& frame = outgoing[i];
    const bool sent = frame.sent == frame.length;
    if (sent && FrameHeader::protocolOf(frame.bytes) == FrameProtocol::CaptureTime) continue;
    // With the frame that tells its time a frame is lost as well: alone it would be taken for a timely one.
    const Entry& entry = group[from++];
    if (!sent) {
      if (!linkLost || !keep(entry)) statistics.notSent.add();
    } else {
      ++(entry.protocol == FrameProtocol::Sip ? sip : entry.protocol == FrameProtocol::H323 ? h323 : rtp);
    }
  }
  // Once for all: a locked addition for each frame would be a tenth of its cost.
  if (sip != 0) statistics.sipForwarded.add(sip);
  if (h323 != 0) statistics.h323Forwarded.add(h323);
  if (rtp != 0) statistics.rtpForwarded.add(rtp);
  return from;
}

bool FrameForwarder::keep(const Entry& entry) {
  if (lookBack == nullptr) return false;
  if (isSignalling(entry.protocol)) {
    if (!sendingMissed) lookBack->keepSignalling(entry.frame);
    return true;
  }
  const u_char* payload = entry.frame.frame.data() + FrameHeader::kLength;
  const int length = static_cast<int>(entry.frame.frame.size()) - FrameHeader::kLength;
  if (!looksLikeMedia(payload, length)) return false;
  lookBack->keepMedia(entry.frame);
  return true;
}

void FrameForwarder::judgeAnew(std::size_t from) {
  const auto isOver = [&](const Entry& entry) {
    if (isSignalling(entry.protocol)) return linkLost && keep(entry);
    const auto header = FrameHeader::of(entry.frame.frame.data());
    if (destinations.contains({header.dstIp, header.dstPort})) return false;
    if (!keep(entry)) statistics.udpDropped.add();
    return true;
  };
  const auto rest = group.begin() + static_cast<std::ptrdiff_t>(from);
  group.erase(std::remove_if(rest, group.end(), isOver), group.end());
}

std::optional<KeptFrame> FrameForwarder::nextMissed() {
  if (lookBack == nullptr || !lookBack->hasSignalling() || CaptureStamp::now() < nextAttempt) return std::nullopt;
  flush();
  sendingMissed = true;
  return lookBack->frontSignalling();
}

bool FrameForwarder::flushMissed() {
  flush();
  sendingMissed = false;
  if (linkLost) {
    nextAttempt = CaptureStamp::now() + kBetweenAttempts;
    return false;
  }
  lookBack->popSignalling();
  return true;
}
