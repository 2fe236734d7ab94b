package com.morvin.dom.telephony.sniffer.sample.service;

import com.morvin.dom.telephony.sniffer.sample.console.Console;
import com.morvin.dom.telephony.sniffer.sample.signalling.CallFollower;
import com.morvin.dom.telephony.sniffer.sample.signalling.Moment;
import com.morvin.dom.telephony.sniffer.sample.transport.Frame;
import com.morvin.dom.telephony.sniffer.sample.transport.FrameBlock;
import com.morvin.dom.telephony.sniffer.sample.transport.FrameCursor;
import com.morvin.dom.telephony.sniffer.sample.transport.Heartbeat;
import com.morvin.dom.telephony.sniffer.sample.transport.Intake;
import com.morvin.dom.telephony.sniffer.sample.transport.SteadyClock;
import com.morvin.dom.telephony.sniffer.sample.transport.Transport;
import java.io.IOException;

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
  /** See {@link #lookAhead}. */
  protected static final int LOOK_AHEAD = 64;

  private static final long TICK_MILLIS = 200;
  /** A step that took longer is an interruption of this process, in which frames were waiting. */
  private static final long MAX_STEP_MILLIS = 30_000;
  /** A block that was read earlier than this has been passed to the loop when no other one waits. */
  private static final long QUEUED_MILLIS = 1000;

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
  private Heartbeat heartbeat;
  private Intake intake;
  private int sessions;
  private Moment now;
  private long lastStep;
  private long servedUpTo;
  private long lastTick = -TICK_MILLIS;
  private long lastTraffic;
  private volatile boolean stopping;

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
    follower = new CallFollower(this, limits.calls(), command -> transport.send(command));
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

  /** Called at the end of each step. */
  protected void stepped(Moment now) {}

  /** Ends the work on the transport. {@link #run} may be called again afterwards. */
  public abstract void finish();

  /** Prints what was done, once, at the end of the program. */
  public abstract void summarize();

  /**
   * Serves a transport until {@link #stop} or one of the limits.
   *
   * @throws IOException when the transport delivers nothing more, with a message for the operator
   */
  public final void run(Transport link) throws IOException, InterruptedException {
    attach(link);
    try (Intake reading = new Intake(source(link), console, clock)) {
      intake = reading;
      while (!stopping) {
        boolean gone = limits.untilDisconnect && link.sessions() > 0 && link.sniffers().isEmpty();
        FrameBlock block = reading.receive(pollMillis);
        step(block);
        if (block == null && (gone || now.steady() - lastTraffic >= limits.idleExitMillis)) {
          break;
        }
      }
      handOver(reading);
    } finally {
      finish();
    }
  }

  /** After {@link #stop}, receives what the sniffers have sent already, so that it is lost for no one. */
  private void handOver(Intake reading) throws IOException, InterruptedException {
    if (!stopping || handOverMillis() == 0) {
      return;
    }
    transport.hangUp();
    long deadline = clock.millis() + handOverMillis();
    FrameBlock block = null;
    do {
      block = reading.receive(pollMillis);
      step(block);
    } while ((block != null || !transport.sniffers().isEmpty()) && clock.millis() < deadline);
  }

  /** Returns what the frames are read from on a separate thread: the transport, or one that delivers its frames. */
  protected Transport source(Transport link) {
    return link;
  }

  /** Returns the time up to which all frames that were read have been handled, by the clock of the loop. */
  protected final long servedUpTo() {
    return servedUpTo;
  }

  /** Returns how long the loop receives frames after {@link #stop}, at most. */
  protected long handOverMillis() {
    return 0;
  }

  /** The first part of {@link #run}: serves a transport from now on. */
  public final void attach(Transport link) throws IOException {
    transport = link;
    heartbeat = new Heartbeat(link, console);
    sessions = link.sessions();
    lastStep = clock.millis();
    lastTraffic = now.steady();
    attached();
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
  }

  /** Handles the frames of a block. */
  protected final void serve(FrameBlock block) {
    Moment time = now;  // most frames of a block have the same time
    cursor.begin(block);
    for (int count = 0; cursor.next(); count++) {
      if (count % LOOK_AHEAD == 0) {
        lookAhead(cursor);
      }
      if (cursor.protocol() != Frame.HEARTBEAT) {
        lastTraffic = now.steady();
      }
      long stamp = cursor.time();
      time = stamp == time.stamp() ? time : new Moment(now.steady(), stamp);
      handleSafely(cursor, time);
    }
  }

  private void advance() {
    long steady = clock.millis();
    long elapsed = transport.isCutOff() ? 0 : Math.min(steady - lastStep, MAX_STEP_MILLIS);
    lastStep = steady;
    now = new Moment(now.steady() + elapsed, steady);
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
    for (int number = sessions + 1; number <= newest; number++) {
      int sniffer = number;
      follower.resend(command -> transport.send(sniffer, command));
    }
    sessions = newest;
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

  /** The state of the sniffers, for the status line. */
  protected final String snifferState() {
    return heartbeat.state();
  }

  /** The number of frames that were dropped because this program was too slow. */
  protected final long dropped() {
    return intake == null ? 0 : intake.dropped();
  }
}
