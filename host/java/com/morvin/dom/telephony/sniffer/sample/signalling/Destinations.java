package com.morvin.dom.telephony.sniffer.sample.signalling;

import com.morvin.dom.telephony.sniffer.sample.transport.Address;
import com.morvin.dom.telephony.sniffer.sample.transport.Command;
import com.morvin.dom.telephony.sniffer.sample.transport.Endpoint;
import com.morvin.dom.telephony.sniffer.sample.transport.FrameCursor;
import com.morvin.dom.telephony.sniffer.sample.transport.Wire;
import java.util.Collection;
import java.util.Collections;
import java.util.Comparator;
import java.util.EnumMap;
import java.util.HashMap;
import java.util.HashSet;
import java.util.LinkedHashMap;
import java.util.LinkedHashSet;
import java.util.List;
import java.util.Map;
import java.util.Objects;
import java.util.Set;
import java.util.function.Consumer;
import java.util.function.Predicate;
import java.util.function.ToIntFunction;
import java.util.stream.Collectors;
import java.util.stream.Stream;

/**
 * The destinations that the sniffers were asked to forward, and the calls that use them. A destination that several
 * calls use is requested once, and dismissed when the last of the calls has ended. One that only calls of other shares
 * use is not requested.
 */
final class Destinations {
  private static final String UNREQUESTED =
      "media over IPv6 was not recorded: no sniffer was known to have IPv6 enabled";
  private static final String EARLIER_MEDIA = "media from before the call was ignored";
  private static final int MAX_DISMISSED = 4096;
  /** The most calls that share a destination. Real calls share one between two or three. */
  private static final int MAX_CLAIMS = 64;
  private static final int RTP_HEADER = 12;
  private static final int FIRST_RTCP = 192;
  private static final int LAST_RTCP = 223;
  /** While a stream continues at a destination of one call, its fit is computed once in this time. */
  private static final long CHECK_MILLIS = 1000;
  /** The pause after which media may go on, although the signalling has moved it or another call claims it. */
  private static final long PAUSE_MILLIS = 60_000;
  private static final int MAX_WITHDRAWN = 8;
  private static final int MAX_REPEATS = 3;
  /** The packets that show that the media of an ended call goes on. Anyone can forge one. */
  private static final int RESUMING_PACKETS = 5;
  /** The most ended calls whose media may go on. */
  private static final int MAX_ENDED = 4096;
  private static final long REPEAT_MILLIS = 1000;

  /**
   * A call that uses a destination, and the last media that it received there. The values are numbers, because each
   * frame changes them.
   */
  private static final class Claim {
    private static final long NEVER = Long.MIN_VALUE / 2;

    final Call call;
    final Endpoint endpoint;
    Call.Use use;
    /** When the signalling withdrew the destination. */
    Moment withdrawn;
    /** The steady time of the last frame. */
    private long last = NEVER;
    /** The stream that was received last, the steady time of its last frame, and how well its source fits the call. */
    private long source;
    private int ssrc;
    private short sequence;
    private long lastOfStream = NEVER;
    /** The steady time when the stream began; {@link #NEVER} when a restart does not know it. */
    private long began = NEVER;
    /** The packets that have resumed the stream after the end of the call, and the times of their first and last. */
    private int resuming;
    private long resumedAt;
    private long resumedUntil = NEVER;
    private int fit;
    /** See {@link Call.Use#trust}. */
    private int trust;
    /** The steady time after which the fit of the stream is computed again. */
    private long nextCheck = NEVER;

    Claim(Endpoint endpoint, Call.Use use) {
      this.endpoint = endpoint;
      call = use.call();
      this.use = use;
    }

    /** Continues what was saved before a restart. */
    void restore(MediaUse saved, Moment now) {
      last = Math.min(now.at(saved.last()).steady(), now.steady());
      lastOfStream = last;
      source = saved.source();
      ssrc = saved.ssrc();
      use.leg().mediaBefore(last);
    }

    MediaUse saved(Moment now) {
      return new MediaUse(endpoint, use.leg().id(), use.direction().turned(use.leg().isTurned()), source, ssrc,
          now.stamp() - (now.steady() - last));
    }

