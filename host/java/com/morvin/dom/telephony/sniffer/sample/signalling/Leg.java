package com.morvin.dom.telephony.sniffer.sample.signalling;

/**
 * A part of a call with its own signalling. A call that passes a call manager or is transferred has several legs.
 * Belongs to the thread of the {@link CallFollower}, except the methods that return values given to the constructor.
 */
public class Leg {
  private static final int LEG_BYTES = 16_000;
  /** The time without packets after which media has stopped. */
  static final long SILENCE_MILLIS = 1_000;
  /** Media that is received this long after the end of the signalling shows that the leg continues. */
  static final long OVERRULED_MILLIS = 2_000;
  /** Media can be captured this long before a message that was sent before it, on another device. */
  private static final long EARLIEST_MILLIS = 1_000;
  private static final long NO_MEDIA = Long.MIN_VALUE;
  /** The time without media after which a continued leg is over. */
  private static final long PATIENCE_MILLIS = 32_000;

  /**
   * The end of a leg by its signalling.
   *
   * @param how the reason: "hung up by caller"
   * @param at the time of the message
   * @param due the steady time when the end takes effect
   */
  record Ending(String how, Moment at, long due) {}

  private final String id;
  private final String caller;
  private final String callee;
  private Moment start;
  private Ending ending;
  /** How a dialog of the leg has or may have ended while the leg goes on; null when none has. */
  private String endingOfPart;
  /** The steady time of the last packet. */
  private long media = NO_MEDIA;
  private boolean turned;
  private boolean retired;
  private boolean own = true;
  /** Whether the first message of the signalling was seen: the leg did not begin before {@link #start}. */
  private boolean seenFromStart;
  private boolean doubtful;

  Leg(String id, String caller, String callee, Moment start) {
    this.id = id;
    this.caller = caller;
    this.callee = callee;
    this.start = start;
  }

  /** Returns the Call-ID or the H.323 call identifier. */
  public final String id() {
    return id;
  }

  /** Returns the complete name of the caller of this leg. */
  public final String caller() {
    return caller;
  }

  /** Returns the complete name of the callee of this leg. */
  public final String callee() {
    return callee;
  }

  /** Returns the time of the first message, or the time when the leg has gone on after its end. */
  public final Moment start() {
    return start;
  }

  /** Whether the caller of the leg is on the side of the callee of the call. */
  final boolean isTurned() {
    return turned;
  }

  /** Records that the message at {@link #start} was the first one of the signalling. */
  final void markSeenFromStart() {
    seenFromStart = true;
  }

  /** Whether media with a stamp was captured so long before the first message of the leg that it is not of the leg. */
  final boolean isAfter(long media) {
    return seenFromStart && media < start.stamp() - EARLIEST_MILLIS;
  }

  /** Exchanges the sides of the leg in its call. */
  void turn() {
    turned = !turned;
  }

  /** Whether its identifier is one of the share. */
  final boolean isOwn() {
    return own;
  }

  /** Records whether its identifier is one of the share. */
  final void setOwn(boolean isOwn) {
    own = isOwn;
  }

  /** Whether other recorders may see another start of the leg, or may not see that it belongs to other legs. */
  final boolean isDoubtful() {
    return doubtful;
  }

  /** Marks a doubtful leg. */
  final void doubt() {
    doubtful = true;
  }

  /** Marks an ended leg. Its media is no longer needed. */
  final void retire() {
    retired = true;
  }

  /** Takes {@link #retire} back: the end was not that of the parties. */
  final void revive() {
    retired = false;
  }

  /** Whether the leg has ended while others of its call continue. */
  final boolean isRetired() {
    return retired;
  }

  /** Returns the reason of the end; an empty text when none is known. */
  public final String how() {
    return ending == null ? "" : ending.how;
  }

  /** Schedules the end of the leg after a delay in milliseconds, unless {@link #cancelEnd} is called before. */
  final void end(String how, Moment now, long delay) {
    ending = new Ending(how, now, now.steady() + delay);
  }

  /** Schedules the end of the leg again. The time of the end stays that of the message that scheduled it first. */
  final void confirmEnd(String how, Moment now, long delay) {
    ending = new Ending(how, ending == null ? now : ending.at, now.steady() + delay);
  }

  /** Cancels {@link #end}. */
  final void cancelEnd() {
    ending = null;
  }

  /** Records that a dialog of the leg has ended while others go on, or that it may have ended. */
  final void endInPart(String how) {
    cancelEnd();
    endingOfPart = how;
  }

  /** Takes the end back, because media has gone on after it: the leg begins again. */
  final void goOn(Moment now) {
    start = now;
    seenFromStart = false;
    retired = false;
    keepOn();
  }

  /** Takes a scheduled end back when media that a restart knows of has gone on after it. */
  final void keepOnIfOverruled() {
    if (ending != null && hasMedia() && media >= ending.at.steady() + OVERRULED_MILLIS) {
      keepOn();
    }
  }

  private void keepOn() {
    if (ending != null) {
      endInPart(ending.how);
    }
  }

  /** Returns how the leg or a part of it has ended; null when none has. */
  final String endSoFar(Moment now) {
    return isHungUp(now) ? ending.how : endingOfPart;
  }

  /** Returns the scheduled end; null when none is scheduled. */
  final Ending ending() {
    return ending;
  }

  /** Returns the approximate memory of the leg in bytes. */
  int size() {
    return LEG_BYTES;
  }

  /** Whether media of the leg was received. */
  final boolean hasMedia() {
    return media != NO_MEDIA;
  }

  final long touch() {
    return media;
  }

  /** Records that media of the leg was received. */
  final void media(Moment now) {
    media = now.steady();
  }

  /** Records that media of the leg was received before a restart. */
  final void mediaBefore(long steady) {
    media = Math.max(media, steady);
  }

  /** Whether media continues although the signalling has ended the leg. */
  final boolean isOverruled() {
    return ending != null && hasMedia() && media >= ending.due + OVERRULED_MILLIS;
  }

  /**
   * Whether the leg has ended. Media overrules the signalling, because anyone can forge a message: the leg ends when
   * its media has stopped.
   */
  final boolean isOver(Moment now) {
    return isHungUp(now)
        && (!hasMedia() || now.steady() - media >= (isOverruled() ? PATIENCE_MILLIS : SILENCE_MILLIS));
  }

  /** Whether the signalling has ended the leg. */
  final boolean isHungUp(Moment now) {
    return ending != null && now.steady() >= ending.due;
  }
}
