package com.morvin.dom.telephony.sniffer.sample.signalling;

import com.morvin.dom.telephony.sniffer.sample.transport.Address;
import com.morvin.dom.telephony.sniffer.sample.transport.Command;
import com.morvin.dom.telephony.sniffer.sample.transport.Endpoint;
import com.morvin.dom.telephony.sniffer.sample.transport.FrameCursor;
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
  private static final int MAX_WITHDRAWN = 8;
  /** The most destinations that a call learns before its answer: of RTP and RTCP. */
  private static final int MAX_EARLY = 2;
  private static final int MAX_REPEATS = 3;
  /** The most ended calls whose media may go on. */
  private static final int MAX_ENDED = 4096;
  private static final long REPEAT_MILLIS = 1000;

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
  private long clockError;
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
    Stream.concat(wanted.keySet().stream(), own.withdrawn.keySet().stream()).map(entries::get)
        .filter(Objects::nonNull).map(entry -> entry.claim(call)).filter(Objects::nonNull).forEach(Claim::described);
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
      Claim oldest = Collections.min(own.withdrawn.values(), Comparator.comparingLong(Claim::last));
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
    while (!ended.isEmpty() && now.since(ended.values().iterator().next().at) >= Claim.PAUSE_MILLIS) {
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
    if (entry.isResumedBy(frame, now)) {
      return null;
    }
    if (entry.isLeftBefore(frame)) {
      learnBeforeAnswer(entry, frame, now);
    }
    return entry.claims().isEmpty() ? null : find(entry, frame, now);
  }

  /**
   * Gives a destination that an ended call has left to a call that calls again from the source of a frame, and whose
   * other party has not described its media yet: its first media can come before the answer.
   */
  private void learnBeforeAnswer(Entry entry, FrameCursor frame, Moment now) {
    Entry source = byKey.get(frame.source());
    Claim next = source == null ? null : source.claimAfter(entry);
    if (next == null || next.call.learned() >= MAX_EARLY) {
      return;
    }
    Direction direction = next.use.direction().opposite();
    boolean isDescribed = next.call.destinations().entrySet().stream().anyMatch(known ->
        known.getValue().direction() == direction && !next.call.hasLearned(known.getKey(), known.getValue()));
    if (!isDescribed) {
      next.call.learn(frame.destinationEndpoint(), new Call.Use(next.call, next.use.leg(), direction,
          next.use.media()));
      update(next.call, next.call.destinations(), now);
    }
  }

  /** Sets by how much the next frames may be newer than their stamps say; see {@link CallFollower#setClockError}. */
  void setClockError(long millis) {
    clockError = millis;
  }

  private Call.Use find(Entry entry, FrameCursor frame, Moment now) {
    entry.heard = true;
    Endpoint source = frame.sourceEndpoint();
    ToIntFunction<Claim> fit = claim -> ofCalls.get(claim.call).fit(claim.use.direction(), source);
    Claim best = entry.choose(fit, frame, now.stamp() + clockError, now);
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
