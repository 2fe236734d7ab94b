package com.morvin.dom.telephony.sniffer.sample.transport;

import com.morvin.dom.telephony.sniffer.sample.console.Console;
import com.morvin.dom.telephony.sniffer.sample.console.Text;
import com.morvin.dom.telephony.sniffer.sample.memory.HeapShare;
import java.io.IOException;
import java.util.ArrayDeque;
import java.util.List;
import java.util.Queue;
import java.util.concurrent.TimeUnit;

/**
 * Reads a transport on a thread of its own into a queue of 64 MiB, or less in a small heap, so that the socket is read
 * even while the recorder is busy. Frames are passed on in blocks: a lock, a wake-up or an object for each frame would
 * cost more than all that is done with it. When the queue is full, the oldest media is dropped first, and signalling
 * when no media waits. Dropped frames are counted; the beginning and the end of each overload are reported. A transport
 * that redelivers is not read while the queue is full, and nothing is dropped.
 */
public final class Intake implements AutoCloseable {
  /** Approximate memory of a block in addition to its frames, in bytes. */
  private static final int OVERHEAD = 100;
  /** A larger block need not have all frames that waited when it was read. */
  private static final int SMALL_BYTES = 128 << 10;
  private static final long POLL_MILLIS = 200;

  private final Transport transport;
  private final long maxBytes;
  private final SteadyClock clock;
  private final Console console;
  /** The oldest blocks, whose media was dropped, and those after them. */
  private final Queue<FrameBlock> signalling = new ArrayDeque<>();
  private final Queue<FrameBlock> blocks = new ArrayDeque<>();
  private final Thread reader = new Thread(this::read, "reader");
  private long bytes;
  private long dropped;
  private long droppedBefore;
  private long droppedSignalling;
  private long unhandled;
  private long overloadedSince;
  private boolean overloaded;
  private IOException failure;
  private boolean closed;
  /** Whether the thread reads no more. An error that ends it may keep it until the process has ended. */
  private boolean ended;

  /** Starts the thread. The caller closes the transport after this object. */
  public Intake(Transport transport, Console console, SteadyClock clock) {
    this(transport, console, clock, HeapShare.INTAKE);
  }

  /** Starts the thread with a queue of another size in bytes. */
  public Intake(Transport transport, Console console, SteadyClock clock, long maxBytes) {
    this.clock = clock;
    this.transport = transport;
    this.console = console;
    this.maxBytes = maxBytes;
    reader.setDaemon(true);
    reader.start();
  }

  /** Takes the oldest block, as {@link Transport#receive} does. Called by one thread. */
  public synchronized FrameBlock receive(long timeoutMillis) throws IOException, InterruptedException {
    long deadline = System.nanoTime() + TimeUnit.MILLISECONDS.toNanos(timeoutMillis);
    while (oldest().isEmpty()) {
      if (failure != null) {
        throw failure;
      }
      long left = TimeUnit.NANOSECONDS.toMillis(deadline - System.nanoTime());
      if (left <= 0) {
        return null;
      }
      wait(left);
    }
    if (bytes >= maxBytes) {
      notifyAll();
    }
    FrameBlock block = take(oldest());
    if (overloaded && bytes < maxBytes / 4) {
      recover();
    }
    return block;
  }

  /** Takes the oldest block; returns null when none waits. */
  public synchronized FrameBlock poll() {
    return oldest().isEmpty() ? null : take(oldest());
  }

  /** Returns the queue with the oldest block; an empty queue when none waits. */
  private Queue<FrameBlock> oldest() {
    return signalling.isEmpty() ? blocks : signalling;
  }

  private FrameBlock take(Queue<FrameBlock> from) {
    FrameBlock block = from.remove();
    bytes -= sizeOf(block);
    return block;
  }

  /** Returns the number of frames that were dropped because the queue was full. Any thread may call it. */
  public synchronized long dropped() {
    return dropped;
  }

  private void read() {
    try {
      readAll();
    } finally {
      synchronized (this) {
        ended = true;
        notifyAll();
      }
    }
  }

