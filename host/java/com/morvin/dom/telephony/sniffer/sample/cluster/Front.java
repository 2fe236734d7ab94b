package com.morvin.dom.telephony.sniffer.sample.cluster;

import com.morvin.dom.telephony.sniffer.sample.console.Console;
import com.morvin.dom.telephony.sniffer.sample.console.Text;
import com.morvin.dom.telephony.sniffer.sample.metrics.Metrics;
import com.morvin.dom.telephony.sniffer.sample.service.Service;
import com.morvin.dom.telephony.sniffer.sample.signalling.Call;
import com.morvin.dom.telephony.sniffer.sample.signalling.Moment;
import com.morvin.dom.telephony.sniffer.sample.transport.Frame;
import com.morvin.dom.telephony.sniffer.sample.transport.FrameCursor;
import com.morvin.dom.telephony.sniffer.sample.transport.SteadyClock;
import java.util.ArrayDeque;
import java.util.ArrayList;
import java.util.HashMap;
import java.util.List;
import java.util.Map;
import java.util.Queue;
import java.util.UUID;

/**
 * Publishes calls to a broker and records nothing. It follows calls only to know which call a frame belongs to, asks
 * the sniffers for their media, and publishes the frames of each call under the key of the call.
 */
final class Front extends Service {
  private static final int MAX_CALLS = 50_000;
  private static final long POLL_MILLIS = 20;
  /** A message is published at the latest after this time. */
  private static final long FILL_MILLIS = 100;

  private record Opened(CallStream stream, long at) {}

  private final long bufferBytes;
  private final Outbox outbox;
  private final Publisher publisher;
  private final String session = UUID.randomUUID().toString();
  private final Map<Call, CallStream> streams = new HashMap<>();
  /** Streams with an open message, oldest first; some of the messages have been published since. */
  private final Queue<Opened> opened = new ArrayDeque<>();
  private final List<Call> over = new ArrayList<>();
  private long frames;
  private long lostReported;
  private boolean losing;

  Front(Broker broker, long bufferBytes, Limits limits, Console console) {
    super(new Limits(limits.untilDisconnect(), limits.idleExitMillis(), limits.calls().withCalls(MAX_CALLS)),
        POLL_MILLIS, console, SteadyClock.system());
    this.bufferBytes = bufferBytes;
    outbox = new Outbox(bufferBytes);
    console.line("up to " + (bufferBytes >> 20) + " MB are kept for " + broker + " while it is slow or away");
    publisher = new Publisher(broker, outbox, console);
  }

  @Override
  protected void handle(FrameCursor cursor, Moment now) {
    Frame frame = cursor.frame();
    switch (frame.protocol()) {
      case Frame.SIP, Frame.H323 -> follower.signalling(frame, now);
      case Frame.RTP -> {
        Call.Use use = follower.media(cursor, now);
        if (use != null) {
          publish(use.call(), frame, now);
        }
      }
      default -> { }
    }
  }

  private void publish(Call call, Frame frame, Moment now) {
    CallStream stream = streams.get(call);
    if (stream != null) {
      frames++;
      if (stream.add(frame, now.stamp() + clock.skew(), now().steady())) {
        opened.add(new Opened(stream, stream.began()));
      }
    }
  }

  @Override
  protected void stepped(Moment now) {
    closeCalls();
    while (!opened.isEmpty() && now.steady() - opened.peek().at >= FILL_MILLIS) {
      Opened due = opened.remove();
      if (due.stream.isOpen() && due.stream.began() == due.at) {
        due.stream.flush(false);
      }
    }
  }

  /** Closes the streams of ended calls. The frame that ended a call is in its stream by now. */
  private void closeCalls() {
    over.forEach(call -> streams.remove(call).flush(true));
    over.clear();
  }

  @Override
  protected void tick(Moment now) {
    long lost = outbox.lostFrames();
    reportLoss(lost);
    console.status("calls " + streams.size() + " | frames " + frames + " | " + (outbox.bytes() >> 10)
        + " KB for the broker" + (publisher.isConnected() ? "" : ", which is AWAY") + " | lost " + (lost + dropped())
        + " | sniffer " + snifferState());
  }

  @Override
  protected String metricsPrefix() {
    return "voip_front_";
  }

  @Override
  protected void measure(Metrics figures) {
    long confirmed = outbox.confirmedFrames();
    long lost = outbox.lostFrames();
    figures.counter("frames_total", "Frames of calls, taken to be published.", frames);
    figures.counter("confirmed_frames_total", "Frames that are safe with the broker.", confirmed);
    figures.counter("buffer_dropped_frames_total", "Frames dropped because the buffer for the broker was full.", lost);
    figures.gauge("unconfirmed_frames", "Frames that the broker has not confirmed yet.", frames - confirmed - lost);
    figures.gauge("buffer_bytes", "Size of the messages that the broker has not confirmed yet.", outbox.bytes());
    figures.gauge("buffer_limit_bytes", "The most that the buffer holds.", bufferBytes);
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
    MessageId.Stream id = new MessageId.Stream(session, call.number());
    streams.put(call, new CallStream(id, call.id(), now.steady(), outbox::add));
  }

  @Override
  public void signalled(Call call, Frame frame, String label, Moment now) {
    publish(call, frame, now);
  }

  @Override
  public void gaveUp(Call call, Moment now) {
    streams.remove(call).flush(true);
    console.line(call + "  belongs to a call of another share");
  }

  @Override
  public void merged(Call call, Call other, boolean turned) {
    streams.get(call).add(streams.get(other), now().steady());
    over.add(other);
  }

  @Override
  public void ended(Call call, String how, Moment at) {
    over.add(call);
  }

  @Override
  public void full(int calls) {
    console.line("no more than " + calls + " calls can be followed at a time: new ones are not published");
  }

  @Override
  public void finish() {
    for (Call call : List.copyOf(follower.calls())) {
      follower.end(call, "publishing stopped", now(), now());
    }
    closeCalls();
    console.status("");
  }

  @Override
  public void summarize() {
    publisher.close();
    console.print(Text.count(follower.seen(), "call") + ", " + Text.count(frames, "frame") + ": "
        + outbox.confirmedFrames() + " in " + Text.count(outbox.confirmedMessages(), "message")
        + " safe with the broker, " + outbox.lostFrames() + " lost because the buffer was full, " + outbox.openFrames()
        + " lost because the broker was not there at the end; at most " + (outbox.peak() >> 10) + " KB waited");
    if (dropped() > 0) {
      console.print(Text.count(dropped(), "frame") + " dropped before that: this machine was too slow");
    }
  }
}
