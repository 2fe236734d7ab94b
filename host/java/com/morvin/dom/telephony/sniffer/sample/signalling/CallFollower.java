package com.morvin.dom.telephony.sniffer.sample.signalling;

import com.morvin.dom.telephony.sniffer.sample.memory.HeapShare;
import com.morvin.dom.telephony.sniffer.sample.transport.Command;
import com.morvin.dom.telephony.sniffer.sample.transport.Endpoint;
import com.morvin.dom.telephony.sniffer.sample.transport.Frame;
import com.morvin.dom.telephony.sniffer.sample.transport.FrameCursor;
import java.util.Collection;
import java.util.Collections;
import java.util.LinkedHashSet;
import java.util.List;
import java.util.Map;
import java.util.Set;
import java.util.function.Predicate;
import java.util.stream.Stream;

/**
 * Assigns frames to calls, and keeps the lists of destinations of the sniffers up to date. It records nothing. All
 * methods belong to one thread, which also calls the listener.
 *
 * <p>The commands for the media of a new call are sent first, then the listener is called, then the first frame of the
 * call is returned.
 */
public final class CallFollower {
  /** The end reason of a call without media that was dropped for other calls. */
  public static final String DROPPED = "dropped: too many calls";
  private static final String GAVE_WAY = "ended for other calls: too many calls";

  /** The number of packets from one address before that address is learned as a destination. */
  private static final int STEADY_PACKETS = 10;
  private static final long ONE_SIDED_MILLIS = 400;
  private static final long CHECK_MILLIS = 100;
  private static final int MAX_LEARNED = 4;
  private static final int MAX_REFUSED = 4096;
  /** A frame that was captured this long ago was held up by an outage. */
  private static final long LATE_MILLIS = 1_000;

  /** Receives the events of calls: those of the share, except where noted. */
  public interface Listener {
    /**
     * A call has begun. When a running call has turned out to be one of the share, its messages so far follow by
     * {@link #signalled}, and its media is forwarded from now on.
     */
    void began(Call call, Moment now);

    /**
     * A message of a call was received. The first one follows {@link #began}, the last one comes before {@link #ended}.
     *
     * @param label "INVITE", "180 Ringing", "Setup"
     */
    default void signalled(Call call, Frame frame, String label, Moment now) {}

    /**
     * The media of an ended call has gone on, so its legs are followed as those of a new call. It follows {@link
     * #began}.
     *
     * @param messages those of the ended call that are kept
     */
    default void wentOn(Call call, List<TimedMessage> messages) {}

    /** The signalling has reported pressed keys. */
    default void dialled(Call call, Direction direction, String digits, Moment now) {}

    /**
     * Two calls have turned out to be legs of one. The second call is no longer followed; later events of its legs
     * belong to the first one.
     *
     * @param turned whether the caller of the second call is on the side of the callee of the first one
     */
    default void merged(Call call, Call other, boolean turned) {}

    /**
     * A call has ended. Its media is no longer asked for.
     *
     * @param how the reason: "hung up by caller"
     * @param at the time of the last message or media packet
     */
    void ended(Call call, String how, Moment at);

    /**
     * A running call has turned out to be a leg of a call of another share. Its media is no longer asked for, and no
     * further event of it follows.
     */
    default void gaveUp(Call call, Moment now) {}

    /** A message of a call of another share was received. */
    default void followed(Call call, Frame frame, Moment now) {}

    /** A call of another share has ended, or has become a call of the share or a leg of another call. */
    default void unfollowed(Call call) {}

    /**
     * Whether a call with media can end now. While it cannot, calls that are over go on as running ones without media.
     */
    default boolean canEnd() {
      return true;
    }

    /** Returns the approximate memory that an answered call takes for its media, in bytes. */
    default int usualMediaBytes() {
      return 0;
    }

    /**
     * A limit of calls was reached; new calls are not followed. Called once each time a limit is reached.
     *
     * @param byMemory whether the limit is that of their memory, and not that of their number
     */
    default void full(int calls, boolean byMemory) {}
  }

