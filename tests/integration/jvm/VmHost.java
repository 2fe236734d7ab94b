import com.morvin.dom.telephony.sniffer.EmbeddedPacketChannel;
import java.io.FileOutputStream;
import java.io.IOException;
import java.io.OutputStream;
import java.nio.ByteBuffer;
import java.nio.channels.FileChannel;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.HexFormat;
import java.util.concurrent.atomic.AtomicBoolean;

/** A host process of the native library for test_jvm.py. Arguments: a scenario and its arguments. */
public final class VmHost {
  private static final int MANY = EmbeddedPacketChannel.MAX_FRAME;

  private final EmbeddedPacketChannel channel = new EmbeddedPacketChannel();
  private final byte[] buffer = new byte[MANY];
  private final ByteBuffer block = ByteBuffer.allocateDirect(MANY);
  private Thread loop;

  public static void main(String[] words) throws Exception {
    VmHost host = new VmHost();
    switch (words[0]) {
      case "record" -> host.record(words);
      case "buffers" -> host.buffers(words[1]);
      case "lifecycle" -> host.lifecycle(words[1], words[2]);
      case "exit" -> host.exit(words[1]);
      default -> throw new IllegalArgumentException(words[0]);
    }
  }

  /** Writes frames to a file. Arguments: record DEVICES PACKET_COUNT SETTINGS FRAMES FILE COMMAND... */
  private void record(String[] words) throws Exception {
    channel.packetCount = Integer.parseInt(words[2]);
    channel.settings = words[3].replace(' ', '\n');
    int frames = Integer.parseInt(words[4]);
    for (int i = 6; i < words.length; i++) {
      synchronized (channel) {
        channel.sendRequest(HexFormat.of().parseHex(words[i]));
      }
    }
    start(words[1]);
    System.out.println("sniffing");
    try (OutputStream file = new FileOutputStream(words[5])) {
      // Every third frame with getPacket, the others with getPackets.
      for (int i = 0; i < frames;) {
        int length = i % 3 == 0 ? next() : nextBlock();
        for (int at = 0; at < length; at += frameLength(at)) {
          i++;
        }
        file.write(buffer, 0, length);
      }
    }
    check(loop.isAlive(), "mainLoop waits for breakMainLoop");
    stop();
  }

  /** Calls getPackets with buffers that do not fit. */
  private void buffers(String device) throws Exception {
    check(channel.getPackets(block) == 0, "no frame");
    start(device);
    int length;
    while ((length = -refused(ByteBuffer.allocateDirect(14))) == 0) {
      Thread.sleep(1);
    }
    for (ByteBuffer wrong : new ByteBuffer[] {null, ByteBuffer.allocate(MANY), block.asReadOnlyBuffer(), readOnlyFile(),
        ByteBuffer.allocateDirect(length - 1)}) {
      check(refused(wrong) < 0, "an exception for " + wrong);
    }
    ByteBuffer exact = ByteBuffer.allocateDirect(length + 100).position(100).slice();
    check(channel.getPackets(exact) == length, "the frame fits");
    check(exact.getShort(0) == length && exact.position() == 0, "it begins at index 0");
    check(channel.getPackets(exact) == 0, "no further frame");
    stop();
    System.out.println("lived");
  }

  private static ByteBuffer readOnlyFile() throws IOException {
    Path file = Files.writeString(Path.of("some-file"), "content".repeat(100));
    try (FileChannel open = FileChannel.open(file)) {
      return open.map(FileChannel.MapMode.READ_ONLY, 0, open.size());
    }
  }

  /** Returns 0 when no frame waits, -1 for a wrong buffer, or the negative length of the frame that does not fit. */
  private int refused(ByteBuffer wrong) {
    try {
      check(channel.getPackets(wrong) == 0, "nothing is taken");
      return 0;
    } catch (IllegalArgumentException e) {
      String[] words = e.getMessage().split("the oldest frame has | bytes");
      return words.length > 1 ? -Integer.parseInt(words[1]) : -1;
    }
  }

  /** Starts and stops the sniffer many times in one process, and calls its methods with invalid arguments. */
  private void lifecycle(String idle, String busy) throws Exception {
    channel.breakMainLoop();
    check(channel.getPacket(buffer) == 0, "no frame");
    check(channel.getPacket(null) == 0 && channel.sendRequest(null) == 0, "null arrays");
    check(channel.sendRequest(new byte[6]) == 0 && channel.sendRequest(new byte[9]) == 9, "short and long commands");
    channel.mainLoop();  // returns at once: the device is null

    channel.packetFilter = "no such filter";
    channel.nicDevice = idle;
    channel.mainLoop();

    channel.packetFilter = "udp";
    for (int round = 0; round < 10; round++) {
      start(idle);
      check(channel.getPacket(new byte[0]) == 0, "a frame stays when the array is too short");
      int length = next();
      check(length > 15 && buffer[2] == 1, "a SIP frame");
      check(channel.getPacket(buffer) == 0, "no further frame");
      check(new String(buffer, 15, 6, StandardCharsets.US_ASCII).equals("INVITE"), "nothing is written");
      channel.mainLoop();  // a second one returns at once
      check(loop.isAlive(), "the first goes on");
      stop();
    }
    // Under load, while one thread is in getPacket and another one stops the sniffer with the monitor held.
    AtomicBoolean ended = new AtomicBoolean();
    Thread reader = new Thread(() -> {
      byte[] small = new byte[2048];
      while (!ended.get()) {
        channel.getPacket(small);
        channel.getPackets(block);
      }
    });
    reader.start();
    for (int round = 0; round < 10; round++) {
      start(busy);
      next();
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
    // breakMainLoop has no effect before mainLoop has begun, so it is repeated.
    do {
      channel.breakMainLoop();
      loop.join(100);
    } while (loop.isAlive());
  }

  /** Waits for a frame and returns its length. */
  private int next() throws InterruptedException {
    while (true) {
      synchronized (channel) {
        int length = channel.getPacket(buffer);
        if (length > 0) {
          return length;
        }
      }
      Thread.sleep(1);
    }
  }

  /** Waits for frames, copies them to the array and returns their number of bytes. */
  private int nextBlock() throws InterruptedException {
    int length;
    while ((length = channel.getPackets(block)) == 0) {
      Thread.sleep(1);
    }
    block.get(0, buffer, 0, length);
    return length;
  }

  private int frameLength(int at) {
    return (buffer[at] & 255) << 8 | buffer[at + 1] & 255;
  }

  private static void check(boolean holds, String what) {
    if (!holds) {
      System.out.println("not so: " + what);
      Runtime.getRuntime().halt(1);
    }
  }
}
