package com.morvin.dom.telephony.sniffer.sample.page;

import static java.nio.file.StandardCopyOption.REPLACE_EXISTING;
import static java.nio.file.StandardOpenOption.READ;
import static java.nio.file.StandardOpenOption.WRITE;

import com.morvin.dom.telephony.sniffer.sample.storage.FileOperations;
import com.morvin.dom.telephony.sniffer.sample.storage.Json;
import java.io.IOException;
import java.nio.ByteBuffer;
import java.nio.channels.FileChannel;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.NoSuchFileException;
import java.nio.file.Path;
import java.time.LocalDate;
import java.time.ZoneId;
import java.util.Arrays;
import java.util.Comparator;
import java.util.List;
import java.util.Locale;
import java.util.regex.Matcher;
import java.util.regex.Pattern;
import java.util.stream.Collectors;
import java.util.stream.Stream;

/**
 * The file index.html. Its calls are lines at the end of the file, in an element that is never closed, as HTML permits.
 * So one write adds a call, and the page is always valid. A new page replaces an old one by renaming. Belongs to the
 * disk thread.
 */
final class PageFile {
  static final String NAME = "index.html";
  static final String DAYS = "days";
  static final String SETTLED = "{\"settled\":true}\n";
  private static final Pattern HEAD = Pattern.compile("\\{\"since\":\"(\\d{4}-\\d\\d-\\d\\d)\".*");
  private static final Pattern ARCHIVED = Pattern.compile("\\d{4}-\\d\\d-\\d\\d[0-9_.-]*\\.html");

  private final Path file;
  private final Path days;
  private final byte[] template = PageTemplate.bytes();
  private LocalDate since;
  private LocalDate lastDay;

  private PageFile(Path directory) {
    file = directory.resolve(NAME);
    days = directory.resolve(DAYS);
  }

  /** Opens the existing page or creates one. */
  static PageFile open(Path directory, LocalDate today) throws IOException {
    PageFile page = new PageFile(directory);
    FileOperations.createDirectories(directory);
    page.open(today);
    return page;
  }

  /** Returns the day of the last write before the page was opened. */
  LocalDate lastDay() {
    return lastDay;
  }

  /** Returns the size of the calls in bytes; 0 when the page was deleted. */
  long size() {
    return Math.max(0, file.toFile().length() - template.length);
  }

  /** Appends all lines or none. Creates the page again when it was deleted. */
  void append(String lines) throws IOException {
    try (FileChannel channel = openOrCreate()) {
      long end = channel.size();
      try {
        writeAll(channel.position(end), lines);
      } catch (IOException e) {
        channel.truncate(end);
        throw e;
      }
    }
  }

  /** Moves the page to days/, named after its days, and begins another page with the given lines. */
  void archive(LocalDate last, LocalDate today, String lines) throws IOException {
    append(SETTLED);
    FileOperations.createDirectories(days);
    String name = since.equals(last) || since.isAfter(last) ? last.toString() : since + "_" + last;
    Path target = days.resolve(name + ".html");
    for (int part = 2; Files.exists(target); part++) {
      target = days.resolve(String.format(Locale.ROOT, "%s.%02d.html", name, part));
    }
    Files.move(file, target);
    begin(today, lines);
  }

  private void open(LocalDate today) throws IOException {
    lastDay = today;
    if (!Files.exists(file)) {
      begin(today, "");
      return;
    }
    lastDay = LocalDate.ofInstant(Files.getLastModifiedTime(file).toInstant(), ZoneId.systemDefault());
    int start;
    try (FileChannel channel = FileChannel.open(file, READ)) {
      byte[] head = read(channel, 0, PageTemplate.MAX_LENGTH);
      start = indexOfCalls(head);
      if (start > 0) {
        String calls = new String(head, start, head.length - start, StandardCharsets.UTF_8);
        String line = calls.lines().findFirst().orElse("");
        Matcher matcher = HEAD.matcher(line);
        since = matcher.matches() ? LocalDate.parse(matcher.group(1)) : lastDay;
      }
      if (start > 0 && !Arrays.equals(head, 0, start, template, 0, template.length)) {
        replaceTemplate(channel, start);
      }
    }
    if (start < 0) {
      Files.move(file, file.resolveSibling(NAME + ".old"), REPLACE_EXISTING);  // not written by this program
      begin(today, "");
    }
    settle();
  }

  /** Removes the running calls from the page. The line feed ends an incomplete line. */
  void settle() throws IOException {
    append("\n" + SETTLED);
  }

  private FileChannel openOrCreate() throws IOException {
    try {
      return FileChannel.open(file, READ, WRITE);
    } catch (NoSuchFileException e) {
      FileOperations.createDirectories(file.getParent());
      begin(LocalDate.now(), "");
      return FileChannel.open(file, READ, WRITE);
    }
  }

  private void begin(LocalDate today, String lines) throws IOException {
    since = today;
    String head = head(today.toString(), older(days), 0) + "\n";
    replace(channel -> writeAll(channel, head + lines));
  }

  private static String head(String since, List<String> older, long changed) {
    return "{\"since\":\"" + since + "\",\"older\":" + Json.write(older)
        + (changed == 0 ? "" : ",\"changed\":" + changed) + "}";
  }

  /** Returns the first line of the calls with another list of pages and time of change; returns other lines as is. */
  static String withPages(String line, List<String> older, long changed) {
    Matcher matcher = HEAD.matcher(line);
    return matcher.matches() ? head(matcher.group(1), older, changed) : line;
  }

  /** Returns the file names in days/, newest first. */
  static List<String> older(Path days) throws IOException {
    if (!Files.isDirectory(days)) {
      return List.of();
    }
    try (Stream<Path> paths = Files.list(days)) {
      return paths.map(path -> path.getFileName().toString()).filter(name -> ARCHIVED.matcher(name).matches())
          .sorted(Comparator.comparing((String name) -> name.replace(".html", "")).reversed())
          .collect(Collectors.toList());
    }
  }

  /** Gives a page of an earlier version the template of this version. Its calls stay. */
  private void replaceTemplate(FileChannel old, int start) throws IOException {
    replace(channel -> {
      for (long at = start; at < old.size();) {
        at += old.transferTo(at, old.size() - at, channel);
      }
    });
  }

  /** Writes the template and the calls to a new file, which then replaces the page. */
  private void replace(FileOperations.Content calls) throws IOException {
    FileOperations.replace(file, channel -> {
      writeAll(channel, ByteBuffer.wrap(template));
      calls.writeTo(channel);
    });
  }

  /** Returns the position of the first call, or -1. */
  static int indexOfCalls(byte[] bytes) {
    int index = new String(bytes, StandardCharsets.ISO_8859_1)
        .indexOf(new String(PageTemplate.END, StandardCharsets.ISO_8859_1));
    return index < 0 ? -1 : index + PageTemplate.END.length;
  }

  static byte[] read(FileChannel channel, long position, int max) throws IOException {
    ByteBuffer buffer = ByteBuffer.allocate((int) Math.min(max, channel.size() - position));
    while (buffer.hasRemaining() && channel.read(buffer, position + buffer.position()) > 0) {
      // A read may return fewer bytes than requested.
    }
    return Arrays.copyOf(buffer.array(), buffer.position());
  }

  private static void writeAll(FileChannel channel, String text) throws IOException {
    writeAll(channel, StandardCharsets.UTF_8.encode(text));
  }

  private static void writeAll(FileChannel channel, ByteBuffer bytes) throws IOException {
    while (bytes.hasRemaining()) {
      channel.write(bytes);
    }
  }
}
