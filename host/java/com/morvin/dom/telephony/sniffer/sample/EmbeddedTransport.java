package com.morvin.dom.telephony.sniffer.sample;

import com.morvin.dom.telephony.sniffer.EmbeddedPacketChannel;
import java.io.IOException;
import java.net.ProtocolException;
import java.nio.ByteBuffer;
import java.util.concurrent.TimeUnit;

/** The sniffer in this process, running on a thread of its own. */
final class EmbeddedTransport implements Transport {
  private static final long POLL_MILLIS = 1;

  /** What this transport needs of the sniffer; a test can stand in for it. */
  interface Engine {
    void mainLoop();

    void breakMainLoop();

    int getPacket(byte[] buffer);

    int sendRequest(byte[] command);
  }

  private final Engine engine;
  private final Thread sniffing;
  private volatile Throwable failure;
  private final byte[] buffer = new byte[EmbeddedPacketChannel.MAX_FRAME];

  EmbeddedTransport(Engine engine) {
    this.engine = engine;
    sniffing = new Thread(engine::mainLoop, "sniffer");
    sniffing.setDaemon(true);
    sniffing.setUncaughtExceptionHandler((thread, thrown) -> failure = thrown);
    sniffing.start();
  }

  static EmbeddedTransport on(String devices, String filter, boolean trace, Console console) {
    EmbeddedPacketChannel channel = new EmbeddedPacketChannel();
    channel.nicDevice = devices;
    channel.packetFilter = filter;
    channel.traceSignalling = trace;
    console.line("sniffing on " + devices + ", filter \"" + filter + "\"");
    return new EmbeddedTransport(engineOf(channel));
  }

  private static Engine engineOf(EmbeddedPacketChannel channel) {
    return new Engine() {
      @Override
      public void mainLoop() {
        channel.mainLoop();
      }

      @Override
      public void breakMainLoop() {
        channel.breakMainLoop();
      }

      @Override
      public int getPacket(byte[] buffer) {
        synchronized (channel) {
          return channel.getPacket(buffer);
        }
      }

      @Override
      public int sendRequest(byte[] command) {
        synchronized (channel) {
          return channel.sendRequest(command);
        }
      }
    };
  }

  @Override
  public Frame receive(long timeoutMillis) throws IOException, InterruptedException {
    long deadline = System.nanoTime() + TimeUnit.MILLISECONDS.toNanos(timeoutMillis);
    while (true) {
      boolean running = sniffing.isAlive();
      Frame frame = poll();
      if (frame != null) {
        return frame;
      }
      if (!running) {
        throw new IOException("the sniffer has stopped" + (failure == null ? "" : ": " + failure)
            + "\nIts messages above tell why: mostly a device or a filter that it cannot use.");
      }
      if (System.nanoTime() - deadline >= 0) {
        return null;
      }
      Thread.sleep(POLL_MILLIS);
    }
  }

  private Frame poll() throws ProtocolException {
    int length = engine.getPacket(buffer);
    return length == 0 ? null : Frame.of(ByteBuffer.wrap(buffer, 0, length));
  }

  @Override
  public void send(Command command) {
    engine.sendRequest(command.bytes());
  }

  @Override
  public int sessions() {
    return 1;
  }

  @Override
  public boolean connected() {
    return sniffing.isAlive();
  }

  @Override
  public boolean waitsForTraffic() {
    return true;
  }

  /** Asks until the thread has ended, since it may not have entered the main loop when it is first asked. */
  @Override
  public void close() {
    boolean interrupted = false;
    while (sniffing.isAlive()) {
      engine.breakMainLoop();
      try {
        sniffing.join(100);
      } catch (InterruptedException e) {
        interrupted = true;
      }
    }
    if (interrupted) {
      Thread.currentThread().interrupt();
    }
  }
}
