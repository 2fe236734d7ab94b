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
import java.util.List;
import java.util.Map;
import java.util.Queue;
import java.util.concurrent.ConcurrentLinkedQueue;
import java.util.concurrent.TimeUnit;
import java.util.concurrent.TimeoutException;
import java.util.stream.Collectors;

/**
 * Publishes the messages of the outbox on a separate thread, each partition over a channel of its own. After a failure
 * of a partition it opens another channel, and after a failure of the connection another connection, and publishes the
 * unconfirmed messages again. So a message can arrive twice; the recorder recognises it by its id.
 */
final class Publisher implements AutoCloseable {
  private static final long END_MILLIS = 500;
  private static final long POLL_MILLIS = 200;
  private static final long PROBE_NANOS = TimeUnit.SECONDS.toNanos(5);
  private static final long CLOSE_SECONDS = 8;
  private static final long STALLED_SECONDS = 5;
  private static final int MAX_LISTED = 8;
  private static final int NOT_FOUND = 404;
  /** The pause of a partition after a failure. */
  private static final long RETRY_NANOS = TimeUnit.MILLISECONDS.toNanos(500);

  /** The channel of a partition. */
  private static final class Link {
    private final Outbox.Lane lane;
    private final Channel channel;
    private volatile String trouble;
    private long retryAt;

    Link(Outbox.Lane lane, Channel channel) {
      this.lane = lane;
      this.channel = channel;
    }
  }

  private final Broker broker;
  private final Outbox outbox;
  private final Console console;
  private final Thread thread = new Thread(this::run, "publisher");
  private final Map<Outbox.Lane, Link> links = new HashMap<>();
  private final Queue<Link> failed = new ConcurrentLinkedQueue<>();
  private final Queue<Link> retries = new ConcurrentLinkedQueue<>();
  private volatile Connection connection;
  private volatile boolean closing;
  private final Outage outage;
  /** The newest complete generation of queues, and the newest one at the first connection; 0 before that. */
  private volatile int generation;
  private volatile int firstGeneration;
  private long nextProbe;
  private long nextCheck;
  private long lostBefore;
  private String reportedTrouble = "";
  private boolean stalled;

  Publisher(Broker broker, Outbox outbox, Console console) {
    this.broker = broker;
    this.outbox = outbox;
    this.console = console;
    thread.setDaemon(true);
    outage = new Outage(console);
  }

  /** Starts the thread. */
  void start() {
    thread.start();
  }

  /** Whether there is a connection to the broker. Any thread may call it. */
  boolean isConnected() {
    return connection != null;
  }

  /** Returns the newest complete generation of queues; 0 before the first connection. Any thread may call it. */
  int generation() {
    return generation;
  }

  /**
   * Returns the partition with the generation that 0 stands for, if that is known. A generation that is gone since the
   * queues were made anew becomes the newest one. Any thread may call it.
   */
  Partition resolve(Partition partition) {
    int wanted = partition.generation() == 0 ? firstGeneration : partition.generation();
    int newest = generation;
    return new Partition(newest == 0 ? wanted : Math.min(wanted, newest), partition.number());
  }

