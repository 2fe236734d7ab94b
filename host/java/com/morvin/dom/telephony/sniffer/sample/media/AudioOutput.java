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
 * A WAV file of one direction, and the clock that its samples are aligned to. Belongs to the recorder thread. Times are
 * milliseconds since 1970.
 */
final class AudioOutput {
  /** How far RTP timestamps may be ahead of the clock. A forged timestamp must not fill the disk with silence. */
  private static final long MAX_LEAD_MILLIS = 10_000;
  private static final long MAX_CLOCK_GAP_MILLIS = 3_600_000;
  /** After a longer pause the clock decides where speech continues. */
  private static final long PAUSE_MILLIS = 200;
  /** A smaller difference is jitter. */
  private static final long DRIFT_MILLIS = 40;
  private static final int MAX_MARKS = 2000;

  /** The first sample after a pause and its time of capture. */
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
  private long excessMillis;
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

  /** Returns the pause since the last sample in milliseconds, by the clock. */
  long pauseUntil(long now) {
    return firstArrival < 0 ? 0 : Math.max(0, Math.min(now - endOfAudio, MAX_CLOCK_GAP_MILLIS));
  }

  /** Returns the longest pause in milliseconds that RTP timestamps may ask for. */
  long maxPauseAt(long now) {
    long start = firstArrival < 0 ? now : firstArrival;
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
    if (firstArrival < 0) {
      firstArrival = time;
    }
    if (pause > 0 && (missing || interrupted)) {
      mark(file.samples(), file.samples() + pause);
    }
    interrupted = false;
    file.silence(pause);
    if (anchors.isEmpty() || pause >= PAUSE_MILLIS * samplesPerMilli()) {
      anchor(time);
    }
    file.write(samples);
    endOfAudio = time + samples.length / samplesPerMilli();
  }

  private void anchor(long time) {
    if (!anchors.isEmpty()) {
      Anchor last = anchors.get(anchors.size() - 1);
      long drift = time - last.time - (file.samples() - last.sample) / samplesPerMilli();
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

  /** Describes the file for the report. */
  CallReport.Part part(long callStart) {
    double rate = file.rate();
    return new CallReport.Part(file.fileName(), codec, (firstArrival - callStart) / 1000.0, file.samples() / rate,
        gaps.stream().map(gap -> new CallReport.Gap(gap.from / rate, gap.to / rate)).toList());
  }

  /** Returns the stretches of speech without a pause, with their times since the start of the call. */
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

  /** Returns the length of the audio that was written after the state was saved, in milliseconds. */
  long excessMillis() {
    return excessMillis;
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
    audio.firstArrival = in.readLong();
    audio.endOfAudio = in.readLong() + audio.excessMillis;
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
