package com.morvin.dom.telephony.sniffer.sample.cluster;

import com.morvin.dom.telephony.sniffer.sample.console.Console;
import com.morvin.dom.telephony.sniffer.sample.console.Text;
import com.morvin.dom.telephony.sniffer.sample.memory.HeapShare;
import com.morvin.dom.telephony.sniffer.sample.metrics.Metrics;
import com.morvin.dom.telephony.sniffer.sample.service.OtherShares;
import com.morvin.dom.telephony.sniffer.sample.service.Service;
import com.morvin.dom.telephony.sniffer.sample.signalling.Call;
import com.morvin.dom.telephony.sniffer.sample.signalling.CallFollower;
import com.morvin.dom.telephony.sniffer.sample.signalling.Moment;
import com.morvin.dom.telephony.sniffer.sample.storage.RunningCalls;
import com.morvin.dom.telephony.sniffer.sample.transport.Frame;
import com.morvin.dom.telephony.sniffer.sample.transport.FrameBlock;
import com.morvin.dom.telephony.sniffer.sample.transport.FrameCursor;
import com.morvin.dom.telephony.sniffer.sample.transport.SteadyClock;
import com.morvin.dom.telephony.sniffer.sample.transport.Transport;
import java.io.IOException;
import java.nio.file.Path;
import java.util.ArrayDeque;
import java.util.ArrayList;
import java.util.Deque;
import java.util.HashMap;
import java.util.List;
import java.util.Map;
import java.util.Queue;
import java.util.UUID;

/**
 * Publishes calls to a broker and records nothing. It follows calls only to know which call a frame belongs to, asks
 * the sniffers for their media, and publishes the frames of each call in the partition of the call.
 */
final class Front extends Service {
  private static final int MAX_CALLS = 50_000;
  private static final long POLL_MILLIS = 20;
  /**
   * All open messages are published at these intervals. The broker syncs messages that arrive together at once, so that
   * they cost less than messages at times of their own.
   */
  private static final long FILL_MILLIS = 100;
  private static final long SAVE_MILLIS = 1000;
  /** After a longer interruption calls can have ended unnoticed. It is the longest time that sniffers keep frames. */
  private static final long RESUME_MILLIS = 60_000;
  private static final long HAND_OVER_MILLIS = 2000;
  /** The most notes that {@link #addFilled} makes. */
  private static final int MAX_FILLS = 1000;
  /** The saved signalling of more ended calls than these is removed before it is published. */
  private static final int MAX_ENDED = MAX_CALLS;

  private record Ended(RunningCalls.Journal journal, long at) {}

  /** A note: all frames that were read up to a time are in messages that are older than a System.nanoTime. */
  private record Filled(long upTo, long nanos) {}

  private final long bufferBytes;
  private final Outbox outbox;
  private final Publisher publisher;
  /** Null when nothing is kept for a restart. */
  private final FrontState state;
  /** Null when there is no state. */
  private final OtherShares others;
  private final String session = UUID.randomUUID().toString();
  private final Map<Partition, Batch> batches = new HashMap<>();
  private final Map<Call, CallStream> streams = new HashMap<>();
  private final List<Call> over = new ArrayList<>();
  /** The saved signalling of ended calls, which is kept while the last of it may not be published. */
  private final Queue<Ended> ended = new ArrayDeque<>();
  private final FrameCursor remembered = new FrameCursor(new FrameBlock(new byte[0], 0, 0, 0, 0));
  private final CallsAhead ahead = new CallsAhead(follower, LOOK_AHEAD);
  private String continued = "";
  /** The difference between the times of day and the stamps of the signalling that is handled. */
  private long skew;
  /** See {@link FrameCursor#heldUntil}; that of the signalling that is handled. */
  private long heldUntil;
  /** Whether the frames that are handled are those of the front before: they are not late. */
  private boolean reloading;
  /** The saved call whose messages are handled again, and the call that they have begun; null otherwise. */
  private RunningCalls.Loaded restoring;
  private Call restoredCall;
  /** Whether the calls from before the restart go on; false before the first transport. */
  private boolean restored;
  /** The number of messages of the front before, until all are published. */
  private int earlier;
  private long frames;
  /** The oldest note first. */
  private final Deque<Filled> fills = new ArrayDeque<>();
  private long lastFill;
  private long lastSave = -SAVE_MILLIS;
  private long lostReported;
  private boolean losing;
  /** The frames that neither the broker nor the disk took at the end. */
  private volatile long lostAtEnd;

