package com.morvin.dom.telephony.sniffer.sample;

import java.net.ProtocolException;
import java.nio.ByteBuffer;

/** One frame of the sniffer: what was captured, and between which addresses. */
record Frame(int protocol, Endpoint destination, Endpoint source, byte[] payload) {
  static final int SIP = 1;
  static final int RTP = 2;
  static final int HEARTBEAT = 3;
  static final int H323 = 4;

  static final int HEADER = 15;
  static final int MAX_LENGTH = 65535;

  /**
   * Takes one frame off the front of the bytes.
   *
   * @return null when they do not hold a whole frame yet
   * @throws ProtocolException when no frame starts like this
   */
  static Frame take(ByteBuffer bytes) throws ProtocolException {
    if (bytes.remaining() < 3) {
      return null;
    }
    int start = bytes.position();
    int length = bytes.getShort(start) & 0xffff;
    int protocol = bytes.get(start + 2);
    if (length < HEADER || protocol < SIP || protocol > H323 || protocol == HEARTBEAT && length != HEADER) {
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
  static Frame of(ByteBuffer bytes) throws ProtocolException {
    Frame frame = take(bytes);
    if (frame == null || bytes.hasRemaining()) {
      throw new ProtocolException("a frame's length is not that of its datagram");
    }
    return frame;
  }

  private static Endpoint endpoint(ByteBuffer bytes) {
    return new Endpoint(bytes.getInt(), bytes.getShort() & 0xffff);
  }
}
