package com.morvin.dom.telephony.sniffer.sample.transport;

import java.net.InetSocketAddress;
import java.util.Optional;

/**
 * An address and a UDP or TCP port.
 *
 * @param port 0 to 65535
 */
public record Endpoint(Address address, int port) {
  /** The highest bit marks the key of an IPv6 endpoint. */
  private static final long IPV6_KEY = Long.MIN_VALUE;
  private static final long SALT = 0x9e3779b97f4a7c15L;

  /** Makes an IPv4 endpoint. */
  public Endpoint(int ipv4, int port) {
    this(Address.of(ipv4), port);
  }

  /** Returns the endpoint of a socket. */
  public static Endpoint of(InetSocketAddress socket) {
    return new Endpoint(Address.of(socket.getAddress()), socket.getPort());
  }

  /**
   * Parses a numeric address. Returns empty unless media can be sent there: a unicast address and a port from 1 to
   * 65535.
   */
  public static Optional<Endpoint> ofMedia(String address, int port) {
    return port > 65535 ? Optional.empty()
        : Address.parse(address).map(host -> new Endpoint(host, port)).filter(Endpoint::acceptsMedia);
  }

  /** Whether the address is an IPv6 address. */
  public boolean isIpv6() {
    return !address.isIpv4();
  }

  /**
   * Returns address and port in one number. Of an IPv4 endpoint it is the address in the upper 32 of 48 bits and the
   * port below. Of an IPv6 endpoint it is a hash of 63 bits: with 100,000 endpoints the probability that two of them
   * have the same key is one in a billion.
   */
  public long key() {
    return key(address.high(), address.low(), port);
  }

  static long key(long high, long low, int port) {
    return Address.isIpv4(high, low) ? (low & 0xffff_ffffL) << 16 | port
        : mix(mix(mix(high + SALT) ^ low) + port) | IPV6_KEY;
  }

  /** Spreads each bit to all bits, and is a permutation (the finalizer of MurmurHash3). */
  private static long mix(long bits) {
    long mixed = (bits ^ bits >>> 33) * 0xff51afd7ed558ccdL;
    mixed = (mixed ^ mixed >>> 33) * 0xc4ceb9fe1a85ec53L;
    return mixed ^ mixed >>> 33;
  }

  /** Whether media can be sent there: the address is unicast and the port is not 0. */
  public boolean acceptsMedia() {
    return address.isUnicast() && port > 0;
  }

  /** Returns the next port of the address, the default for RTCP; returns this endpoint when there is no next port. */
  public Endpoint next() {
    return port < 65535 ? new Endpoint(address, port + 1) : this;
  }

  /** Returns "10.0.0.1:5060" or "[2001:db8::1]:5060". */
  @Override
  public String toString() {
    return (isIpv6() ? "[" + address + "]:" : address + ":") + port;
  }
}
