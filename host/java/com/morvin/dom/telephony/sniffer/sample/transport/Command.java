package com.morvin.dom.telephony.sniffer.sample.transport;

import java.nio.ByteBuffer;

/**
 * A command of the recorder to a sniffer. {@link #bytes} returns its wire form: code (1 byte), IPv4 address (4) and UDP
 * port (2), in network byte order.
 *
 * @param destination where the RTP is sent to; 0.0.0.0:0 in a heartbeat
 */
public record Command(int code, Endpoint destination) {
  /** Code of {@link #add}. */
  public static final int ADD = 1;
  /** Code of {@link #remove}. */
  public static final int REMOVE = 2;
  /** Code of {@link #heartbeat}. */
  public static final int HEARTBEAT = 3;

  /** The length of a command in bytes. */
  public static final int LENGTH = 7;

  /** Forward the RTP sent to this destination. Each command appends to the sniffer's list, even an equal entry. */
  public static Command add(Endpoint destination) {
    return new Command(ADD, destination);
  }

  /** Stop forwarding it. One command removes all equal entries. */
  public static Command remove(Endpoint destination) {
    return new Command(REMOVE, destination);
  }

  /** Send a heartbeat reply. */
  public static Command heartbeat() {
    return new Command(HEARTBEAT, new Endpoint(0, 0));
  }

  /** Returns the wire form. */
  public byte[] bytes() {
    return ByteBuffer.allocate(LENGTH).put((byte) code).putInt(destination.ip()).putShort((short) destination.port())
        .array();
  }
}
