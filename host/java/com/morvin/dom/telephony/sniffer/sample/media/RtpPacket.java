package com.morvin.dom.telephony.sniffer.sample.media;

import com.morvin.dom.telephony.sniffer.sample.transport.Frame;
import com.morvin.dom.telephony.sniffer.sample.transport.FrameCursor;
import com.morvin.dom.telephony.sniffer.sample.transport.Wire;
import java.io.DataInput;
import java.io.DataOutput;
import java.io.IOException;
import java.nio.ByteBuffer;
import java.util.Arrays;

/**
 * An RTP packet (RFC 3550) in the frame that carried it. One object serves all packets: {@link #read} makes it show
 * another one, in place. A packet that must wait is copied; see {@link #keep}.
 */
public final class RtpPacket {
  /** No saved frame is longer. */
  private static final int MAX_FRAME = 1 << 17;
  private static final int HEADER = 12;
  /** The memory of a copy in addition to the frame, in bytes. */
  private static final int OBJECT_BYTES = 120;

  private byte[] bytes;
  private int start;
  private int datagram;
  private int end;
  private int offset;
  private int length;
  private Codec codec;
  private long time;
  private boolean delayed;
  private boolean kept;
  /** The memory of its copies, in bytes. */
  private long copied;

  /** Shows the packet in a frame. Returns false when the frame holds no RTP packet. */
  public boolean read(FrameCursor frame) {
    if (delayed != frame.isDelayed()) {
      delayed = !delayed;
    }
    return read(frame.bytes(), frame.start(), frame.end());
  }

  private boolean read(byte[] frames, int from, int to) {
    if (bytes != frames) {
      bytes = frames;  // a reference costs more to write than to compare
    }
    start = from;
    datagram = Wire.payload(frames, from);
    end = to;
    if (end - datagram < HEADER || (bytes[datagram] & 0xc0) != 0x80) {
      return false;
    }
    offset = datagram + HEADER + 4 * (bytes[datagram] & 0x0f);
    if ((bytes[datagram] & 0x10) != 0) {
      if (offset + 4 > end) {
        return false;
      }
      offset += 4 + 4 * Wire.u16(bytes, offset + 2);
    }
    length = end - offset;
    if ((bytes[datagram] & 0x20) != 0 && length > 0) {
      // The last byte is the padding length. After a short datagram it may be Ethernet padding, which is zero.
      length -= bytes[end - 1] & 255;
    }
    return length >= 0;
  }

  /** Whether the datagram of a frame is RTCP. The packet type decides (RFC 5761), not the port. */
  public static boolean isRtcp(FrameCursor frame) {
    int at = frame.payload();
    return frame.end() - at >= 8 && (frame.bytes()[at] & 0xc0) == 0x80 && (frame.bytes()[at + 1] & 255) >= 200
        && (frame.bytes()[at + 1] & 255) <= 207;
  }

  /**
   * Whether the datagram of a frame is one of those that share the port with RTP and prepare it: STUN or DTLS (RFC
   * 7983).
   */
  public static boolean isSetup(FrameCursor frame) {
    int at = frame.payload();
    byte first = frame.end() - at > HEADER ? frame.bytes()[at] : -1;
    return first >= 0 && first <= 3 || first >= 20 && first <= 63;
  }

  /** Sets what the packet itself does not say: its codec, and its time of capture in milliseconds since 1970. */
  public void describe(Codec known, long captured) {
    if (codec != known) {
      codec = known;
    }
    time = captured;
  }

  /** Returns a packet that stays as it is. */
  RtpPacket keep() {
    if (kept) {
      return this;
    }
    RtpPacket packet = kept(Arrays.copyOfRange(bytes, start, end), codec, time);
    packet.delayed = delayed;
    copied += packet.memory();
    return packet;
  }

  /** Returns the memory of the copies that were made since the last call of this method, in bytes. */
  public long takeCopied() {
    long bytes = copied;
    copied = 0;
    return bytes;
  }

  /** Returns the approximate memory of a copy in bytes. */
  int memory() {
    return end - start + OBJECT_BYTES;
  }

  /** Returns the approximate memory of copies in bytes. */
  static long memory(Iterable<RtpPacket> copies) {
    long bytes = 0;
    for (RtpPacket packet : copies) {
      bytes += packet.memory();
    }
    return bytes;
  }

  private static RtpPacket kept(byte[] frame, Codec codec, long time) {
    RtpPacket packet = new RtpPacket();
    packet.read(frame, 0, frame.length);
    packet.describe(codec, time);
    packet.kept = true;
    return packet;
  }

  /** Whether the sniffer has stated the time of capture: that is by its clock, which may be slow. */
  boolean isDelayed() {
    return delayed;
  }

  /** Returns the payload type. */
  public int payloadType() {
    return bytes[datagram + 1] & 0x7f;
  }

  int sequence() {
    return Wire.u16(bytes, datagram + 2);
  }

  int timestamp() {
    return Wire.i32(bytes, datagram + 4);
  }

  /** Returns the synchronization source. */
  public int ssrc() {
    return Wire.i32(bytes, datagram + 8);
  }

  /** Returns the array that holds the payload. */
  byte[] bytes() {
    return bytes;
  }

  /** Returns the index of the payload. */
  int offset() {
    return offset;
  }

  /** Returns the length of the payload in bytes. */
  int length() {
    return length;
  }

  /** Returns 15 bits of the payload. A copy of a packet has the same ones. */
  int trace() {
    if (length < 8) {
      return 0;
    }
    int octets = 31 * Wire.i32(bytes, offset + length / 2 - 2) + Wire.i32(bytes, offset + length - 4);
    return octets * 0x9e3779b1 >>> 17;
  }

  Codec codec() {
    return codec;
  }

  long time() {
    return time;
  }

  /** Returns a copy of the frame. */
  Frame frame() {
    try {
      return Frame.of(ByteBuffer.wrap(bytes, start, end - start));
    } catch (IOException e) {
      throw new IllegalStateException(e);  // it was a frame when the packet was read
    }
  }

  void save(DataOutput out) throws IOException {
    out.writeInt(end - start);
    out.write(bytes, start, end - start);
    out.writeUTF(codec.name());
    out.writeUTF(codec.kind().name());
    out.writeLong(time);
  }

  static RtpPacket restore(DataInput in) throws IOException {
    int length = in.readInt();
    if (length < 0 || length > MAX_FRAME) {
      throw new IOException("a saved packet of " + length + " bytes");
    }
    byte[] frame = new byte[length];
    in.readFully(frame);
    Codec codec = new Codec(in.readUTF(), Codec.Kind.valueOf(in.readUTF()));
    return kept(frame, codec, in.readLong());
  }
}
