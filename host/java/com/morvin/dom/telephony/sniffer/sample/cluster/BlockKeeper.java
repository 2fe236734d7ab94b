package com.morvin.dom.telephony.sniffer.sample.cluster;

import com.morvin.dom.telephony.sniffer.sample.console.Console;
import com.morvin.dom.telephony.sniffer.sample.memory.HeapShare;
import com.morvin.dom.telephony.sniffer.sample.transport.FrameBlock;
import com.morvin.dom.telephony.sniffer.sample.transport.SteadyClock;
import java.io.IOException;
import java.util.ArrayDeque;
import java.util.Deque;
import java.util.concurrent.TimeUnit;
import java.util.function.Consumer;

/**
 * Writes the blocks that a front reads to a {@link BlockLog} on a thread of its own, so that a slow disk delays nobody.
 * The order of the blocks is kept. A block that is released before the disk takes it is not written. When too much
 * waits, the oldest blocks are dropped. Any thread may call any method.
 */
final class BlockKeeper {
  /** A disk that is nearly full takes a block now and then. */
  private static final long STABLE_NANOS = TimeUnit.SECONDS.toNanos(3);

  /** A block with the times when it was read: by the clock of the front, and in milliseconds since 1970. */
  private record Read(FrameBlock block, long at, long timeOfDay) {}

  private final BlockLog log;
  private final Console console;
  private final Thread thread = new Thread(this::run, "block writer");
  private final Deque<Read> waiting = new ArrayDeque<>();
  private long bytes;
  private long releasedUpTo;
  private boolean hasReleased;
  /** Whether nothing is written until {@link #retry}, because the last block could not be written. */
  private boolean pausing;
  private boolean closing;
  /** Whether the thread writes no more. An error that ends it may keep it until the process has ended. */
  private boolean ended;
  /** Whether the operator has read that blocks cannot be kept, and the System.nanoTime when the last one could not. */
  private boolean failing;
  private long failedAt;

  /** Makes a keeper without a thread. The log belongs to the keeper from now on. */
  BlockKeeper(BlockLog log, Console console) {
    this.log = log;
    this.console = console;
    thread.setDaemon(true);
  }

  /** Reads the blocks of an earlier front, as {@link BlockLog#load} does, and starts the thread. Called once. */
  void load(SteadyClock clock, Consumer<FrameBlock> out) {
    try {
      log.load(clock, out);
    } catch (IOException e) {
      console.line("the frames from before the restart cannot be read: " + e);
    } finally {
      thread.start();
    }
  }

  /** Keeps a block that was read now until it is released. */
  synchronized void append(FrameBlock block, long now) {
    while (bytes > HeapShare.KEPT_FRAMES && !waiting.isEmpty()) {
      remove(waiting.element());
      reportFailure((HeapShare.KEPT_FRAMES >> 20) + " MB wait for the disk");
    }
    waiting.add(new Read(block, now, System.currentTimeMillis()));
    bytes += block.length();
    notifyAll();
  }

  /** Removes the blocks that were read up to a time. */
  synchronized void release(long upTo) {
    releasedUpTo = upTo;
    hasReleased = true;
    while (!waiting.isEmpty() && waiting.element().at <= upTo) {
      remove(waiting.element());
    }
    notifyAll();
  }

  /** Lets the thread try again after a failure. To be called regularly. */
  synchronized void retry() {
    pausing = false;
    notifyAll();
  }

  /** Whether some blocks are not kept. */
  synchronized boolean isFailing() {
    return failing;
  }

  private void run() {
    try {
      while (awaitWork()) {
        Read oldest = takeReleased();
        if (oldest != null) {
          write(oldest);
        }
      }
    } catch (InterruptedException e) {
      // Nobody interrupts the thread.
    } finally {
      synchronized (this) {
        ended = true;
        notifyAll();
      }
    }
  }

  /** Returns false when the thread is to end. */
  private synchronized boolean awaitWork() throws InterruptedException {
    while (!closing && !hasReleased && (pausing || waiting.isEmpty())) {
      wait();
    }
    return !closing;
  }

  /** Removes the files that were released. Returns the block to write; null when none can be written. */
  private Read takeReleased() {
    long upTo;
    Read oldest;
    synchronized (this) {
      upTo = hasReleased ? releasedUpTo : Long.MIN_VALUE;
      hasReleased = false;
      oldest = pausing ? null : waiting.peek();
    }
    try {
      log.release(upTo);
    } catch (IOException e) {
      // They are removed later. Where files cannot be removed, new ones cannot be written: write() reports that.
    }
    return oldest;
  }

  private void write(Read read) {
    try {
      log.append(read.block, read.at, read.timeOfDay);
      written(read);
    } catch (IOException e) {
      synchronized (this) {
        pausing = true;
        reportFailure(e.toString());
      }
    }
  }

  private synchronized void written(Read read) {
    remove(read);
    if (failing && System.nanoTime() - failedAt >= STABLE_NANOS) {
      failing = false;
      console.line("frames are kept again for the case that this front is killed");
    }
  }

  /** Removes the oldest block, unless it was removed while it was written. */
  private void remove(Read oldest) {
    if (waiting.peek() == oldest) {
      waiting.remove();
      bytes -= oldest.block.length();
    }
  }

  private void reportFailure(String why) {
    failedAt = System.nanoTime();
    if (!failing) {
      console.line("frames cannot be kept for the case that this front is killed: " + why);
    }
    failing = true;
  }

  private synchronized void awaitEnd() {
    try {
      while (thread.isAlive() && !ended) {
        wait();
      }
    } catch (InterruptedException e) {
      Thread.currentThread().interrupt();
    }
  }

  /** Stops the thread, and removes all blocks. Nothing can be kept afterwards. */
  void clear() throws IOException {
    synchronized (this) {
      closing = true;
      notifyAll();
    }
    awaitEnd();
    log.clear();
  }
}