  /** Makes a front. The directory is that of the {@link FrontState}; null when nothing is kept for a restart. */
  Front(Broker broker, long bufferBytes, Path directory, Limits limits, Console console) throws IOException {
    super(new Limits(limits.untilDisconnect(), limits.idleExitMillis(),
        limits.calls().withCalls(MAX_CALLS, HeapShare.FRONT_CALLS)), POLL_MILLIS, console, SteadyClock.system());
    this.bufferBytes = bufferBytes;
    outbox = new Outbox(bufferBytes, session);
    state = directory == null ? null : new FrontState(directory, bufferBytes, session, console);
    others = state == null ? null : new OtherShares(state.store(), follower, clock, console);
    console.line("up to " + (bufferBytes >> 20) + " MB are kept for " + broker + " while it is slow or away");
    publisher = new Publisher(broker, outbox, console);
  }

  /** Goes on with the calls from before a restart. */
  @Override
  protected void attached() throws IOException {
    if (restored) {
      return;
    }
    restored = true;
    if (state != null) {
      earlier = state.messages(outbox::add);
      follower.restore(true);
      restore(state.load());
      others.restore(now());
      state.save(streams.values(), publisher, clock.timeOfDay());
      // The recorders drop what the earlier front has published already.
      reloading = true;
      state.blocks().load(clock, this::serve);
      reloading = false;
    }
    publisher.start();
  }

  private void restore(List<RunningCalls.Loaded> loaded) throws IOException {
    continued = state.continued();
    Moment now = now();
    for (RunningCalls.Loaded call : loaded) {
      restore(call, now);
    }
    if (!streams.isEmpty() || earlier > 0) {
      console.line("going on with " + Text.count(streams.size(), "call") + " from before the restart, and with "
          + Text.count(earlier, "message") + " that the broker had not taken");
    }
  }

  private void restore(RunningCalls.Loaded loaded, Moment now) throws IOException {
    restoring = loaded;
    restoredCall = null;
    // Nothing is known of the media of a call that began just before the restart.
    heldUntil = FrontState.partition(loaded) == null ? clock.timeOfDay() : 0;
    loaded.frames().forEach(message -> follower.signalling(message.frame(), now.at(message.time())));
    restoring = null;
    over.forEach(call -> publishAgain(streams.get(call)));
    if (restoredCall != null && heldUntil > 0 && !over.contains(restoredCall)) {
      publishAgain(streams.get(restoredCall));
    }
    closeCalls();
    if (restoredCall == null) {
      state.end(loaded.journal());
    } else if (now.stamp() - state.savedAt() > RESUME_MILLIS) {
      restoredCall.lifetime().resume(now.at(state.savedAt()), now);
    } else {
      restoredCall.lifetime().resume(now);
      restoredCall.awaitLateMedia(now);
    }
  }

  /** Publishes the signalling of a call again: the front before may not have published all of it, or not as late. */
  private void publishAgain(CallStream stream) {
    stream.batch.add(stream.signalled(), now().steady());
  }

  @Override
  protected void lookAhead(FrameCursor frames) {
    ahead.read(frames);
  }

  private FrameCursor cursor(Frame frame) {
    remembered.begin(FrameBlock.of(frame, 0, 0));
    remembered.next();
    return remembered;
  }

  @Override
  protected void handle(FrameCursor cursor, Moment now) {
    switch (cursor.protocol()) {
      case Frame.RTP -> media(cursor, now);
      case Frame.SIP, Frame.H323 -> {
        skew = cursor.timeOfDay() - cursor.time();
        boolean late = !reloading && now().stamp() - now.stamp() >= OUTAGE_MILLIS;
        heldUntil = late ? now().stamp() + skew : 0;
        follower.signalling(cursor.frame(), now);
      }
      default -> { }
    }
  }

  private void media(FrameCursor cursor, Moment now) {
    Call.Use use = follower.media(cursor, now);
    if (use != null) {
      if (use.attachment() == null) {
        use.attach(streams.get(use.call()));
      }
      publish((CallStream) use.attachment(), cursor, cursor.timeOfDay(), 0);
    }
  }

  private void publish(CallStream stream, FrameCursor cursor, long captured, long lateUntil) {
    frames++;
    stream.batch.add(cursor, captured, lateUntil, now().steady());
  }

  @Override
  protected void stepped(Moment now) {
    closeCalls();
    if (now.steady() - lastFill >= FILL_MILLIS) {
      lastFill = now.steady();
      batches.values().forEach(Batch::flush);
      if (state != null) {
        addFilled();
      }
    }
  }

  /** Notes that all frames so far are in messages. After a long outage a later note takes the place of the last one. */
  private void addFilled() {
    if (fills.size() == MAX_FILLS) {
      fills.removeLast();
    }
    fills.addLast(new Filled(servedUpTo(), System.nanoTime()));
  }

