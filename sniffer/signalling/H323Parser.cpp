#include "signalling/H323Parser.h"

#include <arpa/inet.h>

#include <cstring>
#include <optional>
#include <sstream>
#include <string>

#include "base/Logger.h"
#include "signalling/CallDescription.h"

using namespace voip;

namespace {

// Message types for the "t:" line of H.245 messages on a separate connection. Q.931 does not use these numbers.
constexpr unsigned kOpenLogicalChannel = 130;
constexpr unsigned kOpenLogicalChannelAck = 131;

constexpr const char* kChannelWithoutCall = "Dropping pkt as received OLC does not match existing session";
constexpr const char* kAcknowledgementWithoutCall = "Dropping pkt as received OLCAck does not match existing session";

H323Parser::h245Addr addressOf(const IpAddress& ip, u_int port) {
  return {PString(ip.bracketed().c_str()), port};
}

H323Parser::Connection connectionOf(u_int txIp, u_int rxIp, u_int txPort, u_int rxPort) {
  return {ntohl(txIp), ntohl(rxIp), txPort, rxPort};
}

/// True for the first octets of a Q.931 message of H.225.0: protocol discriminator 8 and a call reference of 2 (or 1)
/// octets. In H.245 they would be a requestMode with padding bits that are set, which no encoder writes. Without this
/// test the octets after them could decode as H.245 by chance.
bool looksLikeQ931(const PBYTEArray& octets) {
  return octets.GetSize() >= 2 && octets[0] == 8 && (octets[1] == 1 || octets[1] == 2);
}

void appendAcknowledgement(const H245_OpenLogicalChannelAck& acknowledgement, AddressFamilies families, PString& text) {
  text += "a:";
  text += PString(acknowledgement.forwardLogicalChannelNumber());
  text += ':';
  appendAcknowledgedAddresses(acknowledgement, families, text);
  text += '\n';
}

void appendDigits(const PString& digits, PString& text) {
  text += "i:";
  text += digits;
  text += '\n';
  logger().debug("H.245 DTMF Passed: ", digits);
}

}  // namespace

H323Parser* H323Parser::h323Parser_ = nullptr;

bool H323Parser::parseH323(u_char* payload, int len, int ourHdrLen, const u_int& tx_ip, const u_int& rx_ip,
                           const u_int& tx_port, const u_int& rx_port, PString& upStreamPayload) {
  if (len <= ourHdrLen) return false;
  return parseSegment({payload + ourHdrLen, static_cast<std::size_t>(len - ourHdrLen)},
                      connectionOf(tx_ip, rx_ip, tx_port, rx_port), upStreamPayload);
}

bool H323Parser::parseSegment(std::span<const u_char> octets, const Connection& connection, PString& upStreamPayload) {
  steps_ = 0;
  const u_char* segment = octets.data();
  const auto length = static_cast<u_short>(octets.size());
  sniff_tpkt tpkt;
  if (length < sizeof tpkt) return false;
  std::memcpy(&tpkt, segment, sizeof tpkt);
  // Only the length 0 is rejected: some senders write wrong lengths, and their segments are described.
  if (tpkt.tpkt_version != 3 || (tpkt.tpkt_length[0] | tpkt.tpkt_length[1]) == 0) return false;
  PBYTEArray appPayload(segment + sizeof tpkt, length - sizeof tpkt);
  return decode(appPayload, connection, upStreamPayload);
}

bool H323Parser::decode(PBYTEArray& appPayload, const u_int& tx_ip, const u_int& rx_ip, const u_int& tx_port,
                        const u_int& rx_port, PString& upStreamPayload) {
  return decode(appPayload, connectionOf(tx_ip, rx_ip, tx_port, rx_port), upStreamPayload);
}

bool H323Parser::decode(const PBYTEArray& appPayload, const Connection& connection, PString& upStreamPayload) {
  asn1::Effort effort;
  const bool forward = describe(appPayload, connection, effort, upStreamPayload);
  steps_ = effort.spent();
  return forward;
}

bool H323Parser::describe(const PBYTEArray& message, const Connection& connection, asn1::Effort& effort,
                          PString& text) {
  const std::uint32_t before = effort.left();
  PPER_Stream stream(message, effort);
  if (!looksLikeQ931(message) && h245MSCMsg_.Decode(stream)) {
    const bool forward = takeH245(h245MSCMsg_, connection, false, text);
    if (forward) effort.chargeReserve(before - effort.left());
    return forward;
  }
  q931pdu_.Decode(message);  // the readable part of a faulty message is described
  if (!isTracing()) return describeQ931(connection, effort, text, nullptr);
  std::ostringstream trace;
  const bool forward = describeQ931(connection, effort, text, &trace);
  logger().info(trace.str());
  return forward;
}

