package com.morvin.dom.telephony.sniffer.sample.signalling;

import com.morvin.dom.telephony.sniffer.sample.transport.Command;
import com.morvin.dom.telephony.sniffer.sample.transport.Endpoint;
import com.morvin.dom.telephony.sniffer.sample.transport.Frame;
import java.util.Collection;
import java.util.Collections;
import java.util.Comparator;
import java.util.HashMap;
import java.util.LinkedHashSet;
import java.util.List;
import java.util.Map;
import java.util.Set;
import java.util.function.Consumer;

/**
 * Assigns frames to calls, and keeps the lists of destinations of the sniffers up to date. It records nothing. All
 * methods belong to one thread, which also calls the listener.
 *
 * <p>The commands for the media of a new call are sent first, then the listener is called, then the first frame of the
 * call is returned.
 */
public final class CallFollower {
  /** The end reason of a call that made way for others. */
  public static final String DROPPED = "dropped: too many calls";

  /** The number of packets from one address before that address is learned as a destination. */
  private static final int STEADY_PACKETS = 10;
  private static final long ONE_SIDED_MILLIS = 400;
  private static final long CHECK_MILLIS = 100;
  private static final int MAX_LEARNED = 4;
  private static final long SOON_MILLIS = 10_000;

  /** Is called for the events of calls. */
  public interface Listener {
    /** A call has begun. */
    void began(Call call, Moment now);

    /**
     * A message of a call was received. The first one follows {@link #began}, the last one comes before {@link #ended}.
     *
     * @param label "INVITE", "180 Ringing", "Setup"
     */
    default void signalled(Call call, Frame frame, String label, Moment now) {}

    /** The signalling has reported pressed keys. */
    default void dialled(Call call, Direction direction, String digits, Moment now) {}

    /**
     * Two calls have turned out to be legs of one. The second one is not followed any more; what follows for its legs
     * belongs to the first one.
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

    /** The limit of calls was reached; new calls are not followed. Called once each time the limit is reached. */
    default void full(int calls) {}
  }

  /**
   * The limits for calls.
   *
   * @param calls the most calls at a time
   * @param idleMillis a call ends after this time without messages and media
   * @param unansweredMillis the same for an unanswered call without media
   */
  public record Limits(int calls, long idleMillis, long unansweredMillis) {
    /** 10,000 calls, an hour of silence, five minutes without an answer (phones give up earlier). */
    public static final Limits DEFAULT = new Limits(10_000, 3_600_000, 300_000);

    /** Returns these limits with another number of calls. */
    public Limits withCalls(int number) {
      return new Limits(number, idleMillis, unansweredMillis);
    }

    /** Returns these limits with another idle time. */
    public Limits withIdle(long millis) {
      return new Limits(calls, millis, unansweredMillis);
    }
  }

  private final Listener listener;
  private final Limits limits;
  private final Destinations destinations;
  private final SipCalls sipCalls = new SipCalls(this);
  private final H323Calls h323Calls = new H323Calls(this);
  private final Set<Call> calls = new LinkedHashSet<>();
  /** The calls without media, by the address that their signalling came from, oldest first. */
  private final Map<Integer, Set<Call>> silent = new HashMap<>();
  private int lastNumber;
  private int mergers;
  private long malformed;
  private boolean full;

  /**
   * Makes a follower without calls.
   *
   * @param sniffers sends a command to all sniffers
   */
  public CallFollower(Listener listener, Limits limits, Consumer<Command> sniffers) {
    this.listener = listener;
    this.limits = limits;
    destinations = new Destinations(sniffers);
  }

  /** Handles a signalling frame. Returns its call, which the frame may have ended, or null. */
  public Call signalling(Frame frame, Moment now) {
    return frame.protocol() == Frame.SIP ? sipCalls.accept(frame, now) : h323Calls.accept(frame, now);
  }

  /**
   * Handles a media frame. Returns its call and direction. Returns null when no call uses the destination, and then
   * asks the sniffers to stop forwarding it.
   *
   * @param destination see {@link Endpoint#key}
   */
  public Call.Use media(long destination, long source, Moment now) {
    Call.Use use = destinations.find(destination, source, now);
    if (use == null) {
      destinations.unwanted(Endpoint.of(destination), now);
      return null;
    }
    if (!use.stream().exists()) {
      removeSilent(use.call());
    }
    use.count(source, now);
    if (use.stream().hasNewSource(STEADY_PACKETS)) {
      learnFrom(use, now);
    }
    return use;
  }

  /** Returns what {@link #media} will return in the usual case, or else null. Changes nothing. */
  public Call.Use peek(long destination) {
    return destinations.peek(destination);
  }

