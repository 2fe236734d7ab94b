#include "h323/messages/Q931.h"

#include <iterator>
#include <string>

#include "h323/messages/Printing.h"

namespace {

struct Name {
  unsigned code;
  const char* name;
};

/// Q.931, table 4-2, and H.225.0.
constexpr Name kMessageTypes[] = {
    {0, "Escape"},        {1, "Alerting"},  {2, "CallProceeding"}, {3, "Progress"},         {5, "Setup"},
    {7, "Connect"},       {13, "SetupAck"}, {15, "ConnectAck"},    {32, "UserInformation"}, {33, "SuspendReject"},
    {34, "ResumeReject"}, {37, "Suspend"},  {38, "Resume"},        {45, "SuspendAck"},      {46, "ResumeAck"},
    {69, "Disconnect"},   {70, "Restart"},  {77, "Release"},       {78, "RestartAck"},      {90, "ReleaseComplete"},
    {96, "Segment"},      {98, "Facility"}, {110, "Notify"},       {117, "StatusEnquiry"},  {121, "CongestionControl"},
    {123, "Information"}, {125, "Status"},
};

/// Q.931, table 4-3.
constexpr Name kElements[] = {
    {0, "Segmented-Message"},
    {4, "Bearer-Capability"},
    {8, "Cause"},
    {16, "Call-Identity"},
    {20, "Call-State"},
    {24, "Channel-Identification"},
    {28, "Facility"},
    {30, "Progress-Indicator"},
    {32, "Network-Specific-Facilities"},
    {39, "Notification-Indicator"},
    {40, "Display"},
    {41, "Date-Time"},
    {44, "Keypad"},
    {52, "Signal"},
    {64, "Information-Rate"},
    {66, "End-to-End-Transit-Delay"},
    {67, "Transit-Delay"},
    {68, "Packet-Layer-Binary-Parameters"},
    {69, "Packet-Layer-Window-Size"},
    {70, "Packet-Size"},
    {71, "Closed-User-Group"},
    {74, "Reverse-Charging"},
    {76, "Connected-Number"},
    {108, "Calling-Party-Number"},
    {109, "Calling-Party-Subaddress"},
    {112, "Called-Party-Number"},
    {113, "Called-Party-Subaddress"},
    {116, "Redirecting-Number"},
    {120, "Transit-Network-Selection"},
    {121, "Restart-Indicator"},
    {124, "Low-Layer-Compatibility"},
    {125, "High-Layer-Compatibility"},
    {126, "User-User"},
    {127, "Escape"},
    {160, "More-Data"},
    {161, "Sending-Complete"},
};

/// Q.850.
constexpr Name kCauses[] = {
    {1, "Unallocated number"},
    {2, "No route to network"},
    {3, "No route to destination"},
    {6, "Channel unacceptable"},
    {7, "Call awarded and being delivered in an established channel"},
    {16, "Normal call clearing"},
    {17, "User busy"},
    {18, "No user responding"},
    {19, "No answer from user"},
    {20, "Subscriber absent"},
    {21, "Call rejected"},
    {22, "Number changed"},
    {26, "Non-selected user clearing"},
    {27, "Destination out of order"},
    {28, "Invalid number format"},
    {29, "Facility rejected"},
    {30, "Response to status enquiry"},
    {31, "Normal, unspecified"},
    {34, "No circuit or channel available"},
    {38, "Network out of order"},
    {41, "Temporary failure"},
    {42, "Switching equipment congestion"},
    {43, "Access information discarded"},
    {44, "Requested circuit or channel not available"},
    {47, "Resource unavailable"},
    {49, "Quality of service not available"},
    {50, "Requested facility not subscribed"},
    {55, "Incoming calls barred within closed user group"},
    {57, "Bearer capability not authorized"},
    {58, "Bearer capability not presently available"},
    {63, "Service or option not available"},
    {65, "Bearer capability not implemented"},
    {66, "Channel type not implemented"},
    {69, "Requested facility not implemented"},
    {70, "Only restricted digital information bearer capability is available"},
    {79, "Service or option not implemented"},
    {81, "Invalid call reference value"},
    {82, "Identified channel does not exist"},
    {83, "A suspended call exists, but this call identity does not"},
    {84, "Call identity in use"},
    {85, "No call suspended"},
    {86, "Call having the requested call identity has been cleared"},
    {87, "User not a member of closed user group"},
    {88, "Incompatible destination"},
    {91, "Invalid transit network selection"},
    {95, "Invalid message"},
    {96, "Mandatory information element is missing"},
    {97, "Message type non-existent or not implemented"},
    {98, "Message not compatible with call state"},
    {99, "Information element non-existent or not implemented"},
    {100, "Invalid information element contents"},
    {101, "Message not compatible with call state"},
    {102, "Recovery on timer expiry"},
    {111, "Protocol error"},
    {127, "Interworking"},
};

template <std::size_t kCount>
std::string nameOf(const Name (&names)[kCount], unsigned code) {
  for (const Name& name : names) {
    if (name.code == code) return name.name;
  }
  return "<" + std::to_string(code) + ">";
}

/// Removes the first octet and returns it. There must be one.
std::uint8_t take(PBYTEArray& octets) {
  const std::uint8_t first = octets[0];
  octets = PBYTEArray(octets.GetPointer() + 1, octets.GetSize() - 1);
  return first;
}

/// Removes the first `count` octets and returns them. There must be as many.
PBYTEArray take(PBYTEArray& octets, std::size_t count) {
  const PBYTEArray front(octets.GetPointer(), count);
  octets = PBYTEArray(octets.GetPointer() + count, octets.GetSize() - count);
  return front;
}

}  // namespace

