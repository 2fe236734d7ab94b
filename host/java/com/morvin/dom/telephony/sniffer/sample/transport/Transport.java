package com.morvin.dom.telephony.sniffer.sample.transport;

import com.morvin.dom.telephony.sniffer.sample.metrics.Metrics;
import java.io.Closeable;
import java.io.IOException;
import java.util.Set;

/**
 * The link to one or more sniffers: delivers their frames and sends them commands. One thread receives; any thread may
 * call the other methods.
 *
 * <p>Sniffers are numbered from 1 in the order in which they appear, and no number is used twice. A sniffer that
 * connects again or was restarted gets a new number, because its list of destinations is empty.
 */
public interface Transport extends Closeable {
  /**
   * Waits for frames, and returns those that have come.
   *
   * @return null when none came in time; may return earlier than that
   * @throws IOException when the transport will deliver no more frames, with a message for the operator
   */
  FrameBlock receive(long timeoutMillis) throws IOException, InterruptedException;

  /** Whether {@link #receive} returns at once, with frames that came together with the last ones. */
  default boolean hasBlock() {
    return false;
  }

  /**
   * Sends a complete command to a sniffer without waiting. Does nothing when the sniffer has gone. The command may wait
   * for {@link #flush}, so that several need only one system call.
   */
  void send(int sniffer, Command command);

  /** Sends a command to every sniffer. */
  default void send(Command command) {
    sniffers().forEach(sniffer -> send(sniffer, command));
  }

  /** Sends the commands that wait. */
  default void flush() {}

  /** Returns the numbers of the sniffers that take commands at present. */
  Set<Integer> sniffers();

  /** Returns the greatest number that a sniffer has had so far. */
  int sessions();

  /** Returns a name of the sniffer for messages to the operator. */
  default String nameOf(int sniffer) {
    return "the sniffer";
  }

  /** Called when a sniffer has not replied to heartbeats for long. The transport may stop sending it commands. */
  default void forget(int sniffer) {}

  /** Whether a command can get lost. */
  default boolean losesCommands() {
    return false;
  }

  /** Whether the sniffer carries out a command only after it has captured another packet. */
  default boolean waitsForTraffic() {
    return false;
  }

  /**
   * Whether frames are delivered again after a restart unless they were acknowledged. Such a transport keeps what the
   * recorder has no room for: {@link #receive} is not called meanwhile.
   */
  default boolean redelivers() {
    return false;
  }

  /**
   * Returns the state from which another run can continue after the frame with this number. The recorder saves it
   * together with the recordings.
   */
  default byte[] position(long number) {
    return new byte[0];
  }

  /** Continues from the {@link #position} that an earlier run saved. Called before anything is received. */
  default void resume(byte[] position) {}

  /**
   * Whether frames wait where they cannot be received at present. The time limits of calls stand still meanwhile, so
   * that this does not count as silence.
   */
  default boolean isCutOff() {
    return false;
  }

  /**
   * Reports that the results of the frames up to this number are on disk and survive a crash. Called only when the
   * transport redelivers, on any thread, with increasing numbers.
   */
  default void acknowledge(long number) {}

  /** Whether soon no more frames come before {@link #acknowledge}. */
  default boolean isHeldBack() {
    return false;
  }

  /** Adds figures about the link. Called by the thread that handles the frames. */
  default void measure(Metrics figures) {}

  /**
   * Takes no new sniffers, and makes those that are connected disconnect. Frames that they have sent before are still
   * received: all of them are when {@link #sniffers} is empty. Commands are not sent any more.
   *
   * @return false when sniffers cannot be made to disconnect; then nothing has changed
   */
  default boolean hangUp() {
    return false;
  }

  @Override
  void close();
}
