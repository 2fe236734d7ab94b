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

/** Writes the results of ended calls: the stereo file, the report and the line in the table. */
public final class Reports {
  private final Store store;
  private final CallLog log;
  private final Console console;
  private final Consumer<CallReport> listener;

  /**
   * Writes into a store.
   *
   * @param listener is called with each report after all its files are written, on the disk thread
   */
  public Reports(Store store, CallLog log, Console console, Consumer<CallReport> listener) {
    this.store = store;
    this.log = log;
    this.console = console;
    this.listener = listener;
  }

  /**
   * The report and the stereo file of one call. A call that continues after a restart is written again under these
   * names.
   */
  public static final class CallFiles {
    private final String name;
    private volatile Path report;
    private volatile Path stereo;

    /** Makes the names; the files do not exist yet. */
    public CallFiles(String name) {
      this.name = name;
    }

    /** Saves the state for a restart. */
    public void save(DataOutput out) throws IOException {
      out.writeUTF(report == null ? "" : report.toString());
      out.writeUTF(stereo == null ? "" : stereo.toString());
    }

    /** Restores a saved state. */
    public void restore(DataInput in) throws IOException {
      String written = in.readUTF();
      String mixed = in.readUTF();
      report = written.isEmpty() ? null : Path.of(written);
      stereo = mixed.isEmpty() ? null : Path.of(mixed);
    }
  }

  /**
   * Queues the jobs for a call after its media has been passed to the disk thread.
   *
   * @param report makes the report; called on the disk thread after the media and the stereo file are written
   */
  public void write(CallFiles files, List<StereoFile.Stretch> left, List<StereoFile.Stretch> right,
      Function<Names, CallReport> report) {
    Disk disk = store.disk();
    disk.submit(() -> mix(files, left, right));
    CallReport[] written = new CallReport[1];
    disk.submit(() -> {
      if (files.report == null) {
        files.report = store.create(CallReport.FOLDER + "/" + files.name, "json");
      }
      String name = files.report.getFileName().toString().replaceFirst("\\.json$", "");
      String stereo = files.stereo == null ? "" : files.stereo.getFileName().toString();
      written[0] = report.apply(new Names(name, stereo));
      store.written(files.report);
      Files.write(files.report, written[0].json().getBytes(StandardCharsets.UTF_8));
    });
    disk.submit(() -> {
      if (written[0] != null) {
        log.add(written[0]);
      }
    });
    disk.submit(() -> notifyListener(written[0]));
  }

  /**
   * The names of the written files.
   *
   * @param report without its extension
   * @param stereo empty when there is no stereo file
   */
  public record Names(String report, String stereo) {}

  private void mix(CallFiles files, List<StereoFile.Stretch> left, List<StereoFile.Stretch> right) throws IOException {
    if (files.stereo != null) {
      Files.deleteIfExists(files.stereo);
      files.stereo = null;
    }
    if (isThere(left) && isThere(right)) {
      files.stereo = StereoFile.write(store, files.name + "-stereo", left, right);
      store.written(files.stereo);
    }
  }

  private static boolean isThere(List<StereoFile.Stretch> stretches) {
    return stretches.stream().anyMatch(stretch -> stretch.file().path() != null);
  }

  private void notifyListener(CallReport report) {
    if (report != null) {
      try {
        listener.accept(report);
      } catch (RuntimeException e) {
        console.line("the page of calls was not written: " + e);
      }
    }
  }
}
