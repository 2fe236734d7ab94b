package com.morvin.dom.telephony.sniffer.sample.media;

import com.morvin.dom.telephony.sniffer.sample.storage.CallReport;
import com.morvin.dom.telephony.sniffer.sample.storage.StereoFile;
import com.morvin.dom.telephony.sniffer.sample.storage.WavFile;
import java.io.DataInput;
import java.io.DataOutput;
import java.io.IOException;
import java.util.ArrayList;
import java.util.List;

/**
 * A WAV file of one direction, and where its samples are in time. Belongs to the recorder thread. Times are
 * milliseconds since 1970.
 *
 * <p>A packet can be late, but never early. So the earliest packets, compared with their place in the file, give the
 * time of a stretch of speech. The clocks of telephones differ by up to some 100 ppm: every ten seconds the earliest
 * packet gives a further point of time, and the stereo file is stretched evenly in between.
 */
final class AudioOutput {
  /** How far RTP timestamps may be ahead of the clock. A forged timestamp must not fill the disk with silence. */
  private static final long MAX_LEAD_MILLIS = 10_000;
  private static final long MAX_CLOCK_GAP_MILLIS = 3_600_000;
  /** After a longer pause the clock decides where speech continues. */
  static final long PAUSE_MILLIS = 200;
  /** A smaller difference is jitter. */
  private static final long JITTER_MILLIS = 40;
  /** For this time after its start a stretch can turn out to be earlier than its first packets said. */
  private static final long SETTLING_MILLIS = 10_000;
  private static final long WINDOW_MILLIS = 10_000;
  private static final int WINDOW_PACKETS = 50;
  /** A smaller drift is left until it has grown. */
  private static final long DRIFT_MILLIS = 5;
  private static final int MAX_MARKS = 2000;

  /**
   * A sample and its time of capture.
   *
   * @param joined whether the sound goes on from the sample before it
   */
  private record Anchor(long sample, long time, boolean joined) {}

  private record Gap(long from, long to) {}

  private final WavFile file;
  private final String codec;
  private final List<Anchor> anchors = new ArrayList<>();
  private final List<Gap> gaps = new ArrayList<>();
  private long packets;
  private boolean interrupted;
  private long excessMillis;
  private long windowStart;
  private int windowPackets;
  private long windowDelay;
  private Object owner;

  AudioOutput(WavFile file, String codec) {
    this.file = file;
    this.codec = codec;
  }

  WavFile file() {
    return file;
  }

  long packets() {
    return packets;
  }

  /** Whether a source writes to this file at present. */
  boolean isOwnedBy(Object source) {
    return owner == source;
  }

  void setOwner(Object source) {
    owner = source;
  }

  private int samplesPerMilli() {
    return file.rate() / 1000;
  }

  private Anchor last() {
    return anchors.get(anchors.size() - 1);
  }

  /** Returns the time of a sample in the last stretch. */
  private long timeOf(long sample) {
    return last().time + (sample - last().sample) / samplesPerMilli();
  }

  /** Returns the pause since the last sample in milliseconds, by the clock. */
  long pauseUntil(long now) {
    return anchors.isEmpty() ? 0 : Math.max(0, Math.min(now - timeOf(file.samples()), MAX_CLOCK_GAP_MILLIS));
  }

  /** Returns how much later than its place in the file a packet was captured that follows a pause in milliseconds. */
  long delay(long pause, long time) {
    return anchors.isEmpty() ? 0 : time - timeOf(file.samples()) - pause;
  }

  /** Returns the longest pause in milliseconds that RTP timestamps may ask for. */
  long maxPauseAt(long now) {
    long start = anchors.isEmpty() ? now : anchors.get(0).time;
    return now - start + MAX_LEAD_MILLIS - file.samples() / samplesPerMilli();
  }

  /**
   * Writes a pause and the samples after it.
   *
   * @param pause in samples
   * @param missing whether packets were lost in the pause
   */
  void write(long pause, boolean missing, short[] samples, long time) {
    packets++;
    if (pause > 0 && (missing || interrupted)) {
      mark(file.samples(), file.samples() + pause);
    }
    interrupted = false;
    file.silence(pause);
    align(pause >= PAUSE_MILLIS * samplesPerMilli(), time);
    file.write(samples);
  }

