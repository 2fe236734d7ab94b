package com.morvin.dom.telephony.sniffer.sample.transport;

import java.lang.invoke.MethodHandles;
import java.lang.invoke.VarHandle;
import java.nio.ByteOrder;

/** Reads numbers in network byte order from an array, and the fields of a frame in it. */
public final class Wire {
  /** The index of the protocol in a frame. */
  static final int PROTOCOL = 2;
  private static final int DESTINATION = 3;
  private static final int SOURCE_PORT_END = 15;
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

  /** Returns the destination of the frame at an index; see {@link Endpoint#key}. */
  static long destination(byte[] bytes, int frame) {
    return i64(bytes, frame + DESTINATION) >>> 16;
  }

  /** Returns the source of the frame at an index; see {@link Endpoint#key}. */
  static long source(byte[] bytes, int frame) {
    return i64(bytes, frame + SOURCE_PORT_END - Long.BYTES) & ENDPOINT_BITS;
  }
}
