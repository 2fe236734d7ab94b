package com.morvin.dom.telephony.sniffer.sample;

import java.io.IOException;
import java.nio.file.Path;
import java.time.Clock;
import java.util.LinkedHashMap;
import java.util.LinkedHashSet;
import java.util.List;
import java.util.Map;
import java.util.Set;

/**
 * Follows the calls that a sniffer reports, asks it for their media, and writes them down. All of it happens on the
 * thread that calls {@link #run}.
 */
final class Recorder {
  private static final long TICK_MILLIS = 200;
  private static final int MAX_CALLS = 4000;
  /** A call that nobody answers is given up after this; phones do so earlier. */
  private static final long UNANSWERED_MILLIS = 300_000;

  /** When to stop by itself, and when to give up calls. */
  record Limits(boolean untilDisconnect, long idleExitMillis, long callTimeoutMillis) {
    static final Limits NONE = new Limits(false, Long.MAX_VALUE, 3_600_000);
  }

  private final Path directory;
  private final Limits limits;
  private final Console console;
  private final Clock clock;
  private final CallLog log;

  private final SipCalls sipCalls = new SipCalls(this);
  private final H323Calls h323Calls = new H323Calls(this);
  private final Set<Call> calls = new LinkedHashSet<>();
  private final Map<Path, Long> recordings = new LinkedHashMap<>();
  private Destinations destinations;
  private Transport transport;
  private Heartbeat heartbeat;
  private int session;
  private long lastTick;
  private long lastTraffic;
  private int lastNumber;
  private final long[] received = new long[Frame.H323 + 1];  // frames, by protocol
  private long packets;
  private long lostOfEndedCalls;
  private long malformed;
  private boolean full;
  private volatile boolean stopping;

  Recorder(Path directory, Limits limits, Console console, Clock clock) throws IOException {
    this.directory = directory;
    this.limits = limits;
    this.console = console;
    this.clock = clock;
    log = new CallLog(directory);
  }

  /** Records until {@link #stop} or one of the limits, then ends the calls that are still up. */
  void run(Transport link) throws IOException, InterruptedException {
    attach(link);
    try {
      while (!stopping) {
        boolean gone = limits.untilDisconnect && link.sessions() > 0 && !link.connected();
        Frame frame = link.receive(TICK_MILLIS);
        step(frame);
        if (frame == null && (gone || clock.millis() - lastTraffic >= limits.idleExitMillis)) {
          break;
        }
      }
    } finally {
      finish();
    }
  }

  void attach(Transport link) {
    transport = link;
    destinations = new Destinations(link::send);
    heartbeat = new Heartbeat(link, console);
    session = link.sessions();
    lastTraffic = clock.millis();
  }

  /** Handles one frame, or none, and does what is due. */
  void step(Frame frame) {
    long now = clock.millis();
    if (transport.sessions() != session) {
      session = transport.sessions();
      destinations.resend();
    }
    if (frame != null) {
      heartbeat.heard(now);
      received[frame.protocol()]++;
      if (frame.protocol() != Frame.HEARTBEAT || transport.waitsForTraffic()) {
        lastTraffic = now;
      }
      dispatch(frame, now);
    }
    if (now - lastTick >= TICK_MILLIS || now < lastTick) {
      lastTick = now;
      tick(now);
    }
  }

  /** Makes {@link #run} return soon. Any thread may call it. */
  void stop() {
    stopping = true;
  }

  boolean stopped() {
    return stopping;
  }

  private void dispatch(Frame frame, long now) {
    switch (frame.protocol()) {
      case Frame.SIP -> sipCalls.accept(frame, now);
      case Frame.RTP -> media(frame, now);
      case Frame.H323 -> h323Calls.accept(frame, now);
      default -> { }
    }
  }

  private void media(Frame frame, long now) {
    Call.Use use = destinations.find(frame.destination(), frame.source());
    if (use == null) {
      destinations.unwanted(frame.destination(), now);
      return;
    }
    packets++;
    use.call().active(now);
    if (RtpPacket.isRtcp(frame.payload())) {
      return;
    }
    RtpPacket packet = RtpPacket.parse(frame.payload());
    if (packet == null) {
      malformed();
    } else {
      use.call().track(use.direction()).accept(packet, use.media().codec(packet.payloadType()), now);
    }
  }

