package com.morvin.dom.telephony.sniffer.sample.storage;

import com.morvin.dom.telephony.sniffer.sample.console.Text;
import java.io.IOException;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.StandardOpenOption;
import java.time.Instant;
import java.time.ZoneId;
import java.time.format.DateTimeFormatter;
import java.util.ArrayList;
import java.util.List;
import java.util.stream.Collectors;

/** The table of calls, calls.csv: a line for each, added when it has ended. */
public final class CallLog {
  private static final DateTimeFormatter TIME =
      DateTimeFormatter.ofPattern("yyyy-MM-dd'T'HH:mm:ss.SSSXXX").withZone(ZoneId.systemDefault());
  private static final List<String> COLUMNS = List.of("start", "end", "seconds", "protocol", "caller", "callee",
      "call id", "ended", "caller packets", "caller lost", "caller audio start", "caller files", "callee packets",
      "callee lost", "callee audio start", "callee files", "notes");

  private final Path file;

  public CallLog(Path directory) throws IOException {
    Files.createDirectories(directory);
    file = directory.resolve("calls.csv");
    if (!Files.exists(file)) {
      append(COLUMNS);
    }
  }

  public Path file() {
    return file;
  }

  public void add(List<String> fields) throws IOException {
    append(fields);
  }

  private void append(List<String> fields) throws IOException {
    String line = fields.stream().map(Text::csv).collect(Collectors.joining(",")) + "\n";
    Files.writeString(file, line, StandardCharsets.UTF_8, StandardOpenOption.CREATE, StandardOpenOption.APPEND);
  }

  public static String time(long millis) {
    return TIME.format(Instant.ofEpochMilli(millis));
  }
}
