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
 * an ended call. It begins with the call, or with media that was captured earlier. Samples captured at the same time
 * are in the same place. A longer call continues in a second file, and so on.
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
   * @param next the start of the next stretch, by which this one ends
   * @param joined whether the sound goes on in the next stretch, so that this one is stretched or shortened to reach it
   */
  public record Stretch(WavFile file, long first, long count, long start, long next, boolean joined) {
    private long startFrame(int rate) {
      return start * rate / 1000;
    }

    /** Returns the number of frames that the samples take. */
    private long frames(int rate) {
      return joined ? Math.max(1, (next - start) * rate / 1000) : count * (rate / file.rate());
    }

    private long endFrame(int rate) {
      return Math.min(startFrame(rate) + frames(rate), next == Long.MAX_VALUE ? next : next * rate / 1000);
    }
  }

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
    List<Stretch> all = Stream.concat(left.stream(), right.stream()).toList();
    rate = all.stream().mapToInt(stretch -> stretch.file.rate()).max().orElse(0);
    long origin = Math.min(0, all.stream().mapToLong(stretch -> stretch.startFrame(rate)).min().orElse(0));
    long frames = all.stream().mapToLong(stretch -> stretch.endFrame(rate)).max().orElse(0) - origin;
    store.disk().admit(FRAME * frames);
    List<Path> paths = new ArrayList<>();
    List<CallReport.Part> parts = new ArrayList<>();
    try {
      for (long at = 0; at < frames; at += MAX_FRAMES) {
        Path path = store.create(name, "wav");
        paths.add(path);
        long count = Math.min(MAX_FRAMES, frames - at);
        write(path, origin + at, count);
        store.written(path);
        double offset = (origin + at) / (double) rate;
        parts.add(new CallReport.Part(path.getFileName().toString(), "", offset, count / (double) rate, List.of()));
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
      long start = stretch.startFrame(rate);
      long length = stretch.frames(rate);
      long from = Math.max(at, start);
      long to = Math.min(at + count, stretch.endFrame(rate));
      if (from >= to || stretch.file.path() == null) {
        continue;
      }
      any = true;
      long first = (from - start) * stretch.count / length;
      int needed = (int) ((to - 1 - start) * stretch.count / length - first) + 2;
      ByteBuffer samples = read(stretch.file.path(), stretch.first + first, needed);
      for (long frame = from; frame < to; frame++) {
        long position = (frame - start) * stretch.count;
        int sample = length == stretch.count ? sampleAt(samples, (int) (frame - start - first))
            : between(samples, (int) (position / length - first), position % length, length);
        int place = (int) (frame - at) * CHANNELS + channel;
        mixed[place] = (short) Math.min(Math.max(mixed[place] + sample, Short.MIN_VALUE), Short.MAX_VALUE);
      }
    }
    return any;
  }

  /** Returns the value at an index and a fraction of the way to the next sample. */
  private static int between(ByteBuffer samples, int index, long numerator, long denominator) {
    int sample = sampleAt(samples, index);
    return numerator == 0 ? sample
        : sample + (int) ((sampleAt(samples, index + 1) - sample) * numerator / denominator);
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
