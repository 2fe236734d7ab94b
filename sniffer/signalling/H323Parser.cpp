#include "H323Parser.h"

#include <cstring>
#include <sstream>

#include "OpalGloballyUniqueID.h"
#include "PIPSocket.h"

namespace {

// "t:" of H.245 messages that no Q.931 message carries.
constexpr unsigned kOpenLogicalChannel = 130;
constexpr unsigned kOpenLogicalChannelAck = 131;

H323Parser::h245Addr addressOf(u_int ip, u_int port) {
  return {PIPSocket::Address(ip).AsString(), port};
}

void appendCodec(const char* direction, const H245_DataType& dataType, PString& text) {
  const auto audio = dataType.audioData();
  if (!audio) return;
  const unsigned tag = audio->GetTag();
  // Only of G.711 at 64 kbit/s does the recorder want the frames per packet.
  const bool isG711 = tag == H245_AudioCapability::e_g711Alaw64k || tag == H245_AudioCapability::e_g711Ulaw64k;
  text += direction;
  text += audio->GetTagName();
  text += ' ';
  text += PString(isG711 ? audio->integer() : 0);
  text += ',';
}

// The maps have to stay whole whatever addresses arrive, though h245comp is no strict weak order. find(), insert() and
// erase() of an iterator keep them so: a walk goes down the tree once, a comparison a level, and a single node is
// linked where it ended or unlinked where the iterator stands. An odd order only makes a walk miss, and what it does
// find is equal to the key, since neither is less than the other. Never erase by key, nor ask for an equal_range():
// they go from where one walk ended to where another did, which may be in front of it, and so out of the tree.
//
// insert() takes other turns than find() and may come upon the equal key that find() missed. Then that entry stays as
// it is: the address belongs to the call that had it first.
template <class Map>
void put(Map& map, const typename Map::key_type& key, const typename Map::mapped_type& value) {
  if (const auto old = map.find(key); old != map.end()) map.erase(old);
  map.insert({key, value});
}

}  // namespace

log4cxx::LoggerPtr H323Parser::logger = log4cxx::Logger::getLogger("SnifferClient");
H323Parser* H323Parser::h323Parser = nullptr;

bool H323Parser::parseH323(u_char* payload, int len, int ourHdrLen, const u_int& tx_ip, const u_int& rx_ip,
                           const u_int& tx_port, const u_int& rx_port, PString& upStreamPayload) {
  if (len <= ourHdrLen) return false;
  const u_char* segment = payload + ourHdrLen;
  const auto length = static_cast<u_short>(len - ourHdrLen);
  sniff_tpkt tpkt;
  if (length < sizeof tpkt) return false;
  std::memcpy(&tpkt, segment, sizeof tpkt);
  if (tpkt.tpkt_version != 3 || (tpkt.tpkt_length[0] | tpkt.tpkt_length[1]) == 0) return false;
  // The length is not looked at further: segments of senders that get it wrong are described all the same.
  PBYTEArray appPayload(segment + sizeof tpkt, length - sizeof tpkt);
  return decode(appPayload, tx_ip, rx_ip, tx_port, rx_port, upStreamPayload);
}

// ---- Q.931 and H.225.0 ----

bool H323Parser::decode(PBYTEArray& appPayload, const u_int& tx_ip, const u_int& rx_ip, const u_int& tx_port,
                        const u_int& rx_port, PString& upStreamPayload) {
  PPER_Stream stream(appPayload);
  if (h245MSCMsg.Decode(stream)) {
    return handleH245MultimediaSystemControlMsg(h245MSCMsg, tx_ip, rx_ip, tx_port, rx_port, upStreamPayload, false);
  }
  q931pdu.Decode(appPayload);  // as much of it as there is
  if (!traceSignalling) {
    return describeCallSignalling(tx_ip, rx_ip, tx_port, rx_port, upStreamPayload, nullptr);
  }
  std::ostringstream trace;
  const bool forward = describeCallSignalling(tx_ip, rx_ip, tx_port, rx_port, upStreamPayload, &trace);
  logger->info(trace.str());
  return forward;
}

