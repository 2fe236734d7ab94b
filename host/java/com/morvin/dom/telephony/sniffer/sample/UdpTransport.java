package com.morvin.dom.telephony.sniffer.sample;

import java.io.IOException;
import java.net.DatagramPacket;
import java.net.DatagramSocket;
import java.net.InetSocketAddress;
import java.net.ProtocolException;
import java.net.SocketAddress;
import java.net.SocketException;
import java.nio.ByteBuffer;
import java.util.concurrent.ArrayBlockingQueue;
import java.util.concurrent.BlockingQueue;
import java.util.concurrent.TimeUnit;

/**
 * Takes one frame from each datagram. The sniffer sends nothing before it has something to forward, and its port is
 * known only then; so the first frame tells where commands go. Another sender address means that the sniffer was
 * restarted.
 */
final class UdpTransport implements Transport {
  private static final int RECEIVE_BUFFER = 8 << 20;

  /** A frame with where it came from, as the reading thread passes it on. */
  private record Received(Frame frame, SocketAddress sender) {}

  private final Console console;
  private final DatagramSocket socket;
  private final BlockingQueue<Received> frames = new ArrayBlockingQueue<>(16384);
  private SocketAddress sniffer;
  private int sessions;

  UdpTransport(InetSocketAddress address, Console console) throws IOException {
    this.console = console;
    socket = new DatagramSocket(null);
    socket.setReceiveBufferSize(RECEIVE_BUFFER);
    socket.bind(address);
    Thread reader = new Thread(this::read, "udp-reader");
    reader.setDaemon(true);
    reader.start();
    console.line("waiting for the sniffer on UDP " + Text.of((InetSocketAddress) socket.getLocalSocketAddress()));
  }

  int port() {
    return socket.getLocalPort();
  }

  /** A thread of its own empties the socket, so that a slow disk costs no datagram. */
  private void read() {
    byte[] bytes = new byte[Frame.MAX_LENGTH];
    boolean complained = false;
    while (!socket.isClosed()) {
      try {
        DatagramPacket datagram = new DatagramPacket(bytes, bytes.length);
        socket.receive(datagram);
        Frame frame = Frame.of(ByteBuffer.wrap(bytes, 0, datagram.getLength()));
        frames.put(new Received(frame, datagram.getSocketAddress()));
      } catch (ProtocolException e) {
        if (!complained) {
          console.line("ignoring datagrams that are no frames: " + e.getMessage());
          complained = true;
        }
      } catch (SocketException e) {
        if (!socket.isClosed()) {
          console.line("receiving on UDP failed: " + e.getMessage());
        }
      } catch (IOException e) {
        console.line("receiving on UDP failed: " + e.getMessage());
      } catch (InterruptedException e) {
        return;
      }
    }
  }

  @Override
  public Frame receive(long timeoutMillis) throws InterruptedException {
    Received received = frames.poll(timeoutMillis, TimeUnit.MILLISECONDS);
    if (received == null) {
      return null;
    }
    if (!received.sender.equals(sniffer)) {
      sniffer = received.sender;
      sessions++;
      console.line("sniffer sends from " + Text.of((InetSocketAddress) sniffer));
    }
    return received.frame;
  }

  @Override
  public void send(Command command) {
    if (sniffer == null) {
      return;
    }
    try {
      byte[] bytes = command.bytes();
      socket.send(new DatagramPacket(bytes, bytes.length, sniffer));
    } catch (IOException e) {
      console.line("a command to " + Text.of((InetSocketAddress) sniffer) + " was not sent: " + e.getMessage());
    }
  }

  @Override
  public int sessions() {
    return sessions;
  }

  @Override
  public boolean connected() {
    return sniffer != null;
  }

  @Override
  public boolean losesCommands() {
    return true;
  }

  @Override
  public void close() {
    socket.close();
  }
}
