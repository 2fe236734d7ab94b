package com.morvin.dom.telephony.sniffer.sample;

/** Asks the sniffer for a sign of life every few seconds, and notices when none comes. */
final class Heartbeat {
  private static final long INTERVAL_MILLIS = 5_000;
  private static final long PATIENCE_MILLIS = 15_000;

  private final Transport transport;
  private final Console console;
  private int session;
  private long asked;
  private long heard;
  private boolean awaited;
  private boolean silent;

  Heartbeat(Transport transport, Console console) {
    this.transport = transport;
    this.console = console;
  }

  /** Any frame is a sign of life. */
  void heard(long now) {
    if (silent) {
      console.line((transport.waitsForTraffic() ? "packets are captured again, after " : "the sniffer is back, after ")
          + Text.seconds(now - heard) + " s");
    }
    heard = now;
    awaited = false;
    silent = false;
  }

  void tick(long now) {
    if (!transport.connected()) {
      return;
    }
    if (transport.sessions() != session) {
      session = transport.sessions();
      asked = 0;
      heard = now;
      silent = false;
      awaited = false;
    }
    // Where replies wait for traffic, questions would only pile up.
    if (now - asked >= INTERVAL_MILLIS && !(awaited && transport.waitsForTraffic())) {
      transport.send(Command.heartbeat());
      asked = now;
      awaited = true;
    }
    if (!silent && now - heard >= PATIENCE_MILLIS) {
      silent = true;
      String since = " for " + PATIENCE_MILLIS / 1000 + " s";
      console.line(transport.waitsForTraffic()
          ? "no packet was captured" + since + ": is this the right device, and does the switch mirror the calls to it?"
          : "the sniffer has been silent" + since + ": is it running, and is the way to it open?");
    }
  }

  String state() {
    return !transport.connected() ? "no sniffer" : silent ? "SILENT" : "ok";
  }
}
