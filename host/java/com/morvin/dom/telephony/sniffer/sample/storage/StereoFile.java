package com.morvin.dom.telephony.sniffer.sample.storage;

import java.io.IOException;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.nio.channels.FileChannel;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.StandardOpenOption;
import java.util.ArrayList;
import java.util.List;
import java.util.stream.Stream;

/**
 * Writes both directions of a call into a WAV file, caller left, callee right. The file is made from the mono files of
 * an ended call. It begins with the call, so samples captured at the same time are in the same place. A longer call
 * continues in a second file, and so on.
 */
public final class StereoFile {
  private static final int CHANNELS = 2;
  private static final int FRAME = 2 * CHANNELS;
  /** The longest file: 1 GiB, or 4.6 hours at 16 kHz. Many programs read at most 2 GiB of a WAV file. */
  private static final long MAX_FRAMES = 256L << 20;
  private static final int BLOCK_FRAMES = 1 << 16;

  /**
   * A stretch of a mono file without a pause.
   *
   * @param first the index of its first sample
   * @param count the number of samples
   * @param start the time of capture of the first sample, in milliseconds since the start of the call
   */
  public record Stretch(WavFile file, long first, long count, long start) {}

  private final Store store;
  private final List<Stretch> left;
  private final List<Stretch> right;
  private int rate;

  private StereoFile(Store store, List<Stretch> left, List<Stretch> right) {
    this.store = store;
    this.left = left;
    this.right = right;
  }

  /** Writes the files. Called on the disk thread. */
  static List<CallReport.Part> write(Store store, String name, List<Stretch> left, List<Stretch> right)
      throws IOException {
    return new StereoFile(store, left, right).write(name);
  }

  private List<CallReport.Part> write(String name) throws IOException {
    long millis = 0;
    for (Stretch stretch : Stream.concat(left.stream(), right.stream()).toList()) {
      rate = Math.max(rate, stretch.file.rate());
      millis = Math.max(millis, stretch.start + stretch.count * 1000 / stretch.file.rate());
    }
    long frames = millis * rate / 1000;
    store.disk().admit(FRAME * frames);
    List<Path> paths = new ArrayList<>();
    List<CallReport.Part> parts = new ArrayList<>();
    try {
      for (long at = 0; at < frames; at += MAX_FRAMES) {
        Path path = store.create(name, "wav");
        paths.add(path);
        long count = Math.min(MAX_FRAMES, frames - at);
        write(path, at, count);
        store.written(path);
        parts.add(new CallReport.Part(path.getFileName().toString(), "", at / (double) rate, count / (double) rate,
            List.of()));
      }
      return parts;
    } catch (IOException e) {
      for (Path path : paths) {
        Files.deleteIfExists(path);  // a repeated try may use another name
      }
      throw e;
    }
  }

  /** Writes a file with the frames from a number on. Blocks of silence become holes in the file. */
  private void write(Path path, long start, long frames) throws IOException {
    try (FileChannel out = FileChannel.open(path, StandardOpenOption.WRITE)) {
      FileOperations.writeAll(out, WavFile.header(CHANNELS, rate, frames), 0);
      for (long at = 0; at < frames; at += BLOCK_FRAMES) {
        if (store.disk().isOverdue()) {
          throw new Disk.LeftOutException("no time is left for " + path.getFileName());
        }
        int count = (int) Math.min(BLOCK_FRAMES, frames - at);
        short[] mixed = new short[CHANNELS * count];
        boolean sound = mix(left, start + at, count, mixed, 0) | mix(right, start + at, count, mixed, 1);
        if (sound || at + count == frames) {
          ByteBuffer bytes = ByteBuffer.allocate(2 * mixed.length).order(ByteOrder.LITTLE_ENDIAN);
          bytes.asShortBuffer().put(mixed);
          FileOperations.writeAll(out, bytes, WavFile.HEADER + at * FRAME);
        }
      }
    }
  }

  /** Adds the samples of a block to one channel. Returns whether there were any. */
  private boolean mix(List<Stretch> stretches, long at, int count, short[] mixed, int channel) throws IOException {
    boolean any = false;
    for (Stretch stretch : stretches) {
      int times = rate / stretch.file.rate();
      long start = stretch.start * rate / 1000;
      long from = Math.max(at, start);
      long to = Math.min(at + count, start + stretch.count * times);
      if (from >= to || stretch.file.path() == null) {
        continue;
      }
      any = true;
      long first = stretch.first + (from - start) / times;
      ByteBuffer samples = read(stretch.file.path(), first, (int) ((to - from) / times) + 2);
      for (long frame = from; frame < to; frame++) {
        long position = frame - start;
        int index = (int) (stretch.first + position / times - first);
        int phase = (int) (position % times);
        int sample = between(samples, index, phase, times);
        int place = (int) (frame - at) * CHANNELS + channel;
        mixed[place] = (short) Math.min(Math.max(mixed[place] + sample, Short.MIN_VALUE), Short.MAX_VALUE);
      }
    }
    return any;
  }

  private static int between(ByteBuffer samples, int index, int phase, int times) {
    int sample = sampleAt(samples, index);
    return phase == 0 ? sample : sample + (sampleAt(samples, index + 1) - sample) * phase / times;
  }

  private static int sampleAt(ByteBuffer samples, int index) {
    return 2 * index + 2 <= samples.limit() ? samples.getShort(2 * index) : 0;
  }

  private static ByteBuffer read(Path path, long first, int count) throws IOException {
    ByteBuffer samples = ByteBuffer.allocate(2 * count).order(ByteOrder.LITTLE_ENDIAN);
    try (FileChannel file = FileChannel.open(path, StandardOpenOption.READ)) {
      for (long at = WavFile.HEADER + 2 * first; samples.hasRemaining();) {
        int length = file.read(samples, at);
        if (length < 0) {
          break;
        }
        at += length;
      }
    }
    return samples.flip();
  }
}
