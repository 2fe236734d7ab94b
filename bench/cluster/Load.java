import java.io.InputStream;
import java.io.OutputStream;
import java.net.Socket;
import java.nio.ByteBuffer;
import java.nio.charset.StandardCharsets;
import java.util.concurrent.CountDownLatch;

/**
 * Sends calls as a sniffer does: G.711, 20 ms, both directions, at their own pace, with capture times. Arguments: port,
 * calls, seconds. It begins when a line is written to it, and ends the calls.
 */
public final class Load {
  private static final int SIP = 1;
  private static final int RTP = 2;
  private static final int CAPTURE_TIME = 5;
  private static final int HEADER = 15;
  private static final int RTP_BYTES = 172;
  private static final int ADDRESS = 10 << 24;
  private static final int SIDE = 1 << 17;
  private static final int MOST = 128 << 10;

  private final ByteBuffer out = ByteBuffer.allocate(MOST);
  private final OutputStream to;
  private final long session = System.nanoTime();

  private Load(OutputStream to) {
    this.to = to;
  }

  public static void main(String[] arguments) throws Exception {
    int calls = Integer.parseInt(arguments[1]);
    try (Socket socket = new Socket("127.0.0.1", Integer.parseInt(arguments[0]))) {
      CountDownLatch added = new CountDownLatch(4 * calls);  // RTP and RTCP
      Thread reader = new Thread(() -> read(socket, added));
      reader.start();
      Load load = new Load(socket.getOutputStream());
      for (int call = 0; call < calls; call++) {
        load.sip(call, "INVITE sip:b@x SIP/2.0", "1 INVITE", 0);
        load.sip(call, "SIP/2.0 200 OK", "1 INVITE", 1);
      }
      load.flush();
      added.await();
      System.out.println("ready");
      System.in.read();
      load.talk(calls, Integer.parseInt(arguments[2]) * 50);
      for (int call = 0; call < calls; call++) {
        load.sip(call, "BYE sip:b@x SIP/2.0", "2 BYE", 0);
        load.sip(call, "SIP/2.0 200 OK", "2 BYE", 1);
      }
      load.flush();
      System.out.println("sent");
      System.in.read();
      socket.shutdownOutput();
      reader.join();
    }
  }

  private static void read(Socket socket, CountDownLatch added) {
    try (InputStream in = socket.getInputStream()) {
      for (byte[] command = in.readNBytes(7); command.length == 7; command = in.readNBytes(7)) {
        if (command[0] == 1) {
          added.countDown();
        }
      }
    } catch (java.io.IOException e) {
      System.out.println("the front has gone");
    }
  }

  /** Sends a half of the calls every 10 ms. */
  private void talk(int calls, int packets) throws Exception {
    long began = System.nanoTime();
    for (int half = 0; half < 2 * packets; half++) {
      long wait = began + half * 10_000_000L - System.nanoTime();
      if (wait > 0) {
        Thread.sleep(wait / 1_000_000, (int) (wait % 1_000_000));
      }
      long now = System.currentTimeMillis() * 1000;
      for (int call = half % 2; call < calls; call += 2) {
        rtp(call, 0, half / 2, now);
        rtp(call, 1, half / 2, now);
      }
      flush();
    }
  }

  private void rtp(int call, int side, int packet, long now) throws Exception {
    begin(RTP, RTP_BYTES, call, side, now);
    out.put((byte) 0x80).put((byte) 8).putShort((short) packet).putInt(160 * packet).putInt(2 * call + side);
    for (int i = 0; i < 20; i++) {
      out.putLong(0x5555_d5d5_5545_d535L);
    }
  }

  private void sip(int call, String line, String cseq, int side) throws Exception {
    String body = cseq.endsWith("INVITE") ? "v=0\r\nc=IN IP4 " + dotted(ip(call, side))
        + "\r\nm=audio 4000 RTP/AVP 8\r\na=rtpmap:8 PCMA/8000\r\n" : "";
    byte[] text = (line + "\r\nVia: SIP/2.0/UDP 10.0.0.1;branch=z" + session + cseq + "\r\nFrom: <sip:a" + call
        + "@x>;tag=1\r\nTo: <sip:b" + call + "@x>" + (cseq.equals("1 INVITE") && side == 0 ? "" : ";tag=2")
        + "\r\nCall-ID: load-" + session + "-" + call + "\r\nCSeq: " + cseq
        + "\r\nContent-Type: application/sdp\r\n\r\n" + body).getBytes(StandardCharsets.US_ASCII);
    begin(SIP, text.length, call, side, System.currentTimeMillis() * 1000);
    out.put(text);
  }

  private void begin(int protocol, int length, int call, int side, long now) throws Exception {
    if (out.remaining() < 2048) {
      flush();
    }
    frame(CAPTURE_TIME, Long.BYTES, call, side);
    out.putLong(now);
    frame(protocol, length, call, side);
  }

  private void frame(int protocol, int length, int call, int side) {
    out.putShort((short) (HEADER + length)).put((byte) protocol).putInt(ip(call, 1 - side)).putShort((short) 4000)
        .putInt(ip(call, side)).putShort((short) 4000);
  }

  private static int ip(int call, int side) {
    return ADDRESS + side * SIDE + call + 1;
  }

  private static String dotted(int ip) {
    return (ip >>> 24) + "." + (ip >> 16 & 255) + "." + (ip >> 8 & 255) + "." + (ip & 255);
  }

  private void flush() throws Exception {
    to.write(out.array(), 0, out.position());
    out.clear();
  }
}
