#include "dissection/Classifier.h"

#include <arpa/inet.h>

#include <string>

#include "base/FrameLimits.h"
#include "base/Logger.h"
#include "signalling/SipStartLine.h"

namespace voip {

void Classifier::setClass(FrameProtocol protocol, const FlowEnds& ends, std::size_t payloadLength) {
  setEnds(ends);
  header_.len = static_cast<u_short>(payloadLength + FrameHeader::kLength);
  lastClass_ = header_.protocol = protocol;
}

bool Classifier::isSipWithAnyUri(std::span<const std::uint8_t> payload) {
  if (!sipAnyUri_ || !isSipRequestWithAnyUri(payload)) return false;
  lastClass_ = FrameProtocol::Sip;
  return true;
}

bool Classifier::describe(const FlowEnds& ends, std::span<std::uint8_t> octets, std::string& text) {
  setEnds(ends);
  PString description;
  const u_int source = htonl(ends.source.ipv4());
  const u_int destination = htonl(ends.destination.ipv4());
  const u_int sourcePort = ends.sourcePort;
  const u_int destinationPort = ends.destinationPort;
  if (!h323Parser_.parseH323(octets.data(), static_cast<int>(octets.size()), 0, source, destination, sourcePort,
                             destinationPort, description)) {
    return false;
  }
  const auto length = static_cast<std::size_t>(description.GetLength());
  if (length == 0 || length + kForwardedHeader > kMaxForwardedFrame) {
    logger().warn("H.323 description of " + std::to_string(length) + " characters does not fit a frame, not sent");
    return false;
  }
  text.assign(static_cast<const char*>(description), length - 1);
  setClass(FrameProtocol::H323, ends, length);
  return true;
}

}  // namespace voip
