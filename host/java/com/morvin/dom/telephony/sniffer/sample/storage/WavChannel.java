package com.morvin.dom.telephony.sniffer.sample.storage;

import java.util.Arrays;

/**
 * The sound of one voice: a channel of a WAV file. G.711 is written as it came, octet by octet. The samples are
 * collected until the file is flushed. Belongs to the recorder thread.
 */
public final class WavChannel {
  /**
   * Samples on their way to the disk thread.
   *
   * @param length in bytes
   * @param start the place of the first sample in the file, in samples
   */
  record Piece(WavChannel channel, byte[] block, int length, long start) {
    long end() {
      return start + length / channel.sampleBytes;
    }

    void countMissing() {
      channel.file.countMissing(channel.number, length);
    }
  }

  private final WavFile file;
  private final int number;
  private final Encoding encoding;
  private final int sampleBytes;
  /** What is not passed to the disk thread yet; null when that is nothing, because ended calls wait for the disk. */
  private byte[] block;
  private int filled;
  private long samples;
  private long firstTime = Long.MAX_VALUE;
  /** The place of the first sample in the file. */
  private long start;
  private boolean placed;

  WavChannel(WavFile file, int number) {
    this.file = file;
    this.number = number;
    encoding = file.format().encoding();
    sampleBytes = encoding.bytes;
  }

  /** Continues the channel of an existing file. */
  void resume(long first, long count) {
    start = first;
    samples = count;
    placed = true;
  }

  /** Returns the file. */
  public WavFile file() {
    return file;
  }

  /** Returns the number of the channel in the file: 0 is the left or only one. */
  public int number() {
    return number;
  }

  /** Returns the sample rate in Hz. */
  public int rate() {
    return file.format().rate();
  }

  /** Returns the number of samples, including those that are not written yet. */
  public long samples() {
    return samples;
  }

  /** Returns the place of the first sample in the file, in samples. */
  public long start() {
    return start;
  }

  /** Returns the number of bytes that were dropped because too much waited for the disk. */
  public long missing() {
    return file.missing(number);
  }

  /** Whether the file has its maximum length. */
  public boolean full() {
    return (start + samples) * file.format().frame() >= WavFile.MAX_BYTES;
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

  /** States when the first sample was captured, in milliseconds since 1970. It gives the place in a shared file. */
  public void setFirstTime(long time) {
    firstTime = time;
  }

  long firstTime() {
    return firstTime;
  }

  /**
   * Takes back the last samples of a continued file, to which nothing was added yet: others are written in their place.
   * Returns false when something was.
   */
  public boolean rewind(int count) {
    boolean untouched = block == null;
    samples -= untouched ? count : 0;
    return untouched;
  }

  /** Takes back the last samples: others are written in their place. */
  public void takeBack(long count) {
    if (block != null && count * sampleBytes <= filled) {
      filled -= (int) count * sampleBytes;
    } else {
      file.pass();
    }
    samples -= count;
  }

  /** Finds the place of the first sample. Samples in the file move when it has turned out to be earlier. */
  private void place(long pending, boolean moves) {
    if (file.format().channels() == 1 || firstTime == Long.MAX_VALUE) {
      return;
    }
    long place = (firstTime - file.begin()) * rate() / 1000;
    if (!placed && pending > 0) {
      start = Math.max(0, place);
      placed = true;
    } else if (placed && moves && place >= 0 && place < start) {
      file.move(number, start, place, samples - pending);
      start = place;
    }
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
    keepWhole(length);
    for (int i = offset; i < offset + length; i++) {
      append(law[octets[i] & 255]);
    }
  }

  /** Appends samples. */
  public void write(short[] decoded) {
    keepWhole(decoded.length);
    for (short sample : decoded) {
      append(sample);
    }
  }

  /** Makes the samples of a packet come to the file together: after a restart a part of them is not recognized. */
  private void keepWhole(int count) {
    if (block != null && count * sampleBytes > block.length - filled) {
      file.pass();
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
      file.pass();
    }
    if (block == null) {
      block = file.newBlock();
      filled = 0;
    }
    return block.length - filled;
  }

  /** Appends silent samples. The disk thread fills the part between two blocks. */
  public void silence(long length) {
    long bytes = length * sampleBytes;
    if (block != null && bytes <= block.length - filled) {
      Arrays.fill(block, filled, filled + (int) bytes, encoding.silence);
      advance((int) bytes);
      return;
    }
    if (block != null) {
      file.pass();
    }
    samples += length;
  }

  /**
   * Takes the samples that are not passed to the disk thread yet; returns null when there are none.
   *
   * @param moves whether samples in the file may move
   */
  Piece take(boolean moves) {
    long pending = block == null ? 0 : filled / sampleBytes;
    place(pending, moves);
    if (block == null) {
      return null;
    }
    Piece piece = new Piece(this, collected(), filled, start + samples - pending);
    block = null;
    return piece;
  }

  /** Returns the collected bytes. A short piece gets an array of its length: thousands may wait for the disk. */
  private byte[] collected() {
    if (filled > block.length / 2) {
      return block;
    }
    byte[] bytes = Arrays.copyOf(block, filled);
    file.give(block);
    return bytes;
  }
}
