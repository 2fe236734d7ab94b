package com.morvin.dom.telephony.sniffer.sample.transport;

import com.morvin.dom.telephony.sniffer.sample.console.Console;
import java.io.IOException;
import java.util.ArrayDeque;
import java.util.Queue;
import java.util.concurrent.TimeUnit;

/**
 * Reads a transport on a thread of its own into a queue of at most 64 MiB, so that the socket is read even while the
 * recorder is busy. When the queue is full, the oldest frame is dropped and counted. A transport that redelivers is not
 * read while the queue is full, and nothing is dropped.
 */
public final class Intake implements AutoCloseable {
  private static final long MAX_BYTES = 64L << 20;
  /** Approximate memory of a frame in addition to its payload, in bytes. */
  private static final int OVERHEAD = 200;
  private static final long POLL_MILLIS = 200;

  private final Transport transport;
  private final Console console;
  private final Queue<Received> frames = new ArrayDeque<>();
  private final Thread reader = new Thread(this::read, "reader");
  private long bytes;
  private long dropped;
  private IOException failure;
  private boolean closed;

  /** Starts the thread. The caller closes the transport after this object. */
  public Intake(Transport transport, Console console) {
    this.transport = transport;
    this.console = console;
    reader.setDaemon(true);
    reader.start();
  }

  /** Takes the oldest frame, as {@link Transport#receive} does. Called by one thread. */
  public synchronized Received receive(long timeoutMillis) throws IOException, InterruptedException {
    long deadline = System.nanoTime() + TimeUnit.MILLISECONDS.toNanos(timeoutMillis);
    while (frames.isEmpty()) {
      if (failure != null) {
        throw failure;
      }
      long left = TimeUnit.NANOSECONDS.toMillis(deadline - System.nanoTime());
      if (left <= 0) {
        return null;
      }
      wait(left);
    }
    Received received = frames.remove();
    if (bytes >= MAX_BYTES) {
      notifyAll();
    }
    bytes -= sizeOf(received);
    return received;
  }

  /** Returns the number of frames that were dropped because the queue was full. Any thread may call it. */
  public synchronized long dropped() {
    return dropped;
  }

  private void read() {
    try {
      while (!isClosed()) {
        Received received = transport.receive(POLL_MILLIS);
        if (received != null) {
          add(received);
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

  private synchronized boolean isClosed() {
    return closed;
  }

  private synchronized void add(Received received) throws InterruptedException {
    while (transport.redelivers() && bytes >= MAX_BYTES && !closed) {
      wait();
    }
    while (bytes >= MAX_BYTES) {
      bytes -= sizeOf(frames.remove());
      if (dropped++ == 0) {
        console.line("the recorder is too slow for what comes: " + (MAX_BYTES >> 20)
            + " MB wait, the oldest frames are dropped");
      }
    }
    frames.add(received);
    bytes += sizeOf(received);
    if (frames.size() == 1) {
      notifyAll();
    }
  }

  private static long sizeOf(Received received) {
    return received.frame().payload().length + OVERHEAD;
  }

  private synchronized void fail(IOException cause) {
    failure = cause;
    notifyAll();
  }

  /** Stops the thread. Returns after the last call of {@link Transport#receive} has returned. */
  @Override
  public void close() {
    synchronized (this) {
      closed = true;
      notifyAll();
    }
    boolean interrupted = false;
    while (reader.isAlive()) {
      try {
        reader.join();
      } catch (InterruptedException e) {
        interrupted = true;
      }
    }
    if (interrupted) {
      Thread.currentThread().interrupt();
    }
  }
}
