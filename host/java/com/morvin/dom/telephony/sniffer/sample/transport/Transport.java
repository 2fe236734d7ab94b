package com.morvin.dom.telephony.sniffer.sample.transport;

import java.io.Closeable;
import java.io.IOException;
import java.util.Set;

/**
 * The link to one or more sniffers: frames in, commands out. One thread receives; any thread may call the other
 * operations.
 *
 * <p>Each sniffer has a number, which is never used again. One that connects anew, or was started anew, gets a new
 * number: its list of destinations is empty then.
 */
public interface Transport extends Closeable {
  /**
   * Waits for a frame.
   *
   * @return null when none came in time
   * @throws IOException when none will ever come, with a message for the operator
   */
  Received receive(long timeoutMillis) throws IOException, InterruptedException;

  /** Sends a command to one sniffer, whole, without waiting. To one that has gone it does nothing. */
  void send(int sniffer, Command command);

  /** Sends a command to every sniffer. */
  default void send(Command command) {
    sniffers().forEach(sniffer -> send(sniffer, command));
  }

  /** The sniffers to talk to at present. */
  Set<Integer> sniffers();

  /** The number of sniffers so far: no number is greater. */
  int sessions();

  /** Where the sniffer is, for people. */
  default String nameOf(int sniffer) {
    return "the sniffer";
  }

  /** Nothing has come from it for long, although it was asked. */
  default void forget(int sniffer) {}

  /** Whether commands can get lost on their way. */
  default boolean losesCommands() {
    return false;
  }

  /** Whether the sniffer carries out commands only when it has captured another packet. */
  default boolean waitsForTraffic() {
    return false;
  }

  /**
   * Whether frames come again after a restart unless they were acknowledged. Such a transport is never asked to drop a
   * frame: while the recorder is behind, {@link #receive} is not called.
   */
  default boolean redelivers() {
    return false;
  }

  /** What it takes to go on after the frame with this number in another run, to be kept with what came of the frames. */
  default byte[] position(long number) {
    return new byte[0];
  }

  /** Goes on where an earlier run was: before anything is received. */
  default void resume(byte[] position) {}

  /**
   * What was captured before that time has been delivered, as far as can be known, when {@link #receive} has nothing to
   * deliver. Times of calls run by it, so that what waits while the recorder is down or behind is not taken for silence.
   */
  default long caughtUp(long now) {
    return now;
  }

  /**
   * All that follows from the frames up to this number is on disk and survives a crash. Only called when the transport
   * redelivers, from any thread, with numbers that grow.
   */
  default void acknowledge(long number) {}

  @Override
  void close();
}
