import com.morvin.dom.telephony.sniffer.EmbeddedPacketChannel;
import java.nio.ByteBuffer;
import java.util.concurrent.locks.LockSupport;

/**
 * A Java host that counts frames as road_recorder does. Arguments: device, frames. It asks for the RTP sent to
 * 10.0.0.2:5000 and prints "ready" after the heartbeat reply. At the end it prints the number of RTP frames and the
 * number of gaps in their sequence.
 */
class RoadHost {
  private static final int HEADER = 15;
  private static final int RTP = 2;
  private static final int HEARTBEAT = 3;
  private static final long PAUSE_NANOS = 500_000;
  private static final long SILENCE_NANOS = 3_000_000_000L;

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
    count(channel, Long.parseLong(arguments[1]));
    Thread.sleep(Long.MAX_VALUE); // the script reads the processor time of the process, then kills it
  }

  private static void count(EmbeddedPacketChannel channel, long expected) {
    ByteBuffer frame = ByteBuffer.allocate(EmbeddedPacketChannel.MAX_FRAME);
    long frames = 0;
    long gaps = 0;
    int next = 0;
    long last = System.nanoTime() + 10 * SILENCE_NANOS;
    while (frames < expected && System.nanoTime() - last < SILENCE_NANOS) {
      int length;
      synchronized (channel) {
        length = channel.getPacket(frame.array());
      }
      if (length == 0) {
        LockSupport.parkNanos(PAUSE_NANOS);
      } else if (frame.get(2) == HEARTBEAT) {
        System.out.println("ready");
      } else if (frame.get(2) == RTP) {
        last = System.nanoTime();
        int number = frame.getInt(HEADER + 12);
        gaps += number == next ? 0 : 1;
        next = number + 1;
        ++frames;
      }
    }
    System.out.println(frames + " " + gaps);
  }
}
