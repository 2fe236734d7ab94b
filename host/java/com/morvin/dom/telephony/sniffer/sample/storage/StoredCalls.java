package com.morvin.dom.telephony.sniffer.sample.storage;

import java.io.BufferedReader;
import java.io.IOException;
import java.io.Writer;
import java.nio.channels.Channels;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.time.LocalDateTime;
import java.time.ZoneId;
import java.time.format.DateTimeFormatter;
import java.time.format.DateTimeParseException;
import java.util.ArrayList;
import java.util.List;
import java.util.regex.Matcher;
import java.util.regex.Pattern;
import java.util.stream.Stream;

/**
 * Finds and deletes the files of ended calls, and the lines of the table of calls. Belongs to the disk thread or, while
 * no recorder uses the directory, to a thread that has opened the {@link Store}.
 */
public final class StoredCalls {
  private static final Pattern NAMED_BY_START = Pattern.compile("(\\d{8}-\\d{6})-.*\\.(wav|pcap|json|json\\.new)");
  private static final DateTimeFormatter NAME_TIME = DateTimeFormatter.ofPattern("yyyyMMdd-HHmmss");
  private static final int ID_COLUMN = 6;

  /** Selects calls by their start in milliseconds since 1970, and their identifier. */
  public interface Selection {
    /** Whether the call is selected. */
    boolean selects(long start, String id);
  }

  private final Path directory;

  /** Works on the directory of the recordings. */
  public StoredCalls(Path directory) {
    this.directory = directory;
  }

  /** Returns the reports of the calls with an identifier, or with that name of the report. */
  public List<CallReport> find(String call) throws IOException {
    List<CallReport> found = new ArrayList<>();
    for (Path file : list(directory.resolve(CallReport.FOLDER), ".json")) {
      String text = new String(Files.readAllBytes(file), StandardCharsets.UTF_8);
      boolean candidate = text.contains(Json.write(call)) || file.getFileName().toString().equals(call + ".json");
      if (candidate) {
        CallReport report = CallReport.read(file);
        if (report.id().equals(call) || report.name().equals(call)) {
          found.add(report);
        }
      }
    }
    return found;
  }

  /** Returns the files of a call, its report last, because it names the others. */
  public List<Path> filesOf(CallReport report) {
    Stream<CallReport.Part> parts = Stream.of(report.moreStereo(), report.fromCaller().parts(),
        report.fromCallee().parts()).flatMap(List::stream);
    Stream<String> media = Stream.concat(Stream.of(report.stereo()), parts.map(CallReport.Part::file));
    Path file = directory.resolve(CallReport.FOLDER).resolve(Path.of(report.name() + ".json").getFileName());
    return Stream.concat(media.filter(name -> !name.isEmpty())
        .map(name -> directory.resolve(Path.of(name).getFileName())), Stream.of(file)).toList();
  }

  /** Returns the files of calls that began, and were last written, before a time, oldest first. */
  public List<Path> filesBefore(long millis) throws IOException {
    List<Path> old = new ArrayList<>();
    for (Path folder : List.of(directory, directory.resolve(CallReport.FOLDER))) {
      for (Path file : list(folder, "")) {
        Matcher name = NAMED_BY_START.matcher(file.getFileName().toString());
        if (name.matches() && isBefore(name.group(1), millis) && Files.getLastModifiedTime(file).toMillis() < millis) {
          old.add(file);
        }
      }
    }
    old.sort((a, b) -> a.getFileName().compareTo(b.getFileName()));
    return old;
  }

  private static boolean isBefore(String nameTime, long millis) {
    try {
      LocalDateTime start = LocalDateTime.parse(nameTime, NAME_TIME);
      return start.atZone(ZoneId.systemDefault()).toInstant().toEpochMilli() < millis;
    } catch (DateTimeParseException e) {
      return false;
    }
  }

  private static List<Path> list(Path folder, String end) throws IOException {
    if (!Files.isDirectory(folder)) {
      return List.of();
    }
    try (Stream<Path> all = Files.list(folder)) {
      return all.filter(file -> file.toString().endsWith(end) && Files.isRegularFile(file)).toList();
    }
  }

  /** Removes the lines of the selected calls from the table and from older tables. Returns their number. */
  public int removeFromTable(Selection selection) throws IOException {
    int removed = 0;
    for (Path table : list(directory, ".csv")) {
      if (table.getFileName().toString().startsWith("calls")) {
        removed += removeFrom(table, selection);
      }
    }
    return removed;
  }

  private static int removeFrom(Path table, Selection selection) throws IOException {
    int selected = 0;
    try (BufferedReader lines = FileOperations.lines(table)) {
      selected = (int) lines.lines().filter(line -> selects(selection, line)).count();
    }
    if (selected > 0) {
      FileOperations.replace(table, channel -> {
        try (BufferedReader lines = FileOperations.lines(table)) {
          Writer out = Channels.newWriter(channel, StandardCharsets.UTF_8);
          for (String line = lines.readLine(); line != null; line = lines.readLine()) {
            if (!selects(selection, line)) {
              out.write(line + "\n");
            }
          }
          out.flush();
        }
      });
    }
    return selected;
  }

  private static boolean selects(Selection selection, String line) {
    List<String> fields = CallLog.fields(line, ID_COLUMN + 1);
    try {
      return fields.size() > ID_COLUMN && selection.selects(CallLog.millis(fields.get(0)), fields.get(ID_COLUMN));
    } catch (DateTimeParseException e) {
      return false;  // the line with the names of the columns
    }
  }
}
