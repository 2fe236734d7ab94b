package com.morvin.dom.telephony.sniffer.sample.media;

import com.morvin.dom.telephony.sniffer.sample.storage.CallReport;
import com.morvin.dom.telephony.sniffer.sample.storage.Encoding;
import com.morvin.dom.telephony.sniffer.sample.storage.ResumedFiles;
import com.morvin.dom.telephony.sniffer.sample.storage.StereoFile;
import com.morvin.dom.telephony.sniffer.sample.storage.StoredFile;
import com.morvin.dom.telephony.sniffer.sample.storage.WavChannel;
import com.morvin.dom.telephony.sniffer.sample.storage.WavFile;
import java.io.DataInput;
import java.io.DataOutput;
import java.io.IOException;
import java.util.ArrayList;
import java.util.List;

/**
 * The sound of one direction in a WAV file, and where its samples are in time. Belongs to the recorder thread. Times
 * are milliseconds since 1970.
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
  static final long JITTER_MILLIS = 40;
  /** In this time after the start of a stretch each packet can show that those before were late. */
  private static final long FIRST_MILLIS = 1_000;
  /** For this time after its start a stretch can turn out to be earlier than its first packets said. */
  private static final long SETTLING_MILLIS = 10_000;
  /** In this time only the earliest packet counts. */
  private static final long RECENT_MILLIS = 200;
  private static final long WINDOW_MILLIS = 10_000;
  private static final int WINDOW_PACKETS = 50;
  /** A smaller drift is left until it has grown. */
  private static final long DRIFT_MILLIS = 5;
  /** More than any delay. */
  private static final long NO_DELAY = Long.MAX_VALUE / 2;
  /** The start of a window that begins with the next packet. */
  private static final long NOT_BEGUN = -1;
  private static final int MAX_MARKS = 2000;
  private static final int MAX_RATE = 48_000;
  /** The longest sound that is compared with packets after a restart: 30 s. */
  private static final int MAX_COMPARED = 240_000;
  private static final int TICKS = RtpClock.TICKS;

  /**
   * A sample and its time of capture.
   *
   * @param joined whether the sound goes on from the sample before it
   */
  private record Anchor(long sample, long time, boolean joined) {}

  private record Gap(long from, long to) {}

  private WavChannel channel;
  private final String codec;
  private final boolean isAside;
  private final SavedList<Anchor> anchors = new SavedList<>();
  private final SavedList<Gap> gaps = new SavedList<>();
  /** The values of the last anchor, and the time of the first one: each packet needs them. */
  private boolean anchored;
  private long lastSample;
  private long lastTime;
  private boolean lastJoined;
  private long firstTime;
  private int samplesPerMilli;
  private long packets;
  private boolean interrupted;
  /** The sound that is not in the stereo file, in milliseconds. */
  private long cut;
  /** What the file held beyond the saved state, until it is known which packets that are; null afterwards. */
  private Overlap overlap;
  private long windowStart;
  private int windowPackets;
  /** The least delay of the last packets, since a time. */
  private long recentDelay;
  private long recentSince;
  /**
   * The two least of these delays in the window. Packets that come early at once can be forged: the sound is as early
   * as packets at two times agree on.
   */
  private long leastDelay;
  private long agreedDelay;
  private Object owner;
  /** What a restored output needs to open its file. */
  private WavFile.Format savedFormat;
  private int savedFile;
  private int savedChannel;
  private long savedStart;
  private long savedSamples;

  /**
   * Makes an output without sound.
   *
   * @param channel null when {@link #open} follows
   * @param isAside whether the sound may be forged, and is kept beside the voice
   */
  AudioOutput(WavChannel channel, String codec, boolean isAside) {
    this.codec = codec;
    this.isAside = isAside;
    if (channel != null) {
      setChannel(channel);
    }
  }

  private void setChannel(WavChannel opened) {
    channel = opened;
    samplesPerMilli = opened.rate() / 1000;
  }

  long touch() {
    return packets + lastSample + windowPackets;
  }

  WavChannel channel() {
    return channel;
  }

  long packets() {
    return packets;
  }

  /** Returns the length of the sound that is not in the stereo file, because other sound is in its place. */
  long cutMillis() {
    return isAside ? 0 : cut;
  }

  /** Whether the sound may be forged, and is kept beside the voice. */
  boolean isAside() {
    return isAside;
  }

  /** Whether a source writes to this file at present. */
  boolean isOwnedBy(Object source) {
    return owner == source;
  }

  /** Returns the source that writes to this file; null after a restart. */
  Object owner() {
    return owner;
  }

  void setOwner(Object source) {
    owner = source;
    overlap = null;
  }

  /**
   * Begins to check which packets of its owner are in the file already, after a restart.
   *
   * @param next the sequence number after the saved state
   * @param timestamp of the end of the saved state
   */
  Overlap beginOverlap(int next, int timestamp) throws IOException {
    long excess = channel.samples() - savedSamples;
    boolean comparable = channel.file().format().encoding() != Encoding.LINEAR && excess <= MAX_COMPARED;
    byte[] octets = comparable ? channel.file().octets(channel, savedSamples, (int) excess) : null;
    overlap = new Overlap(octets, channel.file().format().encoding(), (int) (excess * TICKS / samplesPerMilli),
        next, timestamp);
    return overlap;
  }

  /** Ends the check: all packets that follow are new. */
  void endOverlap() {
    overlap = null;
  }

  /** Returns the time of a sample in the last stretch. */
  private long timeOf(long sample) {
    return lastTime + (sample - lastSample) / samplesPerMilli;
  }

  /** Returns when the last sample ends. */
  long endTime() {
    return timeOf(channel.samples());
  }

  /** Returns the pause since the last sample in milliseconds, by the clock. */
  long pauseUntil(long now) {
    return !anchored ? 0 : Math.max(0, Math.min(now - timeOf(channel.samples()), MAX_CLOCK_GAP_MILLIS));
  }

  /**
   * Returns the pause before a packet that the clock alone places, in milliseconds. It is negative when the file is
   * ahead of its time: forged packets have filled it.
   */
  long pauseByClock(long now) {
    long lead = !anchored ? 0 : timeOf(channel.samples()) - now;
    return lead > JITTER_MILLIS && lead <= MAX_LEAD_MILLIS ? -lead : pauseUntil(now);
  }

  /** Returns how much later than its place in the file a packet was captured that follows a pause in milliseconds. */
  long delay(long pause, long time) {
    return !anchored ? 0 : time - timeOf(channel.samples()) - pause;
  }

  /** Returns the longest pause in milliseconds that RTP timestamps may ask for. */
  long maxPauseAt(long now) {
    long start = anchored ? firstTime : now;
    return now - start + MAX_LEAD_MILLIS - channel.samples() / samplesPerMilli;
  }

  /**
   * Writes a pause. The samples of a packet follow.
   *
   * @param pause in samples; when it is negative, the packet takes the place of the last samples
   * @param missing whether packets were lost in the pause
   * @param time of capture of the packet
   * @param isEarly whether the packet came before it was due: it does not show where the sound is in time
   */
  void begin(long pause, boolean missing, long time, boolean isEarly) {
    packets++;
    if (pause > 0 && (missing || interrupted)) {
      mark(channel.samples(), channel.samples() + pause);
    }
    interrupted = false;
    if (pause > 0) {
      channel.silence(pause);
    } else if (pause < 0) {
      takeBack(Math.min(-pause, channel.samples()));
    }
    if (!isEarly) {
      align(pause >= PAUSE_MILLIS * samplesPerMilli, time);
    }
  }

  private void takeBack(long count) {
    channel.takeBack(count);
    long end = channel.samples();
    while (anchors.size() > 1 && anchors.last().sample > end) {
      anchors.removeLast();
    }
    while (!gaps.isEmpty() && gaps.last().from >= end) {
      gaps.removeLast();
    }
    if (!gaps.isEmpty() && gaps.last().to > end) {
      gaps.replaceLast(new Gap(gaps.last().from, end));
    }
    cacheAnchors();
  }

  /** Compares the place of the next sample with its time of capture. */
  private void align(boolean afterPause, long time) {
    if (windowStart == NOT_BEGUN) {
      windowStart = time;
    }
    long delay = delay(0, time);
    noteDelay(delay, time);
    long agreed = Math.max(delay, agreedDelay);
    long least = time - windowStart < FIRST_MILLIS ? delay : agreed;
    if (!anchored || afterPause && Math.abs(delay) >= JITTER_MILLIS) {
      anchor(time, false);
    } else if (least < 0 && !lastJoined && !isAside && time - lastTime < SETTLING_MILLIS && -least <= roomBefore()) {
      moveBack(Math.min(-least, MAX_LEAD_MILLIS));
    } else if (agreed <= -PAUSE_MILLIS) {
      cut -= agreed;
      anchor(time, false);
    } else {
      followDrift(time);
    }
  }

  /** Notes how late a packet is, so that the earliest ones of the window are known. */
  private void noteDelay(long delay, long time) {
    if (Math.abs(time - recentSince) < RECENT_MILLIS) {
      recentDelay = Math.min(delay, recentDelay);
      return;
    }
    agreedDelay = Math.min(agreedDelay, Math.max(recentDelay, leastDelay));
    leastDelay = Math.min(leastDelay, recentDelay);
    recentDelay = delay;
    recentSince = time;
  }

  /** Returns by how many milliseconds the last stretch can move back without reaching the one before. */
  private long roomBefore() {
    if (anchors.size() == 1) {
      return Long.MAX_VALUE;
    }
    Anchor before = anchors.items().get(anchors.size() - 2);
    return lastTime - before.time - (lastSample - before.sample) / samplesPerMilli;
  }

  /** The first packets of the stretch were late. */
  private void moveBack(long millis) {
    Anchor late = anchors.last();
    anchors.replaceLast(new Anchor(late.sample, late.time - millis, false));
    cacheAnchors();
    recentDelay += millis;
    leastDelay += millis;
    agreedDelay += millis;
    windowPackets = 0;
  }

  private void followDrift(long time) {
    if (++windowPackets >= WINDOW_PACKETS && time - windowStart >= WINDOW_MILLIS) {
      long drift = Math.min(agreedDelay, PAUSE_MILLIS);
      beginWindow(time);
      if (Math.abs(drift) >= DRIFT_MILLIS) {
        anchor(timeOf(channel.samples()) + drift, true);
      }
    }
  }

  private void beginWindow(long time) {
    windowStart = time;
    windowPackets = 0;
    recentDelay = NO_DELAY;
    leastDelay = NO_DELAY;
    agreedDelay = NO_DELAY;
  }

  private void anchor(long time, boolean joined) {
    if (anchors.size() < MAX_MARKS) {
      anchors.add(new Anchor(channel.samples(), time, joined));
      cacheAnchors();
      beginWindow(time);
    }
  }

  private void cacheAnchors() {
    anchored = !anchors.isEmpty();
    if (anchored) {
      firstTime = anchors.first().time;
      lastSample = anchors.last().sample;
      lastTime = anchors.last().time;
      lastJoined = anchors.last().joined;
      channel.setFirstTime(firstTime);
    }
  }

  private void mark(long from, long to) {
    if (gaps.size() < MAX_MARKS) {
      gaps.add(new Gap(from, to));
    }
  }

  /** Describes the file for the report, with or without its name. */
  CallReport.Part part(long callStart, boolean named) {
    double rate = channel.rate();
    return new CallReport.Part(named ? channel.file().fileName() : "", codec,
        (anchors.first().time - callStart) / 1000.0, channel.samples() / rate,
        gaps.items().stream().map(gap -> new CallReport.Gap(gap.from / rate, gap.to / rate)).toList());
  }

  /** Returns the stretches of speech, with their times since the start of the call. */
  List<StereoFile.Stretch> stretches(long callStart) {
    List<StereoFile.Stretch> stretches = new ArrayList<>();
    for (int i = 0; i < anchors.size(); i++) {
      Anchor anchor = anchors.items().get(i);
      Anchor next = i + 1 < anchors.size() ? anchors.items().get(i + 1) : null;
      long count = (next == null ? channel.samples() : next.sample) - anchor.sample;
      stretches.add(new StereoFile.Stretch(channel, anchor.sample, count, anchor.time - callStart,
          next == null ? Long.MAX_VALUE : next.time - callStart, next != null && next.joined));
    }
    return stretches;
  }

  /** Saves the state; the file is in the list, or is added to it. */
  void save(DataOutput out, boolean whole, List<StoredFile> files) throws IOException {
    out.writeUTF(codec);
    out.writeBoolean(isAside);
    WavFile.Format format = channel.file().format();
    out.writeByte(format.encoding().ordinal());
    out.writeInt(format.rate());
    out.writeByte(format.channels());
    out.writeInt(Track.number(files, channel.file()));
    out.writeByte(channel.number());
    out.writeLong(channel.start());
    // A restart before the check has ended begins it again.
    out.writeLong(overlap == null ? channel.samples() : savedSamples + overlap.known() * samplesPerMilli / TICKS);
    out.writeLong(packets);
    anchors.save(out, whole, (anchor, to) -> {
      to.writeLong(anchor.sample);
      to.writeLong(anchor.time);
      to.writeBoolean(anchor.joined);
    });
    gaps.save(out, whole, (gap, to) -> {
      to.writeLong(gap.from);
      to.writeLong(gap.to);
    });
  }

  /** Restores what was saved, on top of what was restored into this output before; null for a new one. */
  static AudioOutput restore(AudioOutput before, DataInput in) throws IOException {
    String codec = in.readUTF();
    boolean isAside = in.readBoolean();
    AudioOutput audio = before != null ? before : new AudioOutput(null, codec, isAside);
    audio.savedFormat = new WavFile.Format(Encoding.values()[in.readByte()], in.readInt(), in.readByte());
    audio.savedFile = in.readInt();
    audio.savedChannel = in.readByte();
    audio.savedStart = in.readLong();
    audio.savedSamples = in.readLong();
    audio.packets = in.readLong();
    audio.anchors.restore(in, from -> new Anchor(from.readLong(), from.readLong(), from.readBoolean()));
    audio.gaps.restore(in, from -> new Gap(from.readLong(), from.readLong()));
    return audio;
  }

  /** See {@link Track#isWithin}. */
  boolean isWithin(long from, long to) {
    long most = Math.max(0, to - from) * samplesPerMilli;
    return samplesPerMilli > 0 && channel.rate() <= MAX_RATE && channel.start() >= 0 && channel.start() <= most
        && channel.samples() >= 0 && stretches(from).stream().allMatch(stretch -> stretch.first() >= 0
            && stretch.start() >= 0 && stretch.start() <= to - from && stretch.count() >= 0
            && stretch.count() <= most - stretch.start() * samplesPerMilli);
  }

  /** Opens the file of a restored output. It may hold more samples than the saved state says. */
  void open(ResumedFiles files, String name) throws IOException {
    setChannel(files.wav(savedFile, name, savedFormat, 0).resume(savedChannel, savedStart, savedSamples));
    cacheAnchors();
    interrupted = true;
    beginWindow(NOT_BEGUN);
  }
}
