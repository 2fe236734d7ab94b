package com.morvin.dom.telephony.sniffer.sample.storage;

import com.morvin.dom.telephony.sniffer.sample.transport.Endpoint;
import com.morvin.dom.telephony.sniffer.sample.transport.Frame;
import java.io.IOException;
import java.nio.ByteBuffer;
import java.nio.channels.FileChannel;
import java.nio.file.Path;
import java.util.List;

/**
 * A capture file of raw IP packets of both versions. It holds received datagrams, for which it makes IP and UDP
 * headers. Belongs to the recorder thread.
 */
public final class PcapFile extends StoredFile {
  private static final int HEADER = 24;
  private static final int BLOCK = 16 << 10;
  private static final int RECORD = 16;
  private static final int IPV4 = 20;
  private static final int IPV6 = 40;
  private static final int UDP = 8;
  private static final int UDP_NUMBER = 17;
  // The indexes of fields in their headers.
  private static final int IPV4_CHECKSUM = 10;
  private static final int IPV6_ADDRESSES = 8;
  private static final int UDP_CHECKSUM = 6;
  /** Packets that begin with an IP header of either version. */
  private static final int LINKTYPE_RAW = 101;

  private ByteBuffer block;  // null when all is flushed
  /** The size of the file in bytes. Belongs to the disk thread. */
  private long stored;

  /** Makes a new file, or continues the file of a path that is not null, which has a size in bytes. */
  PcapFile(Store store, String name, Path path, long stored) {
    super(store, name, "pcap", path);
    this.stored = stored;
  }

  /** Adds the datagram of a frame, captured at a time in milliseconds since 1970. */
  public void write(Frame frame, long millis) {
    byte[] payload = frame.payload();
    boolean ipv6 = frame.source().isIpv6() || frame.destination().isIpv6();
    int length = (ipv6 ? IPV6 : IPV4) + UDP + payload.length;
    if (length > 65535) {
      return;
    }
    if (block != null && block.remaining() < RECORD + length) {
      flush();
    }
    if (block == null) {
      block = ByteBuffer.allocate(Math.max(BLOCK, RECORD + length));
    }
    block.putInt((int) (millis / 1000)).putInt((int) (millis % 1000) * 1000).putInt(length).putInt(length);
    int ip = block.position();
    if (ipv6) {
      putIpv6(frame, UDP + payload.length);
    } else {
      putIpv4(frame, length);
    }
    int udp = block.position();
    block.putShort((short) frame.source().port()).putShort((short) frame.destination().port())
        .putShort((short) (UDP + payload.length)).putShort((short) 0).put(payload);
    if (ipv6) {
      // IPv6 has no checksum of its header, so that of UDP covers the addresses and is required.
      int checksum = checksum(block, ip + IPV6_ADDRESSES, block.position(), UDP_NUMBER + UDP + payload.length);
      block.putShort(udp + UDP_CHECKSUM, (short) (checksum == 0 ? 0xffff : checksum));
    }
  }

  private void putIpv4(Frame frame, int length) {
    int ip = block.position();
    block.putShort((short) 0x4500).putShort((short) length).putInt(0x4000).putShort((short) (0x4000 | UDP_NUMBER))
        .putShort((short) 0).putInt(frame.source().address().ipv4()).putInt(frame.destination().address().ipv4());
    block.putShort(ip + IPV4_CHECKSUM, (short) checksum(block, ip, ip + IPV4, 0));
  }

  private void putIpv6(Frame frame, int length) {
    block.putInt(0x6000_0000).putShort((short) length).put((byte) UDP_NUMBER).put((byte) 0x40);
    for (Endpoint end : List.of(frame.source(), frame.destination())) {
      block.putLong(end.address().high()).putLong(end.address().low());
    }
  }

  /** Returns the Internet checksum (RFC 1071) of a part of a buffer and of a further sum. */
  private static int checksum(ByteBuffer bytes, int from, int to, int further) {
    long sum = further;
    for (int i = from; i + 1 < to; i += 2) {
      sum += bytes.getShort(i) & 0xffff;
    }
    sum += (to - from) % 2 == 0 ? 0 : (bytes.get(to - 1) & 0xff) << 8;
    sum = (sum & 0xffff) + (sum >> 16);
    return (int) ~(sum + (sum >> 16)) & 0xffff;
  }

  /** Returns the number of bytes that were dropped because too much waited for the disk. */
  public long missing() {
    return missing(0);
  }

  @Override
  public void flush() {
    if (block != null) {
      ByteBuffer full = block.flip();
      block = null;
      submit(full.limit(), () -> store(full.duplicate()), () -> countMissing(0, full.limit()));
    }
  }

  /** Appends a block. A repeated try overwrites the part of the block that an earlier try has written. */
  private void store(ByteBuffer full) throws IOException {
    FileChannel file = open();
    if (stored == 0) {
      FileOperations.writeAll(file, header(), 0);
      stored = HEADER;
    }
    int size = full.remaining();
    FileOperations.writeAll(file, full, stored);
    stored += size;
  }

  @Override
  long size() {
    return stored;
  }

  private static ByteBuffer header() {
    return ByteBuffer.allocate(HEADER).putInt(0xa1b2c3d4).putShort((short) 2).putShort((short) 4).putInt(0).putInt(0)
        .putInt(65535).putInt(LINKTYPE_RAW).flip();
  }
}
