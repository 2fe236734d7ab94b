#pragma once

#include <sys/types.h>

#include <optional>
#include <ostream>
#include <span>

#include "base/IpAddress.h"
#include "h323/base/PBYTEArray.h"
#include "h323/base/PString.h"
#include "h323/decoder/Effort.h"
#include "h323/messages/H225.h"
#include "h323/messages/H245.h"
#include "h323/messages/Q931.h"
#include "signalling/CallMaps.h"
#include "signalling/LineLimit.h"
#include "signalling/MediaDescription.h"
#include "statistics/Statistics.h"

/// Describes H.323 signalling (Q.931 with H.225.0, H.245) in a few lines of text for the recorder: the call, its
/// parties, and the addresses of its media.
///
/// A line starts with a tag and ends with a line feed. The tags are "t:" message type (of Q.931; 130 and 131 are
/// OpenLogicalChannel and its Ack on a separate H.245 connection), "r:" call reference, "c:" call identifier, "s:"
/// caller, "d:" callee, "i:" digits, "m:" proposed and "a:" accepted logical channel. Texts from the network are copied
/// unchanged and may contain line feeds and every octet but zero.
///
/// H.245 on a separate connection does not name a call; CallMaps finds the call that announced the connection.
///
/// An asn1::Effort limits the cost of a segment or TPKT. The rest of one that exceeds it is not described. A caller
/// that passes many TPKTs of one segment limits their cost by steps().
///
/// One thread calls parseH323() and the operations that it consists of. Any thread may call displayCallIdMap().
/// Addresses of type u_int are IPv4 in network byte order, as in_addr holds them, ports are in host order; tx is the
/// source of the segment and rx its destination. Throws nothing; a faulty message is logged and not described.
class H323Parser {
 public:
  /// The header before each message (RFC 1006), as it is in the segment.
  struct sniff_tpkt {
    u_char tpkt_version;
    u_char tpkt_reserved;
    u_char tpkt_length[2];  ///< big-endian, includes this header
  };

  using h245Addr = voip::CallMaps::h245Addr;
  using h245comp = voip::CallMaps::h245comp;
  using callrefcomp = voip::CallMaps::callrefcomp;

  /// The two ends of a segment's connection. Ports in host order.
  struct Connection {
    voip::IpAddress txIp;
    voip::IpAddress rxIp;
    u_int txPort;
    u_int rxPort;
  };

  /// `statistics` may be null and must outlive the parser.
  explicit H323Parser(voip::Statistics* statistics = nullptr) : callMaps_(statistics) {}
  H323Parser(const H323Parser&) = delete;
  H323Parser& operator=(const H323Parser&) = delete;
  virtual ~H323Parser() = default;

  /// Describes one TCP segment. `payload` has `len` octets, of which the first `ourHdrLen` are not part of the segment.
  /// `upStreamPayload` is empty on entry. Returns true when the text is to be forwarded; otherwise the text is
  /// meaningless.
  ///
  /// Describes only the first of several messages in a segment and does not join messages from several segments. With
  /// TCP reassembly the caller passes one complete TPKT with its header instead of a segment. Then each message has its
  /// own text, and the octets after it are not read as a part of it.
  bool parseH323(u_char* payload, int len, int ourHdrLen, const u_int& tx_ip, const u_int& rx_ip, const u_int& tx_port,
                 const u_int& rx_port, PString& upStreamPayload);

  /// As parseH323(), for the octets of one segment or TPKT between ends of either family.
  bool parseSegment(std::span<const u_char> octets, const Connection& connection, PString& upStreamPayload);

  /// Returns the steps of asn1::Effort that the last message took.
  std::uint32_t steps() const { return steps_; }

  /// Whether the lines about an H.245 message that matches no call, and the maps after them, are logged at most once a
  /// second; off at first. The first of these lines then ends with the number of suppressed ones, if any. For TCP
  /// reassembly: one segment can contain hundreds of such messages.
  void setLimitsComplaints(bool on) { limitsComplaints_ = on; }

  /// Like parseH323(), for the octets after the TPKT header.
  bool decode(PBYTEArray& appPayload, const u_int& tx_ip, const u_int& rx_ip, const u_int& tx_port,
              const u_int& rx_port, PString& upStreamPayload);

  /// Like parseH323(), for a decoded H.245 message. `isTunneled`: the message was inside a Q.931 message, which names
  /// the call. Otherwise the call is the one that announced the source or the destination.
  bool handleH245MultimediaSystemControlMsg(H245_MultimediaSystemControlMessage& message, const u_int& tx_ip,
                                            const u_int& rx_ip, const u_int& tx_port, const u_int& rx_port,
                                            PString& upStreamPayload, bool isTunneled);

