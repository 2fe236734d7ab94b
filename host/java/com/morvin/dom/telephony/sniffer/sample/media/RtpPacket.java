package com.morvin.dom.telephony.sniffer.sample.media;

import java.nio.ByteBuffer;

/**
 * An RTP packet (RFC 3550).
 *
 * @param bytes the whole datagram, not copied
 * @param offset of the payload in the datagram
 * @param length of the payload in bytes
 */
public record RtpPacket(int payloadType, int sequence, int timestamp, int ssrc, byte[] bytes, int offset, int length) {
  private static final int HEADER = 12;

  /** Whether a datagram is RTCP. The packet type decides (RFC 5761), not the port. */
  public static boolean isRtcp(byte[] bytes) {
    return bytes.length >= 8 && (bytes[0] & 0xc0) == 0x80 && (bytes[1] & 255) >= 200 && (bytes[1] & 255) <= 207;
  }

  /** Whether a datagram is one of those that share the port with RTP and prepare it: STUN or DTLS (RFC 7983). */
  public static boolean isSetup(byte[] bytes) {
    return bytes.length > HEADER && (bytes[0] >= 0 && bytes[0] <= 3 || bytes[0] >= 20 && bytes[0] <= 63);
  }

  /** Parses a datagram. Returns null when it is not an RTP packet. */
  public static RtpPacket parse(byte[] bytes) {
    if (bytes.length < HEADER || (bytes[0] & 0xc0) != 0x80) {
      return null;
    }
    ByteBuffer in = ByteBuffer.wrap(bytes);
    int offset = HEADER + 4 * (bytes[0] & 0x0f);
    if ((bytes[0] & 0x10) != 0) {
      if (offset + 4 > bytes.length) {
        return null;
      }
      offset += 4 + 4 * (in.getShort(offset + 2) & 0xffff);
    }
    int length = bytes.length - offset;
    if ((bytes[0] & 0x20) != 0 && length > 0) {
      // The last byte is the padding length. After a short datagram it may be Ethernet padding, which is zero.
      length -= bytes[bytes.length - 1] & 255;
    }
    if (length < 0) {
      return null;
    }
    return new RtpPacket(
        bytes[1] & 0x7f, in.getShort(2) & 0xffff, in.getInt(4), in.getInt(8), bytes, offset, length);
  }
}
