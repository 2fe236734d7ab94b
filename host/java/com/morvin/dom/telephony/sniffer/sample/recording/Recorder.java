package com.morvin.dom.telephony.sniffer.sample.recording;

import com.morvin.dom.telephony.sniffer.sample.console.Console;
import com.morvin.dom.telephony.sniffer.sample.console.Text;
import com.morvin.dom.telephony.sniffer.sample.service.Service;
import com.morvin.dom.telephony.sniffer.sample.signalling.Call;
import com.morvin.dom.telephony.sniffer.sample.signalling.CallFollower;
import com.morvin.dom.telephony.sniffer.sample.signalling.Direction;
import com.morvin.dom.telephony.sniffer.sample.storage.CallLog;
import com.morvin.dom.telephony.sniffer.sample.storage.CallReport;
import com.morvin.dom.telephony.sniffer.sample.storage.ReportListener;
import com.morvin.dom.telephony.sniffer.sample.storage.Reports;
import com.morvin.dom.telephony.sniffer.sample.storage.RunningCalls;
import com.morvin.dom.telephony.sniffer.sample.storage.Store;
import com.morvin.dom.telephony.sniffer.sample.transport.Frame;
import com.morvin.dom.telephony.sniffer.sample.transport.Received;
import com.morvin.dom.telephony.sniffer.sample.transport.SteadyClock;
import com.morvin.dom.telephony.sniffer.sample.transport.Transport;
import java.io.IOException;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;

/**
 * Records calls: follows the calls that sniffers report, asks for their media, and writes it to files. The thread that
 * calls {@link #run} decodes the media; it waits neither for a socket nor for the disk.
 */
public final class Recorder extends Service {
  private static final long POLL_MILLIS = 200;
  private static final long SAVE_MILLIS = 1000;
  /** After a longer interruption a saved call counts as ended. */
  private static final long RESUME_MILLIS = 300_000;

  private final Store store;
  private final ReportListener listener;
  private final CallLog log;
  private final Reports reports;
  private final Summary summary = new Summary();

  private final Map<Call, Recording> recordings = new LinkedHashMap<>();
  private boolean keepsDigits = true;
  private RunningCalls running;
  private RunningCalls.Loaded restoring;
  private long lastNumber;
  private long lastSave;
  private volatile boolean saving;

  /**
   * Records into a store, which the caller closes.
   *
   * @param clock the time of the recorder
   * @param listener is called on the disk thread
   */
  public Recorder(Store store, Limits limits, Console console, SteadyClock clock, ReportListener listener)
      throws IOException {
    super(limits, POLL_MILLIS, console, clock);
    this.store = store;
    this.listener = listener;
    log = new CallLog(store.directory());
    reports = new Reports(store, log, summary::add, listener);
  }

  /** Makes the recorder ignore pressed keys, which can be card numbers. Called before {@link #run}. */
  public void ignoreDigits() {
    keepsDigits = false;
  }

  /** Continues the calls that were running before a restart, with the first transport only. */
  @Override
  protected void attached() {
    if (running == null) {
      running = new RunningCalls(store, log, transport().redelivers());
      restore();
      transport().resume(running.position());
    }
  }

  @Override
  protected void handle(Received received, long now) {
    Frame frame = received.frame();
    summary.count(frame);
    lastNumber = received.number();
    try {
      dispatch(received);
    } catch (RuntimeException e) {
      // The sender of one frame must not end the recording of all other calls.
      countMalformed(1);
      console.line("a frame between " + frame.source() + " and " + frame.destination() + " cannot be handled: " + e);
    }
  }

  private void dispatch(Received received) {
    Frame frame = received.frame();
    switch (frame.protocol()) {
      case Frame.SIP, Frame.H323 -> {
        long before = follower.malformed();
        follower.signalling(frame, received.time());
        countMalformed(follower.malformed() - before);
      }
      case Frame.RTP -> media(received);
      default -> { }
    }
  }

  private void media(Received received) {
    Call.Use use = follower.media(received.frame(), received.time());
    if (use != null) {
      summary.countPacket();
      Recording recording = recordings.get(use.call());
      boolean known = recording.media(received.frame(), use.direction(), use.media(), received.time());
      countMalformed(known ? 0 : 1);
      if (known && recording.markShown()) {
        CallReport running = recording.unfinished();
        store.disk().submit(() -> listener.began(running));
      }
    }
  }

  private void countMalformed(long count) {
    if (summary.countMalformed(count)) {
      console.line("ignoring malformed packets");
    }
  }

  @Override
  protected void tick(long now) {
    if (now - lastSave >= SAVE_MILLIS) {
      lastSave = now;
      long lost = recordings.values().stream().mapToLong(Recording::lost).sum();
      console.status(summary.status(recordings.size(), lost, now, dropped()) + " | " + snifferState());
      save();
      store.disk().submit(listener::tick);
    }
  }

