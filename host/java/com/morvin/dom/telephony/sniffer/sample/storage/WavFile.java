package com.morvin.dom.telephony.sniffer.sample.storage;

import java.io.IOException;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.nio.channels.FileChannel;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.StandardCopyOption;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;

/**
 * A WAV file that grows during a call: one voice, or both voices of a call, caller left. The header is updated with
 * each piece, so the file can be played even after the recorder was killed. Each sample has a fixed place, so a dropped
 * piece leaves silence. Belongs to the recorder thread; the writing is done on the disk thread.
 */
public final class WavFile extends StoredFile {
  /** The longest file: 1 GiB, or 18 hours of both voices of G.711. Many programs read at most 2 GiB of a WAV file. */
  static final long MAX_BYTES = 1 << 30;
  private static final int LINEAR_HEADER = 44;
  /** With the extension of the format and the fact chunk, which other formats than 16-bit need. */
  private static final int OTHER_HEADER = 58;
  /** Approximate memory of a waiting {@link #move}. */
  private static final int MOVE_BYTES = 200;
  /** The state of the calls is saved every second, and later only by a recorder that is killed again and again. */
  private static final int MAX_UNSAVED_SECONDS = 30;

  /** The encoding, the sample rate in Hz and the number of channels of a file. */
  public record Format(Encoding encoding, int rate, int channels) {
    /** Returns the format with another number of channels. */
    public Format with(int other) {
      return new Format(encoding, rate, other);
    }

    /** Returns the length of a second of one channel in bytes. */
    public int bytesPerSecond() {
      return rate * encoding.bytes;
    }

    /** Returns the length of a sample of all channels in bytes. */
    int frame() {
      return channels * encoding.bytes;
    }

    /** Returns the length of the header in bytes. */
    int header() {
      return encoding == Encoding.LINEAR ? LINEAR_HEADER : OTHER_HEADER;
    }

    /** Returns the number of frames in a file of a size in bytes. */
    long framesIn(long size) {
      return Math.max(0, size - header()) / frame();
    }

    /** Returns the place of a frame in a file. */
    long at(long frame) {
      return header() + frame * frame();
    }
  }

  private final Format format;
  /** The time of the first frame in milliseconds since 1970. */
  private long begin;
  private boolean begun;
  private final List<WavChannel> channels = new ArrayList<>();
  private final boolean[] taken;
  /** The number of frames on the disk, and by the header. They belong to the disk thread. */
  private long stored;
  private long stated = -1;
  /** Whether samples have moved. Belongs to the disk thread. */
  private boolean moved;

  /**
   * Makes a new file, or continues an existing one.
   *
   * @param begin the time of the first frame in milliseconds since 1970, for a file with several channels; a new file
   *     begins earlier if its first samples do
   * @param path null for a new file
   * @param size of the existing file in bytes
   */
  WavFile(Store store, String name, Format format, long begin, Path path, long size) {
    super(store, name, "wav", path);
    this.format = format;
    this.begin = begin;
    begun = path != null;
    stored = format.framesIn(size);
    taken = new boolean[format.channels];
    for (int number = 0; number < format.channels; number++) {
      channels.add(new WavChannel(this, number));
    }
  }

  /** Returns the format. */
  public Format format() {
    return format;
  }

  /** Returns a channel for a voice; null when another voice has it. */
  public WavChannel take(int number) {
    boolean free = !taken[number];
    taken[number] = true;
    return free ? channels.get(number) : null;
  }

  /** Returns the time of the first frame in milliseconds since 1970. */
  public long begin() {
    return begin;
  }

  byte[] newBlock() {
    return store.blocks().take();
  }

  /** Takes back a block that nothing refers to any more. */
  void give(byte[] block) {
    store.blocks().give(block);
  }

  /** Whether there is content: the file is created before all that is queued for the disk from now on. */
  public boolean hasBegun() {
    return begun;
  }

  @Override
  public void flush() {
    flush(true);
  }

  /** Passes the collected content to the disk thread. No samples move, because the new places are not saved. */
  void pass() {
    flush(false);
  }

  private void flush(boolean moves) {
    if (!begun) {
      channels.forEach(channel -> begin = Math.min(begin, channel.firstTime()));
    }
    List<WavChannel.Piece> pieces = new ArrayList<>(format.channels);
    int bytes = 0;
    for (int i = 0; i < format.channels; i++) {
      WavChannel.Piece piece = channels.get(i).take(moves);
      if (piece != null) {
        pieces.add(piece);
        bytes += piece.length();
      }
    }
    if (bytes > 0) {
      begun = true;
      submit(bytes, () -> store(pieces), () -> pieces.forEach(WavChannel.Piece::countMissing));
    }
  }

