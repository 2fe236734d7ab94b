package com.morvin.dom.telephony.sniffer.sample.media;

import com.morvin.dom.telephony.sniffer.sample.storage.CallReport;
import com.morvin.dom.telephony.sniffer.sample.storage.StereoFile;
import com.morvin.dom.telephony.sniffer.sample.storage.WavFile;
import java.io.DataInput;
import java.io.DataOutput;
import java.io.IOException;
import java.util.ArrayList;
import java.util.List;

/** A WAV file of one direction, with the clock it is held against. */
final class Audio {
  /** How far timestamps may lead the clock: so a forged one cannot fill the disk with silence. */
  private static final long MAX_LEAD_MILLIS = 10_000;
  private static final long MAX_CLOCK_GAP_MILLIS = 3_600_000;
  /** After so much silence the clock decides where speech goes on. */
  private static final long PAUSE_MILLIS = 200;
  /** Less is jitter. */
  private static final long DRIFT_MILLIS = 40;
  private static final int MAX_MARKS = 2000;

  /** Where speech goes on after a pause: the sample, and when it was captured. */
  private record Anchor(long sample, long time) {}

  private record Gap(long from, long to) {}

  private final WavFile file;
  private final String codec;
  private final List<Anchor> anchors = new ArrayList<>();
  private final List<Gap> gaps = new ArrayList<>();
  private long packets;
  private long firstArrival = -1;
  private long endOfAudio;
  private boolean interrupted;
  private long more;
  private Object owner;

  Audio(WavFile file, String codec) {
    this.file = file;
    this.codec = codec;
  }

  WavFile file() {
    return file;
  }

  long packets() {
    return packets;
  }

  /** The source that writes to it at present. */
  boolean belongsTo(Object source) {
    return owner == source;
  }

  void giveTo(Object source) {
    owner = source;
  }

  private int perMilli() {
    return file.rate() / 1000;
  }

  /** Milliseconds of silence between what was written last and now, by the clock. */
  long pauseUntil(long now) {
    return firstArrival < 0 ? 0 : Math.max(0, Math.min(now - endOfAudio, MAX_CLOCK_GAP_MILLIS));
  }

  /** Milliseconds of silence that timestamps may ask for. */
  long maxPauseAt(long now) {
    long start = firstArrival < 0 ? now : firstArrival;
    return now - start + MAX_LEAD_MILLIS - file.samples() / perMilli();
  }

  /**
   * Adds speech behind a pause.
   *
   * @param pause in samples
   * @param missing whether it is known that packets were lost in it
   */
  void write(long pause, boolean missing, short[] samples, long time) {
    packets++;
    if (firstArrival < 0) {
      firstArrival = time;
    }
    if (pause > 0 && (missing || interrupted)) {
      mark(file.samples(), file.samples() + pause);
    }
    interrupted = false;
    file.silence(pause);
    if (anchors.isEmpty() || pause >= PAUSE_MILLIS * perMilli()) {
      anchor(time);
    }
    file.write(samples);
    endOfAudio = time + samples.length / perMilli();
  }

  private void anchor(long time) {
    if (!anchors.isEmpty()) {
      Anchor last = anchors.get(anchors.size() - 1);
      long drift = time - last.time - (file.samples() - last.sample) / perMilli();
      if (Math.abs(drift) < DRIFT_MILLIS || anchors.size() == MAX_MARKS) {
        return;
      }
    }
    anchors.add(new Anchor(file.samples(), time));
  }

  private void mark(long from, long to) {
    if (gaps.size() < MAX_MARKS) {
      gaps.add(new Gap(from, to));
    }
  }

  CallReport.Part part(long callStart) {
    double rate = file.rate();
    return new CallReport.Part(file.fileName(), codec, (firstArrival - callStart) / 1000.0, file.samples() / rate,
        gaps.stream().map(gap -> new CallReport.Gap(gap.from / rate, gap.to / rate)).toList());
  }

  /** What was spoken without a break, on the clock of the call. */
  List<StereoFile.Stretch> stretches(long callStart) {
    List<StereoFile.Stretch> stretches = new ArrayList<>();
    for (int i = 0; i < anchors.size(); i++) {
      Anchor anchor = anchors.get(i);
      long end = i + 1 < anchors.size() ? anchors.get(i + 1).sample : file.samples();
      long start = Math.max(0, anchor.time - callStart);
      stretches.add(new StereoFile.Stretch(file, anchor.sample, end - anchor.sample, start));
    }
    return stretches;
  }

  /** Milliseconds that were on disk beyond what was saved. */
  long more() {
    return more;
  }

  void save(DataOutput out) throws IOException {
    out.writeInt(file.rate());
    out.writeLong(file.samples());
    out.writeUTF(codec);
    out.writeLong(packets);
    out.writeLong(firstArrival);
    out.writeLong(endOfAudio);
    out.writeInt(anchors.size());
    for (Anchor anchor : anchors) {
      out.writeLong(anchor.sample);
      out.writeLong(anchor.time);
    }
    out.writeInt(gaps.size());
    for (Gap gap : gaps) {
      out.writeLong(gap.from);
      out.writeLong(gap.to);
    }
  }

  /** The way to a file whose rate and samples are known. */
  interface Reopen {
    WavFile file(int rate, long samples) throws IOException;
  }

  /** The next packet comes after the recorder was away; the file may hold more than was known of it. */
  static Audio restore(DataInput in, Reopen reopen) throws IOException {
    int rate = in.readInt();
    long samples = in.readLong();
    Audio audio = new Audio(reopen.file(rate, samples), in.readUTF());
    audio.more = (audio.file.samples() - samples) / audio.perMilli();
    audio.packets = in.readLong();
    audio.firstArrival = in.readLong();
    audio.endOfAudio = in.readLong() + audio.more;
    for (int count = in.readInt(); count > 0; count--) {
      audio.anchors.add(new Anchor(in.readLong(), in.readLong()));
    }
    for (int count = in.readInt(); count > 0; count--) {
      audio.gaps.add(new Gap(in.readLong(), in.readLong()));
    }
    audio.interrupted = true;
    return audio;
  }
}
