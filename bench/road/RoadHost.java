import com.morvin.dom.telephony.sniffer.EmbeddedPacketChannel;
import java.nio.ByteBuffer;
import java.util.concurrent.locks.LockSupport;

/**
 * A Java host that counts frames as road_recorder does. Arguments: device, frames, and "Block" to fetch many frames in
 * one call. It asks for the RTP sent to 10.0.0.2:5000 and prints "ready" after the heartbeat reply. At the end it
 * prints the number of RTP frames and the number of gaps in the sequences of their streams.
 */
class RoadHost {
  private static final int HEADER = 15;
  private static final int SOURCE_PORT = 13;
  private static final int RTP = 2;
  private static final int HEARTBEAT = 3;
  private static final int BLOCK = 256 << 10;
  private static final long PAUSE_NANOS = 2_000_000; // the kernel hands over a block of frames as often
  private static final long SILENCE_NANOS = 3_000_000_000L;

  private long frames;
  private long gaps;
  private final int[] next = new int[65536]; // by source port

  public static void main(String[] arguments) throws InterruptedException {
    EmbeddedPacketChannel channel = new EmbeddedPacketChannel();
    channel.nicDevice = arguments[0];
    channel.packetFilter = "udp";
    Thread loop = new Thread(channel::mainLoop);
    loop.setDaemon(true);
    loop.start();
    synchronized (channel) {
      channel.sendRequest(new byte[] {1, 10, 0, 0, 2, 0x13, (byte) 0x88});
      channel.sendRequest(new byte[] {HEARTBEAT, 0, 0, 0, 0, 0, 0});
    }
    boolean inBlocks = arguments.length > 2;
    new RoadHost().count(channel, inBlocks, Long.parseLong(arguments[1]));
    Thread.sleep(Long.MAX_VALUE); // the script reads the processor time of the process, then kills it
  }

  private void count(EmbeddedPacketChannel channel, boolean inBlocks, long expected) {
    ByteBuffer buffer = inBlocks ? ByteBuffer.allocateDirect(BLOCK) : ByteBuffer.allocate(BLOCK);
    long end = System.nanoTime() + 10 * SILENCE_NANOS;
    while (frames < expected && System.nanoTime() < end) {
      int length = inBlocks ? channel.getPackets(buffer) : fetchOne(channel, buffer.array());
      if (length == 0) {
        LockSupport.parkNanos(PAUSE_NANOS);
      }
      long before = frames;
      for (int at = 0; at < length; at += buffer.getShort(at) & 0xffff) {
        take(buffer, at);
      }
      if (frames > before) {
        end = System.nanoTime() + SILENCE_NANOS;
      }
    }
    System.out.println(frames + " " + gaps);
  }

  private static int fetchOne(EmbeddedPacketChannel channel, byte[] frame) {
    synchronized (channel) {
      return channel.getPacket(frame);
    }
  }

  private void take(ByteBuffer block, int at) {
    int protocol = block.get(at + 2);
    if (protocol == HEARTBEAT) {
      System.out.println("ready");
    } else if (protocol == RTP) {
      int number = block.getInt(at + HEADER + 12);
      int port = block.getShort(at + SOURCE_PORT) & 0xffff;
      gaps += number == next[port] ? 0 : 1;
      next[port] = number + 1;
      ++frames;
    }
  }
}