  private void readAll() {
    ReadPause pause = new ReadPause();
    try {
      while (!isClosed()) {
        FrameBlock block = transport.receive(POLL_MILLIS);
        if (block == null) {
          continue;
        }
        if (transport.redelivers()) {
          add(block);  // a front has filled its messages already
          continue;
        }
        add(block.readBy(clock));
        pause.read(block.length());
        if (!transport.hasBlock()) {
          pause.await();
        }
      }
    } catch (IOException e) {
      fail(e);
    } catch (InterruptedException e) {
      fail(new IOException("interrupted"));
    } catch (RuntimeException e) {
      fail(new IOException("receiving failed: " + e, e));
    }
  }

  /** Whether the block has all frames that waited when it was read. */
  public static boolean isSmall(FrameBlock block) {
    return block.length() < SMALL_BYTES;
  }

  private synchronized boolean isClosed() {
    return closed;
  }

  private synchronized void add(FrameBlock block) throws InterruptedException {
    while (transport.redelivers() && bytes >= maxBytes && !closed) {
      wait();
    }
    if (bytes >= maxBytes) {
      makeRoom();
    }
    blocks.add(block);
    bytes += sizeOf(block);
    notifyAll();
  }

  /**
   * Drops the older half of the media. A voice that loses many packets together costs the recorder less than one that
   * loses a few again and again, so the recorder catches up.
   */
  private void makeRoom() {
    while (bytes >= maxBytes || bytes > maxBytes / 2 && !blocks.isEmpty()) {
      drop();
    }
  }

  private void drop() {
    if (!overloaded) {
      overloaded = true;
      overloadedSince = System.nanoTime();
      droppedBefore = dropped;
      droppedSignalling = 0;
      console.line("the " + console.program() + " is too slow for what comes: " + (maxBytes >> 20)
          + " MB wait, the oldest media is dropped first");
    }
    if (blocks.isEmpty()) {
      int frames = take(signalling).count();
      droppedSignalling += frames;
      dropped += frames;
      return;
    }
    FrameBlock block = take(blocks);
    FrameBlock kept = block.signalling();
    dropped += block.count() - kept.count();
    if (kept.length() > 0) {
      signalling.add(kept);
      bytes += sizeOf(kept);
    }
  }

  /** Reports the end of an overload. */
  private void recover() {
    overloaded = false;
    long millis = TimeUnit.NANOSECONDS.toMillis(System.nanoTime() - overloadedSince);
    console.line("the " + console.program() + " has caught up after " + Text.seconds(millis) + " s: "
        + Text.count(dropped - droppedBefore - droppedSignalling, "media frame") + " and "
        + Text.count(droppedSignalling, "signalling frame") + " dropped");
  }

  private static long sizeOf(FrameBlock block) {
    return block.length() + OVERHEAD;
  }

  private synchronized void fail(IOException cause) {
    failure = cause;
    notifyAll();
  }

  /** Stops the thread, as {@link #end} does, and reports the number of frames that nobody has taken. */
  @Override
  public synchronized void close() {
    end();
    for (Queue<FrameBlock> queue : List.of(signalling, blocks)) {
      unhandled += transport.redelivers() ? 0 : queue.stream().mapToInt(FrameBlock::count).sum();
      queue.clear();
    }
    if (unhandled > 0) {
      console.line(Text.count(unhandled, "frame") + " that waited were not handled: the " + console.program()
          + " was stopped");
    }
  }

  /** Returns the number of frames that nobody had taken at the end, unless they are delivered again. */
  public synchronized long unhandled() {
    return unhandled;
  }

  /**
   * Stops the thread. Returns after the last call of {@link Transport#receive} has returned. Waiting blocks can still
   * be taken.
   */
  public synchronized void end() {
    closed = true;
    if (overloaded) {
      recover();
    }
    notifyAll();
    boolean interrupted = false;
    while (!ended) {
      try {
        wait();
      } catch (InterruptedException e) {
        interrupted = true;
      }
    }
    if (interrupted) {
      Thread.currentThread().interrupt();
    }
  }
}
