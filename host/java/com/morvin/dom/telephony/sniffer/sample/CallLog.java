package com.morvin.dom.telephony.sniffer.sample;

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
final class CallLog {
  private static final DateTimeFormatter TIME =
      DateTimeFormatter.ofPattern("yyyy-MM-dd'T'HH:mm:ss.SSSXXX").withZone(ZoneId.systemDefault());
  private static final List<String> COLUMNS = List.of("start", "end", "seconds", "protocol", "caller", "callee",
      "call id", "ended", "caller packets", "caller lost", "caller audio start", "caller files", "callee packets",
      "callee lost", "callee audio start", "callee files", "notes");

  private final Path file;

  CallLog(Path directory) throws IOException {
    Files.createDirectories(directory);
    file = directory.resolve("calls.csv");
    if (!Files.exists(file)) {
      append(COLUMNS);
    }
  }

  Path file() {
    return file;
  }

  void add(Call call, long end, String how) throws IOException {
    List<String> fields = new ArrayList<>(List.of(time(call.start), time(end), Text.seconds(end - call.start),
        call.protocol, call.caller, call.callee, call.id, how));
    for (Direction direction : Direction.values()) {
      Track track = call.track(direction);
      fields.add(Long.toString(track.received()));
      fields.add(Long.toString(track.lost()));
      fields.add(track.firstArrival() < 0 ? "" : time(track.firstArrival()));
      fields.add(track.recordings().keySet().stream().map(path -> path.getFileName().toString())
          .collect(Collectors.joining(" ")));
    }
    fields.add(String.join("; ", call.notes()));
    append(fields);
  }

  private void append(List<String> fields) throws IOException {
    String line = fields.stream().map(Text::csv).collect(Collectors.joining(",")) + "\n";
    Files.writeString(file, line, StandardCharsets.UTF_8, StandardOpenOption.CREATE, StandardOpenOption.APPEND);
  }

  private static String time(long millis) {
    return TIME.format(Instant.ofEpochMilli(millis));
  }
}
