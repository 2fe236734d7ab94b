package com.morvin.dom.telephony.sniffer.sample.storage;

import com.morvin.dom.telephony.sniffer.sample.console.Console;
import com.morvin.dom.telephony.sniffer.sample.console.Text;
import com.morvin.dom.telephony.sniffer.sample.metrics.Metrics;
import java.io.IOException;
import java.nio.ByteBuffer;
import java.nio.channels.FileChannel;
import java.nio.file.FileSystemException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.StandardOpenOption;
import java.util.ArrayDeque;
import java.util.Deque;
import java.util.List;
import java.util.concurrent.TimeUnit;

/**
 * Runs all jobs that write, in order, on the disk thread, so that no other thread waits for a disk that is slow,
 * stalled or full. A failed job is repeated until it succeeds. Meanwhile the others wait in memory. When too much
 * waits, the oldest minor jobs are dropped and counted, then the oldest media, then the oldest of the other jobs. Any
 * thread may call any method.
 */
public final class Disk implements AutoCloseable {
  private static final long RETRY_MILLIS = 500;
  /** A job is given up after this number of tries after which another file could be written. */
  private static final int TRIES = 3;
  private static final int PROBE_BYTES = 64 << 10;
  private static final int JOB_OVERHEAD = 200;
  /** How long {@link #drain} waits while jobs fail, or after {@link #hurry}. */
  private static final long PATIENCE_NANOS = TimeUnit.SECONDS.toNanos(5);

  /** A job for the disk thread. It starts from the beginning each time it is repeated. */
  public interface Job {
    /** Runs the job. An exception makes the disk thread repeat it. */
    void run() throws IOException;
  }

  /** Decides whether the disk can take data. */
  public interface Gate {
    /** Throws when the disk cannot take a number of bytes. */
    void admit(long bytes) throws IOException;
  }

  /** One file is left out; others may be written. */
  public static final class LeftOutException extends IOException {
    private static final long serialVersionUID = 1;

    /** Says what is left out, and why. */
    public LeftOutException(String message) {
      super(message);
    }
  }

  /** What a job writes, in the order in which jobs are dropped. */
  public enum Content { MINOR, MEDIA, STATE }

  /** Jobs that belong together: each is repeated until it succeeds or is given up; then the next one follows. */
  private record Entry(long number, List<Job> jobs, long bytes, Content content, Runnable dropped) {}

  private final Path directory;
  private final long maxBytes;
  private final Console console;
  private final Gate gate;
  /** The waiting jobs, oldest first, in the order of {@link Content}. The numbers give the order of all queues. */
  private final List<Deque<Entry>> queues = List.of(new ArrayDeque<>(), new ArrayDeque<>(), new ArrayDeque<>());
  private final Thread writer = new Thread(this::write, "writer");
  private long lastNumber;
  private long bytes;
  /** Those of {@link #bytes} that are no media. */
  private long stateBytes;
  private long droppedBytes;
  private long droppedBytesBefore;
  private long droppedJobs;
  private long droppedJobsBefore;
  private boolean dropping;
  /** The entry that was counted last: several jobs of it can be given up. */
  private Entry counted;
  private boolean busy;
  private boolean closing;
  /** Whether an error has ended the disk thread. */
  private boolean ended;
  private long hurriedSince;
  private boolean hurried;
  private boolean restReported;
  /** The number of jobs that were given up after {@link #hurry}, and why the first one was. */
  private int givenUp;
  private String firstGivenUp;
  private long failingSince;
  private boolean failing;

  /**
   * Starts the disk thread.
   *
   * @param directory is probed to distinguish a full disk from a fault of one file
   * @param maxBytes the most that waits
   * @param gate is asked before each try of a job
   */
  public Disk(Path directory, long maxBytes, Console console, Gate gate) {
    this.directory = directory;
    this.maxBytes = maxBytes;
    this.console = console;
    this.gate = gate;
    writer.setDaemon(true);
    writer.start();
  }

  /** Queues a job. */
  public void submit(Job job) {
    submit(JOB_OVERHEAD, List.of(job), Content.STATE, () -> { });
  }

  /**
   * Queues jobs that belong together.
   *
   * @param size the memory that they take while they wait, in bytes
   * @param dropped runs instead of dropped jobs, or after one of them is given up, on any thread
   */
  public void submit(int size, List<Job> jobs, Runnable dropped) {
    submit(size, jobs, Content.STATE, dropped);
  }

  /**
   * Queues a job that writes media.
   *
   * @param size of the media in bytes
   * @param dropped runs instead of a dropped job, on any thread
   */
  public void write(int size, Job job, Runnable dropped) {
    submit(size + JOB_OVERHEAD, List.of(job), Content.MEDIA, dropped);
  }

