package com.morvin.dom.telephony.sniffer.sample;

import java.nio.ByteBuffer;

/** What a recorder can tell the sniffer. */
record Command(int code, Endpoint destination) {
  static final int ADD = 1;
  static final int REMOVE = 2;
  static final int HEARTBEAT = 3;

  static final int LENGTH = 7;

  /** Forward what is sent to this destination. Each one appends to the sniffer's list, equal entry or not. */
  static Command add(Endpoint destination) {
    return new Command(ADD, destination);
  }

  /** Forward it no longer. One removes all equal entries. */
  static Command remove(Endpoint destination) {
    return new Command(REMOVE, destination);
  }

  static Command heartbeat() {
    return new Command(HEARTBEAT, new Endpoint(0, 0));
  }

  byte[] bytes() {
    return ByteBuffer.allocate(LENGTH).put((byte) code).putInt(destination.ip()).putShort((short) destination.port())
        .array();
  }
}
