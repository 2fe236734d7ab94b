package com.morvin.dom.telephony.sniffer.sample.signalling;

/** The signs of life of a call, and the time limits that they are measured by. */
public final class Lifetime {
  private static final long RESUMED_MILLIS = 60_000;

  private final MediaFlow flow;
  private Moment lastMessage;
  private Moment answered;
  private Moment resumed;

  Lifetime(Moment start, MediaFlow flow) {
    lastMessage = start;
    this.flow = flow;
  }

  /** Records that a message was received. */
  void active(Moment now) {
    lastMessage = now;
    resumed = null;
  }

  /** Returns the time of the last message or media packet. */
  public Moment lastActivity() {
    return lastMessage.latest(flow.last());
  }

  /**
   * Marks the call as restored after a restart. It ends soon unless a message or media follows.
   *
   * @param saved when the call was known to run before the restart
   */
  public void resume(Moment saved, Moment now) {
    lastMessage = lastMessage.latest(saved);
    resumed = now;
  }

  /** Marks the call as restored after a restart in which no message and no media was missed. */
  public void resume(Moment now) {
    lastMessage = new Moment(now.steady(), lastMessage.stamp());
  }

  /** Adds the signs of life of another call. */
  void add(Lifetime other) {
    lastMessage = lastMessage.latest(other.lastMessage);
    if (answered == null || other.answered != null && answered.since(other.answered) > 0) {
      answered = other.answered;
    }
    if (!other.isResumed()) {
      resumed = null;
    }
  }

  /** Whether nothing was received since the restart. */
  private boolean isResumed() {
    return resumed != null && !flow.exists();
  }

  /** Records the time of the first answer. */
  void answered(Moment now) {
    if (answered == null) {
      answered = now;
    }
  }

  /** Returns the time of the first answer; null before it. */
  public Moment answer() {
    return answered;
  }

  /** Returns the reason when the call has been silent for too long; null otherwise. */
  String expiryReason(Moment now, long idleMillis) {
    if (isResumed()) {
      return now.since(resumed) >= RESUMED_MILLIS ? "recording stopped" : null;
    }
    return now.since(lastActivity()) >= idleMillis ? "timeout" : null;
  }
}
