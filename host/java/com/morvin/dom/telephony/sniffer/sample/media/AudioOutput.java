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
import java.util.List;
import java.util.stream.IntStream;

/**
 * The sound of one direction in a WAV file, and where its samples are in time. Belongs to the recorder thread. Times
 * are milliseconds since 1970.
 *
 * <p>A packet can be late, but never early. So the earliest packets, compared with their place in the file, give the
 * time of a stretch of speech. The clocks of telephones differ by up to some 100 ppm: every ten seconds the earliest
 * packets show how far the sound has drifted, and the stereo file is stretched evenly in between.
 *
 * <p>Packets without a pause that are late by less than 200 ms stay where they follow each other, octet by octet, up to
 * a drift of 20 ms: the earliest packets of ten seconds are late by some milliseconds when a machine is busy. A clock
 * that has drifted by that much drifts on in the same direction, and is followed in steps of 5 ms.
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
  /** A smaller drift may be the load of a machine. */
  private static final long FIRST_DRIFT_MILLIS = 20;
  /** A smaller drift is left until it has grown. */
  private static final long DRIFT_MILLIS = 5;
  /** A longer delay is not that of a network. */
  static final long MAX_DELAY_MILLIS = 1_000;
  /** More than any delay. */
  private static final long NO_DELAY = Long.MAX_VALUE / 2;
  /** The start of a window that begins with the next packet. */
  private static final long NOT_BEGUN = -1;
  private static final int MAX_RATE = 48_000;
  /** The longest sound that is compared with packets after a restart: 30 s. */
  private static final int MAX_COMPARED = 240_000;
  private static final int TICKS = RtpClock.TICKS;

  private WavChannel channel;
  private final String codec;
  private final boolean isAside;
  private final TimeLine line = new TimeLine();
  /** Where lost packets have left silence, from one sample to another. */
  private final Marks gaps = new Marks();
  /** The number of gaps that have no mark. */
  private long unlisted;
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
  /** The last drift that was followed; 0 when there was none. */
  private long lastDrift;
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
    line.setRate(opened.rate());
  }

  long touch() {
    return packets + line.touch() + windowPackets;
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

  /** Returns when the last sample ends. */
  long endTime() {
    return line.timeOf(channel.samples());
  }

  /** Returns the pause since the last sample in milliseconds, by the clock. */
  long pauseUntil(long now) {
    return !line.isBegun() ? 0 : Math.max(0, Math.min(now - line.timeOf(channel.samples()), MAX_CLOCK_GAP_MILLIS));
  }

  /**
   * Returns the pause before a packet that the clock alone places, in milliseconds. It is negative when the file is
   * ahead of its time: forged packets have filled it.
   */
  long pauseByClock(long now) {
    long lead = !line.isBegun() ? 0 : line.timeOf(channel.samples()) - now;
    return lead > JITTER_MILLIS && lead <= MAX_LEAD_MILLIS ? -lead : pauseUntil(now);
  }

  /** Returns how much later than its place in the file a packet was captured that follows a pause in milliseconds. */
  long delay(long pause, long time) {
    return !line.isBegun() ? 0 : time - line.timeOf(channel.samples()) - pause;
  }

  /** Returns the longest pause in milliseconds that RTP timestamps may ask for. */
  long maxPauseAt(long now) {
    long start = line.isBegun() ? line.firstTime() : now;
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
    line.takeBack(end);
    int kept = gaps.size();
    while (kept > 0 && gaps.place(kept - 1) >= end) {
      kept--;
    }
    gaps.truncate(kept);
    if (kept > 0 && gaps.value(kept - 1) > end) {
      gaps.set(kept - 1, gaps.place(kept - 1), end);
    }
    noteFirst();
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
    if (!line.isBegun() || afterPause && Math.abs(delay) >= JITTER_MILLIS) {
      anchor(time, false);
    } else if (least < 0 && !line.isLastJoined() && !isAside && time - line.lastTime() < SETTLING_MILLIS) {
      moveBack(-least);
    } else if (agreed <= -PAUSE_MILLIS) {
      makeRoom(-agreed, time);
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

  /** The first packets of the last stretch were late. It moves back, but not into the sound before it. */
  private void moveBack(long millis) {
    long moved = Math.min(millis, Math.min(line.roomBefore(), MAX_LEAD_MILLIS));
    if (moved > 0) {
      line.moveBack(moved);
      noteFirst();
      recentDelay += moved;
      leastDelay += moved;
      agreedDelay += moved;
      windowPackets = 0;
    }
  }

  /** The delay has fallen by a time. What was taken for a pause was delay. Only the rest covers the sound before it. */
  private void makeRoom(long fall, long time) {
    long pause = line.isUnbroken() || isAside ? 0 : Math.min(fall, line.roomBefore());
    moveBack(pause);
    if (fall - pause >= PAUSE_MILLIS) {
      cut += fall - pause;
      anchor(time, false);
    }
  }

  private void followDrift(long time) {
    if (++windowPackets >= WINDOW_PACKETS && time - windowStart >= WINDOW_MILLIS) {
      long drift = agreedDelay >= NO_DELAY ? 0 : Math.min(agreedDelay, PAUSE_MILLIS);
      beginWindow(time);
      if (Math.abs(drift) >= (drift * lastDrift > 0 ? DRIFT_MILLIS : FIRST_DRIFT_MILLIS)) {
        lastDrift = drift;
        anchor(line.timeOf(channel.samples()) + drift, true);
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
    line.add(channel.samples(), time, joined);
    noteFirst();
    beginWindow(time);
  }

  /** States that the sound goes on later than the file says, by a time that the next packets agree on. */
  void resumeLater(long millis, long time) {
    anchor(line.timeOf(channel.samples()) + millis, false);
    beginWindow(time);
  }

  private void noteFirst() {
    if (line.isBegun()) {
      channel.setFirstTime(line.firstTime());
    }
  }

  private void mark(long from, long to) {
    if (gaps.isFull()) {
      unlisted++;
    } else {
      gaps.add(from, to);
    }
  }

  /** Returns the memory of its lists beyond the usual, in bytes. */
  long memory() {
    return line.memory() + gaps.memory();
  }

  /** Gives a part of that memory back. */
  void giveBack() {
    line.giveBack();
    if (gaps.hasMany()) {
      unlisted += gaps.thin();
    }
    gaps.trim();
  }

  /** Returns the number of gaps that the report does not list. */
  long unlistedGaps() {
    return unlisted;
  }

  /** Whether the sound has gone on after a pause that its timestamps do not have, and its file neither. */
  boolean hasPause() {
    return line.hasPauseOf(PAUSE_MILLIS);
  }

  /** Describes the file for the report, with or without its name. */
  CallReport.Part part(long callStart, boolean named) {
    double rate = channel.rate();
    return new CallReport.Part(named ? channel.file().fileName() : "", codec,
        (line.firstTime() - callStart) / 1000.0, channel.samples() / rate, IntStream.range(0, gaps.size())
        .mapToObj(i -> new CallReport.Gap(gaps.place(i) / rate, gaps.value(i) / rate)).toList());
  }

  /** Returns the stretches of speech, with their times since the start of the call. */
  List<StereoFile.Stretch> stretches(long callStart) {
    return line.stretches(channel, callStart);
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
    line.save(out, whole);
    gaps.save(out, whole);
    out.writeLong(unlisted);
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
    audio.line.restore(in);
    audio.gaps.restore(in);
    audio.unlisted = in.readLong();
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
    line.resume(channel.rate());
    noteFirst();
    interrupted = true;
    beginWindow(NOT_BEGUN);
  }
}
