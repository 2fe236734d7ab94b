package com.morvin.dom.telephony.sniffer.sample.cluster;

import com.morvin.dom.telephony.sniffer.sample.transport.Frame;
import java.io.ByteArrayOutputStream;
import java.nio.ByteBuffer;
import java.nio.charset.StandardCharsets;
import java.security.MessageDigest;
import java.security.NoSuchAlgorithmException;
import java.util.HexFormat;
import java.util.concurrent.atomic.AtomicInteger;
import java.util.function.Consumer;

/** Joins the frames of one call to messages. */
final class CallStream {
  /** A routing key of AMQP has no more bytes. */
  private static final int MAX_KEY = 255;
  private static final long RECAP_MILLIS = 30_000;
  /** Of signalling that is repeated; an ordinary call has a fifth of it. */
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

  CallStream(MessageId.Stream id, String key, long now, Consumer<Message> out) {
    this.id = id;
    this.key = routingKey(key);
    this.out = out;
    recapped = now;
  }

  private static String routingKey(String key) {
    byte[] bytes = key.getBytes(StandardCharsets.UTF_8);
    if (bytes.length <= MAX_KEY) {
      return key;
    }
    try {
      return HexFormat.of().formatHex(MessageDigest.getInstance("SHA-256").digest(bytes));
    } catch (NoSuchAlgorithmException e) {
      throw new AssertionError(e);  // every Java has it
    }
  }

  /** Adds a frame that was captured at a time. Returns whether a message began with it. */
  boolean add(Frame frame, long captured, long now) {
    byte[] announcement = new Frame(Frame.CAPTURE_TIME, frame.destination(), frame.source(),
        ByteBuffer.allocate(Long.BYTES).putLong(captured * 1000).array()).bytes();
    byte[] bytes = frame.bytes();
    boolean media = frame.protocol() == Frame.RTP;
    // Apart from media, signalling is small enough to be kept when not all can be.
    if (open && (media == signalling || body.size() + announcement.length + bytes.length > Message.MAX_BODY)) {
      flush(false);
    }
    boolean first = !open;
    if (first) {
      begin(now);
    }
    body.writeBytes(announcement);
    body.writeBytes(bytes);
    frames++;
    signalling = !media;
    if (signalling) {
      if (signalled.size() + announcement.length + bytes.length <= MAX_RECAP) {
        signalled.writeBytes(announcement);
        signalled.writeBytes(bytes);
      }
    }
    return first;
  }

  /** A recorder that takes over in mid-call learns from repeated signalling what it records. */
  private void begin(long now) {
    open = true;
    began = now;
    if (now - recapped >= RECAP_MILLIS) {
      recapped = now;
      recap = signalled.size();
      body.writeBytes(signalled.toByteArray());
    }
  }

  /** When the message that is being made was begun. */
  long began() {
    return began;
  }

  boolean isOpen() {
    return open;
  }

  /** Completes the message that is being made. The last one says that the call is over, frames or not. */
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