  /** Compares the place of the next sample with its time of capture. */
  private void align(boolean afterPause, long time) {
    long delay = delay(0, time);
    if (anchors.isEmpty() || afterPause && Math.abs(delay) >= JITTER_MILLIS) {
      anchor(time, false);
    } else if (delay < 0 && !last().joined && time - last().time < SETTLING_MILLIS) {
      moveBack(Math.min(-delay, MAX_LEAD_MILLIS));
    } else if (delay <= -PAUSE_MILLIS) {
      anchor(time, false);
    } else {
      followDrift(delay, time);
    }
  }

  /** The first packets of the stretch were late. */
  private void moveBack(long millis) {
    Anchor late = anchors.remove(anchors.size() - 1);
    anchors.add(new Anchor(late.sample, late.time - millis, false));
    beginWindow(windowStart);
  }

  private void followDrift(long delay, long time) {
    windowDelay = Math.min(windowDelay, delay);
    if (++windowPackets >= WINDOW_PACKETS && time - windowStart >= WINDOW_MILLIS) {
      long drift = Math.min(windowDelay, PAUSE_MILLIS);
      beginWindow(time);
      if (Math.abs(drift) >= DRIFT_MILLIS) {
        anchor(timeOf(file.samples()) + drift, true);
      }
    }
  }

  private void beginWindow(long time) {
    windowStart = time;
    windowPackets = 0;
    windowDelay = Long.MAX_VALUE;
  }

  private void anchor(long time, boolean joined) {
    if (anchors.size() < MAX_MARKS) {
      anchors.add(new Anchor(file.samples(), time, joined));
      beginWindow(time);
    }
  }

  private void mark(long from, long to) {
    if (gaps.size() < MAX_MARKS) {
      gaps.add(new Gap(from, to));
    }
  }

  /** Describes the file for the report. */
  CallReport.Part part(long callStart) {
    double rate = file.rate();
    return new CallReport.Part(file.fileName(), codec, (anchors.get(0).time - callStart) / 1000.0,
        file.samples() / rate, gaps.stream().map(gap -> new CallReport.Gap(gap.from / rate, gap.to / rate)).toList());
  }

  /** Returns the stretches of speech, with their times since the start of the call. */
  List<StereoFile.Stretch> stretches(long callStart) {
    List<StereoFile.Stretch> stretches = new ArrayList<>();
    for (int i = 0; i < anchors.size(); i++) {
      Anchor anchor = anchors.get(i);
      Anchor next = i + 1 < anchors.size() ? anchors.get(i + 1) : null;
      long count = (next == null ? file.samples() : next.sample) - anchor.sample;
      stretches.add(new StereoFile.Stretch(file, anchor.sample, count, anchor.time - callStart,
          next == null ? Long.MAX_VALUE : next.time - callStart, next != null && next.joined));
    }
    return stretches;
  }

  /** Returns the length of the audio that was written after the state was saved, in milliseconds. */
  long excessMillis() {
    return excessMillis;
  }

  void save(DataOutput out) throws IOException {
    out.writeInt(file.rate());
    out.writeLong(file.samples());
    out.writeUTF(codec);
    out.writeLong(packets);
    out.writeInt(anchors.size());
    for (Anchor anchor : anchors) {
      out.writeLong(anchor.sample);
      out.writeLong(anchor.time);
      out.writeBoolean(anchor.joined);
    }
    out.writeInt(gaps.size());
    for (Gap gap : gaps) {
      out.writeLong(gap.from);
      out.writeLong(gap.to);
    }
  }

  /** Opens a file with a known rate and number of samples. */
  interface FileOpener {
    WavFile open(int rate, long samples) throws IOException;
  }

  /** Restores a saved output. The file may hold more samples than the saved state says. */
  static AudioOutput restore(DataInput in, FileOpener opener) throws IOException {
    int rate = in.readInt();
    long samples = in.readLong();
    AudioOutput audio = new AudioOutput(opener.open(rate, samples), in.readUTF());
    audio.excessMillis = (audio.file.samples() - samples) / audio.samplesPerMilli();
    audio.packets = in.readLong();
    for (int count = in.readInt(); count > 0; count--) {
      audio.anchors.add(new Anchor(in.readLong(), in.readLong(), in.readBoolean()));
    }
    for (int count = in.readInt(); count > 0; count--) {
      audio.gaps.add(new Gap(in.readLong(), in.readLong()));
    }
    audio.interrupted = true;
    audio.beginWindow(Long.MIN_VALUE / 2);
    return audio;
  }
}
