package com.morvin.dom.telephony.sniffer.sample.signalling;

import com.morvin.dom.telephony.sniffer.sample.transport.Address;
import com.morvin.dom.telephony.sniffer.sample.transport.Endpoint;
import com.morvin.dom.telephony.sniffer.sample.transport.FrameCursor;
import java.util.Collection;
import java.util.Comparator;
import java.util.LinkedHashMap;
import java.util.Map;
import java.util.function.ToIntFunction;
import java.util.stream.Collectors;

/**
 * A destination: the claims of the calls that use it, and what the sniffers were asked. It is on the list of the
 * sniffers when it is {@link #requested}. An entry lives as long as a call uses the destination, and for a while longer
 * when the last call has received media there, because the end of that call may be forged.
 */
final class Entry implements EndpointMap.Keyed {
  /** The most calls that share a destination. Real calls share one between two or three. */
  private static final int MAX_CLAIMS = 64;

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

  /**
   * Returns the claim of a frame; null when the frame was captured before all calls.
   *
   * @param captured the latest stamp that the frame can have
   */
  Claim choose(ToIntFunction<Claim> fit, FrameCursor frame, long captured, Moment now) {
    if (only != null) {
      return only.isAfter(frame, captured) ? null : only;
    }
    Comparator<Claim> order = Comparator.comparing((Claim claim) -> !yields(claim, frame, now))
        .thenComparingInt(fit)
        .thenComparing(claim -> claim.isContinuedBy(frame, now)
            && claims.values().stream().noneMatch(other -> claim.isSupersededBy(other, frame, now)))
        .thenComparing(claim -> claim.isEstablished(now))
        .thenComparingInt(claim -> claim.call.number());
    return claims.values().stream().filter(claim -> !claim.isAfter(frame, captured)).max(order).orElse(null);
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

  /** Whether the calls that use or used the destination have hung up, and a frame is not of their streams. */
  boolean isLeftBefore(FrameCursor frame) {
    return (ended != null || !claims.isEmpty()) && (ended == null || ended.isOtherStream(frame))
        && claims.values().stream().allMatch(claim -> claim.hungUpAt() != null && claim.isOtherStream(frame));
  }

  /** Returns the newest claim of a call that began after all calls of another destination had hung up, or null. */
  Claim claimAfter(Entry other) {
    return claims.values().stream()
        .filter(claim -> claim.hungUpAt() == null && (other.ended == null || claim.isOfCallAfter(other.ended))
            && other.claims.values().stream().allMatch(claim::isOfCallAfter))
        .max(Comparator.comparingInt(claim -> claim.call.number())).orElse(null);
  }

  /** Whether a frame resumes the stream of the ended call, and no later call claims the destination. */
  boolean isResumedBy(FrameCursor frame, Moment now) {
    return ended != null && ended.isResumedBy(frame, now) && !hasRival(ended, now);
  }
}
