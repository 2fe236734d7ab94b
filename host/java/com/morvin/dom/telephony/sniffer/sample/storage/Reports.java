package com.morvin.dom.telephony.sniffer.sample.storage;

import java.io.IOException;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.List;
import java.util.concurrent.atomic.AtomicLong;
import java.util.function.Consumer;
import java.util.function.Function;

/** Writes the results of ended calls: the stereo file, the report and the line in the table. */
public final class Reports {
  /** Ends the name of a file of both voices. */
  public static final String STEREO = "-stereo";
  /** Approximate memory of an ended call that waits for the disk, in bytes. */
  private static final int WAITING_BYTES = 16 << 10;

  private final Store store;
  private final CallLog log;
  private final Consumer<CallReport> counter;
  private final ReportListener listener;
  private final AtomicLong dropped = new AtomicLong();

  /**
   * Writes into a store.
   *
   * @param counter is called once with each report, on the disk thread
   * @param listener is called with each report after all its files are written, on the disk thread
   */
  public Reports(Store store, CallLog log, Consumer<CallReport> counter, ReportListener listener) {
    this.store = store;
    this.log = log;
    this.counter = counter;
    this.listener = listener;
  }

  /**
   * The names of the written files.
   *
   * @param report without its extension
   * @param stereo the files with both directions, in order
   * @param stereoMissing whether there should be such files, or better ones
   * @param removed whether somebody has removed the file of both voices while the call ran
   */
  public record Names(String report, List<CallReport.Part> stereo, boolean stereoMissing, boolean removed) {}

  /**
   * Queues the jobs for a call after its media has been passed to the disk thread.
   *
   * @param name of the files, without an extension
   * @param firstMessage when the call was first heard of, in milliseconds since 1970
   * @param start of the call in milliseconds since 1970; the stretches begin after it
   * @param shared the file of both voices while the call ran; null when there was none
   * @param hasMedia whether media was received; without it the report is the first thing that is dropped
   * @param report makes the report; called on the disk thread after the media and the stereo file are written
   */
  public void write(String name, long firstMessage, long start, WavFile shared, boolean hasMedia,
      List<StereoFile.Stretch> left, List<StereoFile.Stretch> right, Function<Names, CallReport> report) {
    Ended call = new Ended(name, firstMessage, start, shared, left, right, report);
    store.disk().submit(WAITING_BYTES, List.of(call::mix, call::writeReport, call::addToTable, call::notifyListener),
        hasMedia ? Disk.Content.STATE : Disk.Content.MINOR, dropped::incrementAndGet);
  }

  /** Returns the number of ended calls whose files are incomplete because the disk was full, faulty or too slow. */
  public long dropped() {
    return dropped.get();
  }

  /** An ended call. Each method is a job, which can be repeated. */
  private final class Ended {
    private final String name;
    private final long firstMessage;
    private final long start;
    private final WavFile shared;
    private final List<StereoFile.Stretch> left;
    private final List<StereoFile.Stretch> right;
    private final Function<Names, CallReport> report;
    private List<CallReport.Part> stereo = List.of();
    private boolean complete;
    private boolean removed;
    private Path file;
    private CallReport written;

    Ended(String name, long firstMessage, long start, WavFile shared, List<StereoFile.Stretch> left,
        List<StereoFile.Stretch> right, Function<Names, CallReport> report) {
      this.name = name;
      this.firstMessage = firstMessage;
      this.start = start;
      this.shared = shared;
      this.left = left;
      this.right = right;
      this.report = report;
    }

    void mix() throws IOException {
      if (!removed && isCreated(shared) && !shared.path().toFile().exists()) {
        removed = true;
        store.console().line(shared.fileName() + " was removed while its call ran");
      }
      if (hasStereo()) {
        stereo = StereoFile.write(store, name + STEREO, start, isCreated(shared) ? shared : null, left, right);
        complete = true;
      }
    }

    private static boolean isCreated(WavFile file) {
      return file != null && file.path() != null;
    }

    private boolean hasStereo() {
      return isThere(left) || isThere(right);
    }

    private static boolean isThere(List<StereoFile.Stretch> stretches) {
      return stretches.stream().anyMatch(stretch -> isCreated(stretch.channel().file()));
    }

    void writeReport() throws IOException {
      if (file == null) {
        file = store.create(CallReport.FOLDER + "/" + name, "json");
      }
      if (hasStereo() && !complete && isCreated(shared) && Files.exists(shared.path())) {
        stereo = List.of(StereoFile.whole(shared, start));  // better than none
      }
      String reportName = file.getFileName().toString().replaceFirst("\\.json$", "");
      CallReport made = report.apply(new Names(reportName, stereo, hasStereo() && !complete, removed));
      FileOperations.write(file, made.json().getBytes(StandardCharsets.UTF_8));
      store.written(file);
      written = made;
    }

    void addToTable() throws IOException {
      if (written != null) {
        log.add(written);
        store.written(log.file());
        counter.accept(written);
      }
    }

    void notifyListener() throws IOException {
      if (written != null) {
        listener.ended(written, firstMessage);
      }
    }
  }
}
