package com.morvin.dom.telephony.sniffer.sample.transport;

import java.net.InetAddress;
import java.net.UnknownHostException;
import java.nio.ByteBuffer;
import java.util.Optional;
import java.util.regex.Pattern;

/**
 * An IPv6 or IPv4 address. An IPv4 address is held as the IPv4-mapped address (RFC 4291, 2.5.5.2), which names the same
 * host. So both texts of it are one address.
 *
 * @param high the first eight octets, the first one in the most significant byte
 * @param low the last eight octets
 */
public record Address(long high, long low) implements Comparable<Address> {
  /** A dotted address in a text. */
  public static final Pattern DOTTED = Pattern.compile("\\d{1,3}\\.\\d{1,3}\\.\\d{1,3}\\.\\d{1,3}");
  /** The octets of an IPv6 address in a text, which need not be valid. */
  public static final String COLONS = "[0-9A-Fa-f:.]{2,45}";

  /** Other texts are not passed to the Java library, which would look up a name. */
  private static final Pattern IPV6 = Pattern.compile("(?=[0-9A-Fa-f]*:[^:]*:)" + COLONS);
  private static final long MAPPED = 0xffff_0000_0000L;
  private static final int GROUPS = 8;

  /** Returns an IPv4 address, whose first octet is the most significant byte. */
  public static Address of(int ipv4) {
    return new Address(0, MAPPED | ipv4 & 0xffff_ffffL);
  }

  /** Returns the address of the Java library. */
  public static Address of(InetAddress address) {
    ByteBuffer octets = ByteBuffer.wrap(address.getAddress());
    return octets.capacity() == Integer.BYTES ? of(octets.getInt()) : new Address(octets.getLong(), octets.getLong());
  }

  /** Parses a numeric address. Returns empty when the text is none; looks up no name. */
  public static Optional<Address> parse(String text) {
    if (DOTTED.matcher(text).matches()) {
      return dotted(text.split("\\."));
    }
    try {
      return IPV6.matcher(text).matches() ? Optional.of(of(InetAddress.getByName(text))) : Optional.empty();
    } catch (UnknownHostException e) {
      return Optional.empty();
    }
  }

  private static Optional<Address> dotted(String... octets) {
    int ip = 0;
    for (String octet : octets) {
      if (Integer.parseInt(octet) > 255) {
        return Optional.empty();
      }
      ip = ip << 8 | Integer.parseInt(octet);
    }
    return Optional.of(of(ip));
  }

  /** Whether an address is an IPv4 address. */
  static boolean isIpv4(long high, long low) {
    return high == 0 && low >>> 32 == MAPPED >>> 32;
  }

  /** Whether the address is an IPv4 address. */
  public boolean isIpv4() {
    return isIpv4(high, low);
  }

  /** Returns the IPv4 address, its first octet in the most significant byte. */
  public int ipv4() {
    return (int) low;
  }

  /** Whether the address is neither a multicast address nor an unspecified one. */
  public boolean isUnicast() {
    if (isIpv4()) {
      int first = ipv4() >>> 24;
      return first > 0 && first < 224;
    }
    return high >>> 56 != 0xff && (high | low) != 0;
  }

  /**
   * Returns the network of a sender, by which the calls of a flood are counted: an IPv4 address, or the first half of
   * an IPv6 address. One host can use all addresses with the same first half.
   */
  public Address network() {
    return isIpv4() ? this : new Address(high, 0);
  }

  @Override
  public int compareTo(Address other) {
    int first = Long.compareUnsigned(high, other.high);
    return first != 0 ? first : Long.compareUnsigned(low, other.low);
  }

  /** Returns the dotted address, or the IPv6 address in its canonical form (RFC 5952). */
  @Override
  public String toString() {
    if (isIpv4()) {
      int ip = ipv4();
      return (ip >>> 24) + "." + (ip >>> 16 & 255) + "." + (ip >>> 8 & 255) + "." + (ip & 255);
    }
    int start = 0;
    int length = 1;  // a single zero group is not shortened
    for (int i = 0; i < GROUPS; i++) {
      int zeros = zerosAt(i);
      if (zeros > length) {
        start = i;
        length = zeros;
      }
    }
    return length == 1 ? groups(0, GROUPS) : groups(0, start) + "::" + groups(start + length, GROUPS);
  }

  private int group(int index) {
    return (int) ((index < 4 ? high : low) >>> 48 - 16 * (index % 4)) & 0xffff;
  }

  /** Returns the number of zero groups from an index on. */
  private int zerosAt(int index) {
    int end = index;
    while (end < GROUPS && group(end) == 0) {
      end++;
    }
    return end - index;
  }

  private String groups(int from, int to) {
    StringBuilder text = new StringBuilder();
    for (int i = from; i < to; i++) {
      text.append(i > from ? ":" : "").append(Integer.toHexString(group(i)));
    }
    return text.toString();
  }
}