  /**
   * Moves the samples of a channel to an earlier place.
   *
   * @param count the number of samples, which follow each other
   */
  void move(int channel, long from, long to, long count) {
    byte[][] bytes = new byte[1][];  // it takes no memory while the job waits
    store.disk().submit(MOVE_BYTES, List.of(() -> {
      FileChannel file = open();
      if (bytes[0] == null) {
        bytes[0] = moved(file, channel, from, to, Math.min(count, stored - from));
      }
      FileOperations.writeAll(file, ByteBuffer.wrap(bytes[0]), format.at(to));
      moved = true;
    }), () -> { });
  }

  /** Returns a part of the file in which samples of a channel have moved. */
  private byte[] moved(FileChannel file, int channel, long from, long to, long count) throws IOException {
    int distance = (int) (from - to) * CHANNELS;
    byte[] bytes = new byte[(int) Math.max(0, count * CHANNELS + distance)];
    Arrays.fill(bytes, format.encoding.silence);
    FileOperations.readAll(file, ByteBuffer.wrap(bytes), format.at(to));
    for (int i = channel; i < bytes.length; i += CHANNELS) {
      bytes[i] = i + distance < bytes.length ? bytes[i + distance] : format.encoding.silence;
    }
    return bytes;
  }

  private void store(List<WavChannel.Piece> pieces) throws IOException {
    FileChannel file = open();
    if (format.channels == 1) {
      append(file, pieces.get(0));
    } else if (to(pieces) - from(pieces) <= StereoFile.BLOCK_FRAMES) {
      join(file, pieces);
    } else {
      for (WavChannel.Piece piece : pieces) {
        join(file, List.of(piece));
      }
    }
    writeHeader(file);
    pieces.forEach(piece -> give(piece.block()));
  }

  private static long from(List<WavChannel.Piece> pieces) {
    return pieces.stream().mapToLong(WavChannel.Piece::start).min().orElseThrow();
  }

  private static long to(List<WavChannel.Piece> pieces) {
    return pieces.stream().mapToLong(WavChannel.Piece::end).max().orElseThrow();
  }

  /** Writes a piece of the only voice. */
  private void append(FileChannel file, WavChannel.Piece piece) throws IOException {
    fill(file, piece.start());
    FileOperations.writeAll(file, ByteBuffer.wrap(piece.block(), 0, piece.length()), format.at(piece.start()));
    stored = Math.max(stored, piece.end());
  }

  /** Writes pieces of both voices at once, without a change of what the file has in their place from other pieces. */
  private void join(FileChannel file, List<WavChannel.Piece> pieces) throws IOException {
    long from = from(pieces);
    int length = (int) (to(pieces) - from) * CHANNELS;
    int old = (int) Math.max(0, Math.min(stored - from, to(pieces) - from)) * CHANNELS;
    fill(file, from);
    byte[] bytes = store.stereoBuffers().interleaved();
    Arrays.fill(bytes, 0, length, format.encoding.silence);
    FileOperations.readAll(file, ByteBuffer.wrap(bytes, 0, old), format.at(from));
    for (WavChannel.Piece piece : pieces) {
      byte[] octets = piece.block();
      int at = (int) (piece.start() - from) * CHANNELS + piece.channel().number();
      for (int i = 0; i < piece.length(); i++) {
        bytes[at + CHANNELS * i] = octets[i];
      }
    }
    FileOperations.writeAll(file, ByteBuffer.wrap(bytes, 0, length), format.at(from));
    stored = Math.max(stored, to(pieces));
  }

  private void writeHeader(FileChannel file) throws IOException {
    if (stated != stored) {
      FileOperations.writeAll(file, header(format, stored), 0);
      stated = stored;
    }
  }

  /** Writes silence up to a frame. What is never written is read as zeros, which is silence in 16 bits. */
  private void fill(FileChannel file, long to) throws IOException {
    if (to <= stored || format.encoding == Encoding.LINEAR) {
      return;
    }
    byte[] silence = new byte[(int) Math.min((to - stored) * format.frame(), 1 << 16)];
    Arrays.fill(silence, format.encoding.silence);
    long end = format.at(to);
    for (long at = format.at(stored); at < end; at += silence.length) {
      FileOperations.writeAll(file, ByteBuffer.wrap(silence, 0, (int) Math.min(silence.length, end - at)), at);
    }
  }

