package com.morvin.dom.telephony.sniffer.sample.page;

import com.morvin.dom.telephony.sniffer.sample.storage.CallReport;
import com.morvin.dom.telephony.sniffer.sample.storage.Json;
import com.morvin.dom.telephony.sniffer.sample.storage.ReportListener;
import com.morvin.dom.telephony.sniffer.sample.storage.WavReader;
import java.io.IOException;
import java.net.URI;
import java.nio.file.Path;
import java.time.Instant;
import java.time.InstantSource;
import java.time.LocalDate;
import java.time.ZoneId;
import java.util.ArrayList;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;
import java.util.stream.Stream;

/**
 * Writes the pages for the browser: index.html with the newest calls and, when there are many, days/ with older ones.
 *
 * <p>A call appends two short lines to one file: one when it begins and one when it has ended. All methods belong to
 * the disk thread, except {@link #address}, because they read recordings and write files. A method that has thrown can
 * be called again.
 */
public final class CallPages implements ReportListener {
  /** The number of characters of one waveform. */
  private static final int POINTS = 400;

  /** A page with more bytes of calls is archived at the end of its day. */
  private static final long ROLL_BYTES = 2 << 20;
  /** A page with more bytes of calls is archived at once. */
  private static final long MAX_BYTES = 48 << 20;

  private final Path directory;
  private final InstantSource clock;
  private final Map<String, String> running = new LinkedHashMap<>();
  private PageFile page;
  private LocalDate lastDay;

  /**
   * Writes the pages into the directory of the recordings.
   *
   * @param clock the time of day, which decides when a day is over
   */
  public CallPages(Path directory, InstantSource clock) {
    this.directory = directory;
    this.clock = clock;
  }

  /** Opens the existing page or creates one, so that the address is valid before the first call. */
  public void open() throws IOException {
    if (page == null) {
      page = PageFile.open(directory, today());
      lastDay = page.lastDay();
    }
  }

  /** Returns the address of the page for a browser. Any thread may call it. */
  public URI address() {
    return directory.toAbsolutePath().normalize().resolve(PageFile.NAME).toUri();
  }

  /** Adds a running call. */
  @Override
  public void began(CallReport call) throws IOException {
    String line = line(call, call.start(), "\"running\":true");
    append(line);
    running.put(key(call, call.start()), line);
  }

  /** Removes a running call that is a leg of another one. */
  @Override
  public void merged(CallReport call) throws IOException {
    append("{\"was\":" + Json.write(key(call, call.start())) + "}\n");
    running.remove(key(call, call.start()));
  }

  /** Adds an ended call with its waveforms. */
  @Override
  public void ended(CallReport call, long firstMessage) throws IOException {
    List<List<String>> peaks = List.of(peaks(call, call.fromCaller(), 0), peaks(call, call.fromCallee(), 1));
    append(line(call, firstMessage, "\"peaks\":" + Json.write(peaks)));
    running.remove(key(call, firstMessage));
  }

  /** Removes the running calls. */
  @Override
  public void stopped() throws IOException {
    open();
    page.settle();
    running.clear();
  }

  /** Returns the identity of a call. A running call has no file name yet. */
  private static String key(CallReport call, long firstMessage) {
    return call.protocol() + " " + firstMessage + " " + call.id();
  }

  private static String line(CallReport call, long firstMessage, String more) {
    return "{\"was\":" + Json.write(key(call, firstMessage)) + "," + more + ",\"call\":" + call.json() + "}\n";
  }

  private LocalDate today() {
    return LocalDate.ofInstant(Instant.ofEpochMilli(clock.millis()), ZoneId.systemDefault());
  }

  private void append(String line) throws IOException {
    open();
    rollOver();
    page.append(line);
  }

  /** Archives the page when it is due, and copies the running calls to the next one. */
  private void rollOver() throws IOException {
    LocalDate today = today();
    long size = page.size();
    if (size > MAX_BYTES || size > ROLL_BYTES && !today.equals(lastDay)) {
      page.archive(lastDay, today, String.join("", running.values()));
    }
    lastDay = today;
  }

  /** Returns the waveform of each part of one direction. */
  private List<String> peaks(CallReport call, CallReport.Voice voice, int channel) {
    int points = POINTS / Math.max(1, voice.parts().size());
    return voice.parts().stream().map(part -> peaks(call, part, channel, points)).toList();
  }

  /** Returns the waveform of a part; one that cannot be read has none, because the page must not fail. */
  private String peaks(CallReport call, CallReport.Part part, int channel, int points) {
    try {
      return part.file().endsWith(".pcap") ? ""
          : part.file().isEmpty() ? stereoPeaks(call, part, channel, points)
          : Waveform.of(directory.resolve(part.file()), points);
    } catch (IOException e) {
      return "";
    }
  }

  /** Returns the waveform of a part that is only in the stereo files, each of which begins where the last one ends. */
  private String stereoPeaks(CallReport call, CallReport.Part part, int channel, int points) throws IOException {
    double begin = Math.min(0, Stream.of(call.fromCaller(), call.fromCallee()).flatMap(voice -> voice.parts().stream())
        .filter(other -> other.file().isEmpty()).mapToDouble(CallReport.Part::offset).min().orElse(0));
    StringBuilder peaks = new StringBuilder();
    double end = part.offset() + part.duration();
    List<CallReport.Part> files = new ArrayList<>(call.moreStereo());
    double next = files.isEmpty() ? end : files.get(0).offset();
    files.add(0, new CallReport.Part(call.stereo(), "", begin, next - begin, List.of()));
    for (CallReport.Part file : files) {
      double from = Math.max(part.offset(), file.offset());
      double seconds = Math.min(end, file.offset() + file.duration()) - from;
      if (seconds > 0) {
        try (WavReader sound = new WavReader(directory.resolve(file.file()))) {
          int share = (int) Math.round(points * seconds / part.duration());
          peaks.append(Waveform.of(sound, channel, from - file.offset(), seconds, share));
        }
      }
    }
    return peaks.toString();
  }
}
