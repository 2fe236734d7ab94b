package com.morvin.dom.telephony.sniffer.sample.cluster;

import com.morvin.dom.telephony.sniffer.sample.console.Console;
import com.morvin.dom.telephony.sniffer.sample.console.Text;
import com.morvin.dom.telephony.sniffer.sample.memory.HeapShare;
import com.morvin.dom.telephony.sniffer.sample.metrics.Metrics;
import com.morvin.dom.telephony.sniffer.sample.transport.Command;
import com.morvin.dom.telephony.sniffer.sample.transport.FrameBlock;
import com.morvin.dom.telephony.sniffer.sample.transport.Transport;
import com.rabbitmq.client.AMQP;
import com.rabbitmq.client.Channel;
import com.rabbitmq.client.Connection;
import com.rabbitmq.client.DefaultConsumer;
import com.rabbitmq.client.Envelope;
import com.rabbitmq.client.ShutdownSignalException;
import java.io.IOException;
import java.net.ProtocolException;
import java.util.ArrayDeque;
import java.util.ArrayList;
import java.util.Deque;
import java.util.HashMap;
import java.util.List;
import java.util.Map;
import java.util.Queue;
import java.util.Set;
import java.util.concurrent.BlockingQueue;
import java.util.concurrent.LinkedBlockingQueue;
import java.util.concurrent.TimeUnit;

/**
 * Delivers the frames in a queue of the broker. The broker keeps a message until the recordings made from it are safe
 * on disk. When the connection or this process ends earlier, the broker delivers the message again; frames that are
 * already recorded are not delivered twice.
 *
 * <p>This transport has no sniffers: the front asks them for media.
 */
final class QueueTransport implements Transport {
  /** The most messages that are not acknowledged. Their length is bounded, so this bounds the memory. */
  private static final int PREFETCH =
      (int) Math.max(100, Math.min(10_000, HeapShare.DELIVERIES / Message.MAX_BODY));
  private static final long TICK_NANOS = TimeUnit.MILLISECONDS.toNanos(200);
  private static final long NOT_YET = Long.MAX_VALUE;

  /** A message as delivered, and the connection that delivered it. */
  private record Delivery(Connection over, long tag, AMQP.BasicProperties properties, byte[] body) {}

  /** A message that is not acknowledged yet, and the number of its last frame after that was delivered. */
  private static final class Pending {
    private final Connection over;
    private final long tag;
    private long last = NOT_YET;

    Pending(Delivery delivery) {
      over = delivery.over;
      tag = delivery.tag;
    }
  }

  /**
   * The numbers of the frames of a message that were passed on, and how many frames before them an earlier run has
   * recorded.
   */
  private record Passed(MessageId id, int done, long first, long last) {}

  /** The frames of a message, the repeated signalling apart. */
  private record Content(MessageId id, Pending pending, List<Repeated> repeated, FrameBlock frames) {}

  /** The repeated signalling of a call. */
  private record Repeated(Recap recap, FrameBlock frames) {}

  private final Broker broker;
  private final String queue;
  private final Console console;
  private final Positions positions = new Positions();
  private final Sequences<Content> sequences = new Sequences<>();
  private final Map<MessageId.Stream, Joined> joined = new HashMap<>();
  private final BlockingQueue<Delivery> deliveries = new LinkedBlockingQueue<>();
  private final Queue<FrameBlock> frames = new ArrayDeque<>();
  private final Deque<Pending> pending = new ArrayDeque<>();
  private final Queue<Passed> passed = new ArrayDeque<>();
  private volatile Connection connection;
  private final Outage outage;
  private Channel channel;
  private long nextTry = System.nanoTime();
  private long nextTick = System.nanoTime();
  private long number;
  private long safe;
  private long taken;
  private long damaged;
  private long missing;

  QueueTransport(Broker broker, String queue, Console console) {
    this.broker = broker;
    this.queue = queue;
    this.console = console;
    outage = new Outage(console);
  }

  @Override
  public void resume(byte[] position) {
    long now = System.nanoTime();
    positions.read(position, (stream, next) -> sequences.startAt(stream, next, now),
        (stream, at) -> joined.put(stream, new Joined(at, now)));
  }

