package com.morvin.dom.telephony.sniffer.sample.console;

import java.io.PrintStream;
import java.time.LocalTime;
import java.time.format.DateTimeFormatter;

/**
 * Prints one line for each event and, on a terminal, a status line below them that is replaced in place. Any thread may
 * call any method.
 */
public final class Console {
  private static final DateTimeFormatter TIME = DateTimeFormatter.ofPattern("HH:mm:ss");
  private static final String CLEAR_LINE = "\r\033[K";

  private final PrintStream out;
  private final boolean live;
  private String status = "";

  /**
   * Prints to a stream.
   *
   * @param live whether the stream is a terminal and shows the status line
   */
  public Console(PrintStream out, boolean live) {
    this.out = out;
    this.live = live;
  }

  /** Prints a line that starts with the local time of day. */
  public synchronized void line(String text) {
    print(LocalTime.now().format(TIME) + "  " + text);
  }

  /** Prints a line without the time. */
  public synchronized void print(String text) {
    if (live) {
      out.println(CLEAR_LINE + text);
      out.print(status);
    } else {
      out.println(text);
    }
    out.flush();
  }

  /** Replaces the status line. An empty text removes it. */
  public synchronized void status(String text) {
    if (live && !text.equals(status)) {
      status = text;
      out.print(CLEAR_LINE + text);
      out.flush();
    }
  }
}
