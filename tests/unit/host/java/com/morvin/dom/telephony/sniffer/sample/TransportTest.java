package com.morvin.dom.telephony.sniffer.sample;

import static com.morvin.dom.telephony.sniffer.sample.Testing.equal;
import static com.morvin.dom.telephony.sniffer.sample.Testing.that;

import com.morvin.dom.telephony.sniffer.sample.console.Console;
import com.morvin.dom.telephony.sniffer.sample.media.Track;
import com.morvin.dom.telephony.sniffer.sample.metrics.Metrics;
import com.morvin.dom.telephony.sniffer.sample.metrics.MetricsFile;
import com.morvin.dom.telephony.sniffer.sample.recording.Recorder;
import com.morvin.dom.telephony.sniffer.sample.service.Service;
import com.morvin.dom.telephony.sniffer.sample.storage.Store;
import com.morvin.dom.telephony.sniffer.sample.transport.Address;
import com.morvin.dom.telephony.sniffer.sample.transport.Command;
import com.morvin.dom.telephony.sniffer.sample.transport.EmbeddedTransport;
import com.morvin.dom.telephony.sniffer.sample.transport.Endpoint;
import com.morvin.dom.telephony.sniffer.sample.transport.Frame;
import com.morvin.dom.telephony.sniffer.sample.transport.FrameBlock;
import com.morvin.dom.telephony.sniffer.sample.transport.FrameCursor;
import com.morvin.dom.telephony.sniffer.sample.transport.Intake;
import com.morvin.dom.telephony.sniffer.sample.transport.ReceiveBuffer;
import com.morvin.dom.telephony.sniffer.sample.transport.SteadyClock;
import com.morvin.dom.telephony.sniffer.sample.transport.TcpTransport;
import com.morvin.dom.telephony.sniffer.sample.transport.Transport;
import com.morvin.dom.telephony.sniffer.sample.transport.UdpTransport;
import java.io.ByteArrayOutputStream;
import java.io.IOException;
import java.io.PrintStream;
import java.io.UncheckedIOException;
import java.net.DatagramPacket;
import java.net.DatagramSocket;
import java.net.InetSocketAddress;
import java.net.ProtocolException;
import java.net.Socket;
import java.nio.ByteBuffer;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.time.Instant;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.HashSet;
import java.util.HexFormat;
import java.util.List;
import java.util.Optional;
import java.util.Queue;
import java.util.Set;
import java.util.concurrent.CompletableFuture;
import java.util.concurrent.ConcurrentLinkedQueue;
import java.util.concurrent.atomic.AtomicInteger;
import java.util.concurrent.atomic.AtomicLong;
import java.util.function.BooleanSupplier;

/** The three transports. The test acts as the sniffer. */
final class TransportTest {
  private static final InetSocketAddress ANY = new InetSocketAddress("127.0.0.1", 0);
  private static final Command ADD = Command.add(FakeSniffer.at("10.0.0.7:40000"));
  private static final Command ADD_IPV6 = Command.add(FakeSniffer.at("[2001:db8::7]:40000"));
  /** How often a test waits for an event; no test depends on the time that it takes. */
  private static final int TRIES = 1200;
  private static final byte[] ADD_BYTES = {1, 10, 0, 0, 7, (byte) 0x9c, 0x40};

  private final ByteArrayOutputStream printed = new ByteArrayOutputStream();
  private final Console console = new Console(new PrintStream(printed, true, StandardCharsets.UTF_8), false);

  private final FrameCursor cursor = new FrameCursor(new FrameBlock(new byte[0], 0, 0, 0, 0));

  private String printed() {
    console.flush(Long.MAX_VALUE / 1_000_000);
    return printed.toString(StandardCharsets.UTF_8);
  }

  private static byte[] frame(int protocol, int payload) {
    return new Frame(protocol, FakeSniffer.at("10.0.0.2:5000"), FakeSniffer.at("10.0.0.1:4000"), new byte[payload])
        .bytes();
  }