    /** Records a frame. A stream from a source that fits worse does not replace one that flows. */
    void heard(FrameCursor frame, int fit, int trust, Moment now) {
      use.setTrust(trust);
      if (fit >= this.fit || !isRecent(lastOfStream, now)) {
        began = beginOfStream(frame, now);
        source = frame.source();
        ssrc = ssrc(frame);
        sequence = sequence(frame);
        lastOfStream = now.steady();
        this.fit = fit;
        this.trust = trust;
        nextCheck = lastOfStream + CHECK_MILLIS;
      }
      last = now.steady();
    }

    /** Returns when the stream of a frame began. A pause ends it when the call may have ended before. */
    private long beginOfStream(FrameCursor frame, Moment now) {
      boolean goesOn = isStream(frame)
          && (isRecent(lastOfStream, now) || end(now) == null && use.leg().endSoFar(now) == null);
      return goesOn ? began : now.steady();
    }

    /** Records a frame of the stream that was received last. Returns false when {@link #heard} is needed. */
    boolean heardAgain(FrameCursor frame, Moment now) {
      if (now.steady() >= nextCheck || !isStream(frame)) {
        return false;
      }
      last = now.steady();
      lastOfStream = last;
      sequence = sequence(frame);
      use.setTrust(trust);
      return true;
    }

    /** Whether a frame continues the stream that was received last. That may have paused while the call goes on. */
    boolean isContinuedBy(FrameCursor frame, Moment now) {
      return isStream(frame)
          && now.steady() - lastOfStream < (isUsed() ? PAUSE_MILLIS : Leg.SILENCE_MILLIS);
    }

    /** Counts a frame that resumes the stream. Returns how long it has gone on; -1 while there are few packets. */
    long resume(Moment now) {
      if (!isRecent(resumedUntil, now)) {
        resuming = 0;
        resumedAt = now.steady();
      }
      resumedUntil = now.steady();
      resuming++;
      return resuming < RESUMING_PACKETS ? -1 : resumedUntil - resumedAt;
    }

    /** Whether a call that began or was answered after the end of this use claims its destination. */
    boolean isRivalledBy(Claim other, Moment now) {
      Moment end = end(now);
      Moment answer = other.call.lifetime().answer();
      return other != this && end != null && other.end(now) == null
          && (other.call.start().isAfter(end) || answer != null && answer.isAfter(end));
    }

    /**
     * Whether another call takes the stream of a frame over: it is answered, and this use ended before, or the stream
     * began after the start of the other call. A call that still rang then keeps its stream: the other one may be
     * forged. An end that waits for late media does not wait for the media of the other call.
     */
    boolean isSupersededBy(Claim other, FrameCursor frame, Moment now) {
      Moment answer = other.call.lifetime().answer();
      if (other == this || answer == null || other.end(now) != null) {
        return false;
      }
      Leg.Ending ending = use.leg().ending();
      Moment end = end(now) == null && ending != null && now.stamp() >= answer.stamp() ? ending.at() : end(now);
      Moment own = call.lifetime().answer();
      boolean rang = own != null && own.isAfter(other.call.start()) && use.leg().endSoFar(now) == null;
      return end != null && answer.isAfter(end)
          || !rang && beginOfStream(frame, now) >= other.call.start().steady();
    }

    /**
     * Whether RTP goes on in the stream that was received last, after a pause and after the end of its call. A packet
     * with an earlier number is a late one.
     */
    boolean isResumedBy(FrameCursor frame, Moment now) {
      return isStream(frame) && ssrc != 0 && now.steady() - lastOfStream >= Leg.SILENCE_MILLIS
          && (short) (sequence(frame) - sequence) > 0;
    }

    /** Whether no message has ended or withdrawn the use. */
    private boolean isUsed() {
      return withdrawn == null && use.leg().ending() == null;
    }

    /** Whether the call is answered, and its media flows or is awaited. */
    boolean isEstablished(Moment now) {
      return isUsed() && call.lifetime().answer() != null
          && (call.priority(now) > 0 || now.steady() - last < PAUSE_MILLIS);
    }

