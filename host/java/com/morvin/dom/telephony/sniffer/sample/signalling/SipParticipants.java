package com.morvin.dom.telephony.sniffer.sample.signalling;

import com.morvin.dom.telephony.sniffer.sample.transport.Address;
import com.morvin.dom.telephony.sniffer.sample.transport.Frame;
import java.util.HashSet;
import java.util.Set;

/** The participants in the dialogs of one Call-ID: the tags of the parties, and the hosts that messages pass. */
final class SipParticipants {
  // Limits against hostile traffic.
  private static final int MAX_TAGS = 64;
  private static final int MAX_HOSTS = 64;

  /** The tags of the caller: several when an INVITE is sent again with credentials or forwarded with another tag. */
  private final Set<String> callers = new HashSet<>();
  private final BoundedMap<String, Boolean> callees = new BoundedMap<>(MAX_TAGS);
  /** The tags of callees that have answered: others cannot push them out of {@link #callees}. */
  private final Set<String> answered = new HashSet<>();
  private final Set<Address> hosts = new HashSet<>();

  /** Adds a tag of the caller. */
  void addCaller(String tag) {
    if (callers.size() < MAX_TAGS) {
      callers.add(tag);
    }
  }

  /** Adds the tag of a callee. An empty tag is none. */
  void addCallee(String tag) {
    if (!tag.isEmpty() && !callers.contains(tag)) {
      callees.putLast(tag, true);
    }
  }

  /** Keeps the tag of a callee that has answered. */
  void keepCallee(String tag) {
    if (answered.size() < MAX_TAGS && isCallee(tag)) {
      answered.add(tag);
    }
  }

  /** Adds the hosts of a message, between which the requests of its dialog may pass. */
  void addHosts(SipMessage message, Frame frame) {
    if (hosts.size() < MAX_HOSTS) {
      hosts.add(frame.source().address());
      hosts.add(frame.destination().address());
      hosts.addAll(message.route());
    }
  }

  /** Whether a host takes part. */
  boolean hasHost(Address host) {
    return hosts.contains(host);
  }

  /** Whether a tag is one of the caller. */
  boolean isCaller(String tag) {
    return callers.contains(tag);
  }

  /** Whether a tag is that of a party. */
  boolean isParty(String tag) {
    return callers.contains(tag) || callees.containsKey(tag) || answered.contains(tag);
  }

  /** Whether a frame passes between hosts that take part. */
  boolean include(Frame frame) {
    return hosts.contains(frame.source().address()) && hosts.contains(frame.destination().address());
  }

  /** Whether the tags of a message are those of the caller and a callee. */
  boolean include(SipMessage message) {
    String from = message.from().tag();
    String to = message.to().tag();
    return callers.contains(from) && isCallee(to) || callers.contains(to) && isCallee(from);
  }

  /** While no response was seen, any tag can be that of the callee. */
  private boolean isCallee(String tag) {
    return callees.containsKey(tag) || answered.contains(tag) || callees.isEmpty() && !tag.isEmpty();
  }
}