bool H323Parser::describeCallSignalling(const u_int& tx_ip, const u_int& rx_ip, const u_int& tx_port,
                                        const u_int& rx_port, PString& upStreamPayload, std::ostream* trace) {
  if (trace != nullptr) *trace << "\n=== Q931 Message ===\n" << q931pdu;
  PString callReference(q931pdu.GetCallReference());
  upStreamPayload = "t:";
  upStreamPayload += PString(q931pdu.GetMessageType());
  upStreamPayload += "\nr:";
  upStreamPayload += callReference;
  upStreamPayload += '\n';

  if (!q931pdu.HasIE(Q931::UserUserIE)) return false;
  PPER_Stream stream(q931pdu.GetIE(Q931::UserUserIE));
  if (!ui.Decode(stream)) return false;
  const H225_H323_UU_PDU pdu = ui.h323_uu_pdu();
  if (trace != nullptr) *trace << "\n=== H323 Message ===\n" << pdu;
  const auto body = pdu.h323_message_body();
  if (body.GetTag() == H225_H323_UU_PDU_h323_message_body::e_empty) {
    return describeTunneledH245(pdu, tx_ip, rx_ip, tx_port, rx_port, upStreamPayload, trace);
  }
  return describeBody(body, callReference, upStreamPayload);
}

bool H323Parser::describeTunneledH245(const H225_H323_UU_PDU& pdu, const u_int& tx_ip, const u_int& rx_ip,
                                      const u_int& tx_port, const u_int& rx_port, PString& upStreamPayload,
                                      std::ostream* trace) {
  const auto h245Control = pdu.h245Control();
  if (!h245Control) return false;
  bool forward = false;
  for (const PASN_OctetString& element : *h245Control) {
    PPER_Stream stream(element.GetValue());
    if (!h245MSCMsg.Decode(stream)) continue;
    if (trace != nullptr) *trace << "\n=== H245 Message ===\n" << h245MSCMsg;
    forward |= handleH245MultimediaSystemControlMsg(h245MSCMsg, tx_ip, rx_ip, tx_port, rx_port, upStreamPayload, true);
  }
  return forward;
}

// The message type decides what the body has to be; a message whose body is another one is not described.
bool H323Parser::describeBody(const H225_H323_UU_PDU_h323_message_body& body, PString& callReference,
                              PString& upStreamPayload) {
  switch (q931pdu.GetMessageType()) {
    case Q931::SetupMsg:
      if (const auto setup = body.setup()) {
        describe(*setup, callReference, upStreamPayload);
        return true;
      }
      return false;
    case Q931::CallProceedingMsg:
      if (const auto proceeding = body.callProceeding()) {
        appendCallId("CallProceeding", proceeding->callIdentifier(), upStreamPayload);
        appendFastStart(*proceeding, upStreamPayload);
        return true;
      }
      return false;
    case Q931::ProgressMsg:
      if (const auto progress = body.progress()) {
        appendCallId("Progress", progress->callIdentifier(), upStreamPayload);
        appendFastStart(*progress, upStreamPayload);
        return true;
      }
      return false;
    case Q931::AlertingMsg:
      if (const auto alerting = body.alerting()) {
        appendCallId("Alerting", alerting->callIdentifier(), upStreamPayload);
        appendFastStartOrAnnounce("ALERTING", *alerting, callReference, upStreamPayload);
        return true;
      }
      return false;
    case Q931::ConnectMsg:
      if (const auto connect = body.connect()) {
        appendCallId("Connect", connect->callIdentifier(), upStreamPayload);
        appendFastStartOrAnnounce("CONNECT", *connect, callReference, upStreamPayload);
        return true;
      }
      return false;
    case Q931::SetupAckMsg:
      if (const auto acknowledge = body.setupAcknowledge()) {
        appendCallId("SetupAck", acknowledge->callIdentifier(), upStreamPayload);
        return true;
      }
      return false;
    case Q931::InformationMsg:
      if (const auto information = body.information()) {
        describe(*information, upStreamPayload);
        return true;
      }
      return false;
    case Q931::FacilityMsg:
      if (const auto facility = body.facility()) {
        appendCallId("Facility", facility->callIdentifier(), upStreamPayload);
        appendFastStart(*facility, upStreamPayload);
        return true;
      }
      return false;
    case Q931::ReleaseCompleteMsg:
      if (const auto release = body.releaseComplete()) {
        describe(*release, callReference, upStreamPayload);
        return true;
      }
      return false;
    default:
      return false;
  }
}