    /** Whether a frame was captured before the call, and is not of the stream that the call has received last. */
    boolean isAfter(FrameCursor frame, Moment now) {
      return call.isAfter(now) && !isStream(frame);
    }

    private boolean isStream(FrameCursor frame) {
      return source == frame.source() && ssrc == ssrc(frame);
    }

    /** Returns the time when the signalling ended the use; null while it has not. */
    Moment end(Moment now) {
      return use.leg().isHungUp(now) ? use.leg().ending().at() : withdrawn;
    }

    /** Returns the SSRC of RTP or the sender's SSRC of RTCP; 0 in other media. */
    private static int ssrc(FrameCursor frame) {
      byte[] bytes = frame.bytes();
      int datagram = frame.payload();
      if (frame.end() - datagram < RTP_HEADER || (bytes[datagram] & 0xc0) != 0x80) {
        return 0;
      }
      int type = bytes[datagram + 1] & 0xff;
      return Wire.i32(bytes, datagram + (type >= FIRST_RTCP && type <= LAST_RTCP ? 4 : 8));
    }

    private static short sequence(FrameCursor frame) {
      int at = frame.payload() + 2;
      return at + 2 > frame.end() ? 0 : (short) Wire.u16(frame.bytes(), at);
    }

    boolean hasMedia() {
      return last != NEVER;
    }

    boolean isFlowing(Moment now) {
      return isRecent(last, now);
    }

    /**
     * Whether media may go on after the signalling has withdrawn the destination. Soon after the answer it may begin,
     * when the answer was not the message that has withdrawn it.
     */
    boolean mayGoOn(Moment now) {
      return now.steady() - last < PAUSE_MILLIS || !use.stream().exists() && call.priority(now) == Call.ANSWERED_NOW
          && (withdrawn != null ? withdrawn : now).stamp() > call.lifetime().answer().stamp();
    }

    private static boolean isRecent(long steady, Moment now) {
      return now.steady() - steady < Leg.SILENCE_MILLIS;
    }
  }

  /** A destination; it is on the list of the sniffers when it is {@link #requested}. */
  private static final class Entry implements EndpointMap.Keyed {
    private final long key;
    private final Map<Call, Claim> claims = new LinkedHashMap<>(2);
    /** The only claim, the usual case; null when there are several. */
    Claim only;
    /** The claim of the last call that has ended; null when its media has not gone on for long enough. */
    Claim ended;
    boolean requested;
    /** Whether a sniffer has taken the request. */
    boolean accepted;
    boolean heard;
    int repeats;
    Moment asked;

    Entry(Endpoint endpoint) {
      key = endpoint.key();
    }

    /** Whether a call of the share uses the destination. */
    boolean isWanted() {
      return ended != null || claims.keySet().stream().anyMatch(Call::isOwned);
    }

    @Override
    public long key() {
      return key;
    }

    /** Returns the claim of a call; null when it has none. */
    Claim claim(Call call) {
      return claims.get(call);
    }

    Collection<Claim> claims() {
      return claims.values();
    }

    void add(Claim claim) {
      claims.put(claim.call, claim);
      findOnly();
    }

    /** Returns false when the call has no claim. */
    boolean remove(Call call) {
      boolean removed = claims.remove(call) != null;
      findOnly();
      return removed;
    }

    private void findOnly() {
      only = claims.size() == 1 ? claims.values().iterator().next() : null;
    }

    /**
     * Returns the claim that gives way when there are too many; null when there are not. A claim with flowing media
     * never does. Forged calls can claim any destination, so the newest one goes first, from the address with the most.
     */
    Claim excess(Moment now) {
      if (claims.size() <= MAX_CLAIMS) {
        return null;
      }
      Map<Address, Long> origins =
          claims.keySet().stream().collect(Collectors.groupingBy(Call::origin, Collectors.counting()));
      return claims.values().stream().filter(claim -> !claim.isFlowing(now))
          .max(Comparator.comparingLong((Claim claim) -> origins.get(claim.call.origin()))
              .thenComparingInt(claim -> -claim.call.priority(now)).thenComparingInt(claim -> claim.call.number()))
          .orElseThrow();  // at least the new one
    }