  @Override
  public FrameBlock receive(long timeoutMillis) throws InterruptedException {
    if (frames.isEmpty()) {
      long now = System.nanoTime();
      connect(now);
      Delivery delivery = deliveries.poll(sequences.isWaiting() ? Math.min(timeoutMillis, 50) : timeoutMillis,
          TimeUnit.MILLISECONDS);
      synchronized (this) {
        if (delivery != null && delivery.over == connection) {
          take(delivery);
        }
        tick();
      }
    }
    return frames.poll();
  }

  private void connect(long now) {
    Connection current = connection;
    if (current != null && current.isOpen() && channel.isOpen()) {
      return;
    }
    if (current != null) {
      disconnect(channel.isOpen() ? "the connection was lost" : Broker.reason(channel.getCloseReason()));
    }
    if (now - nextTry >= 0) {
      try {
        consume(broker.connect());
      } catch (IOException | ShutdownSignalException e) {
        disconnect(Broker.reason(e));
      }
    }
  }

  private synchronized void disconnect(String why) {
    Connection lost = connection;
    connection = null;
    Broker.closeQuietly(lost);
    // The broker delivers the other messages again.
    deliveries.clear();
    sequences.restart();
    pending.removeIf(message -> message.last == NOT_YET);
    long wait = outage.failed("cannot consume " + queue + " of " + broker, why);
    nextTry = System.nanoTime() + TimeUnit.MILLISECONDS.toNanos(wait);
  }

  private void consume(Connection from) throws IOException {
    connection = from;
    channel = from.createChannel();
    channel.basicQos(PREFETCH);
    channel.basicConsume(queue, false, new DefaultConsumer(channel) {
      @Override
      public void handleDelivery(String consumer, Envelope envelope, AMQP.BasicProperties properties, byte[] body) {
        deliveries.add(new Delivery(from, envelope.getDeliveryTag(), properties, body));
      }

      @Override
      public void handleCancel(String consumer) {
        from.abort(AMQP.REPLY_SUCCESS, "the queue was deleted");
      }
    });
    if (outage.over()) {
      console.line("consuming " + queue + " of " + broker
          + (outage.length() == null ? "" : " again after " + outage.length()));
    }
  }

  private void take(Delivery delivery) {
    taken++;
    MessageId id = MessageId.parse(delivery.properties.getMessageId());
    Pending message = new Pending(delivery);
    Content content = null;
    try {
      content = id == null ? null : read(id, message, delivery);
    } catch (ProtocolException e) {
      // Rejected below.
    }
    if (content == null) {
      reject(delivery);
      return;
    }
    pending.add(message);
    noteBeginning(id, delivery);
    List<Content> due = sequences.accept(id, content, System.nanoTime());
    if (due == null) {
      // A repeated message is safe when the frames delivered so far are.
      message.last = number;
      settle();
    } else {
      due.forEach(this::pass);
    }
  }

  /** Notes whether this recorder has followed the calls of a stream from their beginning. */
  private void noteBeginning(MessageId id, Delivery delivery) {
    String continued = header(delivery, Message.CONTINUES);
    if (id.sequence() == 0) {
      joined.remove(id.stream());
    }
    boolean knowsAll = sequences.knows(continued)
        && joined.keySet().stream().noneMatch(stream -> stream.session().equals(continued));
    boolean follows = id.sequence() == 0 && (continued.isEmpty() || knowsAll);
    if (!follows && sequences.isNew(id.stream())) {
      joined.put(id.stream(), new Joined(id.sequence(), System.nanoTime()));
    }
  }

  private static String header(Delivery delivery, String name) {
    Map<String, Object> headers = delivery.properties.getHeaders();
    return headers == null || headers.get(name) == null ? "" : headers.get(name).toString();
  }

  /** Returns null when the message does not come from a front. */
  private static Content read(MessageId id, Pending message, Delivery delivery) throws ProtocolException {
    byte[] body = delivery.body;
    String type = delivery.properties.getContentType();
    String recap = header(delivery, Message.EARLIER_RECAP);
    String text = !Message.EARLIER_TYPE.equals(type) ? header(delivery, Message.RECAPS)
        : recap.isEmpty() ? "" : "0:0:" + recap;
    List<Recap> recaps = Recap.parse(text, body.length);
    if (recaps == null || !Message.CONTENT_TYPE.equals(type) && !Message.EARLIER_TYPE.equals(type)) {
      return null;
    }
    List<Repeated> repeated = new ArrayList<>(recaps.size());
    int at = 0;
    for (Recap one : recaps) {
      repeated.add(new Repeated(one, FrameBlock.of(body, at, at + one.bytes())));
      at += one.bytes();
    }
    return new Content(id, message, repeated, FrameBlock.of(body, at, body.length));
  }

