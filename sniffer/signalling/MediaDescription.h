#pragma once

#include "h323/base/PString.h"
#include "h323/decoder/Effort.h"
#include "h323/messages/H225.h"
#include "h323/messages/H245.h"

namespace voip {

// Descriptions of the media channels of H.245, in the form that the recorder reads. Each function appends the part
// for its first argument to `text`, without a line feed at the end unless stated otherwise. Addresses of other families
// than `families` are left out.

/// Address families that a description can contain.
enum class AddressFamilies { kIpv4, kBoth };

/// Returns the text of 16 octets: "[2001:db8::1]", or "10.1.2.3" for an IPv4-mapped address.
PString ipv6Text(const PASN_OctetString& octets);

/// An OpenLogicalChannel: "m:", its number, ":", and both directions.
void appendLogicalChannel(const H245_OpenLogicalChannelView& channel, AddressFamilies families, PString& text);
/// The media channels of both directions of an OpenLogicalChannelAck.
void appendAcknowledgedAddresses(const H245_OpenLogicalChannelAck& acknowledgement, AddressFamilies families,
                                 PString& text);
/// "fcodec:" and the codec for audio, then the media channel.
void appendForwardChannel(const H245_OpenLogicalChannel_forwardLogicalChannelParameters& channel,
                          AddressFamilies families, PString& text);
/// "rcodec:" and the codec for audio, then the media channel.
void appendReverseChannel(const H245_OpenLogicalChannel_reverseLogicalChannelParameters& channel,
                          AddressFamilies families, PString& text);
/// "rtp:", address and port of the media channel.
void appendMediaChannel(const H245_H2250LogicalChannelParameters& parameters, AddressFamilies families, PString& text);
void appendMediaChannel(const H245_H2250LogicalChannelAckParameters& parameters, AddressFamilies families,
                        PString& text);
/// "rtp:", address and port. Logs an address of another family at DEBUG.
void appendMediaAddress(const H245_TransportAddress& address, AddressFamilies families, PString& text);
/// "rtcp:", address and port. Logs an address of another family at DEBUG.
void appendMediaControlAddress(const H245_TransportAddress& address, AddressFamilies families, PString& text);

/// A line for each element that is an OpenLogicalChannel. The elements are decoded into `channel` and charged to
/// `effort`.
void appendFastStart(const H225_ArrayOf_PASN_OctetString& elements, H245_OpenLogicalChannel& channel,
                     asn1::Effort& effort, AddressFamilies families, PString& text);

}  // namespace voip
