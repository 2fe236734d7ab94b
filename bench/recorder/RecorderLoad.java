import com.morvin.dom.telephony.sniffer.sample.transport.Command;
import com.morvin.dom.telephony.sniffer.sample.transport.Endpoint;
import com.morvin.dom.telephony.sniffer.sample.transport.Frame;
import java.io.IOException;
import java.lang.management.ManagementFactory;
import java.net.InetSocketAddress;
import java.net.StandardSocketOptions;
import java.nio.ByteBuffer;
import java.nio.channels.FileChannel;
import java.nio.channels.ServerSocketChannel;
import java.nio.channels.SocketChannel;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.StandardOpenOption;
import java.util.ArrayList;
import java.util.List;
import java.util.Locale;
import java.util.concurrent.TimeUnit;
import java.util.concurrent.atomic.AtomicLong;
import java.util.stream.Stream;

/**
 * A sniffer with many simultaneous calls: SIP calls of 20 s each, with G.711 in both directions. After the recorder has
 * ended, it compares the table of calls with the packets sent. See run.sh.
 */
public final class RecorderLoad {
  private static final int RTP_HEADER = 12;
  private static final int FRAME = Frame.HEADER + RTP_HEADER + Speech.SIZE;
  private static final int FIRST_PORT = 4000;
  private static final int PORTS = 8;
  /** The periods until a call is answered. */
  private static final int ANSWER = 10;
  private static final long PERIOD_NANOS = TimeUnit.MILLISECONDS.toNanos(20);
  private static final long LATE_NANOS = TimeUnit.MILLISECONDS.toNanos(5);
  /** The packets of a period are spread over this number of turns. */
  private static final int TURNS = 10;

  private final SocketChannel recorder;
  private final byte[] bytes = new byte[1 << 17];
  private final ByteBuffer out = ByteBuffer.wrap(bytes);
  private final AtomicLong adds = new AtomicLong();
  private long frames;
  private long media;
  private long worstDelay;
  private final boolean exact;
  private boolean late;
  /** The time of the present turn in microseconds since 1970. */
  private long captured;

  private RecorderLoad(SocketChannel recorder, boolean exact) {
    this.exact = exact;
    this.recorder = recorder;
    Thread reader = new Thread(() -> {
      ByteBuffer commands = ByteBuffer.allocate(1 << 16);
      try {
        while (recorder.read(commands) >= 0) {
          commands.flip();
          for (; commands.remaining() >= Command.LENGTH; commands.position(commands.position() + Command.LENGTH)) {
            adds.addAndGet(commands.get(commands.position()) == Command.ADD ? 1 : 0);
          }
          commands.compact();
        }
      } catch (IOException e) {
        // The recorder has closed the connection.
      }
    });
    reader.setDaemon(true);
    reader.start();
  }

  private void flush() throws IOException {
    out.flip();
    while (out.hasRemaining()) {
      recorder.write(out);
    }
    out.clear();
  }

  /** Begins a frame, for which there is room. */
  private void header(int protocol, int length, int to, int from, int port) throws IOException {
    if (out.remaining() < length) {
      flush();
    }
    out.putShort((short) length).put((byte) protocol).putInt(to).putShort((short) port).putInt(from)
        .putShort((short) port);
    frames++;
  }

  /** The successive calls of two telephones. */
  private final class Line {
    private final int caller;
    private final int callee;
    private int call;
    private int sent;

    Line(int number) {
      caller = 0x0a000000 + 2 * number + 2;
      callee = caller + 1;
    }

    /** Telephones take another port for each call. */
    private int port() {
      return FIRST_PORT + 2 * (call % PORTS);
    }

    private void sip(boolean fromCaller, String start, String cseq, boolean sdp) throws IOException {
      int from = fromCaller ? caller : callee;
      String body = "v=0\r\nc=IN IP4 " + new Endpoint(from, 0).address() + "\r\nm=audio " + port()
          + " RTP/AVP 8\r\n";
      String text = start + "\r\nVia: SIP/2.0/UDP x;branch=z" + cseq.charAt(0)
          + "\r\nFrom: <sip:" + caller + "@load>;tag=a"
          + "\r\nTo: <sip:" + callee + "@load>" + (start.startsWith("INVITE") ? "" : ";tag=b")
          + "\r\nCall-ID: " + caller + "-" + call + "\r\nCSeq: " + cseq + "\r\n"
          + (sdp ? "Content-Type: application/sdp\r\n\r\n" + body : "\r\n");
      byte[] payload = text.getBytes(StandardCharsets.US_ASCII);
      header(Frame.SIP, Frame.HEADER + payload.length, fromCaller ? callee : caller, from, 5060);
      out.put(payload);
    }

    void begin() throws IOException {
      call++;
      sip(true, "INVITE sip:b@load SIP/2.0", "1 INVITE", true);
      sent = -ANSWER;
    }

    void end() throws IOException {
      sip(true, "BYE sip:b@load SIP/2.0", "2 BYE", false);
      sip(false, "SIP/2.0 200 OK", "2 BYE", false);
    }

    /** Sends a packet. A frame with its time of capture goes before a late one, as a sniffer does it. */
    private void rtp(int to, int from, int packet) throws IOException {
      if (exact || late) {
        header(Frame.CAPTURE_TIME, Frame.HEADER + Long.BYTES, to, from, port());
        out.putLong(captured);
        frames--;
      }
      header(Frame.RTP, FRAME, to, from, port());
      out.putShort((short) 0x8008).putShort((short) packet).putInt(packet * Speech.SIZE).putInt(call);
      Speech.write(from, call, packet, bytes, out.position());
      out.position(out.position() + Speech.SIZE);
      media++;
    }

