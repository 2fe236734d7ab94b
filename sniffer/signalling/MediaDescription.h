#pragma once

#include "h323/base/PString.h"
#include "h323/decoder/Effort.h"
#include "h323/messages/H225.h"
#include "h323/messages/H245.h"

namespace voip {

// Descriptions of the media channels of H.245, in the form that the recorder reads. Each function appends to `text`
// what its first argument contains of that, without a line feed at the end unless stated otherwise.

/// An OpenLogicalChannel: "m:", its number, ":", and both directions.
void appendLogicalChannel(const H245_OpenLogicalChannelView& channel, PString& text);
/// The media channels of both directions of an OpenLogicalChannelAck.
void appendAcknowledgedAddresses(const H245_OpenLogicalChannelAck& acknowledgement, PString& text);
/// "fcodec:" and the codec for audio, then the media channel.
void appendForwardChannel(const H245_OpenLogicalChannel_forwardLogicalChannelParameters& channel, PString& text);
/// "rcodec:" and the codec for audio, then the media channel.
void appendReverseChannel(const H245_OpenLogicalChannel_reverseLogicalChannelParameters& channel, PString& text);
/// "rtp:", address and port of the media channel.
void appendMediaChannel(const H245_H2250LogicalChannelParameters& parameters, PString& text);
void appendMediaChannel(const H245_H2250LogicalChannelAckParameters& parameters, PString& text);
/// "rtp:", address and port. Logs an address other than IPv4 at DEBUG.
void appendMediaAddress(const H245_TransportAddress& address, PString& text);
/// "rtcp:", address and port. Logs an address other than IPv4 at DEBUG.
void appendMediaControlAddress(const H245_TransportAddress& address, PString& text);

/// A line for each element that is an OpenLogicalChannel. The elements are decoded into `channel` and charged to
/// `effort`.
void appendFastStart(const H225_ArrayOf_PASN_OctetString& elements, H245_OpenLogicalChannel& channel,
                     asn1::Effort& effort, PString& text);

}  // namespace voip