  /**
   * The limits for calls.
   *
   * @param calls the most calls of a share at a time
   * @param idleMillis a call ends after this time without messages and media
   * @param unansweredMillis the same for an unanswered call without media
   * @param bytes the approximate memory of all calls with their media
   * @param share which calls the listener gets
   */
  public record Limits(int calls, long idleMillis, long unansweredMillis, long bytes, Share share) {
    /** 10,000 calls, an hour of silence, five minutes without an answer (phones give up earlier). */
    public static final Limits DEFAULT = new Limits(10_000, 3_600_000, 300_000, HeapShare.CALLS, Share.ALL);

    /** Returns these limits with another number of calls, and other memory for them in bytes. */
    public Limits withCalls(int number, long memory) {
      return new Limits(number, idleMillis, unansweredMillis, memory, share);
    }

    /** Returns these limits with another idle time. */
    public Limits withIdle(long millis) {
      return new Limits(calls, millis, unansweredMillis, bytes, share);
    }

    /** Returns these limits with another share. */
    public Limits withShare(Share part) {
      return new Limits(calls, idleMillis, unansweredMillis, bytes, part);
    }
  }

  private final Listener listener;
  private final Limits limits;
  private final Destinations destinations;
  private final SipCalls sipCalls = new SipCalls(this);
  private final H323Calls h323Calls = new H323Calls(this);
  private final Set<Call> calls = new LinkedHashSet<>();
  private final Removable removable = new Removable();
  /** The approximate memory of all calls in bytes. */
  private long memory;
  private int lastNumber;
  private int seen;
  /** Whether legs are those of the share while saved calls are restored; null otherwise. */
  private Boolean restoring;
  private Moment doubtfulUntil;  // null when there was no interruption
  private long malformed;
  private boolean full;
  /** The last identifiers of calls that are not followed: their messages can be repeated. */
  private final Map<String, Boolean> refusedIds = new BoundedMap<>(MAX_REFUSED);
  private long refused;
  private boolean shortOfMemory;
  private long present;
  private boolean delayed;
  /** Until when media may be late, by {@link Moment#steady}. */
  private long lateUntil;

  /**
   * Makes a follower without calls.
   *
   * @param sniffers sends a command to all sniffers that understand it; returns whether there is any
   */
  public CallFollower(Listener listener, Limits limits, Predicate<Command> sniffers) {
    this.listener = listener;
    this.limits = limits;
    destinations = new Destinations(sniffers, this::forgetSize);
  }

  /** Handles a signalling frame. Returns its call, which the frame may have ended, or null. */
  public Call signalling(Frame frame, Moment now) {
    return frame.protocol() == Frame.SIP ? sipCalls.accept(frame, now) : h323Calls.accept(frame, now);
  }

  /**
   * Handles a media frame. Returns its call and direction. Returns null when no call of the share uses the destination,
   * and then asks the sniffers to stop forwarding it.
   */
  public Call.Use media(FrameCursor frame, Moment now) {
    Call.Use use = destinations.find(frame, now);
    if (use == null && goOn(frame, now)) {
      use = destinations.find(frame, now);
    }
    if (use == null) {
      destinations.unwanted(frame.destinationEndpoint(), now);
      return null;
    }
    use.count(frame.source(), now);
    if (use.stream().hasNewSource(STEADY_PACKETS)) {
      learnFrom(use, frame, now);
    }
    return use.call().isOwned() ? use : null;
  }

  /**
   * Begins the call that goes on with the legs of an ended one when a frame shows that its media goes on: the end was
   * forged. Returns whether the call has begun.
   */
  private boolean goOn(FrameCursor frame, Moment now) {
    Call before = destinations.endedCallOf(frame, now);
    Call call = before == null || !makeRoom(before.id(), now) ? null : before.goOn(now);
    if (call == null) {
      return false;
    }
    call.setOwned(true);
    destinations.goOn(before, call, now);
    calls.add(call);
    removable.update(call, now);
    begin(call, now);
    listener.wentOn(call, messages(call));
    return true;
  }

  /**
   * Returns what {@link #media} will return in the usual case, or else null. Changes nothing.
   *
   * @param destination see {@link Endpoint#key}
   */
  public Call.Use peek(long destination) {
    return destinations.peek(destination);
  }