  /** Forgets the calls that have ended. The frame that ended a call is published by now. */
  private void closeCalls() {
    for (Call call : over) {
      CallStream stream = streams.remove(call);
      stream.end();
      if (state != null) {
        ended.add(new Ended(stream.journal, clock.millis()));
      }
    }
    over.clear();
    while (ended.size() > MAX_ENDED) {
      state.end(ended.remove().journal);
    }
  }

  /** Forgets what a restarted front would need up to a time. */
  private void release(long upTo) {
    state.blocks().release(upTo);
    while (!ended.isEmpty() && ended.peek().at <= upTo) {
      state.end(ended.remove().journal);
    }
  }

  @Override
  protected void tick(Moment now) {
    long lost = outbox.lostFrames();
    reportLoss(lost);
    console.status("calls " + streams.size() + " | frames " + frames + " | " + (outbox.bytes() >> 10)
        + " KB for the broker" + (publisher.isConnected() ? "" : ", which is AWAY") + " | lost " + (lost + dropped())
        + " | sniffer " + snifferState());
    for (long oldest = outbox.oldest(); !fills.isEmpty() && fills.peek().nanos - oldest < 0;) {
      release(fills.remove().upTo);
    }
    if (state != null && now.steady() - lastSave >= SAVE_MILLIS) {
      lastSave = now.steady();
      save();
      if (earlier > 0 && outbox.isEmpty()) {
        earlier = 0;
        state.published();
      }
    }
  }

  private void save() {
    if (state.takeRemoval()) {
      state.addAgain(streams.values());
      follower.calls().stream().filter(call -> !call.isOwned()).forEach(call ->
          follower.messages(call).forEach(message -> others.add(call, message.frame(), message.time())));
    }
    state.save(streams.values(), publisher, clock.timeOfDay());
    others.save();
  }

  @Override
  protected String metricsPrefix() {
    return "voip_front_";
  }

  @Override
  protected void measure(Metrics figures) {
    figures.counter("frames_total", "Frames of calls, taken to be published.", frames);
    figures.gauge("buffer_limit_bytes", "The most that the buffer holds.", bufferBytes);
    if (state != null) {
      figures.gauge("restart_unsafe", "1 while a front that is killed and started again would lose calls or frames.",
          state.isSafe() && ended.size() < MAX_ENDED ? 0 : 1);
    }
  }

  @Override
  protected void measureLive(Metrics figures) {
    Outbox.Counts own = outbox.own();
    Outbox.Counts before = outbox.earlier();
    figures.counter("confirmed_frames_total", "Frames that are safe with the broker.",
        own.confirmedFrames() + before.confirmedFrames());
    figures.counter("buffer_dropped_frames_total", "Frames dropped because the buffer for the broker was full.",
        outbox.lostFrames());
    figures.counter("end_dropped_frames_total", "Frames that neither broker nor disk took at the end.", lostAtEnd);
    figures.gauge("unconfirmed_frames", "Frames that the broker has not confirmed yet.",
        own.waitingFrames() + before.waitingFrames());
    figures.gauge("unconfirmed_seconds", "Age of the oldest message that the broker has not confirmed yet.",
        Math.max(0, System.nanoTime() - outbox.oldest()) / 1e9);
    figures.gauge("buffer_bytes", "Size of the messages that the broker has not confirmed yet.", outbox.bytes());
    figures.gauge("broker_connected", "1 while there is a connection to the broker.", publisher.isConnected() ? 1 : 0);
  }

  private void reportLoss(long lost) {
    if (!losing && lost > lostReported) {
      losing = true;
      console.line("the buffer for the broker is full: the oldest media is dropped, and counted");
    } else if (losing && outbox.isEmpty()) {
      losing = false;
      console.line("the broker has caught up; " + Text.count(lost - lostReported, "frame") + " lost");
      lostReported = lost;
    }
  }

  @Override
  public void began(Call call, Moment now) {
    Partition saved = restoring == null ? null : FrontState.partition(restoring);
    Partition partition = saved != null ? saved : Partition.of(call.id(), publisher.generation());
    Batch batch = batches.computeIfAbsent(partition,
        key -> new Batch(key, session, continued, outbox::add));
    RunningCalls.Journal journal = restoring != null ? restoring.journal() : state != null ? state.begin() : null;
    CallStream stream = new CallStream(call.number(), batch, restoring != null ? -1 : batch.sequence(), journal);
    streams.put(call, stream);
    if (restoring != null && restoredCall == null) {
      restoredCall = call;
    }
    batch.begin(stream, now().steady());
    if (state != null) {
      state.add(stream);
    }
  }

