package com.morvin.dom.telephony.sniffer.sample.transport;

import com.morvin.dom.telephony.sniffer.sample.console.Console;
import java.io.IOException;
import java.net.InetSocketAddress;
import java.net.ProtocolException;
import java.net.StandardSocketOptions;
import java.nio.ByteBuffer;
import java.nio.channels.SelectionKey;
import java.nio.channels.Selector;
import java.nio.channels.ServerSocketChannel;
import java.nio.channels.SocketChannel;
import java.util.ArrayDeque;
import java.util.Map;
import java.util.Queue;
import java.util.Set;
import java.util.concurrent.ConcurrentHashMap;

/**
 * Listens for sniffers on a TCP port. A sniffer connects again after it has lost its connection. One thread receives;
 * any thread may call the other methods.
 */
public final class TcpTransport implements Transport {
  private static final int MAX_CONNECTIONS = 16;
  private static final int RECEIVE_BUFFER = 8 << 20;
  private static final int MIN_RECEIVE_BUFFER = 2 << 20;
  /** The number of commands that are sent together. */
  private static final int MAX_COMMANDS = 256;

  private final Console console;
  private final Selector selector = Selector.open();
  private final ServerSocketChannel listener = ServerSocketChannel.open();
  private final Map<Integer, Connection> connections = new ConcurrentHashMap<>();
  private final Queue<FrameBlock> blocks = new ArrayDeque<>();
  private volatile int sessions;
  private volatile boolean hungUp;
  /** The line for the operator when the port is first read; null afterwards. */
  private String announcement;

  /** Listens on an address; port 0 stands for any free port. */
  public TcpTransport(InetSocketAddress address, Console console) throws IOException {
    this.console = console;
    listener.setOption(StandardSocketOptions.SO_REUSEADDR, true);
    enlargeReceiveBuffer();
    listener.bind(address);
    listener.configureBlocking(false);
    listener.register(selector, SelectionKey.OP_ACCEPT);
    announcement = "waiting for the sniffer on TCP " + Endpoint.of((InetSocketAddress) listener.getLocalAddress());
  }

  /**
   * Requests a large receive buffer, unless the kernel gives only a small one: a request ends the automatic growth of
   * the buffer, which would become larger.
   */
  private void enlargeReceiveBuffer() throws IOException {
    int given;
    try (ServerSocketChannel probe = ServerSocketChannel.open()) {
      given = probe.setOption(StandardSocketOptions.SO_RCVBUF, RECEIVE_BUFFER)
          .getOption(StandardSocketOptions.SO_RCVBUF);
    }
    String warning = ReceiveBuffer.warning(RECEIVE_BUFFER, given);
    if (given >= MIN_RECEIVE_BUFFER) {
      listener.setOption(StandardSocketOptions.SO_RCVBUF, RECEIVE_BUFFER);
    }
    if (!warning.isEmpty()) {
      console.line(warning);
    }
  }

  /** Returns the port that it listens on. */
  public int port() {
    return listener.socket().getLocalPort();
  }

  @Override
  public FrameBlock receive(long timeoutMillis) throws IOException {
    if (announcement != null) {
      console.line(announcement);
      announcement = null;
    }
    if (blocks.isEmpty()) {
      selector.select(this::serve, Math.max(1, timeoutMillis));
    }
    return blocks.poll();
  }

  @Override
  public boolean hasBlock() {
    return !blocks.isEmpty();
  }

  private void serve(SelectionKey key) {
    if (key.isValid() && key.isAcceptable()) {
      accept();
    } else if (key.isValid()) {
      ((Connection) key.attachment()).read();
    }
  }

  private void accept() {
    SocketChannel channel = null;
    try {
      channel = listener.accept();
      if (channel == null) {
        return;
      }
      String peer = Endpoint.of((InetSocketAddress) channel.getRemoteAddress()).toString();
      if (connections.size() == MAX_CONNECTIONS) {
        console.line("refused a connection from " + peer + ": " + MAX_CONNECTIONS + " are open");
        channel.close();
        return;
      }
      channel.configureBlocking(false);
      channel.setOption(StandardSocketOptions.TCP_NODELAY, true);
      channel.setOption(StandardSocketOptions.SO_KEEPALIVE, true);
      Connection connection = new Connection(sessions + 1, channel, peer);
      channel.register(selector, SelectionKey.OP_READ, connection);
      connections.put(connection.number, connection);
      sessions++;
      if (hungUp) {
        connection.shutdownOutput();
      }
      console.line("sniffer connected from " + peer);
    } catch (IOException e) {
      console.line("a connection failed at once: " + e.getMessage());
      close(channel);
    }
  }

  @Override
  public void send(int sniffer, Command command) {
    Connection connection = connections.get(sniffer);
    if (connection != null && !hungUp) {
      connection.add(command);
    }
  }

  @Override
  public void flush() {
    connections.values().forEach(Connection::flush);
  }

  @Override
  public Set<Integer> sniffers() {
    return Set.copyOf(connections.keySet());
  }

  @Override
  public int sessions() {
    return sessions;
  }

  /** Half-closes the connections. A sniffer that reads the end of the commands closes its side after its frames. */
  @Override
  public boolean hangUp() {
    hungUp = true;
    close(listener);
    connections.values().forEach(Connection::shutdownOutput);
    return true;
  }

  @Override
  public String nameOf(int sniffer) {
    Connection connection = connections.get(sniffer);
    return "the sniffer" + (connection == null ? "" : " at " + connection.peer);
  }

  @Override
  public void close() {
    connections.values().forEach(connection -> close(connection.channel));
    close(listener);
    close(selector);
  }

  private static void close(java.io.Closeable resource) {
    try {
      if (resource != null) {
        resource.close();
      }
    } catch (IOException ignored) {
      // There is nothing left to do with it.
    }
  }

  private final class Connection {
    private final int number;
    private final SocketChannel channel;
    private final String peer;
    private final BlockBuffer received = new BlockBuffer();
    /** The commands that are not sent yet. */
    private final ByteBuffer commands = ByteBuffer.allocate(MAX_COMMANDS * Command.LENGTH);

    Connection(int number, SocketChannel channel, String peer) {
      this.number = number;
      this.channel = channel;
      this.peer = peer;
    }

    void read() {
      try {
        if (channel.read(received.room()) < 0) {
          end("sniffer disconnected: " + peer);
          return;
        }
        FrameBlock block = received.take(number, 0);
        if (block != null) {
          blocks.add(block);
        }
      } catch (ProtocolException e) {
        end("closed the connection from " + peer + ", which is no sniffer: " + e.getMessage());
      } catch (IOException e) {
        end("sniffer lost: " + peer + ": " + e.getMessage());
      }
    }

    synchronized void add(Command command) {
      byte[] bytes = command.bytes();
      if (commands.remaining() < bytes.length) {
        flush();
      }
      commands.put(bytes);
    }

    /** Closes the connection when a command does not fit, because the rest of it would be read as another command. */
    synchronized void flush() {
      if (commands.position() == 0) {
        return;
      }
      try {
        channel.write(commands.flip());
        if (commands.hasRemaining()) {
          end("closed the connection from " + peer + ", which takes no commands");
        }
      } catch (IOException e) {
        end("sniffer lost: " + peer + ": " + e.getMessage());
      }
      commands.clear();
    }

    synchronized void shutdownOutput() {
      flush();
      try {
        channel.shutdownOutput();
      } catch (IOException e) {
        end("sniffer lost: " + peer + ": " + e.getMessage());
      }
    }

    private void end(String why) {
      if (connections.remove(number, this)) {
        close(channel);
        console.line(why);
      }
    }
  }
}
