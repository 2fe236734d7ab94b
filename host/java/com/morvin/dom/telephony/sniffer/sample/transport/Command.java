package com.morvin.dom.telephony.sniffer.sample.transport;

import java.nio.ByteBuffer;

/**
 * A command of the recorder to a sniffer. {@link #bytes} returns its wire form: code (1 byte), address (4 or 16) and
 * UDP port (2), in network byte order.
 *
 * @param code one of {@link #ADD} to {@link #HEARTBEAT}, for both families of addresses
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
  /** The length of a command for an IPv6 destination in bytes. */
  public static final int IPV6_LENGTH = 19;

  /** The wire's codes for an IPv6 destination are higher than {@link #ADD} and {@link #REMOVE} by this number. */
  private static final int IPV6_CODES = 3;

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

  /**
   * Whether the destination has an IPv6 address. A sniffer without IPv6 reads the command as several commands, so it
   * must not be sent there.
   */
  public boolean isIpv6() {
    return destination.isIpv6();
  }

  /** Returns the wire form. */
  public byte[] bytes() {
    boolean ipv6 = isIpv6();
    ByteBuffer bytes = ByteBuffer.allocate(ipv6 ? IPV6_LENGTH : LENGTH).put((byte) (ipv6 ? code + IPV6_CODES : code));
    Wire.put(bytes, destination, ipv6);
    return bytes.array();
  }
}
