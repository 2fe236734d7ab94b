package com.morvin.dom.telephony.sniffer.sample.media;

import com.morvin.dom.telephony.sniffer.sample.storage.StereoFile;
import com.morvin.dom.telephony.sniffer.sample.storage.WavChannel;
import java.io.DataInput;
import java.io.DataOutput;
import java.io.IOException;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;

/**
 * When the samples of a file were captured: samples with their times, between which the sound goes on. Belongs to the
 * recorder thread. Times are milliseconds since 1970.
 *
 * <p>There are at most {@link Marks#MOST} anchors. When there are more, neighbours that differ least become one, at the
 * place of the first and with the lesser delay: a packet can be late, but never early. No sound moves by more than the
 * median of these differences. So in a call of any length the clock of the telephone is followed to a few milliseconds,
 * and what a stretch can lose is the jitter of its first packets.
 */
final class TimeLine {
  private static final long NOT_LIMITED = Long.MAX_VALUE;

  /** The value of a mark is its time, twice, plus 1 when the sound goes on from the sample before it. */
  private final Marks anchors = new Marks();
  private int samplesPerMilli = 1;
  /** The values of the last anchor, and the time of the first one: each packet needs them. */
  private boolean begun;
  private long lastSample;
  private long lastTime;
  private boolean lastJoined;
  private long firstTime;

  void setRate(int rate) {
    samplesPerMilli = rate / 1000;
  }

  /** Whether there is an anchor. */
  boolean isBegun() {
    return begun;
  }

  /** Returns the time of the first anchor. */
  long firstTime() {
    return firstTime;
  }

  /** Returns the time of the last anchor. */
  long lastTime() {
    return lastTime;
  }

  /** Whether the sound goes on at the last anchor. */
  boolean isLastJoined() {
    return lastJoined;
  }

  long touch() {
    return lastSample;
  }

  /** Returns the time of a sample in the last stretch. */
  long timeOf(long sample) {
    return lastTime + (sample - lastSample) / samplesPerMilli;
  }

  /**
   * Adds an anchor after all others.
   *
   * @param joined whether the sound goes on from the sample before it
   */
  void add(long sample, long time, boolean joined) {
    if (anchors.isFull()) {
      thin();
    }
    anchors.add(sample, value(time, joined));
    noteLast();
  }

  private static long value(long time, boolean joined) {
    return 2 * time + (joined ? 1 : 0);
  }

  private long time(int index) {
    return anchors.value(index) >> 1;
  }

  private boolean isJoined(int index) {
    return (anchors.value(index) & 1) != 0;
  }

  /** Returns how much later an anchor was captured than its place in the file says, in samples. */
  private long delay(int index) {
    return time(index) * samplesPerMilli - anchors.place(index);
  }

  private long step(int index) {
    return Math.abs(delay(index + 1) - delay(index));
  }

  /** Makes one of neighbours that differ little, so that a quarter of all anchors goes. The first and last stay. */
  private void thin() {
    int last = anchors.size() - 1;
    long[] steps = new long[last - 2];
    Arrays.setAll(steps, i -> step(i + 1));
    Arrays.sort(steps);
    long limit = steps[steps.length / 2];
    int kept = 1;
    for (int i = 1; i <= last; i++) {
      long time = time(i);
      boolean joined = isJoined(i);
      long sample = anchors.place(i);
      if (i + 1 < last && step(i) <= limit) {
        time += Math.min(0, delay(i + 1) - delay(i)) / samplesPerMilli;
        i++;
      }
      anchors.set(kept++, sample, value(time, joined));
    }
    anchors.truncate(kept);
  }

  /** Removes the anchors after the end of the file, except the first one. */
  void takeBack(long end) {
    int count = anchors.size();
    while (count > 1 && anchors.place(count - 1) > end) {
      count--;
    }
    anchors.truncate(count);
    noteLast();
  }

  /** Returns the index of the anchor with which the last stretch without a joint began. */
  private int lastBreak() {
    int index = anchors.size() - 1;
    while (index > 0 && isJoined(index)) {
      index--;
    }
    return index;
  }

  /** Whether the sound has been one stretch from the start, which nothing keeps in its place. */
  boolean isUnbroken() {
    return lastBreak() <= 0;
  }

  /** Returns by how many milliseconds the sound since the last break can move back without reaching that before. */
  long roomBefore() {
    int at = lastBreak();
    return at <= 0 ? NOT_LIMITED : Math.max(0, (delay(at) - delay(at - 1)) / samplesPerMilli);
  }

  /** Moves the sound since the last break back. */
  void moveBack(long millis) {
    int at = lastBreak();
    for (int i = at; i < anchors.size(); i++) {
      anchors.set(i, anchors.place(i), value(time(i) - millis, isJoined(i)));
    }
    noteLast();
  }

  /** Whether a stretch began later than the file says, by a time or more. */
  boolean hasPauseOf(long millis) {
    for (int i = 1; i < anchors.size(); i++) {
      if (!isJoined(i) && delay(i) - delay(i - 1) >= millis * samplesPerMilli) {
        return true;
      }
    }
    return false;
  }

  private void noteLast() {
    int last = anchors.size() - 1;
    begun = last >= 0;
    if (begun) {
      firstTime = time(0);
      lastSample = anchors.place(last);
      lastTime = time(last);
      lastJoined = isJoined(last);
    }
  }

  /** Returns the stretches of the sound in a channel, with their times since the start of the call. */
  List<StereoFile.Stretch> stretches(WavChannel channel, long callStart) {
    List<StereoFile.Stretch> stretches = new ArrayList<>();
    for (int i = 0; i < anchors.size(); i++) {
      boolean isLast = i + 1 == anchors.size();
      long sample = anchors.place(i);
      long end = isLast ? channel.samples() : anchors.place(i + 1);
      stretches.add(new StereoFile.Stretch(channel, sample, end - sample, time(i) - callStart,
          isLast ? Long.MAX_VALUE : time(i + 1) - callStart, !isLast && isJoined(i + 1)));
    }
    return stretches;
  }

  /** Returns the memory beyond the usual in bytes. */
  long memory() {
    return anchors.memory();
  }

  /** Gives a part of the memory beyond the usual back. */
  void giveBack() {
    if (anchors.hasMany()) {
      thin();
      thin();
      noteLast();
    }
    anchors.trim();
  }

  void save(DataOutput out, boolean whole) throws IOException {
    anchors.save(out, whole);
  }

  /** Restores the anchors. {@link #resume} follows. */
  void restore(DataInput in) throws IOException {
    anchors.restore(in);
  }

  /** Goes on after a restart. */
  void resume(int rate) {
    setRate(rate);
    noteLast();
  }
}
