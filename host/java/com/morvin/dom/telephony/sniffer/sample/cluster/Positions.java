package com.morvin.dom.telephony.sniffer.sample.cluster;

import java.io.IOException;
import java.nio.ByteBuffer;
import java.nio.channels.FileChannel;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.NoSuchFileException;
import java.nio.file.Path;
import java.nio.file.StandardCopyOption;
import java.nio.file.StandardOpenOption;
import java.util.HashMap;
import java.util.Map;
import java.util.function.Predicate;

/**
 * Remembers on disk how far each call has been recorded: the broker forgets what is acknowledged a moment after that, and
 * a recorder that is killed in that moment must not record it again.
 *
 * <p>A journal: the last line of a call counts. It is written anew, without calls that are over, when it has grown.
 */
final class Positions implements AutoCloseable {
  private static final long MAX_BYTES = 4 << 20;

  /** All messages before the sequence number are recorded, and so many frames of that one. */
  record Position(long sequence, int frames) {
    static final Position START = new Position(0, 0);
  }

  private final Path path;
  private final Map<MessageId.Stream, Position> safe = new HashMap<>();
  private final StringBuilder unwritten = new StringBuilder();
  private FileChannel file;

  Positions(Path path) throws IOException {
    this.path = path;
    Files.createDirectories(path.toAbsolutePath().getParent());
    read();
    file = open(path);
  }

  private static FileChannel open(Path path) throws IOException {
    return FileChannel.open(path, StandardOpenOption.CREATE, StandardOpenOption.WRITE, StandardOpenOption.APPEND);
  }

  private void read() throws IOException {
    try {
      // A line without its end was being written when the recorder was killed.
      String text = Files.readString(path, StandardCharsets.ISO_8859_1);
      text.substring(0, text.lastIndexOf('\n') + 1).lines().forEach(line -> {
        String[] words = line.split(" ");
        MessageId id = MessageId.parse(words[0]);
        if (id != null && words.length == 2 && words[1].matches("\\d{1,9}")) {
          safe.put(id.call(), new Position(id.sequence(), Integer.parseInt(words[1])));
        }
      });
    } catch (NoSuchFileException e) {
      // The first start.
    }
  }

  Map<MessageId.Stream, Position> all() {
    return safe;
  }

  Position of(MessageId.Stream call) {
    return safe.getOrDefault(call, Position.START);
  }

  void put(MessageId.Stream call, Position position) {
    if (!position.equals(safe.put(call, position))) {
      append(unwritten, call, position);
    }
  }

  private static void append(StringBuilder to, MessageId.Stream call, Position position) {
    to.append(new MessageId(call, position.sequence)).append(' ').append(position.frames).append('\n');
  }

  /** When it returns, what was put is on disk. */
  void write(Predicate<MessageId.Stream> over) throws IOException {
    if (file.size() + unwritten.length() > MAX_BYTES) {
      compact(over);
    } else if (unwritten.length() > 0) {
      write(file, unwritten);
    }
    unwritten.setLength(0);
  }

  private void compact(Predicate<MessageId.Stream> over) throws IOException {
    safe.keySet().removeIf(over);
    StringBuilder all = new StringBuilder();
    safe.forEach((call, position) -> append(all, call, position));
    Path anew = path.resolveSibling(path.getFileName() + ".new");
    Files.deleteIfExists(anew);
    try (FileChannel to = open(anew)) {
      write(to, all);
    }
    Files.move(anew, path, StandardCopyOption.ATOMIC_MOVE);
    file.close();
    file = open(path);
  }

  private static void write(FileChannel to, CharSequence text) throws IOException {
    ByteBuffer bytes = StandardCharsets.ISO_8859_1.encode(text.toString());
    while (bytes.hasRemaining()) {
      to.write(bytes);
    }
    to.force(false);
  }

  @Override
  public void close() throws IOException {
    file.close();
  }
}
