package com.morvin.dom.telephony.sniffer.sample.transport;

import com.morvin.dom.telephony.sniffer.sample.console.Console;
import com.morvin.dom.telephony.sniffer.sample.console.Text;
import java.util.HashMap;
import java.util.Map;
import java.util.Set;

/**
 * Sends a heartbeat to each sniffer every 5 s. Reports a sniffer that has been silent for 15 s, and forgets it after 60
 * s. All methods belong to one thread. Times are milliseconds of a clock that never steps.
 */
public final class Heartbeat {
  private static final long INTERVAL_MILLIS = 5_000;
  private static final long PATIENCE_MILLIS = 15_000;
  private static final long FORGET_MILLIS = 60_000;

  private static final class Pulse {
    private long asked;
    private long heard;
    private boolean awaited;
    private boolean silent;
  }

  private final Transport transport;
  private final Console console;
  private final Map<Integer, Pulse> pulses = new HashMap<>();

  /** Watches the sniffers of a transport. */
  public Heartbeat(Transport transport, Console console) {
    this.transport = transport;
    this.console = console;
  }

  /** Records that a sniffer is alive. Any frame shows that, not only a heartbeat reply. */
  public void heard(int sniffer, long now) {
    Pulse pulse = pulses.get(sniffer);
    if (pulse == null) {
      return;
    }
    if (pulse.silent) {
      String who = transport.waitsForTraffic() ? "packets are captured again" : transport.nameOf(sniffer) + " is back";
      console.line(who + ", after " + Text.seconds(now - pulse.heard) + " s");
    }
    pulse.heard = now;
    pulse.awaited = false;
    pulse.silent = false;
  }

  /** Sends the heartbeats that are due and reports silent sniffers. To be called a few times a second. */
  public void tick(long now) {
    Set<Integer> sniffers = transport.sniffers();
    pulses.keySet().retainAll(sniffers);
    for (int sniffer : sniffers) {
      Pulse pulse = pulses.get(sniffer);
      if (pulse == null) {
        pulse = new Pulse();
        pulse.asked = now - INTERVAL_MILLIS;
        pulse.heard = now;
        pulses.put(sniffer, pulse);
      }
      tick(sniffer, pulse, now);
    }
  }

  private void tick(int sniffer, Pulse pulse, long now) {
    // Where replies wait for traffic, further requests would only queue up.
    if (now - pulse.asked >= INTERVAL_MILLIS && !(pulse.awaited && transport.waitsForTraffic())) {
      transport.send(sniffer, Command.heartbeat());
      pulse.asked = now;
      pulse.awaited = true;
    }
    if (!pulse.silent && now - pulse.heard >= PATIENCE_MILLIS) {
      pulse.silent = true;
      String since = " for " + PATIENCE_MILLIS / 1000 + " s";
      console.line(transport.waitsForTraffic()
          ? "no packet was captured" + since + ": is this the right device, and does the switch mirror the calls to it?"
          : transport.nameOf(sniffer) + " has been silent" + since + ": is it running, and is the way to it open?");
    }
    if (now - pulse.heard >= FORGET_MILLIS) {
      transport.forget(sniffer);
    }
  }

  /** Returns the state of the sniffers, for the status line. */
  public String state() {
    long silent = pulses.values().stream().filter(pulse -> pulse.silent).count();
    return transport.sniffers().isEmpty() ? "no sniffer" : silent > 0 ? "sniffer SILENT" : "sniffer ok";
  }
}
