package com.morvin.dom.telephony.sniffer.sample.cluster;

import com.morvin.dom.telephony.sniffer.sample.console.Console;
import com.morvin.dom.telephony.sniffer.sample.console.Text;
import java.util.concurrent.ThreadLocalRandom;
import java.util.concurrent.TimeUnit;

/**
 * The time without a connection to the broker: when to try again, and what the operator reads. One line reports the
 * beginning of an outage and one its end. The attempts in between are silent, except for a new reason once a minute. A
 * connection that fails within 10 s continues the outage before it. Belongs to one thread.
 */
final class Outage {
  private static final long FIRST_MILLIS = 1000;
  private static final long LONGEST_MILLIS = 10_000;
  private static final long STABLE_NANOS = TimeUnit.SECONDS.toNanos(10);
  private static final long SILENT_NANOS = TimeUnit.MINUTES.toNanos(1);

  private final Console console;
  private long delay = FIRST_MILLIS;
  private boolean away = true;
  /** Whether the next connection is to be reported. */
  private boolean endIsNews = true;
  private long since = System.nanoTime();
  private long connectedAt;
  private String reported = "";
  private long reportedAt;

  /** Begins without a connection. */
  Outage(Console console) {
    this.console = console;
  }

  /**
   * Records that the connection was lost, or that an attempt failed. Returns the time to wait before the next attempt,
   * in milliseconds: from 500 to 1000 at first, doubled each time, at most 10,000. It is random, so that the clients of
   * a broker do not return all at once.
   *
   * @param what cannot be done, for the line that reports it with the reason
   */
  long failed(String what, String why) {
    long now = System.nanoTime();
    if (!away && (reported.isEmpty() || now - connectedAt >= STABLE_NANOS)) {
      since = now;
      delay = FIRST_MILLIS;
      reported = "";
    }
    away = true;
    if (reported.isEmpty() || !why.equals(reported) && now - reportedAt >= SILENT_NANOS) {
      console.line(what + ": " + why);
      reported = why;
      reportedAt = now;
      endIsNews = true;
    }
    long wait = ThreadLocalRandom.current().nextLong(delay / 2, delay + 1);
    delay = Math.min(2 * delay, LONGEST_MILLIS);
    return wait;
  }

  /** Records that there is a connection. Returns whether the operator is to read it. */
  boolean over() {
    boolean news = endIsNews;
    connectedAt = System.nanoTime();
    away = false;
    endIsNews = false;
    return news;
  }

  /** Returns the length of the reported outage, such as "1.5 s"; null when there was none before this connection. */
  String length() {
    return reported.isEmpty() ? null
        : Text.seconds(TimeUnit.NANOSECONDS.toMillis(connectedAt - since)) + " s";
  }
}