  /**
   * Learns a destination. A party that is subject to address translation receives media at the address that it sends
   * from (symmetric RTP), not at the signalled one. So when only one direction is received, its source becomes a
   * destination of the other direction.
   */
  private void learnFrom(Call.Use use, FrameCursor frame, Moment now) {
    Call call = use.call();
    if (call.flow().oneSidedMillis(use.direction(), now) < ONE_SIDED_MILLIS) {
      use.stream().checkAgain(CHECK_MILLIS);
      return;
    }
    use.stream().knowSource();
    Endpoint source = frame.sourceEndpoint();
    Direction other = use.direction().opposite();
    Map<Endpoint, Call.Use> known = call.destinations();
    if (source.acceptsMedia() && !known.containsKey(source) && hasRoomToLearn(call)) {
      Sdp.Media media = known.values().stream().filter(of -> of.direction() == other).map(Call.Use::media).findFirst()
          .orElse(use.media());
      call.learn(source, new Call.Use(call, use.leg(), other, media));
      destinations.update(call, call.destinations(), now);
    }
  }

  /** Whether a call can learn another destination. One without media makes room: its source may be forged. */
  private boolean hasRoomToLearn(Call call) {
    if (call.learned() == MAX_LEARNED) {
      call.unlearn(endpoint -> destinations.hasMedia(endpoint, call));
    }
    return call.learned() < MAX_LEARNED;
  }

  /**
   * Ends the calls that are over by the time limits. To be called a few times a second.
   *
   * @param commandsGetLost whether commands for destinations without media are repeated
   */
  public void tick(Moment now, boolean commandsGetLost) {
    if (commandsGetLost) {
      destinations.repeat(now);
    }
    destinations.tick(now);
    List.copyOf(calls).forEach(call -> {
      for (Leg leg : call.legs()) {
        if (leg.isOverruled()) {
          call.note("media went on after the end of the signalling: " + leg.how());
        }
      }
      if (call.legs().size() > 1 && call.retireLegs(now, limits)) {
        update(call, now);
      }
      memory += call.measure(listener.usualMediaBytes());
      endIfOver(call, now);
    });
    removable.update(calls, now);
    saveMemory(now);
  }

  /** Ends a call that is over by now. */
  void endIfOver(Call call, Moment now) {
    Call.End end = call.endBy(now, limits);
    if (end != null && calls.contains(call) && (!call.flow().exists() || listener.canEnd())) {
      end(call, end.how(), end.at(), call.isOwned(), now);
    }
  }

  /**
   * Asks a sniffer with an empty list for all destinations.
   *
   * @param sniffer sends a command to the sniffer; returns false when it does not understand the command
   */
  public void resend(Predicate<Command> sniffer) {
    destinations.resend(sniffer);
  }

  /** Returns the running calls of all shares, oldest first: a view that changes with them. */
  public Collection<Call> calls() {
    return Collections.unmodifiableSet(calls);
  }

  /** Returns the number of calls of the share so far. */
  public int seen() {
    return seen;
  }

  /** Returns the messages of a running call that are kept. */
  public List<TimedMessage> messages(Call call) {
    return call.signalling().messages().stream()
        .map(kept -> new TimedMessage(kept.frame(), kept.label(), kept.time())).toList();
  }

  /**
   * A message and its time.
   *
   * @param label see {@link Listener#signalled}
   */
  public record TimedMessage(Frame frame, String label, Moment time) {}

  /** Returns the destinations that have received media of a running call, to be saved with it. */
  public List<MediaUse> media(Call call, Moment now) {
    return destinations.media(call, now);
  }

  /**
   * Takes what {@link #media} has returned before a restart. Called before the messages of the saved calls are handled:
   * media overrules them as it did before the restart.
   */
  public void restoreMedia(List<MediaUse> uses) {
    destinations.restore(uses);
  }

  /** Ends the restoring of a call after its messages were handled. */
  public void finishRestoring(Call call, Moment now) {
    destinations.finishRestoring(call, now);
  }

  /**
   * Begins or ends the restoring of saved calls. They keep their share, whatever the present one is.
   *
   * @param own whether the following messages are those of calls of the share; null ends the restoring
   */
  public void restore(Boolean own) {
    restoring = own;
  }

