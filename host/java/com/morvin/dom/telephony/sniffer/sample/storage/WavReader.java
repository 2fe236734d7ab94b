package com.morvin.dom.telephony.sniffer.sample.storage;

import java.io.IOException;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.nio.channels.FileChannel;
import java.nio.file.Path;

/** Reads a WAV file of this program: 16-bit, A-law or mu-law. */
public final class WavReader implements AutoCloseable {
  private static final int HEADERS = 128;
  private static final int WINDOW = 64 << 10;
  private static final int FMT = 0x20746d66;
  private static final int DATA = 0x61746164;

  private final FileChannel file;
  private final ByteBuffer window = ByteBuffer.allocate(WINDOW).order(ByteOrder.LITTLE_ENDIAN);
  /** The place of the window in the file. */
  private long windowStart;
  private Encoding encoding;
  private int channels;
  private int rate;
  private long data;
  private long frames;

  /**
   * Opens a file.
   *
   * @throws IOException also when it is not such a file
   */
  public WavReader(Path path) throws IOException {
    file = FileChannel.open(path);
    try {
      readHeader(path);
    } catch (IOException | RuntimeException e) {
      file.close();
      throw e instanceof IOException fault ? fault : new IOException(path + " is not a WAV file", e);
    }
  }

  private void readHeader(Path path) throws IOException {
    fill(0);
    int at = 12;
    for (; at < HEADERS && window.getInt(at) != DATA; at += 8 + window.getInt(at + 4)) {
      if (window.getInt(at) == FMT) {
        int tag = window.getShort(at + 8);
        encoding = tag == Encoding.A_LAW.tag ? Encoding.A_LAW : tag == Encoding.MU_LAW.tag ? Encoding.MU_LAW
            : tag == Encoding.LINEAR.tag && window.getShort(at + 22) == 16 ? Encoding.LINEAR : null;
        channels = window.getShort(at + 10);
        rate = window.getInt(at + 12);
      }
    }
    if (encoding == null || channels < 1 || rate < 1 || at >= HEADERS) {
      throw new IOException(path + " is not a WAV file of this program");
    }
    data = at + 8;
    frames = (window.getInt(at + 4) & 0xffff_ffffL) / frame();
  }

  private int frame() {
    return channels * encoding.bytes;
  }

  /** Returns the sample rate in Hz. */
  public int rate() {
    return rate;
  }

  /** Returns the number of channels. */
  public int channels() {
    return channels;
  }

  /** Returns the number of samples in each channel. */
  public long frames() {
    return frames;
  }

  /** Returns the largest absolute value of some samples of a channel, 16-bit: every so many frames. */
  public int peak(int channel, long from, long to, int step) throws IOException {
    int frame = frame();
    int peak = 0;
    for (long at = from; at < to;) {
      long start = data + at * frame + (long) channel * encoding.bytes;
      if (start < windowStart || start + encoding.bytes > windowStart + window.limit()) {
        fill(start);
      }
      long fit = (windowStart + window.limit() - start - encoding.bytes) / frame;
      if (fit < 0 || window.limit() < encoding.bytes) {
        return peak;  // the file is shorter than its header says
      }
      int count = (int) Math.min((to - at + step - 1) / step, fit / step + 1);
      peak = Math.max(peak, peak((int) (start - windowStart), count, frame * step));
      at += (long) count * step;
    }
    return peak;
  }

  private int peak(int index, int count, int step) {
    if (encoding != Encoding.LINEAR) {
      return lawPeak(window.array(), index, count, step);
    }
    int peak = 0;
    for (int i = 0, at = index; i < count; i++, at += step) {
      peak = Math.max(peak, Math.abs(window.getShort(at)));
    }
    return peak;
  }

  /** In G.711 seven bits, some of them inverted, grow with the absolute value: only the largest one is decoded. */
  private int lawPeak(byte[] octets, int index, int count, int step) {
    int inverted = encoding.inverted;
    int largest = 0;
    for (int i = 0, at = index; i < count; i++, at += step) {
      largest = Math.max(largest, (octets[at] ^ inverted) & 0x7f);
    }
    return Math.abs(encoding.samples()[largest ^ inverted & 0x7f]);
  }

  private void fill(long at) throws IOException {
    window.clear();
    windowStart = at;
    while (window.hasRemaining() && file.read(window, at + window.position()) >= 0) {
      // The window is filled as far as the file goes.
    }
    window.flip();
  }

  @Override
  public void close() throws IOException {
    file.close();
  }
}
