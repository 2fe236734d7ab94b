package com.morvin.dom.telephony.sniffer.sample.storage;

import java.io.IOException;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.nio.channels.FileChannel;
import java.nio.charset.StandardCharsets;
import java.nio.file.Path;
import java.util.Arrays;

/**
 * A mono WAV file. G.711 is written as it came, octet by octet. The header is updated with each block, so the file can
 * be played even after the recorder was killed. Each block has a fixed place, so a dropped block leaves silence.
 * Belongs to the recorder thread.
 */
public final class WavFile extends StoredFile {
  /** The longest file: 1 GiB, or 37 hours of G.711. Many programs read at most 2 GiB of a WAV file. */
  private static final long MAX_BYTES = 1 << 30;
  private static final int LINEAR_HEADER = 44;
  /** With the extension of the format and the fact chunk, which other formats than 16-bit need. */
  private static final int OTHER_HEADER = 58;

  /** The encoding and the sample rate in Hz of a file. */
  public record Format(Encoding encoding, int rate) {
    /** Returns the length of a second in bytes. */
    int bytesPerSecond() {
      return rate * encoding.bytes;
    }

    /** Returns the length of the header in bytes. */
    int header() {
      return encoding == Encoding.LINEAR ? LINEAR_HEADER : OTHER_HEADER;
    }

    /** Returns the number of samples in a mono file of a size in bytes. */
    long samplesIn(long size) {
      return Math.max(0, size - header()) / encoding.bytes;
    }
  }

  private final Format format;
  private final Encoding encoding;
  private final int rate;
  private final int sampleBytes;
  /** What is not passed to the disk thread yet; null when that is nothing, because ended calls wait for the disk. */
  private byte[] block;
  private int filled;
  private long samples;
  /** The size of the file on the disk in bytes. Belongs to the disk thread. */
  private long stored;

  /**
   * Makes a new file, or continues an existing one after its samples.
   *
   * @param path null for a new file
   * @param stored the size of the existing file in bytes
   */
  WavFile(Store store, String name, Format format, Path path, long samples, long stored) {
    super(store, name, "wav", path);
    this.format = format;
    encoding = format.encoding;
    rate = format.rate;
    sampleBytes = encoding.bytes;
    this.samples = samples;
    this.stored = stored;
  }

  /** Returns the format. */
  public Format format() {
    return format;
  }

  /** Returns the sample rate in Hz. */
  public int rate() {
    return rate;
  }

  /** Returns the number of samples, including those that are not written yet. */
  public long samples() {
    return samples;
  }

  /** Whether the file has its maximum length. */
  public boolean full() {
    return samples * sampleBytes >= MAX_BYTES;
  }

  /** Reads the values that a packet needs. Returns any value. */
  public int touch() {
    return filled + sampleBytes;
  }

  /** Reads the places where the next packet is written. Returns any value. */
  public int touchBlock() {
    byte[] next = block;
    if (next == null) {
      return 0;
    }
    int last = next.length - 1;
    return next[Math.min(filled, last)] + next[Math.min(filled + 64, last)] + next[Math.min(filled + 128, last)];
  }

  /**
   * Appends octets of G.711. Those of the other law are replaced by the nearest ones of the law of the file.
   *
   * @param law the encoding of the octets
   */
  public void write(byte[] octets, int offset, int length, Encoding law) {
    if (encoding != law) {
      convert(octets, offset, length, law.samples());
      return;
    }
    for (int done = 0; done < length;) {
      int count = Math.min(room(), length - done);
      System.arraycopy(octets, offset + done, block, filled, count);
      advance(count);
      done += count;
    }
  }

  private void convert(byte[] octets, int offset, int length, short[] law) {
    for (int i = offset; i < offset + length; i++) {
      append(law[octets[i] & 255]);
    }
  }

  /** Appends samples. */
  public void write(short[] decoded) {
    for (short sample : decoded) {
      append(sample);
    }
  }

  private void append(short sample) {
    room();
    if (encoding == Encoding.LINEAR) {
      block[filled] = (byte) sample;
      block[filled + 1] = (byte) (sample >> 8);
    } else {
      block[filled] = encoding.octets()[sample & 0xffff];
    }
    advance(sampleBytes);
  }

  private void advance(int bytes) {
    filled += bytes;
    samples += bytes / sampleBytes;
  }

  /** Returns the room in the block, which is not 0. */
  private int room() {
    if (block != null && filled == block.length) {
      flush();
    }
    if (block == null) {
      block = store.blocks().take(format.bytesPerSecond());
      filled = 0;
    }
    return block.length - filled;
  }

  /** Appends silent samples. */
  public void silence(long length) {
    long bytes = length * sampleBytes;
    if (block != null && bytes <= block.length - filled) {
      Arrays.fill(block, filled, filled + (int) bytes, encoding.silence);
      advance((int) bytes);
    } else {
      // The disk thread fills the part between two blocks.
      flush();
      samples += length;
    }
  }

  @Override
  public void flush() {
    if (block != null) {
      byte[] full = block;
      int length = filled;
      long end = samples;
      block = null;
      submit(length, () -> store(full, length, end));
    }
  }

  private void store(byte[] full, int length, long end) throws IOException {
    FileChannel file = open();
    int header = format.header();
    long size = header + end * sampleBytes;
    if (encoding != Encoding.LINEAR) {
      fill(file, Math.max(stored, header), size - length);
    }
    FileOperations.writeAll(file, ByteBuffer.wrap(full, 0, length), size - length);
    FileOperations.writeAll(file, header(format, 1, end), 0);
    stored = size;
    store.blocks().give(full);
  }

  /** Writes silence into a part of the file. What is never written is read as zeros, which is silence in 16 bits. */
  private void fill(FileChannel file, long from, long to) throws IOException {
    byte[] silence = new byte[(int) Math.max(0, Math.min(to - from, 1 << 16))];
    Arrays.fill(silence, encoding.silence);
    for (long at = from; at < to; at += silence.length) {
      FileOperations.writeAll(file, ByteBuffer.wrap(silence, 0, (int) Math.min(silence.length, to - at)), at);
    }
  }

  @Override
  long size() {
    return stored;
  }

  /** Returns the header of a file with a number of samples in each channel. */
  static ByteBuffer header(Format format, int channels, long samples) {
    int frame = channels * format.encoding.bytes;
    int data = (int) (samples * frame);
    boolean linear = format.encoding == Encoding.LINEAR;
    ByteBuffer header = ByteBuffer.allocate(format.header()).order(ByteOrder.LITTLE_ENDIAN)
        .put(ascii("RIFF")).putInt(format.header() - 8 + data).put(ascii("WAVE"))
        .put(ascii("fmt ")).putInt(linear ? 16 : 18).putShort((short) format.encoding.tag).putShort((short) channels)
        .putInt(format.rate).putInt(format.rate * frame).putShort((short) frame)
        .putShort((short) (8 * format.encoding.bytes));
    if (!linear) {
      header.putShort((short) 0).put(ascii("fact")).putInt(4).putInt((int) samples);
    }
    return header.put(ascii("data")).putInt(data).flip();
  }

  private static byte[] ascii(String text) {
    return text.getBytes(StandardCharsets.US_ASCII);
  }
}
