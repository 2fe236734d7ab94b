package com.morvin.dom.telephony.sniffer.sample.recording;

import com.morvin.dom.telephony.sniffer.sample.console.Text;
import com.morvin.dom.telephony.sniffer.sample.metrics.Metrics;
import com.morvin.dom.telephony.sniffer.sample.storage.CallReport;
import com.morvin.dom.telephony.sniffer.sample.transport.Frame;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import java.util.stream.Stream;

/** The counters of a recorder. Belongs to the recorder thread, except {@link #add}. */
final class Summary {
  private static final int MAX_FILES = 20;

  private final long[] frames = new long[Frame.CAPTURE_TIME + 1];  // by protocol
  private record Recorded(String file, double seconds) {}

  private final List<Recorded> files = new ArrayList<>();
  private long recordings;
  private long packets;
  private long lost;
  private long mostLost;
  private long malformed;
  private long flood;
  private long excess;
  private long total;
  private long totalBefore;
  private long statusAt;

  /** Counts a frame of the sniffer. */
  void count(int protocol) {
    frames[protocol]++;
    total++;
  }

  /** Counts a packet of a followed call. */
  void countPacket() {
    packets++;
  }

  /** Counts the lost packets of an ended call. */
  void countLost(long packets) {
    lost += packets;
  }

  /** Counts malformed packets. Returns whether they are the first ones. */
  boolean countMalformed(long count) {
    malformed += count;
    return count > 0 && malformed == count;
  }

  /** Counts a call that made way for others. Returns whether it is the first one. */
  boolean countFlood() {
    return ++flood == 1;
  }

  /** Counts a call that got no report because too many ended without media. */
  void countExcess() {
    excess++;
  }

  /** Counts the files of an ended call. Called on the disk thread. */
  synchronized void add(CallReport report) {
    List<CallReport.Part> voices = Stream.of(report.fromCaller(), report.fromCallee())
        .flatMap(voice -> voice.parts().stream()).toList();
    if (!report.stereo().isEmpty()) {
      double begin = Math.min(0, voices.stream().mapToDouble(CallReport.Part::offset).min().orElse(0));
      double end = voices.stream().mapToDouble(part -> part.offset() + part.duration()).max().orElse(0);
      add(report.stereo(), end - begin);
    }
    report.moreStereo().forEach(part -> add(part.file(), part.duration()));
    voices.stream().filter(part -> !part.file().isEmpty()).forEach(part -> add(part.file(), part.duration()));
  }

  private void add(String file, double seconds) {
    recordings++;
    if (files.size() < MAX_FILES) {
      files.add(new Recorded(file, seconds));
    }
  }

  /** Returns the status line. */
  String status(int calls, long lostNow, long now, long dropped) {
    long rate = statusAt == 0 || now <= statusAt ? 0 : (total - totalBefore) * 1000 / (now - statusAt);
    statusAt = now;
    totalBefore = total;
    return Text.count(calls, "call") + " | " + rate + " frames/s | " + (lost + lostNow) + " lost"
        + (dropped > 0 ? " | " + dropped + " DROPPED" : "");
  }

  /** Adds the counters. The packets that running calls have lost are added to those of ended calls. */
  void measure(Metrics figures, long lostNow, long unreported) {
    String received = "Frames received from sniffers or fronts.";
    figures.counter("frames_total", received, frames[Frame.SIP], "protocol", "sip");
    figures.counter("frames_total", received, frames[Frame.RTP], "protocol", "rtp");
    figures.counter("frames_total", received, frames[Frame.H323], "protocol", "h323");
    figures.counter("media_packets_total", "RTP packets of calls.", packets);
    mostLost = Math.max(mostLost, lost + lostNow);  // a late packet is no longer lost
    figures.counter("lost_packets_total", "RTP packets of calls that never came, or too late.", mostLost);
    figures.counter("malformed_packets_total", "Packets ignored because they are malformed.", malformed);
    String reports = "Ended calls without a report.";
    figures.counter("unreported_calls_total", reports, flood, "reason", "calls_limit");
    figures.counter("unreported_calls_total", reports, excess, "reason", "no_media");
    figures.counter("unreported_calls_total", reports, unreported, "reason", "disk");
  }

  /** Returns the lines for the end of the program, with those about what was lost elsewhere. */
  synchronized List<String> lines(int calls, int sessions, long unreported, List<String> losses, Path directory) {
    List<String> lines = new ArrayList<>();
    lines.add(Text.count(calls, "call") + ", " + Text.count(packets, "media packet") + " (" + lost + " lost), "
        + Text.count(recordings, "recording"));
    lines.add("Frames from the sniffer: " + frames[Frame.SIP] + " SIP, " + frames[Frame.RTP] + " RTP, "
        + frames[Frame.H323] + " H.323, " + frames[Frame.HEARTBEAT] + " heartbeats in "
        + Text.count(sessions, "session"));
    lines.addAll(losses);
    if (flood > 0) {
      lines.add(Text.count(flood, "call") + " without media made way for others");
    }
    if (excess > 0) {
      lines.add(Text.count(excess, "call") + " without media got no report, because too many ended");
    }
    if (unreported > 0) {
      lines.add(Text.count(unreported, "call") + " without a complete report: the disk was full, faulty or too slow");
    }
    files.forEach(part -> lines.add("  " + directory.resolve(part.file()) + "  "
        + Text.seconds(Math.round(part.seconds() * 1000)) + " s"));
    if (recordings > files.size()) {
      lines.add("  and " + (recordings - files.size()) + " more");
    }
    return lines;
  }
}
