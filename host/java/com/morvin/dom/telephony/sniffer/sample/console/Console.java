package com.morvin.dom.telephony.sniffer.sample.console;

import java.io.PrintStream;
import java.time.LocalTime;
import java.time.format.DateTimeFormatter;

/** A line for each event and, on a terminal, one live status line below them. */
public final class Console {
  private static final DateTimeFormatter TIME = DateTimeFormatter.ofPattern("HH:mm:ss");
  private static final String CLEAR_LINE = "\r\033[K";

  private final PrintStream out;
  private final boolean live;
  private String status = "";

  public Console(PrintStream out, boolean live) {
    this.out = out;
    this.live = live;
  }

  /** Prints a line with the time in front. Any thread may call it. */
  public synchronized void line(String text) {
    print(LocalTime.now().format(TIME) + "  " + text);
  }

  /** Prints a line as it is. */
  public synchronized void print(String text) {
    if (live) {
      out.println(CLEAR_LINE + text);
      out.print(status);
    } else {
      out.println(text);
    }
    out.flush();
  }

  /** Replaces the status line; an empty one removes it. */
  public synchronized void status(String text) {
    if (live && !text.equals(status)) {
      status = text;
      out.print(CLEAR_LINE + text);
      out.flush();
    }
  }
}