  /**
   * Learns a destination. A party that is subject to address translation receives media at the address that it sends
   * from (symmetric RTP), not at the signalled one. So when only one direction is received, its source becomes a
   * destination of the other direction.
   */
  private void learnFrom(Call.Use use, Moment now) {
    Call call = use.call();
    if (call.learned() == MAX_LEARNED || call.flow().oneSidedMillis(use.direction(), now) < ONE_SIDED_MILLIS) {
      use.stream().checkAgain(CHECK_MILLIS);
      return;
    }
    Endpoint source = use.stream().takeSource();
    Direction other = use.direction().opposite();
    Map<Endpoint, Call.Use> known = call.destinations();
    if (source.acceptsMedia() && !known.containsKey(source)) {
      Sdp.Media media = known.values().stream().filter(of -> of.direction() == other).map(Call.Use::media).findFirst()
          .orElse(use.media());
      call.learn(source, new Call.Use(call, use.leg(), other, media));
      destinations.update(call, call.destinations(), now);
    }
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
    List.copyOf(calls).forEach(call -> {
      for (Leg leg : call.legs()) {
        if (leg.isOverruled()) {
          call.note("media went on after the end of the signalling: " + leg.how());
        }
      }
      if (call.legs().size() > 1 && call.retireLegs(now, limits)) {
        update(call, now);
      }
      endIfOver(call, now);
    });
  }

  /** Ends a call that is over by now. */
  void endIfOver(Call call, Moment now) {
    Call.End end = call.endBy(now, limits);
    if (end != null) {
      end(call, end.how(), end.at(), now);
    }
  }

  /** Asks a sniffer with an empty list for all destinations. */
  public void resend(Consumer<Command> sniffer) {
    destinations.resend(sniffer);
  }

  /** Returns the running calls, oldest first: a view that changes with them. */
  public Collection<Call> calls() {
    return Collections.unmodifiableSet(calls);
  }

  /** Returns the number of calls so far. */
  public int seen() {
    return lastNumber - mergers;
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
    if (calls.remove(call)) {
      removeSilent(call);
      call.ended(now);
      destinations.update(call, Map.of(), now);
      listener.ended(call, how, at);
    }
  }

  // The methods below are for SipCalls and H323Calls.

  int nextNumber() {
    return ++lastNumber;
  }

  void countMalformed() {
    malformed++;
  }

  /**
   * Makes room for another call. Returns whether there is room. At the limit a call without media makes way, one from
   * the address with the most calls without media.
   */
  boolean makeRoom(Moment now) {
    if (calls.size() >= limits.calls && !silent.isEmpty()) {
      Set<Call> most = Collections.max(silent.values(), Comparator.comparingInt(Set::size));
      end(Collections.min(most, Comparator.comparingInt(call -> priority(call, now))), DROPPED, now, now);
    }
    boolean room = calls.size() < limits.calls;
    if (!room && !full) {
      listener.full(limits.calls);
    }
    full = !room;
    return room;
  }

  /**
   * Returns the priority of a call without media. Media comes soon after the answer or never, so a call that was
   * answered long ago has the lowest priority. Among equal calls the oldest one makes way.
   */
  private static int priority(Call call, Moment now) {
    Moment answer = call.lifetime().answer();
    return answer == null ? 1 : now.since(answer) < SOON_MILLIS ? 2 : 0;
  }

  /** Updates the destinations of a call, and reports a new call to the listener afterwards. */
  void update(Call call, Moment now) {
    call.flow().forgetSources();
    destinations.update(call, call.destinations(), now);
    if (calls.add(call)) {
      silent.computeIfAbsent(call.origin(), origin -> new LinkedHashSet<>()).add(call);
      listener.began(call, now);
    }
  }

  /** Returns the uses of a destination by all calls. */
  List<Call.Use> uses(Endpoint destination) {
    return destinations.uses(destination);
  }

  /** Follows the legs of a second call as those of the first one. */
  void merge(Call call, Call other, boolean turned, Moment now) {
    call.add(other, turned);
    call.flow().forgetSources();
    destinations.update(call, call.destinations(), now);
    destinations.update(other, Map.of(), now);
    removeSilent(other);
    if (call.flow().exists()) {
      removeSilent(call);
    }
    if (calls.remove(other)) {
      mergers++;
      listener.merged(call, other, turned);
    }
  }

  void signalled(Call call, Frame frame, String label, Moment now) {
    listener.signalled(call, frame, label, now);
  }

  void dialled(Call call, Direction direction, String digits, Moment now) {
    listener.dialled(call, direction, digits, now);
  }

  private void removeSilent(Call call) {
    Set<Call> ofOrigin = silent.get(call.origin());
    if (ofOrigin != null && ofOrigin.remove(call) && ofOrigin.isEmpty()) {
      silent.remove(call.origin());
    }
  }
}
