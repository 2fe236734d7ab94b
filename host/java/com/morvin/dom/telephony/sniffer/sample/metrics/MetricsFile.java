package com.morvin.dom.telephony.sniffer.sample.metrics;

import com.morvin.dom.telephony.sniffer.sample.console.Console;
import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.LinkOption;
import java.nio.file.Path;
import java.nio.file.StandardCopyOption;
import java.nio.file.StandardOpenOption;
import java.nio.file.attribute.PosixFilePermissions;

/**
 * The file with the figures of this process, for the textfile collector of node_exporter. A separate thread replaces
 * the whole file, so that a reader never sees a part of it, and a slow disk delays nothing else. Any user may read it.
 * Any thread may call any method.
 */
public final class MetricsFile implements AutoCloseable {
  private static final long CLOSE_MILLIS = 2000;

  private final Path file;
  private final Path folder;
  private final Console console;
  private final Thread writer = new Thread(this::write, "metrics");
  private Metrics next;
  private boolean closing;
  private String fault = "";

  /**
   * Starts the thread.
   *
   * @param folder its free space is added to the figures; null when nothing is recorded
   */
  public MetricsFile(Path file, Path folder, Console console) {
    this.file = file.toAbsolutePath();
    this.folder = folder;
    this.console = console;
    writer.setDaemon(true);
    writer.start();
  }

  /** Replaces the content soon. The caller does not use the figures any more. */
  public synchronized void replace(Metrics figures) {
    next = figures;
    notifyAll();
  }

  private void write() {
    try {
      for (Metrics figures = take(); figures != null; figures = take()) {
        try {
          write(figures);
          report("");
        } catch (IOException | RuntimeException e) {
          report(e.toString());
        }
      }
    } catch (InterruptedException e) {
      Thread.currentThread().interrupt();
    }
  }

  private synchronized Metrics take() throws InterruptedException {
    while (next == null && !closing) {
      wait();
    }
    Metrics taken = next;
    next = null;
    return taken;
  }

  private void write(Metrics figures) throws IOException {
    if (folder != null) {
      figures.gauge("disk_free_bytes", "Free space where recordings are written.",
          folder.toFile().getUsableSpace());
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

  /** Writes the last figures and ends the thread; waits at most two seconds for the disk. */
  @Override
  public void close() {
    synchronized (this) {
      closing = true;
      notifyAll();
    }
    try {
      writer.join(CLOSE_MILLIS);
    } catch (InterruptedException e) {
      Thread.currentThread().interrupt();
    }
  }
}