void H323Parser::describe(const H225_Setup_UUIE& setup, PString& callReference, PString& upStreamPayload) {
  appendCallId("SETUP", setup.callIdentifier(), upStreamPayload);
  const auto appendParty = [&](const char* line, const char* role,
                               const std::optional<H225_ArrayOf_AliasAddress>& aliases, const PString& number) {
    const bool hasAlias = aliases && !aliases->IsEmpty();
    const PString party = hasAlias ? H323GetAliasAddressString(*aliases->begin()) : number;
    LOG4CXX_DEBUG(logger, "SETUP (" << (hasAlias ? "H225" : "Q931") << ") " << role << ": " << party);
    upStreamPayload += line;
    upStreamPayload += party;
    upStreamPayload += '\n';
  };
  appendParty("s:", "Caller", setup.sourceAddress(), q931pdu.GetCallingPartyNumber());
  appendParty("d:", "Callee", setup.destinationAddress(), q931pdu.GetCalledPartyNumber());
  appendFastStartOrAnnounce("SETUP", setup, callReference, upStreamPayload);
}

void H323Parser::describe(const H225_Information_UUIE& information, PString& upStreamPayload) {
  appendCallId("Information", information.callIdentifier(), upStreamPayload);
  const PString digits = q931pdu.GetCalledPartyNumber();
  LOG4CXX_DEBUG(logger, "Digit: " << digits);
  upStreamPayload += "i:";
  upStreamPayload += digits;
  upStreamPayload += '\n';
  appendFastStart(information, upStreamPayload);
}

void H323Parser::describe(const H225_ReleaseComplete_UUIE& release, const PString& callReference,
                          PString& upStreamPayload) {
  const auto callId = release.callIdentifier();
  if (!callId) return;
  const PString id = OpalGloballyUniqueID(callId->guid()).AsString();
  upStreamPayload += "c:";
  upStreamPayload += id;
  upStreamPayload += '\n';
  LOG4CXX_DEBUG(logger, "ReleaseComplete CallId: " << id << " CallRef:" << callReference);
  forget(callReference);
}

void H323Parser::appendCallId(const char* message, const std::optional<H225_CallIdentifier>& callId,
                              PString& upStreamPayload) {
  if (!callId) return;
  const PString id = OpalGloballyUniqueID(callId->guid()).AsString();
  upStreamPayload += "c:";
  upStreamPayload += id;
  upStreamPayload += '\n';
  LOG4CXX_DEBUG(logger, message << " CallId: " << id);
}

template <class UUIE>
void H323Parser::appendFastStart(const UUIE& uuie, PString& upStreamPayload) {
  if (auto fastStart = uuie.fastStart()) getFastStartParams(*fastStart, upStreamPayload);
}

// With fast start the media is described already, and H.245 may never be spoken: then the address is not taken.
template <class UUIE>
void H323Parser::appendFastStartOrAnnounce(const char* message, const UUIE& uuie, PString& callReference,
                                           PString& upStreamPayload) {
  if (auto fastStart = uuie.fastStart()) {
    getFastStartParams(*fastStart, upStreamPayload);
  } else if (const auto address = uuie.h245Address()) {
    announce(message, *address, callReference);
  }
}

void H323Parser::announce(const char* message, const H225_TransportAddress& address, PString& callReference) {
  const auto ipAddress = address.ipAddress();
  if (!ipAddress) {
    LOG4CXX_DEBUG(logger, message << " has h245 address which is not IPv4");
    logger->error(static_cast<const char*>(address.GetTagName()));
    return;
  }
  h245Addr addr(PIPSocket::Address(ipAddress->ip()).AsString(), ipAddress->port());
  updateMaps(callReference, addr);
}

void H323Parser::getFastStartParams(H225_ArrayOf_PASN_OctetString& h245FastStartParams, PString& upStreamPayload) {
  for (const PASN_OctetString& element : h245FastStartParams) {
    PPER_Stream stream(element.GetValue());
    if (!olc.Decode(stream)) {
      LOG4CXX_DEBUG(logger, "H323 fast-start parameter decode failed");
      continue;
    }
    appendLogicalChannel(olc, upStreamPayload);
    upStreamPayload += '\n';
  }
}

// ---- H.245 ----

