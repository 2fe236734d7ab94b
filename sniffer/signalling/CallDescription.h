#pragma once

#include <optional>

#include "h323/base/PString.h"
#include "h323/decoder/Effort.h"
#include "h323/messages/H225.h"
#include "h323/messages/H245.h"
#include "h323/messages/Q931.h"
#include "signalling/CallMaps.h"
#include "signalling/MediaDescription.h"

namespace voip {

/// Describes the H.225.0 body of one Q.931 message: the call, its parties, its media and its H.245 address.
class CallDescription {
 public:
  /// Appends to `text` what append() describes. Announces H.245 addresses to `callMaps` as those of `callReference`.
  /// Decodes fast-start elements into `channel` and charges them to `effort`. All arguments must outlive this object.
  CallDescription(const Q931& q931, const PString& callReference, CallMaps& callMaps, H245_OpenLogicalChannel& channel,
                  asn1::Effort& effort, AddressFamilies families, PString& text)
      : q931_(q931),
        callReference_(callReference),
        callMaps_(callMaps),
        channel_(channel),
        effort_(effort),
        families_(families),
        text_(text) {}

  /// Returns false and appends nothing when `body` does not belong to the type of the Q.931 message, or when that type
  /// has no description.
  bool append(const H225_H323_UU_PDU_h323_message_body& body);

 private:
  bool appendSetup(const std::optional<H225_Setup_UUIE>& setup);
  bool appendInformation(const std::optional<H225_Information_UUIE>& information);
  bool appendReleaseComplete(const std::optional<H225_ReleaseComplete_UUIE>& release);

  // Bodies that are described by the same few components. `message` is the name of the message in log lines.

  bool appendIdOf(const char* message, const auto& uuie);
  bool appendIdAndFastStartOf(const char* message, const auto& uuie);
  bool appendIdAndMediaOf(const char* message, const char* messageInCapitals, const auto& uuie);

  /// Returns false when there is no call identifier. `suffix` ends the log line.
  bool appendCallId(const char* message, const std::optional<H225_CallIdentifier>& callId, const char* suffix = "");
  /// Appends the first alias, or `number` without one, after `tag`.
  void appendParty(const char* tag, const char* role, const std::optional<H225_ArrayOf_AliasAddress>& aliases,
                   const PString& number);
  void appendProposals(const std::optional<H225_ArrayOf_PASN_OctetString>& fastStart);
  /// Appends the fast start, or announces the H.245 address without one.
  void appendMedia(const char* message, const auto& uuie);
  void announce(const char* message, const H225_TransportAddress& address);

  const Q931& q931_;
  const PString& callReference_;
  CallMaps& callMaps_;
  H245_OpenLogicalChannel& channel_;
  asn1::Effort& effort_;
  const AddressFamilies families_;
  PString& text_;
};

}  // namespace voip