  // These operations append to `upStreamPayload`; MediaDescription.h documents their texts.

  void getFastStartParams(H225_ArrayOf_PASN_OctetString& h245FastStartParams, PString& upStreamPayload);
  void getRequestMediaParams(H245_RequestMessage& Request, PString& upStreamPayload) {
    if (const auto channel = Request.openLogicalChannel())
      voip::appendLogicalChannel(*channel, families_, upStreamPayload);
  }
  void getResponseMediaParams(H245_ResponseMessage& Response, PString& upStreamPayload) {
    if (const auto ack = Response.openLogicalChannelAck()) {
      voip::appendAcknowledgedAddresses(*ack, families_, upStreamPayload);
    }
  }
  void getForwardLogicalChannelParams(H245_OpenLogicalChannel_forwardLogicalChannelParameters& flcParams,
                                      PString& upStreamPayload) {
    voip::appendForwardChannel(flcParams, families_, upStreamPayload);
  }
  void getReverseLogicalChannelParams(H245_OpenLogicalChannel_reverseLogicalChannelParameters& rlcParams,
                                      PString& upStreamPayload) {
    voip::appendReverseChannel(rlcParams, families_, upStreamPayload);
  }
  void getH2250LogicalChannelParams(H245_H2250LogicalChannelParameters& h225LCParams, PString& upStreamPayload) {
    voip::appendMediaChannel(h225LCParams, families_, upStreamPayload);
  }
  void getForwardLogicalChannelAckParams(H245_H2250LogicalChannelAckParameters& h225LCAckParams,
                                         PString& upStreamPayload) {
    voip::appendMediaChannel(h225LCAckParams, families_, upStreamPayload);
  }
  void getMediaChannelAttributes(H245_TransportAddress& mediaChannel, PString& upStreamPayload) {
    voip::appendMediaAddress(mediaChannel, families_, upStreamPayload);
  }
  /// No description contains media control channels.
  void getMediaControlChannelAttributes(H245_TransportAddress& mediaControlChannel, PString& upStreamPayload) {
    voip::appendMediaControlAddress(mediaControlChannel, families_, upStreamPayload);
  }

  /// See CallMaps::announce().
  void updateMaps(PString& callReference, h245Addr& addr) { callMaps_.announce(callReference, addr); }

  /// Logs the known calls and addresses at DEBUG. Any thread.
  void displayCallIdMap() { callMaps_.display(); }

  /// Sets whether IPv6 addresses of media and of H.245 are taken like IPv4 addresses; otherwise they are left out. To
  /// be set before the first segment.
  void setIpv6(bool on) { families_ = on ? voip::AddressFamilies::kBoth : voip::AddressFamilies::kIpv4; }

  /// Whether to log each decoded message at INFO. To be set before the first segment.
  void setTraceSignalling(bool trace) { traceSignalling_ = trace; }

 private:
  // Each of these appends to `text` and returns whether that is to be forwarded. `trace` is null without a trace.

  bool decode(const PBYTEArray& appPayload, const Connection& connection, PString& text);
  bool takeH245(const H245_MultimediaSystemControlMessageView& message, const Connection& connection, bool isTunneled,
                PString& text);
  bool describe(const PBYTEArray& message, const Connection& connection, asn1::Effort& effort, PString& text);
  bool describeQ931(const Connection& connection, asn1::Effort& effort, PString& text, std::ostream* trace);
  bool describeTunneledH245(const H225_H323_UU_PDU& pdu, const Connection& connection, asn1::Effort& effort,
                            PString& text, std::ostream* trace);
  bool describeH245(const H245_MultimediaSystemControlMessageView& message, const Connection& connection,
                    bool isTunneled, PString& text);

  /// Appends type and call reference of a message on an H.245 connection. When no call has announced either end of the
  /// connection, logs `complaint` and returns false.
  bool appendCall(const Connection& connection, unsigned messageType, const char* complaint, PString& text);
  void logUnknownCall(const char* complaint, const h245Addr& tx, const h245Addr& rx);
  bool isTracing() const;

  voip::AddressFamilies families_ = voip::AddressFamilies::kIpv4;
  voip::CallMaps callMaps_;

  // Decode targets. They are members so that decoding allocates nothing.
  H245_MultimediaSystemControlMessage h245MSCMsg_;
  Q931 q931pdu_;
  H225_H323_UserInformation ui_;
  H245_OpenLogicalChannel olc_;

  bool traceSignalling_ = false;

  std::uint32_t steps_ = 0;  ///< of the last message
  bool limitsComplaints_ = false;
  voip::LineLimit unknownCalls_;

  static H323Parser* h323Parser_;  ///< reserved for a parser of the process; null
};
