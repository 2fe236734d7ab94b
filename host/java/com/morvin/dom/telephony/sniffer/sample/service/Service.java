package com.morvin.dom.telephony.sniffer.sample.service;

import com.morvin.dom.telephony.sniffer.sample.console.Console;
import com.morvin.dom.telephony.sniffer.sample.console.Text;
import com.morvin.dom.telephony.sniffer.sample.metrics.Histogram;
import com.morvin.dom.telephony.sniffer.sample.metrics.Metrics;
import com.morvin.dom.telephony.sniffer.sample.metrics.MetricsFile;
import com.morvin.dom.telephony.sniffer.sample.signalling.Call;
import com.morvin.dom.telephony.sniffer.sample.signalling.CallFollower;
import com.morvin.dom.telephony.sniffer.sample.signalling.Moment;
import com.morvin.dom.telephony.sniffer.sample.signalling.Share;
import com.morvin.dom.telephony.sniffer.sample.transport.Command;
import com.morvin.dom.telephony.sniffer.sample.transport.Frame;
import com.morvin.dom.telephony.sniffer.sample.transport.FrameBlock;
import com.morvin.dom.telephony.sniffer.sample.transport.FrameCursor;
import com.morvin.dom.telephony.sniffer.sample.transport.Heartbeat;
import com.morvin.dom.telephony.sniffer.sample.transport.Intake;
import com.morvin.dom.telephony.sniffer.sample.transport.SteadyClock;
import com.morvin.dom.telephony.sniffer.sample.transport.Transport;
import java.io.IOException;
import java.util.ArrayList;
import java.util.HashMap;
import java.util.List;
import java.util.Map;

/**
 * The loop that serves the sniffers of a transport. The recorder and the front extend it.
 *
 * <p>The loop receives frames, asks each new sniffer for the media of the running calls, sends heartbeats, follows the
 * time limits of calls, and ends on {@link #stop} or at one of its own limits. A subclass handles the frames and the
 * calls.
 *
 * <p>All methods belong to the thread that calls {@link #run}, except {@link #stop} and {@link #stopped}, which any
 * thread may call.
 */
public abstract class Service implements CallFollower.Listener {
  /** A message that was captured this long ago was held up by an outage. */
  protected static final long OUTAGE_MILLIS = 1_000;
  /** Continues a line about a limit that more memory would raise. */
  protected static final String IN_MEMORY = " for the memory that Java has (-Xmx)";
  /** See {@link #lookAhead}. */
  protected static final int LOOK_AHEAD = 64;

  private static final int MAX_SNIFFERS = 64;
  private static final long TICK_MILLIS = 200;
  private static final long REST_MILLIS = 3_000;
  private static final long METRICS_MILLIS = 10_000;
  /** A step that took longer is an interruption of this process, in which frames were waiting. */
  private static final long MAX_STEP_MILLIS = 30_000;
  /** A block that was read earlier than this has been passed to the loop when no other one waits. */
  private static final long QUEUED_MILLIS = 1000;
  /** How long a sniffer may take to send the media that it has kept, while new signalling passes it. */
  private static final long CATCH_UP_MILLIS = 60_000;
  /** How long a sniffer that has connected may take to send the signalling that it has kept. */
  private static final long BURST_MILLIS = 1000;

  /**
   * When the loop ends by itself, and the bounds for calls.
   *
   * @param untilDisconnect whether the loop ends after the last sniffer has disconnected
   * @param idleExitMillis the loop ends after this time without captured traffic
   * @param calls the bounds for calls
   */
  public record Limits(boolean untilDisconnect, long idleExitMillis, CallFollower.Limits calls) {
    /** The loop does not end by itself; calls have their usual bounds. */
    public static final Limits NONE = new Limits(false, Long.MAX_VALUE, CallFollower.Limits.DEFAULT);
  }

