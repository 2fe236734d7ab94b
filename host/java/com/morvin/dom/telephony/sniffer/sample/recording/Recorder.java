package com.morvin.dom.telephony.sniffer.sample.recording;

import com.morvin.dom.telephony.sniffer.sample.console.Console;
import com.morvin.dom.telephony.sniffer.sample.console.Text;
import com.morvin.dom.telephony.sniffer.sample.signalling.Call;
import com.morvin.dom.telephony.sniffer.sample.signalling.CallFollower;
import com.morvin.dom.telephony.sniffer.sample.signalling.Direction;
import com.morvin.dom.telephony.sniffer.sample.storage.Audience;
import com.morvin.dom.telephony.sniffer.sample.storage.CallLog;
import com.morvin.dom.telephony.sniffer.sample.storage.CallReport;
import com.morvin.dom.telephony.sniffer.sample.storage.Reports;
import com.morvin.dom.telephony.sniffer.sample.storage.RunningCalls;
import com.morvin.dom.telephony.sniffer.sample.storage.Store;
import com.morvin.dom.telephony.sniffer.sample.transport.Frame;
import com.morvin.dom.telephony.sniffer.sample.transport.Heartbeat;
import com.morvin.dom.telephony.sniffer.sample.transport.Intake;
import com.morvin.dom.telephony.sniffer.sample.transport.Received;
import com.morvin.dom.telephony.sniffer.sample.transport.Service;
import com.morvin.dom.telephony.sniffer.sample.transport.Transport;
import java.io.IOException;
import java.time.InstantSource;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;

/**
 * Follows the calls that sniffers report, asks for their media, and writes them down. Decoding happens on the thread
 * that calls {@link #run}; it waits neither for a socket nor for the disk.
 */
public final class Recorder implements Service, CallFollower.Listener {
  private static final long TICK_MILLIS = 200;
  private static final long SAVE_MILLIS = 1000;
  /** Calls that were running longer ago are over. */
  private static final long RESUME_MILLIS = 300_000;

  /** When to stop by itself, and bounds for calls. */
  public record Limits(boolean untilDisconnect, long idleExitMillis, CallFollower.Limits calls) {
    public static final Limits NONE = new Limits(false, Long.MAX_VALUE, CallFollower.Limits.DEFAULT);
  }

  private final Store store;
  private final Limits limits;
  private final Console console;
  private final InstantSource clock;
  private final Audience audience;
  private final CallLog log;
  private final Reports reports;
  private final CallFollower follower;
  private final Summary summary = new Summary();

  private final Map<Call, Recording> recordings = new LinkedHashMap<>();
  private RunningCalls running;
  private RunningCalls.Journal restoring;
  private Transport transport;
  private Heartbeat heartbeat;
  private Intake intake;
  private int sessions;
  private long lastNumber;
  /** What was captured before that has been handled; of what waits in a queue that is not the time it is. */
  private long reached;
  private long lastTick;
  private long lastSave;
  private long lastTraffic;
  private volatile boolean saving;
  private volatile boolean stopping;

  /**
   * Records into a store, which the caller closes.
   *
   * @param audience hears of calls
   */
  public Recorder(Store store, Limits limits, Console console, InstantSource clock, Audience audience)
      throws IOException {
    this.store = store;
    this.limits = limits;
    this.console = console;
    this.clock = clock;
    this.audience = audience;
    log = new CallLog(store.directory());
    reports = new Reports(store, log, console, report -> {
      summary.add(report);
      store.disk().then(() -> audience.ended(report));
    });
    follower = new CallFollower(this, limits.calls, command -> transport.send(command));
  }

  /** Records until {@link #stop} or one of the limits. Stopped, it goes on with the running calls when started again. */
  @Override
  public void run(Transport link) throws IOException, InterruptedException {
    attach(link);
    try (Intake reading = new Intake(link, console)) {
      intake = reading;
      while (!stopping) {
        boolean gone = limits.untilDisconnect && link.sessions() > 0 && link.sniffers().isEmpty();
        Received received = reading.receive(TICK_MILLIS);
        step(received);
        if (received == null && (gone || clock.millis() - lastTraffic >= limits.idleExitMillis)) {
          break;
        }
      }
    } finally {
      finish();
    }
  }