bool H323Parser::describeQ931(const Connection& connection, asn1::Effort& effort, PString& text, std::ostream* trace) {
  if (trace != nullptr) *trace << "\n=== Q931 Message ===\n" << q931pdu_;
  const PString callReference(q931pdu_.GetCallReference());
  text = "t:";
  text += PString(q931pdu_.GetMessageType());
  text += "\nr:";
  text += callReference;
  text += '\n';

  if (!q931pdu_.HasIE(Q931::UserUserIE)) return false;
  const std::uint32_t before = effort.left();
  PPER_Stream stream(q931pdu_.GetIE(Q931::UserUserIE), effort);
  if (!ui_.Decode(stream)) return false;
  const std::uint32_t cost = before - effort.left();
  const H225_H323_UU_PDU pdu = ui_.h323_uu_pdu();
  if (trace != nullptr) *trace << "\n=== H323 Message ===\n" << pdu;
  const auto body = pdu.h323_message_body();
  const bool isEmpty = body.GetTag() == H225_H323_UU_PDU_h323_message_body::e_empty;
  const bool forward =
      isEmpty ? describeTunneledH245(pdu, connection, effort, text, trace)
              : CallDescription(q931pdu_, callReference, callMaps_, olc_, effort, families_, text).append(body);
  if (forward) effort.chargeReserve(cost);
  return forward;
}

bool H323Parser::describeTunneledH245(const H225_H323_UU_PDU& pdu, const Connection& connection, asn1::Effort& effort,
                                      PString& text, std::ostream* trace) {
  const auto h245Control = pdu.h245Control();
  if (!h245Control) return false;
  bool forward = false;
  for (const PASN_OctetString& element : *h245Control) {
    const std::uint32_t before = effort.left();
    if (before == 0) break;
    PPER_Stream stream(element.GetValue(), effort);
    if (!h245MSCMsg_.Decode(stream)) continue;
    if (trace != nullptr) *trace << "\n=== H245 Message ===\n" << h245MSCMsg_;
    if (!takeH245(h245MSCMsg_, connection, true, text)) continue;
    forward = true;
    effort.chargeReserve(before - effort.left());
  }
  return forward;
}

bool H323Parser::handleH245MultimediaSystemControlMsg(H245_MultimediaSystemControlMessage& message, const u_int& tx_ip,
                                                      const u_int& rx_ip, const u_int& tx_port, const u_int& rx_port,
                                                      PString& upStreamPayload, bool isTunneled) {
  return takeH245(message, connectionOf(tx_ip, rx_ip, tx_port, rx_port), isTunneled, upStreamPayload);
}

bool H323Parser::takeH245(const H245_MultimediaSystemControlMessageView& message, const Connection& connection,
                          bool isTunneled, PString& text) {
  if (isTracing()) {
    std::ostringstream trace;
    trace << "\n=== H245 Message ===\n" << message;
    logger().info(trace.str());
  }
  return describeH245(message, connection, isTunneled, text);
}

bool H323Parser::describeH245(const H245_MultimediaSystemControlMessageView& message, const Connection& connection,
                              bool isTunneled, PString& text) {
  const auto response = message.response();
  if (const auto acknowledgement = response ? response->openLogicalChannelAck() : std::nullopt) {
    if (!isTunneled && !appendCall(connection, kOpenLogicalChannelAck, kAcknowledgementWithoutCall, text)) return false;
    appendAcknowledgement(*acknowledgement, families_, text);
    return true;
  }

  const auto request = message.request();
  if (const auto channel = request ? request->openLogicalChannel() : std::nullopt) {
    if (!isTunneled && !appendCall(connection, kOpenLogicalChannel, kChannelWithoutCall, text)) return false;
    appendLogicalChannel(*channel, families_, text);
    text += '\n';
    return true;
  }

  const auto indication = message.indication();
  const auto userInput = indication ? indication->userInput() : std::nullopt;
  if (const auto digits = userInput ? userInput->alphanumeric() : std::nullopt) appendDigits(*digits, text);
  return false;  // digits are forwarded only with a channel of the same Q.931 message
}

bool H323Parser::appendCall(const Connection& connection, unsigned messageType, const char* complaint, PString& text) {
  const h245Addr tx = addressOf(connection.txIp, connection.txPort);
  const h245Addr rx = addressOf(connection.rxIp, connection.rxPort);
  text += "t:";
  text += PString(messageType);
  text += '\n';
  auto callReference = callMaps_.callOf(tx);
  if (!callReference) callReference = callMaps_.callOf(rx);
  if (!callReference) {
    logUnknownCall(complaint, tx, rx);
    return false;
  }
  text += "r:";
  text += *callReference;
  text += '\n';
  return true;
}

void H323Parser::logUnknownCall(const char* complaint, const h245Addr& tx, const h245Addr& rx) {
  std::optional<std::string> line = complaint;
  if (limitsComplaints_) line = unknownCalls_.admit(complaint, LineLimit::Clock::now());
  if (!line) return;
  logger().error(*line);
  logger().debug("Tx IP:Port=", tx, "\nRx IP:Port=", rx);
  displayCallIdMap();
}

void H323Parser::getFastStartParams(H225_ArrayOf_PASN_OctetString& h245FastStartParams, PString& upStreamPayload) {
  asn1::Effort effort;
  appendFastStart(h245FastStartParams, olc_, effort, families_, upStreamPayload);
}

bool H323Parser::isTracing() const {
  return traceSignalling_ && logger().isInfoEnabled();
}
