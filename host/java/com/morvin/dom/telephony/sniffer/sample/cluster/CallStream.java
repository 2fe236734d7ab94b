package com.morvin.dom.telephony.sniffer.sample.cluster;

import com.morvin.dom.telephony.sniffer.sample.transport.Frame;
import java.io.ByteArrayOutputStream;
import java.nio.ByteBuffer;
import java.nio.charset.StandardCharsets;
import java.util.concurrent.atomic.AtomicInteger;
import java.util.function.Consumer;
import java.util.zip.CRC32;

/**
 * Collects the frames of one call into messages. Belongs to the thread of the front. Times are milliseconds of a
 * monotonic clock, unless noted otherwise.
 */
final class CallStream {
  /** The number of routing keys; packaging/rabbitmq/definitions.py binds each of them to a queue. */
  private static final int SLOTS = 1024;
  private static final long RECAP_MILLIS = 30_000;
  /** The most signalling that is repeated, in bytes; an ordinary call has a fifth of it. */
  private static final int MAX_RECAP = 32 << 10;

  private final MessageId.Stream id;
  private final AtomicInteger generation = new AtomicInteger();
  private final String key;
  private final Consumer<Message> out;
  private final ByteArrayOutputStream signalled = new ByteArrayOutputStream();
  private ByteArrayOutputStream body = new ByteArrayOutputStream();
  private boolean open;
  private boolean signalling;
  private int frames;
  private int recap;
  private long began;
  private long recapped;
  private long sequence;

  /**
   * Makes a stream without messages.
   *
   * @param call identifies the call on all machines: the recorder is selected by it
   */
  CallStream(MessageId.Stream id, String call, long now, Consumer<Message> out) {
    this.id = id;
    this.key = routingKey(call);
    this.out = out;
    recapped = now;
  }

  private static String routingKey(String call) {
    CRC32 hash = new CRC32();
    hash.update(call.getBytes(StandardCharsets.UTF_8));
    return Long.toString(hash.getValue() % SLOTS);
  }

  /** Adds a frame and its time of capture in milliseconds since 1970. Returns whether the frame began a message. */
  boolean add(Frame frame, long captured, long now) {
    byte[] captureTime = new Frame(Frame.CAPTURE_TIME, frame.destination(), frame.source(),
        ByteBuffer.allocate(Long.BYTES).putLong(captured * 1000).array()).bytes();
    byte[] bytes = frame.bytes();
    boolean media = frame.protocol() == Frame.RTP;
    // Media and signalling go in separate messages, because the outbox drops signalling last.
    if (open && (media == signalling || body.size() + captureTime.length + bytes.length > Message.MAX_BODY)) {
      flush(false);
    }
    boolean first = !open;
    if (first) {
      begin(now);
    }
    body.writeBytes(captureTime);
    body.writeBytes(bytes);
    frames++;
    signalling = !media;
    if (signalling) {
      if (signalled.size() + captureTime.length + bytes.length <= MAX_RECAP) {
        signalled.writeBytes(captureTime);
        signalled.writeBytes(bytes);
      }
    }
    return first;
  }

  /**
   * Adds the signalling of a call that is a leg of this one, in a separate message. Earlier frames of that call went to
   * another recorder.
   */
  void add(CallStream leg, long now) {
    byte[] frames = leg.signalled.toByteArray();
    if (frames.length == 0) {
      return;
    }
    flush(false);
    begin(now);
    body.writeBytes(frames);
    signalling = true;
    if (signalled.size() + frames.length <= MAX_RECAP) {
      signalled.writeBytes(frames);
    }
    flush(false);
  }

  /**
   * Begins a message. Every 30 s it repeats the signalling, for a recorder that takes over in the middle of the call.
   */
  private void begin(long now) {
    open = true;
    began = now;
    if (now - recapped >= RECAP_MILLIS) {
      recapped = now;
      recap = signalled.size();
      body.writeBytes(signalled.toByteArray());
    }
  }

  /** Returns the time when the open message was begun. */
  long began() {
    return began;
  }

  /** Whether there is an open message. */
  boolean isOpen() {
    return open;
  }

  /** Completes the open message. The last message reports the end of the call, even without frames. */
  void flush(boolean last) {
    if (open || last) {
      out.accept(new Message(new MessageId(id, sequence++), generation, key, recap, last, signalling || last,
          frames, body.toByteArray()));
      body = new ByteArrayOutputStream();
      open = false;
      signalling = false;
      frames = 0;
      recap = 0;
    }
  }
}