    /** Returns the claim of a frame; null when the frame was captured before all calls. */
    Claim choose(ToIntFunction<Claim> fit, FrameCursor frame, Moment now) {
      Comparator<Claim> order = Comparator.comparing((Claim claim) -> !yields(claim, frame, now))
          .thenComparingInt(fit)
          .thenComparing(claim -> claim.isContinuedBy(frame, now)
              && claims.values().stream().noneMatch(other -> claim.isSupersededBy(other, frame, now)))
          .thenComparing(claim -> claim.isEstablished(now))
          .thenComparingInt(claim -> claim.call.number());
      return claims.values().stream().filter(claim -> !claim.isAfter(frame, now)).max(order).orElse(null);
    }

    /** Whether a call has hung up, a later one claims the destination, and a frame is not of the stream before. */
    private boolean yields(Claim claim, FrameCursor frame, Moment now) {
      return claim.end(now) != null && !claim.use.leg().isOverruled() && !claim.isContinuedBy(frame, now)
          && hasRival(claim, now);
    }

    /** See {@link Claim#isRivalledBy}. */
    boolean hasRival(Claim claim, Moment now) {
      return claims.values().stream().anyMatch(other -> claim.isRivalledBy(other, now));
    }

    /** Whether a frame resumes the stream of the ended call, and no later call claims the destination. */
    boolean isResumedBy(FrameCursor frame, Moment now) {
      return ended != null && ended.isResumedBy(frame, now) && !hasRival(ended, now);
    }
  }

  /** The destinations of an ended call that received media, and the time of its end. */
  private record Ended(Moment at, List<Claim> claims) {}

  /** The destinations of a call. */
  private static final class OfCall {
    /** As described. */
    Map<Endpoint, Call.Use> wanted = Map.of();
    Map<Endpoint, Call.Use> uses = Map.of();
    /** Those that the signalling no longer describes, but whose media continues. */
    final Map<Endpoint, Claim> withdrawn = new LinkedHashMap<>();
    /** Those that other calls have taken. */
    final Set<Endpoint> refused = new HashSet<>();
    private final Map<Direction, Set<Address>> hosts = new EnumMap<>(Direction.class);
    /** Those of {@link #hosts} that the signalling has named. */
    private final Map<Direction, Set<Address>> signalledHosts = new EnumMap<>(Direction.class);

    void findHosts() {
      hosts.clear();
      signalledHosts.clear();
      uses.forEach(this::addHost);
      withdrawn.forEach((endpoint, claim) -> addHost(endpoint, claim.use));
    }

    private void addHost(Endpoint endpoint, Call.Use use) {
      hosts.computeIfAbsent(use.direction(), any -> new HashSet<>()).add(endpoint.address());
      if (!use.call().hasLearned(endpoint, use)) {
        signalledHosts.computeIfAbsent(use.direction(), any -> new HashSet<>()).add(endpoint.address());
      }
    }

    /** Returns how well a source fits a direction: 2 when its other party receives there, 1 when on that host. */
    int fit(Direction direction, Endpoint source) {
      return other(direction, source) != null ? 2
          : hosts.getOrDefault(direction.opposite(), Set.of()).contains(source.address()) ? 1 : 0;
    }

    /** Returns how well the signalling knows a source of a direction; see {@link Call.Use#trust}. */
    int trust(Direction direction, Endpoint source) {
      Call.Use use = other(direction, source);
      return use != null && !use.call().hasLearned(source, use) ? 2
          : signalledHosts.getOrDefault(direction.opposite(), Set.of()).contains(source.address()) ? 1 : 0;
    }

    /** Returns the use of a source by the other party of a direction; null when that does not receive there. */
    private Call.Use other(Direction direction, Endpoint source) {
      Claim old = withdrawn.get(source);
      Call.Use use = old == null ? uses.get(source) : old.use;
      return use != null && use.direction() != direction ? use : null;
    }
  }

