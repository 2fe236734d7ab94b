package com.morvin.dom.telephony.sniffer.sample;

import java.io.Closeable;
import java.io.IOException;

/** The link to the sniffer: frames in, commands out. One thread uses it. */
interface Transport extends Closeable {
  /**
   * Waits for a frame.
   *
   * @return null when none came in time
   * @throws IOException when none will ever come, with a message for the operator
   */
  Frame receive(long timeoutMillis) throws IOException, InterruptedException;

  /** Sends a command, whole, without waiting. Without a sniffer it does nothing. */
  void send(Command command);

  /**
   * How many sniffers have come so far, 0 before the first. Each begins with an empty list of destinations, also when
   * it is the old one that connected again; so whenever this number grows, all destinations are to be sent again.
   */
  int sessions();

  /** Whether there is a sniffer to talk to. */
  boolean connected();

  /** Whether commands can get lost on their way. */
  default boolean losesCommands() {
    return false;
  }

  /** Whether the sniffer carries out commands only when it has captured another packet. */
  default boolean waitsForTraffic() {
    return false;
  }

  @Override
  void close();
}