bool H323Parser::handleH245MultimediaSystemControlMsg(H245_MultimediaSystemControlMessage& message, const u_int& tx_ip,
                                                      const u_int& rx_ip, const u_int& tx_port, const u_int& rx_port,
                                                      PString& upStreamPayload, bool isTunneled) {
  if (traceSignalling) {
    std::ostringstream trace;
    trace << "\n=== H245 Message ===\n" << message;
    logger->info(trace.str());
  }
  const auto belongsToCall = [&](unsigned type, const char* complaint) {
    return isTunneled ||
           appendCallOf(addressOf(tx_ip, tx_port), addressOf(rx_ip, rx_port), type, complaint, upStreamPayload);
  };

  auto response = message.response();
  if (const auto ack = response ? response->openLogicalChannelAck() : std::nullopt) {
    if (!belongsToCall(kOpenLogicalChannelAck, "Dropping pkt as received OLCAck does not match existing session")) {
      return false;
    }
    upStreamPayload += "a:";
    upStreamPayload += PString(ack->forwardLogicalChannelNumber());
    upStreamPayload += ':';
    getResponseMediaParams(*response, upStreamPayload);
    upStreamPayload += '\n';
    return true;
  }

  auto request = message.request();
  if (request && request->GetTag() == H245_RequestMessage::e_openLogicalChannel) {
    if (!belongsToCall(kOpenLogicalChannel, "Dropping pkt as received OLC does not match existing session")) {
      return false;
    }
    getRequestMediaParams(*request, upStreamPayload);
    upStreamPayload += '\n';
    return true;
  }

  const auto indication = message.indication();
  const auto userInput = indication ? indication->userInput() : std::nullopt;
  if (const auto digits = userInput ? userInput->alphanumeric() : std::nullopt) {
    upStreamPayload += "i:";
    upStreamPayload += *digits;
    upStreamPayload += '\n';
    LOG4CXX_DEBUG(logger, "H.245 DTMF Passed: " << *digits);
  }
  return false;  // digits alone are not worth a frame
}

// Appends what names the message and its call; false if no call has announced either address.
bool H323Parser::appendCallOf(const h245Addr& tx, const h245Addr& rx, unsigned messageType, const char* complaint,
                              PString& upStreamPayload) {
  upStreamPayload += "t:";
  upStreamPayload += PString(messageType);
  upStreamPayload += '\n';
  PString callReference;
  if (!findCall(tx, callReference) && !findCall(rx, callReference)) {
    logger->error(complaint);
    LOG4CXX_DEBUG(logger, "Tx IP:Port=" << tx << "\nRx IP:Port=" << rx);
    displayCallIdMap();
    return false;
  }
  upStreamPayload += "r:";
  upStreamPayload += callReference;
  upStreamPayload += '\n';
  return true;
}

void H323Parser::appendLogicalChannel(const H245_OpenLogicalChannelView& channel, PString& upStreamPayload) {
  upStreamPayload += "m:";
  upStreamPayload += PString(channel.forwardLogicalChannelNumber());
  upStreamPayload += ':';
  auto forward = channel.forwardLogicalChannelParameters();
  getForwardLogicalChannelParams(forward, upStreamPayload);
  if (auto reverse = channel.reverseLogicalChannelParameters()) {
    getReverseLogicalChannelParams(*reverse, upStreamPayload);
  }
}

void H323Parser::getRequestMediaParams(H245_RequestMessage& Request, PString& upStreamPayload) {
  if (const auto channel = Request.openLogicalChannel()) appendLogicalChannel(*channel, upStreamPayload);
}

void H323Parser::getResponseMediaParams(H245_ResponseMessage& Response, PString& upStreamPayload) {
  const auto ack = Response.openLogicalChannelAck();
  if (!ack) return;
  if (const auto forward = ack->forwardMultiplexAckParameters()) {
    if (auto parameters = forward->h2250LogicalChannelAckParameters()) {
      getForwardLogicalChannelAckParams(*parameters, upStreamPayload);
    }
  }
  const auto reverse = ack->reverseLogicalChannelParameters();
  if (const auto multiplex = reverse ? reverse->multiplexParameters() : std::nullopt) {
    if (auto parameters = multiplex->h2250LogicalChannelParameters()) {
      getH2250LogicalChannelParams(*parameters, upStreamPayload);
    }
  }
}

void H323Parser::getForwardLogicalChannelParams(H245_OpenLogicalChannel_forwardLogicalChannelParameters& flcParams,
                                                PString& upStreamPayload) {
  appendCodec("fcodec:", flcParams.dataType(), upStreamPayload);
  if (auto parameters = flcParams.multiplexParameters().h2250LogicalChannelParameters()) {
    getH2250LogicalChannelParams(*parameters, upStreamPayload);
  }
}