  private final Map<Endpoint, Entry> entries = new LinkedHashMap<>();
  private final EndpointMap<Entry> byKey = new EndpointMap<>();
  private final Map<Call, OfCall> ofCalls = new HashMap<>();
  private final Set<Call> withdrawing = new LinkedHashSet<>();
  /** The media of saved calls that are being restored, by leg and destination. */
  private final Map<String, Map<Endpoint, MediaUse>> saved = new HashMap<>();
  /** The ended calls whose media may go on, oldest first. */
  private final Map<Call, Ended> ended = new LinkedHashMap<>();
  private final BoundedMap<Endpoint, Moment> dismissed = new BoundedMap<>(MAX_DISMISSED);
  private final Predicate<Command> sniffers;
  private final Consumer<Call> forgotten;

  /**
   * Makes an empty list.
   *
   * @param sniffers see {@link CallFollower#CallFollower}
   * @param forgotten is called with an ended call when its media can no longer go on
   */
  Destinations(Predicate<Command> sniffers, Consumer<Call> forgotten) {
    this.sniffers = sniffers;
    this.forgotten = forgotten;
  }

  /**
   * Replaces the destinations of a call. New ones are requested before old ones are dismissed. Media overrules the
   * signalling: an old one that has received media is dismissed by {@link #tick} after that media has stopped.
   */
  void update(Call call, Map<Endpoint, Call.Use> described, Moment now) {
    OfCall own = ofCalls.computeIfAbsent(call, any -> new OfCall());
    Map<Endpoint, Call.Use> before = own.uses;
    if (described == own.wanted && own.refused.isEmpty()) {
      return;
    }
    own.wanted = described;
    Map<Endpoint, Call.Use> wanted = new LinkedHashMap<>();
    described.forEach((endpoint, use) -> wanted.put(endpoint, use.to(directionOf(endpoint, use))));
    own.withdrawn.keySet().removeAll(wanted.keySet());
    own.uses = wanted;
    own.refused.retainAll(wanted.keySet());
    wanted.forEach((endpoint, use) -> {
      Call.Use old = before.get(endpoint);
      if (use != old && !use.equals(old) || own.refused.contains(endpoint)) {
        claim(endpoint, use, now);
      }
    });
    before.keySet().stream().filter(endpoint -> !wanted.containsKey(endpoint))
        .forEach(endpoint -> withdraw(own, endpoint, call, now));
    own.findHosts();
  }

  /** Returns the direction of a use. A message does not exchange the parties of a call once their media flows. */
  private Direction directionOf(Endpoint endpoint, Call.Use use) {
    Entry entry = entries.get(endpoint);
    Claim claim = entry == null ? null : entry.claim(use.call());
    if (claim != null && claim.hasMedia()) {
      return claim.use.direction();
    }
    if (entry != null && entry.ended != null && entry.ended.use.leg() == use.leg()) {
      return entry.ended.use.direction();
    }
    MediaUse before = savedUse(endpoint, use);
    return before != null ? before.direction().turned(use.leg().isTurned()) : use.direction();
  }

  /** Returns what was saved of a use; null when nothing was, or when it is restored already. */
  private MediaUse savedUse(Endpoint endpoint, Call.Use use) {
    return saved.isEmpty() ? null : saved.getOrDefault(use.leg().id(), Map.of()).get(endpoint);
  }

  private void withdraw(OfCall own, Endpoint endpoint, Call call, Moment now) {
    Entry entry = entries.get(endpoint);
    Claim claim = entry == null ? null : entry.claim(call);
    if (claim != null && claim.mayGoOn(now)) {
      own.withdrawn.put(endpoint, claim);
      claim.withdrawn = now;
      withdrawing.add(call);
    } else {
      release(endpoint, call, now);
    }
    if (own.withdrawn.size() > MAX_WITHDRAWN) {
      Claim oldest = Collections.min(own.withdrawn.values(), Comparator.comparingLong(old -> old.last));
      own.withdrawn.remove(oldest.endpoint);
      release(oldest.endpoint, call, now);
    }
  }