  /**
   * Ends a file to which nothing is added any more: what was dropped at its end becomes silence. Returns its length in
   * frames. Called on the disk thread.
   */
  long complete() throws IOException {
    long frames = channels.stream().mapToLong(channel -> channel.start() + channel.samples()).max().orElseThrow();
    if (frames > stored) {
      fill(open(), frames);
      stored = frames;
    } else if (moved && taken[0] && taken[1]) {
      open().truncate(format.at(frames));  // silence in the place of moved samples
      stored = frames;
    }
    writeHeader(open());
    close();
    return stored;
  }

  /** Replaces the file by another one. Called on the disk thread. */
  void replace(Path by) throws IOException {
    close();
    Files.move(by, path(), StandardCopyOption.ATOMIC_MOVE);
    store.written(path());
  }

  /**
   * Reads octets or samples of a channel as they are. What is not in the file stays as it was in the array. Called on
   * the disk thread.
   *
   * @param first the index of the first sample
   * @param offset the index in the array, in samples
   */
  void read(WavChannel channel, long first, byte[] samples, int offset, int count) throws IOException {
    if (format.channels == 1) {
      int size = format.frame();
      FileOperations.readAll(open(), ByteBuffer.wrap(samples, offset * size, count * size), format.at(first));
      return;
    }
    byte[] bytes = store.stereoBuffers().interleaved();
    int length = FileOperations.readAll(open(), ByteBuffer.wrap(bytes, 0, count * CHANNELS),
        format.at(channel.start() + first));
    for (int i = 0; i < length / CHANNELS; i++) {
      samples[offset + i] = bytes[CHANNELS * i + channel.number()];
    }
  }

  /**
   * Continues a channel of an existing file.
   *
   * @param start the place of its first sample in the file
   * @param samples the least number of samples that it counts as; those after them count up to the last sound
   */
  public WavChannel resume(int number, long start, long samples) throws IOException {
    WavChannel channel = take(number);
    if (channel == null) {
      throw new IOException("two voices in one channel of " + fileName());
    }
    long end = format.channels == 1 || path() == null ? stored : endOfSound(number, start + samples);
    channel.resume(start, Math.max(samples, end - start));
    return channel;
  }

  /** Reads octets of a channel of a file that is continued, before anything is added to it. */
  public byte[] octets(WavChannel channel, long first, int count) throws IOException {
    byte[] octets = new byte[count];
    byte[] bytes = new byte[count * format.channels];
    if (count > 0) {
      try (FileChannel file = FileChannel.open(path())) {
        FileOperations.readAll(file, ByteBuffer.wrap(bytes), format.at(channel.start() + first));
      }
    }
    for (int i = 0; i < count; i++) {
      octets[i] = bytes[format.channels * i + channel.number()];
    }
    return octets;
  }

  /** Returns the place after the last sound of a channel, to the next millisecond. */
  private long endOfSound(int number, long from) throws IOException {
    long first = Math.max(from, stored - (long) MAX_UNSAVED_SECONDS * format.rate);
    byte[] bytes = new byte[(int) Math.max(0, stored - first) * CHANNELS];
    try (FileChannel file = FileChannel.open(path())) {
      FileOperations.readAll(file, ByteBuffer.wrap(bytes), format.at(first));
    }
    int last = bytes.length - CHANNELS + number;
    while (last >= 0 && bytes[last] == format.encoding.silence) {
      last -= CHANNELS;
    }
    int millisecond = format.rate / 1000;
    return last < 0 ? from : first + (last / CHANNELS + millisecond) / millisecond * millisecond;
  }

  @Override
  long size() {
    return stored == 0 ? 0 : format.at(stored);
  }

  /** Returns the header of a file with a number of frames. */
  static ByteBuffer header(Format format, long frames) {
    int data = (int) (frames * format.frame());
    boolean linear = format.encoding == Encoding.LINEAR;
    ByteBuffer header = ByteBuffer.allocate(format.header()).order(ByteOrder.LITTLE_ENDIAN)
        .put(ascii("RIFF")).putInt(format.header() - 8 + data).put(ascii("WAVE"))
        .put(ascii("fmt ")).putInt(linear ? 16 : 18).putShort((short) format.encoding.tag)
        .putShort((short) format.channels).putInt(format.rate).putInt(format.rate * format.frame())
        .putShort((short) format.frame()).putShort((short) (8 * format.encoding.bytes));
    if (!linear) {
      header.putShort((short) 0).put(ascii("fact")).putInt(4).putInt((int) frames);
    }
    return header.put(ascii("data")).putInt(data).flip();
  }

  private static byte[] ascii(String text) {
    return text.getBytes(StandardCharsets.US_ASCII);
  }
}
