package com.morvin.dom.telephony.sniffer.sample;

import java.io.IOException;
import java.net.InetSocketAddress;
import java.net.StandardSocketOptions;
import java.nio.ByteBuffer;
import java.nio.channels.SelectionKey;
import java.nio.channels.Selector;
import java.nio.channels.ServerSocketChannel;
import java.nio.channels.SocketChannel;
import java.util.ArrayDeque;
import java.util.ArrayList;
import java.util.List;
import java.util.Queue;

/** Listens for the sniffer, which connects, and connects again whenever the link was lost. */
final class TcpTransport implements Transport {
  /** Several sniffers may record to one recorder: each gets all commands. */
  private static final int MAX_CONNECTIONS = 16;

  private final Console console;
  private final Selector selector = Selector.open();
  private final ServerSocketChannel listener = ServerSocketChannel.open();
  private final List<Connection> connections = new ArrayList<>();
  private final Queue<Frame> frames = new ArrayDeque<>();
  private int sessions;

  TcpTransport(InetSocketAddress address, Console console) throws IOException {
    this.console = console;
    listener.setOption(StandardSocketOptions.SO_REUSEADDR, true);
    listener.bind(address);
    listener.configureBlocking(false);
    listener.register(selector, SelectionKey.OP_ACCEPT);
    console.line("waiting for the sniffer on TCP " + Text.of((InetSocketAddress) listener.getLocalAddress()));
  }

  int port() {
    return listener.socket().getLocalPort();
  }

  @Override
  public Frame receive(long timeoutMillis) throws IOException {
    if (frames.isEmpty()) {
      selector.select(this::serve, Math.max(1, timeoutMillis));
    }
    return frames.poll();
  }

  private void serve(SelectionKey key) {
    if (key.isAcceptable()) {
      accept();
    } else {
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
      String peer = Text.of((InetSocketAddress) channel.getRemoteAddress());
      if (connections.size() == MAX_CONNECTIONS) {
        console.line("refused a connection from " + peer + ": " + MAX_CONNECTIONS + " are open");
        channel.close();
        return;
      }
      channel.configureBlocking(false);
      channel.setOption(StandardSocketOptions.TCP_NODELAY, true);
      channel.setOption(StandardSocketOptions.SO_KEEPALIVE, true);
      Connection connection = new Connection(channel, peer);
      channel.register(selector, SelectionKey.OP_READ, connection);
      connections.add(connection);
      sessions++;
      console.line("sniffer connected from " + peer);
    } catch (IOException e) {
      console.line("a connection failed at once: " + e.getMessage());
      close(channel);
    }
  }

  @Override
  public void send(Command command) {
    for (Connection connection : List.copyOf(connections)) {
      connection.write(command);
    }
  }

  @Override
  public int sessions() {
    return sessions;
  }

  @Override
  public boolean connected() {
    return !connections.isEmpty();
  }

  @Override
  public void close() {
    connections.forEach(connection -> close(connection.channel));
    close(listener);
    close(selector);
  }

  private static void close(java.io.Closeable resource) {
    try {
      if (resource != null) {
        resource.close();
      }
    } catch (IOException ignored) {
      // Nothing is left to save.
    }
  }

  private final class Connection {
    private final SocketChannel channel;
    private final String peer;
    private final ByteBuffer received = ByteBuffer.allocateDirect(4 * Frame.MAX_LENGTH);

    Connection(SocketChannel channel, String peer) {
      this.channel = channel;
      this.peer = peer;
    }

    void read() {
      try {
        if (channel.read(received) < 0) {
          end("sniffer disconnected: " + peer);
          return;
        }
        received.flip();
        for (Frame frame = Frame.take(received); frame != null; frame = Frame.take(received)) {
          frames.add(frame);
        }
        received.compact();
      } catch (java.net.ProtocolException e) {
        end("closed the connection from " + peer + ", which is no sniffer: " + e.getMessage());
      } catch (IOException e) {
        end("sniffer lost: " + peer + ": " + e.getMessage());
      }
    }

    /** Half a command would be worse than none, so a sniffer that takes no more commands is let go. */
    void write(Command command) {
      try {
        ByteBuffer bytes = ByteBuffer.wrap(command.bytes());
        channel.write(bytes);
        if (bytes.hasRemaining()) {
          end("closed the connection from " + peer + ", which takes no commands");
        }
      } catch (IOException e) {
        end("sniffer lost: " + peer + ": " + e.getMessage());
      }
    }

    private void end(String why) {
      connections.remove(this);
      close(channel);
      console.line(why);
    }
  }
}