  /**
   * Keeps the destinations of an ended call that have received media for a while, because the end may be forged, and
   * dismisses the others.
   */
  void end(Call call, Moment now) {
    OfCall own = ofCalls.get(call);
    List<Claim> claims = own == null ? List.of()
        : Stream.concat(own.uses.keySet().stream(), own.withdrawn.keySet().stream()).map(entries::get)
            .filter(Objects::nonNull).map(entry -> entry.claim(call)).filter(Objects::nonNull).filter(Claim::hasMedia)
            .toList();
    if (claims.isEmpty()) {
      remove(call, now);
      forgotten.accept(call);
      return;
    }
    ended.put(call, new Ended(now, claims));
    claims.forEach(claim -> {
      claim.use.attach(null);
      claim.withdrawn = claim.end(now) == null ? now : claim.withdrawn;
      entries.get(claim.endpoint).ended = claim;
    });
    remove(call, now);
    if (ended.size() > MAX_ENDED) {
      forgetEnded(now);
    }
  }

  /** Dismisses the destinations of the call that has ended first. Returns false when there is none. */
  boolean forgetEnded(Moment now) {
    if (ended.isEmpty()) {
      return false;
    }
    forgetEnded(ended.keySet().iterator().next(), now);
    return true;
  }

  private void forgetEnded(Call call, Moment now) {
    ended.remove(call).claims.forEach(claim -> {
      Entry entry = entries.get(claim.endpoint);
      if (entry != null && entry.ended == claim) {
        entry.ended = null;
        releaseUnused(entry, claim.endpoint, now);
      }
    });
    forgotten.accept(call);
  }

  /**
   * Returns the ended call whose media goes on with a frame; null when it is none. Where a later call claims another of
   * its destinations, the media must go on for longer: that of the later call may come before the answer.
   */
  Call endedCallOf(FrameCursor frame, Moment now) {
    Entry entry = byKey.get(frame.destination());
    if (entry == null || !entry.isResumedBy(frame, now)) {
      return null;
    }
    long goesOn = entry.ended.resume(now);
    Call call = entry.ended.call;
    return goesOn >= Leg.OVERRULED_MILLIS || goesOn >= 0 && !hasRival(ended.get(call), now) ? call : null;
  }

  private boolean hasRival(Ended call, Moment now) {
    return call.claims.stream().anyMatch(claim -> {
      Entry entry = entries.get(claim.endpoint);
      return entry != null && entry.hasRival(claim, now);
    });
  }

  /** Hands the destinations of an ended call that have received media over to the call that goes on with its legs. */
  void goOn(Call before, Call next, Moment now) {
    Set<Endpoint> described = next.destinations().keySet();
    ended.get(before).claims.stream().filter(claim -> !described.contains(claim.endpoint))
        .forEach(claim -> next.learn(claim.endpoint, claim.use.by(next)));
    update(next, next.destinations(), now);
    forgetEnded(before, now);
  }

  /** Dismisses the destinations of an ended call. */
  void remove(Call call, Moment now) {
    OfCall own = ofCalls.remove(call);
    if (own != null) {
      withdrawing.remove(call);
      if (own.uses.entrySet().stream().anyMatch(use -> isUnrequested(use.getKey(), use.getValue()))) {
        call.note(UNREQUESTED);
      }
      own.withdrawn.keySet().forEach(endpoint -> release(endpoint, call, now));
      own.uses.keySet().forEach(endpoint -> release(endpoint, call, now));
    }
  }

  /** Whether a direction without media has a destination that no sniffer was asked for. */
  private boolean isUnrequested(Endpoint endpoint, Call.Use use) {
    Entry entry = entries.get(endpoint);
    return entry != null && entry.requested && !entry.accepted && !use.stream().exists();
  }

  /** Dismisses the destinations that the signalling no longer describes and whose media has stopped. */
  void tick(Moment now) {
    while (!ended.isEmpty() && now.since(ended.values().iterator().next().at) >= PAUSE_MILLIS) {
      forgetEnded(now);
    }
    withdrawing.removeIf(call -> {
      Map<Endpoint, Claim> withdrawn = ofCalls.get(call).withdrawn;
      List<Claim> silent = withdrawn.values().stream().filter(claim -> !claim.mayGoOn(now)).toList();
      silent.forEach(claim -> {
        withdrawn.remove(claim.endpoint);
        release(claim.endpoint, call, now);
      });
      return withdrawn.isEmpty();
    });
  }