  /**
   * Queues jobs that belong together.
   *
   * @param size the memory that they take while they wait, in bytes
   * @param content decides when they are dropped
   * @param dropped runs instead of dropped jobs, or after one of them is given up, on any thread
   */
  public synchronized void submit(int size, List<Job> jobs, Content content, Runnable dropped) {
    Entry entry = new Entry(++lastNumber, jobs, size, content, dropped);
    add(entry, 1);
    while (bytes > maxBytes && !isIdle()) {
      drop(queues.stream().filter(queue -> !queue.isEmpty()).findFirst().orElseThrow().remove());
    }
    queues.get(content.ordinal()).add(entry);
    notifyAll();
  }

  private void add(Entry entry, int times) {
    bytes += times * entry.bytes;
    stateBytes += entry.content == Content.MEDIA ? 0 : times * entry.bytes;
  }

  /** Whether so many jobs without media wait that further ones would take the place of media. */
  public synchronized boolean isBehind() {
    return stateBytes >= maxBytes / 4;
  }

  private synchronized void drop(Entry entry) {
    add(entry, -1);
    if (!dropping) {
      beginCounting();
      dropping = true;
      console.line((maxBytes >> 20) + " MB wait for the disk: reports of calls without media are dropped, then the "
          + "oldest media");
    }
    count(entry);
    entry.dropped.run();
  }

  private void count(Entry entry) {
    if (entry != counted) {
      counted = entry;
      droppedBytes += entry.content == Content.MEDIA ? entry.bytes : 0;
      droppedJobs += entry.content == Content.MEDIA ? 0 : 1;
    }
  }

  /** Begins a fault, whose end is reported with what was dropped since now. */
  private void beginCounting() {
    if (!failing && !dropping) {
      droppedBytesBefore = droppedBytes;
      droppedJobsBefore = droppedJobs;
    }
  }

  private void write() {
    try {
      writeAll();
    } finally {
      synchronized (this) {
        ended = true;
        notifyAll();
      }
    }
  }

  private void writeAll() {
    for (Entry entry = next(); entry != null; entry = next()) {
      boolean done = true;
      for (Job job : entry.jobs) {
        done &= perform(job, entry);
      }
      if (!done) {
        entry.dropped.run();
      }
      synchronized (this) {
        busy = false;
        add(entry, -1);
        notifyAll();
      }
    }
  }

  private synchronized Entry next() {
    while (isIdle() && !closing) {
      await(0);
    }
    busy = !isIdle();
    Deque<Entry> oldest = queues.get(0);
    for (Deque<Entry> queue : queues) {
      boolean isOlder = oldest.isEmpty() || !queue.isEmpty() && queue.element().number < oldest.element().number;
      oldest = isOlder ? queue : oldest;
    }
    return oldest.poll();
  }

  private boolean isIdle() {
    for (Deque<Entry> queue : queues) {
      if (!queue.isEmpty()) {
        return false;
      }
    }
    return true;
  }

  /** Repeats a job until it succeeds. Returns false when it is given up. */
  private boolean perform(Job job, Entry entry) {
    for (int tries = 0; tries < TRIES; ) {
      try {
        gate.admit(1);
        job.run();
        succeed();
        return true;
      } catch (IOException e) {
        fail(e);
        // A wrong name, missing rights or a file that does not fit concern one file. When no content can be written,
        // the disk is full.
        boolean oneFile = (e instanceof FileSystemException || e instanceof LeftOutException) && canWrite();
        tries += oneFile ? e instanceof LeftOutException ? TRIES : 1 : 0;
        if (tries >= TRIES) {
          giveUp(entry, "given up: " + e, !(e instanceof LeftOutException));
          succeed();
          return false;
        }
        synchronized (this) {
          if (closing) {
            return false;
          }
          await(RETRY_MILLIS);
        }
      } catch (RuntimeException e) {
        // One job must not end the writing of all others. An error ends the process.
        giveUp(entry, "writing failed: " + e, true);
        return false;
      }
    }
    return false;
  }

  /** Throws unless the disk can take a large file. */
  void admit(long size) throws IOException {
    gate.admit(size);
  }

