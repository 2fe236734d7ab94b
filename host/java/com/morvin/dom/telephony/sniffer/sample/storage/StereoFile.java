package com.morvin.dom.telephony.sniffer.sample.storage;

import java.io.IOException;
import java.nio.ByteBuffer;
import java.nio.channels.FileChannel;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.StandardOpenOption;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.stream.Stream;

/**
 * Writes both directions of an ended call into a WAV file, caller left, callee right. It begins with the call, or with
 * media that was captured earlier. Samples captured at the same time are in the same place. A longer call continues in
 * a second file, and so on.
 *
 * <p>Mostly both voices were written to one file while the call ran, and all samples are in their place: then that file
 * is the result. Otherwise the result is made from the files of the call. When all of them have the same encoding, it
 * has it, too, and octets of G.711 are copied as they are. Otherwise it has 16-bit samples, so that nothing is lost by
 * a conversion.
 */
public final class StereoFile {
  private static final int CHANNELS = 2;
  /** Large pieces cost the file system less. */
  static final int BLOCK_FRAMES = 1 << 16;

  /**
   * A stretch of a voice without a pause.
   *
   * @param first the index of its first sample
   * @param count the number of samples
   * @param start the time of capture of the first sample, in milliseconds since the start of the call
   * @param next the start of the next stretch, by which this one ends
   * @param joined whether the sound goes on in the next stretch, so that this one is stretched or shortened to reach it
   */
  public record Stretch(WavChannel channel, long first, long count, long start, long next, boolean joined) {
    private long startFrame(int rate) {
      return start * rate / 1000;
    }

    /** Returns the number of frames that the samples take. */
    private long frames(int rate) {
      return joined ? Math.max(1, (next - start) * rate / 1000) : count * (rate / channel.rate());
    }

    private long endFrame(int rate) {
      return Math.min(startFrame(rate) + frames(rate), next == Long.MAX_VALUE ? next : next * rate / 1000);
    }

    /** Whether its samples are in their place in a channel of a file. */
    private boolean isInPlace(WavFile file, int number, long callStart) {
      return channel.file() == file && channel.number() == number
          && startFrame(channel.rate()) == origin(file, callStart) + channel.start() + first;
    }

    /** Whether it has frames in a range. It has none at all when the next one begins earlier. */
    private boolean isWithin(long from, long to, int rate) {
      return Math.max(from, startFrame(rate)) < Math.min(to, endFrame(rate));
    }
  }

  /** The arrays of a block. They serve all files of a store one after the other. Belongs to the disk thread. */
  static final class Buffers {
    private final byte[][] octets = new byte[CHANNELS][BLOCK_FRAMES];
    private final short[][] samples = new short[CHANNELS][BLOCK_FRAMES];
    private final byte[] interleaved = new byte[CHANNELS * Short.BYTES * BLOCK_FRAMES];

    byte[] interleaved() {
      return interleaved;
    }
  }

  /** One channel: the stretches that are heard there, and its part of the current block. */
  private final class Channel {
    private final List<Stretch> stretches;
    private final byte[] octets;
    private final short[] samples;
    private boolean hasSamples;

    Channel(List<Stretch> all, int number) {
      stretches = all.stream().filter(stretch -> stretch.channel.file().path() != null).toList();
      octets = buffers.octets[number];
      samples = buffers.samples[number];
    }

    /** Reads the frames from a number on. Returns whether there is sound. */
    boolean read(long at, int count) throws IOException {
      List<Stretch> heard = stretches.stream().filter(stretch -> stretch.isWithin(at, at + count, format.rate()))
          .toList();
      hasSamples = format.encoding() == Encoding.LINEAR || !areCopied(heard);
      if (hasSamples) {
        Arrays.fill(samples, 0, count, (short) 0);
      } else {
        Arrays.fill(octets, 0, count, format.encoding().silence);
      }
      for (Stretch stretch : heard) {
        read(stretch, at, count);
      }
      return !heard.isEmpty();
    }

