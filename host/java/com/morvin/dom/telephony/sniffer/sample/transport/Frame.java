package com.morvin.dom.telephony.sniffer.sample.transport;

import java.net.ProtocolException;
import java.nio.ByteBuffer;

/**
 * One frame of the sniffer: a captured payload and the addresses that it was sent between.
 *
 * @param protocol one of {@link #SIP} to {@link #CAPTURE_TIME}
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

  /** The length of the header in bytes. */
  public static final int HEADER = 15;
  /** The length of the longest frame in bytes, with its header. */
  public static final int MAX_LENGTH = 65535;

  /**
   * Reads the next frame from a stream and advances the position of the buffer.
   *
   * @return null when the buffer does not hold a complete frame yet
   * @throws ProtocolException when the bytes are not the start of a frame
   */
  public static Frame take(ByteBuffer bytes) throws ProtocolException {
    if (bytes.remaining() < 3) {
      return null;
    }
    int start = bytes.position();
    int length = bytes.getShort(start) & 0xffff;
    int protocol = bytes.get(start + 2);
    if (length < HEADER || protocol < SIP || protocol > CAPTURE_TIME || protocol == HEARTBEAT && length != HEADER
        || protocol == CAPTURE_TIME && length != HEADER + Long.BYTES) {
      throw new ProtocolException("no frame has length " + length + " and protocol " + protocol);
    }
    if (bytes.remaining() < length) {
      return null;
    }
    bytes.position(start + 3);
    Endpoint destination = endpoint(bytes);
    Endpoint source = endpoint(bytes);
    byte[] payload = new byte[length - HEADER];
    bytes.get(payload);
    return new Frame(protocol, destination, source, payload);
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
    return ByteBuffer.allocate(HEADER + payload.length).putShort((short) (HEADER + payload.length))
        .put((byte) protocol).putInt(destination.ip()).putShort((short) destination.port()).putInt(source.ip())
        .putShort((short) source.port()).put(payload).array();
  }

  private static Endpoint endpoint(ByteBuffer bytes) {
    return new Endpoint(bytes.getInt(), bytes.getShort() & 0xffff);
  }
}
