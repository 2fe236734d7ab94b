package com.morvin.dom.telephony.sniffer.sample.recording;

import com.morvin.dom.telephony.sniffer.sample.console.Console;
import com.morvin.dom.telephony.sniffer.sample.console.Text;
import com.morvin.dom.telephony.sniffer.sample.media.Codec;
import com.morvin.dom.telephony.sniffer.sample.media.RtpPacket;
import com.morvin.dom.telephony.sniffer.sample.media.Track;
import com.morvin.dom.telephony.sniffer.sample.signalling.Call;
import com.morvin.dom.telephony.sniffer.sample.signalling.CallFollower;
import com.morvin.dom.telephony.sniffer.sample.signalling.Direction;
import com.morvin.dom.telephony.sniffer.sample.storage.CallLog;
import com.morvin.dom.telephony.sniffer.sample.transport.Frame;
import com.morvin.dom.telephony.sniffer.sample.transport.Heartbeat;
import com.morvin.dom.telephony.sniffer.sample.transport.Intake;
import com.morvin.dom.telephony.sniffer.sample.transport.Received;
import com.morvin.dom.telephony.sniffer.sample.transport.Transport;
import java.io.IOException;
import java.nio.file.Path;
import java.time.Clock;
import java.util.HashMap;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;

/**
 * Follows the calls that sniffers report, asks for their media, and writes them down. All of it happens on the
 * thread that calls {@link #run}.
 */
public final class Recorder implements CallFollower.Listener {
  private static final long TICK_MILLIS = 200;

  /** When to stop by itself. */
  public record Limits(boolean untilDisconnect, long idleExitMillis, CallFollower.Limits calls) {
    public static final Limits NONE = new Limits(false, Long.MAX_VALUE, CallFollower.Limits.DEFAULT);
  }

  private final Path directory;
  private final Limits limits;
  private final Console console;
  private final Clock clock;
  private final CallLog log;
  private final CallFollower follower;

  private final Map<Call, Recording> recordings = new HashMap<>();
  private final Map<Path, Long> files = new LinkedHashMap<>();
  private Transport transport;
  private Heartbeat heartbeat;
  private int sessions;
  private long lastTick;
  private long lastTraffic;
  private final long[] received = new long[Frame.CAPTURE_TIME + 1];  // frames, by protocol
  private long packets;
  private long lostOfEndedCalls;
  private volatile boolean stopping;

  public Recorder(Path directory, Limits limits, Console console, Clock clock) throws IOException {
    this.directory = directory;
    this.limits = limits;
    this.console = console;
    this.clock = clock;
    log = new CallLog(directory);
    follower = new CallFollower(this, limits.calls, command -> transport.send(command));
  }

  /** Records until {@link #stop} or one of the limits, then ends the calls that are still up. */
  public void run(Transport link) throws IOException, InterruptedException {
    attach(link);
    try (Intake intake = new Intake(link, console)) {
      while (!stopping) {
        boolean gone = limits.untilDisconnect && link.sessions() > 0 && link.sniffers().isEmpty();
        Received frame = intake.receive(TICK_MILLIS);
        step(frame);
        if (frame == null && (gone || clock.millis() - lastTraffic >= limits.idleExitMillis)) {
          break;
        }
      }
    } finally {
      finish();
    }
  }

  public void attach(Transport link) {
    transport = link;
    heartbeat = new Heartbeat(link, console);
    sessions = link.sessions();
    lastTraffic = clock.millis();
  }

  /** Handles one frame, or none, and does what is due. */
  public void step(Received received) {
    long now = clock.millis();
    greet();
    if (received != null) {
      Frame frame = received.frame();
      heartbeat.heard(received.sniffer(), now);
      this.received[frame.protocol()]++;
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
  public void stop() {
    stopping = true;
  }

  public boolean stopped() {
    return stopping;
  }

  private void dispatch(Frame frame, long now) {
    switch (frame.protocol()) {
      case Frame.SIP, Frame.H323 -> signalling(frame, now);
      case Frame.RTP -> media(frame, now);
      default -> { }
    }
  }

  private void signalling(Frame frame, long now) {
    long before = follower.malformed();
    follower.signalling(frame, now);
    if (before == 0 && follower.malformed() > 0) {
      console.line("ignoring malformed packets");
    }
  }

  private void media(Frame frame, long now) {
    Call.Use use = follower.media(frame, now);
    if (use == null) {
      return;
    }
    packets++;
    if (RtpPacket.isRtcp(frame.payload())) {
      return;
    }
    RtpPacket packet = RtpPacket.parse(frame.payload());
    if (packet != null) {
      Codec codec = Codec.of(packet.payloadType(), use.media().codecs().get(packet.payloadType()));
      recordings.get(use.call()).track(use.direction()).accept(packet, codec, now);
    }
  }

  private void tick(long now) {
    heartbeat.tick(now);
    follower.tick(now, transport.losesCommands());
    long lost = lostOfEndedCalls + recordings.values().stream().mapToLong(Recording::lost).sum();
    console.status("calls " + recordings.size() + " | packets " + packets + " | lost " + lost + " | sniffer "
        + heartbeat.state());
  }

  @Override
  public void began(Call call, long now) {
    recordings.put(call, new Recording(call, directory));
    console.line(call + "  " + call.protocol() + "  " + Text.printable(call.caller()) + " -> "
        + Text.printable(call.callee()));
  }

  @Override
  public void full(int calls) {
    console.line("no more than " + calls + " calls can be followed at a time: new ones are not recorded");
  }

  @Override
  public void ended(Call call, String how, long now) {
    Recording recording = recordings.remove(call);
    recording.close();
    lostOfEndedCalls += recording.lost();
    StringBuilder told = new StringBuilder();
    for (Direction direction : Direction.values()) {
      Track track = recording.track(direction);
      files.putAll(track.recordings());
      told.append("; ").append(direction).append(' ').append(Text.count(track.received(), "packet")).append(", ")
          .append(track.lost()).append(" lost");
    }
    console.line(call + "  " + Text.printable(how) + " after " + Text.seconds(now - call.start()) + " s" + told);
    recording.notes().forEach(note -> console.line(call + "  " + Text.printable(note)));
    try {
      log.add(recording.row(now, how));
    } catch (IOException e) {
      console.line("cannot write to " + log.file() + ": " + e);
    }
  }

  private void finish() {
    long now = clock.millis();
    for (Call call : List.copyOf(follower.calls())) {
      follower.end(call, call.deadlineReason() != null ? call.deadlineReason() : "recording stopped", now);
    }
    console.status("");
  }

  /** What has been recorded, for the end. */
  public void summarize() {
    if (transport == null) {
      return;  // it never began
    }
    console.print("");
    console.print(Text.count(follower.seen(), "call") + ", " + Text.count(packets, "media packet") + " ("
        + lostOfEndedCalls + " lost), " + Text.count(files.size(), "recording"));
    console.print("Frames from the sniffer: " + received[Frame.SIP] + " SIP, " + received[Frame.RTP] + " RTP, "
        + received[Frame.H323] + " H.323, " + received[Frame.HEARTBEAT] + " heartbeats in "
        + Text.count(transport.sessions(), "session"));
    files.forEach((path, millis) -> console.print("  " + path + "  " + Text.seconds(millis) + " s"));
    if (follower.seen() > 0) {
      console.print("The table of calls: " + log.file());
    }
  }
}