  /** Returns the next frame, which is the only one of its block unless the last block has more. */
  private Frame next(Transport link) throws Exception {
    for (int i = 0; i < TRIES; i++) {
      if (cursor.next()) {
        return cursor.frame();
      }
      FrameBlock block = link.receive(50);
      if (block != null) {
        cursor.begin(block);
      }
    }
    throw new AssertionError("no frame");
  }

  private static void await(Transport link, BooleanSupplier condition) throws Exception {
    for (int i = 0; i < TRIES && !condition.getAsBoolean(); i++) {
      equal(link.receive(50), null);
    }
    that(condition.getAsBoolean(), "waited in vain");
  }

  /** Texts of addresses, in the form of RFC 5952 or not; "-" is none. */
  void testAddresses() {
    for (String row : new String[] {"10.0.0.1 10.0.0.1", "255.255.255.255 255.255.255.255", "256.0.0.1 -", "10.0.0 -",
        "2001:DB8:0:0:0:0:0:1 2001:db8::1", "2001:db8::0001 2001:db8::1", ":: ::", "::1 ::1", "1:: 1::",
        "2001:db8:0:1:1:1:1:1 2001:db8:0:1:1:1:1:1", "2001:0:0:1:0:0:0:1 2001:0:0:1::1",
        "2001:db8:0:0:1:0:0:1 2001:db8::1:0:0:1", "::ffff:10.0.0.1 10.0.0.1", "::ffff:0a00:1 10.0.0.1",
        "64:ff9b::10.0.0.1 64:ff9b::a00:1", "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff "
            + "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff", "1:2:3:4:5:6:7 -", "1:2:3:4:5:6:7:8:9 -", "1::2::3 -",
        "12345:: -", "::256.0.0.1 -", ":1:2:3:4:5:6:7 -", "::g -", "1:2 -", ": -", ".::1 -", "fe80::1%eth0 -",
        "host.example -"}) {
      String[] words = row.split(" ");
      equal(words[0] + " " + Address.parse(words[0]).map(Address::toString).orElse("-"), row);
    }
    for (String multicast : new String[] {"ff02::1", "::", "224.0.0.1", "0.0.0.0", "::ffff:0.0.0.0"}) {
      equal(Endpoint.ofMedia(multicast, 4000), Optional.empty());
    }
    // Ports and addresses next to each other have different keys.
    Set<Long> keys = new HashSet<>();
    for (int i = 0; i < 1 << 16; i++) {
      keys.add(new Endpoint(new Address(i >> 8, 0x1_0000_0000L + (i >> 4 & 15)), i & 15).key());
      keys.add(new Endpoint(i >> 4, i & 15).key());
    }
    equal(keys.size(), 2 << 16);
  }

