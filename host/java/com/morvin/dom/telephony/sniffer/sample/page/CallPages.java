package com.morvin.dom.telephony.sniffer.sample.page;

import com.morvin.dom.telephony.sniffer.sample.storage.Audience;
import com.morvin.dom.telephony.sniffer.sample.storage.CallReport;
import com.morvin.dom.telephony.sniffer.sample.storage.Json;
import java.io.IOException;
import java.net.URI;
import java.nio.file.Path;
import java.time.Clock;
import java.time.Instant;
import java.time.LocalDate;
import java.time.ZoneId;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Locale;
import java.util.Map;

/**
 * The pages that people look at: index.html with the newest calls and, when there are many, days/ with older ones.
 *
 * <p>A call costs two short lines at the end of one file, whatever the number of calls: one when it begins and one when
 * it has ended. All operations belong to the thread of the disk: they read recordings and write. One that has thrown can
 * be tried again.
 */
public final class CallPages implements Audience {
  /** Characters that draw one voice. */
  private static final int POINTS = 400;

  /** Bytes of calls from which on a page is put away when its day is over. */
  private static final long MANY = 2 << 20;
  /** And in any case. */
  private static final long MOST = 48 << 20;

  private final Path directory;
  private final Clock clock;
  private final Map<String, String> running = new LinkedHashMap<>();
  private PageFile page;
  private LocalDate written;

  /**
   * Pages beside the recordings.
   *
   * @param clock tells when a day is over
   */
  public CallPages(Path directory, Clock clock) {
    this.directory = directory;
    this.clock = clock;
  }

  /** Goes on with the page that is there, or begins one, so that there is something to open before the first call. */
  public void open() throws IOException {
    if (page == null) {
      page = PageFile.open(directory, today());
      written = page.lastDay();
    }
  }

  /** Where a browser finds them. */
  public URI address() {
    return directory.toAbsolutePath().normalize().resolve(PageFile.NAME).toUri();
  }

  /** Shows a call as running. */
  @Override
  public void began(CallReport call) throws IOException {
    String line = line(call, "\"running\":true");
    append(line);
    running.put(name(call), line);
  }

  /** Shows a call as it was, with the shape of its recordings. */
  @Override
  public void ended(CallReport call) throws IOException {
    List<List<String>> peaks = List.of(peaks(call.fromCaller()), peaks(call.fromCallee()));
    append(line(call, "\"peaks\":" + Json.write(peaks)));
    running.remove(name(call));
  }

  /** What a running call is known by, which has no files of its own to be named after. */
  private static String name(CallReport call) {
    return call.protocol() + " " + call.start() + " " + call.id();
  }

  private static String line(CallReport call, String more) {
    return "{\"was\":" + Json.write(name(call)) + "," + more + ",\"call\":" + call.json() + "}\n";
  }

  private LocalDate today() {
    return LocalDate.ofInstant(Instant.ofEpochMilli(clock.millis()), ZoneId.systemDefault());
  }

  private void append(String line) throws IOException {
    open();
    turnOver();
    page.append(line);
  }

  /** Puts the page away when it is time, and takes what is still running over to the next. */
  private void turnOver() throws IOException {
    LocalDate today = today();
    long size = page.size();
    if (size > MOST || size > MANY && !today.equals(written)) {
      page.putAway(written, today, String.join("", running.values()));
    }
    written = today;
  }

  /** The shape of each file of a voice. */
  private List<String> peaks(CallReport.Voice voice) {
    int points = POINTS / Math.max(1, voice.parts().size());
    return voice.parts().stream().map(part -> peaks(part.file(), points)).toList();
  }

  /** A recording that cannot be read is shown without its shape: the page is no reason to fail. */
  private String peaks(String file, int points) {
    try {
      return file.toLowerCase(Locale.ROOT).endsWith(".wav") ? Waveform.of(directory.resolve(file), points) : "";
    } catch (IOException e) {
      return "";
    }
  }
}