  /**
   * Records that a call ended before a restart. Its messages may be delivered again, and do not begin it again.
   *
   * @param id the Call-ID or the H.323 call identifier
   * @param end the stamp of the end
   */
  public void endedBefore(String id, long end, Moment now) {
    sipCalls.endedBefore(id, new Moment(now.steady(), end));
    h323Calls.endedBefore(id, now);
  }

  /**
   * Sets by how much the next frames may be newer than their stamps say, because the clock of their sniffer may be
   * slow.
   */
  public void setClockError(long millis) {
    destinations.setClockError(millis);
  }

  /** States whether the sniffer has said that the next message is delayed. */
  public void setDelayed(boolean isDelayed) {
    delayed = isDelayed;
  }

  /** Whether the sniffer has said that the message is delayed. */
  boolean isDelayed() {
    return delayed;
  }

  /** Sets the present time by the clock of the stamps of the next messages. */
  public void setPresent(long stamp) {
    present = stamp;
  }

  /**
   * Records that media may be received later than signalling that was captured after it: there was an outage.
   *
   * @param until by {@link Moment#steady}
   */
  public void expectLateMedia(long until) {
    lateUntil = until;
  }

  /** Whether media that was captured before a message can follow it. */
  boolean isLate(Moment message) {
    return present - message.stamp() >= LATE_MILLIS || message.steady() < lateUntil;
  }

  /**
   * Marks the legs that begin until a time as doubtful: this process was interrupted, so the time of their frames is
   * not known well.
   */
  public void doubt(Moment until) {
    doubtfulUntil = until.latest(doubtfulUntil);
  }

  /** Returns the number of calls of the share that were not followed, because a limit was reached. */
  public long refused() {
    return refused;
  }

  /** Whether the limit that was reached last is that of memory. */
  public boolean isShortOfMemory() {
    return shortOfMemory;
  }

  /** Returns the number of malformed signalling frames. */
  public long malformed() {
    return malformed;
  }

  /**
   * Ends a call in any state of its signalling.
   *
   * @param at the time of the end for the report
   */
  public void end(Call call, String how, Moment at, Moment now) {
    end(call, how, at, false, now);
  }

  /** Ends a call. With {@code mayGoOn} its media may go on, because only messages have shown the end. */
  private void end(Call call, String how, Moment at, boolean mayGoOn, Moment now) {
    if (calls.remove(call)) {
      removable.remove(call);
      call.ended(now);
      if (mayGoOn) {
        destinations.end(call, now);
        memory += call.measure(0);  // its media is recorded
      } else {
        destinations.remove(call, now);
        forgetSize(call);
      }
      if (call.isOwned()) {
        listener.ended(call, how, at);
      } else {
        listener.unfollowed(call);
      }
    }
  }

  // The methods below are for SipCalls and H323Calls.

  int nextNumber() {
    return ++lastNumber;
  }

  void countMalformed() {
    malformed++;
  }

  /** Assigns a new leg to a share. */
  void assign(Leg leg, Moment now) {
    leg.setOwn(restoring != null ? restoring : limits.share.has(leg.id()));
    if (doubtfulUntil != null && now.steady() < doubtfulUntil.steady()) {
      leg.doubt();
    }
  }

  /**
   * Makes space for another leg. Returns whether there is space. At the limits, drops calls without steady and recent
   * media.
   */
  boolean makeRoom(String id, Moment now) {
    if (calls.size() >= mostCalls()) {
      shortOfMemory = false;
      drop(removable.next(now), now);
    }
    saveMemory(now);
    boolean room = calls.size() < mostCalls() && memory < limits.bytes;
    if (!room && !full) {
      listener.full(calls.size(), shortOfMemory);
    }
    if (!room && refusedIds.put(id, true) == null && limits.share.has(id)) {
      refused++;
    }
    full = !room;
    return room;
  }

  private int mostCalls() {
    return (int) Math.min((long) limits.calls * limits.share.count(), Integer.MAX_VALUE);
  }

  /** Dismisses the destinations of ended calls. To be called before other sniffers, with empty lists, are followed. */
  public void forgetEnded(Moment now) {
    while (destinations.forgetEnded(now)) {
      // The next one.
    }
  }

