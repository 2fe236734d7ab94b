package com.morvin.dom.telephony.sniffer.sample.storage;

import java.io.IOException;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.nio.channels.FileChannel;
import java.nio.charset.StandardCharsets;
import java.nio.file.Path;

/**
 * A WAV file of 16-bit samples. Its header is right whenever something has been written, so what has been recorded can
 * be played even after the recorder was killed. Each block has its place: one that is dropped leaves silence.
 */
public final class WavFile extends StoredFile {
  /** The header in front of the samples. */
  static final int HEADER = 44;
  private static final int BYTES = 2;
  /** A WAV file cannot exceed 4 GiB, and many programs stop at 2; at 8,000 samples a second this is 18 hours. */
  private static final long MAX_SAMPLES = 512L << 20;

  private final int rate;
  private ByteBuffer block;
  private long samples;

  /**
   * A file that has its content still to come, or that goes on behind the samples that it holds.
   *
   * @param path null for a new one
   */
  WavFile(Store store, String name, int rate, Path path, long samples) {
    super(store, name, "wav", path);
    this.rate = rate;
    this.samples = samples;
    block = newBlock();
  }

  private ByteBuffer newBlock() {
    return ByteBuffer.allocate(BYTES * rate).order(ByteOrder.LITTLE_ENDIAN);
  }

  public int rate() {
    return rate;
  }

  public long samples() {
    return samples;
  }

  public boolean full() {
    return samples >= MAX_SAMPLES;
  }

  public void write(short[] decoded) {
    for (short sample : decoded) {
      if (!block.hasRemaining()) {
        flush();
      }
      block.putShort(sample);
      samples++;
    }
  }

  public void silence(long length) {
    if (length * BYTES <= block.remaining()) {
      block.position(block.position() + (int) length * BYTES);
      samples += length;
    } else {
      // What is never written reads as zeros.
      flush();
      samples += length;
    }
  }

  @Override
  public void flush() {
    if (block.position() > 0) {
      ByteBuffer full = block.flip();
      long end = samples;
      block = newBlock();
      submit(full.limit(), () -> store(full.duplicate(), end));
    }
  }

  private void store(ByteBuffer full, long end) throws IOException {
    try (FileChannel file = open()) {
      writeAll(file, full, HEADER + end * BYTES - full.remaining());
      writeAll(file, header(1, rate, end), 0);
    }
  }

  static void writeAll(FileChannel file, ByteBuffer bytes, long position) throws IOException {
    for (long at = position; bytes.hasRemaining();) {
      at += file.write(bytes, at);
    }
  }

  /** The header of a file with so many samples a channel. */
  static ByteBuffer header(int channels, int rate, long samples) {
    int data = (int) (samples * channels * BYTES);
    return ByteBuffer.allocate(HEADER).order(ByteOrder.LITTLE_ENDIAN)
        .put(ascii("RIFF")).putInt(HEADER - 8 + data).put(ascii("WAVE"))
        .put(ascii("fmt ")).putInt(16).putShort((short) 1).putShort((short) channels).putInt(rate)
        .putInt(rate * channels * BYTES).putShort((short) (channels * BYTES)).putShort((short) (8 * BYTES))
        .put(ascii("data")).putInt(data).flip();
  }

  private static byte[] ascii(String text) {
    return text.getBytes(StandardCharsets.US_ASCII);
  }

  /** The samples in a file of that size. */
  static long samplesIn(long size) {
    return Math.max(0, size - HEADER) / BYTES;
  }
}
