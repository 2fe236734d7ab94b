package com.morvin.dom.telephony.sniffer.sample.signalling;

import com.morvin.dom.telephony.sniffer.sample.transport.Address;
import com.morvin.dom.telephony.sniffer.sample.transport.Frame;
import java.util.HashSet;
import java.util.List;
import java.util.Set;

/**
 * The participants in the dialogs of one Call-ID: the tags of the parties, and the hosts that messages pass. All are
 * bounded. Those that several messages agree on are kept, because forged messages can push the others out.
 */
final class SipParticipants {
  private static final int MAX_TAGS = 64;
  private static final int MAX_HOSTS = 64;

  /** The tags of the caller: several when an INVITE is sent again with credentials or forwarded with another tag. */
  private final BoundedMap<String, Boolean> callers = new BoundedMap<>(MAX_TAGS);
  private final BoundedMap<String, Boolean> callees = new BoundedMap<>(MAX_TAGS);
  private final BoundedMap<Address, Boolean> hosts = new BoundedMap<>(MAX_HOSTS);
  /** The first tag of the caller, and those that a response names. */
  private final Set<String> keptCallers = new HashSet<>();
  /** The hosts of the first message and of those with the tags of both parties. */
  private final Set<Address> keptHosts = new HashSet<>();
  /** Whether tags of callees were pushed out, so that any tag can be that of the callee. */
  private boolean lostCallees;

  /** Adds a tag of the caller, unless it is that of a callee. */
  void addCaller(String tag) {
    if (callees.containsKey(tag)) {
      return;
    }
    callers.putLast(tag, true);
    if (keptCallers.isEmpty()) {
      keptCallers.add(tag);
    }
  }

  /** Keeps a tag of the caller that a response names. */
  void keepCaller(String tag) {
    if (keptCallers.size() < MAX_TAGS && isCaller(tag)) {
      keptCallers.add(tag);
    }
  }

  /** Whether a tag of the caller is kept. */
  boolean isKept(String tag) {
    return keptCallers.contains(tag);
  }

  /** Adds the tag of a callee. An empty tag is none. */
  void addCallee(String tag) {
    if (!tag.isEmpty() && !isCaller(tag)) {
      lostCallees |= callees.size() == MAX_TAGS && !callees.containsKey(tag);
      callees.putLast(tag, true);
    }
  }

  /** Adds the hosts of a message, between which the requests of its dialog may pass. */
  void addHosts(SipMessage message, Frame frame) {
    boolean isKept = keptHosts.isEmpty() || include(message) && keptHosts.size() < MAX_HOSTS;
    for (Address host : List.of(frame.source().address(), frame.destination().address())) {
      hosts.putLast(host, true);
      if (isKept) {
        keptHosts.add(host);
      }
    }
    message.route().forEach(host -> hosts.putLast(host, true));
  }

  /** Whether a host takes part. */
  boolean hasHost(Address host) {
    return hosts.containsKey(host) || keptHosts.contains(host);
  }

  /** Whether a tag is one of the caller. */
  boolean isCaller(String tag) {
    return callers.containsKey(tag) || keptCallers.contains(tag);
  }

  /** Whether a tag is that of a party. */
  boolean isParty(String tag) {
    return isCaller(tag) || callees.containsKey(tag);
  }

  /** Whether a frame passes between hosts that take part. */
  boolean include(Frame frame) {
    return hasHost(frame.source().address()) && hasHost(frame.destination().address());
  }

  /** Whether the tags of a message are those of the caller and a callee. */
  boolean include(SipMessage message) {
    String from = message.from().tag();
    String to = message.to().tag();
    return isCaller(from) && isCallee(to) || isCaller(to) && isCallee(from);
  }

  /** While no response was seen, or too many were, any tag can be that of the callee. */
  private boolean isCallee(String tag) {
    return callees.containsKey(tag) || (callees.isEmpty() || lostCallees) && !tag.isEmpty() && !isCaller(tag);
  }
}