  /** Lines for the operator. */
  protected final Console console;
  /** The time of the loop. */
  protected final SteadyClock clock;
  /** Assigns frames to calls. */
  protected final CallFollower follower;

  private final Limits limits;
  private final long pollMillis;
  private final FrameCursor cursor = new FrameCursor(new FrameBlock(new byte[0], 0, 0, 0, 0));
  private Transport transport;
  private boolean allHaveIpv6;
  private Sniffers sniffers;
  private Heartbeat heartbeat;
  private volatile Intake intake;
  /** Reads the transport that {@link #run} serves next; null when nothing reads it yet. */
  private Intake listening;
  private int sessions;
  private Moment now;
  private volatile long lastStep;
  private long servedUpTo;
  private long lastTick = -TICK_MILLIS;
  private long lastTraffic;
  /** When the newest sniffer connected, and the last traffic before that. */
  private Moment connected;
  private Moment heardBefore;
  /** Whether a sniffer has stated a time of capture. */
  private boolean timesAreStated;
  private MetricsFile metrics;
  private long lastMetrics;
  /**
   * The least age of a frame with a stated time of capture, by sniffer: its clock is slow by no more than that. With
   * a transport that redelivers it is not known; a front has judged the media before.
   */
  private final Map<Integer, LeastAge> leastAges = new HashMap<>();
  private final Histogram delays = new Histogram();
  private volatile boolean stopping;
  /** The frames that the transports before this one have cost; see {@link Intake}. */
  private long droppedBefore;
  private long unhandled;

  /**
   * Makes a loop without a transport.
   *
   * @param pollMillis how long the loop waits for a frame before the next step
   */
  protected Service(Limits limits, long pollMillis, Console console, SteadyClock clock) {
    this.limits = limits;
    this.pollMillis = pollMillis;
    this.console = console;
    this.clock = clock;
    lastStep = clock.millis();
    now = new Moment(0, clock.millis());
    follower = new CallFollower(this, limits.calls(), this::request);
  }

  /** Called once for each transport, before anything is received from it. */
  protected void attached() throws IOException {}

  /**
   * Handles a frame.
   *
   * @param frame is valid until the method returns
   * @param time now, with the time of capture as its stamp
   */
  protected abstract void handle(FrameCursor frame, Moment time);

  /** Called before {@link #handle} for each {@link #LOOK_AHEAD} frames, which begin with that of the cursor. */
  protected void lookAhead(FrameCursor frames) {}

  /** Called every 200 ms, after the heartbeats and the time limits of calls. */
  protected abstract void tick(Moment now);

  /** Counts packets that were ignored because they are malformed, or because handling them failed. */
  protected void countMalformed(long count) {}

  /** Returns the beginning of the names of all figures. */
  protected String metricsPrefix() {
    return "voip_recorder_";
  }

  /** Adds the figures of the subclass to those of all services. */
  protected void measure(Metrics figures) {}

  /**
   * Adds the figures that change while the loop waits for something. Any thread may call the method, which must not
   * wait.
   */
  protected void measureLive(Metrics figures) {}

  /** Returns the beginning of a line about a limit of calls; see {@link CallFollower.Listener#full}. */
  protected static String mostCalls(int calls, boolean byMemory) {
    return "no more than " + calls + " calls can be followed at a time"
        + (byMemory ? IN_MEMORY : "");
  }

  /** Called at the end of each step. */
  protected void stepped(Moment now) {}

  /** Ends the work on the transport. {@link #run} may be called again afterwards. */
  public abstract void finish();

  /** Prints what was done, once, at the end of the program. */
  public abstract void summarize();

  /**
   * Writes figures for Prometheus every 10 s and at the end, if there is a file for them.
   *
   * @param file may be null; the caller closes it
   */
  public final void writeMetrics(MetricsFile file) {
    metrics = file;
    lastMetrics = clock.millis() - METRICS_MILLIS;
    if (file != null) {
      file.setLive(this::measureAnyTime);
    }
  }