  /** Frames and commands with IPv6 addresses, cut and joined, between those of IPv4. */
  void testIpv6() throws Exception {
    byte[] wire = HexFormat.of().parseHex("002a42" + "20010db8000000000000000000000002" + "1388"
        + "20010db8000000000000000000000001" + "0fa0" + "80aabb");
    Frame frame = new Frame(Frame.RTP, FakeSniffer.at("[2001:db8::2]:5000"), FakeSniffer.at("[2001:db8::1]:4000"),
        new byte[] {(byte) 0x80, (byte) 0xaa, (byte) 0xbb});
    equal(HexFormat.of().formatHex(frame.bytes()), HexFormat.of().formatHex(wire));
    for (String invalid : List.of("002642", "002743", "002746", "002745", "0027c2", "000f42")) {
      try {
        Frame.of(ByteBuffer.wrap(Arrays.copyOf(HexFormat.of().parseHex(invalid), 39)));
        throw new AssertionError(invalid + " begins a frame");
      } catch (ProtocolException e) {
        that(e.getMessage().startsWith("no frame has length"), e.getMessage());
      }
    }
    FakeEngine engine = new FakeEngine(3);
    try (EmbeddedTransport link = new EmbeddedTransport(engine)) {
      byte[] time = new Frame(Frame.CAPTURE_TIME, frame.destination(), frame.source(),
          ByteBuffer.allocate(8).putLong(1_700_000_000_123_456L).array()).bytes();
      equal(time.length, 47);
      engine.frames.addAll(List.of(time, wire, frame(2, 1), time, frame(2, 1)));
      List<String> received = new ArrayList<>();
      for (int i = 0; i < 3; i++) {
        Frame next = next(link);
        received.add(next.protocol() + " " + next.source() + " " + next.payload().length + " " + cursor.captured());
        equal(cursor.sourceEndpoint().key(), cursor.source());
        equal(cursor.destinationEndpoint().key(), cursor.destination());
      }
      equal(received, List.of("2 [2001:db8::1]:4000 3 1700000000123", "2 10.0.0.1:4000 1 0", "2 10.0.0.1:4000 1 0"));
      link.send(Command.add(frame.destination()));
      link.send(Command.remove(frame.destination()));
      for (String code : List.of("04", "05")) {
        equal(HexFormat.of().formatHex(engine.requests.remove()), code + "20010db80000000000000000000000021388");
      }
    }
  }

  /** A burst fills the buffer in the middle of a frame. Each frame keeps its time of capture. */
  void testBurst() throws Exception {
    ByteArrayOutputStream burst = new ByteArrayOutputStream();
    byte[] time = ByteBuffer.wrap(frame(Frame.CAPTURE_TIME, Long.BYTES)).putLong(15, 1_000_000).array();
    for (int i = 0; i < 2000; i++) {
      burst.write(time);
      burst.write(frame(Frame.SIP, 500));
    }
    try (TcpTransport link = new TcpTransport(ANY, console); Socket sniffer = new Socket("127.0.0.1", link.port())) {
      CompletableFuture<Void> sent = CompletableFuture.runAsync(() -> {
        try {
          sniffer.getOutputStream().write(burst.toByteArray());
        } catch (IOException e) {
          throw new UncheckedIOException(e);
        }
      });
      for (int i = 0; i < 2000; i++) {
        next(link);
        equal(cursor.captured(), 1000L);
      }
      sent.join();
    }
  }

  void testTcp() throws Exception {
    try (TcpTransport link = new TcpTransport(ANY, console)) {
      link.send(ADD); // no sniffer is there yet
      try (Socket sniffer = new Socket("127.0.0.1", link.port());
           Socket stranger = new Socket("127.0.0.1", link.port())) {
        await(link, () -> link.sessions() == 2);
        stranger.getOutputStream().write("GET / HTTP/1.1\r\n\r\n".getBytes(StandardCharsets.US_ASCII));
        await(link, () -> printed().contains("which is no sniffer"));
        for (int i = 0; i < 300; i++) {
          link.send(ADD);
          link.send(ADD_IPV6);
        }
        link.flush();
        int length = ADD_BYTES.length + Command.IPV6_LENGTH;
        byte[] commands = sniffer.getInputStream().readNBytes(300 * length);
        for (int at = 0; at < commands.length; at += length) {
          equal(Arrays.mismatch(Arrays.copyOfRange(commands, at, at + ADD_BYTES.length), ADD_BYTES), -1);
        }
        // Frames split and joined, from the shortest to the longest.
        ByteArrayOutputStream stream = new ByteArrayOutputStream();
        for (int size : new int[] {0, 160, 65535 - 15, 1}) {
          stream.write(frame(size == 0 ? Frame.HEARTBEAT : Frame.RTP, size));
        }
        byte[] bytes = stream.toByteArray();
        List<String> frames = new ArrayList<>();
        for (int at = 0, size = 1; at < bytes.length || frames.size() < 4; at += size, size *= 3) {
          size = Math.min(size, bytes.length - at);
          sniffer.getOutputStream().write(bytes, at, size);
          FrameBlock block = size > 0 ? link.receive(20) : null;
          if (block != null) {
            cursor.begin(block);
          }
          while (size == 0 || cursor.next()) {
            Frame frame = size == 0 ? next(link) : cursor.frame();
            frames.add(frame.protocol() + " " + frame.destination() + " " + frame.payload().length);
            size = Math.max(size, 1);
          }
        }
        equal(frames,
            List.of("3 10.0.0.2:5000 0", "2 10.0.0.2:5000 160", "2 10.0.0.2:5000 65520", "2 10.0.0.2:5000 1"));
      }
      await(link, () -> link.sniffers().isEmpty());
      try (Socket again = new Socket("127.0.0.1", link.port())) {
        await(link, () -> !link.sniffers().isEmpty() && link.sessions() == 3);
        that(again.isConnected(), "connected again");
      }
    }
  }