  private boolean canWrite() {
    Path probe = directory.resolve(".probe");
    try {
      gate.admit(PROBE_BYTES);
      try (FileChannel file = FileOperations.open(probe, StandardOpenOption.CREATE, StandardOpenOption.WRITE)) {
        FileOperations.writeAll(file, ByteBuffer.allocate(PROBE_BYTES), 0);
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

  private synchronized void fail(IOException e) {
    if (!failing && !(e instanceof LeftOutException)) {
      beginCounting();
      failing = true;
      failingSince = System.nanoTime();
      console.line("cannot write to " + directory + ": " + e + "; what is to be written waits in memory");
    }
  }

  private synchronized void succeed() {
    if (failing || dropping && bytes < maxBytes / 2) {
      long lost = droppedBytes - droppedBytesBefore;
      long jobs = droppedJobs - droppedJobsBefore;
      long millis = failing ? TimeUnit.NANOSECONDS.toMillis(System.nanoTime() - failingSince) : 0;
      console.line("writing goes on" + (failing ? " after " + Text.seconds(millis) + " s; " : "; ")
          + (lost + jobs == 0 ? "nothing was dropped" : (lost >> 10) + " KB of media and "
              + Text.count(jobs, "other job") + " (reports, the state of calls) were dropped"));
      failing = false;
      dropping = false;
    }
  }

  /** Reports a job that is given up. Those after {@link #hurry} are reported together. */
  private synchronized void giveUp(Entry entry, String why, boolean isLost) {
    if (isLost) {
      count(entry);
    }
    if (!hurried) {
      console.line(why);
    } else if (givenUp++ == 0) {
      firstGivenUp = why;
    }
  }

  private void await(long millis) {
    try {
      wait(millis);
    } catch (InterruptedException e) {
      closing = true;
    }
  }

  /** Makes {@link #drain} and {@link #close} wait no longer than five seconds from now. */
  public synchronized void hurry() {
    if (!hurried) {
      hurried = true;
      hurriedSince = System.nanoTime();
      notifyAll();
    }
  }

  /** Whether half of the time after {@link #hurry} is over, so that large files are left out. */
  synchronized boolean isOverdue() {
    return hurried && System.nanoTime() - hurriedSince >= PATIENCE_NANOS / 2;
  }

  /**
   * Waits until all queued jobs are done. Gives up when they have failed for five seconds, or an error has ended the
   * disk thread; see also {@link #hurry}.
   */
  public synchronized void drain() {
    drain(Long.MAX_VALUE);
  }

  /** Waits as {@link #drain()} does, at most the given time in milliseconds. */
  public synchronized void drain(long millis) {
    long begin = System.nanoTime();
    while (!ended && (busy || !isIdle()) && System.nanoTime() - begin < TimeUnit.MILLISECONDS.toNanos(millis)) {
      long now = System.nanoTime();
      if (failing && now - failingSince >= PATIENCE_NANOS || hurried && now - hurriedSince >= PATIENCE_NANOS) {
        break;
      }
      await(100);
    }
    reportRest();
  }

  private void reportRest() {
    int jobs = queues.stream().mapToInt(Deque::size).sum();
    if (jobs > 0 && !restReported) {
      restReported = true;
      console.line((bytes >> 10) + " KB in " + Text.count(jobs, "job") + " could not be written in time");
    }
    if (givenUp > 0) {
      console.line(firstGivenUp + (givenUp == 1 ? "" : "; and " + Text.count(givenUp - 1, "more job")));
      givenUp = 0;
    }
  }

  /** Returns a line about what was dropped, if anything was. */
  public synchronized List<String> losses() {
    return droppedBytes + droppedJobs == 0 ? List.of() : List.of((droppedBytes >> 10) + " KB of media and "
        + Text.count(droppedJobs, "other job") + " (reports, the state of calls) dropped before the disk");
  }

  /** Returns the amount of dropped media in bytes. */
  public synchronized long droppedBytes() {
    return droppedBytes;
  }

  /** Adds the figures of the disk. */
  public synchronized void measure(Metrics figures) {
    figures.gauge("disk_waiting_bytes", "Recordings and reports that wait for the disk, in memory.", bytes);
    figures.gauge("disk_failing", "1 while nothing can be written.", failing ? 1 : 0);
    figures.counter("disk_dropped_bytes_total", "Media that the disk did not take.", droppedBytes);
    figures.counter("disk_dropped_jobs_total", "Reports and states of calls that the disk did not take.", droppedJobs);
  }

  /** Waits as {@link #drain} does, discards the remaining jobs and stops the disk thread. */
  @Override
  public void close() {
    synchronized (this) {
      drain();
      reportRest();
      closing = true;
      queues.forEach(Deque::clear);
      notifyAll();
    }
    try {
      writer.join(TimeUnit.SECONDS.toMillis(1));
    } catch (InterruptedException e) {
      Thread.currentThread().interrupt();
    }
  }
}
