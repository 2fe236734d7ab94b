#pragma once

#include <sys/types.h>

#include <ostream>

#include "h323/base/PBYTEArray.h"
#include "h323/base/PString.h"
#include "h323/decoder/Effort.h"
#include "h323/messages/H225.h"
#include "h323/messages/H245.h"
#include "h323/messages/Q931.h"
#include "signalling/CallMaps.h"
#include "signalling/MediaDescription.h"
#include "statistics/Statistics.h"

/// Describes H.323 signalling (Q.931 with H.225.0, H.245) in a few lines of text for the recorder: which call, who
/// calls whom, and where the media goes.
///
/// A line starts with a letter and a colon and ends with a line feed: "t:" message type (of Q.931; 130 and 131 are
/// OpenLogicalChannel and its Ack on an H.245 connection of their own), "r:" call reference, "c:" call identifier, "s:"
/// caller, "d:" callee, "i:" digits, "m:" proposed and "a:" accepted logical channel. Texts of the network stand in
/// them as they came; they may hold line feeds and any octet but zero.
///
/// H.245 on a connection of its own names no call; CallMaps remembers which call announced it.
///
/// What a segment costs is bounded, see asn1::Effort: behind a bomb nothing more of the segment is described.
///
/// One thread calls parseH323(), and what it is made of. displayCallIdMap() may be called by any thread. Addresses are
/// IPv4 in network byte order, as in_addr holds them, ports in host order; tx is the source of the segment and rx its
/// destination. Nothing is thrown; what is wrong with a message is logged, and the message not described.
class H323Parser {
 public:
  /// RFC 1006: in front of each message. The fields as they stand in the segment.
  struct sniff_tpkt {
    u_char tpkt_version;
    u_char tpkt_reserved;
    u_char tpkt_length[2];  ///< big-endian, this header included
  };

  using h245Addr = voip::CallMaps::h245Addr;
  using h245comp = voip::CallMaps::h245comp;
  using callrefcomp = voip::CallMaps::callrefcomp;

  /// What is counted goes to `statistics`, which may be null and must outlive the parser.
  explicit H323Parser(voip::Statistics* statistics = nullptr) : callMaps(statistics) {}
  H323Parser(const H323Parser&) = delete;
  H323Parser& operator=(const H323Parser&) = delete;
  virtual ~H323Parser() = default;

  /// Describes one TCP segment. `payload` has `len` octets, the first `ourHdrLen` of which are not part of the segment.
  /// `upStreamPayload` is empty on entry. True when the text is to be forwarded; when it is not, what is in it is of no
  /// use.
  ///
  /// Of several messages in a segment only the first one is described, and messages are not put together from several
  /// segments. Who follows TCP streams hands in one complete TPKT, its header included, as if it were a segment: then
  /// each message gets a text of its own, and nothing behind it is taken for a part of it.
  bool parseH323(u_char* payload, int len, int ourHdrLen, const u_int& tx_ip, const u_int& rx_ip, const u_int& tx_port,
                 const u_int& rx_port, PString& upStreamPayload);

  /// As parseH323(), for what is behind the TPKT header.
  bool decode(PBYTEArray& appPayload, const u_int& tx_ip, const u_int& rx_ip, const u_int& tx_port,
              const u_int& rx_port, PString& upStreamPayload);

  /// As parseH323(), for a decoded message of H.245. `isTunneled` says that it came inside a Q.931 message, which names
  /// the call; else the call is the one that announced either address.
  bool handleH245MultimediaSystemControlMsg(H245_MultimediaSystemControlMessage& message, const u_int& tx_ip,
                                            const u_int& rx_ip, const u_int& tx_port, const u_int& rx_port,
                                            PString& upStreamPayload, bool isTunneled);

  // Each of these appends to `upStreamPayload` what it finds to describe: see MediaDescription.h.

  void getFastStartParams(H225_ArrayOf_PASN_OctetString& h245FastStartParams, PString& upStreamPayload);
  void getRequestMediaParams(H245_RequestMessage& Request, PString& upStreamPayload) {
    if (const auto channel = Request.openLogicalChannel()) voip::appendLogicalChannel(*channel, upStreamPayload);
  }
  void getResponseMediaParams(H245_ResponseMessage& Response, PString& upStreamPayload) {
    if (const auto ack = Response.openLogicalChannelAck()) voip::appendAcknowledgedAddresses(*ack, upStreamPayload);
  }
  void getForwardLogicalChannelParams(H245_OpenLogicalChannel_forwardLogicalChannelParameters& flcParams,
                                      PString& upStreamPayload) {
    voip::appendForwardChannel(flcParams, upStreamPayload);
  }
  void getReverseLogicalChannelParams(H245_OpenLogicalChannel_reverseLogicalChannelParameters& rlcParams,
                                      PString& upStreamPayload) {
    voip::appendReverseChannel(rlcParams, upStreamPayload);
  }
  void getH2250LogicalChannelParams(H245_H2250LogicalChannelParameters& h225LCParams, PString& upStreamPayload) {
    voip::appendMediaChannel(h225LCParams, upStreamPayload);
  }
  void getForwardLogicalChannelAckParams(H245_H2250LogicalChannelAckParameters& h225LCAckParams,
                                         PString& upStreamPayload) {
    voip::appendMediaChannel(h225LCAckParams, upStreamPayload);
  }
  void getMediaChannelAttributes(H245_TransportAddress& mediaChannel, PString& upStreamPayload) {
    voip::appendMediaAddress(mediaChannel, upStreamPayload);
  }
  /// Not part of any description so far: RTCP is next to RTP.
  void getMediaControlChannelAttributes(H245_TransportAddress& mediaControlChannel, PString& upStreamPayload) {
    voip::appendMediaControlAddress(mediaControlChannel, upStreamPayload);
  }

  /// See CallMaps::announce().
  void updateMaps(PString& callReference, h245Addr& addr) { callMaps.announce(callReference, addr); }

  /// Logs at DEBUG what calls and addresses are known. Any thread.
  void displayCallIdMap() { callMaps.display(); }

  /// Whole messages go to the log at INFO. To be set before the first segment.
  void setTraceSignalling(bool trace) { traceSignalling = trace; }

 private:
  /// The two ends of a segment's connection.
  struct Connection {
    const u_int& tx_ip;
    const u_int& rx_ip;
    const u_int& tx_port;
    const u_int& rx_port;
  };

  bool describeCallSignalling(const Connection& connection, asn1::Effort& effort, PString& upStreamPayload,
                              std::ostream* trace);
  bool describeTunneledH245(const H225_H323_UU_PDU& pdu, const Connection& connection, asn1::Effort& effort,
                            PString& upStreamPayload, std::ostream* trace);
  bool appendCallOf(const Connection& connection, unsigned messageType, const char* complaint,
                    PString& upStreamPayload);
  bool isTracing() const;

  voip::CallMaps callMaps;

  // Decoded into again and again, so that a message costs no memory of its own.
  H245_MultimediaSystemControlMessage h245MSCMsg;
  Q931 q931pdu;
  H225_H323_UserInformation ui;
  H245_OpenLogicalChannel olc;

  bool traceSignalling = false;

  static H323Parser* h323Parser;  ///< for whoever wants one parser for the process; a dissector has its own
};
