#pragma once

#include <optional>

#include "h323/base/PString.h"
#include "h323/decoder/Effort.h"
#include "h323/messages/H225.h"
#include "h323/messages/H245.h"
#include "h323/messages/Q931.h"
#include "signalling/CallMaps.h"

namespace voip {

/// What a message of H.225.0 says about its call: who calls whom, with which media, and where H.245 will be spoken. One
/// object describes one message.
class CallDescription {
 public:
  /// Of the message in `signalling`, whose call reference is `reference`. The addresses it announces go to `calls`.
  /// Media channels are decoded into `proposal` at the cost of `limit`. All of them must outlive this object.
  CallDescription(const Q931& signalling, const PString& reference, CallMaps& calls, H245_OpenLogicalChannel& proposal,
                  asn1::Effort& limit, PString& description)
      : q931(signalling),
        callReference(reference),
        callMaps(calls),
        channel(proposal),
        effort(limit),
        text(description) {}

  /// Appends what `body` says to the text. False, and nothing is appended, when it is not the body that belongs to the
  /// type of the Q.931 message, or one that is not described.
  bool append(const H225_H323_UU_PDU_h323_message_body& body);

 private:
  bool appendSetup(const std::optional<H225_Setup_UUIE>& setup);
  bool appendInformation(const std::optional<H225_Information_UUIE>& information);
  bool appendReleaseComplete(const std::optional<H225_ReleaseComplete_UUIE>& release);
  /// For those that have only one thing to say.
  bool appendCallIdOf(const char* message, const auto& uuie);
  bool appendFastStartOf(const char* message, const auto& uuie);
  bool appendMediaOf(const char* message, const char* inUpperCase, const auto& uuie);

  bool appendCallId(const char* message, const std::optional<H225_CallIdentifier>& callId, const char* suffix = "");
  void appendParty(const char* line, const char* role, const std::optional<H225_ArrayOf_AliasAddress>& aliases,
                   const PString& number);
  void appendProposals(const std::optional<H225_ArrayOf_PASN_OctetString>& fastStart);
  void appendProposalsOrAnnounce(const char* message, const auto& uuie);
  void announce(const char* message, const H225_TransportAddress& address);

  const Q931& q931;
  const PString& callReference;
  CallMaps& callMaps;
  H245_OpenLogicalChannel& channel;
  asn1::Effort& effort;
  PString& text;
};

}  // namespace voip
