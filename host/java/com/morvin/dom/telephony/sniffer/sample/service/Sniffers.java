package com.morvin.dom.telephony.sniffer.sample.service;

import com.morvin.dom.telephony.sniffer.sample.console.Console;
import com.morvin.dom.telephony.sniffer.sample.transport.Command;
import com.morvin.dom.telephony.sniffer.sample.transport.Transport;
import java.util.HashSet;
import java.util.Set;

/**
 * The sniffers of a transport. A command for an IPv6 destination goes only to those that have IPv6 enabled, because
 * others read it as several commands. A frame with IPv6 addresses proves that its sniffer has it enabled; the operator
 * can state it for all. Belongs to the thread of the {@link Service}.
 */
final class Sniffers {
  private final Transport transport;
  private final boolean allHaveIpv6;
  private final Console console;
  private final Set<Integer> withIpv6 = new HashSet<>();
  private boolean reported;

  Sniffers(Transport transport, boolean allHaveIpv6, Console console) {
    this.transport = transport;
    this.allHaveIpv6 = allHaveIpv6;
    this.console = console;
  }

  /** Whether a sniffer is known to have IPv6 enabled. */
  boolean hasIpv6(int sniffer) {
    return allHaveIpv6 || withIpv6.contains(sniffer);
  }

  /** Records that a sniffer has IPv6 enabled. */
  void addIpv6(int sniffer) {
    withIpv6.retainAll(transport.sniffers());
    withIpv6.add(sniffer);
  }

  /** Sends a command to all sniffers that understand it. Returns whether there is any. */
  boolean send(Command command) {
    if (!command.isIpv6()) {
      transport.send(command);
      return true;
    }
    boolean sent = transport.redelivers();  // another process sends the commands
    for (int sniffer : transport.sniffers()) {
      sent |= send(sniffer, command);
    }
    return sent;
  }

  /** Sends a command to a sniffer that understands it. Returns false for any other sniffer. */
  boolean send(int sniffer, Command command) {
    boolean understood = !command.isIpv6() || hasIpv6(sniffer);
    if (understood) {
      transport.send(sniffer, command);
    } else if (!reported && command.code() == Command.ADD) {
      reported = true;
      console.line("a call has media over IPv6, and " + transport.nameOf(sniffer)
          + " has sent nothing of IPv6 yet: if it has the setting IPv6=yes, the " + console.program()
          + " needs --ipv6");
    }
    return understood;
  }
}