  /**
   * Begins to read a transport, which {@link #run} serves later: its frames get the time at which they come. They wait
   * as they do while the loop is busy. Not for a transport that redelivers, which has to be resumed first.
   */
  public final void listen(Transport link) {
    listening = new Intake(source(link), console, clock);
  }

  /**
   * Serves a transport until {@link #stop} or one of the limits.
   *
   * @throws IOException when the transport delivers nothing more, with a message for the operator
   */
  public final void run(Transport link) throws IOException, InterruptedException {
    attach(link);
    try (Intake reading = listening != null ? listening : new Intake(source(link), console, clock)) {
      intake = reading;
      listening = null;
      while (!stopping) {
        boolean gone = limits.untilDisconnect && link.sessions() > 0 && link.sniffers().isEmpty();
        FrameBlock block = reading.receive(pollMillis);
        step(block);
        if (block == null && (gone || now.steady() - lastTraffic >= limits.idleExitMillis)) {
          break;
        }
      }
      serveRest(reading);
    } finally {
      finish();
      follower.forgetEnded(now);
      link.flush();
      endIntake();
      writeMetrics();
    }
  }

  private synchronized void endIntake() {
    if (intake != null) {
      droppedBefore += intake.dropped();
      unhandled += intake.unhandled();
      intake = null;
    }
  }

  private void writeMetrics() {
    if (metrics != null) {
      Metrics figures = new Metrics(metricsPrefix());
      figures.gauge("running_calls", "Calls that are followed now.", follower.calls().size());
      figures.counter("calls_total", "Calls so far.", follower.seen());
      figures.counter("refused_calls_total", "Calls that were not followed, because a limit was reached.",
          follower.refused());
      figures.histogram("delay_seconds", "Time of frames from capture to processing.", delays);
      figures.gauge("sniffers", "Sniffers that are connected.", transport.sniffers().size());
      transport.measure(figures);
      measure(figures);
      metrics.replace(figures);
      lastMetrics = clock.millis();
    }
  }

  private void measureAnyTime(Metrics figures) {
    figures.gauge("last_step_seconds", "Time since this process last handled frames or looked at its time limits.",
        (clock.millis() - lastStep) / 1e3);
    figures.counter("overload_dropped_frames_total", "Frames dropped because this process was too slow.", dropped());
    figures.counter("unhandled_frames_total", "Frames that waited when this process was stopped.", unhandled());
    measureLive(figures);
  }

  private synchronized long unhandled() {
    return unhandled;
  }

  /** Returns a line for each place where this process has lost frames before {@link #handle}. */
  protected final List<String> losses() {
    List<String> lines = new ArrayList<>();
    if (follower.refused() > 0) {
      lines.add(Text.count(follower.refused(), "call") + " not followed: there were too many at a time"
          + (follower.isShortOfMemory() ? IN_MEMORY : ""));
    }
    if (dropped() > 0) {
      lines.add(Text.count(dropped(), "frame") + " dropped before that: this machine was too slow");
    }
    if (unhandled() > 0) {
      lines.add(Text.count(unhandled(), "frame") + " not handled: the " + console.program() + " was stopped before");
    }
    return lines;
  }

  /** After {@link #stop}, handles the frames that wait, for a limited time. */
  private void serveRest(Intake reading) throws IOException, InterruptedException {
    if (!stopping || transport.redelivers()) {
      return;
    }
    if (handOverMillis() > 0) {
      handOver(reading);
    }
    reading.end();
    long deadline = clock.millis() + REST_MILLIS;
    while (clock.millis() < deadline && step(reading)) {
      // Blocks wait.
    }
  }

  /** Handles what the sniffers have sent already: nobody else would get it. */
  private void handOver(Intake reading) throws IOException, InterruptedException {
    boolean willDisconnect = transport.hangUp();
    long begin = clock.millis();
    FrameBlock block = null;
    do {
      block = reading.receive(pollMillis);
      step(block);
    } while ((willDisconnect ? block != null || !transport.sniffers().isEmpty() : mayHaveWaited(block, begin))
        && clock.millis() - begin < handOverMillis());
  }

