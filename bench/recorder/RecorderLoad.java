import java.io.BufferedOutputStream;
import java.io.DataInputStream;
import java.io.IOException;
import java.io.OutputStream;
import java.lang.management.ManagementFactory;
import java.net.ServerSocket;
import java.net.Socket;
import java.nio.ByteBuffer;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import java.util.Locale;
import java.util.concurrent.atomic.AtomicLong;
import java.util.stream.Stream;

/**
 * A sniffer that sees many calls, for a recorder that listens: so many SIP calls at a time, of 20 seconds each, with
 * G.711 in both directions. Afterwards it counts what the recorder wrote. See run.sh.
 */
public final class RecorderLoad {
  private static final int PACKETS_A_CALL = 1000;
  private static final int SIZE = 160;

  private final OutputStream out;
  private final AtomicLong adds = new AtomicLong();
  private long frames;
  private long media;

  private RecorderLoad(Socket recorder) throws IOException {
    out = new BufferedOutputStream(recorder.getOutputStream(), 1 << 16);
    DataInputStream commands = new DataInputStream(recorder.getInputStream());
    Thread reader = new Thread(() -> {
      byte[] command = new byte[7];
      try {
        while (true) {
          commands.readFully(command);
          adds.addAndGet(command[0] == 1 ? 1 : 0);
        }
      } catch (IOException e) {
        // The end.
      }
    });
    reader.setDaemon(true);
    reader.start();
  }

  private static byte[] frame(int protocol, int to, int toPort, int from, int fromPort, byte[] payload) {
    ByteBuffer frame = ByteBuffer.allocate(15 + payload.length).putShort((short) (15 + payload.length));
    return frame.put((byte) protocol).putInt(to)
        .putShort((short) toPort).putInt(from).putShort((short) fromPort).put(payload).array();
  }

  private void send(byte[] frame) throws IOException {
    out.write(frame);
    frames++;
  }

  /** The calls that follow each other in one place. */
  private final class Line {
    private final int caller;
    private final int callee;
    private int call;
    private int sent;

    Line(int number, int sent) {
      caller = 0x0a000000 + 2 * number + 2;
      callee = caller + 1;
      this.sent = sent;
    }

    private void sip(boolean fromCaller, String start, String cseq, boolean sdp) throws IOException {
      int from = fromCaller ? caller : callee;
      String address = (from >>> 24) + "." + (from >> 16 & 255) + "." + (from >> 8 & 255) + "." + (from & 255);
      String text = start + "\r\nVia: SIP/2.0/UDP x;branch=z" + cseq.charAt(0) + "\r\nFrom: <sip:" + caller
          + "@load>;tag=a\r\nTo: <sip:" + callee + "@load>" + (start.startsWith("INVITE") ? "" : ";tag=b")
          + "\r\nCall-ID: " + caller + "-" + call + "\r\nCSeq: " + cseq + "\r\n"
          + (sdp ? "Content-Type: application/sdp\r\n\r\nv=0\r\nc=IN IP4 "
          + address + "\r\nm=audio 4000 RTP/AVP 8\r\n" : "\r\n");
      send(frame(1, fromCaller ? callee : caller, 5060, from, 5060, text.getBytes(StandardCharsets.US_ASCII)));
    }

    void begin() throws IOException {
      call++;
      sip(true, "INVITE sip:b@load SIP/2.0", "1 INVITE", true);
      sip(false, "SIP/2.0 200 OK", "1 INVITE", true);
    }

    void end() throws IOException {
      sip(true, "BYE sip:b@load SIP/2.0", "2 BYE", false);
      sip(false, "SIP/2.0 200 OK", "2 BYE", false);
    }

    void speak() throws IOException {
      if (sent == PACKETS_A_CALL) {
        end();
        begin();
        sent = 0;
      }
      byte[] rtp = ByteBuffer.allocate(12 + SIZE).putShort((short) 0x8008).putShort((short) sent).putInt(sent * SIZE)
          .putInt(call).array();
      send(frame(2, callee, 4000, caller, 4000, rtp));
      send(frame(2, caller, 4000, callee, 4000, rtp));
      media += 2;
      sent++;
    }
  }

