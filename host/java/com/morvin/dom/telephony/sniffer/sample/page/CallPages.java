package com.morvin.dom.telephony.sniffer.sample.page;

import com.morvin.dom.telephony.sniffer.sample.storage.CallReport;
import com.morvin.dom.telephony.sniffer.sample.storage.Json;
import java.io.IOException;
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
 * it has ended. All operations belong to the thread of the disk: they read recordings and write. One that has thrown
 * can be tried again.
 */
public final class CallPages {
  /** Characters that draw one voice. */
  private static final int POINTS = 400;

  /** Bytes of calls from which on a page is put away when its day is over, and in any case. */
  record Limits(long many, long most) {
    static final Limits USUAL = new Limits(2 << 20, 48 << 20);
  }

  private final Path directory;
  private final Limits limits;
  private final Clock clock;
  private final Map<String, String> running = new LinkedHashMap<>();
  private final PageFile page;
  private LocalDate written;

  /**
   * Goes on with the page that is there, or begins one.
   *
   * @param directory where the recordings are
   * @param clock tells when a day is over
   * @throws IOException when the page cannot be written
   */
  public CallPages(Path directory, Clock clock) throws IOException {
    this(directory, clock, Limits.USUAL);
  }

  CallPages(Path directory, Clock clock, Limits limits) throws IOException {
    this.directory = directory;
    this.clock = clock;
    this.limits = limits;
    page = PageFile.open(directory, today());
    written = page.lastDay();
  }

  /**
   * Shows a call as running. To be told when media comes, so that forged signalling leaves no trace on the disk; and told
   * anew after a restart.
   *
   * @param running tells it apart from all others of this run
   * @param protocol of its signalling
   * @param caller who called
   * @param callee who was called
   * @param start milliseconds since 1970
   * @throws IOException when it cannot be written
   */
  public void began(String running, String protocol, String caller, String callee, long start) throws IOException {
    CallReport.Voice silence = new CallReport.Voice(0, 0, List.of(), List.of());
    CallReport call = new CallReport(
        running, protocol, "", caller, callee, start, 0, "", silence, silence, "", List.of(), List.of());
    String line = line(running, "\"running\":true", call);
    append(line);
    this.running.put(running, line);
  }

  /**
   * Shows a call as it was, with the shape of its recordings, which are complete by now. A call that went on after all is
   * told again: the later report of a name counts.
   *
   * @param running as when it began
   * @param call what is known of it
   * @throws IOException when it cannot be written
   */
  public void ended(String running, CallReport call) throws IOException {
    List<List<String>> peaks = List.of(peaks(call.fromCaller()), peaks(call.fromCallee()));
    append(line(running, "\"peaks\":" + Json.write(peaks), call));
    this.running.remove(running);
  }

  private static String line(String running, String more, CallReport call) {
    return "{\"was\":" + Json.write(running) + "," + more + ",\"call\":" + call.json() + "}\n";
  }

  private LocalDate today() {
    return LocalDate.ofInstant(Instant.ofEpochMilli(clock.millis()), ZoneId.systemDefault());
  }

  private void append(String line) throws IOException {
    turnOver();
    page.append(line);
  }

  /** Puts the page away when it is time, and takes what is still running over to the next. */
  private void turnOver() throws IOException {
    LocalDate today = today();
    long size = page.size();
    if (size > limits.most || size > limits.many && !today.equals(written)) {
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
