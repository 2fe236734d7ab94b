package com.morvin.dom.telephony.sniffer.sample;

import com.morvin.dom.telephony.sniffer.sample.console.Console;
import com.morvin.dom.telephony.sniffer.sample.console.Text;
import com.morvin.dom.telephony.sniffer.sample.page.CallPages;
import com.morvin.dom.telephony.sniffer.sample.page.PageEraser;
import com.morvin.dom.telephony.sniffer.sample.storage.CallReport;
import com.morvin.dom.telephony.sniffer.sample.storage.EraseRequests;
import com.morvin.dom.telephony.sniffer.sample.storage.ReportListener;
import com.morvin.dom.telephony.sniffer.sample.storage.StoredCalls;
import com.morvin.dom.telephony.sniffer.sample.transport.SteadyClock;
import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayDeque;
import java.util.List;
import java.util.Queue;
import java.util.concurrent.TimeUnit;

/**
 * Deletes calls that are too old, and calls that the operator wants to erase: their files, their lines in the table and
 * on the pages. The lines are removed first and the report of a call last, so that an interrupted deletion can be
 * repeated. All methods belong to the disk thread.
 */
final class Retention implements ReportListener {
  private static final long INTERVAL_MILLIS = TimeUnit.HOURS.toMillis(1);
  private static final long MAX_SKEW_MILLIS = TimeUnit.DAYS.toMillis(1);
  /** The number of files that are deleted at a time. It is small, because the recording of calls waits meanwhile. */
  private static final int BATCH = 100;

  private final Path directory;
  private final CallPages pages;
  private final SteadyClock clock;
  private final long keepMillis;
  private final Console console;
  private final EraseRequests requests;
  private final Queue<Path> expired = new ArrayDeque<>();
  private long nextExpiry;
  private boolean warned;
  private String fault = "";

  /**
   * Makes an object that passes reports to the pages.
   *
   * @param keepMillis the age at which calls are deleted; 0 to keep all
   */
  Retention(Path directory, CallPages pages, SteadyClock clock, long keepMillis, Console console) {
    this.directory = directory;
    this.pages = pages;
    this.clock = clock;
    this.keepMillis = keepMillis;
    this.console = console;
    requests = new EraseRequests(directory);
    nextExpiry = clock.millis();
  }

  @Override
  public void began(CallReport call) throws IOException {
    pages.began(call);
  }

  @Override
  public void merged(CallReport call) throws IOException {
    pages.merged(call);
  }

  @Override
  public void ended(CallReport call, long firstMessage) throws IOException {
    pages.ended(call, firstMessage);
  }

  @Override
  public void stopped() throws IOException {
    pages.stopped();
  }

  @Override
  public void tick() {
    try {
      requests.serve(call -> erase(directory, call, clock.timeOfDay()));
      if (keepMillis > 0) {
        deleteExpired();
      }
      fault = "";
    } catch (IOException | RuntimeException e) {
      // A file that cannot be deleted must not stop the writing of all others.
      if (!fault.equals(e.toString())) {
        fault = e.toString();
        console.line("calls cannot be deleted: " + fault);
      }
    }
  }

  private void deleteExpired() throws IOException {
    for (int i = 0; i < BATCH && !expired.isEmpty(); i++) {
      Files.deleteIfExists(expired.remove());
    }
    if (expired.isEmpty() && clock.millis() >= nextExpiry && isTrusted()) {
      nextExpiry = clock.millis() + INTERVAL_MILLIS;
      long before = clock.timeOfDay() - keepMillis;
      StoredCalls.Selection old = (start, id) -> start < before;
      StoredCalls calls = new StoredCalls(directory);
      int lines = calls.removeFromTable(old);
      PageEraser.erase(directory, old, clock.timeOfDay());
      expired.addAll(calls.filesBefore(before));
      if (lines > 0 || !expired.isEmpty()) {
        console.line("deleting what is older than " + Text.count(TimeUnit.MILLISECONDS.toDays(keepMillis), "day") + ": "
            + Text.count(lines, "call") + ", " + Text.count(expired.size(), "file"));
      }
    }
  }

  /** A clock that was set by a day or more must not cause the deletion of recent calls. */
  private boolean isTrusted() {
    boolean trusted = Math.abs(clock.skew()) < MAX_SKEW_MILLIS;
    if (!trusted && !warned) {
      console.line("the clock was set by a day or more: nothing is deleted by age until the recorder is started again");
      warned = true;
    }
    return trusted;
  }

  /**
   * Erases the ended calls with an identifier, or with that name of the report. Returns their number.
   *
   * @param now milliseconds since 1970
   */
  static int erase(Path directory, String call, long now) throws IOException {
    StoredCalls calls = new StoredCalls(directory);
    List<CallReport> found = calls.find(call);
    StoredCalls.Selection selection = (start, id) -> id.equals(call)
        || found.stream().anyMatch(report -> report.id().equals(id)
            && (report.start() == start || report.began() == start));
    int lines = calls.removeFromTable(selection);
    int shown = PageEraser.erase(directory, selection, now);
    for (CallReport report : found) {
      for (Path file : calls.filesOf(report)) {
        Files.deleteIfExists(file);
      }
    }
    return Math.max(found.size(), Math.max(lines, shown));
  }
}
