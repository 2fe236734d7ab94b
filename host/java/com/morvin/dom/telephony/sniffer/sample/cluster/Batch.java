package com.morvin.dom.telephony.sniffer.sample.cluster;

import com.morvin.dom.telephony.sniffer.sample.transport.Frame;
import com.morvin.dom.telephony.sniffer.sample.transport.FrameCursor;
import java.util.ArrayDeque;
import java.util.ArrayList;
import java.util.Deque;
import java.util.List;
import java.util.function.Consumer;

/**
 * Collects the frames of one partition into messages. Belongs to the thread of the front. Times are milliseconds of a
 * monotonic clock, unless noted otherwise.
 */
final class Batch {
  private static final long RECAP_MILLIS = 30_000;
  /** The most recaps in a message, in bytes, except that there can always be one. */
  private static final int MAX_RECAPS = 32 << 10;

  private record Due(CallStream call, long at) {}

  final Partition partition;
  private final MessageId.Stream id;
  private final String continued;
  private final Consumer<Message> out;
  private final Body body = new Body();
  private final List<Recap> recaps = new ArrayList<>();
  /** The recaps to come, the next one first. */
  private final Deque<Due> due = new ArrayDeque<>();
  private boolean open;
  private boolean media;
  private int frames;
  private int recapped;
  private long sequence;

  /**
   * Makes a batch without frames.
   *
   * @param session identifies this run of the front
   * @param continued the session before a restart; empty when there is none
   */
  Batch(Partition partition, String session, String continued, Consumer<Message> out) {
    this.partition = partition;
    id = new MessageId.Stream(session, partition.id());
    this.continued = continued;
    this.out = out;
  }

  /** Returns the sequence number of the message that the next frame goes to at the earliest. */
  long sequence() {
    return sequence;
  }

  /** Repeats the signalling of a call from now on: every 30 s, for recorders that take over in the middle of it. */
  void begin(CallStream call, long now) {
    if (call.since < 0) {
      due.addFirst(new Due(call, now));
    } else {
      due.addLast(new Due(call, now + RECAP_MILLIS));
    }
  }

  /**
   * Adds a frame with its time of capture in milliseconds since 1970.
   *
   * @param heldUntil see {@link FrameCursor#heldUntil}
   */
  void add(FrameCursor frame, long captured, long heldUntil, long now) {
    if (open && frames > 0 && body.lengthWith(frame) - recapped > Message.MAX_BODY) {
      flush();
    }
    open(now);
    body.add(frame, captured, heldUntil);
    frames++;
    media |= frame.protocol() == Frame.RTP;
  }

  /** Adds frames that were published in another batch. */
  void add(Body published, long now) {
    open(now);
    body.endTime();
    body.add(published);
  }

  private void open(long now) {
    if (!open) {
      open = true;
      addRecaps(now);
    }
  }

  private void addRecaps(long now) {
    while (!due.isEmpty() && (due.peek().at <= now || due.peek().call.isOver())) {
      CallStream call = due.peek().call;
      int length = call.signalled().length();
      if (!call.isOver() && recapped > 0 && recapped + length > MAX_RECAPS) {
        return;
      }
      due.remove();
      if (!call.isOver()) {
        body.add(call.signalled());
        recaps.add(new Recap(call.number, call.since, length));
        recapped += length;
        due.addLast(new Due(call, now + RECAP_MILLIS));
      }
    }
  }

  /** Completes the open message, if there is one. */
  void flush() {
    if (!open) {
      return;
    }
    out.accept(new Message(new MessageId(id, sequence++), partition, continued, List.copyOf(recaps), media, frames,
        body.copy()));
    body.clear();
    recaps.clear();
    open = false;
    media = false;
    frames = 0;
    recapped = 0;
  }
}
