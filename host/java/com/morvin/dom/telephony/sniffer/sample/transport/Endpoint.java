package com.morvin.dom.telephony.sniffer.sample.transport;

import java.util.Optional;
import java.util.regex.Matcher;
import java.util.regex.Pattern;

/**
 * An IPv4 address and a UDP or TCP port.
 *
 * @param ip the address, its first octet in the most significant byte
 * @param port 0 to 65535
 */
public record Endpoint(int ip, int port) {
  /** A dotted address in a text. */
  public static final Pattern DOTTED = Pattern.compile("(\\d{1,3})\\.(\\d{1,3})\\.(\\d{1,3})\\.(\\d{1,3})");

  /**
   * Parses a dotted address. Returns empty unless media can be sent there: a unicast address and a port from 1 to
   * 65535.
   */
  public static Optional<Endpoint> ofMedia(String address, int port) {
    Matcher octets = DOTTED.matcher(address);
    if (!octets.matches() || port < 1 || port > 65535) {
      return Optional.empty();
    }
    int ip = 0;
    for (int i = 1; i <= 4; i++) {
      int octet = Integer.parseInt(octets.group(i));
      if (octet > 255) {
        return Optional.empty();
      }
      ip = ip << 8 | octet;
    }
    Endpoint endpoint = new Endpoint(ip, port);
    return endpoint.acceptsMedia() ? Optional.of(endpoint) : Optional.empty();
  }

  /** Returns the endpoint with a {@link #key}. */
  public static Endpoint of(long key) {
    return new Endpoint((int) (key >>> 16), (int) key & 0xffff);
  }

  /** Returns address and port in one number: the address in the upper 32 of 48 bits, the port below. */
  public long key() {
    return (ip & 0xffff_ffffL) << 16 | port;
  }

  /** Whether media can be sent there: the address is unicast and the port is not 0. */
  public boolean acceptsMedia() {
    int first = ip >>> 24;
    return first > 0 && first < 224 && port > 0;
  }

  /** Returns the next port of the address, the default for RTCP; returns this endpoint when there is no next port. */
  public Endpoint next() {
    return port < 65535 ? new Endpoint(ip, port + 1) : this;
  }

  /** Returns the dotted address. */
  public String address() {
    return (ip >>> 24) + "." + (ip >>> 16 & 255) + "." + (ip >>> 8 & 255) + "." + (ip & 255);
  }

  @Override
  public String toString() {
    return address() + ":" + port;
  }
}
