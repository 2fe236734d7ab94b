import com.morvin.dom.telephony.sniffer.EmbeddedPacketChannel;
import java.io.FileOutputStream;
import java.io.OutputStream;
import java.util.HexFormat;
import java.util.concurrent.atomic.AtomicBoolean;

/**
 * A host process for the native library, driven by test_jvm.py: a scenario and its arguments. Also measures; see
 * cost().
 */
public final class VmHost {
  private final EmbeddedPacketChannel channel = new EmbeddedPacketChannel();
  private final byte[] buffer = new byte[EmbeddedPacketChannel.MAX_FRAME];
  private Thread loop;

  public static void main(String[] words) throws Exception {
    VmHost host = new VmHost();
    switch (words[0]) {
      case "record" -> host.record(words);
      case "lifecycle" -> host.lifecycle(words[1], words[2]);
      case "load" -> host.load(words[1], Integer.parseInt(words[2]));
      case "cost" -> host.cost(words[1], Integer.parseInt(words[2]));
      case "exit" -> host.exit(words[1]);
      default -> throw new IllegalArgumentException(words[0]);
    }
  }

  /** record DEVICES FILTER PACKET_COUNT FRAMES FILE COMMAND...: writes so many frames one behind the other. */
  private void record(String[] words) throws Exception {
    channel.packetFilter = words[2];
    channel.packetCount = Integer.parseInt(words[3]);
    int frames = Integer.parseInt(words[4]);
    for (int i = 6; i < words.length; i++) {
      synchronized (channel) {
        channel.sendRequest(HexFormat.of().parseHex(words[i]));
      }
    }
    start(words[1]);
    System.out.println("sniffing");
    try (OutputStream file = new FileOutputStream(words[5])) {
      for (int i = 0; i < frames; i++) {
        file.write(buffer, 0, next());
      }
    }
    check(loop.isAlive(), "mainLoop waits for breakMainLoop");
    stop();
  }

  /** Starts, stops and misuse, in one process. */
  private void lifecycle(String idle, String call) throws Exception {
    channel.breakMainLoop();
    check(channel.getPacket(buffer) == 0, "no frame");
    check(channel.getPacket(null) == 0 && channel.sendRequest(null) == 0, "null arrays");
    check(channel.sendRequest(new byte[6]) == 0 && channel.sendRequest(new byte[9]) == 9, "short and long commands");
    channel.mainLoop();  // no device: a null field

    channel.packetFilter = "no such filter";
    channel.nicDevice = idle;
    channel.mainLoop();

    channel.packetFilter = "udp";
    for (int round = 0; round < 10; round++) {
      start(idle);
      check(channel.getPacket(new byte[0]) == 0, "a frame stays when the array is too short");
      int length = next();
      check(length > 15 && buffer[2] == 1, "a SIP frame");
      channel.mainLoop();  // a second one returns at once
      check(loop.isAlive(), "the first goes on");
      stop();
    }
    // Under load, with a thread that sits in getPacket and one that holds the monitor while it stops.
    AtomicBoolean ended = new AtomicBoolean();
    Thread reader = new Thread(() -> {
      byte[] small = new byte[2048];
      while (!ended.get()) {
        channel.getPacket(small);
      }
    });
    reader.start();
    for (int round = 0; round < 10; round++) {
      start(call);
      Thread.sleep(20 * round);
      synchronized (channel) {
        channel.breakMainLoop();
      }
      stop();
    }
    ended.set(true);
    reader.join();
    channel.breakMainLoop();
    System.out.println("lived");
  }

  /** All frames of a file at full speed: none lost, in order. */
  private void load(String device, int frames) throws Exception {
    long begin = System.nanoTime();
    start(device);
    for (int i = 0; i < frames; i++) {
      next();
      int number = Integer.parseInt(new String(buffer, 15 + "INVITE sip:".length(), 6));
      check(number == i, "frame " + i + " is number " + number);
    }
    System.out.printf("%,.0f frames a second%n", frames / ((System.nanoTime() - begin) / 1e9));
    stop();
  }

  /**
   * What getPacket costs a frame. By hand: SNIFFER_REPLAY_PACE=full java -Djava.library.path=build/release/sniffer -cp
   * build/release/host/voip-sniffer.jar:build/release/tests/integration/jvm/classes VmHost cost file:FILE FRAMES
   */
  private void cost(String device, int frames) throws Exception {
    for (int size : new int[] {2048, 65536, 2048, 65536}) {
      byte[] array = new byte[size];
      start(device);
      Thread.sleep(3000);  // all frames wait
      long begin = System.nanoTime();
      int taken = 0;
      while (taken < frames && channel.getPacket(array) > 0) {
        taken++;
      }
      System.out.printf("%d bytes: %.0f ns a frame%n", size, (System.nanoTime() - begin) / (double) taken);
      stop();
    }
  }

  private void exit(String device) throws Exception {
    start(device);
    next();
    System.exit(7);
  }

  private void start(String device) {
    channel.nicDevice = device;
    loop = new Thread(channel::mainLoop, "mainLoop");
    loop.start();
  }

  private void stop() throws InterruptedException {
    // A break that comes before mainLoop has begun does nothing, so it is repeated.
    do {
      channel.breakMainLoop();
      loop.join(100);
    } while (loop.isAlive());
  }

  /** Waits for a frame; the answer is its length. */
  private int next() throws InterruptedException {
    long deadline = System.nanoTime() + 60_000_000_000L;
    while (true) {
      int length;
      synchronized (channel) {
        length = channel.getPacket(buffer);
      }
      if (length > 0) {
        return length;
      }
      check(System.nanoTime() < deadline, "a frame within a minute");
      Thread.sleep(1);
    }
  }

  private static void check(boolean holds, String what) {
    if (!holds) {
      System.out.println("not so: " + what);
      Runtime.getRuntime().halt(1);
    }
  }
}