    /** Whether the octets can be copied: nothing is mixed or stretched. */
    private boolean areCopied(List<Stretch> heard) {
      long end = Long.MIN_VALUE;
      for (Stretch stretch : heard) {
        if (stretch.frames(format.rate()) != stretch.count || stretch.startFrame(format.rate()) < end) {
          return false;
        }
        end = stretch.endFrame(format.rate());
      }
      return true;
    }

    private void read(Stretch stretch, long at, int count) throws IOException {
      long start = stretch.startFrame(format.rate());
      long from = Math.max(at, start);
      long to = Math.min(at + count, stretch.endFrame(format.rate()));
      if (!hasSamples) {
        stretch.channel.file().read(stretch.channel, stretch.first + from - start, octets, (int) (from - at),
            (int) (to - from));
        return;
      }
      long length = stretch.frames(format.rate());
      long first = (from - start) * stretch.count / length;
      int needed = (int) ((to - 1 - start) * stretch.count / length - first) + 2;
      short[] source = samples(stretch.channel, stretch.first + first, needed);
      for (long frame = from; frame < to; frame++) {
        long position = (frame - start) * stretch.count;
        int sample = length == stretch.count ? source[(int) (frame - start - first)]
            : between(source, (int) (position / length - first), position % length, length);
        int place = (int) (frame - at);
        samples[place] = (short) Math.min(Math.max(samples[place] + sample, Short.MIN_VALUE), Short.MAX_VALUE);
      }
    }

    /** Returns what the block holds, octets or samples, as octets. */
    byte[] octets(int count) {
      for (int i = 0; hasSamples && i < count; i++) {
        octets[i] = format.encoding().octets()[samples[i] & 0xffff];
      }
      return octets;
    }
  }

  private final Store store;
  private final WavFile.Format format;
  private final Buffers buffers;
  private final Channel left;
  private final Channel right;

  private StereoFile(Store store, WavFile.Format format, List<Stretch> left, List<Stretch> right) {
    this.store = store;
    this.format = format;
    buffers = store.stereoBuffers();
    this.left = new Channel(left, 0);
    this.right = new Channel(right, 1);
  }

  /**
   * Writes the files. Called on the disk thread.
   *
   * @param callStart in milliseconds since 1970
   * @param shared the file of both voices while the call ran, which becomes the first one; null when there was none
   */
  static List<CallReport.Part> write(Store store, String name, long callStart, WavFile shared, List<Stretch> left,
      List<Stretch> right) throws IOException {
    if (shared != null && left.stream().allMatch(stretch -> stretch.isInPlace(shared, 0, callStart))
        && right.stream().allMatch(stretch -> stretch.isInPlace(shared, 1, callStart))) {
      return List.of(whole(shared, callStart));
    }
    List<Stretch> all = Stream.concat(left.stream(), right.stream()).toList();
    int rate = all.stream().mapToInt(stretch -> stretch.channel.rate()).max().orElse(0);
    Encoding first = encoding(all.get(0));
    boolean same = all.stream().allMatch(stretch -> encoding(stretch) == first);
    WavFile.Format format = new WavFile.Format(same ? first : Encoding.LINEAR, rate, CHANNELS);
    return new StereoFile(store, format, left, right).write(name, shared, all);
  }

  private static Encoding encoding(Stretch stretch) {
    return stretch.channel.file().format().encoding();
  }

  /** Completes a file of both voices as it is. Called on the disk thread. */
  static CallReport.Part whole(WavFile shared, long callStart) throws IOException {
    double rate = shared.format().rate();
    return new CallReport.Part(shared.fileName(), "", origin(shared, callStart) / rate, shared.complete() / rate,
        List.of());
  }

  /** Returns the frame since the start of the call with which a file begins. */
  private static long origin(WavFile shared, long callStart) {
    return (shared.begin() - callStart) * shared.format().rate() / 1000;
  }