void H323Parser::getReverseLogicalChannelParams(H245_OpenLogicalChannel_reverseLogicalChannelParameters& rlcParams,
                                                PString& upStreamPayload) {
  appendCodec("rcodec:", rlcParams.dataType(), upStreamPayload);
  if (const auto multiplex = rlcParams.multiplexParameters()) {
    if (auto parameters = multiplex->h2250LogicalChannelParameters()) {
      getH2250LogicalChannelParams(*parameters, upStreamPayload);
    }
  }
}

void H323Parser::getH2250LogicalChannelParams(H245_H2250LogicalChannelParameters& h225LCParams,
                                              PString& upStreamPayload) {
  if (auto mediaChannel = h225LCParams.mediaChannel()) getMediaChannelAttributes(*mediaChannel, upStreamPayload);
}

void H323Parser::getForwardLogicalChannelAckParams(H245_H2250LogicalChannelAckParameters& h225LCAckParams,
                                                   PString& upStreamPayload) {
  if (auto mediaChannel = h225LCAckParams.mediaChannel()) getMediaChannelAttributes(*mediaChannel, upStreamPayload);
}

void H323Parser::getMediaChannelAttributes(H245_TransportAddress& mediaChannel, PString& upStreamPayload) {
  appendAddress("MediaChannel", "rtp:", mediaChannel, upStreamPayload);
}

void H323Parser::getMediaControlChannelAttributes(H245_TransportAddress& mediaControlChannel,
                                                  PString& upStreamPayload) {
  appendAddress("MediaControlChannel", "rtcp:", mediaControlChannel, upStreamPayload);
}

void H323Parser::appendAddress(const char* channel, const char* protocol, const H245_TransportAddress& address,
                               PString& upStreamPayload) {
  const auto unicast = address.unicastAddress();
  if (!unicast) {
    LOG4CXX_DEBUG(logger, channel << " Address is not Unicast. " << address.GetTagName() << " is not supported");
    return;
  }
  const auto iPAddress = unicast->iPAddress();
  if (!iPAddress) {
    LOG4CXX_DEBUG(logger, channel << " address is not IPv4. " << unicast->GetTagName() << " is not supported");
    return;
  }
  upStreamPayload += protocol;
  upStreamPayload += PIPSocket::Address(iPAddress->network()).AsString();
  upStreamPayload += ' ';
  upStreamPayload += PString(iPAddress->tsapIdentifier());
}

// ---- calls and their H.245 addresses ----

void H323Parser::updateMaps(PString& callReference, h245Addr& addr) {
  const std::lock_guard guard(mapsLock);
  put(callRefMap, callReference, addr);
  LOG4CXX_DEBUG(logger, "Inserted " << callReference << " and " << addr << " into Call Reference Map");
  put(h245Map, addr, callReference);
  LOG4CXX_DEBUG(logger, "Inserted " << addr << " and " << callReference << " into H245 Map");
}

void H323Parser::forget(const PString& callReference) {
  const std::lock_guard guard(mapsLock);
  const auto call = callRefMap.find(callReference);
  if (call == callRefMap.end()) return;
  const h245Addr addr = call->second;
  callRefMap.erase(call);
  LOG4CXX_DEBUG(logger, "Erased " << callReference << " and " << addr << " from Call Reference Map");
  const auto entry = h245Map.find(addr);
  if (entry == h245Map.end()) return;
  h245Map.erase(entry);
  LOG4CXX_DEBUG(logger, "Erased " << addr << " and " << callReference << " from H245 Map");
}

bool H323Parser::findCall(const h245Addr& addr, PString& callReference) {
  const std::lock_guard guard(mapsLock);
  const auto entry = h245Map.find(addr);
  if (entry == h245Map.end()) return false;
  callReference = entry->second;
  return true;
}

void H323Parser::displayCallIdMap() {
  if (!log4cxx::Logger::isDebugEnabledFor(logger)) return;
  const std::lock_guard guard(mapsLock);
  if (callRefMap.empty()) logger->debug("CallRefMap is empty");
  if (h245Map.empty()) logger->debug("h245Map is empty");
  for (const auto& [callReference, addr] : callRefMap) {
    LOG4CXX_DEBUG(logger, "Call Ref Map --- Key = " << callReference << ", Value = " << addr);
  }
  for (const auto& [addr, callReference] : h245Map) {
    LOG4CXX_DEBUG(logger, "h245Map --- Key = " << addr << ", Value = " << callReference);
  }
}
