package com.morvin.dom.telephony.sniffer.sample.recording;

import com.morvin.dom.telephony.sniffer.sample.console.Console;
import com.morvin.dom.telephony.sniffer.sample.console.Text;
import com.morvin.dom.telephony.sniffer.sample.media.MediaPool;
import com.morvin.dom.telephony.sniffer.sample.media.RtpPacket;
import com.morvin.dom.telephony.sniffer.sample.media.Track;
import com.morvin.dom.telephony.sniffer.sample.memory.HeapShare;
import com.morvin.dom.telephony.sniffer.sample.metrics.Metrics;
import com.morvin.dom.telephony.sniffer.sample.service.OtherShares;
import com.morvin.dom.telephony.sniffer.sample.service.Service;
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
import com.morvin.dom.telephony.sniffer.sample.transport.FrameCursor;
import com.morvin.dom.telephony.sniffer.sample.transport.SteadyClock;
import com.morvin.dom.telephony.sniffer.sample.transport.Transport;
import java.io.IOException;
import java.util.ArrayList;
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
  /** The same when a broker waits for it. */
  private static final long HURRIED_SAVE_MILLIS = 300;
  /** After a longer interruption a saved call counts as ended. */
  private static final long RESUME_MILLIS = 300_000;
  private static final String GAVE_UP = "goes on in a call of another share";

  private final Store store;
  private final ReportListener listener;
  private final CallLog log;
  private final Reports reports;
  private final Summary summary = new Summary();
  private final Quota quota = new Quota();

  private final Map<Call, Recording> recordings = new LinkedHashMap<>();
  private final Track.Options options;
  private final MediaPool pool = new MediaPool(HeapShare.MEDIA);
  private final RtpPacket packet = new RtpPacket();
  private final LookAhead lookAhead;
  /** Those whose first media came after the state was saved. */
  private final List<Voice> unsaved = new ArrayList<>();
  private RunningCalls running;
  private OtherShares others;
  private RunningCalls.Loaded restoring;
  private long restoredSkew;
  private long lastNumber;
  /** The frame that is handled and its time; null before the first one. */
  private FrameCursor handled;
  private Moment handledTime;
  private long lastTick = -SAVE_MILLIS;
  private long lastSave;
  private volatile boolean saving;
  /** Whether the recorder ends, and what its last calls lack: a line for each of them would be a flood. */
  private boolean ending;
  private long missingAtEnd;
  /** When the state was last on the disk, or the recorder began, by the clock of the recorder. */
  private volatile long savedMillis;

  /**
   * Records into a store, which the caller closes.
   *
   * @param options what is recorded, and how
   * @param clock the time of the recorder
   * @param listener is called on the disk thread
   */
  public Recorder(Store store, Track.Options options, Limits limits, Console console, SteadyClock clock,
      ReportListener listener) throws IOException {
    super(limits, POLL_MILLIS, console, clock);
    this.store = store;
    this.options = options;
    lookAhead = new LookAhead(follower, LOOK_AHEAD);
    this.listener = listener;
    log = new CallLog(store.directory());
    reports = new Reports(store, log, summary::add, listener);
  }

  /** Continues the calls that were running before a restart, with the first transport only. */
  @Override
  protected void attached() {
    if (running == null) {
      savedMillis = clock.millis();
      running = new RunningCalls(store, log, transport().redelivers());
      others = new OtherShares(store, follower, clock, console);
      restore();
      transport().resume(running.position());
      if (transport().redelivers()) {
        follower.expectLateMedia(Long.MAX_VALUE);  // a front can have an outage unseen
      }
    }
  }

  @Override
  protected void handle(FrameCursor frame, Moment time) {
    summary.count(frame.protocol());
    lastNumber = frame.number();
    handled = frame;
    handledTime = time;
    switch (frame.protocol()) {
      case Frame.SIP, Frame.H323 -> {
        long before = follower.malformed();
        follower.setDelayed(frame.isDelayed());
        follower.signalling(frame.frame(), time);
        countMalformed(follower.malformed() - before);
      }
      case Frame.RTP -> media(frame, time);
      default -> { }
    }
  }

  @Override
  protected void lookAhead(FrameCursor frames) {
    lookAhead.read(frames);
  }

  private void media(FrameCursor frame, Moment time) {
    Call.Use use = follower.media(frame, time);
    if (use != null) {
      summary.countPacket();
      if (use.attachment() == null) {
        use.attach(recordings.get(use.call()).voice(use.direction()));
      }
      Voice voice = (Voice) use.attachment();
      if (!voice.media(frame, packet, use, time.stamp())) {
        countMalformed(1);
      } else if (voice.takeFirst()) {
        unsaved.add(voice);
        show(voice.recording);
      }
    }
  }

  /** Shows a call with its first media to the listener. */
  private void show(Recording recording) {
    if (recording.markShown()) {
      CallReport running = recording.unfinished();
      store.disk().submit(() -> listener.began(running));
    }
  }

  @Override
  protected void countMalformed(long count) {
    if (summary.countMalformed(count)) {
      console.line("ignoring malformed packets");
    }
  }

  @Override
  protected void tick(Moment now) {
    if (now.steady() - lastSave >= HURRIED_SAVE_MILLIS && transport().isHeldBack()) {
      save();
    }
    if (now.steady() - lastTick >= SAVE_MILLIS) {
      lastTick = now.steady();
      console.status(summary.status(recordings.size(), lostNow(), now.steady(), dropped()) + " | " + snifferState());
      save();
      measureMemory();
      logRefused();
      store.disk().submit(listener::tick);
    }
  }

  /**
   * Saves the calls with a file that was begun after the last state: a sniffer that sends seconds of media at once
   * fills it early, and the next recorder must know its name. A rollback removes it instead.
   */
  @Override
  protected void stepped(Moment now) {
    pool.add(packet.takeCopied());
    if (pool.isEmpty()) {
      measureMemory();
    }
    if (unsaved.isEmpty() || transport().redelivers()) {
      return;
    }
    List<RunningCalls.Saved> calls = new ArrayList<>();
    for (Voice voice : unsaved) {
      if (voice.hasUnknownFile() && recordings.get(voice.recording.call) == voice.recording) {
        calls.add(save(voice.recording, false));
      }
    }
    if (!calls.isEmpty()) {
      running.save(calls, false, clock.read(), transport().position(lastNumber), () -> { }, () -> { });
    }
  }

  private void measureMemory() {
    List<Track> tracks = new ArrayList<>(2 * recordings.size());
    for (Recording recording : recordings.values()) {
      recording.addTracks(tracks);
    }
    pool.measure(tracks);
  }

  @Override
  public int usualMediaBytes() {
    return 2 * Track.USUAL_BYTES;
  }

  /** Returns the number of packets that the running calls have lost. */
  private long lostNow() {
    return recordings.values().stream().mapToLong(Recording::lost).sum();
  }

  @Override
  protected void measure(Metrics figures) {
    summary.measure(figures, lostNow(), reports.dropped());
  }

  @Override
  protected void measureLive(Metrics figures) {
    figures.gauge("unsaved_seconds", "Time since the state of the running calls was last written.",
        savedMillis == 0 ? 0 : (clock.millis() - savedMillis) / 1e3);
    store.measure(figures);
  }

  /** Logs the beginning and the end of a flood of calls without media. */
  private void logRefused() {
    boolean wasExceeded = quota.isExceeded();
    long refused = quota.takeRefused();
    if (!wasExceeded && quota.isExceeded()) {
      console.line("more than " + Quota.PER_SECOND + " calls a second end without media: the others get no report");
    } else if (refused > 0) {
      console.line(Text.count(refused, "call") + " without media got no report");
    }
  }

  /** Saves the state of all running calls, unless the previous state is not on disk yet. */
  private void save() {
    if (!saving) {
      lastSave = now().steady();
      save(running.wantsAll());
    }
  }

  private void save(boolean whole) {
    saving = true;
    unsaved.clear();
    long upTo = lastNumber;
    Transport link = transport();
    byte[] position = link.position(upTo);
    List<RunningCalls.Saved> calls = new ArrayList<>();
    for (Recording recording : recordings.values()) {
      if (whole || recording.hasChanged()) {
        calls.add(save(recording, whole));
      }
    }
    running.save(calls, whole, clock.read(), position, () -> {
      saving = false;
      savedMillis = clock.millis();
      if (link.redelivers()) {
        link.acknowledge(upTo);
      }
    }, () -> saving = false);
    others.save();
  }

  private RunningCalls.Saved save(Recording recording, boolean whole) {
    return recording.save(running, follower.media(recording.call, now()), whole, clock.atBoot());
  }

  private void restore() {
    follower.restore(true);
    restoreOwn();
    others.restore(now());
  }

  private void restoreOwn() {
    try {
      List<RunningCalls.Loaded> loaded = running.load();
      if (running.fault() != null) {
        console.line("the state of the calls is " + (running.isOfOtherVersion()
            ? "that of another version of this program, so they go on in new files"
            : "damaged, so they go on in new files: " + running.fault()));
      }
      Moment now = now();
      boolean late = !transport().redelivers() && savedAt() > 0 && now.stamp() - savedAt() > RESUME_MILLIS;
      if (running.forgotten() > 0) {
        console.line("the states of " + Text.count(running.forgotten(), "call") + " do not fit into the memory, so "
            + "these go on in new files: give Java as much as before (-Xmx)");
      }
      rememberEnded(now);
      loaded.forEach(this::restoreUses);
      for (RunningCalls.Loaded call : loaded) {
        restore(call, late, now);
      }
      if (!recordings.isEmpty()) {
        console.line("going on with " + Text.count(recordings.size(), "call") + " from before the restart");
      }
    } catch (IOException e) {
      console.line("what was running before the restart cannot be read: " + e);
    }
  }

  /** The calls in the table do not begin again, neither by their saved messages nor by those that are sent again. */
  private void rememberEnded(Moment now) throws IOException {
    long skew = transport().redelivers() ? 0 : clock.skew();
    for (CallLog.Line call : log.lastCalls()) {
      if (!call.reason().equals(GAVE_UP)) {
        follower.endedBefore(call.id(), call.end() - skew, now);
      }
    }
  }

  private void restoreUses(RunningCalls.Loaded loaded) {
    try {
      long skew = skewOf(loaded);
      follower.restoreMedia(Recording.mediaUses(loaded.states()).stream().map(use -> use.at(use.last() - skew))
          .toList());
    } catch (IOException | RuntimeException e) {
      console.line("the destinations of a call are read from its messages only: " + e);
    }
  }

  private void restore(RunningCalls.Loaded loaded, boolean late, Moment now) throws IOException {
    restoring = loaded;
    restoredSkew = skewOf(loaded);
    loaded.frames().forEach(message ->
        follower.signalling(message.frame(), now.at(message.time() - restoredSkew)));
    Recording recording = recordings.values().stream().filter(other -> other.journal == loaded.journal()).findFirst()
        .orElse(null);
    if (recording != null) {
      restoreMedia(recording);
    }
    restoring = null;
    if (recording == null) {
      running.end(loaded.journal(), List::of);
      return;
    }
    if (loaded.states().isEmpty()) {
      recording.markOutage(recording.call.start().stamp(), now.stamp());
    }
    follower.finishRestoring(recording.call, now);
    if (transport().redelivers()) {
      recording.call.lifetime().resume(now);  // a message that ends the call is delivered yet
    } else {
      recording.call.lifetime().resume(now.at(savedAt()), now);
    }
    recording.call.awaitLateMedia(now);
    if (late) {
      follower.end(recording.call, "recording stopped", recording.call.lifetime().lastActivity(), now);
    }
  }

  /** Returns the time of the loaded checkpoint by the clock of this recorder; 0 when there was none. */
  private long savedAt() {
    return running.savedAt() == null ? 0 : clock.millisAt(running.savedAt());
  }

  /**
   * Returns by how much the times of a saved call are ahead of the clock. The time of day may have been set between the
   * start of the call and now: that is no pause of the call. After a restart of the machine this is not known.
   */
  private long skewOf(RunningCalls.Loaded loaded) {
    SteadyClock.Reading saved = running.savedAt();
    if (transport().redelivers() || saved == null || !clock.isComparable(saved)) {
      return 0;
    }
    List<byte[]> states = loaded.states();
    return (states.isEmpty() ? saved.dayAtBoot() : Recording.atBoot(states.get(states.size() - 1))) - clock.atBoot();
  }

  /** Restores the media of the call that is being restored. Its state follows the legs that its messages merge. */
  private void restoreMedia(Recording recording) {
    try {
      if (!restoring.states().isEmpty()) {
        recording.restore(restoring.states(), restoring.files(), savedAt());
        if (transport().redelivers()) {
          recording.restartLostNothing();
        }
      }
    } catch (IOException | RuntimeException e) {
      restoring.files().abandon();
      console.line(recording.call + "  goes on in new files: " + e);
    }
    recording.list(restoring.files().left());
    restoring = restoring.withoutStates();
  }

  @Override
  public void began(Call call, Moment now) {
    // The times of the frames that are redelivered are times of day already.
    long skew = restoring != null ? restoredSkew : transport().redelivers() ? 0 : clock.skew();
    RunningCalls.Journal journal = restoring != null ? restoring.journal() : running.begin();
    Recording recording = new Recording(call, journal, store, skew, options, pool, sharesFiles());
    recordings.put(call, recording);
    markOutage(recording);
    if (restoring == null) {
      console.line(call + "  " + call.protocol() + "  " + Text.printable(call.caller()) + " -> "
          + Text.printable(call.callee()));
    }
  }

  /** Media between the capture of a message and its arrival, here or at a front, may be lost when that is long. */
  private void markOutage(Recording recording) {
    if (restoring != null || handled == null) {
      return;
    }
    long from = handledTime.stamp();
    long to = transport().redelivers() ? handled.heldUntil() : now().stamp();
    if (to - from >= OUTAGE_MILLIS) {
      recording.markOutage(from, to);
    }
  }

  /**
   * Whether the voices of a call are written to one file. A restart that rolls files back needs them as they were, so
   * their content must not be replaced at the end of the call.
   */
  private boolean sharesFiles() {
    return !options.linear() && !options.keepsVoices() && !transport().redelivers();
  }

  @Override
  public void signalled(Call call, Frame frame, String label, Moment now) {
    Recording recording = recordings.get(call);
    recording.signalled(frame, label, now.stamp(), restoring == null ? null : restoring.journal());
    markOutage(recording);
  }

  /** The messages get the time of the new call: those of the time before belong to the ended one. */
  @Override
  public void wentOn(Call call, List<CallFollower.TimedMessage> messages) {
    Recording recording = recordings.get(call);
    messages.forEach(message ->
        recording.signalled(message.frame(), message.label(), call.start().stamp(), null));
  }

  @Override
  public void dialled(Call call, Direction direction, String digits, Moment now) {
    recordings.get(call).dialled(direction, digits, now.stamp());
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
  public void full(int calls, boolean byMemory) {
    console.line(mostCalls(calls, byMemory) + ": new ones are not recorded");
  }

  @Override
  public void gaveUp(Call call, Moment now) {
    Recording recording = recordings.remove(call);
    if (recording.hasMedia()) {
      report(recording, GAVE_UP, now);
    } else {
      console.line(call + "  belongs to a call of another share");
    }
    running.end(recording.journal, recording::obsoleteFiles);
  }

  @Override
  public void followed(Call call, Frame frame, Moment now) {
    others.add(call, frame, now);
  }

  @Override
  public void unfollowed(Call call) {
    others.end(call);
  }

  /** Reports of a flood of ended calls must not take the place of media that waits for the disk. */
  @Override
  public boolean canEnd() {
    return !store.disk().isBehind();
  }

  @Override
  public void ended(Call call, String how, Moment at) {
    Recording recording = recordings.remove(call);
    if (restoring != null) {
      restoreMedia(recording);  // a saved message has ended the call
    }
    if (how.equals(CallFollower.DROPPED) && !recording.hasMedia()) {
      // A flood of calls must not fill the disk.
      if (summary.countFlood()) {
        console.line("more calls than can be followed" + (follower.isShortOfMemory() ? IN_MEMORY : "")
            + ": those without media make way, then those with little");
      }
    } else if (recording.hasMedia() || quota.allows(now().steady())) {
      report(recording, how, timeOfEnd(call, at));
    } else {
      summary.countExcess();
    }
    // A recorder that ends before the report is written leaves the call to the next one.
    running.end(recording.journal, recording::obsoleteFiles);
  }

  private void report(Recording recording, String how, Moment at) {
    recording.report(reports, how, at.stamp());
    summary.countLost(recording.lost());
    console.line(recording.call + "  " + Text.printable(how) + " after "
        + Text.seconds(recording.length(at.stamp())) + " s; " + recording.counts());
    missingAtEnd += ending ? recording.missing() : 0;
    recording.notes(at.stamp()).stream().filter(note -> !ending || !note.endsWith(Track.NOT_WRITTEN))
        .forEach(note -> console.line(recording.call + "  " + Text.printable(note)));
  }

  /**
   * Ends the recording of all calls. After {@link #stop} their files are complete up to now, and the next recorder
   * continues and reports them.
   */
  @Override
  public void finish() {
    Moment now = now();
    ending = true;
    if (stopped()) {
      List.copyOf(follower.calls()).stream().filter(call -> call.isHungUp(now)).forEach(call -> end(call, now));
      store.disk().hurry();
      store.disk().submit(listener::stopped);
      if (!recordings.isEmpty()) {
        console.line(Text.count(recordings.size(), "call") + " not over yet: the next recorder goes on, if it starts "
            + "within " + RESUME_MILLIS / 60_000 + " minutes, and reports");
      }
    } else {
      List.copyOf(follower.calls()).forEach(call -> end(call, now));
    }
    if (missingAtEnd > 0) {
      console.line("the last calls: " + ((missingAtEnd >> 10) + 1) + Track.NOT_WRITTEN);
      missingAtEnd = 0;
    }
    ending = false;
    save(true);
    store.disk().drain();
    console.status("");
  }

  private void end(Call call, Moment now) {
    Call.End end = call.signalledEnd() != null ? call.signalledEnd() : new Call.End("recording stopped", now);
    follower.end(call, end.how(), end.at(), now);
  }

  @Override
  public void summarize() {
    if (transport() != null) {
      console.print("");
      List<String> losses = losses();
      losses.addAll(store.disk().losses());
      summary.lines(follower.seen(), transport().sessions(), reports.dropped(), losses, store.directory())
          .forEach(console::print);
      if (follower.seen() > 0) {
        console.print("The table of calls: " + log.file());
      }
    }
  }
}
