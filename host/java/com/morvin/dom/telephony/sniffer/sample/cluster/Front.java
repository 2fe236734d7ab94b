package com.morvin.dom.telephony.sniffer.sample.cluster;

import com.morvin.dom.telephony.sniffer.sample.console.Console;
import com.morvin.dom.telephony.sniffer.sample.console.Text;
import com.morvin.dom.telephony.sniffer.sample.recording.Recorder;
import com.morvin.dom.telephony.sniffer.sample.signalling.Call;
import com.morvin.dom.telephony.sniffer.sample.signalling.CallFollower;
import com.morvin.dom.telephony.sniffer.sample.transport.Frame;
import com.morvin.dom.telephony.sniffer.sample.transport.Heartbeat;
import com.morvin.dom.telephony.sniffer.sample.transport.Intake;
import com.morvin.dom.telephony.sniffer.sample.transport.Received;
import com.morvin.dom.telephony.sniffer.sample.transport.Service;
import com.morvin.dom.telephony.sniffer.sample.transport.Transport;
import java.io.IOException;
import java.util.ArrayDeque;
import java.util.ArrayList;
import java.util.HashMap;
import java.util.List;
import java.util.Map;
import java.util.Queue;
import java.util.UUID;

/**
 * Stands between sniffers and a broker: follows calls just far enough to know which of them a frame belongs to, asks the
 * sniffers for their media, and publishes what each call consists of under its key. It records nothing.
 */
final class Front implements Service, CallFollower.Listener {
  private static final int MAX_CALLS = 50_000;
  private static final long TICK_MILLIS = 200;
  /** For how long a message may be filled. */
  private static final long FILL_MILLIS = 100;
  private static final long POLL_MILLIS = 20;

  private record Opened(CallStream stream, long at) {}

  private final Recorder.Limits limits;
  private final Console console;
  private final Outbox outbox;
  private final Publisher publisher;
  private final CallFollower follower;
  private final String session = UUID.randomUUID().toString();
  private final Map<Call, CallStream> streams = new HashMap<>();
  /** Those whose message is being made, oldest first; some have been completed meanwhile. */
  private final Queue<Opened> opened = new ArrayDeque<>();
  private final List<Call> over = new ArrayList<>();
  private Transport transport;
  private Heartbeat heartbeat;
  private int sessions;
  private long lastTick;
  private long lastTraffic;
  private long frames;
  private long dropped;
  private long lostTold;
  private boolean losing;
  private volatile boolean stopping;

  Front(Broker broker, long bufferBytes, Recorder.Limits limits, Console console) {
    this.limits = limits;
    this.console = console;
    outbox = new Outbox(bufferBytes);
    follower = new CallFollower(this, new CallFollower.Limits(MAX_CALLS, limits.calls().idleMillis(),
        limits.calls().unansweredMillis()), command -> transport.send(command));
    console.line("up to " + (bufferBytes >> 20) + " MB are kept for " + broker + " while it is slow or away");
    publisher = new Publisher(broker, outbox, console);
  }

  @Override
  public void run(Transport link) throws IOException, InterruptedException {
    transport = link;
    heartbeat = new Heartbeat(link, console);
    sessions = link.sessions();
    lastTraffic = System.currentTimeMillis();
    try (Intake intake = new Intake(link, console)) {
      while (!stopping) {
        boolean gone = limits.untilDisconnect() && link.sessions() > 0 && link.sniffers().isEmpty();
        Received received = intake.receive(POLL_MILLIS);
        long now = System.currentTimeMillis();
        step(received, now);
        if (received == null && (gone || now - lastTraffic >= limits.idleExitMillis())) {
          break;
        }
        dropped = intake.dropped();
      }
    } finally {
      finish();
    }
  }

  private void step(Received received, long now) {
    greet();
    if (received != null) {
      heartbeat.heard(received.sniffer(), now);
      if (received.frame().protocol() != Frame.HEARTBEAT || transport.waitsForTraffic()) {
        lastTraffic = now;
      }
      publish(received.frame(), received.time(now), now);
    }
    if (now - lastTick >= TICK_MILLIS || now < lastTick) {
      lastTick = now;
      tick(now);
    }
    closeCalls();
    while (!opened.isEmpty() && (now - opened.peek().at >= FILL_MILLIS || now < opened.peek().at)) {
      Opened due = opened.remove();
      if (due.stream.isOpen() && due.stream.began() == due.at) {
        due.stream.flush(false);
      }
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

  private void publish(Frame frame, long captured, long now) {
    Call call = null;
    switch (frame.protocol()) {
      case Frame.SIP, Frame.H323 -> call = follower.signalling(frame, now);
      case Frame.RTP -> {
        Call.Use use = follower.media(frame, now);
        call = use == null ? null : use.call();
      }
      default -> { }
    }
    CallStream stream = call == null ? null : streams.get(call);
    if (stream != null) {
      frames++;
      if (stream.add(frame, captured, now)) {
        opened.add(new Opened(stream, stream.began()));
      }
    }
  }

  /** A call that a frame has ended is closed when that frame is in its stream, too. */
  private void closeCalls() {
    over.forEach(call -> streams.remove(call).flush(true));
    over.clear();
  }

  private void tick(long now) {
    heartbeat.tick(now);
    follower.tick(now, transport.losesCommands());
    long lost = outbox.lostFrames();
    tellOfLoss(lost);
    console.status("calls " + streams.size() + " | frames " + frames + " | " + (outbox.bytes() >> 10) + " KB for the broker"
        + (publisher.isConnected() ? "" : ", which is AWAY") + " | lost " + (lost + dropped) + " | sniffer "
        + heartbeat.state());
  }

  private void tellOfLoss(long lost) {
    if (!losing && lost > lostTold) {
      losing = true;
      console.line("the buffer for the broker is full: the oldest media is dropped, and counted");
    } else if (losing && outbox.isEmpty()) {
      losing = false;
      console.line("the broker has caught up; " + Text.count(lost - lostTold, "frame") + " lost");
      lostTold = lost;
    }
  }

  @Override
  public void began(Call call, long now) {
    MessageId.Stream id = new MessageId.Stream(session, call.number());
    streams.put(call, new CallStream(id, call.id(), System.currentTimeMillis(), outbox::add));
  }

  @Override
  public void ended(Call call, String how, long now) {
    over.add(call);
  }

  @Override
  public void full(int calls) {
    console.line("no more than " + calls + " calls can be followed at a time: new ones are not published");
  }

  private void finish() {
    for (Call call : List.copyOf(follower.calls())) {
      follower.end(call, "publishing stopped", System.currentTimeMillis());
    }
    closeCalls();
    console.status("");
  }

  @Override
  public void stop() {
    stopping = true;
  }

  @Override
  public boolean stopped() {
    return stopping;
  }

  @Override
  public void summarize() {
    publisher.close();
    console.print(Text.count(follower.seen(), "call") + ", " + Text.count(frames, "frame") + ": "
        + outbox.confirmedFrames() + " in " + Text.count(outbox.confirmedMessages(), "message") + " safe with the broker, "
        + outbox.lostFrames() + " lost because the buffer was full, " + outbox.openFrames()
        + " lost because the broker was not there at the end; at most " + (outbox.peak() >> 10) + " KB waited");
    if (dropped > 0) {
      console.print(Text.count(dropped, "frame") + " dropped before that: this machine was too slow");
    }
  }
}
