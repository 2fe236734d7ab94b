import com.morvin.dom.telephony.sniffer.sample.transport.Command;
import com.morvin.dom.telephony.sniffer.sample.transport.Endpoint;
import com.morvin.dom.telephony.sniffer.sample.transport.Frame;
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
 * A sniffer with many simultaneous calls: SIP calls of 20 s each, with G.711 in both directions. After the recorder has
 * ended, it compares the table of calls with the packets sent. See run.sh.
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
      byte[] command = new byte[Command.LENGTH];
      try {
        while (true) {
          commands.readFully(command);
          adds.addAndGet(command[0] == Command.ADD ? 1 : 0);
        }
      } catch (IOException e) {
        // The recorder has closed the connection.
      }
    });
    reader.setDaemon(true);
    reader.start();
  }

  /** Sends a frame between the same ports of two addresses. */
  private void send(int protocol, int to, int from, int port, byte[] payload) throws IOException {
    out.write(new Frame(protocol, new Endpoint(to, port), new Endpoint(from, port), payload).bytes());
    frames++;
  }

  /** The successive calls of two telephones. */
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
      String body = "v=0\r\nc=IN IP4 " + new Endpoint(from, 0).address() + "\r\nm=audio 4000 RTP/AVP 8\r\n";
      String text = start + "\r\nVia: SIP/2.0/UDP x;branch=z" + cseq.charAt(0)
          + "\r\nFrom: <sip:" + caller + "@load>;tag=a"
          + "\r\nTo: <sip:" + callee + "@load>" + (start.startsWith("INVITE") ? "" : ";tag=b")
          + "\r\nCall-ID: " + caller + "-" + call + "\r\nCSeq: " + cseq + "\r\n"
          + (sdp ? "Content-Type: application/sdp\r\n\r\n" + body : "\r\n");
      send(Frame.SIP, fromCaller ? callee : caller, from, 5060, text.getBytes(StandardCharsets.US_ASCII));
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
      send(Frame.RTP, callee, caller, 4000, rtp);
      send(Frame.RTP, caller, callee, 4000, rtp);
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

  /** Returns the processor time of a loop that reads frames and writes them to a file, in microseconds per frame. */
  private static double bare(long frames, Path file) throws Exception {
    try (ServerSocket server = new ServerSocket(0); Socket to = new Socket("127.0.0.1", server.getLocalPort());
         Socket from = server.accept()) {
      Thread sender = new Thread(() -> {
        try {
          byte[] frame = new Frame(Frame.RTP, new Endpoint(1, 1), new Endpoint(1, 1), new byte[12 + SIZE]).bytes();
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

  /** Returns the processor time of a process in seconds and its resident memory in megabytes. */
  private static double[] usage(String pid) throws IOException {
    String stat = Files.readString(Path.of("/proc", pid, "stat"));
    String[] fields = stat.substring(stat.lastIndexOf(')') + 2).split(" ");
    return new double[] {(Long.parseLong(fields[11]) + Long.parseLong(fields[12])) / 100.0,
        Long.parseLong(fields[21]) * 4096 / 1e6};
  }

  /** Arguments: port, simultaneous calls, seconds, process id of the recorder, directory of the recorder. */
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
        // The recorder has ended.
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
    System.out.printf(Locale.ROOT, "%d calls at a time, %d in all; %d packets sent, %d recorded, %d lost; %d adds%n",
        calls, rows, load.media, recorded, lost, load.adds.get());
    System.out.printf(Locale.ROOT, "%.1f us a frame; %.1f times a loop that reads and writes them as they are%n", cost,
        cost / bare);
    System.exit(recorded == load.media && lost == 0 ? 0 : 1);
  }
}
