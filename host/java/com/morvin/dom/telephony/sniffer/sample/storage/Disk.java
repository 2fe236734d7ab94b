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
 * Does all writing, in order, on a thread of its own, so that a disk that is slow, stalls or is full keeps nobody
 * waiting. What cannot be written is tried again until it can; meanwhile it waits in memory, and when that is full the
 * oldest media is dropped and counted.
 */
public final class Disk implements AutoCloseable {
  private static final long RETRY_MILLIS = 500;
  /** After so many tries a job is given up if others can be done there. */
  private static final int TRIES = 3;
  private static final int PROBE_BYTES = 64 << 10;
  private static final int JOB_OVERHEAD = 200;
  private static final long CLOSE_SECONDS = 8;

  /** Something to write, from the beginning each time it is tried. */
  public interface Job {
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
   * Writes into a directory.
   *
   * @param maxBytes what may wait
   * @param gate runs before each job and each try, in its place when it throws: a test can stand for a bad disk
   */
  public Disk(Path directory, long maxBytes, Console console, Job gate) {
    this.directory = directory;
    this.maxBytes = maxBytes;
    this.console = console;
    this.gate = gate;
    writer.setDaemon(true);
    writer.start();
  }

  /** Does a job that must not be left out, unless it can never succeed. */
  public void then(Job job) {
    add(new Entry(job, 0, null));
  }

  /** Writes media: the oldest is dropped when too much waits, and then that is run instead, on any thread. */
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

  /** Returns whether it has been done. */
  private boolean perform(Entry entry) {
    for (int tries = 1;; tries++) {
      try {
        gate.run();
        entry.job.run();
        succeed();
        return true;
      } catch (IOException e) {
        fail(e);
        // Names and rights are troubles of one file; when its content cannot be written the disk is full.
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
        // It is empty or small.
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
      console.line("writing goes on after " + Text.seconds(TimeUnit.NANOSECONDS.toMillis(System.nanoTime() - failingSince))
          + " s; " + missing);
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

  /** Waits until all that was asked for is on disk, or for some seconds. */
  public synchronized void drain() {
    long deadline = System.nanoTime() + TimeUnit.SECONDS.toNanos(CLOSE_SECONDS);
    while ((busy || !entries.isEmpty()) && System.nanoTime() - deadline < 0) {
      await(100);
    }
  }

  /** Media that was not written. */
  public synchronized long droppedBytes() {
    return droppedBytes;
  }

  /** Finishes what can be written in a few seconds. */
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
