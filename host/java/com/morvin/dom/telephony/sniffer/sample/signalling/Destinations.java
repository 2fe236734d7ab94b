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
    private long lastOfStream = NEVER;
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

    /** Records a frame. A stream from a source that fits worse does not replace one that flows. */
    void heard(FrameCursor frame, int fit, int trust, Moment now) {
      use.setTrust(trust);
      last = now.steady();
      if (fit >= this.fit || !isRecent(lastOfStream, now)) {
        source = frame.source();
        ssrc = ssrc(frame);
        lastOfStream = last;
        this.fit = fit;
        this.trust = trust;
        nextCheck = last + CHECK_MILLIS;
      }
    }

    /** Records a frame of the stream that was received last. Returns false when {@link #heard} is needed. */
    boolean heardAgain(FrameCursor frame, Moment now) {
      if (now.steady() >= nextCheck || !isStream(frame)) {
        return false;
      }
      last = now.steady();
      lastOfStream = last;
      use.setTrust(trust);
      return true;
    }

    /** Whether a frame continues the stream that was received last. That may have paused while the call goes on. */
    boolean isContinuedBy(FrameCursor frame, Moment now) {
      return isStream(frame)
          && now.steady() - lastOfStream < (isUsed() ? PAUSE_MILLIS : Leg.SILENCE_MILLIS);
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

    boolean isFlowing(Moment now) {
      return isRecent(last, now);
    }

    /** Whether media may go on after the signalling has withdrawn the destination. */
    boolean mayGoOn(Moment now) {
      return now.steady() - last < (use.leg().isRetired() ? Leg.SILENCE_MILLIS : PAUSE_MILLIS);
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
      return claims.keySet().stream().anyMatch(Call::isOwned);
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

    /** Returns the claim of a frame. */
    Claim choose(ToIntFunction<Claim> fit, FrameCursor frame, Moment now) {
      Moment answer = claims.values().stream().filter(claim -> claim.end(now) == null)
          .map(claim -> claim.call.lifetime().answer()).filter(Objects::nonNull)
          .reduce((a, b) -> a.latest(b)).orElse(null);
      return Collections.max(claims.values(), Comparator.comparingInt(fit)
          .thenComparing(claim -> claim.isContinuedBy(frame, now) && !isSuperseded(claim, answer, now))
          .thenComparing(claim -> claim.isEstablished(now))
          .thenComparingInt(claim -> claim.call.number()));
    }

    /** Whether a call has been answered after the signalling ended the use. */
    private static boolean isSuperseded(Claim claim, Moment answer, Moment now) {
      Moment end = claim.end(now);
      return end != null && answer != null && answer.since(end) > 0;
    }
  }

  /** The destinations of a call. */
  private static final class OfCall {
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
  private final BoundedMap<Endpoint, Moment> dismissed = new BoundedMap<>(MAX_DISMISSED);
  private final Predicate<Command> sniffers;

  Destinations(Predicate<Command> sniffers) {
    this.sniffers = sniffers;
  }

  /**
   * Replaces the destinations of a call. New ones are requested before old ones are dismissed. Media overrules the
   * signalling: an old one that has received media is dismissed by {@link #tick} after that media has stopped.
   */
  void update(Call call, Map<Endpoint, Call.Use> wanted, Moment now) {
    OfCall own = ofCalls.computeIfAbsent(call, any -> new OfCall());
    Map<Endpoint, Call.Use> before = own.uses;
    if (wanted == before && own.refused.isEmpty()) {
      return;
    }
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
      if (entry.claims().isEmpty()) {
        entries.remove(endpoint);
        byKey.remove(endpoint.key());
      }
      withdrawRequest(entry, endpoint, now);
    }
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
   * the same ports again.
   */
  Call.Use find(FrameCursor frame, Moment now) {
    Entry entry = byKey.get(frame.destination());
    if (entry == null || !entry.requested) {
      return null;
    }
    Claim only = entry.only;
    return only != null && only.heardAgain(frame, now) ? only.use : find(entry, frame, now);
  }

  private Call.Use find(Entry entry, FrameCursor frame, Moment now) {
    entry.heard = true;
    Endpoint source = frame.sourceEndpoint();
    ToIntFunction<Claim> fit = claim -> ofCalls.get(claim.call).fit(claim.use.direction(), source);
    Claim best = entry.only != null ? entry.only : entry.choose(fit, frame, now);
    int trust = ofCalls.get(best.call).trust(best.use.direction(), source);
    best.heard(frame, fit.applyAsInt(best), trust, now);
    return best.use;
  }

  /** Whether a destination has received media of a call. */
  boolean hasMedia(Endpoint endpoint, Call call) {
    Entry entry = entries.get(endpoint);
    Claim claim = entry == null ? null : entry.claim(call);
    return claim != null && claim.last != Claim.NEVER;
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
    Moment last = dismissed.get(endpoint);
    if (last == null || now.since(last) >= REPEAT_MILLIS) {
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
