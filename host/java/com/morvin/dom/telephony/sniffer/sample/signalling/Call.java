package com.morvin.dom.telephony.sniffer.sample.signalling;

import com.morvin.dom.telephony.sniffer.sample.transport.Endpoint;
import java.util.Collections;
import java.util.EnumMap;
import java.util.LinkedHashMap;
import java.util.Map;
import java.util.Set;
import java.util.TreeSet;

/**
 * A call that is followed: its parties, its times and the destinations of its media. A subclass for each signalling
 * protocol adds what that protocol needs. Belongs to the thread of the {@link CallFollower}, except the methods that
 * return values given to the constructor. Times are milliseconds since 1970.
 */
public abstract class Call {
  private static final int MAX_NOTES = 16;
  private static final long RESUMED_MILLIS = 60_000;

  /** The media received in one direction and its source. */
  private static final class Flow {
    private long first = -1;
    private long last;
    private Endpoint source;
    private int fromSource;
  }

  private final int number;
  private final String protocol;
  private final String id;
  private final String caller;
  private final String callee;
  private final String fileNames;
  private final long start;
  private final int origin;

  private final Map<Direction, Flow> flows = new EnumMap<>(Direction.class);
  private final Map<Endpoint, Use> learned = new LinkedHashMap<>();
  private final Set<String> notes = new TreeSet<>();
  private long answered = -1;
  private long lastActivity;
  private long resumed = -1;
  private long deadline = Long.MAX_VALUE;
  private String deadlineReason;

  /**
   * Makes a call that begins now.
   *
   * @param caller the complete name of the caller
   * @param callee the complete name of the callee
   * @param fileNames both names, short and safe for a file name
   * @param origin the IPv4 address that the first message came from
   */
  Call(int number, String protocol, String id, String caller, String callee, String fileNames, int origin, long now) {
    this.number = number;
    this.protocol = protocol;
    this.id = id;
    this.caller = caller;
    this.callee = callee;
    this.fileNames = fileNames;
    this.origin = origin;
    start = now;
    lastActivity = now;
    for (Direction direction : Direction.values()) {
      flows.put(direction, new Flow());
    }
  }

  /**
   * A destination is used by a call.
   *
   * @param direction the direction of the media sent to the destination
   * @param media its description in the signalling
   */
  public record Use(Call call, Direction direction, Sdp.Media media) {}

  /** Returns the destinations of the media, as described by the signalling, in a new map. */
  abstract Map<Endpoint, Use> signalledDestinations();

  /** Removes the call from the maps of its protocol. */
  abstract void ended(long now);

  /** Returns all known destinations of the media: the signalled and the learned ones. */
  final Map<Endpoint, Use> destinations() {
    Map<Endpoint, Use> all = signalledDestinations();
    learned.forEach(all::putIfAbsent);
    return all;
  }

  /** Records that media of a direction was received from a source. */
  void countMedia(Direction direction, Endpoint source, long now) {
    Flow media = flows.get(direction);
    if (media.first < 0) {
      media.first = now;
    }
    media.last = now;
    media.fromSource = source.equals(media.source) ? media.fromSource + 1 : 1;
    media.source = source;
    lastActivity = now;
    resumed = -1;
  }

  /**
   * Returns the source of the last packets of a direction; null when fewer than the given number came from it in a row.
   */
  Endpoint steadySource(Direction direction, int packets) {
    Flow media = flows.get(direction);
    return media.fromSource >= packets ? media.source : null;
  }

  /** Returns how long media of one direction has come without media of the other, in milliseconds. */
  long oneSidedMillis(Direction direction, Direction other, long now) {
    return now - Math.max(flows.get(direction).first, flows.get(other).last);
  }

  /** Adds a destination that the signalling did not describe. */
  void learn(Endpoint destination, Use use) {
    learned.put(destination, use);
  }

  /** Returns the number of learned destinations. */
  int learned() {
    return learned.size();
  }

  /** Returns the number of the call, counted from 1 in each run. */
  public int number() {
    return number;
  }

  /** Returns "SIP" or "H.323". */
  public String protocol() {
    return protocol;
  }

  /** Returns the Call-ID or the H.323 call identifier, which is the same on every machine that sees the call. */
  public String id() {
    return id;
  }

  /** Returns the complete name of the caller. */
  public String caller() {
    return caller;
  }

  /** Returns the complete name of the callee. */
  public String callee() {
    return callee;
  }

  /** Returns the names of both parties, safe for a file name. */
  public String fileNames() {
    return fileNames;
  }

  /** Returns the time of the first message. */
  public long start() {
    return start;
  }

  /** Returns the IPv4 address that the first message came from. */
  int origin() {
    return origin;
  }

  /** Whether media of either direction was received. */
  public boolean hasMedia() {
    return flows.values().stream().anyMatch(media -> media.first >= 0);
  }

  /** Records that a message was received. */
  void active(long now) {
    lastActivity = now;
    resumed = -1;
  }

  /** Returns the time of the last message or media packet. */
  public long lastActivity() {
    return lastActivity;
  }

  /** Marks the call as restored after a restart. It ends soon unless a message or media follows. */
  public void resume(long now) {
    lastActivity = now;
    resumed = now;
  }

  /** Whether nothing was received for the call since the restart. */
  public boolean isOnlyResumed() {
    return resumed >= 0;
  }

  /** Records the time of the first answer. */
  void answered(long now) {
    if (answered < 0) {
      answered = now;
    }
  }

  boolean isAnswered() {
    return answered >= 0;
  }

  long answeredAt() {
    return answered;
  }

  /** Adds a remark for the report. */
  void note(String text) {
    if (notes.size() < MAX_NOTES) {
      notes.add(text);
    }
  }

  /** Returns the remarks for the report. */
  public Set<String> notes() {
    return Collections.unmodifiableSet(notes);
  }

  /** Schedules the end of the call, unless {@link #cancelEnd} is called before. */
  void endAt(long time, String reason) {
    deadline = time;
    deadlineReason = reason;
  }

  /** Cancels {@link #endAt}. */
  void cancelEnd() {
    deadline = Long.MAX_VALUE;
    deadlineReason = null;
  }

  /** Returns the reason of the scheduled end; null when none is scheduled. */
  public String deadlineReason() {
    return deadlineReason;
  }

  /** Returns the reason when the call is over by now; null while it is not. */
  String expiryReason(long now, long idleMillis, long unansweredMillis) {
    if (now >= deadline) {
      return deadlineReason;
    }
    if (resumed >= 0 && now - resumed >= RESUMED_MILLIS) {
      return "recording stopped";
    }
    long patience = isAnswered() || hasMedia() ? idleMillis : Math.min(idleMillis, unansweredMillis);
    return now - lastActivity >= patience ? "timeout" : null;
  }

  @Override
  public String toString() {
    return "call " + number;
  }
}
