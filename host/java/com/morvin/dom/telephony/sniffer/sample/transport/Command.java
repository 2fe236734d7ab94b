package com.morvin.dom.telephony.sniffer.sample.transport;

import java.nio.ByteBuffer;

/** What a recorder can tell the sniffer. */
public record Command(int code, Endpoint destination) {
  public static final int ADD = 1;
  public static final int REMOVE = 2;
  public static final int HEARTBEAT = 3;

  public static final int LENGTH = 7;

  /** Forward what is sent to this destination. Each one appends to the sniffer's list, equal entry or not. */
  public static Command add(Endpoint destination) {
    return new Command(ADD, destination);
  }

  /** Forward it no longer. One removes all equal entries. */
  public static Command remove(Endpoint destination) {
    return new Command(REMOVE, destination);
  }

  public static Command heartbeat() {
    return new Command(HEARTBEAT, new Endpoint(0, 0));
  }

  public byte[] bytes() {
    return ByteBuffer.allocate(LENGTH).put((byte) code).putInt(destination.ip()).putShort((short) destination.port())
        .array();
  }
}
