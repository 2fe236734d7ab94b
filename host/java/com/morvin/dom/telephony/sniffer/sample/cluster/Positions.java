package com.morvin.dom.telephony.sniffer.sample.cluster;

import java.nio.charset.StandardCharsets;
import java.util.HashMap;
import java.util.Map;
import java.util.function.BiConsumer;
import java.util.function.Function;
import java.util.function.Predicate;

/**
 * The position up to which each stream has been recorded, so that a message that is delivered again is not recorded
 * twice.
 */
final class Positions {
  /** All messages before the sequence number are recorded, and a number of frames of that message. */
  private record Position(long sequence, int frames) {}

  private final Map<MessageId.Stream, Position> all = new HashMap<>();

  /** Sets the position of a stream. */
  void put(MessageId.Stream stream, long sequence, int frames) {
    all.put(stream, new Position(sequence, frames));
  }

  /** Returns the number of recorded frames of a message that is recorded only in part; 0 for any other message. */
  int framesOf(MessageId id) {
    Position position = all.get(id.stream());
    return position != null && position.sequence == id.sequence() ? position.frames : 0;
  }

  /** Removes the streams for which the predicate is true. */
  void forget(Predicate<MessageId.Stream> over) {
    all.keySet().removeIf(over);
  }

  /**
   * Returns all positions in the form that {@link #read} takes.
   *
   * @param joined returns the form of a {@link Joined} stream; an empty text for other streams
   */
  byte[] bytes(Function<MessageId.Stream, String> joined) {
    StringBuilder text = new StringBuilder();
    all.forEach((stream, position) -> {
      text.append(new MessageId(stream, position.sequence)).append(' ').append(position.frames);
      String saved = joined.apply(stream);
      text.append(saved.isEmpty() ? "" : " ").append(saved).append('\n');
    });
    return text.toString().getBytes(StandardCharsets.ISO_8859_1);
  }

  /**
   * Restores the positions of an earlier run.
   *
   * @param next receives for each stream the number of the first message that is not completely recorded
   * @param joined receives the streams whose beginning was delivered to another recorder
   */
  void read(byte[] bytes, BiConsumer<MessageId.Stream, Long> next, BiConsumer<MessageId.Stream, String> joined) {
    new String(bytes, StandardCharsets.ISO_8859_1).lines().forEach(line -> {
      String[] words = line.split(" ");
      MessageId id = MessageId.parse(words[0]);
      if (id != null && words.length >= 2 && words[1].matches("\\d{1,9}")) {
        put(id.stream(), id.sequence(), Integer.parseInt(words[1]));
        next.accept(id.stream(), id.sequence());
        if (words.length == 3 && words[2].matches("\\d{1,18}(,\\d{1,18})*")) {
          joined.accept(id.stream(), words[2]);
        }
      }
    });
  }
}