    void speak() throws IOException {
      if (call == 0) {
        begin();
      } else if (sent == Speech.PACKETS) {
        end();
        begin();
      }
      if (sent == 0) {
        sip(false, "SIP/2.0 200 OK", "1 INVITE", true);
      }
      if (sent++ >= 0) {
        rtp(callee, caller, sent - 1);
        rtp(caller, callee, sent - 1);
      }
    }
  }

  private void run(int calls, int seconds) throws Exception {
    List<Line> lines = new ArrayList<>();
    for (int i = 0; i < calls; i++) {
      lines.add(new Line(i));
    }
    long begin = System.nanoTime();
    long beginMillis = System.currentTimeMillis();
    for (int period = 0; period < 50 * seconds; period++) {
      for (int turn = 0; turn < TURNS; turn++) {
        long due = PERIOD_NANOS * period + PERIOD_NANOS / TURNS * turn;
        awaitTime(begin + due);
        captured = (beginMillis * 1_000_000 + due) / 1000;
        // The first calls begin one after the other in the time of one call, as those after them do.
        int begun = (int) Math.min(calls, (long) calls * (period + 1) / Speech.PACKETS);
        for (int i = begun * turn / TURNS; i < begun * (turn + 1) / TURNS; i++) {
          lines.get(i).speak();
        }
        flush();
      }
    }
    for (Line line : lines) {
      if (line.call > 0) {
        line.end();
      }
    }
    flush();
  }

  private void awaitTime(long until) throws InterruptedException {
    long left = until - System.nanoTime();
    worstDelay = Math.max(worstDelay, -left);
    late = -left >= LATE_NANOS;
    if (left > 0) {
      TimeUnit.NANOSECONDS.sleep(left);
    }
  }

  /** Returns the processor time of a loop that reads frames and writes them to a file, in microseconds per frame. */
  private static double bare(long frames, Path file) throws Exception {
    ByteBuffer read = ByteBuffer.allocateDirect(1 << 16);
    try (ServerSocketChannel server = ServerSocketChannel.open().bind(new InetSocketAddress("127.0.0.1", 0));
         SocketChannel to = SocketChannel.open(server.getLocalAddress());
         SocketChannel from = server.accept()) {
      Thread sender = new Thread(() -> {
        try {
          ByteBuffer block = ByteBuffer.allocateDirect(FRAME * 256);
          for (long i = 0; i < frames; i += 256) {
            for (block.clear(); block.hasRemaining();) {
              to.write(block);
            }
          }
          to.shutdownOutput();
        } catch (IOException e) {
          throw new IllegalStateException(e);
        }
      });
      long before = ManagementFactory.getThreadMXBean().getCurrentThreadCpuTime();
      try (FileChannel disk = FileChannel.open(file, StandardOpenOption.CREATE, StandardOpenOption.WRITE)) {
        sender.start();
        while (from.read(read) >= 0) {
          disk.write(read.flip());
          read.compact();
        }
      }
      return (ManagementFactory.getThreadMXBean().getCurrentThreadCpuTime() - before) / 1e3 / frames;
    } finally {
      Files.delete(file);
    }
  }

  /** Returns the processor time of a process in seconds and its resident memory in megabytes. */
  private static double[] usage(String pid) throws IOException {
    String stat = Files.readString(Path.of("/proc", pid, "stat"));
    String[] fields = stat.substring(stat.lastIndexOf(')') + 2).split(" ");
    return new double[] {(Long.parseLong(fields[11]) + Long.parseLong(fields[12])) / 100.0,
        Long.parseLong(fields[21]) * 4096 / 1e6};
  }

  /** Prints memory and processor time every 15 s. */
  private void watch(String pid, double start, int seconds) {
    Thread watch = new Thread(() -> {
      try {
        double before = start;
        long framesBefore = 0;
        for (int i = 15; i <= seconds; i += 15) {
          Thread.sleep(15_000);
          double[] now = usage(pid);
          System.out.printf(Locale.ROOT, "%4d s  %.0f MB in memory, %.2f us a frame%n", i, now[1],
              (now[0] - before) * 1e6 / (frames - framesBefore));
          before = now[0];
          framesBefore = frames;
        }
      } catch (IOException | InterruptedException e) {
        // The recorder has ended.
      }
    });
    watch.setDaemon(true);
    watch.start();
  }

  /**
   * Arguments: port, simultaneous calls, seconds, process id of the recorder, directory of the recorder; "compare" to
   * send the time of capture of each packet, so that the recordings do not depend on this machine's pauses.
   */
  public static void main(String[] words) throws Exception {
    int calls = Integer.parseInt(words[1]);
    int seconds = Integer.parseInt(words[2]);
    RecorderLoad load;
    double cost;
    try (SocketChannel recorder = SocketChannel.open(new InetSocketAddress("127.0.0.1", Integer.parseInt(words[0])))) {
      recorder.setOption(StandardSocketOptions.SO_SNDBUF, 1 << 20);
      load = new RecorderLoad(recorder, words.length > 5 && words[5].equals("compare"));
      double before = usage(words[3])[0];
      load.watch(words[3], before, seconds);
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
    System.out.printf(Locale.ROOT, "%.2f us a frame; %.1f times a loop that reads and writes them as they are%n", cost,
        cost / bare);
    double own = ManagementFactory.getThreadMXBean().getCurrentThreadCpuTime() / 1e3 / load.frames;
    System.out.printf(Locale.ROOT, "The load itself took %.2f us a frame, and was at most %d ms late%n", own,
        load.worstDelay / 1_000_000);
    System.exit(recorded == load.media && lost == 0 ? 0 : 1);
  }
}
