package com.morvin.dom.telephony.sniffer.sample.transport;

import java.net.ProtocolException;
import java.nio.ByteBuffer;

/** One frame of the sniffer: what was captured, and between which addresses. */
public record Frame(int protocol, Endpoint destination, Endpoint source, byte[] payload) {
  public static final int SIP = 1;
  public static final int RTP = 2;
  public static final int HEARTBEAT = 3;
  public static final int H323 = 4;
  /** Tells when the frame behind it was captured. */
  public static final int CAPTURE_TIME = 5;

  public static final int HEADER = 15;
  public static final int MAX_LENGTH = 65535;

  /**
   * Takes one frame off the front of the bytes.
   *
   * @return null when they do not hold a whole frame yet
   * @throws ProtocolException when no frame starts like this
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

  /** The frame that is all of these bytes. */
  public static Frame of(ByteBuffer bytes) throws ProtocolException {
    Frame frame = take(bytes);
    if (frame == null || bytes.hasRemaining()) {
      throw new ProtocolException("a frame's length is not that of its datagram");
    }
    return frame;
  }

  /** The frame as it goes over the wire. */
  public byte[] bytes() {
    return ByteBuffer.allocate(HEADER + payload.length).putShort((short) (HEADER + payload.length))
        .put((byte) protocol).putInt(destination.ip()).putShort((short) destination.port()).putInt(source.ip())
        .putShort((short) source.port()).put(payload).array();
  }

  private static Endpoint endpoint(ByteBuffer bytes) {
    return new Endpoint(bytes.getInt(), bytes.getShort() & 0xffff);
  }
}
