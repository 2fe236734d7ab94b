#include "dissection/Classifier.h"

#include <string>

#include "base/FrameLimits.h"
#include "base/Logger.h"
#include "signalling/SipStartLine.h"

namespace voip {

void Classifier::setClass(FrameProtocol protocol, const FlowEnds& ends, std::size_t payloadLength) {
  setEnds(ends);
  header_.len = static_cast<u_short>(payloadLength + header_.length());
  lastClass_ = header_.protocol = protocol;
}

bool Classifier::isSipWithAnyUri(std::span<const std::uint8_t> payload) {
  if (!isSipRequestWithAnyUri(payload)) return false;
  lastClass_ = FrameProtocol::Sip;
  return true;
}

bool Classifier::describe(const FlowEnds& ends, std::span<std::uint8_t> octets, std::string& text) {
  setEnds(ends);
  PString description;
  const H323Parser::Connection connection{ends.source, ends.destination, ends.sourcePort, ends.destinationPort};
  if (!h323Parser_.parseSegment(octets, connection, description)) return false;
  const auto length = static_cast<std::size_t>(description.GetLength());
  if (length == 0 || length + header_.length() > kMaxForwardedFrame) {
    logger().warn("H.323 description of " + std::to_string(length) + " characters does not fit a frame, not sent");
    return false;
  }
  text.assign(static_cast<const char*>(description), length - 1);
  setClass(FrameProtocol::H323, ends, length);
  return true;
}

}  // namespace voip