  void testUdp() throws Exception {
    equal(ReceiveBuffer.warning(16 << 20, 16 << 20), "");
    that(ReceiveBuffer.warning(16 << 20, 208 << 10).contains("sysctl -w net.core.rmem_max=16777216"), "no advice");
    long start = System.nanoTime();
    try (UdpTransport link = new UdpTransport(ANY, console)) {
      InetSocketAddress recorder = new InetSocketAddress("127.0.0.1", link.port());
      try (DatagramSocket one = new DatagramSocket(); DatagramSocket other = new DatagramSocket()) {
        for (int round = 0; round < 3; round++) {
          for (DatagramSocket sniffer : List.of(one, other)) {
            byte[] longer = Arrays.copyOf(frame(2, 9), 30);
            for (byte[] datagram :
                new byte[][] {{}, new byte[14], frame(6, 3), longer, frame(5, 8), frame(2, 160)}) {
              sniffer.send(new DatagramPacket(datagram, datagram.length, recorder));
            }
            equal(next(link).payload().length, 160);
          }
        }
        equal(link.sessions(), 2); // senders that take turns keep their numbers
        link.send(ADD);
        for (DatagramSocket sniffer : List.of(one, other)) {
          DatagramPacket command = new DatagramPacket(new byte[100], 100);
          sniffer.setSoTimeout(60_000);
          sniffer.receive(command);
          equal(Arrays.toString(Arrays.copyOf(command.getData(), command.getLength())), Arrays.toString(ADD_BYTES));
        }
      }
      for (int stranger = 0; stranger < 40; stranger++) {
        try (DatagramSocket socket = new DatagramSocket()) {
          socket.send(new DatagramPacket(frame(2, 1), 16, recorder));
          equal(next(link).payload().length, 1);
        }
      }
      // Four new senders count in 10 s, so on a slow machine some more do.
      long most = 4 * (1 + (System.nanoTime() - start) / 10_000_000_000L);
      that(link.sessions() <= most, "strangers cost commands: " + link.sessions());
      that(printed().contains("ignoring datagrams"), printed());
    }
  }

  /** The program from its start to the end of the sniffer. */
  void testProgram() throws Exception {
    for (String line : new String[] {"--bogus", "--tcp", "--tcp x", "--udp 0", "--tcp 1 --udp 2", "--idle-exit -1",
        "--udp 6000 --until-disconnect", "--embedded a --embedded b"}) {
      equal(RecorderMain.run(line.split(" ")), 2);
    }
    Testing.inDirectory(directory -> {
      WarmUp.run(directory.resolve("missing"), console);
      that(printed().contains("rehearsal failed"), printed());
      try (Socket reserved = new Socket()) {
        // A bound socket keeps the port from other programs. With SO_REUSEADDR the recorder can still listen on it.
        reserved.setReuseAddress(true);
        reserved.bind(ANY);
        runOn(reserved.getLocalPort(), directory.toString());
      }
      Options options = Options.parse("--udp", "6000", "--out", directory.toString(), "--idle-exit", "1");
      options.udp = ANY;
      RecorderMain.record(options);
    });
  }

