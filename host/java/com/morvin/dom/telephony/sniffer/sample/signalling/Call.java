package com.morvin.dom.telephony.sniffer.sample.signalling;

import com.morvin.dom.telephony.sniffer.sample.transport.Endpoint;
import java.util.Collections;
import java.util.EnumMap;
import java.util.LinkedHashMap;
import java.util.Map;
import java.util.Set;
import java.util.TreeSet;

/** A call while it is followed: who, since when, where its media goes. The signalling protocols extend it. */
public abstract class Call {
  private static final int MAX_NOTES = 16;
  private static final long RESUMED_MILLIS = 60_000;

  /** What of it is media in one direction, and where that comes from. */
  private static final class Heard {
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

  private final Map<Direction, Heard> heard = new EnumMap<>(Direction.class);
  private final Map<Endpoint, Use> learned = new LinkedHashMap<>();
  private final Set<String> notes = new TreeSet<>();
  private long answered = -1;
  private long lastActivity;
  private long resumed = -1;
  private long deadline = Long.MAX_VALUE;
  private String deadlineReason;

  /**
   * The names of the parties are kept whole.
   *
   * @param fileNames them, short and fit for a file name
   * @param origin the IPv4 address that the call was signalled from
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
      heard.put(direction, new Heard());
    }
  }

  /** Whether it carries the media of a destination that is used as described. */
  public record Use(Call call, Direction direction, Sdp.Media media) {}

  /** Where media of this call is sent to, as far as its signalling told. */
  abstract Map<Endpoint, Use> signalledDestinations();

  /** The call has ended: its signalling forgets it. */
  abstract void ended(long now);

  /** Where media of this call is sent to, as far as is known. */
  final Map<Endpoint, Use> destinations() {
    Map<Endpoint, Use> all = signalledDestinations();
    learned.forEach(all::putIfAbsent);
    return all;
  }

  /** Media has come: of this direction, from there. */
  void hear(Direction direction, Endpoint source, long now) {
    Heard media = heard.get(direction);
    if (media.first < 0) {
      media.first = now;
    }
    media.last = now;
    media.fromSource = source.equals(media.source) ? media.fromSource + 1 : 1;
    media.source = source;
    lastActivity = now;
    resumed = -1;
  }

  /** Where so many packets of this direction in a row came from; null when they did not. */
  Endpoint steadySource(Direction direction, int packets) {
    Heard media = heard.get(direction);
    return media.fromSource >= packets ? media.source : null;
  }

  /** For how long one direction has been heard while the other was not. */
  long alone(Direction direction, Direction other, long now) {
    return now - Math.max(heard.get(direction).first, heard.get(other).last);
  }

  /** Media is sent there although no signalling said so. */
  void learn(Endpoint destination, Use use) {
    learned.put(destination, use);
  }

  int learned() {
    return learned.size();
  }

  /** Counts the calls of this run. */
  public int number() {
    return number;
  }

  /** "SIP" or "H.323". */
  public String protocol() {
    return protocol;
  }

  /** What the call is known by wherever it is seen: the Call-ID or the H.323 call identifier. */
  public String id() {
    return id;
  }

  public String caller() {
    return caller;
  }

  public String callee() {
    return callee;
  }

  /** The parties, fit for a file name. */
  public String fileNames() {
    return fileNames;
  }

  /** Milliseconds since 1970. */
  public long start() {
    return start;
  }

  int origin() {
    return origin;
  }

  public boolean hasMedia() {
    return heard.values().stream().anyMatch(media -> media.first >= 0);
  }

  void active(long now) {
    lastActivity = now;
    resumed = -1;
  }

  public long lastActivity() {
    return lastActivity;
  }

  /** The recorder was started anew: a call that ended meanwhile shows no more life. */
  public void resume(long now) {
    lastActivity = now;
    resumed = now;
  }

  /** Whether nothing has been seen of it since the recorder was started anew. */
  public boolean isOnlyResumed() {
    return resumed >= 0;
  }

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

  void note(String text) {
    if (notes.size() < MAX_NOTES) {
      notes.add(text);
    }
  }

  public Set<String> notes() {
    return Collections.unmodifiableSet(notes);
  }

  /** The call will end then, unless something speaks against it before. */
  void endAt(long time, String reason) {
    deadline = time;
    deadlineReason = reason;
  }

  void goOn() {
    deadline = Long.MAX_VALUE;
    deadlineReason = null;
  }

  /** Why it is about to end; null when it is not. */
  public String deadlineReason() {
    return deadlineReason;
  }

  /** Why the call is over by now, or null while it is not. */
  String overdue(long now, long idleMillis, long unansweredMillis) {
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
