package com.morvin.dom.telephony.sniffer.sample.cluster;

import com.morvin.dom.telephony.sniffer.sample.storage.FileOperations;
import com.morvin.dom.telephony.sniffer.sample.transport.FrameBlock;
import com.morvin.dom.telephony.sniffer.sample.transport.SteadyClock;
import java.io.BufferedInputStream;
import java.io.DataInputStream;
import java.io.IOException;
import java.net.ProtocolException;
import java.nio.ByteBuffer;
import java.nio.channels.FileChannel;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.StandardOpenOption;
import java.util.ArrayDeque;
import java.util.Deque;
import java.util.List;
import java.util.function.Consumer;
import java.util.stream.Stream;

/**
 * Keeps the frames that a front has read until the broker has confirmed them, in case the front is killed. They are in
 * files that are not synced: a file survives the process in the memory of the operating system, and is mostly removed
 * before it is written to the disk. Times are milliseconds of the clock of the front. Belongs to one thread at a time.
 */
final class BlockLog {
  private static final String SUFFIX = ".blocks";
  private static final String NAME = "\\d{18}\\" + SUFFIX;
  private static final long SEGMENT_MILLIS = 500;
  private static final int MAX_BLOCK = 1 << 20;

  /** A file with blocks that were read up to a time, and its length. */
  private record Segment(Path file, long until, long bytes) {}

  private final Path directory;
  private final long maxBytes;
  private final Deque<Segment> segments = new ArrayDeque<>();
  /** The file that is written; null when the next block begins another one. */
  private FileChannel current;
  private Path file;
  private long length;
  private long began;
  private long number;
  /** The length of all files. */
  private long bytes;

  BlockLog(Path directory, long maxBytes) {
    this.directory = directory;
    this.maxBytes = maxBytes;
  }

  /**
   * Reads the blocks of an earlier front, oldest first. They are kept until what is read now is released.
   *
   * @param out receives each block before the next one is read: all together may not fit into the memory
   */
  void load(SteadyClock clock, Consumer<FrameBlock> out) throws IOException {
    List<Path> files;
    try (Stream<Path> all = Files.list(directory)) {
      files = all.filter(path -> path.getFileName().toString().matches(NAME)).sorted().toList();
    }
    for (Path one : files) {
      segments.add(new Segment(one, clock.millis(), Files.size(one)));
      bytes += Files.size(one);
      number = Long.parseLong(one.getFileName().toString().replace(SUFFIX, ""));
    }
    for (Path one : files) {
      read(one, clock.skew(), out);
    }
  }

  private static void read(Path from, long skew, Consumer<FrameBlock> out) throws IOException {
    try (DataInputStream in = new DataInputStream(new BufferedInputStream(Files.newInputStream(from)))) {
      while (in.available() >= Integer.BYTES + Long.BYTES) {
        int length = in.readInt();
        long timeOfDay = in.readLong();
        byte[] frames = length > 0 && length <= MAX_BLOCK ? in.readNBytes(length) : new byte[0];
        if (frames.length == 0 || frames.length < length) {
          return;  // the front was killed while it wrote this block
        }
        try {
          FrameBlock.of(frames, 0, length);
        } catch (ProtocolException e) {
          return;  // the machine has crashed before this block was on the disk
        }
        out.accept(new FrameBlock(frames, 0, length, 0, 0, timeOfDay - skew, timeOfDay));
      }
    }
  }

  /**
   * Appends a block. After a failure the next block begins another file.
   *
   * @param readAt when it was read
   * @param timeOfDay the same in milliseconds since 1970
   */
  void append(FrameBlock block, long readAt, long timeOfDay) throws IOException {
    if (readAt - began >= SEGMENT_MILLIS) {
      end(readAt);
    }
    if (current == null) {
      begin(readAt);
    }
    ByteBuffer header = ByteBuffer.allocate(Integer.BYTES + Long.BYTES).putInt(block.length()).putLong(timeOfDay)
        .flip();
    ByteBuffer[] record = {header, ByteBuffer.wrap(block.bytes(), block.from(), block.length())};
    try {
      while (record[1].hasRemaining()) {
        current.write(record);
      }
    } catch (IOException e) {
      end(readAt);  // the disk is full; a part of a block can only be the end of a file
      throw e;
    }
    length += header.capacity() + block.length();
    bytes += header.capacity() + block.length();
    while (bytes > maxBytes && !segments.isEmpty()) {
      removeOldest();
    }
  }

  private void begin(long now) throws IOException {
    file = directory.resolve(String.format("%018d", ++number) + SUFFIX);
    current = FileOperations.open(file, StandardOpenOption.CREATE, StandardOpenOption.WRITE,
        StandardOpenOption.TRUNCATE_EXISTING);
    length = 0;
    began = now;
  }

  /** Ends the file that is written. Without a whole block it is removed. */
  private void end(long now) throws IOException {
    if (current == null) {
      return;
    }
    close();
    if (length > 0) {
      segments.add(new Segment(file, now, length));
    } else {
      Files.deleteIfExists(file);
    }
  }

  private void removeOldest() throws IOException {
    Files.deleteIfExists(segments.element().file);
    bytes -= segments.remove().bytes;
  }

  /** Removes the blocks that were read up to a time. */
  void release(long upTo) throws IOException {
    while (!segments.isEmpty() && segments.peek().until <= upTo) {
      removeOldest();
    }
  }

  /** Removes all blocks. */
  void clear() throws IOException {
    end(Long.MAX_VALUE);
    release(Long.MAX_VALUE);
  }

  private void close() throws IOException {
    if (current != null) {
      current.close();
      current = null;
    }
  }
}
