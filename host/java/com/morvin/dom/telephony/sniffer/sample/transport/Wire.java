package com.morvin.dom.telephony.sniffer.sample.transport;

import java.lang.invoke.MethodHandles;
import java.lang.invoke.VarHandle;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;

/** Reads numbers in network byte order from an array, and the fields of a frame in it. */
public final class Wire {
  /** The index of the protocol in a frame. */
  static final int PROTOCOL = 2;
  private static final int DESTINATION = 3;
  private static final int SOURCE_PORT_END = 15;
  /** The index of the source in an IPv6 frame. */
  private static final int IPV6_SOURCE = 21;
  private static final long ENDPOINT_BITS = 0xffff_ffff_ffffL;
  private static final VarHandle SHORT = MethodHandles.byteArrayViewVarHandle(short[].class, ByteOrder.BIG_ENDIAN);
  private static final VarHandle INT = MethodHandles.byteArrayViewVarHandle(int[].class, ByteOrder.BIG_ENDIAN);
  private static final VarHandle LONG = MethodHandles.byteArrayViewVarHandle(long[].class, ByteOrder.BIG_ENDIAN);

  private Wire() {}

  /** Returns the unsigned 16-bit number at an index. */
  public static int u16(byte[] bytes, int at) {
    return (short) SHORT.get(bytes, at) & 0xffff;
  }

  /** Returns the 32-bit number at an index. */
  public static int i32(byte[] bytes, int at) {
    return (int) INT.get(bytes, at);
  }

  /** Returns the 64-bit number at an index. */
  public static long i64(byte[] bytes, int at) {
    return (long) LONG.get(bytes, at);
  }

  /** Whether the frame at an index has IPv6 addresses. */
  static boolean isIpv6(byte[] bytes, int frame) {
    return (bytes[frame + PROTOCOL] & Frame.IPV6) != 0;
  }

  /** Returns the protocol of the frame at an index, without the bit of IPv6. */
  static int protocol(byte[] bytes, int frame) {
    return bytes[frame + PROTOCOL] & ~Frame.IPV6;
  }

  /** Returns the index of the payload of the frame at an index. */
  public static int payload(byte[] bytes, int frame) {
    return frame + (isIpv6(bytes, frame) ? Frame.IPV6_HEADER : Frame.HEADER);
  }

  /** Returns the destination of the frame at an index; see {@link Endpoint#key}. */
  static long destination(byte[] bytes, int frame) {
    return isIpv6(bytes, frame) ? ipv6Key(bytes, frame + DESTINATION) : i64(bytes, frame + DESTINATION) >>> 16;
  }

  /** Returns the source of the frame at an index; see {@link Endpoint#key}. */
  static long source(byte[] bytes, int frame) {
    return isIpv6(bytes, frame) ? ipv6Key(bytes, frame + IPV6_SOURCE)
        : i64(bytes, frame + SOURCE_PORT_END - Long.BYTES) & ENDPOINT_BITS;
  }

  private static long ipv6Key(byte[] bytes, int at) {
    return Endpoint.key(i64(bytes, at), i64(bytes, at + 8), u16(bytes, at + 16));
  }

  /** Returns the source of the frame at an index. */
  static Endpoint sourceOf(byte[] bytes, int frame) {
    return isIpv6(bytes, frame) ? ipv6Endpoint(bytes, frame + IPV6_SOURCE) : ipv4Endpoint(source(bytes, frame));
  }

  /** Returns the destination of the frame at an index. */
  static Endpoint destinationOf(byte[] bytes, int frame) {
    return isIpv6(bytes, frame) ? ipv6Endpoint(bytes, frame + DESTINATION)
        : ipv4Endpoint(destination(bytes, frame));
  }

  private static Endpoint ipv6Endpoint(byte[] bytes, int at) {
    return new Endpoint(new Address(i64(bytes, at), i64(bytes, at + 8)), u16(bytes, at + 16));
  }

  private static Endpoint ipv4Endpoint(long key) {
    return new Endpoint((int) (key >>> 16), (int) key & 0xffff);
  }

  /** Appends an endpoint. In a frame of IPv6 an IPv4 address is written as the IPv4-mapped one. */
  static void put(ByteBuffer bytes, Endpoint endpoint, boolean ipv6) {
    Address address = endpoint.address();
    if (ipv6) {
      bytes.putLong(address.high()).putLong(address.low());
    } else {
      bytes.putInt(address.ipv4());
    }
    bytes.putShort((short) endpoint.port());
  }
}