  private List<CallReport.Part> write(String name, WavFile shared, List<Stretch> all) throws IOException {
    int rate = format.rate();
    int frame = format.frame();
    long origin = Math.min(0, all.stream().mapToLong(stretch -> stretch.startFrame(rate)).min().orElse(0));
    long frames = all.stream().mapToLong(stretch -> stretch.endFrame(rate)).max().orElse(0) - origin;
    long most = WavFile.MAX_BYTES / frame;
    store.disk().admit(frame * frames);
    List<Path> paths = new ArrayList<>();
    List<CallReport.Part> parts = new ArrayList<>();
    try {
      for (long at = 0; at < frames; at += most) {
        boolean replaces = at == 0 && shared != null;
        Path path = replaces ? store.createDraft() : store.create(name, "wav");
        paths.add(path);
        long count = Math.min(most, frames - at);
        write(path, origin + at, count);
        store.written(path);
        double offset = (origin + at) / (double) rate;
        String fileName = replaces ? shared.fileName() : path.getFileName().toString();
        parts.add(new CallReport.Part(fileName, "", offset, count / (double) rate, List.of()));
      }
      if (shared != null) {
        shared.replace(paths.get(0));
      }
      return parts;
    } catch (IOException e) {
      for (Path path : paths) {
        Files.deleteIfExists(path);  // a repeated try may use another name
      }
      throw e;
    }
  }

  /** Writes a file with the frames from a number on. Blocks of 16-bit silence become holes in the file. */
  private void write(Path path, long start, long frames) throws IOException {
    int frame = format.frame();
    byte[] bytes = buffers.interleaved;
    try (FileChannel out = FileChannel.open(path, StandardOpenOption.WRITE)) {
      FileOperations.writeAll(out, WavFile.header(format, frames), 0);
      for (long at = 0; at < frames; at += BLOCK_FRAMES) {
        if (store.disk().isOverdue()) {
          throw new Disk.LeftOutException("no time is left for " + path.getFileName());
        }
        int count = (int) Math.min(BLOCK_FRAMES, frames - at);
        boolean sound = left.read(start + at, count) | right.read(start + at, count);
        if (sound || format.encoding() != Encoding.LINEAR || at + count == frames) {
          interleave(count, bytes);
          FileOperations.writeAll(out, ByteBuffer.wrap(bytes, 0, frame * count), format.header() + at * frame);
        }
      }
    }
  }

  private void interleave(int count, byte[] bytes) {
    if (format.encoding() == Encoding.LINEAR) {
      for (int i = 0; i < count; i++) {
        put(left.samples[i], bytes, 4 * i);
        put(right.samples[i], bytes, 4 * i + 2);
      }
      return;
    }
    byte[] leftOctets = left.octets(count);
    byte[] rightOctets = right.octets(count);
    for (int i = 0; i < count; i++) {
      bytes[2 * i] = leftOctets[i];
      bytes[2 * i + 1] = rightOctets[i];
    }
  }

  private static void put(short sample, byte[] bytes, int at) {
    bytes[at] = (byte) sample;
    bytes[at + 1] = (byte) (sample >> 8);
  }

  /** Returns the value at an index and a fraction of the way to the next sample. */
  private static int between(short[] samples, int index, long numerator, long denominator) {
    int sample = samples[index];
    return numerator == 0 ? sample : sample + (int) ((samples[index + 1] - sample) * numerator / denominator);
  }

  /** Returns samples of a voice, as 16-bit numbers. */
  private static short[] samples(WavChannel channel, long first, int count) throws IOException {
    Encoding encoding = channel.file().format().encoding();
    byte[] bytes = new byte[count * encoding.bytes];
    Arrays.fill(bytes, encoding.silence);
    channel.file().read(channel, first, bytes, 0, count);
    short[] samples = new short[count];
    for (int i = 0; i < count; i++) {
      samples[i] = encoding == Encoding.LINEAR ? (short) (bytes[2 * i] & 255 | bytes[2 * i + 1] << 8)
          : encoding.samples()[bytes[i] & 255];
    }
    return samples;
  }
}
