#pragma once

#include "h323/base/PString.h"
#include "h323/decoder/Effort.h"
#include "h323/messages/H225.h"
#include "h323/messages/H245.h"

namespace voip {

// What H.245 says about media channels, in the words that the recorder reads. Each of these appends to `text` what it
// finds to describe, without a line feed unless it says so.

/// An OpenLogicalChannel: "m:", its number and both directions.
void appendLogicalChannel(const H245_OpenLogicalChannelView& channel, PString& text);
/// What an OpenLogicalChannelAck says about both directions.
void appendAcknowledgedAddresses(const H245_OpenLogicalChannelAck& acknowledgement, PString& text);
/// "fcodec:" for audio, and where the media is to be sent.
void appendForwardChannel(const H245_OpenLogicalChannel_forwardLogicalChannelParameters& channel, PString& text);
/// "rcodec:" for audio, and where the media is to be sent.
void appendReverseChannel(const H245_OpenLogicalChannel_reverseLogicalChannelParameters& channel, PString& text);
/// "rtp:", address and port of the media channel, if there is one.
void appendMediaChannel(const H245_H2250LogicalChannelParameters& parameters, PString& text);
void appendMediaChannel(const H245_H2250LogicalChannelAckParameters& parameters, PString& text);
/// "rtp:", address and port, if that is IPv4.
void appendMediaAddress(const H245_TransportAddress& address, PString& text);
/// "rtcp:", address and port, if that is IPv4.
void appendMediaControlAddress(const H245_TransportAddress& address, PString& text);

/// A line for each element that is an OpenLogicalChannel, decoded into `channel` at the cost of `effort`.
void appendFastStart(const H225_ArrayOf_PASN_OctetString& elements, H245_OpenLogicalChannel& channel,
                     asn1::Effort& effort, PString& text);

}  // namespace voip
