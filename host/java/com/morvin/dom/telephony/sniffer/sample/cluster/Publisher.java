package com.morvin.dom.telephony.sniffer.sample.cluster;

import com.morvin.dom.telephony.sniffer.sample.console.Console;
import com.morvin.dom.telephony.sniffer.sample.console.Text;
import com.rabbitmq.client.AMQP;
import com.rabbitmq.client.AlreadyClosedException;
import com.rabbitmq.client.BlockedListener;
import com.rabbitmq.client.Channel;
import com.rabbitmq.client.ConfirmListener;
import com.rabbitmq.client.Connection;
import com.rabbitmq.client.ShutdownSignalException;
import java.io.IOException;
import java.util.Date;
import java.util.HashMap;
import java.util.Map;
import java.util.concurrent.TimeUnit;
import java.util.concurrent.TimeoutException;

/**
 * Publishes the messages of the outbox on a separate thread. After any failure it closes the connection and publishes
 * the unconfirmed messages again over the next one. So a message can arrive twice; the recorder recognises it by its
 * id.
 */
final class Publisher implements AutoCloseable {
  private static final long END_MILLIS = 500;
  private static final long POLL_MILLIS = 200;
  private static final long PROBE_NANOS = TimeUnit.SECONDS.toNanos(5);
  private static final long CLOSE_SECONDS = 8;
  private static final int NOT_FOUND = 404;

  private final Broker broker;
  private final Outbox outbox;
  private final Console console;
  private final Thread thread = new Thread(this::run, "publisher");
  private volatile Connection connection;
  private volatile String trouble;
  private volatile boolean closing;
  private final Outage outage;
  private int generation;
  private long nextProbe;
  private long lostBefore;

  Publisher(Broker broker, Outbox outbox, Console console) {
    this.broker = broker;
    this.outbox = outbox;
    this.console = console;
    thread.setDaemon(true);
    outage = new Outage(console);
    thread.start();
  }

  /** Whether there is a connection to the broker. Any thread may call it. */
  boolean isConnected() {
    return connection != null;
  }

  private void run() {
    try {
      while (!closing) {
        long wait = 0;
        try {
          publish();
        } catch (IOException | TimeoutException | RuntimeException e) {
          wait = disconnect(trouble != null ? trouble : Broker.reason(e));
        }
        if (!closing) {
          Thread.sleep(wait);
        }
      }
    } catch (InterruptedException e) {
      // close() interrupts the thread to end it.
    } finally {
      Broker.closeQuietly(connection);
    }
  }

  /** Publishes until {@link #close}, or throws the first failure. */
  private void publish() throws IOException, TimeoutException, InterruptedException {
    trouble = null;
    Connection to = broker.connect();
    connection = to;
    listenForAlarms(to);
    Channel channel = to.createChannel();
    listen(to, channel);
    probe(to);
    reportConnected();
    while (!closing) {
      if (trouble != null) {
        throw new IOException(trouble);
      }
      if (System.nanoTime() - nextProbe >= 0) {
        probe(to);
      }
      Outbox.Entry entry = outbox.next(POLL_MILLIS);
      if (entry != null) {
        publish(channel, entry);
      } else if (!channel.isOpen()) {
        throw new AlreadyClosedException(channel.getCloseReason());
      }
    }
  }

  private void publish(Channel channel, Outbox.Entry entry) throws IOException {
    Message message = entry.message;
    // A call stays in the queues that it began in, so that its recorder stays the same, as long as they exist.
    message.generation().compareAndSet(0, generation);
    if (message.generation().get() > generation) {
      message.generation().set(generation);
    }
    Map<String, Object> headers = new HashMap<>();
    if (message.recap() > 0) {
      headers.put(Message.RECAP, message.recap());
    }
    if (message.last()) {
      headers.put(Message.LAST, true);
    }
    AMQP.BasicProperties properties = new AMQP.BasicProperties.Builder().contentType(Message.CONTENT_TYPE)
        .deliveryMode(2).messageId(message.id().toString()).timestamp(new Date()).headers(headers).build();
    outbox.sent(channel.getNextPublishSeqNo(), entry);
    channel.basicPublish(Broker.EXCHANGE + message.generation(), message.key(), true, properties, message.body());
  }

