package com.morvin.dom.telephony.sniffer.sample.signalling;

import com.morvin.dom.telephony.sniffer.sample.transport.Address;
import com.morvin.dom.telephony.sniffer.sample.transport.Endpoint;
import java.util.ArrayList;
import java.util.Collections;
import java.util.Comparator;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;
import java.util.Objects;
import java.util.Set;
import java.util.TreeSet;
import java.util.function.Predicate;

/**
 * A call that is followed: its parties, its legs and the destinations of its media. A subclass for each signalling
 * protocol adds what that protocol needs. Belongs to the thread of the {@link CallFollower}, except the methods that
 * return values given to the constructor.
 */
public abstract class Call {
  private static final int MAX_NOTES = 16;
  private static final long LATE_MEDIA_MILLIS = 5_000;
  /** After an outage the media of all calls comes at once, and each program on its way has to catch up. */
  private static final long MISSED_MEDIA_MILLIS = 15_000;
  /** Media is hardly missing when the last packet was captured this long before the end. */
  private static final long GAP_MILLIS = 60;
  private static final long SOON_MILLIS = 10_000;
  /** The priority of a call that was answered just now. */
  static final int ANSWERED_NOW = 2;
  /** The delay of the end of a call of another share: about as long as media goes on there. */
  private static final long UNHEARD_MILLIS = 1_000;
  /** The idle time of an answered call of another share is longer, because its media is not received. */
  private static final int UNHEARD_FACTOR = 8;
  private static final int MESSAGE_BYTES = 300;
  /** A recording keeps a part of the messages. */
  private static final int MAX_MESSAGES = 96 << 10;

  private final int number;
  private final String protocol;
  private final Leg first;
  private final String fileNames;
  private final Address origin;
  private final List<Leg> legs = new ArrayList<>();
  private final MediaFlow flow = new MediaFlow();
  private final Lifetime lifetime;
  private final Map<Endpoint, Use> learned = new LinkedHashMap<>();
  private final SharedSignalling signalling = new SharedSignalling();
  /** Whether the listener knows the call: it belongs to the share. */
  private boolean owned;
  /** Whether the media before a restart is not known. */
  private boolean restored;
  /** The length of the messages with their overhead, in bytes. */
  private int messages;
  /** What all of the call takes, in bytes. */
  private int bytes;
  /** The known destinations; null when they have to be found again. */
  private Map<Endpoint, Use> destinations;
  private final Set<String> notes = new TreeSet<>();

  /**
   * Makes a call.
   *
   * @param first the leg that the call begins with; it names the call
   * @param fileNames the names of both parties, short and safe for a file name
   * @param origin the address that the first message came from
   */
  Call(int number, String protocol, Leg first, String fileNames, Address origin) {
    this.number = number;
    this.protocol = protocol;
    this.first = first;
    this.fileNames = fileNames;
    this.origin = origin.network();
    legs.add(first);
    lifetime = new Lifetime(first.start(), flow);
  }

  /** Makes the call that goes on with the legs of an ended one, whose media has gone on after its end. */
  Call(int number, Call before, Moment now) {
    this(number, before.protocol, before.first, before.fileNames, before.origin);
    legs.clear();
    legs.addAll(before.legs);
    signalling.add(before.signalling, false);
    before.legs.stream().filter(leg -> leg.ending() != null)
        .forEach(leg -> note("media went on after the end of the signalling: " + leg.how()));
    legs.forEach(leg -> leg.goOn(now));
    lifetime.active(now);
    if (before.lifetime.answer() != null) {
      lifetime.answered(now);
    }
  }

  /**
   * A destination is used by a leg of a call. Two uses are equal when they have the same values. Each packet goes
   * through such an object, which therefore holds what is needed then.
   */
  public static final class Use {
    private final Call call;
    private final Leg leg;
    private final Direction direction;
    private final Sdp.Media media;
    private final MediaFlow.Stream stream;
    private int trust;
    private Object attachment;

    /**
     * Makes a use.
     *
     * @param direction the direction of the media sent to the destination
     * @param media its description in the signalling
     */
    Use(Call call, Leg leg, Direction direction, Sdp.Media media) {
      this.call = call;
      this.leg = leg;
      this.direction = direction;
      this.media = media;
      stream = call.flow.of(direction);
    }

    /** Returns this use with a direction. */
    Use to(Direction other) {
      return direction == other ? this : new Use(call, leg, other, media);
    }

    /** Returns this use by another call with the same legs. */
    Use by(Call other) {
      return new Use(other, leg, direction, media);
    }

    /** Returns the call. */
    public Call call() {
      return call;
    }

    /** Returns the leg. */
    public Leg leg() {
      return leg;
    }

    /** Returns the direction of the media sent to the destination. */
    public Direction direction() {
      return direction;
    }

    /** Returns the description of the media in the signalling. */
    public Sdp.Media media() {
      return media;
    }

    /** Returns the received media of this direction. */
    MediaFlow.Stream stream() {
      return stream;
    }

