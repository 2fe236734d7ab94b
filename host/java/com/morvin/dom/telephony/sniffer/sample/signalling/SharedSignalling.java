package com.morvin.dom.telephony.sniffer.sample.signalling;

import com.morvin.dom.telephony.sniffer.sample.transport.Frame;
import java.util.ArrayList;
import java.util.Collections;
import java.util.Comparator;
import java.util.List;
import java.util.function.Predicate;

/**
 * The messages of a call that are kept. When several recorders share the calls, the share of a call changes when it
 * turns out to be a leg of another one. When media goes on after the end of a call, another call goes on with its legs.
 * A long list keeps its first and its last messages.
 */
final class SharedSignalling {
  private static final int MAX_BYTES = 16 << 10;
  private static final int FIRST = 4;

  /**
   * A message.
   *
   * @param label see {@link CallFollower.Listener#signalled}
   * @param digits the pressed keys that it reports; usually empty
   * @param direction the direction of the pressed keys; null without them
   */
  record Message(Frame frame, String label, Moment time, String digits, Direction direction) {
    Message turned(boolean turned) {
      return direction == null ? this : new Message(frame, label, time, digits, direction.turned(turned));
    }

    private int size() {
      return frame.payload().length;
    }
  }

  private List<Message> messages = List.of();
  private int bytes;

  /** Adds a message. */
  void add(Frame frame, String label, Moment time) {
    add(new Message(frame, label, time, "", null));
  }

  private void add(Message message) {
    if (messages.isEmpty()) {
      messages = new ArrayList<>();
    }
    messages.add(message);
    bytes += message.size();
    while (bytes > MAX_BYTES) {
      bytes -= messages.remove(Math.min(FIRST, messages.size() - 1)).size();
    }
  }

  /** Adds pressed keys to the last message. */
  void dialled(Direction direction, String digits) {
    if (!messages.isEmpty()) {
      Message last = messages.get(messages.size() - 1);
      messages.set(messages.size() - 1, new Message(last.frame, last.label, last.time, digits, direction));
    }
  }

  /** Adds the messages of another call, whose sides may be exchanged, in the order of their time. */
  void add(SharedSignalling other, boolean turned) {
    other.messages.forEach(message -> add(message.turned(turned)));
    if (!other.messages.isEmpty()) {
      messages.sort(Comparator.comparingLong(message -> message.time.stamp()));
    }
  }

  /** Removes messages. */
  void removeIf(Predicate<Frame> unwanted) {
    messages = new ArrayList<>(messages);
    messages.removeIf(message -> unwanted.test(message.frame));
    bytes = messages.stream().mapToInt(Message::size).sum();
  }

  /** Returns the messages: a view. */
  List<Message> messages() {
    return Collections.unmodifiableList(messages);
  }
}
