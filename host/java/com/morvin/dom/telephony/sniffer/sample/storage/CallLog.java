package com.morvin.dom.telephony.sniffer.sample.storage;

import com.morvin.dom.telephony.sniffer.sample.console.Text;
import java.io.IOException;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.time.Instant;
import java.time.OffsetDateTime;
import java.time.ZoneId;
import java.time.format.DateTimeFormatter;
import java.time.format.DateTimeParseException;
import java.util.ArrayList;
import java.util.List;
import java.util.regex.Matcher;
import java.util.regex.Pattern;
import java.util.stream.Collectors;
import java.util.stream.Stream;

/** The table of calls, calls.csv, with a line for each ended call. */
public final class CallLog {
  private static final Pattern FIELD = Pattern.compile("(\"(?:[^\"]|\"\")*\"|[^,]*)(?:,|$)");
  private static final int END_COLUMN = 1;
  private static final int ID_COLUMN = 6;
  private static final int REASON_COLUMN = 7;
  /** The length of the end of the table that has the last calls, in bytes. */
  private static final int LAST_BYTES = 1 << 20;

  private static final DateTimeFormatter TIME =
      DateTimeFormatter.ofPattern("yyyy-MM-dd'T'HH:mm:ss.SSSXXX").withZone(ZoneId.systemDefault());
  private static final List<String> COLUMNS = List.of("start", "end", "seconds", "protocol", "caller", "callee",
      "call id", "ended", "caller packets", "caller lost", "caller audio start", "caller files", "callee packets",
      "callee lost", "callee audio start", "callee files", "notes", "caller digits", "callee digits", "stereo file");

  private final Path file;

  /**
   * A call in the table.
   *
   * @param end in milliseconds since 1970
   * @param reason see {@link CallReport#endReason}
   */
  public record Line(String id, long end, String reason) {}

  /** Opens the table of a directory, or creates it. */
  public CallLog(Path directory) throws IOException {
    file = directory.resolve("calls.csv");
    if (size() > 0) {
      keepApartFromOlderTable();
    } else {
      append(List.of());
    }
  }

  /** Renames a table with other columns, which an older recorder has written, and begins a new one. */
  private void keepApartFromOlderTable() throws IOException {
    try (Stream<String> lines = Files.lines(file, StandardCharsets.UTF_8)) {
      if (lines.findFirst().orElse("").equals(line(COLUMNS))) {
        return;
      }
    }
    Files.move(file, file.resolveSibling("calls-before-" + Instant.now().getEpochSecond() + ".csv"));
    append(List.of());
  }

  /** Returns the path of the table. */
  public Path file() {
    return file;
  }

  /** Returns the size in bytes; 0 when the table was moved. */
  long size() {
    return file.toFile().length();
  }

  /** Adds the line of a call. Called on the disk thread. */
  void add(CallReport report) throws IOException {
    List<String> fields = new ArrayList<>(List.of(time(report.start()), time(report.end()),
        Text.seconds(report.end() - report.start()), report.protocol(), report.caller(), report.callee(), report.id(),
        report.endReason()));
    for (CallReport.Voice voice : List.of(report.fromCaller(), report.fromCallee())) {
      fields.add(Long.toString(voice.packets()));
      fields.add(Long.toString(voice.lost()));
      fields.add(voice.parts().stream().findFirst()
          .map(part -> time(report.start() + Math.round(part.offset() * 1000))).orElse(""));
      fields.add(voice.parts().stream().map(CallReport.Part::file).collect(Collectors.joining(" ")));
    }
    fields.add(String.join("; ", report.notes()));
    fields.add(digits(report.fromCaller()));
    fields.add(digits(report.fromCallee()));
    fields.add(Stream.concat(Stream.of(report.stereo()), report.moreStereo().stream().map(CallReport.Part::file))
        .collect(Collectors.joining(" ")));
    append(fields);
  }

  private static String digits(CallReport.Voice voice) {
    return voice.digits().stream().map(CallReport.Digit::digit).collect(Collectors.joining());
  }

  /** Returns the calls at the end of the table. */
  public List<Line> lastCalls() throws IOException {
    byte[] end = FileOperations.readEnd(file, LAST_BYTES);
    List<Line> calls = new ArrayList<>();
    new String(end, StandardCharsets.UTF_8).lines().map(line -> fields(line, REASON_COLUMN + 1)).forEach(fields -> {
      try {
        if (fields.size() > REASON_COLUMN) {
          calls.add(new Line(fields.get(ID_COLUMN), millis(fields.get(END_COLUMN)), fields.get(REASON_COLUMN)));
        }
      } catch (DateTimeParseException e) {
        // The line with the names of the columns, or a part of a line.
      }
    });
    return calls;
  }

  /** Returns the first fields of a line. */
  static List<String> fields(String line, int count) {
    List<String> fields = new ArrayList<>();
    for (Matcher field = FIELD.matcher(line); fields.size() < count && field.find();) {
      fields.add(Text.ofCsv(field.group(1)));
    }
    return fields;
  }

  /** Returns the milliseconds since 1970 of a time in the table. */
  static long millis(String time) {
    return OffsetDateTime.parse(time).toInstant().toEpochMilli();
  }

  /** Appends a line unless it is empty. A new table, also after the former one was moved, begins with the columns. */
  private void append(List<String> fields) throws IOException {
    String lines = (size() > 0 ? "" : line(COLUMNS) + "\n") + (fields.isEmpty() ? "" : line(fields) + "\n");
    FileOperations.append(file, lines.getBytes(StandardCharsets.UTF_8));
  }

  private static String line(List<String> fields) {
    return fields.stream().map(Text::csv).collect(Collectors.joining(","));
  }

  private static String time(long millis) {
    return TIME.format(Instant.ofEpochMilli(millis));
  }
}
