package com.morvin.dom.telephony.sniffer.sample.recording;

import com.morvin.dom.telephony.sniffer.sample.console.Console;
import com.morvin.dom.telephony.sniffer.sample.console.Text;
import com.morvin.dom.telephony.sniffer.sample.service.Service;
import com.morvin.dom.telephony.sniffer.sample.service.TimeSource;
import com.morvin.dom.telephony.sniffer.sample.signalling.Call;
import com.morvin.dom.telephony.sniffer.sample.signalling.CallFollower;
import com.morvin.dom.telephony.sniffer.sample.signalling.Direction;
import com.morvin.dom.telephony.sniffer.sample.signalling.Moment;
import com.morvin.dom.telephony.sniffer.sample.storage.CallLog;
import com.morvin.dom.telephony.sniffer.sample.storage.CallReport;
import com.morvin.dom.telephony.sniffer.sample.storage.ReportListener;
import com.morvin.dom.telephony.sniffer.sample.storage.Reports;
import com.morvin.dom.telephony.sniffer.sample.storage.RunningCalls;
import com.morvin.dom.telephony.sniffer.sample.storage.Store;
import com.morvin.dom.telephony.sniffer.sample.transport.Frame;
import com.morvin.dom.telephony.sniffer.sample.transport.Received;
import com.morvin.dom.telephony.sniffer.sample.transport.Transport;
import java.io.IOException;
import java.util.Comparator;
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
  private RunningCalls running;
  private RunningCalls.Journal restoring;
  private long lastNumber;
  private long lastSave = -SAVE_MILLIS;
  private volatile boolean saving;

  /**
   * Records into a store, which the caller closes.
   *
   * @param listener is called on the disk thread
   */
  public Recorder(Store store, Limits limits, Console console, TimeSource clock, ReportListener listener)
      throws IOException {
    super(limits, POLL_MILLIS, console, clock);
    this.store = store;
    this.listener = listener;
    log = new CallLog(store.directory());
    reports = new Reports(store, log, console, report -> {
      summary.add(report);
      store.disk().submit(() -> listener.ended(report));
    });
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
  protected void handle(Received received, Moment time) {
    Frame frame = received.frame();
    summary.count(frame);
    lastNumber = received.number();
    switch (frame.protocol()) {
      case Frame.SIP, Frame.H323 -> {
        long before = follower.malformed();
        follower.signalling(frame, time);
        countMalformed(follower.malformed() - before);
      }
      case Frame.RTP -> media(received, time);
      default -> { }
    }
  }

  private void media(Received received, Moment now) {
    Call.Use use = follower.media(received.frame(), now);
    if (use != null) {
      summary.countPacket();
      Recording recording = recordings.get(use.call());
      long waited = now.stamp() - received.time(now.stamp());
      long time = stamp(use.call(), now) - waited;
      boolean known = recording.media(received.frame(), use, time);
      countMalformed(known ? 0 : 1);
      if (known && recording.markShown()) {
        CallReport running = recording.unfinished();
        store.disk().submit(() -> listener.began(running));
      }
    }
  }

  /**
   * Returns the time of a moment in a call, in milliseconds since 1970. It counts from the start of the call, so that a
   * step of the time of day does not tear the call apart.
   */
  private long stamp(Call call, Moment moment) {
    Moment start = call.start();
    return transport().redelivers() ? moment.stamp() : start.stamp() + moment.steady() - start.steady();
  }

  @Override
  protected void countMalformed(long count) {
    if (summary.countMalformed(count)) {
      console.line("ignoring malformed packets");
    }
  }

  @Override
  protected void tick(Moment now) {
    if (now.steady() - lastSave >= SAVE_MILLIS) {
      lastSave = now.steady();
      long lost = recordings.values().stream().mapToLong(Recording::lost).sum();
      console.status(summary.status(recordings.size(), lost, now.steady(), dropped()) + " | " + snifferState());
      save(now);
    }
  }

  /** Saves the state of all running calls, unless the previous state is not on disk yet. */
  private void save(Moment now) {
    if (saving) {
      return;
    }
    saving = true;
    long upTo = lastNumber;
    Transport link = transport();
    byte[] position = link.position(upTo);
    List<RunningCalls.Saved> calls = recordings.values().stream().map(recording -> recording.save(running)).toList();
    running.save(calls, now.stamp(), position, () -> {
      saving = false;
      if (link.redelivers()) {
        link.acknowledge(upTo);
      }
    });
  }

  private void restore() {
    try {
      List<RunningCalls.Loaded> loaded = running.load();
      Moment now = now();
      boolean late = !transport().redelivers() && now.stamp() - running.savedAt() > RESUME_MILLIS;
      loaded.forEach(call -> restore(call, late, now));
      if (!recordings.isEmpty()) {
        console.line("going on with " + Text.count(recordings.size(), "call") + " from before the restart");
      }
    } catch (IOException e) {
      console.line("what was running before the restart cannot be read: " + e);
    }
  }

  private void restore(RunningCalls.Loaded loaded, boolean late, Moment now) {
    restoring = loaded.journal();
    // The journal of a merged call holds the frames of its legs one after the other.
    loaded.frames().stream().sorted(Comparator.comparingLong(RunningCalls.TimedFrame::time))
        .forEach(message -> follower.signalling(message.frame(), before(now, message.time())));
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
    recording.call.lifetime().resume(before(now, running.savedAt()), now);
    if (late) {
      follower.end(recording.call, "recording stopped", recording.call.lifetime().lastActivity(), now);
    }
  }

  /** Returns an earlier moment. */
  private static Moment before(Moment now, long stamp) {
    return new Moment(now.steady() - (now.stamp() - stamp), stamp);
  }

  @Override
  public void began(Call call, Moment now) {
    recordings.put(call, new Recording(call, restoring != null ? restoring : running.begin(), store));
    if (restoring == null) {
      console.line(call + "  " + call.protocol() + "  " + Text.printable(call.caller()) + " -> "
          + Text.printable(call.callee()));
    }
  }

  @Override
  public void signalled(Call call, Frame frame, String label, Moment now) {
    recordings.get(call).signalled(frame, label, stamp(call, now), restoring);
  }

  @Override
  public void dialled(Call call, Direction direction, String digits, Moment now) {
    recordings.get(call).dialled(direction, digits, stamp(call, now));
  }

  @Override
  public void merged(Call call, Call other, boolean turned) {
    Recording recording = recordings.get(call);
    Recording added = recordings.remove(other);
    recording.add(added, turned, running);
    if (restoring == null) {
      console.line(other + "  belongs to " + call);
    }
    if (added.isShown()) {
      CallReport shown = added.unfinished();
      store.disk().submit(() -> listener.merged(shown));
    }
  }

  @Override
  public void full(int calls) {
    console.line("no more than " + calls + " calls can be followed at a time: new ones are not recorded");
  }

  @Override
  public void ended(Call call, String how, Moment at) {
    Recording recording = recordings.remove(call);
    running.end(recording.journal);
    if (how.equals(CallFollower.DROPPED)) {
      // A flood of calls must not fill the disk.
      if (summary.countFlood()) {
        console.line("more calls than can be followed: those without media make way");
      }
      return;
    }
    if (recording.isReported() && call.lifetime().isOnlyResumed()) {
      return;
    }
    report(recording, how, at);
  }

  private void report(Recording recording, String how, Moment at) {
    long end = stamp(recording.call, at);
    recording.report(reports, how, end);
    summary.countLost(recording.lost());
    console.line(recording.call + "  " + Text.printable(how) + " after "
        + Text.seconds(end - recording.call.start().stamp()) + " s; " + recording.counts());
    recording.notes().forEach(note -> console.line(recording.call + "  " + Text.printable(note)));
  }

  /** Ends the recording of all calls. After {@link #stop} they stay saved, and the next recorder continues them. */
  @Override
  public void finish() {
    Moment now = now();
    boolean goesOn = stopped();
    for (Call call : List.copyOf(follower.calls())) {
      Call.End end = call.signalledEnd() != null ? call.signalledEnd() : new Call.End("recording stopped", now);
      if (!goesOn || call.isHungUp(now)) {
        follower.end(call, end.how(), end.at(), now);
      } else if (!transport().redelivers() && !(recordings.get(call).isReported() && call.lifetime().isOnlyResumed())) {
        report(recordings.get(call), end.how(), end.at());
      }
    }
    store.disk().drain();
    saving = false;
    save(now);
    store.disk().drain();
    console.status("");
  }

  @Override
  public void summarize() {
    if (transport() != null) {
      console.print("");
      summary.lines(follower.seen(), transport().sessions(), store.directory()).forEach(console::print);
      if (follower.seen() > 0) {
        console.print("The table of calls: " + log.file());
      }
    }
  }
}