  @Override
  public void signalled(Call call, Frame frame, String label, Moment now) {
    CallStream stream = streams.get(call);
    FrameCursor cursor = cursor(frame);
    long captured = now.stamp() + skew;
    if (restoring == null) {
      publish(stream, cursor, captured, heldUntil);
      if (state != null) {
        state.append(stream, frame, captured);
      }
    }
    stream.remember(cursor, captured, heldUntil);
  }

  /** The messages are saved, and not published again: the recorder goes on with its call in the same way. */
  @Override
  public void wentOn(Call call, List<CallFollower.TimedMessage> messages) {
    CallStream stream = streams.get(call);
    long captured = call.start().stamp() + skew;
    for (CallFollower.TimedMessage message : messages) {
      stream.remember(cursor(message.frame()), captured, 0);
      if (state != null) {
        state.append(stream, message.frame(), captured);
      }
    }
  }

  @Override
  public void gaveUp(Call call, Moment now) {
    CallStream stream = streams.remove(call);
    stream.end();
    if (state != null) {
      state.end(stream.journal);
    }
    console.line(call + "  belongs to a call of another share");
  }

  @Override
  public void followed(Call call, Frame frame, Moment now) {
    if (state != null) {
      others.add(call, frame, now);
    }
  }

  @Override
  public void unfollowed(Call call) {
    if (state != null) {
      others.end(call);
    }
  }

  /** Publishes the signalling of the leg again: its earlier frames may have gone to another recorder. */
  @Override
  public void merged(Call call, Call other, boolean turned) {
    CallStream stream = streams.get(call);
    CallStream leg = streams.remove(other);
    leg.end();
    stream.remember(leg);
    if (restoring == null) {
      stream.batch.add(leg.signalled(), now().steady());
    }
    if (state != null) {
      state.merge(stream, leg);
    }
  }

  @Override
  public void ended(Call call, String how, Moment at) {
    over.add(call);
  }

  @Override
  public void full(int calls, boolean byMemory) {
    console.line(mostCalls(calls, byMemory) + ": new ones are not published");
  }

  @Override
  protected Transport source(Transport link) {
    return state == null ? link : new LoggedTransport(link, block -> state.blocks().append(block, clock.millis()));
  }

  @Override
  protected long handOverMillis() {
    return HAND_OVER_MILLIS;
  }

  @Override
  public void finish() {
    if (!stopped()) {
      for (Call call : List.copyOf(follower.calls())) {
        follower.end(call, "publishing stopped", now(), now());
      }
    }
    closeCalls();
    batches.values().forEach(Batch::flush);
    if (state != null) {
      while (!ended.isEmpty()) {
        state.end(ended.remove().journal);
      }
      save();
    }
    console.status("");
  }

  @Override
  public void summarize() {
    publisher.close();
    List<Message> left = outbox.messages().stream().map(this::resolved).toList();
    int kept = state == null ? 0 : state.keep(left);
    if (state != null) {
      state.close();
    }
    List<Message> saved = left.subList(0, kept);
    List<Message> lost = left.subList(kept, left.size());
    lostAtEnd = lost.stream().mapToLong(Message::frames).sum();
    Outbox.Counts own = outbox.own();
    Outbox.Counts before = outbox.earlier();
    console.print(Text.count(follower.seen(), "call") + ", " + Text.count(frames, "frame") + ": "
        + own.confirmedFrames() + " in " + Text.count(own.confirmedMessages(), "message")
        + " safe with the broker, " + frames(saved, true) + " kept for the next front, "
        + own.lostFrames() + " lost because the buffer was full, " + frames(lost, true)
        + " lost because the broker was not there at the end; at most " + (outbox.peak() >> 10) + " KB waited");
    if (before.frames() > 0) {
      console.print(Text.count(before.frames(), "frame") + " of the front before: " + before.confirmedFrames() + " in "
          + Text.count(before.confirmedMessages(), "message") + " safe with the broker, " + frames(saved, false)
          + " kept for the next front, " + before.lostFrames() + " lost because the buffer was full, "
          + frames(lost, false) + " lost because the broker was not there at the end");
    }
    losses().forEach(console::print);
  }

  private long frames(List<Message> messages, boolean own) {
    return messages.stream().filter(message -> outbox.isOwn(message) == own).mapToLong(Message::frames).sum();
  }

  private Message resolved(Message message) {
    return new Message(message.id(), publisher.resolve(message.partition()), message.continued(), message.recaps(),
        message.media(), message.frames(), message.body());
  }
}
