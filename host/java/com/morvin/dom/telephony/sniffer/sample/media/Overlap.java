package com.morvin.dom.telephony.sniffer.sample.media;

import com.morvin.dom.telephony.sniffer.sample.storage.Encoding;

/**
 * The sound that a file holds beyond the saved state of its voice. After a restart the sniffer sends some of its
 * packets again, which must neither be written twice nor be taken for lost ones. Belongs to the recorder thread.
 *
 * <p>A packet is in the file when its octets are found there: timestamps can stand still during a pause that is in the
 * file. When the content cannot be compared, the timestamps decide. Timestamp units are those of 8 kHz, as the octets
 * of G.711 are.
 */
final class Overlap {
  /** A packet whose number and timestamp are older than the saved state, by no more than this, is in the file: 30 s. */
  private static final int MAX_OLDER = 240_000;
  /** The check ends after this number of packets that are not in the file, whatever their timestamps say. */
  private static final int MAX_NEW = 50;
  /** The end of the file is known to the next millisecond. */
  private static final int ROUNDING = 8;

  private final byte[] octets;
  private final Encoding encoding;
  private final int length;
  /** The sequence number after the saved state. */
  private final int next;
  /** The end of the last packet that is known to be in the file, and the timestamp of its place. */
  private int place;
  private int timestamp;
  private int fresh;

  /**
   * Makes an object for a file.
   *
   * @param octets the sound beyond the saved state; null when it cannot be compared
   * @param encoding of the file
   * @param length of the sound in timestamp units
   * @param next the sequence number after the saved state
   * @param timestamp of the end of the saved state
   */
  Overlap(byte[] octets, Encoding encoding, int length, int next, int timestamp) {
    this.octets = octets;
    this.encoding = encoding;
    this.length = length;
    this.next = next;
    this.timestamp = timestamp;
  }

  /** Returns the length in timestamp units of what is known to be in the file, beyond the saved state. */
  int known() {
    return place;
  }

  /** Returns the timestamp at the end of what is known to be in the file. */
  int knownTimestamp() {
    return timestamp;
  }

  /** Returns the timestamp at the end of the file. */
  int endTimestamp() {
    return timestamp + length - place;
  }

  /** Whether a packet is in the file already. The packets come in order. */
  boolean holds(RtpPacket packet) {
    int ahead = packet.timestamp() - timestamp;
    if (ahead < 0 && ahead >= -MAX_OLDER && (short) (packet.sequence() - next) < 0) {
      return true;
    }
    int expected = ahead < 0 || ahead > length - place ? length : place + ahead;
    if (!isComparable(packet) || isSilent(packet)) {
      return expected < length;
    }
    int found = matches(packet, expected) ? expected : search(packet);
    if (found < 0) {
      return false;
    }
    place = Math.min(length, found + packet.length());
    timestamp = packet.timestamp() + packet.length();
    return true;
  }

  /**
   * Returns the length in timestamp units of the beginning of a packet at the end of the file, which has ended within
   * the packet; 0 when there is none.
   */
  int begun(RtpPacket packet) {
    int part = endTimestamp() - packet.timestamp();
    boolean within = isComparable(packet) && part > 0 && part < packet.length() && part <= length - place;
    for (int i = 0; within && i < part - ROUNDING; i++) {
      within = octets[length - part + i] == packet.bytes()[packet.offset() + i];
    }
    return within ? part : 0;
  }

  /** Whether the check ends with a packet that is not in the file: no later one can be there. */
  boolean endsWith(RtpPacket packet) {
    return ++fresh >= MAX_NEW || packet.timestamp() - endTimestamp() >= 0;
  }

  private boolean isComparable(RtpPacket packet) {
    return octets != null && switch (packet.codec().kind()) {
      case PCMA -> encoding == Encoding.A_LAW;
      case PCMU -> encoding == Encoding.MU_LAW;
      default -> false;
    };
  }

  /** Whether a packet is silent: the octets of silence are found in many places. */
  private boolean isSilent(RtpPacket packet) {
    for (int i = 0; i < packet.length(); i++) {
      if (packet.bytes()[packet.offset() + i] != encoding.silence()) {
        return false;
      }
    }
    return true;
  }

  private int search(RtpPacket packet) {
    for (int at = place; at + packet.length() / 2 < length; at++) {
      if (matches(packet, at)) {
        return at;
      }
    }
    return -1;
  }

  /** Whether the octets are in a place. The silence at the end of the file is not part of its length. */
  private boolean matches(RtpPacket packet, int at) {
    boolean same = at < length;
    for (int i = 0; same && i < packet.length(); i++) {
      byte octet = at + i < length ? octets[at + i] : encoding.silence();
      same = octet == packet.bytes()[packet.offset() + i];
    }
    return same;
  }
}