  /** Rejects a message. The broker moves it to a queue for the operator. */
  private void reject(Delivery delivery) {
    if (damaged++ == 0) {
      console.line("a message in " + queue + " is none of a front's: it was put aside in the queue voip-dead");
    }
    try {
      channel.basicReject(delivery.tag, false);
    } catch (IOException | ShutdownSignalException e) {
      // The broker delivers it again.
    }
  }

  private void pass(Content content) {
    Joined stream = joined.get(content.id.stream());
    for (Repeated repeated : stream == null ? List.<Repeated>of() : content.repeated) {
      if (stream.needs(repeated.recap)) {
        pass(repeated.frames);
        stream.use(repeated.recap, number);
      }
    }
    int done = positions.framesOf(content.id);
    long first = number + 1;
    pass(content.frames.skip(done));
    content.pending.last = number;
    passed.add(new Passed(content.id, done, first, number));
  }

  private void pass(FrameBlock block) {
    frames.add(block.numbered(number + 1));
    number += block.count();
  }

  private void tick() {
    long now = System.nanoTime();
    if (now - nextTick >= 0) {
      nextTick = now + TICK_NANOS;
      sequences.overdue(now).forEach(this::pass);
      joined.entrySet().removeIf(entry -> sequences.isNew(entry.getKey()) || entry.getValue().isComplete(now));
      if (sequences.missing() > missing) {
        console.line(Text.count(sequences.missing() - missing, "message") + " of " + queue + " never came");
        missing = sequences.missing();
      }
    }
  }

  @Override
  public synchronized byte[] position(long upTo) {
    while (!passed.isEmpty() && passed.peek().last <= upTo) {
      MessageId id = passed.remove().id;
      positions.put(id.stream(), id.sequence() + 1, 0);
    }
    Passed half = passed.peek();
    if (half != null && half.first <= upTo) {
      positions.put(half.id.stream(), half.id.sequence(), half.done + (int) (upTo - half.first + 1));
    }
    positions.forget(sequences::isNew);
    return positions.bytes(stream -> joined.containsKey(stream) ? joined.get(stream).saved(upTo) : "");
  }

  @Override
  public synchronized boolean isHeldBack() {
    return pending.size() + deliveries.size() > PREFETCH / 2;
  }

  @Override
  public synchronized void acknowledge(long upTo) {
    safe = Math.max(safe, upTo);
    settle();
  }

  private void settle() {
    long tag = 0;
    while (!pending.isEmpty() && pending.peek().last <= safe) {
      Pending message = pending.remove();
      tag = message.over == connection ? message.tag : tag;
    }
    try {
      if (tag > 0) {
        channel.basicAck(tag, true);
      }
    } catch (IOException | ShutdownSignalException e) {
      // The broker delivers them again.
    }
  }

  @Override
  public boolean isCutOff() {
    Connection current = connection;
    return current == null || !current.isOpen();
  }

  @Override
  public boolean redelivers() {
    return true;
  }

  @Override
  public synchronized void measure(Metrics figures) {
    figures.gauge("broker_connected", "1 while there is a connection to the broker.", isCutOff() ? 0 : 1);
    figures.counter("queue_messages_total", "Messages taken from the queue.", taken, "queue", queue);
    figures.gauge("queue_unacknowledged_messages", "Messages whose recordings are not safe on disk yet.",
        pending.size(), "queue", queue);
    figures.counter("queue_missing_messages_total", "Messages that never came.", sequences.missing(), "queue", queue);
    figures.counter("queue_rejected_messages_total", "Messages moved to the queue voip-dead.", damaged, "queue", queue);
  }

  @Override
  public void send(int sniffer, Command command) {}

  @Override
  public Set<Integer> sniffers() {
    return Set.of();
  }

  @Override
  public int sessions() {
    return 0;
  }

  @Override
  public String nameOf(int sniffer) {
    return queue + " of " + broker;
  }

  @Override
  public void close() {
    synchronized (this) {
      Broker.closeQuietly(connection);
      connection = null;
    }
  }
}
