package com.morvin.dom.telephony.sniffer.sample.storage;

import com.morvin.dom.telephony.sniffer.sample.console.Console;
import com.morvin.dom.telephony.sniffer.sample.console.Text;
import java.io.IOException;
import java.nio.ByteBuffer;
import java.nio.channels.FileChannel;
import java.nio.file.FileSystemException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.StandardOpenOption;
import java.util.ArrayDeque;
import java.util.Deque;
import java.util.Iterator;
import java.util.concurrent.TimeUnit;

/**
 * Runs all jobs that write, in order, on the disk thread, so that no other thread waits for a disk that is slow,
 * stalled or full. A failed job is repeated until it succeeds. Meanwhile the others wait in memory. When too much
 * waits, the oldest media is dropped and counted. Any thread may call any method.
 */
public final class Disk implements AutoCloseable {
  private static final long RETRY_MILLIS = 500;
  /** A job is given up after this number of tries if other files can be written. */
  private static final int TRIES = 3;
  private static final int PROBE_BYTES = 64 << 10;
  private static final int JOB_OVERHEAD = 200;
  private static final long CLOSE_SECONDS = 8;

  /** A job for the disk thread. It starts from the beginning each time it is repeated. */
  public interface Job {
    /** Runs the job. An exception makes the disk thread repeat it. */
    void run() throws IOException;
  }

  private record Entry(Job job, long bytes, Runnable dropped) {}

  private final Path directory;
  private final long maxBytes;
  private final Console console;
  private final Job gate;
  private final Deque<Entry> entries = new ArrayDeque<>();
  private final Thread writer = new Thread(this::write, "writer");
  private long bytes;
  private long droppedBytes;
  private boolean busy;
  private boolean closing;
  private long failingSince;

  /**
   * Starts the disk thread.
   *
   * @param directory is probed to distinguish a full disk from a fault of one file
   * @param maxBytes the most media that waits
   * @param gate runs before each try of a job, which fails when it throws; a test simulates a faulty disk with it
   */
  public Disk(Path directory, long maxBytes, Console console, Job gate) {
    this.directory = directory;
    this.maxBytes = maxBytes;
    this.console = console;
    this.gate = gate;
    writer.setDaemon(true);
    writer.start();
  }

  /** Queues a job that is not dropped. It is given up only when it cannot succeed. */
  public void submit(Job job) {
    add(new Entry(job, 0, null));
  }

  /**
   * Queues a job that writes media, and that can be dropped when too much waits.
   *
   * @param size of the media in bytes
   * @param dropped runs instead of a dropped job, on any thread
   */
  public void write(int size, Job job, Runnable dropped) {
    add(new Entry(job, size + JOB_OVERHEAD, dropped));
  }

  private synchronized void add(Entry entry) {
    bytes += entry.bytes;
    for (Iterator<Entry> oldest = entries.iterator(); bytes > maxBytes && oldest.hasNext();) {
      Entry old = oldest.next();
      if (old.dropped != null) {
        oldest.remove();
        drop(old);
      }
    }
    entries.add(entry);
    notifyAll();
  }

  private void drop(Entry entry) {
    bytes -= entry.bytes;
    if (entry.dropped != null) {
      if (droppedBytes == 0) {
        console.line((maxBytes >> 20) + " MB of recordings wait for the disk: the oldest are dropped");
      }
      droppedBytes += entry.bytes;
      entry.dropped.run();
    }
  }

  private void write() {
    for (Entry entry = next(); entry != null; entry = next()) {
      boolean done = perform(entry);
      synchronized (this) {
        busy = false;
        if (done) {
          bytes -= entry.bytes;
        } else {
          drop(entry);
        }
        notifyAll();
      }
    }
  }

  private synchronized Entry next() {
    while (entries.isEmpty() && !closing) {
      await(0);
    }
    busy = !entries.isEmpty();
    return entries.poll();
  }

  /** Repeats a job until it succeeds. Returns false when it is given up. */
  private boolean perform(Entry entry) {
    for (int tries = 1;; tries++) {
      try {
        gate.run();
        entry.job.run();
        succeed();
        return true;
      } catch (IOException e) {
        fail(e);
        // A wrong name or missing rights concern one file. When no content can be written, the disk is full.
        if (tries >= TRIES && e instanceof FileSystemException && canWrite()) {
          console.line("given up after several tries: " + e);
          return false;
        }
        synchronized (this) {
          if (closing) {
            return false;
          }
          await(RETRY_MILLIS);
        }
      } catch (RuntimeException e) {
        console.line("writing failed: " + e);
        return false;
      }
    }
  }

  private boolean canWrite() {
    Path probe = directory.resolve(".probe");
    try {
      gate.run();
      try (FileChannel file = FileChannel.open(probe, StandardOpenOption.CREATE, StandardOpenOption.WRITE)) {
        file.write(ByteBuffer.allocate(PROBE_BYTES));
      }
      return true;
    } catch (IOException e) {
      return false;
    } finally {
      try {
        Files.deleteIfExists(probe);
      } catch (IOException ignored) {
        // The file that is left is small.
      }
    }
  }

  private void fail(IOException e) {
    if (failingSince == 0) {
      failingSince = System.nanoTime();
      console.line("cannot write to " + directory + ": " + e + "; recordings wait in memory");
    }
  }

  private void succeed() {
    if (failingSince != 0) {
      String missing = droppedBytes == 0 ? "nothing was dropped" : (droppedBytes >> 10) + " KB were dropped";
      long millis = TimeUnit.NANOSECONDS.toMillis(System.nanoTime() - failingSince);
      console.line("writing goes on after " + Text.seconds(millis) + " s; " + missing);
      failingSince = 0;
    }
  }

  private void await(long millis) {
    try {
      wait(millis);
    } catch (InterruptedException e) {
      closing = true;
    }
  }

  /** Waits until all queued jobs are done, at most 8 s. */
  public synchronized void drain() {
    long deadline = System.nanoTime() + TimeUnit.SECONDS.toNanos(CLOSE_SECONDS);
    while ((busy || !entries.isEmpty()) && System.nanoTime() - deadline < 0) {
      await(100);
    }
  }

  /** Returns the amount of dropped media in bytes. */
  public synchronized long droppedBytes() {
    return droppedBytes;
  }

  /** Waits as {@link #drain} does, discards the remaining jobs and stops the disk thread. */
  @Override
  public void close() {
    synchronized (this) {
      drain();
      if (!entries.isEmpty()) {
        console.line((bytes >> 10) + " KB of recordings could not be written");
      }
      closing = true;
      entries.clear();
      notifyAll();
    }
    try {
      writer.join(TimeUnit.SECONDS.toMillis(1));
    } catch (InterruptedException e) {
      Thread.currentThread().interrupt();
    }
  }
}