  private void runOn(int port, String directory) throws Exception {
    try (TcpTransport busy = new TcpTransport(new InetSocketAddress("127.0.0.1", port), console)) {
      equal(RecorderMain.run("--tcp", "" + busy.port(), "--out", directory), 1);
    }
    CompletableFuture<Integer> status = CompletableFuture.supplyAsync(
        () -> RecorderMain.run("--tcp", "" + port, "--out", directory, "--until-disconnect"));
    boolean linked = false;
    for (int i = 0; i < TRIES && !linked; i++, Thread.sleep(50)) {
      try (Socket sniffer = new Socket("127.0.0.1", port)) {
        sniffer.getOutputStream().write(frame(Frame.SIP, 100));
        linked = true;
      } catch (IOException e) {
        equal(status.isDone(), false); // the recorder does not listen yet
      }
    }
    equal(status.get(), 0);
  }

  /** Behaves like the native methods. */
  private static class FakeEngine implements EmbeddedTransport.Engine {
    /** The number of frames that are fetched at a time. */
    final int most;
    final Queue<byte[]> frames = new ConcurrentLinkedQueue<>();
    final Queue<byte[]> requests = new ConcurrentLinkedQueue<>();
    final CompletableFuture<Void> broken = new CompletableFuture<>();

    FakeEngine(int most) {
      this.most = most;
    }

    @Override
    public void mainLoop() {
      broken.join();
    }

    @Override
    public void breakMainLoop() {
      broken.complete(null);
    }

    @Override
    public int getPackets(ByteBuffer buffer) {
      int end = 0;
      for (int i = 0; i < most && !frames.isEmpty() && frames.peek().length <= buffer.capacity() - end; i++) {
        buffer.put(end, frames.peek());
        end += frames.remove().length;
      }
      return end;
    }

    @Override
    public int sendRequest(byte[] command) {
      requests.add(command);
      return command.length;
    }
  }

  /** The file of the metrics has the figures of its last moment, also of a service that gives none any more. */
  void testMetricsOfServiceThatWaits() throws Exception {
    Testing.inDirectory(directory -> {
      Path path = directory.resolve("metrics");
      AtomicInteger waiting = new AtomicInteger(1);
      try (MetricsFile file = new MetricsFile(path, directory, console)) {
        file.setLive(figures -> figures.gauge("waiting", "Waiting.", waiting.get()));
        file.replace(new Metrics("voip_"));
        for (int i = 0; i < TRIES && !Files.exists(path); i++) {
          Thread.sleep(10);
        }
        waiting.set(2);
      }
      that(Files.readString(path).contains("\nvoip_waiting 2\n"), Files.readString(path));
    });
  }

  /** A recorder that is too slow loses media before signalling, and each overload is reported with numbers. */
  void testOverload() throws Exception {
    FakeEngine engine = new FakeEngine(5);
    try (EmbeddedTransport link = new EmbeddedTransport(engine);
         Intake intake = new Intake(link, console, SteadyClock.system(), 44_000)) {
      for (int episode = 1; episode <= 2; episode++) {
        List<byte[]> frames = new ArrayList<>();
        for (int i = 0; i < 200; i++) {
          frames.add(frame(i % 5 == 0 ? Frame.SIP : Frame.RTP, 800));
        }
        frames.add(frame(Frame.H323, 3));
        engine.frames.addAll(frames);  // at once, so that all blocks but the last have five frames
        for (int i = 0; i < TRIES && !engine.frames.isEmpty(); i++) {
          Thread.sleep(10);
        }
        int signalling = 0;
        for (int last = 0; last != Frame.H323; signalling += last == Frame.RTP ? 0 : 1) {
          while (!cursor.next()) {
            cursor.begin(intake.receive(60_000));
          }
          last = cursor.protocol();
        }
        equal(signalling, 41);
        equal(printed().split("media is dropped first", -1).length - 1, episode);
        String end = ".*caught up after \\S+ s: 1[456]\\d media frames and 0 signalling.*";
        that(printed().matches("(?s)(" + end + "){" + episode + "}"), printed());
      }
    }
  }