  private void tick(long now) {
    heartbeat.tick(now);
    if (transport.losesCommands()) {
      destinations.repeat(now);
    }
    for (Call call : List.copyOf(calls)) {
      String how = call.overdue(now, limits.callTimeoutMillis, UNANSWERED_MILLIS);
      if (how != null) {
        end(call, how, now);
      }
    }
    long lost = lostOfEndedCalls + calls.stream().mapToLong(Call::lost).sum();
    console.status("calls " + calls.size() + " | recorded " + recordings.size() + " | packets " + packets + " | lost "
        + lost + " | sniffer " + heartbeat.state());
  }

  // What the followers of signalling ask for.

  Path directory() {
    return directory;
  }

  int nextNumber() {
    return ++lastNumber;
  }

  void malformed() {
    if (malformed++ == 0) {
      console.line("ignoring malformed packets");
    }
  }

  /** Whether another call can be followed; a flood of calls that carry nothing makes way. */
  boolean hasRoom(long now) {
    if (calls.size() >= MAX_CALLS) {
      calls.stream().filter(call -> !call.isAnswered() && call.packets() == 0).findFirst()
          .ifPresent(call -> end(call, "dropped: too many calls", now));
    }
    boolean room = calls.size() < MAX_CALLS;
    if (!room && !full) {
      console.line("no more than " + MAX_CALLS + " calls can be followed at a time: new ones are not recorded");
    }
    full = !room;
    return room;
  }

  /** The signalling has told something about the call; of a new one the media is asked for before anything is said. */
  void update(Call call, long now) {
    destinations.update(call, call.destinations(), now);
    if (calls.add(call)) {
      console.line(
          call + "  " + call.protocol + "  " + Text.printable(call.caller) + " -> " + Text.printable(call.callee));
    }
  }

  void end(Call call, String how, long now) {
    calls.remove(call);
    call.ended(now);
    destinations.update(call, Map.of(), now);
    call.close();
    lostOfEndedCalls += call.lost();
    StringBuilder told = new StringBuilder();
    for (Direction direction : Direction.values()) {
      Track track = call.track(direction);
      recordings.putAll(track.recordings());
      told.append("; ").append(direction).append(' ').append(Text.count(track.received(), "packet")).append(", ")
          .append(track.lost()).append(" lost");
    }
    console.line(call + "  " + Text.printable(how) + " after " + Text.seconds(now - call.start) + " s" + told);
    call.notes().forEach(note -> console.line(call + "  " + Text.printable(note)));
    try {
      log.add(call, now, how);
    } catch (IOException e) {
      console.line("cannot write to " + log.file() + ": " + e);
    }
  }

  private void finish() {
    long now = clock.millis();
    for (Call call : List.copyOf(calls)) {
      end(call, call.deadlineReason() != null ? call.deadlineReason() : "recording stopped", now);
    }
    console.status("");
  }

  /** What has been recorded, for the end. */
  void summarize() {
    if (transport == null) {
      return;  // it never began
    }
    console.print("");
    console.print(Text.count(lastNumber, "call") + ", " + Text.count(packets, "media packet") + " (" + lostOfEndedCalls
        + " lost), " + Text.count(recordings.size(), "recording"));
    console.print("Frames from the sniffer: " + received[Frame.SIP] + " SIP, " + received[Frame.RTP] + " RTP, "
        + received[Frame.H323] + " H.323, " + received[Frame.HEARTBEAT] + " heartbeats in "
        + Text.count(transport.sessions(), "session"));
    recordings.forEach((path, millis) -> console.print("  " + path + "  " + Text.seconds(millis) + " s"));
    if (lastNumber > 0) {
      console.print("The table of calls: " + log.file());
    }
  }

  int callsSeen() {
    return lastNumber;
  }
}
