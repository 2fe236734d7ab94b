package com.morvin.dom.telephony.sniffer.sample.signalling;

/** The signs of life of a call, and the time limits that they are measured by. */
public final class Lifetime {
  private static final long RESUMED_MILLIS = 60_000;

  private Moment lastActivity;
  private Moment answered;
  private Moment resumed;

  Lifetime(Moment start) {
    lastActivity = start;
  }

  /** Records that a message or media was received. */
  void active(Moment now) {
    lastActivity = now;
    resumed = null;
  }

  /** Returns the time of the last message or media packet. */
  public Moment lastActivity() {
    return lastActivity;
  }

  /**
   * Marks the call as restored after a restart. It ends soon unless a message or media follows.
   *
   * @param saved when the call was known to run before the restart
   */
  public void resume(Moment saved, Moment now) {
    lastActivity = lastActivity.latest(saved);
    resumed = now;
  }

  /** Adds the signs of life of another call. */
  void add(Lifetime other) {
    lastActivity = lastActivity.latest(other.lastActivity);
    if (answered == null || other.answered != null && answered.since(other.answered) > 0) {
      answered = other.answered;
    }
    if (other.resumed == null) {
      resumed = null;
    }
  }

  /** Records the time of the first answer. */
  void answered(Moment now) {
    if (answered == null) {
      answered = now;
    }
  }

  /** Returns the time of the first answer; null before it. */
  Moment answer() {
    return answered;
  }

  /** Returns the reason when the call has been silent for too long; null otherwise. */
  String expiryReason(Moment now, long idleMillis) {
    if (resumed != null) {
      return now.since(resumed) >= RESUMED_MILLIS ? "recording stopped" : null;
    }
    return now.since(lastActivity) >= idleMillis ? "timeout" : null;
  }
}