  /** A call that comes while the recorder starts has the time at which it came. */
  void testListens() throws Exception {
    String invite = "INVITE sip:b@b SIP/2.0\r\nFrom: <sip:a@a>;tag=1\r\nTo: <sip:b@b>\r\nCall-ID: 1\r\n"
        + "CSeq: 1 INVITE\r\nVia: SIP/2.0/UDP a;branch=1\r\n\r\n";
    byte[] message = invite.getBytes(StandardCharsets.UTF_8);
    CompletableFuture<Void> read = new CompletableFuture<>();
    FakeEngine engine = new FakeEngine(1) {
      @Override
      public int getPackets(ByteBuffer buffer) {
        if (frames.isEmpty()) {
          read.complete(null);  // the frame before has its time
          breakMainLoop();
        }
        return super.getPackets(buffer);
      }
    };
    engine.frames.add(ByteBuffer.wrap(frame(Frame.SIP, message.length)).put(15, message).array());
    AtomicLong millis = new AtomicLong(1_000_000);
    SteadyClock clock = new SteadyClock(() -> Instant.ofEpochMilli(millis.get()), () -> 1_000_000 * millis.get());
    Testing.inDirectory(directory -> {
      try (EmbeddedTransport link = new EmbeddedTransport(engine); Store store = new Store(directory, console)) {
        Recorder recorder = new Recorder(store, new Track.Options(true, false, false), Service.Limits.NONE, console,
            clock, (report, firstMessage) -> equal(report.start(), 1_000_000L));
        recorder.listen(link);
        read.join();
        millis.addAndGet(5000);
        recorder.run(link);
      } catch (IOException e) {
        that(e.getMessage().contains("has stopped"), e.getMessage());
      }
      that(Files.readString(directory.resolve("calls.csv")).contains("\n1970-01-01T00:16:40.000Z"), printed());
    });
  }

  void testEmbedded() throws Exception {
    receivesFrom(new FakeEngine(100));
    receivesFrom(new FakeEngine(1));
  }

  private void receivesFrom(FakeEngine engine) throws Exception {
    try (EmbeddedTransport link = new EmbeddedTransport(engine)) {
      equal(link.receive(5), null);
      for (int size : new int[] {0, 2000, 65535 - 15, 3}) {
        engine.frames.add(frame(Frame.RTP, size));
        equal(next(link).payload().length, size);
      }
      // A capture time belongs to the next frame and to no other.
      byte[] time = ByteBuffer.wrap(frame(Frame.CAPTURE_TIME, 8)).putLong(15, 1_700_000_000_123_456L).array();
      byte[] elsewhere = ByteBuffer.wrap(frame(Frame.RTP, 9)).putInt(3, 1).array();
      engine.frames.addAll(List.of(time, frame(2, 1), frame(2, 1), time, elsewhere, frame(2, 1)));
      List<Long> captured = new ArrayList<>();
      while (captured.size() < 4) {
        next(link);
        captured.add(cursor.captured());
      }
      equal(captured, List.of(1_700_000_000_123L, 0L, 0L, 0L));
      link.send(ADD);
      equal(Arrays.toString(engine.requests.remove()), Arrays.toString(ADD_BYTES));
      engine.breakMainLoop();
      try {
        next(link);
        throw new AssertionError("the end of the main loop went unnoticed");
      } catch (IOException e) {
        that(e.getMessage().contains("has stopped"), e.getMessage());
      }
    }
  }
}