  /** Records what comes over a link from now on, beginning with what was running before a restart. */
  public void attach(Transport link) throws IOException {
    transport = link;
    heartbeat = new Heartbeat(link, console);
    sessions = link.sessions();
    lastTraffic = clock.millis();
    if (running == null) {
      running = new RunningCalls(store, log, link.redelivers());
      restore();
      link.resume(running.position());
    }
  }

  /** Handles one frame, or none, and does what is due. */
  public void step(Received received) {
    long now = clock.millis();
    long time = transport.redelivers() && received != null ? received.captured() : now;
    reached = transport.redelivers() && received == null ? transport.caughtUp(now) : time;
    greet();
    if (received != null) {
      Frame frame = received.frame();
      heartbeat.heard(received.sniffer(), now);
      summary.count(frame);
      lastNumber = received.number();
      if (frame.protocol() != Frame.HEARTBEAT || transport.waitsForTraffic()) {
        lastTraffic = now;
      }
      try {
        dispatch(received, time);
      } catch (RuntimeException e) {
        // Whoever sent this shall not end the recording of all others.
        countMalformed(1);
        console.line("a frame between " + frame.source() + " and " + frame.destination() + " cannot be handled: " + e);
      }
    }
    if (now - lastTick >= TICK_MILLIS || now < lastTick) {
      lastTick = now;
      tick(now);
    }
  }

  /** A sniffer that has come anew forwards nothing yet. */
  private void greet() {
    int newest = transport.sessions();
    for (int sniffer = sessions + 1; sniffer <= newest; sniffer++) {
      int anew = sniffer;
      follower.resend(command -> transport.send(anew, command));
    }
    sessions = newest;
  }

  /** Makes {@link #run} return soon. Any thread may call it. */
  @Override
  public void stop() {
    stopping = true;
  }

  @Override
  public boolean stopped() {
    return stopping;
  }

  private void dispatch(Received received, long now) {
    Frame frame = received.frame();
    switch (frame.protocol()) {
      case Frame.SIP, Frame.H323 -> {
        long before = follower.malformed();
        follower.signalling(frame, now);
        countMalformed(follower.malformed() - before);
      }
      case Frame.RTP -> media(received, now);
      default -> { }
    }
  }

  private void media(Received received, long now) {
    Call.Use use = follower.media(received.frame(), now);
    if (use != null) {
      summary.countPacket();
      Recording recording = recordings.get(use.call());
      boolean known = recording.media(received.frame(), use.direction(), use.media(), received.time(now));
      countMalformed(known ? 0 : 1);
      if (known && recording.showsUp()) {
        CallReport running = recording.unfinished();
        store.disk().then(() -> audience.began(running));
      }
    }
  }

  private void countMalformed(long count) {
    if (summary.countMalformed(count)) {
      console.line("ignoring malformed packets");
    }
  }

  private void tick(long now) {
    heartbeat.tick(now);
    follower.tick(reached, transport.losesCommands());
    if (now - lastSave >= SAVE_MILLIS || now < lastSave) {
      lastSave = now;
      long lost = recordings.values().stream().mapToLong(Recording::lost).sum();
      console.status(summary.status(recordings.size(), lost, now, dropped()) + " | " + heartbeat.state());
      save(now);
    }
  }

  private long dropped() {
    return intake == null ? 0 : intake.dropped();
  }

  /** While the disk is behind, an earlier one is still to come. */
  private void save(long now) {
    if (saving) {
      return;
    }
    saving = true;
    long upTo = lastNumber;
    Transport link = transport;
    byte[] position = link.position(upTo);
    running.save(recordings.values().stream().map(recording -> recording.save(running)).toList(), now, position, () -> {
      saving = false;
      if (link.redelivers()) {
        link.acknowledge(upTo);
      }
    });
  }

