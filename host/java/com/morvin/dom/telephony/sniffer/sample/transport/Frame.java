package com.morvin.dom.telephony.sniffer.sample.transport;

import java.net.ProtocolException;
import java.nio.ByteBuffer;
import java.util.Arrays;

/**
 * One frame of the sniffer: a captured payload and the addresses that it was sent between.
 *
 * @param protocol one of {@link #SIP} to {@link #CAPTURE_TIME}, without the bit of IPv6
 * @param payload not copied: nobody changes it
 */
public record Frame(int protocol, Endpoint destination, Endpoint source, byte[] payload) {
  /** A SIP message. */
  public static final int SIP = 1;
  /** A datagram sent to a destination that the recorder asked for: RTP, RTCP or T.38. */
  public static final int RTP = 2;
  /** The reply to a heartbeat. It has no payload. */
  public static final int HEARTBEAT = 3;
  /** The description of an H.323 message. */
  public static final int H323 = 4;
  /** The capture time of the next frame: microseconds since 1970, 8 bytes. */
  public static final int CAPTURE_TIME = 5;

  /** The bit of the protocol in a frame with IPv6 addresses. A heartbeat reply never has it. */
  public static final int IPV6 = 0x40;

  /** The length of the header in bytes. */
  public static final int HEADER = 15;
  /** The length of the header with IPv6 addresses in bytes. */
  public static final int IPV6_HEADER = 39;
  /** The length of the longest frame in bytes, with its header. */
  public static final int MAX_LENGTH = 65535;

  /**
   * Reads the next frame from a stream and advances the position of the buffer.
   *
   * @return null when the buffer does not hold a complete frame yet
   * @throws ProtocolException when the bytes are not the start of a frame
   */
  public static Frame take(ByteBuffer bytes) throws ProtocolException {
    int start = bytes.position();
    int length = length(bytes, start, bytes.remaining());
    if (length == 0) {
      return null;
    }
    byte[] frame = new byte[length];
    bytes.get(frame);
    return copy(frame, 0, length);
  }

  /**
   * Returns the index after the frame at an index, in the part of a buffer before its position.
   *
   * @return 0 when the buffer does not hold the complete frame yet
   * @throws ProtocolException when the bytes are not the start of a frame
   */
  static int end(ByteBuffer bytes, int start) throws ProtocolException {
    int length = length(bytes, start, bytes.position() - start);
    return length == 0 ? 0 : start + length;
  }

  private static int length(ByteBuffer bytes, int start, int available) throws ProtocolException {
    if (available <= Wire.PROTOCOL) {
      return 0;
    }
    int length = bytes.getShort(start) & 0xffff;
    int protocol = bytes.get(start + Wire.PROTOCOL);
    boolean ipv6 = (protocol & IPV6) != 0;
    int kind = protocol & ~IPV6;
    int header = ipv6 ? IPV6_HEADER : HEADER;
    if (length < header || kind < SIP || kind > CAPTURE_TIME || kind == HEARTBEAT && (ipv6 || length != header)
        || kind == CAPTURE_TIME && length != header + Long.BYTES) {
      throw new ProtocolException("no frame has length " + length + " and protocol " + protocol);
    }
    return length <= available ? length : 0;
  }

  /** Returns a copy of the frame in a part of an array. */
  static Frame copy(byte[] bytes, int start, int end) {
    return new Frame(Wire.protocol(bytes, start), Wire.destinationOf(bytes, start), Wire.sourceOf(bytes, start),
        Arrays.copyOfRange(bytes, Wire.payload(bytes, start), end));
  }

  /**
   * Reads a frame that takes up the whole buffer, such as a datagram.
   *
   * @throws ProtocolException when the buffer holds anything else
   */
  public static Frame of(ByteBuffer bytes) throws ProtocolException {
    Frame frame = take(bytes);
    if (frame == null || bytes.hasRemaining()) {
      throw new ProtocolException("a frame's length is not that of its datagram");
    }
    return frame;
  }

  /** Returns the wire form, in network byte order. */
  public byte[] bytes() {
    boolean ipv6 = destination.isIpv6() || source.isIpv6();
    int length = (ipv6 ? IPV6_HEADER : HEADER) + payload.length;
    ByteBuffer bytes = ByteBuffer.allocate(length).putShort((short) length)
        .put((byte) (ipv6 ? protocol | IPV6 : protocol));
    Wire.put(bytes, destination, ipv6);
    Wire.put(bytes, source, ipv6);
    return bytes.put(payload).array();
  }
}