  private void claim(Endpoint endpoint, Call.Use use, Moment now) {
    Entry entry = entries.get(endpoint);
    if (entry == null) {
      entry = new Entry(endpoint);
      entries.put(endpoint, entry);
      byKey.put(entry);
    }
    if (use.call().isOwned()) {
      request(entry, endpoint, now);
    }
    Claim claim = entry.claim(use.call());
    if (claim == null) {
      claim = new Claim(endpoint, use);
      entry.add(claim);
    }
    claim.use = use;
    claim.withdrawn = null;
    MediaUse before = savedUse(endpoint, use);
    if (before != null) {
      claim.restore(before, now);
      saved.get(use.leg().id()).remove(endpoint);
    }
    ofCalls.get(use.call()).refused.remove(endpoint);
    Claim excess = entry.excess(now);
    if (excess != null) {
      entry.remove(excess.call);
      ofCalls.get(excess.call).refused.add(endpoint);
      withdrawRequest(entry, endpoint, now);
    }
  }

  private void request(Entry entry, Endpoint endpoint, Moment now) {
    if (!entry.requested) {
      entry.requested = true;
      entry.asked = now;
      entry.accepted = sniffers.test(Command.add(endpoint));
    }
  }

  /** Dismisses a destination that no call of the share uses any more. */
  private void withdrawRequest(Entry entry, Endpoint endpoint, Moment now) {
    if (entry.requested && !entry.isWanted()) {
      entry.requested = false;
      dismiss(endpoint, now);
    }
  }

  /** Requests or dismisses the destinations of a call whose share has changed. */
  void changeOwner(Call call, Moment now) {
    OfCall own = ofCalls.get(call);
    Stream.concat(own.uses.keySet().stream(), own.withdrawn.keySet().stream()).forEach(endpoint -> {
      Entry entry = entries.get(endpoint);
      Claim claim = entry == null ? null : entry.claim(call);
      if (claim != null) {
        claim.use.attach(null);
        if (call.isOwned()) {
          request(entry, endpoint, now);
        } else {
          withdrawRequest(entry, endpoint, now);
        }
      }
    });
  }

  private void release(Endpoint endpoint, Call call, Moment now) {
    Entry entry = entries.get(endpoint);
    if (entry != null && entry.remove(call)) {
      releaseUnused(entry, endpoint, now);
    }
  }

  private void releaseUnused(Entry entry, Endpoint endpoint, Moment now) {
    if (entry.claims().isEmpty() && entry.ended == null) {
      entries.remove(endpoint);
      byKey.remove(endpoint.key());
    }
    withdrawRequest(entry, endpoint, now);
  }

  private void dismiss(Endpoint endpoint, Moment now) {
    dismissed.putLast(endpoint, now);
    sniffers.test(Command.remove(endpoint));
  }

  /**
   * Returns the use of a destination by the call of a media frame; null when no call uses it. Source and destination
   * together identify the call, so that both directions of a stream belong to the same one: the other party of the call
   * receives at the source (most telephones send from there), or at least at another port of its address. Among calls
   * that fit equally well, the first choice is the one that has received this stream, then an answered one, then the
   * newest one. A call that has hung up keeps its stream until a later call is answered: the same telephones may use
   * the same ports again. A new call has no media from before its first message: a sniffer may have kept that of the
   * call before.
   */
  Call.Use find(FrameCursor frame, Moment now) {
    Entry entry = byKey.get(frame.destination());
    if (entry == null || !entry.requested) {
      return null;
    }
    Claim only = entry.only;
    if (only != null && only.heardAgain(frame, now)) {
      return only.use;
    }
    return entry.claims().isEmpty() || entry.isResumedBy(frame, now) ? null : find(entry, frame, now);
  }

