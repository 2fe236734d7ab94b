#pragma once

#include <log4cxx/logger.h>
#include <sys/types.h>

#include <map>
#include <mutex>
#include <optional>
#include <ostream>

#include "H225.h"
#include "H245.h"
#include "PBYTEArray.h"
#include "PString.h"
#include "Q931.h"

/// Describes H.323 signalling (Q.931 with H.225.0, H.245) in a few lines of text for the recorder: which call, who
/// calls whom, and where the media goes.
///
/// A line starts with a letter and a colon and ends with a line feed: "t:" message type (of Q.931; 130 and 131 are
/// OpenLogicalChannel and its Ack on an H.245 connection of their own), "r:" call reference, "c:" call identifier, "s:"
/// caller, "d:" callee, "i:" digits, "m:" proposed and "a:" accepted logical channel. Texts of the network stand in
/// them as they came; they may hold line feeds and any octet but zero.
///
/// H.245 on a connection of its own names no call. So the addresses that calls announce for it are remembered, until
/// the call is released: calls whose ReleaseComplete is lost, or names no call identifier, stay for good.
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

  /// Where an H.245 connection is listened for.
  struct h245Addr {
    PString h245Ip;  ///< dotted decimal
    u_int h245Port = 0;

    h245Addr() = default;
    h245Addr(const PString& ip, u_int port) : h245Ip(ip), h245Port(port) {}

    friend std::ostream& operator<<(std::ostream& stream, const h245Addr& addr) {
      return stream << addr.h245Ip << ':' << addr.h245Port;
    }
  };

  /// By address or by port, whichever is less: each of two entries may come before the other. That is no strict weak
  /// order, so a map ordered by it allows but few operations: see put() in H323Parser.cpp.
  struct h245comp {
    bool operator()(const h245Addr& a, const h245Addr& b) const {
      return a.h245Ip.Compare(b.h245Ip) == PString::LessThan || a.h245Port < b.h245Port;
    }
  };

  /// As texts: "10" comes before "9".
  struct callrefcomp {
    bool operator()(const PString& a, const PString& b) const { return a.Compare(b) == PString::LessThan; }
  };

  H323Parser() = default;
  H323Parser(const H323Parser&) = delete;
  H323Parser& operator=(const H323Parser&) = delete;
  virtual ~H323Parser() = default;

  /// Describes one TCP segment. `payload` has `len` octets, the first `ourHdrLen` of which are not part of the segment.
  /// `upStreamPayload` is empty on entry. True when the text is to be forwarded; when it is not, what is in it is of no
  /// use. Of several messages in a segment only the first one is described, and messages are not put together from
  /// several segments.
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

  // Each of these appends to `upStreamPayload` what it finds to describe.

  /// A line for each element that is an OpenLogicalChannel.
  void getFastStartParams(H225_ArrayOf_PASN_OctetString& h245FastStartParams, PString& upStreamPayload);
  /// An OpenLogicalChannel: "m:", its number and both directions.
  void getRequestMediaParams(H245_RequestMessage& Request, PString& upStreamPayload);
  /// What an OpenLogicalChannelAck says about both directions.
  void getResponseMediaParams(H245_ResponseMessage& Response, PString& upStreamPayload);
  void getForwardLogicalChannelParams(H245_OpenLogicalChannel_forwardLogicalChannelParameters& flcParams,
                                      PString& upStreamPayload);
  void getReverseLogicalChannelParams(H245_OpenLogicalChannel_reverseLogicalChannelParameters& rlcParams,
                                      PString& upStreamPayload);
  void getH2250LogicalChannelParams(H245_H2250LogicalChannelParameters& h225LCParams, PString& upStreamPayload);
  void getForwardLogicalChannelAckParams(H245_H2250LogicalChannelAckParameters& h225LCAckParams,
                                         PString& upStreamPayload);
  /// "rtp:", address and port, if that is IPv4.
  void getMediaChannelAttributes(H245_TransportAddress& mediaChannel, PString& upStreamPayload);
  /// "rtcp:", address and port, if that is IPv4. Not part of any description so far: RTCP is next to RTP.
  void getMediaControlChannelAttributes(H245_TransportAddress& mediaControlChannel, PString& upStreamPayload);

  /// The call announces that it listens for H.245 at `addr`. That takes the address over from any other call; an
  /// address that the same call announced before stays its own.
  void updateMaps(PString& callReference, h245Addr& addr);

  /// Logs at DEBUG what calls and addresses are known. Any thread.
  void displayCallIdMap();

  /// Whole messages go to the log at INFO. To be set before the first segment.
  void setTraceSignalling(bool trace) { traceSignalling = trace; }

 private:
  bool describeCallSignalling(const u_int& tx_ip, const u_int& rx_ip, const u_int& tx_port, const u_int& rx_port,
                              PString& upStreamPayload, std::ostream* trace);
  bool describeTunneledH245(const H225_H323_UU_PDU& pdu, const u_int& tx_ip, const u_int& rx_ip, const u_int& tx_port,
                            const u_int& rx_port, PString& upStreamPayload, std::ostream* trace);
  bool describeBody(const H225_H323_UU_PDU_h323_message_body& body, PString& callReference, PString& upStreamPayload);

  void describe(const H225_Setup_UUIE& setup, PString& callReference, PString& upStreamPayload);
  void describe(const H225_Information_UUIE& information, PString& upStreamPayload);
  void describe(const H225_ReleaseComplete_UUIE& release, const PString& callReference, PString& upStreamPayload);
  void appendCallId(const char* message, const std::optional<H225_CallIdentifier>& callId, PString& upStreamPayload);
  template <class UUIE>
  void appendFastStart(const UUIE& uuie, PString& upStreamPayload);
  template <class UUIE>
  void appendFastStartOrAnnounce(const char* message, const UUIE& uuie, PString& callReference,
                                 PString& upStreamPayload);
  void announce(const char* message, const H225_TransportAddress& address, PString& callReference);
  void forget(const PString& callReference);
  void appendLogicalChannel(const H245_OpenLogicalChannelView& channel, PString& upStreamPayload);
  void appendAddress(const char* channel, const char* protocol, const H245_TransportAddress& address,
                     PString& upStreamPayload);
  bool appendCallOf(const h245Addr& tx, const h245Addr& rx, unsigned messageType, const char* complaint,
                    PString& upStreamPayload);
  bool findCall(const h245Addr& addr, PString& callReference);

  std::map<h245Addr, PString, h245comp> h245Map;        ///< the call that announced the address
  std::map<PString, h245Addr, callrefcomp> callRefMap;  ///< the address that the call announced last

  // Decoded into again and again, so that a message costs no memory of its own.
  H245_MultimediaSystemControlMessage h245MSCMsg;
  Q931 q931pdu;
  H225_H323_UserInformation ui;
  H245_OpenLogicalChannel olc;

  bool traceSignalling = false;
  std::mutex mapsLock;  ///< guards both maps: who ends the sniffer has them logged while a segment may be in work

  static log4cxx::LoggerPtr logger;
  static H323Parser* h323Parser;  ///< for whoever wants one parser for the process; a dissector has its own
};
