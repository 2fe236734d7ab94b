package com.morvin.dom.telephony.sniffer.sample.transport;

import com.morvin.dom.telephony.sniffer.EmbeddedPacketChannel;
import com.morvin.dom.telephony.sniffer.sample.console.Console;
import java.io.IOException;
import java.nio.ByteBuffer;
import java.util.Set;
import java.util.concurrent.TimeUnit;

/**
 * The sniffer in this process. Its main loop runs on a thread of its own from the constructor to {@link #close}. One
 * thread receives; any thread may call the other methods.
 */
public final class EmbeddedTransport implements Transport {
  private static final long POLL_MILLIS = 2;
  private static final int SNIFFER = 1;

  /**
   * The methods of {@link EmbeddedPacketChannel} that the transport uses. A test implements them without the library.
   */
  public interface Engine {
    /** Captures until {@link #breakMainLoop}. */
    void mainLoop();

    /** Ends {@link #mainLoop} from another thread. */
    void breakMainLoop();

    /** Copies the oldest frames into a direct buffer, from its index 0, and returns their length in bytes. */
    int getPackets(ByteBuffer buffer);

    /** Queues a command and returns its length, or 0 when it is invalid. */
    int sendRequest(byte[] command);
  }

  private final Engine engine;
  private final Thread sniffing;
  private volatile Throwable failure;
  private final BlockBuffer received = new BlockBuffer();

  /** Starts the main loop of an engine. */
  public EmbeddedTransport(Engine engine) {
    this.engine = engine;
    sniffing = new Thread(engine::mainLoop, "sniffer");
    sniffing.setDaemon(true);
    sniffing.setUncaughtExceptionHandler((thread, thrown) -> failure = thrown);
    sniffing.start();
  }

  /**
   * Starts the sniffer of this process.
   *
   * @param devices as in {@link EmbeddedPacketChannel#nicDevice}
   * @param settings as in {@link EmbeddedPacketChannel#settings}
   */
  public static EmbeddedTransport on(
      String devices, String filter, boolean trace, String settings, Console console) {
    EmbeddedPacketChannel channel = new EmbeddedPacketChannel();
    channel.nicDevice = devices;
    channel.packetFilter = filter;
    channel.traceSignalling = trace;
    channel.settings = settings;
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
      public int getPackets(ByteBuffer buffer) {
        return channel.getPackets(buffer);
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
  public FrameBlock receive(long timeoutMillis) throws IOException, InterruptedException {
    long deadline = System.nanoTime() + TimeUnit.MILLISECONDS.toNanos(timeoutMillis);
    while (true) {
      boolean running = sniffing.isAlive();
      int length = fetch();
      FrameBlock block = received.take(SNIFFER, 0);
      if (block != null) {
        return block;
      }
      if (length > 0) {
        continue;
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

  /** Appends the oldest frames to those in the buffer, and returns the length of the new ones in bytes. */
  private int fetch() {
    ByteBuffer room = received.room();
    int length = engine.getPackets(room.slice());
    room.position(room.position() + length);
    return length;
  }

  @Override
  public void send(int sniffer, Command command) {
    engine.sendRequest(command.bytes());
  }

  @Override
  public int sessions() {
    return 1;
  }

  @Override
  public Set<Integer> sniffers() {
    return sniffing.isAlive() ? Set.of(SNIFFER) : Set.of();
  }

  @Override
  public boolean waitsForTraffic() {
    return true;
  }

  /** Repeats the request to end, because it has no effect before the thread has entered the main loop. */
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