    /**
     * Returns how well the signalling knows the source of the last frame: 2 when the other party has named its address
     * and port, 1 when it has named its host, or else 0.
     */
    public int trust() {
      return trust;
    }

    void setTrust(int value) {
      if (trust != value) {
        trust = value;
      }
    }

    /** Records that media was received from a source; see {@link Endpoint#key}. */
    void count(long source, Moment now) {
      stream.count(source, now);
      leg.media(now);
    }

    /** Reads the values that {@link #count} needs. Returns any value. */
    public long touch() {
      return stream.touch() + leg.touch();
    }

    /** Attaches an object of the listener. */
    public void attach(Object object) {
      attachment = object;
    }

    /** Returns the attached object; null when there is none. */
    public Object attachment() {
      return attachment;
    }

    @Override
    public boolean equals(Object other) {
      return other instanceof Use use && call == use.call && leg == use.leg && direction == use.direction
          && media.equals(use.media);
    }

    @Override
    public int hashCode() {
      return Objects.hash(call, leg, direction, media);
    }
  }

  /** Returns the destinations of the media, as described by the signalling, in a new map. */
  abstract Map<Endpoint, Use> signalledDestinations();

  /** Removes the call from the maps of its protocol. */
  abstract void ended(Moment now);

  /** Makes the call that goes on with the legs of this ended one. Returns null when another call has its identifier. */
  abstract Call goOn(Moment now);

  /** Returns all known destinations of the media, the signalled and the learned ones: a view until one changes. */
  final Map<Endpoint, Use> destinations() {
    if (destinations == null) {
      destinations = signalledDestinations();
      learned.forEach(destinations::putIfAbsent);
    }
    return destinations;
  }

  /** Makes the next {@link #destinations} find the destinations again. */
  final void changed() {
    destinations = null;
  }

  /** Adds a leg. */
  final void add(Leg leg) {
    changed();
    legs.add(leg);
  }

  /** Adds everything of another call, whose sides may be exchanged. */
  final void add(Call other, boolean turned) {
    changed();
    for (Leg leg : other.legs) {
      if (turned) {
        leg.turn();
      }
      legs.add(leg);
    }
    legs.sort(Comparator.comparingLong(leg -> leg.start().steady()));
    flow.add(other.flow, turned);
    lifetime.add(other.lifetime);
    restored |= other.restored;
    other.notes.forEach(this::note);
    other.learned.forEach((endpoint, use) ->
        learned.putIfAbsent(endpoint, new Use(this, use.leg, use.direction.turned(turned), use.media)));
  }

  /** Retires the legs that have ended by now. Returns whether there are any. */
  boolean retireLegs(Moment now, CallFollower.Limits limits) {
    boolean any = false;
    for (Leg leg : legs) {
      if (!leg.isRetired() && leg.isOver(now)) {
        leg.retire();
        changed();
        any = true;
      }
    }
    return any;
  }

  /** Forgets the oldest learned destination without media. */
  void unlearn(Predicate<Endpoint> hasMedia) {
    learned.keySet().stream().filter(hasMedia.negate()).findFirst().ifPresent(endpoint -> {
      changed();
      learned.remove(endpoint);
    });
  }

  /** Adds a destination that the signalling did not describe. */
  void learn(Endpoint destination, Use use) {
    changed();
    learned.put(destination, use);
  }

  /** Whether a destination was learned from its media, and not signalled. */
  boolean hasLearned(Endpoint destination, Use use) {
    return learned.get(destination) == use;
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
    return first.id();
  }

  /** Returns the complete name of the caller. */
  public String caller() {
    return first.caller();
  }

  /** Returns the complete name of the callee. */
  public String callee() {
    return first.callee();
  }

  /** Returns the names of both parties, safe for a file name. */
  public String fileNames() {
    return fileNames;
  }

  /** Returns the time of the first message. */
  public Moment start() {
    return first.start();
  }

  /** Whether media with a stamp was captured before the call: it is of an earlier call with the same addresses. */
  boolean isAfter(long media) {
    for (Leg leg : legs) {
      if (!leg.isAfter(media)) {
        return false;
      }
    }
    return true;
  }

  /** Returns the network that the first message came from; see {@link Address#network}. */
  Address origin() {
    return origin;
  }

  /** Returns the legs in the order of their start: a view. */
  public List<Leg> legs() {
    return Collections.unmodifiableList(legs);
  }

  /** Whether the call belongs to the share. Its media is requested, and the listener knows it. */
  public boolean isOwned() {
    return owned;
  }

  void setOwned(boolean isOwned) {
    owned = isOwned;
  }

  /** Returns the messages that are kept. */
  SharedSignalling signalling() {
    return signalling;
  }

  /** Whether the signalling ends the call soon, so that other recorders may have ended it already. */
  boolean isEnding(Moment now) {
    return legs.stream().allMatch(leg -> leg.ending() != null
        && leg.ending().due() - now.steady() <= UNHEARD_MILLIS + Share.DOUBT_MILLIS);
  }