  /** Whether the frames of a block, or some of those after it, may have been sent before a time. */
  private static boolean mayHaveWaited(FrameBlock block, long time) {
    return block != null && (block.steady() <= time || !Intake.isSmall(block));
  }

  /** Handles the oldest waiting block. Returns false when there is none. */
  private boolean step(Intake reading) {
    FrameBlock block = reading.poll();
    if (block != null) {
      step(block);
    }
    return block != null;
  }

  /** Returns what the frames are read from on a separate thread: the transport, or one that delivers its frames. */
  protected Transport source(Transport link) {
    return link;
  }

  /** Returns the time up to which all frames that were read have been handled, by the clock of the loop. */
  protected final long servedUpTo() {
    return servedUpTo;
  }

  /**
   * Returns how long the loop receives frames after {@link #stop}, at most. When it is 0, the loop handles only the
   * frames that it has read.
   */
  protected long handOverMillis() {
    return 0;
  }

  /** The first part of {@link #run}: serves a transport from now on. */
  public final void attach(Transport link) throws IOException {
    transport = link;
    sniffers = new Sniffers(link, allHaveIpv6, console);
    heartbeat = new Heartbeat(link, console);
    sessions = listening == null ? link.sessions() : 0;  // those that have connected meanwhile are new ones
    lastStep = clock.millis();
    lastTraffic = now.steady();
    attached();
  }

  /** Sends a command to all sniffers. Before the first step those that have connected meanwhile do not count yet. */
  private boolean request(Command command) {
    return listening == null ? sniffers.send(command) : !command.isIpv6();
  }

  /**
   * One step of {@link #run}: handles the frames of a block and does what is due.
   *
   * @param block null when no frame arrived
   */
  public final void step(FrameBlock block) {
    advance();
    servedUpTo = block == null ? lastStep - QUEUED_MILLIS : block.steady();
    resendToNewSniffers();
    if (block != null) {
      heartbeat.heard(block.sniffer(), now.steady());
      serve(block);
    }
    if (now.steady() - lastTick >= TICK_MILLIS) {
      lastTick = now.steady();
      heartbeat.tick(now.steady());
      follower.tick(now, transport.losesCommands());
      tick(now);
    }
    stepped(now);
    transport.flush();
    if (metrics != null && clock.millis() - lastMetrics >= METRICS_MILLIS) {
      writeMetrics();
    }
  }

  /** Handles the frames of a block. */
  protected final void serve(FrameBlock block) {
    Moment time = now;  // most frames of a block have the same time
    boolean hasIpv6 = sniffers.hasIpv6(block.sniffer());
    long delay = 0;
    int count = 0;
    follower.setPresent(currentTime());
    for (cursor.begin(block); cursor.next(); count++) {
      if (count % LOOK_AHEAD == 0) {
        lookAhead(cursor);
      }
      if (!hasIpv6 && cursor.isIpv6()) {
        requestIpv6(block.sniffer());
        hasIpv6 = true;
      }
      if (cursor.protocol() != Frame.HEARTBEAT) {
        lastTraffic = now.steady();
      }
      timesAreStated |= cursor.captured() > 0;
      long stamp = cursor.time();
      delay = count == 0 && stamp > 0 ? currentTime() - stamp : delay;
      if (cursor.captured() > 0) {
        follower.setClockError(transport.redelivers() ? Integer.MAX_VALUE : clockError(block));
      }
      time = stamp == time.stamp() ? time : new Moment(now.steady(), stamp);
      handleSafely(cursor, time);
    }
    delays.add(Math.max(0, delay), count);
  }

