package com.morvin.dom.telephony.sniffer.sample.signalling;

import java.nio.charset.StandardCharsets;
import java.util.Comparator;
import java.util.List;

/**
 * The part of the calls that one of several recorders records. All of them receive all signalling and follow all calls.
 * Each decides without the others which calls are its own.
 *
 * <p>The Call-ID or call identifier of the oldest leg assigns a call to a share. Recorders do not see exactly the same
 * times and the same order of the signalling. So among legs that begin at nearly the same time the lowest identifier
 * decides. Where the times leave a doubt, a share takes the call: two recordings are better than none.
 *
 * @param number from 1 to {@code count}; 0 takes no calls
 * @param count the number of shares
 */
public record Share(int number, int count) {
  /** All calls. */
  public static final Share ALL = new Share(1, 1);

  /** Legs that begin within this time count as simultaneous. */
  private static final long SIMULTANEOUS_MILLIS = 2000;
  /** By how much the distance of two legs can differ between recorders. */
  public static final long DOUBT_MILLIS = 1000;

  private static final long HASH_BASIS = 0xcbf29ce484222325L;
  private static final long HASH_PRIME = 0x100000001b3L;
  private static final long MIX_1 = 0xff51afd7ed558ccdL;
  private static final long MIX_2 = 0xc4ceb9fe1a85ec53L;
  private static final long JUMP_FACTOR = 2862933555777941757L;

  /** Whether other recorders have a share. */
  public boolean isPart() {
    return number != 1 || count != 1;
  }

  /** Whether a new leg with a Call-ID or call identifier is one of this share. */
  boolean has(String id) {
    return !isPart() || of(id, count) == number;
  }

  /** Returns the share, from 1 to {@code count}, that a Call-ID or call identifier belongs to. */
  public static int of(String id, int count) {
    return jump(hash(id), count) + 1;
  }

  /** Returns a hash of 64 bits: FNV-1a, and the finalizer of MurmurHash3, so that similar texts spread. */
  private static long hash(String text) {
    long hash = HASH_BASIS;
    for (byte octet : text.getBytes(StandardCharsets.UTF_8)) {
      hash = (hash ^ octet & 0xff) * HASH_PRIME;
    }
    hash = (hash ^ hash >>> 33) * MIX_1;
    hash = (hash ^ hash >>> 33) * MIX_2;
    return hash ^ hash >>> 33;
  }

  /**
   * Jump consistent hash (Lamping, Veach: "A Fast, Minimal Memory, Consistent Hash Algorithm"): with another bucket,
   * keys move only to the new one.
   */
  private static int jump(long key, int buckets) {
    long state = key;
    long bucket = -1;
    for (long next = 0; next < buckets;) {
      bucket = next;
      state = state * JUMP_FACTOR + 1;
      next = (long) ((bucket + 1) * ((double) (1L << 31) / ((state >>> 33) + 1)));
    }
    return (int) bucket;
  }

  /** Whether a call with these legs belongs to the share whose legs are marked with {@link Leg#isOwn}. */
  static boolean owns(List<? extends Leg> legs) {
    if (legs.stream().allMatch(Leg::isOwn) || legs.stream().noneMatch(Leg::isOwn)) {
      return legs.get(0).isOwn();
    }
    if (legs.stream().anyMatch(leg -> leg.isDoubtful() && leg.isOwn())) {
      return true;
    }
    List<? extends Leg> certain = legs.stream().filter(leg -> !leg.isDoubtful())
        .sorted(Comparator.comparing((Leg leg) -> leg.id())).toList();
    long first = certain.stream().mapToLong(leg -> leg.start().stamp()).min().orElse(0);
    for (Leg leg : certain) {
      long after = leg.start().stamp() - first;
      if (after <= SIMULTANEOUS_MILLIS + DOUBT_MILLIS && leg.isOwn()) {
        return true;
      }
      if (after <= SIMULTANEOUS_MILLIS - DOUBT_MILLIS) {
        return false;  // this leg decides on every recorder
      }
    }
    return false;
  }

  @Override
  public String toString() {
    return "share " + number + " of " + count;
  }
}