  /** Returns the received media. */
  MediaFlow flow() {
    return flow;
  }

  /** Returns the signs of life. */
  public Lifetime lifetime() {
    return lifetime;
  }

  /**
   * Returns the priority of a call without steady media. Media begins soon after the answer or never, so a call that
   * was answered long ago has the lowest priority.
   */
  int priority(Moment now) {
    Moment answer = lifetime.answer();
    return answer == null ? 1 : now.since(answer) < SOON_MILLIS ? ANSWERED_NOW : 0;
  }

  /** Counts a message with a length in bytes. */
  void grow(int messageBytes) {
    messages = Math.min(messages + messageBytes + MESSAGE_BYTES, MAX_MESSAGES);
  }

  /**
   * Measures the approximate memory of the call with its messages and its media. Returns by how many bytes it has
   * grown.
   *
   * @param usualMedia what an answered call will take for its media
   */
  int measure(int usualMedia) {
    int before = bytes;
    boolean hasMedia = owned && (lifetime.answer() != null || flow.exists());
    bytes = messages + (hasMedia ? usualMedia : 0);
    for (Leg leg : legs) {
      bytes += leg.size();
    }
    return bytes - before;
  }

  /** Forgets what was measured, and returns it in bytes. */
  int forgetBytes() {
    int before = bytes;
    bytes = 0;
    return before;
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

  /**
   * The end of a call.
   *
   * @param how the reason: "hung up by caller"
   * @param at the time of the last message or media packet
   */
  public record End(String how, Moment at) {}

  /** Returns the end by the signalling, which is that of the leg that ends last; null while a leg has no end. */
  public End signalledEnd() {
    Leg.Ending last = null;
    for (Leg leg : legs) {
      if (leg.ending() == null) {
        return null;
      }
      last = last == null || leg.ending().at().since(last.at()) > 0 ? leg.ending() : last;
    }
    Moment media = flow.last();
    boolean wentOn = media != null && media.since(last.at()) > Leg.OVERRULED_MILLIS
        && media.stamp() > last.at().stamp();
    return new End(last.how(), wentOn ? media : last.at());
  }

  /**
   * Returns the delay of the end in milliseconds. The signalling of a short call can arrive before its media, when the
   * sniffer has kept the media or one of the programs was stopped.
   *
   * @param end the time of the message that ends the call
   * @param late whether it was captured long ago, or there was an outage: media from before it can follow
   */
  final long delayOfEnd(Moment end, boolean late) {
    if (lifetime.answer() == null || flow.exists() && !late) {
      return 0;
    }
    boolean complete = flow.isLaterThan(end.stamp() - GAP_MILLIS, restored);
    return complete ? Leg.SILENCE_MILLIS : !owned ? UNHEARD_MILLIS : late ? MISSED_MEDIA_MILLIS : LATE_MEDIA_MILLIS;
  }

  /** States that the call was restored. Delays its end when that was signalled before: its media can be sent again. */
  public void awaitLateMedia(Moment now) {
    restored = true;
    legs.forEach(Leg::keepOnIfOverruled);
    legs.stream().filter(leg -> leg.ending() != null)
        .forEach(leg -> leg.confirmEnd(leg.how(), now, delayOfEnd(leg.ending().at(), true)));
  }

  /** Whether the signalling has ended the call. The call continues while its media does. */
  public boolean isHungUp(Moment now) {
    return legs.stream().allMatch(leg -> leg.isHungUp(now));
  }

  /** Returns the end when the call is over by now; null before that. */
  End endBy(Moment now, CallFollower.Limits limits) {
    if (isOver(now)) {
      return signalledEnd();
    }
    End partly = endOfPart(now, limits);
    if (partly != null) {
      return partly;
    }
    boolean patient = lifetime.answer() != null || flow.exists();
    long idle = !patient ? Math.min(limits.idleMillis(), limits.unansweredMillis())
        : owned ? limits.idleMillis() : limits.idleMillis() * UNHEARD_FACTOR;
    String reason = lifetime.expiryReason(now, idle);
    return reason == null ? null : new End(reason, lifetime.lastActivity());
  }

  /**
   * Returns the end of a silent call that has been hung up in part; null when it is none. The other parts may be
   * forged, or their ends were not seen.
   */
  private End endOfPart(Moment now, CallFollower.Limits limits) {
    if (now.since(lifetime.lastActivity()) < limits.unansweredMillis() * (owned ? 1 : UNHEARD_FACTOR)) {
      return null;
    }
    for (Leg leg : legs) {
      if (leg.endSoFar(now) != null) {
        return new End(leg.endSoFar(now), lifetime.lastActivity());
      }
    }
    return null;
  }

  private boolean isOver(Moment now) {
    for (Leg leg : legs) {
      if (!leg.isOver(now)) {
        return false;
      }
    }
    return true;
  }

  @Override
  public String toString() {
    return "call " + number;
  }
}
