package com.morvin.dom.telephony.sniffer.sample.cluster;

import com.morvin.dom.telephony.sniffer.sample.storage.FileOperations;
import com.morvin.dom.telephony.sniffer.sample.transport.FrameBlock;
import com.morvin.dom.telephony.sniffer.sample.transport.SteadyClock;
import java.io.BufferedInputStream;
import java.io.DataInputStream;
import java.io.IOException;
import java.nio.ByteBuffer;
import java.nio.channels.FileChannel;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.StandardOpenOption;
import java.util.ArrayDeque;
import java.util.ArrayList;
import java.util.Deque;
import java.util.List;
import java.util.stream.Stream;

/**
 * Keeps the frames that a front has read until the broker has confirmed them, in case the front is killed. They are in
 * files that are not synced: a file survives the process in the memory of the operating system, and is mostly removed
 * before it is written to the disk. Times are milliseconds of the clock of the front. Any thread may call any
 * method.
 */
final class BlockLog implements AutoCloseable {
  private static final String SUFFIX = ".blocks";
  private static final long SEGMENT_MILLIS = 500;
  private static final int MAX_BLOCK = 1 << 20;

  /** A file with blocks that were read up to a time. */
  private record Segment(Path file, long until) {}

  private final Path directory;
  private final long maxBytes;
  private final Deque<Segment> segments = new ArrayDeque<>();
  private FileChannel current;
  private Path file;
  private long began;
  private long number;
  private long bytes;

  BlockLog(Path directory, long maxBytes) {
    this.directory = directory;
    this.maxBytes = maxBytes;
  }

  /** Returns the blocks of an earlier front, oldest first. They are kept until what is read now is released. */
  synchronized List<FrameBlock> load(SteadyClock clock) throws IOException {
    List<Path> files;
    try (Stream<Path> all = Files.list(directory)) {
      files = all.filter(path -> path.toString().endsWith(SUFFIX)).sorted().toList();
    }
    List<FrameBlock> blocks = new ArrayList<>();
    for (Path one : files) {
      read(one, clock.skew(), blocks);
      segments.add(new Segment(one, clock.millis()));
      bytes += Files.size(one);
      number = Long.parseLong(one.getFileName().toString().replaceAll("\\D", ""));
    }
    return blocks;
  }

  private static void read(Path from, long skew, List<FrameBlock> blocks) throws IOException {
    try (DataInputStream in = new DataInputStream(new BufferedInputStream(Files.newInputStream(from)))) {
      while (in.available() >= Integer.BYTES + Long.BYTES) {
        int length = in.readInt();
        long timeOfDay = in.readLong();
        byte[] frames = length > 0 && length <= MAX_BLOCK ? in.readNBytes(length) : new byte[0];
        if (frames.length == 0 || frames.length < length) {
          return;  // the front was killed while it wrote this block
        }
        FrameBlock.of(frames, 0, length);
        blocks.add(new FrameBlock(frames, 0, length, 0, 0, timeOfDay - skew, timeOfDay));
      }
    }
  }

  /** Appends a block that was read now. */
  synchronized void append(FrameBlock block, long now) throws IOException {
    if (current == null || now - began >= SEGMENT_MILLIS) {
      begin(now);
    }
    ByteBuffer header = ByteBuffer.allocate(Integer.BYTES + Long.BYTES).putInt(block.length())
        .putLong(System.currentTimeMillis()).flip();
    ByteBuffer[] record = {header, ByteBuffer.wrap(block.bytes(), block.from(), block.length())};
    while (record[1].hasRemaining()) {
      bytes += current.write(record);
    }
    while (bytes > maxBytes && !segments.isEmpty()) {
      remove(segments.remove());
    }
  }

  private void begin(long now) throws IOException {
    close();
    if (file != null) {
      segments.add(new Segment(file, now));
    }
    file = directory.resolve(String.format("%018d", ++number) + SUFFIX);
    current = FileOperations.open(file, StandardOpenOption.CREATE, StandardOpenOption.WRITE,
        StandardOpenOption.TRUNCATE_EXISTING);
    began = now;
  }

  private void remove(Segment segment) throws IOException {
    bytes -= Files.size(segment.file);
    Files.deleteIfExists(segment.file);
  }

  /** Removes the blocks that were read up to a time. */
  synchronized void release(long upTo) throws IOException {
    while (!segments.isEmpty() && segments.peek().until <= upTo) {
      remove(segments.remove());
    }
  }

  /** Removes all blocks. */
  synchronized void clear() throws IOException {
    close();
    release(Long.MAX_VALUE);
    if (file != null) {
      Files.deleteIfExists(file);
    }
  }

  @Override
  public synchronized void close() throws IOException {
    if (current != null) {
      current.close();
      current = null;
    }
  }
}
