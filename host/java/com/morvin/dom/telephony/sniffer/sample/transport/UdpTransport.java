package com.morvin.dom.telephony.sniffer.sample.transport;

import com.morvin.dom.telephony.sniffer.sample.console.Console;
import java.io.IOException;
import java.net.InetSocketAddress;
import java.net.ProtocolException;
import java.net.SocketAddress;
import java.net.StandardSocketOptions;
import java.nio.ByteBuffer;
import java.nio.channels.DatagramChannel;
import java.nio.channels.SelectionKey;
import java.nio.channels.Selector;
import java.util.ArrayDeque;
import java.util.Map;
import java.util.Queue;
import java.util.Set;
import java.util.concurrent.ConcurrentHashMap;
import java.util.concurrent.TimeUnit;

/**
 * Receives frames as UDP datagrams, one frame in each. The address of a sniffer is known from its first frame, which it
 * sends when it has something to forward. One thread receives; any thread may call the other methods.
 *
 * <p>A new sender address is a new sniffer or a restarted one. Anyone can send datagrams, and each new sniffer is sent
 * the commands of all calls. So at most 16 senders count as sniffers, and at most 4 new ones in 10 s. Frames of other
 * senders are delivered under number 0, which takes no commands.
 */
public final class UdpTransport implements Transport {
  private static final int RECEIVE_BUFFER = 16 << 20;
  private static final int MAX_SNIFFERS = 16;
  private static final int MAX_NEW = 4;
  private static final long NEW_NANOS = TimeUnit.SECONDS.toNanos(10);

  /** One sender address. */
  private static final class Sniffer {
    private final int number;
    private final InetSocketAddress address;
    private final BlockBuffer received = new BlockBuffer();

    Sniffer(int number, InetSocketAddress address) {
      this.number = number;
      this.address = address;
    }
  }

  private final Console console;
  private final DatagramChannel channel = DatagramChannel.open();
  private final Selector selector = Selector.open();
  private final ByteBuffer datagram = ByteBuffer.allocateDirect(Frame.MAX_LENGTH);
  private final Queue<FrameBlock> blocks = new ArrayDeque<>();
  private final Map<SocketAddress, Sniffer> byAddress = new ConcurrentHashMap<>();
  private final Map<Integer, Sniffer> byNumber = new ConcurrentHashMap<>();
  private final Sniffer strangers = new Sniffer(0, null);
  private volatile int sessions;
  private long newSince;
  private int newCount;
  private boolean complained;
  private boolean refused;
  /** The line for the operator when the port is first read; null afterwards. */
  private String announcement;

  /** Receives on an address; port 0 stands for any free port. */
  public UdpTransport(InetSocketAddress address, Console console) throws IOException {
    this.console = console;
    channel.setOption(StandardSocketOptions.SO_RCVBUF, RECEIVE_BUFFER);
    String warning = ReceiveBuffer.warning(RECEIVE_BUFFER, channel.getOption(StandardSocketOptions.SO_RCVBUF));
    if (!warning.isEmpty()) {
      console.line(warning);
    }
    channel.bind(address);
    channel.configureBlocking(false);
    channel.register(selector, SelectionKey.OP_READ);
    newSince = System.nanoTime();
    announcement = "waiting for the sniffer on UDP " + Endpoint.of((InetSocketAddress) channel.getLocalAddress());
  }

  /** Returns the port that it receives on. */
  public int port() {
    return channel.socket().getLocalPort();
  }

  @Override
  public FrameBlock receive(long timeoutMillis) throws IOException {
    if (announcement != null) {
      console.line(announcement);
      announcement = null;
    }
    if (blocks.isEmpty() && !read()) {
      selector.select(Math.max(1, timeoutMillis));
      selector.selectedKeys().clear();
      read();
    }
    return blocks.poll();
  }

  @Override
  public boolean hasBlock() {
    return !blocks.isEmpty();
  }

  /** Reads the waiting datagrams, at most one block of them. Returns false when there is none. */
  private boolean read() throws IOException {
    Sniffer last = null;
    SocketAddress from = channel.receive(datagram.clear());
    boolean any = from != null;
    for (; from != null; from = channel.receive(datagram.clear())) {
      Sniffer sniffer = snifferAt((InetSocketAddress) from);
      if (last != null && last != sniffer) {
        cut(last);  // the frames of several sniffers stay in order
      }
      last = sniffer;
      add(sniffer.received.room());
      if (sniffer.received.room().remaining() < Frame.MAX_LENGTH) {
        break;
      }
    }
    if (last != null) {
      cut(last);
    }
    return any;
  }

  private void cut(Sniffer sniffer) throws ProtocolException {
    FrameBlock block = sniffer.received.take(sniffer.number, 0);
    if (block != null) {
      blocks.add(block);
    }
  }

  /** Adds the datagram if it is a frame. */
  private void add(ByteBuffer frames) {
    try {
      if (Frame.end(datagram, 0) != datagram.position()) {
        throw new ProtocolException("a frame's length is not that of its datagram");
      }
      frames.put(datagram.flip());
    } catch (ProtocolException e) {
      if (!complained) {
        console.line("ignoring datagrams that are no frames: " + e.getMessage());
        complained = true;
      }
    }
  }

  private Sniffer snifferAt(InetSocketAddress address) {
    Sniffer known = byAddress.get(address);
    if (known != null) {
      return known;
    }
    long now = System.nanoTime();
    if (now - newSince >= NEW_NANOS) {
      newSince = now;
      newCount = 0;
    }
    if (newCount == MAX_NEW || byAddress.size() == MAX_SNIFFERS) {
      if (!refused) {
        console.line("many senders of datagrams: " + Endpoint.of(address) + " and others get no commands for now");
        refused = true;
      }
      return strangers;
    }
    newCount++;
    Sniffer sniffer = new Sniffer(sessions + 1, address);
    byAddress.put(address, sniffer);
    byNumber.put(sniffer.number, sniffer);
    sessions++;
    console.line("sniffer sends from " + Endpoint.of(address));
    return sniffer;
  }

  @Override
  public void send(int number, Command command) {
    Sniffer sniffer = byNumber.get(number);
    if (sniffer == null) {
      return;
    }
    try {
      channel.send(ByteBuffer.wrap(command.bytes()), sniffer.address);
    } catch (IOException e) {
      console.line("a command to " + Endpoint.of(sniffer.address) + " was not sent: " + e.getMessage());
    }
  }

  @Override
  public Set<Integer> sniffers() {
    return Set.copyOf(byNumber.keySet());
  }

  @Override
  public int sessions() {
    return sessions;
  }

  @Override
  public String nameOf(int number) {
    Sniffer sniffer = byNumber.get(number);
    return "the sniffer" + (sniffer == null ? "" : " at " + Endpoint.of(sniffer.address));
  }

  /** Removes a sniffer that was stopped, or was restarted and sends from another port. */
  @Override
  public void forget(int number) {
    Sniffer sniffer = byNumber.remove(number);
    if (sniffer != null) {
      byAddress.remove(sniffer.address);
    }
  }

  @Override
  public boolean losesCommands() {
    return true;
  }

  @Override
  public void close() {
    try (channel; selector) {
      blocks.clear();
    } catch (IOException ignored) {
      // There is nothing left to do with them.
    }
  }
}