  /** Saves the state of all running calls, unless the previous state is not on disk yet. */
  private void save() {
    if (saving) {
      return;
    }
    saving = true;
    long upTo = lastNumber;
    Transport link = transport();
    byte[] position = link.position(upTo);
    running.save(recordings.values().stream().map(recording -> recording.save(running)).toList(), clock.timeOfDay(),
        position, () -> {
      saving = false;
      if (link.redelivers()) {
        link.acknowledge(upTo);
      }
    }, () -> saving = false);
  }

  private void restore() {
    try {
      List<RunningCalls.Loaded> loaded = running.load();
      if (running.fault() != null) {
        console.line("the state of the calls is damaged, so they go on in new files: " + running.fault());
      }
      long now = clock.millis();
      boolean late = !transport().redelivers() && running.savedAt() > 0 && now - running.savedAt() > RESUME_MILLIS;
      loaded.forEach(call -> restore(call, late, now));
      if (!recordings.isEmpty()) {
        console.line("going on with " + Text.count(recordings.size(), "call") + " from before the restart");
      }
    } catch (IOException e) {
      console.line("what was running before the restart cannot be read: " + e);
    }
  }

  private void restore(RunningCalls.Loaded loaded, boolean late, long now) {
    restoring = loaded;
    for (RunningCalls.TimedFrame message : loaded.frames()) {
      follower.signalling(message.frame(), message.time());
    }
    restoring = null;
    Recording recording = recordings.values().stream().filter(other -> other.journal == loaded.journal()).findFirst()
        .orElse(null);
    if (recording == null) {
      running.end(loaded.journal());
      return;
    }
    long lastActivity = Math.max(recording.call.lastActivity(), running.savedAt());
    recording.call.resume(now);
    if (late) {
      follower.end(recording.call, "recording stopped", lastActivity);
    }
  }

  @Override
  public void began(Call call, long now) {
    // The times of a saved call, and those of the frames that are redelivered, are times of day already.
    long skew = restoring != null || transport().redelivers() ? 0 : clock.skew();
    Recording recording =
        new Recording(call, restoring != null ? restoring.journal() : running.begin(), store, skew,
        keepsDigits);
    recordings.put(call, recording);
    if (restoring != null) {
      // The messages that follow can end the call.
      restoreMedia(recording, restoring);
    } else {
      console.line(call + "  " + call.protocol() + "  " + Text.printable(call.caller()) + " -> "
          + Text.printable(call.callee()));
    }
  }

  private void restoreMedia(Recording recording, RunningCalls.Loaded loaded) {
    try {
      if (loaded.state() != null) {
        recording.restore(loaded.state(), loaded.files());
      }
    } catch (IOException | RuntimeException e) {
      console.line(recording.call + "  goes on in new files: " + e);
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
    if (how.equals(CallFollower.DROPPED)) {
      // A flood of calls must not fill the disk.
      if (summary.countFlood()) {
        console.line("more calls than can be followed: those without media make way");
      }
    } else {
      report(recording, how, now);
    }
    // A recorder that ends before the report is written leaves the call to the next one.
    running.end(recording.journal);
  }

  private void report(Recording recording, String how, long now) {
    recording.report(reports, how, now);
    summary.countLost(recording.lost());
    console.line(recording.call + "  " + Text.printable(how) + " after " + Text.seconds(now - recording.call.start())
        + " s; " + recording.counts());
    recording.notes().forEach(note -> console.line(recording.call + "  " + Text.printable(note)));
  }

  /**
   * Ends the recording of all calls. After {@link #stop} their files are complete up to now, and the next recorder
   * continues and reports them.
   */
  @Override
  public void finish() {
    long now = clock.millis();
    if (stopped()) {
      store.disk().hurry();
      store.disk().submit(listener::stopped);
      if (!recordings.isEmpty()) {
        console.line(Text.count(recordings.size(), "call") + " not over yet: the next recorder goes on, if it starts "
            + "within " + RESUME_MILLIS / 60_000 + " minutes, and reports");
      }
    } else {
      for (Call call : List.copyOf(follower.calls())) {
        follower.end(call, call.deadlineReason() != null ? call.deadlineReason() : "recording stopped", now);
      }
    }
    saving = false;
    save();
    store.disk().drain();
    console.status("");
  }

  @Override
  public void summarize() {
    if (transport() != null) {
      console.print("");
      summary.lines(follower.seen(), transport().sessions(), reports.dropped(), store.directory())
          .forEach(console::print);
      if (follower.seen() > 0) {
        console.print("The table of calls: " + log.file());
      }
    }
  }
}
