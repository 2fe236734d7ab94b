package com.morvin.dom.telephony.sniffer.sample.console;

import java.io.PrintStream;
import java.time.LocalTime;
import java.time.format.DateTimeFormatter;
import java.util.ArrayDeque;
import java.util.Queue;
import java.util.concurrent.TimeUnit;

/**
 * Prints one line for each event and, on a terminal, a status line below them that is replaced in place. A separate
 * thread prints, because a paused terminal or a pipe that is not read blocks the writer. Meanwhile lines wait; when too
 * many wait, the newest are dropped and counted. Any thread may call any method.
 */
public final class Console {
  private static final DateTimeFormatter TIME = DateTimeFormatter.ofPattern("HH:mm:ss");
  private static final String CLEAR_LINE = "\r\033[K";
  private static final int MAX_LINES = 1000;

  private final PrintStream out;
  private final boolean live;
  private final String program;
  private final Queue<String> lines = new ArrayDeque<>();
  private String status = "";
  private String shown = "";
  private long dropped;
  private Thread printer;
  private boolean printing;

  /**
   * Prints to a stream.
   *
   * @param live whether the stream is a terminal and shows the status line
   */
  public Console(PrintStream out, boolean live) {
    this(out, live, "recorder");
  }

  /** Prints lines of a program with another name. */
  public Console(PrintStream out, boolean live, String program) {
    this.out = out;
    this.live = live;
    this.program = program;
  }

  /** Returns what this program calls itself in its lines: "recorder" or "front". */
  public String program() {
    return program;
  }

  /** Prints a line that starts with the local time of day. */
  public void line(String text) {
    print(LocalTime.now().format(TIME) + "  " + text);
  }

  /** Prints a line without the time. */
  public synchronized void print(String text) {
    if (lines.size() < MAX_LINES) {
      lines.add(text);
    } else {
      dropped++;
    }
    wakePrinter();
  }

  /** Replaces the status line. An empty text removes it. */
  public synchronized void status(String text) {
    if (live && !text.equals(status)) {
      status = text;
      wakePrinter();
    }
  }

  /** Waits until all is printed, at most the given time in milliseconds. */
  public synchronized void flush(long millis) {
    long deadline = System.nanoTime() + TimeUnit.MILLISECONDS.toNanos(millis);
    try {
      for (long left = millis; (isDue() || printing) && left > 0;
          left = TimeUnit.NANOSECONDS.toMillis(deadline - System.nanoTime())) {
        wait(left);
      }
    } catch (InterruptedException e) {
      Thread.currentThread().interrupt();
    }
  }

  private boolean isDue() {
    return !lines.isEmpty() || dropped > 0 || !status.equals(shown);
  }

  private void wakePrinter() {
    if (printer == null) {
      printer = new Thread(this::printAll, "console");
      printer.setDaemon(true);
      printer.start();
    }
    notifyAll();
  }

  private void printAll() {
    try {
      while (true) {
        String text = next();
        out.print(text);
        out.flush();
      }
    } catch (InterruptedException e) {
      Thread.currentThread().interrupt();
    }
  }

  /** Waits for the next text and returns it, with the control characters that a terminal needs. */
  private synchronized String next() throws InterruptedException {
    printing = false;
    notifyAll();
    while (!isDue()) {
      wait();
    }
    printing = true;
    String line = lines.poll();
    if (line == null && dropped > 0) {
      line = Text.count(dropped, "line") + " missing here: nobody read them";
      dropped = 0;
    }
    shown = status;
    String printed = line == null ? "" : line + System.lineSeparator();
    return live ? CLEAR_LINE + printed + status : printed;
  }
}