bool Q931::Decode(const PBYTEArray& octets) {
  present_.reset();
  constexpr std::size_t kShortestMessage = 5;
  if (octets.GetSize() < kShortestMessage) return false;
  PBYTEArray rest = octets;
  const unsigned discriminator = take(rest);
  const std::size_t referenceLength = take(rest);
  if (referenceLength > 2) return false;
  const PBYTEArray reference = take(rest, referenceLength);

  protocolDiscriminator_ = discriminator;
  callReference_ = referenceLength == 2 ? (reference[0] & 0x7FU) << 8 | reference[1] : 0;
  fromDestination_ = referenceLength == 2 && (reference[0] & 0x80) != 0;
  messageType_ = take(rest);
  return decodeElements(rest);
}

bool Q931::decodeElements(PBYTEArray rest) {
  while (!rest.IsEmpty()) {
    const std::uint8_t code = take(rest);
    std::size_t length = 0;
    if ((code & 0x80) == 0) {
      if (rest.IsEmpty()) return false;
      length = take(rest);
      if (code == UserUserIE) {
        if (rest.IsEmpty()) return false;
        length = length << 8 | take(rest);
        // The length includes the protocol discriminator.
        if (length == 0 || rest.IsEmpty()) return false;
        take(rest);
        --length;
      }
      if (length > rest.GetSize()) return false;
    }
    contents_[code] = take(rest, length);
    present_.set(code);
  }
  return true;
}

// Q.931, 4.5.8 and 4.5.10: octet 3 precedes the digits, octet 3a as well if bit 8 of octet 3 is clear, and octet 3b if
// bit 8 of octet 3a is clear.
PString Q931::partyNumber(unsigned code) const {
  const PBYTEArray contents = GetIE(code);
  std::size_t headers = 1;
  while (headers <= 2 && headers <= contents.GetSize() && (contents[headers - 1] & 0x80) == 0) ++headers;
  if (headers > contents.GetSize()) return PString();
  return PString(
      std::string_view(reinterpret_cast<const char*>(contents.GetPointer()) + headers, contents.GetSize() - headers));
}

std::ostream& operator<<(std::ostream& stream, const Q931& message) {
  stream << "{\n"
         << "        protocolDiscriminator = " << message.protocolDiscriminator_ << '\n'
         << "        callReference = " << message.callReference_ << '\n'
         << "        from = " << (message.fromDestination_ ? "destination" : "originator") << '\n'
         << "        messageType = " << nameOf(kMessageTypes, message.messageType_) << '\n';
  for (unsigned code = 0; code < message.present_.size(); ++code) {
    if (!message.HasIE(code)) continue;
    const PBYTEArray contents = message.GetIE(code);
    stream << "        IE: " << nameOf(kElements, code);
    if (code == Q931::CauseIE && contents.GetSize() >= 2) stream << " - " << nameOf(kCauses, contents[1] & 0x7F);
    stream << " = {\n";
    asn1::printOctets(stream, contents, 10);
    stream << "        }\n";
  }
  return stream << "      }";
}
