package com.morvin.dom.telephony.sniffer.sample.storage;

import java.io.IOException;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.nio.channels.FileChannel;
import java.nio.charset.StandardCharsets;
import java.nio.file.Path;

/**
 * A mono WAV file of 16-bit samples. The header is updated with each block, so the file can be played even after the
 * recorder was killed. Each block has a fixed place, so a dropped block leaves silence. Belongs to the recorder thread.
 */
public final class WavFile extends StoredFile {
  /** The length of the header in bytes. */
  static final int HEADER = 44;
  private static final int BYTES = 2;
  /** The longest file: 1 GiB, or 18 hours at 8000 Hz. Many programs read at most 2 GiB of a WAV file. */
  private static final long MAX_SAMPLES = 512L << 20;

  private final int rate;
  /** The samples of the last second; null when all are flushed, because ended calls wait for the disk with it. */
  private ByteBuffer block;
  private long samples;

  /**
   * Makes a new file, or continues an existing one after its samples.
   *
   * @param path null for a new file
   */
  WavFile(Store store, String name, int rate, Path path, long samples) {
    super(store, name, "wav", path);
    this.rate = rate;
    this.samples = samples;
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
    return samples >= MAX_SAMPLES;
  }

  /** Appends samples. */
  public void write(short[] decoded) {
    for (short sample : decoded) {
      if (block != null && !block.hasRemaining()) {
        flush();
      }
      if (block == null) {
        block = ByteBuffer.allocate(BYTES * rate).order(ByteOrder.LITTLE_ENDIAN);
      }
      block.putShort(sample);
      samples++;
    }
  }

  /** Appends a number of zero samples. */
  public void silence(long length) {
    if (block != null && length * BYTES <= block.remaining()) {
      block.position(block.position() + (int) length * BYTES);
      samples += length;
    } else {
      // A part that is never written is read as zeros.
      flush();
      samples += length;
    }
  }

  @Override
  public void flush() {
    if (block != null) {
      ByteBuffer full = block.flip();
      long end = samples;
      block = null;
      submit(full.limit(), () -> store(full.duplicate(), end));
    }
  }

  private void store(ByteBuffer full, long end) throws IOException {
    try (FileChannel file = open()) {
      FileOperations.writeAll(file, full, HEADER + end * BYTES - full.remaining());
      FileOperations.writeAll(file, header(1, rate, end), 0);
    }
  }

  /** Returns the header of a file with a number of samples in each channel. */
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

  /** Returns the number of samples in a file of a size in bytes. */
  static long samplesIn(long size) {
    return Math.max(0, size - HEADER) / BYTES;
  }
}
