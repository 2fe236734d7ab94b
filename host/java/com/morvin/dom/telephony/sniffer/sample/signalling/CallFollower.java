package com.morvin.dom.telephony.sniffer.sample.signalling;

import com.morvin.dom.telephony.sniffer.sample.transport.Command;
import com.morvin.dom.telephony.sniffer.sample.transport.Endpoint;
import com.morvin.dom.telephony.sniffer.sample.transport.Frame;
import java.util.ArrayList;
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
 * Tells which call a frame belongs to, and keeps the sniffers' lists of destinations in step with the calls. It records
 * nothing. All of it happens on one thread.
 *
 * <p>A call is announced to the listener before its first frame is returned, and the commands that ask for its media are
 * on their way before the listener hears of it.
 */
public final class CallFollower {
  /** How a call ended that made way for others. */
  public static final String DROPPED = "dropped: too many calls";

  /** How many packets must come from one address before media is believed to be sent there as well. */
  private static final int STEADY_PACKETS = 10;
  private static final long ONE_SIDED_MILLIS = 400;
  private static final int MAX_LEARNED = 4;
  private static final long SOON_MILLIS = 10_000;

  /** What becomes of calls. */
  public interface Listener {
    void began(Call call, long now);

    /** One of its messages has come, the first behind {@link #began}, the last before {@link #ended}. */
    default void signalled(Call call, Frame frame, String label, long now) {}

    /** Keys were pressed, as the signalling tells. */
    default void dialled(Call call, Direction direction, String digits, long now) {}

    /** Its media is no longer asked for. */
    void ended(Call call, String how, long now);

    /** More calls than can be followed: new ones are not, from now on. Told once for each time. */
    default void full(int calls) {}
  }

  /** Bounds: calls at a time, how long a call may be silent, how long it may stay unanswered. */
  public record Limits(int calls, long idleMillis, long unansweredMillis) {
    /** A call that nobody answers is given up after five minutes; phones do so earlier. */
    public static final Limits DEFAULT = new Limits(4000, 3_600_000, 300_000);

    public Limits withCalls(int number) {
      return new Limits(number, idleMillis, unansweredMillis);
    }

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
  /** Those of them that no media has come of, by the address that their signalling came from, oldest first. */
  private final Map<Integer, Set<Call>> silent = new HashMap<>();
  private int lastNumber;
  private long malformed;
  private boolean full;

  /**
   * Asks for media by the given way to all sniffers.
   *
   * @param sniffers carries out commands at once
   */
  public CallFollower(Listener listener, Limits limits, Consumer<Command> sniffers) {
    this.listener = listener;
    this.limits = limits;
    destinations = new Destinations(sniffers);
  }

  /** Follows a frame of signalling; the call that it belongs to, which it may have ended, or null. */
  public Call signalling(Frame frame, long now) {
    return frame.protocol() == Frame.SIP ? sipCalls.accept(frame, now) : h323Calls.accept(frame, now);
  }

  /** Whose media a frame is; null when nobody's, and then it is asked for no longer. */
  public Call.Use media(Frame frame, long now) {
    Call.Use use = destinations.find(frame.destination(), frame.source());
    if (use == null) {
      destinations.unwanted(frame.destination(), now);
      return null;
    }
    Call call = use.call();
    if (!call.hasMedia()) {
      unsilence(call);
    }
    call.hear(use.direction(), frame.source(), now);
    learnFrom(use, now);
    return use;
  }

  /**
   * Behind address translation a party receives where it sends from (symmetric RTP), and not where its signalling says.
   * So when one direction is heard and the other is not, the source of the one is taken for the destination of the
   * other.
   */
  private void learnFrom(Call.Use use, long now) {
    Call call = use.call();
    Endpoint source = call.steadySource(use.direction(), STEADY_PACKETS);
    Direction other = use.direction().opposite();
    if (source == null || call.learned() == MAX_LEARNED || call.alone(use.direction(), other, now) < ONE_SIDED_MILLIS) {
      return;
    }
    Map<Endpoint, Call.Use> known = call.destinations();
    if (source.isMedia() && !known.containsKey(source)) {
      Sdp.Media media = known.values().stream().filter(of -> of.direction() == other).map(Call.Use::media).findFirst()
          .orElse(use.media());
      call.learn(source, new Call.Use(call, other, media));
      destinations.update(call, call.destinations(), now);
    }
  }

  /** Ends calls whose time has come; to be called a few times a second. */
  public void tick(long now, boolean commandsGetLost) {
    if (commandsGetLost) {
      destinations.repeat(now);
    }
    List<Call> overdue = new ArrayList<>();
    calls.forEach(call -> {
      if (call.overdue(now, limits.idleMillis, limits.unansweredMillis) != null) {
        overdue.add(call);
      }
    });
    overdue.forEach(call -> end(call, call.overdue(now, limits.idleMillis, limits.unansweredMillis), now));
  }

  /** Asks a sniffer whose list is empty for everything. */
  public void resend(Consumer<Command> sniffer) {
    destinations.resend(sniffer);
  }

  public Collection<Call> calls() {
    return Collections.unmodifiableSet(calls);
  }

  /** Calls that have begun so far. */
  public int seen() {
    return lastNumber;
  }

  /** Frames of signalling that made no sense. */
  public long malformed() {
    return malformed;
  }

  /** Ends a call whatever its signalling says. */
  public void end(Call call, String how, long now) {
    if (calls.remove(call)) {
      unsilence(call);
      call.ended(now);
      destinations.update(call, Map.of(), now);
      listener.ended(call, how, now);
    }
  }

  // What the followers of one kind of signalling ask for.

  int nextNumber() {
    return ++lastNumber;
  }

  void countMalformed() {
    malformed++;
  }

  /**
   * Whether another call can be followed. A flood of calls that carry no media makes way: first those of the address
   * that most of them came from.
   */
  boolean hasRoom(long now) {
    if (calls.size() >= limits.calls && !silent.isEmpty()) {
      Set<Call> most = Collections.max(silent.values(), Comparator.comparingInt(Set::size));
      end(Collections.min(most, Comparator.comparingInt(call -> worth(call, now))), DROPPED, now);
    }
    boolean room = calls.size() < limits.calls;
    if (!room && !full) {
      listener.full(limits.calls);
    }
    full = !room;
    return room;
  }

  /** Of a call without media: media comes soon after the answer, or it never comes. Of equals the oldest is the least. */
  private static int worth(Call call, long now) {
    return !call.isAnswered() ? 1 : now - call.answeredAt() < SOON_MILLIS ? 2 : 0;
  }

  /** The signalling has told something about the call; of a new one the media is asked for before anything is said. */
  void update(Call call, long now) {
    destinations.update(call, call.destinations(), now);
    if (calls.add(call)) {
      silent.computeIfAbsent(call.origin(), origin -> new LinkedHashSet<>()).add(call);
      listener.began(call, now);
    }
  }

  void signalled(Call call, Frame frame, String label, long now) {
    listener.signalled(call, frame, label, now);
  }

  void dialled(Call call, Direction direction, String digits, long now) {
    listener.dialled(call, direction, digits, now);
  }

  private void unsilence(Call call) {
    Set<Call> ofOrigin = silent.get(call.origin());
    if (ofOrigin != null && ofOrigin.remove(call) && ofOrigin.isEmpty()) {
      silent.remove(call.origin());
    }
  }
}
