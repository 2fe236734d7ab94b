#include "signalling/CallDescription.h"

#include "base/Logger.h"
#include "h323/base/OpalGloballyUniqueID.h"
#include "h323/base/PIPSocket.h"
#include "signalling/MediaDescription.h"

namespace voip {

bool CallDescription::append(const H225_H323_UU_PDU_h323_message_body& body) {
  switch (q931_.GetMessageType()) {
    case Q931::SetupMsg:
      return appendSetup(body.setup());
    case Q931::CallProceedingMsg:
      return appendIdAndFastStartOf("CallProceeding", body.callProceeding());
    case Q931::ProgressMsg:
      return appendIdAndFastStartOf("Progress", body.progress());
    case Q931::AlertingMsg:
      return appendIdAndMediaOf("Alerting", "ALERTING", body.alerting());
    case Q931::ConnectMsg:
      return appendIdAndMediaOf("Connect", "CONNECT", body.connect());
    case Q931::SetupAckMsg:
      return appendIdOf("SetupAck", body.setupAcknowledge());
    case Q931::InformationMsg:
      return appendInformation(body.information());
    case Q931::FacilityMsg:
      return appendIdAndFastStartOf("Facility", body.facility());
    case Q931::ReleaseCompleteMsg:
      return appendReleaseComplete(body.releaseComplete());
    default:
      return false;
  }
}

bool CallDescription::appendSetup(const std::optional<H225_Setup_UUIE>& setup) {
  if (!setup) return false;
  appendCallId("SETUP", setup->callIdentifier());
  appendParty("s:", "Caller", setup->sourceAddress(), q931_.GetCallingPartyNumber());
  appendParty("d:", "Callee", setup->destinationAddress(), q931_.GetCalledPartyNumber());
  appendMedia("SETUP", *setup);
  return true;
}

bool CallDescription::appendInformation(const std::optional<H225_Information_UUIE>& information) {
  if (!information) return false;
  appendCallId("Information", information->callIdentifier());
  const PString digits = q931_.GetCalledPartyNumber();
  logger().debug("Digit: ", digits);
  text_ += "i:";
  text_ += digits;
  text_ += '\n';
  appendProposals(information->fastStart());
  return true;
}

bool CallDescription::appendReleaseComplete(const std::optional<H225_ReleaseComplete_UUIE>& release) {
  if (!release) return false;
  const PString suffix = " CallRef:" + callReference_;
  if (appendCallId("ReleaseComplete", release->callIdentifier(), suffix)) callMaps_.release(callReference_);
  return true;
}

bool CallDescription::appendIdOf(const char* message, const auto& uuie) {
  if (uuie) appendCallId(message, uuie->callIdentifier());
  return uuie.has_value();
}

bool CallDescription::appendIdAndFastStartOf(const char* message, const auto& uuie) {
  if (!appendIdOf(message, uuie)) return false;
  appendProposals(uuie->fastStart());
  return true;
}

bool CallDescription::appendIdAndMediaOf(const char* message, const char* messageInCapitals, const auto& uuie) {
  if (!appendIdOf(message, uuie)) return false;
  appendMedia(messageInCapitals, *uuie);
  return true;
}

bool CallDescription::appendCallId(const char* message, const std::optional<H225_CallIdentifier>& callId,
                                   const char* suffix) {
  if (!callId) return false;
  const PString id = OpalGloballyUniqueID(callId->guid()).AsString();
  text_ += "c:";
  text_ += id;
  text_ += '\n';
  logger().debug(message, " CallId: ", id, suffix);
  return true;
}

void CallDescription::appendParty(const char* tag, const char* role,
                                  const std::optional<H225_ArrayOf_AliasAddress>& aliases, const PString& number) {
  const bool hasAlias = aliases && !aliases->IsEmpty();
  const PString party = hasAlias ? H323GetAliasAddressString(*aliases->begin()) : number;
  logger().debug("SETUP (", (hasAlias ? "H225" : "Q931"), ") ", role, ": ", party);
  text_ += tag;
  text_ += party;
  text_ += '\n';
}

void CallDescription::appendProposals(const std::optional<H225_ArrayOf_PASN_OctetString>& fastStart) {
  if (fastStart) appendFastStart(*fastStart, channel_, effort_, families_, text_);
}

// An H.245 address in addition to fast start is ignored: the media is described already, and H.245 may never be used.
void CallDescription::appendMedia(const char* message, const auto& uuie) {
  if (const auto fastStart = uuie.fastStart()) {
    appendProposals(fastStart);
  } else if (const auto address = uuie.h245Address()) {
    announce(message, *address);
  }
}

void CallDescription::announce(const char* message, const H225_TransportAddress& address) {
  const auto ip6Address = address.ip6Address();
  if (ip6Address && families_ == AddressFamilies::kBoth) {
    callMaps_.announce(callReference_, {ipv6Text(ip6Address->ip()), ip6Address->port()});
    return;
  }
  const auto ipAddress = address.ipAddress();
  if (!ipAddress) {
    logger().debug(message, " has h245 address which is not IPv4");
    logger().error(static_cast<const char*>(address.GetTagName()));
    return;
  }
  callMaps_.announce(callReference_, {PIPSocket::Address(ipAddress->ip()).AsString(), ipAddress->port()});
}

}  // namespace voip
