package com.morvin.dom.telephony.sniffer.sample.storage;

import java.io.BufferedInputStream;
import java.io.BufferedOutputStream;
import java.io.DataInputStream;
import java.io.DataOutputStream;
import java.io.IOException;
import java.io.InputStream;
import java.io.OutputStream;
import java.nio.ByteBuffer;
import java.nio.channels.Channels;
import java.nio.channels.FileChannel;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.zip.CRC32;

/**
 * The file with the state of the running calls: batches, each with its length and a checksum before it. A batch is
 * written and read in pieces: all states together can take a large part of the memory. {@link #read} is called before
 * all other methods, which belong to the disk thread.
 */
final class Checkpoint {
  private static final int BUFFER = 64 << 10;
  private static final int HEADER = 2 * Integer.BYTES;

  /** Writes the content of a batch. */
  interface Content {
    void write(DataOutputStream out) throws IOException;
  }

  /** Reads the content of a batch. The stream ends with the batch. */
  interface Reader {
    void read(DataInputStream in) throws IOException;
  }

  private final Path file;

  Checkpoint(Path file) {
    this.file = file;
  }

  boolean exists() {
    return Files.exists(file);
  }

  /** Returns the size in bytes. */
  long size() throws IOException {
    return Files.size(file);
  }

  @Override
  public String toString() {
    return file.toString();
  }

  /** Replaces all batches by one. It is on the disk afterwards. */
  void replace(Content content) throws IOException {
    FileOperations.replace(file, channel -> write(channel, 0, content));
    FileOperations.syncNames(file.getParent());
  }

  /** Appends a batch, which is on the disk afterwards, or nothing. */
  void append(Content content) throws IOException {
    FileOperations.append(file, (channel, end) -> {
      write(channel, end, content);
      channel.force(true);
    });
  }

  /** Writes a batch to a place in a file. Its header comes last: without it, the batch is no complete one. */
  private static void write(FileChannel channel, long start, Content content) throws IOException {
    CRC32 checksum = new CRC32();
    ByteBuffer header = ByteBuffer.allocate(HEADER);
    FileOperations.writeAll(channel, header.duplicate(), start);
    channel.position(start + HEADER);
    OutputStream summed = new OutputStream() {
      @Override
      public void write(int octet) throws IOException {
        write(new byte[] {(byte) octet}, 0, 1);
      }

      @Override
      public void write(byte[] bytes, int offset, int length) throws IOException {
        checksum.update(bytes, offset, length);
        for (ByteBuffer rest = ByteBuffer.wrap(bytes, offset, length); rest.hasRemaining();) {
          channel.write(rest);
        }
      }
    };
    DataOutputStream out = new DataOutputStream(new BufferedOutputStream(summed, BUFFER));
    content.write(out);
    out.flush();
    int length = Math.toIntExact(channel.position() - start - HEADER);
    header.putInt(length).putInt((int) checksum.getValue()).flip();
    FileOperations.writeAll(channel, header, start);
  }

  /**
   * Reads the batches, oldest first. The last one is left out when it is incomplete: the machine has crashed meanwhile.
   *
   * @param mostWithoutBatches a file that begins with no greater number is of a version that wrote no batches
   * @return whether the file has batches
   * @throws IOException also when the first one is damaged
   */
  boolean read(int mostWithoutBatches, Reader reader) throws IOException {
    try (FileChannel channel = FileChannel.open(file)) {
      int first = header(channel, 0).getInt();
      if (first > 0 && first <= mostWithoutBatches) {
        return false;
      }
      int length = lengthAt(channel, 0);
      if (length == 0) {
        throw new IOException(file + " is damaged");
      }
      for (long at = 0; length > 0; length = lengthAt(channel, at)) {
        reader.read(new DataInputStream(content(channel, at, length)));
        at += HEADER + length;
      }
      return true;
    }
  }

  /** Returns the header at a place, which is zero where the file has ended. */
  private static ByteBuffer header(FileChannel channel, long at) throws IOException {
    ByteBuffer header = ByteBuffer.allocate(HEADER);
    FileOperations.readAll(channel, header, at);
    return header.rewind();
  }

  /** Returns the content of a batch as a stream, which ends with the batch. */
  private static InputStream content(FileChannel channel, long at, int length) throws IOException {
    InputStream rest = Channels.newInputStream(channel.position(at + HEADER));
    return new BufferedInputStream(new InputStream() {
      private int left = length;

      @Override
      public int read() throws IOException {
        byte[] octet = new byte[1];
        return read(octet, 0, 1) < 0 ? -1 : octet[0] & 0xff;
      }

      @Override
      public int read(byte[] bytes, int offset, int most) throws IOException {
        int count = left == 0 ? -1 : rest.read(bytes, offset, Math.min(most, left));
        left -= Math.max(0, count);
        return count;
      }

      @Override
      public int available() {
        return left;
      }
    }, BUFFER);
  }

  /** Returns the length of a complete batch without its header, or else 0. */
  private static int lengthAt(FileChannel channel, long at) throws IOException {
    ByteBuffer header = header(channel, at);
    int length = header.getInt();
    if (length <= 0 || length > channel.size() - at - HEADER) {
      return 0;
    }
    CRC32 checksum = new CRC32();
    ByteBuffer piece = ByteBuffer.allocate(BUFFER);
    for (int done = 0; done < length; done += piece.limit()) {
      piece.clear().limit(Math.min(BUFFER, length - done));
      FileOperations.readAll(channel, piece, at + HEADER + done);
      checksum.update(piece.flip());
    }
    return (int) checksum.getValue() == header.getInt() ? length : 0;
  }
}