  private void restore() {
    try {
      List<RunningCalls.Loaded> loaded = running.load();
      long now = clock.millis();
      boolean late = !transport.redelivers() && now - running.savedAt() > RESUME_MILLIS;
      loaded.forEach(call -> restore(call, late, now));
      if (!recordings.isEmpty()) {
        console.line("going on with " + Text.count(recordings.size(), "call") + " from before the restart");
      }
    } catch (IOException e) {
      console.line("what was running before the restart cannot be read: " + e);
    }
  }

  private void restore(RunningCalls.Loaded loaded, boolean late, long now) {
    restoring = loaded.journal();
    for (RunningCalls.Signalled message : loaded.frames()) {
      follower.signalling(message.frame(), message.time());
    }
    restoring = null;
    Recording recording = recordings.values().stream().filter(other -> other.journal == loaded.journal()).findFirst()
        .orElse(null);
    if (recording == null) {
      running.end(loaded.journal());
      return;
    }
    try {
      if (loaded.state() != null) {
        recording.restore(loaded.state(), loaded.files());
      }
    } catch (IOException | RuntimeException e) {
      console.line(recording.call + "  goes on in new files: " + e);
    }
    recording.call.resume(now);
    if (late) {
      follower.end(recording.call, "recording stopped", recording.call.lastActivity());
    }
  }

  @Override
  public void began(Call call, long now) {
    recordings.put(call, new Recording(call, restoring != null ? restoring : running.begin(), store));
    if (restoring == null) {
      console.line(call + "  " + call.protocol() + "  " + Text.printable(call.caller()) + " -> "
          + Text.printable(call.callee()));
    }
  }

  @Override
  public void signalled(Call call, Frame frame, String label, long now) {
    recordings.get(call).signalled(frame, label, now, restoring != null);
  }

  @Override
  public void dialled(Call call, Direction direction, String digits, long now) {
    recordings.get(call).dialled(direction, digits, now);
  }

  @Override
  public void full(int calls) {
    console.line("no more than " + calls + " calls can be followed at a time: new ones are not recorded");
  }

  @Override
  public void ended(Call call, String how, long now) {
    Recording recording = recordings.remove(call);
    running.end(recording.journal);
    if (how.equals(CallFollower.DROPPED)) {
      // A flood leaves no trace on the disk.
      if (summary.countFlood()) {
        console.line("more calls than can be followed: those without media make way");
      }
      return;
    }
    if (recording.told() && call.isOnlyResumed()) {
      return;
    }
    report(recording, how, now);
  }

  private void report(Recording recording, String how, long now) {
    recording.report(reports, how, now);
    summary.countLost(recording.lost());
    console.line(recording.call + "  " + Text.printable(how) + " after " + Text.seconds(now - recording.call.start())
        + " s; " + recording.counts());
    recording.notes().forEach(note -> console.line(recording.call + "  " + Text.printable(note)));
  }

  /** Ends. When it was told to stop, it may be started again, and then the calls that are up go on. */
  public void finish() {
    long now = clock.millis();
    boolean goesOn = stopping;
    for (Call call : List.copyOf(follower.calls())) {
      String how = call.deadlineReason() != null ? call.deadlineReason() : "recording stopped";
      if (!goesOn) {
        follower.end(call, how, now);
      } else if (!transport.redelivers() && !(recordings.get(call).told() && call.isOnlyResumed())) {
        report(recordings.get(call), how, now);
      }
    }
    store.disk().drain();
    saving = false;
    save(now);
    store.disk().drain();
    console.status("");
  }

  /** What has been recorded, for the end. */
  @Override
  public void summarize() {
    if (transport != null) {
      console.print("");
      summary.lines(follower.seen(), transport.sessions(), store.directory()).forEach(console::print);
      if (follower.seen() > 0) {
        console.print("The table of calls: " + log.file());
      }
    }
  }
}
