#include "signalling/H323Parser.h"

#include <cstring>
#include <sstream>

#include "base/Logger.h"
#include "h323/base/PIPSocket.h"
#include "signalling/CallDescription.h"

using namespace voip;

namespace {

// "t:" of H.245 messages that no Q.931 message carries.
constexpr unsigned kOpenLogicalChannel = 130;
constexpr unsigned kOpenLogicalChannelAck = 131;

H323Parser::h245Addr addressOf(u_int ip, u_int port) {
  return {PIPSocket::Address(ip).AsString(), port};
}

// A Q.931 message of H.225.0 begins with the octets 8 and 2 (or 1): protocol discriminator and length of the call
// reference. As H.245 they would be a requestMode with padding that is not zero, which no encoder makes; but what
// follows may happen to be well-formed.
bool looksLikeQ931(const PBYTEArray& octets) {
  return octets.GetSize() >= 2 && octets[0] == 8 && (octets[1] == 1 || octets[1] == 2);
}

}  // namespace

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

bool H323Parser::decode(PBYTEArray& appPayload, const u_int& tx_ip, const u_int& rx_ip, const u_int& tx_port,
                        const u_int& rx_port, PString& upStreamPayload) {
  asn1::Effort effort;
  const Connection connection{tx_ip, rx_ip, tx_port, rx_port};
  PPER_Stream stream(appPayload, effort);
  if (!looksLikeQ931(appPayload) && h245MSCMsg.Decode(stream)) {
    return handleH245MultimediaSystemControlMsg(h245MSCMsg, tx_ip, rx_ip, tx_port, rx_port, upStreamPayload, false);
  }
  q931pdu.Decode(appPayload);  // as much of it as there is
  if (!isTracing()) return describeCallSignalling(connection, effort, upStreamPayload, nullptr);
  std::ostringstream trace;
  const bool forward = describeCallSignalling(connection, effort, upStreamPayload, &trace);
  logger().info(trace.str());
  return forward;
}

bool H323Parser::describeCallSignalling(const Connection& connection, asn1::Effort& effort, PString& upStreamPayload,
                                        std::ostream* trace) {
  if (trace != nullptr) *trace << "\n=== Q931 Message ===\n" << q931pdu;
  const PString callReference(q931pdu.GetCallReference());
  upStreamPayload = "t:";
  upStreamPayload += PString(q931pdu.GetMessageType());
  upStreamPayload += "\nr:";
  upStreamPayload += callReference;
  upStreamPayload += '\n';

  if (!q931pdu.HasIE(Q931::UserUserIE)) return false;
  PPER_Stream stream(q931pdu.GetIE(Q931::UserUserIE), effort);
  if (!ui.Decode(stream)) return false;
  const H225_H323_UU_PDU pdu = ui.h323_uu_pdu();
  if (trace != nullptr) *trace << "\n=== H323 Message ===\n" << pdu;
  const auto body = pdu.h323_message_body();
  if (body.GetTag() == H225_H323_UU_PDU_h323_message_body::e_empty) {
    return describeTunneledH245(pdu, connection, effort, upStreamPayload, trace);
  }
  return CallDescription(q931pdu, callReference, callMaps, olc, effort, upStreamPayload).append(body);
}

bool H323Parser::describeTunneledH245(const H225_H323_UU_PDU& pdu, const Connection& connection, asn1::Effort& effort,
                                      PString& upStreamPayload, std::ostream* trace) {
  const auto h245Control = pdu.h245Control();
  if (!h245Control) return false;
  bool forward = false;
  for (const PASN_OctetString& element : *h245Control) {
    const std::uint32_t before = effort.left();
    if (before == 0) break;
    PPER_Stream stream(element.GetValue(), effort);
    if (!h245MSCMsg.Decode(stream)) continue;
    if (trace != nullptr) *trace << "\n=== H245 Message ===\n" << h245MSCMsg;
    if (!handleH245MultimediaSystemControlMsg(h245MSCMsg, connection.tx_ip, connection.rx_ip, connection.tx_port,
                                              connection.rx_port, upStreamPayload, true)) {
      continue;
    }
    forward = true;
    effort.chargeReserve(before);
  }
  return forward;
}

void H323Parser::getFastStartParams(H225_ArrayOf_PASN_OctetString& h245FastStartParams, PString& upStreamPayload) {
  asn1::Effort effort;
  appendFastStart(h245FastStartParams, olc, effort, upStreamPayload);
}

bool H323Parser::handleH245MultimediaSystemControlMsg(H245_MultimediaSystemControlMessage& message, const u_int& tx_ip,
                                                      const u_int& rx_ip, const u_int& tx_port, const u_int& rx_port,
                                                      PString& upStreamPayload, bool isTunneled) {
  const Connection connection{tx_ip, rx_ip, tx_port, rx_port};
  if (isTracing()) {
    std::ostringstream trace;
    trace << "\n=== H245 Message ===\n" << message;
    logger().info(trace.str());
  }
  const auto belongsToCall = [&](unsigned type, const char* complaint) {
    return isTunneled || appendCallOf(connection, type, complaint, upStreamPayload);
  };

  const auto response = message.response();
  if (const auto ack = response ? response->openLogicalChannelAck() : std::nullopt) {
    if (!belongsToCall(kOpenLogicalChannelAck, "Dropping pkt as received OLCAck does not match existing session")) {
      return false;
    }
    upStreamPayload += "a:";
    upStreamPayload += PString(ack->forwardLogicalChannelNumber());
    upStreamPayload += ':';
    appendAcknowledgedAddresses(*ack, upStreamPayload);
    upStreamPayload += '\n';
    return true;
  }

  const auto request = message.request();
  if (const auto channel = request ? request->openLogicalChannel() : std::nullopt) {
    if (!belongsToCall(kOpenLogicalChannel, "Dropping pkt as received OLC does not match existing session")) {
      return false;
    }
    appendLogicalChannel(*channel, upStreamPayload);
    upStreamPayload += '\n';
    return true;
  }

  const auto indication = message.indication();
  const auto userInput = indication ? indication->userInput() : std::nullopt;
  if (const auto digits = userInput ? userInput->alphanumeric() : std::nullopt) {
    upStreamPayload += "i:";
    upStreamPayload += *digits;
    upStreamPayload += '\n';
    logger().debug("H.245 DTMF Passed: ", *digits);
  }
  return false;  // digits alone are not worth a frame
}

// Appends what names the message and its call; false if no call has announced either address.
bool H323Parser::appendCallOf(const Connection& connection, unsigned messageType, const char* complaint,
                              PString& upStreamPayload) {
  const h245Addr tx = addressOf(connection.tx_ip, connection.tx_port);
  const h245Addr rx = addressOf(connection.rx_ip, connection.rx_port);
  upStreamPayload += "t:";
  upStreamPayload += PString(messageType);
  upStreamPayload += '\n';
  auto callReference = callMaps.callOf(tx);
  if (!callReference) callReference = callMaps.callOf(rx);
  if (!callReference) {
    logger().error(complaint);
    logger().debug("Tx IP:Port=", tx, "\nRx IP:Port=", rx);
    displayCallIdMap();
    return false;
  }
  upStreamPayload += "r:";
  upStreamPayload += *callReference;
  upStreamPayload += '\n';
  return true;
}

bool H323Parser::isTracing() const {
  return traceSignalling && logger().isInfoEnabled();
}