  private Call.Use find(Entry entry, FrameCursor frame, Moment now) {
    entry.heard = true;
    Endpoint source = frame.sourceEndpoint();
    ToIntFunction<Claim> fit = claim -> ofCalls.get(claim.call).fit(claim.use.direction(), source);
    Claim best = entry.choose(fit, frame, now);
    if (best == null) {
      entry.claims().forEach(claim -> claim.call.note(EARLIER_MEDIA));
      return null;
    }
    int trust = ofCalls.get(best.call).trust(best.use.direction(), source);
    best.heard(frame, fit.applyAsInt(best), trust, now);
    return best.use;
  }

  /** Returns the destinations that have received media of a call. */
  List<MediaUse> media(Call call, Moment now) {
    OfCall own = ofCalls.get(call);
    return own == null ? List.of() : Stream.concat(own.uses.keySet().stream(), own.withdrawn.keySet().stream())
        .map(endpoint -> entries.get(endpoint).claim(call)).filter(claim -> claim != null && claim.hasMedia())
        .map(claim -> claim.saved(now)).toList();
  }

  /** Takes the media of a saved call. Its destinations have it as soon as a message describes them. */
  void restore(List<MediaUse> uses) {
    uses.forEach(use -> saved.computeIfAbsent(use.leg(), any -> new HashMap<>()).put(use.destination(), use));
  }

  /** Claims what a restored call has received at destinations that its messages do not describe any more. */
  void finishRestoring(Call call, Moment now) {
    for (Leg leg : call.legs()) {
      Map<Endpoint, MediaUse> rest = saved.getOrDefault(leg.id(), Map.of());
      rest.forEach((endpoint, use) -> learn(endpoint, call, leg, use.direction().turned(leg.isTurned())));
      update(call, call.destinations(), now);
      saved.remove(leg.id());
    }
  }

  private static void learn(Endpoint endpoint, Call call, Leg leg, Direction direction) {
    Map<Endpoint, Call.Use> known = call.destinations();
    if (!known.containsKey(endpoint)) {
      known.values().stream().filter(use -> use.direction() == direction).map(Call.Use::media).findFirst()
          .ifPresent(media -> call.learn(endpoint, new Call.Use(call, leg, direction, media)));
    }
  }

  /** Whether a destination has received media of a call. */
  boolean hasMedia(Endpoint endpoint, Call call) {
    Entry entry = entries.get(endpoint);
    Claim claim = entry == null ? null : entry.claim(call);
    return claim != null && claim.hasMedia();
  }

  /** Returns the use of a destination that only one call uses, or else null. */
  Call.Use peek(long destination) {
    Entry entry = byKey.get(destination);
    Claim only = entry == null || !entry.requested ? null : entry.only;
    return only == null ? null : only.use;
  }

  /** Returns the uses of a destination by all calls. */
  List<Call.Use> uses(Endpoint destination) {
    Entry entry = entries.get(destination);
    return entry == null ? List.of() : entry.claims().stream().map(claim -> claim.use).toList();
  }

  /**
   * Dismisses a destination that no call uses. A sniffer forwards it because it missed the command, or because the
   * recorder was restarted. The command is not repeated within 1 s, because frames sent before it may still arrive.
   */
  void unwanted(Endpoint endpoint, Moment now) {
    Entry entry = entries.get(endpoint);
    Moment last = dismissed.get(endpoint);
    if ((entry == null || !entry.requested) && (last == null || now.since(last) >= REPEAT_MILLIS)) {
      dismiss(endpoint, now);
    }
  }

  /** Asks a sniffer with an empty list for all destinations. */
  void resend(Predicate<Command> sniffer) {
    entries.forEach((endpoint, entry) -> {
      if (entry.requested) {
        entry.accepted |= sniffer.test(Command.add(endpoint));
      }
    });
  }

  /**
   * Requests destinations without media again, up to three times. For transports that can lose commands. A second entry
   * in the list of the sniffer is harmless: one command removes both.
   */
  void repeat(Moment now) {
    entries.forEach((endpoint, entry) -> {
      if (entry.requested && !entry.heard && entry.repeats < MAX_REPEATS
          && now.since(entry.asked) >= REPEAT_MILLIS << entry.repeats) {
        entry.repeats++;
        entry.asked = now;
        entry.accepted |= sniffers.test(Command.add(endpoint));
      }
    });
  }
}
