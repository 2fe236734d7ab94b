package com.morvin.dom.telephony.sniffer.sample.transport;

import com.morvin.dom.telephony.sniffer.sample.console.Console;
import com.morvin.dom.telephony.sniffer.sample.console.Text;
import java.io.IOException;
import java.net.DatagramPacket;
import java.net.DatagramSocket;
import java.net.InetSocketAddress;
import java.net.ProtocolException;
import java.net.SocketAddress;
import java.net.SocketTimeoutException;
import java.nio.ByteBuffer;
import java.util.Map;
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
    private final CaptureTimes times = new CaptureTimes();

    Sniffer(int number, InetSocketAddress address) {
      this.number = number;
      this.address = address;
    }
  }

  private final Console console;
  private final DatagramSocket socket;
  private final Map<SocketAddress, Sniffer> byAddress = new ConcurrentHashMap<>();
  private final Map<Integer, Sniffer> byNumber = new ConcurrentHashMap<>();
  private final byte[] bytes = new byte[Frame.MAX_LENGTH];
  private final Sniffer strangers = new Sniffer(0, null);
  private volatile int sessions;
  private long frameNumber;
  private int timeout = -1;
  private long newSince;
  private int newCount;
  private boolean complained;
  private boolean refused;

  /** Receives on an address; port 0 stands for any free port. */
  public UdpTransport(InetSocketAddress address, Console console) throws IOException {
    this.console = console;
    socket = new DatagramSocket(null);
    socket.setReceiveBufferSize(RECEIVE_BUFFER);
    String warning = ReceiveBuffer.warning(RECEIVE_BUFFER, socket.getReceiveBufferSize());
    if (!warning.isEmpty()) {
      console.line(warning);
    }
    socket.bind(address);
    newSince = System.nanoTime();
    console.line("waiting for the sniffer on UDP " + Text.of((InetSocketAddress) socket.getLocalSocketAddress()));
  }

  /** Returns the port that it receives on. */
  public int port() {
    return socket.getLocalPort();
  }

  /** Also returns null after a datagram that is not a frame. */
  @Override
  public Received receive(long timeoutMillis) throws IOException {
    try {
      if (timeout != timeoutMillis) {
        timeout = (int) Math.max(1, timeoutMillis);
        socket.setSoTimeout(timeout);
      }
      DatagramPacket datagram = new DatagramPacket(bytes, bytes.length);
      socket.receive(datagram);
      Frame frame = Frame.of(ByteBuffer.wrap(bytes, 0, datagram.getLength()));
      Sniffer sniffer = snifferAt((InetSocketAddress) datagram.getSocketAddress());
      long captured = sniffer.times.of(frame);
      return captured < 0 ? null : new Received(frame, sniffer.number, captured, ++frameNumber);
    } catch (SocketTimeoutException e) {
      return null;
    } catch (ProtocolException e) {
      if (!complained) {
        console.line("ignoring datagrams that are no frames: " + e.getMessage());
        complained = true;
      }
      return null;
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
        console.line("many senders of datagrams: " + Text.of(address) + " and others get no commands for now");
        refused = true;
      }
      return strangers;
    }
    newCount++;
    Sniffer sniffer = new Sniffer(sessions + 1, address);
    byAddress.put(address, sniffer);
    byNumber.put(sniffer.number, sniffer);
    sessions++;
    console.line("sniffer sends from " + Text.of(address));
    return sniffer;
  }

  @Override
  public void send(int number, Command command) {
    Sniffer sniffer = byNumber.get(number);
    if (sniffer == null) {
      return;
    }
    try {
      byte[] command7 = command.bytes();
      socket.send(new DatagramPacket(command7, command7.length, sniffer.address));
    } catch (IOException e) {
      console.line("a command to " + Text.of(sniffer.address) + " was not sent: " + e.getMessage());
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
    return "the sniffer" + (sniffer == null ? "" : " at " + Text.of(sniffer.address));
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
    socket.close();
  }
}