  /** Returns by how much the clock of a sniffer may be slow, in milliseconds. The frame of the cursor counts. */
  private long clockError(FrameBlock block) {
    if (leastAges.size() >= MAX_SNIFFERS) {
      leastAges.keySet().retainAll(transport.sniffers());
    }
    LeastAge ages = leastAges.computeIfAbsent(block.sniffer(), any -> new LeastAge());
    return Math.max(0, ages.add(block.timeOfDay() - cursor.captured(), now.steady()));
  }

  /** Returns the time by the clock that gave frames their time of capture. */
  private long currentTime() {
    return transport.redelivers() ? clock.timeOfDay() : now.stamp();
  }

  private void advance() {
    long steady = clock.millis();
    long step = steady - lastStep;
    long elapsed = transport.isCutOff() ? 0 : Math.min(step, MAX_STEP_MILLIS);
    lastStep = steady;
    now = new Moment(now.steady() + elapsed, steady);
    if (share().isPart() && step >= Share.DOUBT_MILLIS) {
      console.line("interrupted for " + Text.seconds(step)
          + " s: of the calls that began meanwhile, two shares may take the same one");
      follower.doubt(new Moment(now.steady() + Share.DOUBT_MILLIS, steady));
    }
  }

  /**
   * Returns when a call has ended, by the time of the message or media that ended it. What a sniffer has kept during an
   * outage comes when it connects. Where sniffers state no time of capture, such a call ended when they were last
   * heard.
   */
  protected final Moment timeOfEnd(Call call, Moment at) {
    boolean isKept = !timesAreStated && connected != null && at.steady() >= connected.steady()
        && at.steady() - connected.steady() < BURST_MILLIS;
    return isKept && heardBefore.stamp() > call.start().stamp() ? heardBefore : at;
  }

  private Share share() {
    return limits.calls.share();
  }

  /** Returns the time of the last step. */
  protected final Moment now() {
    return now;
  }

  /** Handles a frame. The sender of one frame must not end the service for all calls. */
  private void handleSafely(FrameCursor cursor, Moment time) {
    try {
      handle(cursor, time);
    } catch (RuntimeException e) {
      Frame frame = cursor.frame();
      console.line("a frame between " + frame.source() + " and " + frame.destination() + " cannot be handled: " + e);
      countMalformed(1);
    }
  }

  /** A new sniffer has an empty list of destinations. */
  private void resendToNewSniffers() {
    int newest = transport.sessions();
    if (newest > sessions) {
      connected = now;
      heardBefore = now.at(now.stamp() - (now.steady() - lastTraffic));
    }
    for (int number = sessions + 1; number <= newest; number++) {
      int sniffer = number;
      follower.resend(command -> sniffers.send(sniffer, command));
      if (!follower.calls().isEmpty()) {
        follower.expectLateMedia(now.steady() + CATCH_UP_MILLIS);
      }
    }
    sessions = newest;
  }

  /** States that all sniffers of the next transports have IPv6 enabled, before any of their frames proves it. */
  public final void assumeIpv6(boolean all) {
    allHaveIpv6 = all;
  }

  /** A sniffer has sent an IPv6 frame: it can be asked for the destinations that it was not asked for yet. */
  private void requestIpv6(int sniffer) {
    sniffers.addIpv6(sniffer);
    follower.resend(command -> command.isIpv6() && sniffers.send(sniffer, command));
  }

  /** Makes {@link #run} return soon. Any thread may call it. */
  public final void stop() {
    stopping = true;
  }

  /** Whether {@link #stop} was called. Any thread may call it. */
  public final boolean stopped() {
    return stopping;
  }

  /** The transport that is served; null before the first one. */
  protected final Transport transport() {
    return transport;
  }

  /** The state of the sniffers and the share, for the status line. */
  protected final String snifferState() {
    return heartbeat.state() + (share().isPart() ? " | " + share() : "");
  }

  /** The number of frames that were dropped because this program was too slow. */
  protected final synchronized long dropped() {
    return droppedBefore + (intake == null ? 0 : intake.dropped());
  }
}
