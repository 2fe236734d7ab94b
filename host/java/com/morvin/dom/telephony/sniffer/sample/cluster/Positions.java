package com.morvin.dom.telephony.sniffer.sample.cluster;

import java.nio.charset.StandardCharsets;
import java.util.HashMap;
import java.util.Map;
import java.util.function.BiConsumer;
import java.util.function.Predicate;

/** How far each call has been recorded: what was recorded and is delivered again is not recorded twice. */
final class Positions {
  /** All messages before the sequence number are recorded, and so many frames of that one. */
  private record Position(long sequence, int frames) {}

  private final Map<MessageId.Stream, Position> all = new HashMap<>();

  void put(MessageId.Stream call, long sequence, int frames) {
    all.put(call, new Position(sequence, frames));
  }

  /** How many frames of the message are recorded, although it is not recorded as a whole. */
  int framesOf(MessageId id) {
    Position position = all.get(id.call());
    return position != null && position.sequence == id.sequence() ? position.frames : 0;
  }

  void forget(Predicate<MessageId.Stream> over) {
    all.keySet().removeIf(over);
  }

  /** All of them, for {@link #read}. */
  byte[] bytes() {
    StringBuilder text = new StringBuilder();
    all.forEach((call, position) ->
        text.append(new MessageId(call, position.sequence)).append(' ').append(position.frames).append('\n'));
    return text.toString().getBytes(StandardCharsets.ISO_8859_1);
  }

  /** Restores what an earlier run had, and tells of each call the first message that is not recorded as a whole. */
  void read(byte[] bytes, BiConsumer<MessageId.Stream, Long> next) {
    new String(bytes, StandardCharsets.ISO_8859_1).lines().forEach(line -> {
      String[] words = line.split(" ");
      MessageId id = MessageId.parse(words[0]);
      if (id != null && words.length == 2 && words[1].matches("\\d{1,9}")) {
        put(id.call(), id.sequence(), Integer.parseInt(words[1]));
        next.accept(id.call(), id.sequence());
      }
    });
  }
}