  private void run(int calls, int seconds) throws Exception {
    List<Line> lines = new ArrayList<>();
    for (int i = 0; i < calls; i++) {
      lines.add(new Line(i, i * PACKETS_A_CALL / calls));
      lines.get(i).begin();
    }
    long next = System.nanoTime();
    for (int tick = 0; tick < 50 * seconds; tick++) {
      for (Line line : lines) {
        line.speak();
      }
      out.flush();
      next += 20_000_000;
      long wait = (next - System.nanoTime()) / 1_000_000;
      if (wait > 0) {
        Thread.sleep(wait);
      }
    }
    for (Line line : lines) {
      line.end();
    }
    out.flush();
  }

  /** The processor time of a loop that reads as many frames and writes them into one file. */
  private static double bare(long frames, Path file) throws Exception {
    try (ServerSocket server = new ServerSocket(0); Socket to = new Socket("127.0.0.1", server.getLocalPort());
         Socket from = server.accept()) {
      Thread sender = new Thread(() -> {
        try {
          byte[] frame = frame(2, 1, 1, 1, 1, new byte[12 + SIZE]);
          OutputStream out = new BufferedOutputStream(to.getOutputStream(), 1 << 14);
          for (long i = 0; i < frames; i++) {
            out.write(frame);
          }
          out.flush();
          to.shutdownOutput();
        } catch (IOException e) {
          throw new IllegalStateException(e);
        }
      });
      long before = ManagementFactory.getThreadMXBean().getCurrentThreadCpuTime();
      try (OutputStream disk = Files.newOutputStream(file)) {
        sender.start();
        from.getInputStream().transferTo(disk);
      }
      return (ManagementFactory.getThreadMXBean().getCurrentThreadCpuTime() - before) / 1e3 / frames;
    }
  }

  /** Seconds of processor time, and megabytes in memory, of a process. */
  private static double[] usage(String pid) throws IOException {
    String stat = Files.readString(Path.of("/proc", pid, "stat"));
    String[] fields = stat.substring(stat.lastIndexOf(')') + 2).split(" ");
    return new double[] {(Long.parseLong(fields[11]) + Long.parseLong(fields[12])) / 100.0,
        Long.parseLong(fields[21]) * 4096 / 1e6};
  }

  /** Arguments: port, calls at a time, seconds, process and folder of the recorder. */
  public static void main(String[] words) throws Exception {
    int calls = Integer.parseInt(words[1]);
    int seconds = Integer.parseInt(words[2]);
    Thread watch = new Thread(() -> {
      try {
        for (int i = 0; i <= seconds; i += 15) {
          System.out.printf(Locale.ROOT, "%4d s  %.0f MB in memory%n", i, usage(words[3])[1]);
          Thread.sleep(15_000);
        }
      } catch (IOException | InterruptedException e) {
        // It has ended.
      }
    });
    watch.setDaemon(true);
    RecorderLoad load;
    double cost;
    try (Socket recorder = new Socket("127.0.0.1", Integer.parseInt(words[0]))) {
      load = new RecorderLoad(recorder);
      double before = usage(words[3])[0];
      watch.start();
      load.run(calls, seconds);
      cost = (usage(words[3])[0] - before) * 1e6 / load.frames;
    }
    while (ProcessHandle.of(Long.parseLong(words[3])).isPresent()) {
      Thread.sleep(100);
    }
    long recorded = 0;
    long lost = 0;
    long rows = 0;
    try (Stream<String> table = Files.lines(Path.of(words[4], "calls.csv"))) {
      for (String row : (Iterable<String>) table.skip(1)::iterator) {
        String[] cells = row.split(",");
        rows++;
        recorded += Long.parseLong(cells[8]) + Long.parseLong(cells[12]);
        lost += Long.parseLong(cells[9]) + Long.parseLong(cells[13]);
      }
    }
    double bare = bare(load.frames, Path.of(words[4], "bare"));
    System.out.printf(Locale.ROOT,
        "%d calls at a time, %d in all; %d packets sent, %d recorded, %d lost; %d adds%n", calls,
        rows, load.media, recorded, lost, load.adds.get());
    System.out.printf(Locale.ROOT, "%.1f us a frame; %.1f times a loop that reads and writes them as they are%n", cost,
        cost / bare);
    System.exit(recorded == load.media && lost == 0 ? 0 : 1);
  }
}
