package com.morvin.dom.telephony.sniffer.sample.storage;

import com.morvin.dom.telephony.sniffer.sample.transport.Frame;
import java.io.IOException;
import java.nio.ByteBuffer;
import java.nio.channels.FileChannel;
import java.nio.file.Path;

/**
 * A capture file of raw IP packets. It holds received datagrams, for which it makes IP and UDP headers. Belongs to the
 * recorder thread.
 */
public final class PcapFile extends StoredFile {
  private static final int HEADER = 24;
  private static final int BLOCK = 16 << 10;
  private static final int RECORD = 16;
  private static final int IP = 20;
  private static final int UDP = 8;
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
    int length = IP + UDP + payload.length;
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
    block.putShort((short) 0x4500).putShort((short) length).putInt(0x4000).putShort((short) 0x4011).putShort((short) 0)
        .putInt(frame.source().ip()).putInt(frame.destination().ip());
    block.putShort(ip + 10, checksum(block, ip));
    block.putShort((short) frame.source().port()).putShort((short) frame.destination().port())
        .putShort((short) (UDP + payload.length)).putShort((short) 0).put(payload);
  }

  private static short checksum(ByteBuffer bytes, int ip) {
    int sum = 0;
    for (int i = 0; i < IP; i += 2) {
      sum += bytes.getShort(ip + i) & 0xffff;
    }
    return (short) ~(sum + (sum >> 16));
  }

  @Override
  public void flush() {
    if (block != null) {
      ByteBuffer full = block.flip();
      block = null;
      submit(full.limit(), () -> store(full.duplicate()));
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