  /** Drops calls while all together take too much memory. */
  private void saveMemory(Moment now) {
    while (memory >= limits.bytes) {
      if (destinations.forgetEnded(now)) {
        continue;
      }
      shortOfMemory = true;
      Call next = removable.next(now);
      if (next == null) {
        return;
      }
      drop(next, now);
    }
  }

  private void drop(Call call, Moment now) {
    if (call != null) {
      end(call, call.flow().exists() ? GAVE_WAY : DROPPED, now, now);
    }
  }

  /** Updates the destinations of a call, and reports a new call to the listener afterwards. */
  void update(Call call, Moment now) {
    call.flow().forgetSources();
    boolean owns = Share.owns(call.legs());
    boolean isNew = !calls.contains(call);
    if (isNew) {
      call.setOwned(owns);
    }
    destinations.update(call, call.destinations(), now);
    if (isNew) {
      calls.add(call);
      removable.update(call, now);
    }
    if (isNew && owns) {
      begin(call, now);
    } else if (owns && !call.isOwned()) {
      take(call, now);
    } else if (!owns && call.isOwned()) {
      giveUp(call, now);
    }
  }

  private void begin(Call call, Moment now) {
    seen++;
    listener.began(call, now);
  }

  /** Makes a call of another share one of the share. */
  private void take(Call call, Moment now) {
    call.setOwned(true);
    destinations.changeOwner(call, now);
    listener.unfollowed(call);
    begin(call, now);
    report(call, call.signalling(), false);
  }

  /** Reports messages that were kept. */
  private void report(Call call, SharedSignalling kept, boolean turned) {
    for (SharedSignalling.Message message : List.copyOf(kept.messages())) {
      listener.signalled(call, message.frame(), message.label(), message.time());
      if (message.direction() != null) {
        listener.dialled(call, message.direction().turned(turned), message.digits(), message.time());
      }
    }
  }

  private void giveUp(Call call, Moment now) {
    call.setOwned(false);
    destinations.changeOwner(call, now);
    seen--;
    listener.gaveUp(call, now);
    call.signalling().messages().forEach(kept -> listener.followed(call, kept.frame(), kept.time()));
  }

  /** Returns the uses of a destination by all calls. */
  List<Call.Use> uses(Endpoint destination) {
    return destinations.uses(destination);
  }

  /** Follows the legs of a second call as those of the first one. */
  void merge(Call call, Call other, boolean turned, Moment now) {
    boolean owns = Share.owns(Stream.concat(call.legs().stream(), other.legs().stream()).toList());
    if (owns && !call.isOwned()) {
      take(call, now);
    }
    for (Call either : List.of(call, other)) {
      if (!owns && either.isOwned()) {
        giveUp(either, now);
      }
    }
    call.add(other, turned);
    call.flow().forgetSources();
    destinations.update(call, call.destinations(), now);
    destinations.remove(other, now);
    removable.remove(other);
    forgetSize(other);
    if (calls.remove(other)) {
      reportMerger(call, other, turned);
    }
    call.signalling().add(other.signalling(), turned);
  }

  private void reportMerger(Call call, Call other, boolean turned) {
    if (other.isOwned()) {
      seen--;
      listener.merged(call, other, turned);
      return;
    }
    listener.unfollowed(other);
    if (call.isOwned()) {
      report(call, other.signalling(), turned);
    } else {
      other.signalling().messages().forEach(kept -> listener.followed(call, kept.frame(), kept.time()));
    }
  }

  void signalled(Call call, Frame frame, String label, Moment now) {
    call.grow(frame.payload().length);
    memory += call.measure(listener.usualMediaBytes());
    call.signalling().add(frame, label, now);
    if (call.isOwned()) {
      listener.signalled(call, frame, label, now);
    } else {
      listener.followed(call, frame, now);
    }
  }

  void dialled(Call call, Direction direction, String digits, Moment now) {
    call.signalling().dialled(direction, digits);
    if (call.isOwned()) {
      listener.dialled(call, direction, digits, now);
    }
  }

  private void forgetSize(Call call) {
    memory -= call.forgetBytes();
  }
}