  private void run() {
    try {
      while (!closing) {
        long wait = 0;
        try {
          publish();
        } catch (IOException | TimeoutException | RuntimeException e) {
          wait = disconnect(Broker.reason(e));
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

  /** Publishes until {@link #close}, or throws the first failure of the connection. */
  private void publish() throws IOException, TimeoutException, InterruptedException {
    Connection to = broker.connect();
    connection = to;
    listenForAlarms(to);
    probe(to);
    reportConnected();
    outbox.resume();
    while (!closing) {
      if (!to.isOpen()) {
        throw new AlreadyClosedException(to.getCloseReason());
      }
      mend();
      check(to);
      Outbox.Entry entry = outbox.next(POLL_MILLIS);
      if (entry != null) {
        publish(to, entry);
      }
    }
  }

  private void publish(Connection to, Outbox.Entry entry) throws IOException {
    Link link = link(to, entry);
    outbox.sent(link.channel.getNextPublishSeqNo(), entry);
    try {
      Message message = entry.message();
      link.channel.basicPublish(exchange(message.partition()), Integer.toString(message.partition().number()), true,
          properties(message), message.body());
    } catch (AlreadyClosedException e) {
      fail(link, Broker.reason(e));  // the connection is checked before the next message
    }
  }

  private Link link(Connection to, Outbox.Entry entry) throws IOException {
    Link link = links.get(entry.lane);
    if (link == null) {
      try {
        link = open(to, entry.lane);
        links.put(entry.lane, link);
      } catch (IOException | RuntimeException e) {
        outbox.giveBack(entry);
        throw e;
      }
    }
    return link;
  }

  private String exchange(Partition partition) {
    return Broker.EXCHANGE + resolve(partition).generation();
  }

  private static AMQP.BasicProperties properties(Message message) {
    Map<String, Object> headers = new HashMap<>();
    if (!message.recaps().isEmpty()) {
      headers.put(Message.RECAPS, Recap.text(message.recaps()));
    }
    if (!message.continued().isEmpty()) {
      headers.put(Message.CONTINUES, message.continued());
    }
    return new AMQP.BasicProperties.Builder().contentType(Message.CONTENT_TYPE).deliveryMode(2)
        .messageId(message.id().toString()).timestamp(new Date()).headers(headers).build();
  }

  private Link open(Connection to, Outbox.Lane lane) throws IOException {
    Channel channel = to.createChannel();
    if (channel == null) {
      throw new IOException("the broker permits too few channels for the partitions");
    }
    Link link = new Link(lane, channel);
    channel.confirmSelect();
    // A message that no queue takes is returned before it is confirmed. That confirmation must not count.
    channel.addReturnListener((code, text, exchange, key, properties, body) ->
        fail(link, "no queue is bound to " + exchange + ": see packaging/rabbitmq/voip-queues"));
    channel.addShutdownListener(cause -> fail(link, Broker.reason(cause)));
    channel.addConfirmListener(new ConfirmListener() {
      @Override
      public void handleAck(long number, boolean multiple) {
        if (link.trouble == null) {
          outbox.confirmed(lane, number, multiple);
        }
      }

      @Override
      public void handleNack(long number, boolean multiple) {
        fail(link, "a queue takes no more messages");
      }
    });
    return link;
  }

  private void fail(Link link, String why) {
    if (link.trouble == null) {
      link.trouble = why;
      failed.add(link);
    }
  }

  /** Closes the channels that have failed. Their partitions continue over others after a pause. */
  private void mend() {
    for (Link link = failed.poll(); link != null; link = failed.poll()) {
      if (!links.remove(link.lane, link)) {
        continue;
      }
      abort(link.channel);
      outbox.putBack(link.lane);
      link.retryAt = System.nanoTime() + RETRY_NANOS;
      retries.add(link);
      nextProbe = System.nanoTime();  // the queues may have been made anew
      if (!link.trouble.equals(reportedTrouble)) {
        reportedTrouble = link.trouble;
        console.line("cannot publish partition " + link.lane.partition.number() + " to " + broker + ": "
            + link.trouble + "; what comes is kept meanwhile");
      }
    }
    while (!retries.isEmpty() && System.nanoTime() - retries.peek().retryAt >= 0) {
      outbox.resume(retries.remove().lane);
    }
  }

  private static void abort(Channel channel) {
    try {
      channel.abort();
    } catch (IOException e) {
      // The connection is lost as well.
    }
  }

  /** Does what is due every second. */
  private void check(Connection to) throws IOException, TimeoutException {
    long now = System.nanoTime();
    if (now - nextProbe >= 0) {
      probe(to);
    }
    if (now - nextCheck >= 0) {
      nextCheck = now + TimeUnit.SECONDS.toNanos(1);
      reportStalled(outbox.stalled(TimeUnit.SECONDS.toNanos(STALLED_SECONDS)));
    }
  }

  /** Reports the beginning and the end of a time in which partitions are not confirmed. */
  private void reportStalled(List<Partition> late) {
    if (!late.isEmpty() && !stalled) {
      String numbers = late.stream().map(partition -> Integer.toString(partition.number())).distinct()
          .limit(MAX_LISTED).collect(Collectors.joining(", "));
      console.line(broker + " has confirmed nothing for " + STALLED_SECONDS + " s of "
          + Text.count(late.size(), "partition") + " (" + numbers + (late.size() > MAX_LISTED ? ", ..." : "")
          + "); their messages are kept, the others go on");
    } else if (late.isEmpty() && stalled) {
      console.line(broker + " has confirmed all partitions again");
      reportedTrouble = "";
    }
    stalled = !late.isEmpty();
  }

  private void listenForAlarms(Connection to) {
    to.addBlockedListener(new BlockedListener() {
      @Override
      public void handleBlocked(String reason) {
        console.line(broker + " takes nothing for now: " + reason);
      }

      @Override
      public void handleUnblocked() {
        outbox.expectProgress();
        console.line(broker + " takes messages again");
      }
    });
  }

  /** Finds the newest generation of queues that is complete. When the queues were made anew, it is an earlier one. */
  private void probe(Connection to) throws IOException, TimeoutException {
    int newest = generation;
    if (newest > 0 && !exists(to, Broker.EXCHANGE + newest + Broker.READY)) {
      console.line(Broker.EXCHANGE + newest + " is gone: the queues of the broker were made anew");
      newest = 0;
      generation = 0;
    }
    while (exists(to, Broker.EXCHANGE + (newest + 1) + Broker.READY)) {
      newest++;
      console.line("calls are spread over the queues of " + Broker.EXCHANGE + newest);
    }
    if (newest == 0) {
      throw new IOException("there is no exchange " + Broker.EXCHANGE + "1: packaging/rabbitmq/voip-queues makes it");
    }
    if (firstGeneration == 0) {
      firstGeneration = newest;
    }
    generation = newest;
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
    links.clear();
    retries.clear();
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
