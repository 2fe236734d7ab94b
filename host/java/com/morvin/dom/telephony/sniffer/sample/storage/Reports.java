package com.morvin.dom.telephony.sniffer.sample.storage;

import com.morvin.dom.telephony.sniffer.sample.console.Console;
import java.io.DataInput;
import java.io.DataOutput;
import java.io.IOException;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.List;
import java.util.function.Consumer;
import java.util.function.Function;

/** Writes down calls that have ended: the file with both voices, the report, the line in the table. */
public final class Reports {
  private final Store store;
  private final CallLog log;
  private final Console console;
  private final Consumer<CallReport> audience;

  /**
   * Into a store.
   *
   * @param audience hears of each report when all its files are there, on the thread of the disk
   */
  public Reports(Store store, CallLog log, Console console, Consumer<CallReport> audience) {
    this.store = store;
    this.log = log;
    this.console = console;
    this.audience = audience;
  }

  /** The files of one call, which may be written more than once: it goes on after a restart. */
  public static final class Place {
    private final String name;
    private volatile Path report;
    private volatile Path stereo;

    public Place(String name) {
      this.name = name;
    }

    public void save(DataOutput out) throws IOException {
      out.writeUTF(report == null ? "" : report.toString());
      out.writeUTF(stereo == null ? "" : stereo.toString());
    }

    public void restore(DataInput in) throws IOException {
      String written = in.readUTF();
      String mixed = in.readUTF();
      report = written.isEmpty() ? null : Path.of(written);
      stereo = mixed.isEmpty() ? null : Path.of(mixed);
    }
  }

  /**
   * Reports a call whose files have been handed to the disk.
   *
   * @param report is asked for, with the names of the report and of the stereo file, when they have been written
   */
  public void write(Place place, List<StereoFile.Stretch> left, List<StereoFile.Stretch> right,
      Function<Names, CallReport> report) {
    Disk disk = store.disk();
    disk.then(() -> mix(place, left, right));
    CallReport[] written = new CallReport[1];
    disk.then(() -> {
      if (place.report == null) {
        place.report = store.create(CallReport.FOLDER + "/" + place.name, "json");
      }
      String name = place.report.getFileName().toString().replaceFirst("\\.json$", "");
      String stereo = place.stereo == null ? "" : place.stereo.getFileName().toString();
      written[0] = report.apply(new Names(name, stereo));
      store.written(place.report);
      Files.write(place.report, written[0].json().getBytes(StandardCharsets.UTF_8));
    });
    disk.then(() -> {
      if (written[0] != null) {
        log.add(written[0]);
      }
    });
    disk.then(() -> tell(written[0]));
  }

  /** What the report and the stereo file are called; the latter is empty when there is none. */
  public record Names(String report, String stereo) {}

  private void mix(Place place, List<StereoFile.Stretch> left, List<StereoFile.Stretch> right) throws IOException {
    if (place.stereo != null) {
      Files.deleteIfExists(place.stereo);
      place.stereo = null;
    }
    if (isThere(left) && isThere(right)) {
      place.stereo = StereoFile.write(store, place.name + "-stereo", left, right);
      store.written(place.stereo);
    }
  }

  private static boolean isThere(List<StereoFile.Stretch> stretches) {
    return stretches.stream().anyMatch(stretch -> stretch.file().path() != null);
  }

  private void tell(CallReport report) {
    if (report != null) {
      try {
        audience.accept(report);
      } catch (RuntimeException e) {
        console.line("the page of calls was not written: " + e);
      }
    }
  }
}