  private void listen(Connection to, Channel channel) throws IOException {
    channel.confirmSelect();
    // A message that no queue takes is returned before it is confirmed. That confirmation must not count.
    channel.addReturnListener((code, text, exchange, key, properties, body) ->
        trouble = "no queue is bound to " + exchange + ": see packaging/rabbitmq/voip-queues");
    channel.addConfirmListener(new ConfirmListener() {
      @Override
      public void handleAck(long number, boolean multiple) {
        if (connection == to && trouble == null) {
          outbox.confirmed(number, multiple);
        }
      }

      @Override
      public void handleNack(long number, boolean multiple) {
        trouble = "a queue takes no more messages";
      }
    });
  }

  private void listenForAlarms(Connection to) {
    to.addBlockedListener(new BlockedListener() {
      @Override
      public void handleBlocked(String reason) {
        console.line(broker + " takes nothing for now: " + reason);
      }

      @Override
      public void handleUnblocked() {
        console.line(broker + " takes messages again");
      }
    });
  }

  /** Finds the newest generation of queues that is complete. When the queues were made anew, it is an earlier one. */
  private void probe(Connection to) throws IOException, TimeoutException {
    if (generation > 0 && !exists(to, Broker.EXCHANGE + generation + Broker.READY)) {
      console.line(Broker.EXCHANGE + generation + " is gone: the queues of the broker were made anew");
      generation = 0;
    }
    while (exists(to, Broker.EXCHANGE + (generation + 1) + Broker.READY)) {
      generation++;
      console.line("calls are spread over the queues of " + Broker.EXCHANGE + generation);
    }
    if (generation == 0) {
      throw new IOException("there is no exchange " + Broker.EXCHANGE + "1: packaging/rabbitmq/voip-queues makes it");
    }
    nextProbe = System.nanoTime() + PROBE_NANOS;
  }

  private static boolean exists(Connection to, String exchange) throws IOException, TimeoutException {
    Channel channel = to.createChannel();
    try {
      channel.exchangeDeclarePassive(exchange);
      channel.close();
      return true;
    } catch (IOException e) {
      if (e.getCause() instanceof ShutdownSignalException closed
          && closed.getReason() instanceof AMQP.Channel.Close close && close.getReplyCode() == NOT_FOUND) {
        return false;  // the broker has closed the channel
      }
      throw e;
    }
  }

  private void reportConnected() {
    if (outage.over()) {
      long lost = outbox.lostFrames() - lostBefore;
      console.line(outage.length() == null ? "publishing to " + broker
          : broker + " is back after " + outage.length() + "; " + (outbox.bytes() >> 10) + " KB wait, "
              + Text.count(lost, "frame") + " lost");
    }
  }

  /** Returns the time until the next attempt in milliseconds. */
  private long disconnect(String why) {
    Connection lost = connection;
    connection = null;
    Broker.closeQuietly(lost);
    outbox.putBack();
    lostBefore = lost == null ? lostBefore : outbox.lostFrames();
    return outage.failed("cannot publish to " + broker, why + "; what comes is kept meanwhile");
  }

  /** Waits for the outstanding confirmations, at most 8 s, and stops the thread. */
  @Override
  public void close() {
    long deadline = System.nanoTime() + TimeUnit.SECONDS.toNanos(CLOSE_SECONDS);
    try {
      while (!outbox.isEmpty() && System.nanoTime() - deadline < 0) {
        Thread.sleep(10);
      }
      closing = true;
      thread.join(POLL_MILLIS * 2);
      thread.interrupt();
      thread.join(END_MILLIS);
    } catch (InterruptedException e) {
      Thread.currentThread().interrupt();
    }
  }
}
