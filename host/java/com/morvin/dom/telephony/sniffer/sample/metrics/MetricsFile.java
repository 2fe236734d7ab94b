package com.morvin.dom.telephony.sniffer.sample.metrics;

import com.morvin.dom.telephony.sniffer.sample.console.Console;
import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.LinkOption;
import java.nio.file.Path;
import java.nio.file.StandardCopyOption;
import java.nio.file.StandardOpenOption;
import java.nio.file.attribute.PosixFilePermissions;
import java.util.concurrent.TimeUnit;
import java.util.function.Consumer;

/**
 * The file with the figures of this process, for the textfile collector of node_exporter. A separate thread replaces
 * the whole file, so that a reader never sees a part of it, and a slow disk delays nothing else. It does so at least
 * every 10 s until {@link #close}, whatever the rest of the process waits for: an old file means that the process is
 * dead, or that the disk of the file hangs. Any user may read it. Any thread may call any method.
 */
public final class MetricsFile implements AutoCloseable {
  private static final long CLOSE_MILLIS = 2000;
  private static final long RENEWAL_MILLIS = 10_000;
  private static final long UNKNOWN = -1;

  private final Path file;
  private final Path folder;
  private final Console console;
  private final Thread writer = new Thread(this::write, "metrics");
  /** The free space takes a thread of its own, because a folder on a network can hang. */
  private final Thread meter = new Thread(this::measureSpace, "free space");
  private volatile long free = UNKNOWN;
  /** The last figures; null before the first ones. */
  private Metrics last;
  private Consumer<Metrics> live = figures -> { };
  /** Whether the file does not have the last figures yet. */
  private boolean due;
  private boolean closing;
  private String fault = "";

  /**
   * Starts the threads.
   *
   * @param folder its free space is added to the figures; null when nothing is recorded
   */
  public MetricsFile(Path file, Path folder, Console console) {
    this.file = file.toAbsolutePath();
    this.folder = folder;
    this.console = console;
    writer.setDaemon(true);
    writer.start();
    meter.setDaemon(true);
    if (folder != null) {
      meter.start();
    }
  }

  /**
   * Sets what adds further figures each time when the file is written. It is called by another thread and must not
   * wait.
   */
  public synchronized void setLive(Consumer<Metrics> measure) {
    live = measure;
  }

  /** Replaces the content soon. The caller does not use the figures any more. */
  public synchronized void replace(Metrics figures) {
    last = figures;
    due = true;
    notifyAll();
  }

  private void write() {
    try {
      boolean more = true;
      while (more) {
        more = awaitTurn();
        try {
          renew();
          report("");
        } catch (IOException | RuntimeException e) {
          report(e.toString());
        }
      }
    } catch (InterruptedException e) {
      Thread.currentThread().interrupt();
    }
  }

  /** Waits until the file is to be written. Returns false when that is the last time. */
  private synchronized boolean awaitTurn() throws InterruptedException {
    long deadline = System.nanoTime() + TimeUnit.MILLISECONDS.toNanos(RENEWAL_MILLIS);
    for (long left = RENEWAL_MILLIS; !due && !closing && left > 0;
        left = TimeUnit.NANOSECONDS.toMillis(deadline - System.nanoTime())) {
      wait(left);
    }
    due = false;
    return !closing;
  }

  private void renew() throws IOException {
    Metrics figures;
    Consumer<Metrics> more;
    synchronized (this) {
      figures = last == null ? null : last.copy();
      more = live;
    }
    if (figures != null) {
      more.accept(figures);
      write(figures);
    }
  }

  private void measureSpace() {
    try {
      while (true) {
        free = folder.toFile().getUsableSpace();
        Thread.sleep(RENEWAL_MILLIS / 2);
      }
    } catch (InterruptedException e) {
      Thread.currentThread().interrupt();
    }
  }

  private void write(Metrics figures) throws IOException {
    long space = free;
    if (space != UNKNOWN) {
      figures.gauge("disk_free_bytes", "Free space where recordings are written.", space);
    }
    Path fresh = file.resolveSibling(file.getFileName() + ".new");
    // Other services may write to the directory, so a link there is not followed.
    Files.writeString(fresh, figures.toString(), StandardOpenOption.CREATE, StandardOpenOption.TRUNCATE_EXISTING,
        StandardOpenOption.WRITE, LinkOption.NOFOLLOW_LINKS);
    Files.setPosixFilePermissions(fresh, PosixFilePermissions.fromString("rw-r--r--"));
    Files.move(fresh, file, StandardCopyOption.ATOMIC_MOVE);
  }

  private void report(String now) {
    if (!now.equals(fault)) {
      console.line(now.isEmpty() ? "the metrics are written again to " + file : "cannot write the metrics: " + now);
      fault = now;
    }
  }

  /** Writes the last figures and ends the threads; waits at most two seconds for the disk. */
  @Override
  public void close() {
    synchronized (this) {
      closing = true;
      notifyAll();
    }
    meter.interrupt();
    try {
      writer.join(CLOSE_MILLIS);
    } catch (InterruptedException e) {
      Thread.currentThread().interrupt();
    }
  }
}
