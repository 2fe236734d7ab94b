package com.morvin.dom.telephony.sniffer.sample;

import static com.morvin.dom.telephony.sniffer.sample.Testing.equal;
import static com.morvin.dom.telephony.sniffer.sample.Testing.that;

import com.morvin.dom.telephony.sniffer.sample.console.Console;
import com.morvin.dom.telephony.sniffer.sample.console.Text;
import com.morvin.dom.telephony.sniffer.sample.signalling.Call;
import com.morvin.dom.telephony.sniffer.sample.signalling.CallFollower;
import com.morvin.dom.telephony.sniffer.sample.signalling.Moment;
import com.morvin.dom.telephony.sniffer.sample.signalling.Share;
import com.morvin.dom.telephony.sniffer.sample.storage.Disk;
import com.morvin.dom.telephony.sniffer.sample.storage.Encoding;
import com.morvin.dom.telephony.sniffer.sample.storage.Store;
import com.morvin.dom.telephony.sniffer.sample.storage.WavChannel;
import com.morvin.dom.telephony.sniffer.sample.storage.WavFile;
import com.morvin.dom.telephony.sniffer.sample.transport.Address;
import com.morvin.dom.telephony.sniffer.sample.transport.Endpoint;
import com.morvin.dom.telephony.sniffer.sample.transport.Frame;
import com.morvin.dom.telephony.sniffer.sample.transport.FrameBlock;
import com.morvin.dom.telephony.sniffer.sample.transport.FrameCursor;
import java.io.ByteArrayOutputStream;
import java.io.FilterOutputStream;
import java.io.IOException;
import java.io.PrintStream;
import java.nio.ByteBuffer;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.List;
import java.util.Queue;
import java.util.Random;
import java.util.concurrent.CompletableFuture;
import java.util.concurrent.ConcurrentLinkedQueue;
import java.util.concurrent.CountDownLatch;
import java.util.stream.Stream;
import java.util.zip.CRC32;

/** No input makes the recorder throw, grow without limit or write outside its directory. */
final class HostileInputTest {
  private static final String INVITE = """
      INVITE sip:b@b SIP/2.0
      Via: SIP/2.0/UDP x;branch=z
      From: "A" <sip:a@a>;tag=a
      To: <sip:b@b>
      Call-ID: 1
      CSeq: 1 INVITE
      Content-Type: application/sdp
      Content-Length: 120

      v=0
      c=IN IP4 10.0.0.1
      m=audio 4000 RTP/AVP 8 96
      a=rtpmap:96 PCMU/8000/1
      a=rtcp:4001 IN IP4 10.0.0.1
      """;
  private static final String SETUP = """
      t:5
      r:7
      c:id
      s:alice
      d:bob
      i:5
      m:1:fcodec:g729 0,rtp:10.0.0.1 4000rcodec:g711Alaw64k 20,rtp:10.0.0.1 4002
      a:1:rtp:10.0.0.2 4004
      """;
  private static final String[] SPICE = {"\r\n", "\n", ":", ";", "\"", "<", ">", "tag=", "/", "\0", "99999999999", "-1",
      "a=rtpmap:", "m=audio ", "c=IN IP4 ", "t:", "r:", "m:", "rtp:", "rtp:[", "::", "IN IP6 2001:db8::",
      "a=candidate:1 1 UDP 1 ", "/////", "\\", "\u00e9", "\u001b[2J", "=cmd|' /C calc'!A0"};
  private static final String[] METHODS = {"INVITE", "INVITE", "BYE", "CANCEL", "REFER", "INFO"};
  private static final String[] LINKS = {"", "", "", "X-Leg: %d", "Replaces: %d;to-tag=b;from-tag=a",
      "Session-ID: %032d", "Refer-To: <sip:b@c?Replaces=%d%%3Bto-tag%%3Db%%3Bfrom-tag%%3Da>"};
  private static final int[] TYPES = {5, 5, 7, 90, 98, 130, 131};
  private static final Endpoint A = new Endpoint(0x0a000001, 5060);
  private static final Endpoint B = new Endpoint(0x0a000002, 5060);

  private static byte[] mutate(String text, Random random) {
    StringBuilder mutated = new StringBuilder(text);
    for (int i = random.nextInt(4); i >= 0; i--) {
      int at = random.nextInt(mutated.length() + 1);
      int end = Math.min(mutated.length(), at + random.nextInt(20));
      switch (random.nextInt(4)) {
        case 0 -> mutated.delete(at, end);
        case 1 -> mutated.insert(at, SPICE[random.nextInt(SPICE.length)]);
        case 2 -> mutated.insert(at, mutated.substring(at, end).repeat(random.nextInt(20)));
        default -> mutated.replace(at, end, SPICE[random.nextInt(SPICE.length)]);
      }
    }
    return mutated.toString().getBytes(random.nextBoolean() ? StandardCharsets.UTF_8 : StandardCharsets.ISO_8859_1);
  }

  private static String response(String status) {
    return INVITE.replace("INVITE sip:b@b SIP/2.0", "SIP/2.0 " + status).replace("<sip:b@b>", "<sip:b@b>;tag=b");
  }

  private static byte[] mediaPacket(Random random) {
    byte[] packet = new byte[random.nextInt(40)];
    random.nextBytes(packet);
    if (packet.length > 0 && random.nextBoolean()) {
      packet[0] = (byte) (0x80 | packet[0] & 0x3f);
    }
    return packet;
  }

  private static void sip(FakeSniffer sniffer, Endpoint source, Endpoint destination, String message) {
    sniffer.frame(Frame.SIP, source, destination, message.getBytes(StandardCharsets.UTF_8));
  }

  private static Address host(Random random) {
    return random.nextInt(4) > 0 ? Address.of(random.nextInt(4)) : new Address(0x2001_0db8L << 32, random.nextInt(4));
  }

  void testMutatedMessages() throws Exception {
    FakeSniffer.with(sniffer -> {
      Random random = new Random(42);
      List<FakeSniffer> shares = List.of(sniffer.addShare(1, 2), sniffer.addShare(2, 2));
      for (int i = 0; i < 4000; i++) {
        Endpoint a = new Endpoint(host(random), random.nextInt(4));
        Endpoint b = new Endpoint(host(random), random.nextInt(4));
        Endpoint listed = sniffer.list.isEmpty() ? b : sniffer.list.get(random.nextInt(sniffer.list.size()));
        String callId = "Call-ID: " + random.nextInt(200);
        String request = INVITE.replace("INVITE", METHODS[random.nextInt(METHODS.length)]).replace("Call-ID: 1",
            String.format(LINKS[random.nextInt(LINKS.length)] + "\n" + callId, random.nextInt(200)).stripLeading());
        String response = response(random.nextInt(6) + 1 + "00 x").replace("Call-ID: 1", callId);
        String text = SETUP.replace("c:id", "c:" + random.nextInt(200)).replace("t:5", "t:" + TYPES[random.nextInt(7)]);
        switch (random.nextInt(4)) {
          case 0 -> sniffer.frame(Frame.SIP, a, b, mutate(request, random));
          case 1 -> sniffer.frame(Frame.SIP, b, a, mutate(response, random));
          case 2 -> sniffer.frame(Frame.H323, a, b, mutate(text, random));
          default -> sniffer.frame(Frame.RTP, a, listed, mediaPacket(random));
        }
        that(sniffer.list.size() < 20_000, "list " + sniffer.list.size());
        sniffer.pass(i % 500 == 0 ? 30_000 : 0);
        if (i % 1000 == 999) {
          sniffer.restart(i % 2000 == 999 ? "stop" : "kill");
        }
      }
      sniffer.pass(3_700_000);
      equal(sniffer.list.size(), 0);
      that(sniffer.table().size() > 200, "calls were followed: " + sniffer.table().size());
      that(!sniffer.printed().contains("cannot be handled"), sniffer.printed());
      for (FakeSniffer share : shares) {
        equal(share.list.size(), 0);
        that(!share.printed().contains("cannot be handled"), share.printed());
      }
      that(!sniffer.printed().contains("\u001b"), "a caller steers the terminal");
      sniffer.table().forEach(line -> that(!line.matches("(.*,)?[=+@-].*") && !line.contains("\0"), line));
      that(!sniffer.report().matches(".*[<>&].*"), "a caller writes into the page");
    });
  }

  /** Forged calls, answered or not, some with a packet, make way. Those without leave no file. */
  void testFloodOfCallsMakesWayForRealOnes() throws Exception {
    FakeSniffer.with(sniffer -> {
      sip(sniffer, A, B, INVITE);
      sip(sniffer, B, A, response("200 OK"));
      for (int i = 0; i < 15_000; i++) {
        String id = "Call-ID: flood-" + i;
        String port = "audio " + (5000 + 2 * i);
        sip(sniffer, B, A, INVITE.replace("Call-ID: 1", id).replace("audio 4000", port));
        if (i % 2 == 0) {
          sip(sniffer, A, B, response("200 OK").replace("Call-ID: 1", id).replace("audio 4000", port));
        }
        if (i % 4 != 0) {
          sniffer.udp(A, FakeSniffer.at("10.0.0.1:" + (5000 + 2 * i)), FakeSniffer.rtp(8, i, i, i, new byte[160]));
        }
        that(sniffer.list.size() <= 2 * 10_000 + 4, "list " + sniffer.list.size());
        sniffer.pass(i == 10_500 ? 11_000 : 0);
      }
      that(sniffer.list.contains(FakeSniffer.at("10.0.0.1:4000")), "the answered call is still followed");
      that(sniffer.list.contains(FakeSniffer.at("10.0.0.1:34998")), "the newest call is followed");
      that(sniffer.files(".csv").size() == 1, "no table");
      sniffer.table().forEach(line -> that(line.contains("ended for other calls"), "in the table: " + line));
    });
  }

  /** Calls that take much memory are dropped, but not the one with media. Long names and unused media take none. */
  void testMemoryOfSignalling() {
    CallFollower follower = new CallFollower(new CallFollower.Listener() {
      @Override
      public void began(Call call, Moment at) {}

      @Override
      public void ended(Call call, String how, Moment at) {
        equal(how, CallFollower.DROPPED);
      }
    },
        new CallFollower.Limits(4000, 60_000, 60_000, 1 << 20, Share.ALL), command -> true);
    Moment now = new Moment(1, 1);
    String codecs = "a=rtpmap:96 " + "x".repeat(2000) + "\nm=audio 0 RTP/AVP 8\n" + "a=rtpmap:97 y\n".repeat(30);
    follower.signalling(sip(INVITE.replace("Call-ID: 1", "Call-ID: real").replace("120", "9999") + codecs), now);
    FrameCursor media = new FrameCursor(
        FrameBlock.of(new Frame(Frame.RTP, FakeSniffer.at("10.0.0.1:4000"), B, new byte[172]), 1, 1));
    media.next();
    for (int i = 0; i < 60; i++) {
      follower.media(media, now);
    }
    for (int i = 0; i < 64 * 40; i++) {
      follower.signalling(sip(INVITE.replace("Call-ID: 1", "Call-ID: " + i % 40).replace("tag=a", "tag=" + i)
          .replace("branch=z", "branch=" + i).replace("120", "9999") + "m=audio 5000 RTP/AVP 8\n".repeat(8)), now);
      follower.tick(now, false);
    }
    that(follower.calls().size() < 41, "calls " + follower.calls().size());
    equal(follower.calls().iterator().next().id(), "real");
  }

  private static Frame sip(String message) {
    return new Frame(Frame.SIP, B, A, message.getBytes(StandardCharsets.UTF_8));
  }

  /** The parts of one call are limited, too: methods, tags, branches, addresses. */
  void testEndlessCall() throws Exception {
    FakeSniffer.with(sniffer -> {
      sip(sniffer, A, B, INVITE);
      sip(sniffer, B, A, response("181 first"));
      for (int i = 0; i < 5_000; i++) {
        String media = "m=audio " + (10_000 + 2 * (i % 20_000)) + " RTP/AVP 8\n";
        String method = i + " " + "M".repeat(3000) + i;
        sip(sniffer, B, A, response(i % 2 == 0 ? "200 OK" : "183 x").replace("1 INVITE", method));
        sip(sniffer, A, B, INVITE.replace("branch=z", "branch=" + i).replace("tag=a", "tag=" + i)
            .replace("Content-Length: 120\n", "").replace("1 INVITE", i + " INVITE") + media.repeat(8));
      }
      that(sniffer.list.size() <= 70, "list " + sniffer.list.size());
      sniffer.pass(2000);
      that(sniffer.store.disk().droppedBytes() == 0, "dropped");
      sip(sniffer, B, A, response("180 last"));
      sniffer.recorder.finish();
      String report = sniffer.report();
      that(report.contains("181 first") && report.contains("180 last"), "the first and the last messages are listed");
      equal(report.split("\"label\":").length - 1, 200);
    });
  }

  /** Forged RTP neither fills the disk nor replaces speech. */
  void testForgedMedia() throws Exception {
    FakeSniffer.with(sniffer -> {
      sip(sniffer, A, B, INVITE);
      Endpoint listed = FakeSniffer.at("10.0.0.1:4000");
      Random random = new Random(1);
      for (int i = 0; i < 200; i++, sniffer.pass(20)) {
        sniffer.udp(B, listed, FakeSniffer.rtp(8, i, i * 160, 1, new byte[160]));
        sniffer.udp(B, listed, FakeSniffer.rtp(8, random.nextInt(), random.nextInt(), random.nextInt(), new byte[160]));
        sniffer.udp(B, listed, FakeSniffer.rtp(8, random.nextInt() | 0x8000, random.nextInt(), 1, new byte[160]));
        sniffer.udp(B, listed, FakeSniffer.rtp(8, i, 0, random.nextInt(), new byte[60_000]));
      }
      sniffer.recorder.finish();
      int length = sniffer.samples("from-callee.wav").length;
      that(length >= 200 * 160 && length < 220 * 160, "samples " + length);
      that(sniffer.files(".wav").size() <= 8, "files " + sniffer.files(".wav"));
    });
  }

  /** Forged sources wait with a packet each, in more memory than the media of all calls may take. */
  void testForgedMediaOfManyCalls() throws Exception {
    FakeSniffer.with(sniffer -> {
      int calls = 100;
      for (int i = 0; i < calls; i++) {
        sip(sniffer, A, B, INVITE.replace("Call-ID: 1", "Call-ID: " + i).replace("audio 4000", "audio " + (4000 + i)));
      }
      for (int i = 0; i < 300 * calls; i++) {
        Endpoint listed = FakeSniffer.at("10.0.0.1:" + (4000 + i % calls));
        int number = i / calls;
        sniffer.udp(A, listed, FakeSniffer.rtp(8, number, number * 160, i, new byte[2000]));
        sniffer.udp(B, listed, FakeSniffer.rtp(8, number, number * 160, 1, new byte[160]));
        sniffer.pass(i % calls == 0 ? 20 : 0);
      }
      sniffer.recorder.finish();
      that(sniffer.printed().contains("the memory for packets that wait was used up"), "nothing was given back");
      sniffer.table().forEach(line -> that(line.matches(".*,0,0,,,3\\d\\d,0,.*"), line));
    });
  }

  /** Minor jobs are dropped first, then media, then the other jobs; the oldest first in each case. */
  void testWhatWaitsForTheDiskIsBounded() throws Exception {
    Testing.inDirectory(directory -> {
      CountDownLatch stalled = new CountDownLatch(1);
      Queue<Integer> written = new ConcurrentLinkedQueue<>();
      Queue<Integer> dropped = new ConcurrentLinkedQueue<>();
      try (Disk disk = new Disk(directory, 100_000, new Console(System.out, false), bytes -> awaitIn(stalled))) {
        disk.submit(() -> { });  // keeps the disk thread busy
        for (int i = 0; i < 10; i++) {
          int number = i;
          disk.write(9_700, () -> written.add(number), () -> dropped.add(number));
        }
        for (int i = 0; i < 1000; i++) {
          int number = 1000 + i;
          disk.submit(16_000, List.of(() -> written.add(number)), Disk.Content.MINOR, () -> dropped.add(number));
        }
        that(dropped.size() >= 994 && dropped.stream().noneMatch(number -> number == 9), "flood: " + dropped);
        for (int i = 0; i < 120; i++) {
          int number = 100 + i;
          disk.submit(4_000, List.of(() -> written.add(number)), () -> dropped.add(number));
        }
        stalled.countDown();
        disk.drain();
      }
      equal(written.size() + dropped.size(), 1130);
      that(dropped.contains(9) && dropped.contains(105) && written.contains(219), "the oldest go: " + dropped);
      that(written.size() >= 20 && written.size() <= 26, "" + written);
    });
  }

  /** Media with many gaps comes in pieces that are much shorter than a second. Thousands wait for a stalled disk. */
  void testShortPiecesTakeLittleMemory() throws Exception {
    Testing.inDirectory(directory -> {
      CountDownLatch stalled = new CountDownLatch(1);
      int pieces = 50_000;  // half a gigabyte, if each took the memory of a second
      WavChannel channel;
      try (Store store = new Store(directory, new Console(System.out, false), bytes -> awaitIn(stalled))) {
        WavFile file = store.wav("short", new WavFile.Format(Encoding.A_LAW, 8000, 1), 0);
        channel = file.take(0);
        byte[] octets = new byte[80];
        for (int i = 0; i < pieces; i++) {
          channel.write(octets, 0, octets.length, Encoding.A_LAW);
          file.flush();
        }
        stalled.countDown();
      }
      equal(channel.samples(), 80L * pieces);
      equal(channel.missing(), 0L);
    });
  }

  private static void awaitIn(CountDownLatch latch) throws IOException {
    try {
      latch.await();
    } catch (InterruptedException e) {
      throw new IOException(e);
    }
  }

  /** What cannot be written at the end takes one line, however many jobs it is. */
  void testFloodOfFailuresAtTheEnd() throws Exception {
    Testing.inDirectory(directory -> {
      ByteArrayOutputStream shown = new ByteArrayOutputStream();
      Console console = new Console(new PrintStream(shown, true, StandardCharsets.UTF_8), false);
      try (Disk disk = new Disk(directory, 1_000_000, console, bytes -> { })) {
        disk.hurry();
        for (int i = 0; i < 100; i++) {
          disk.write(1000, () -> {
            throw new IllegalStateException("broken");
          }, () -> { });
        }
        disk.drain();
        equal(disk.losses().size(), 1);
      }
      console.flush(60_000);
      that(shown.toString(StandardCharsets.UTF_8).matches("[^\n]*broken; and 99 more jobs\\R"), shown.toString());
    });
  }

  /** An error, such as a lack of memory, ends the process: it is neither hidden nor waited for. */
  void testErrorOfTheDiskThread() throws Exception {
    Thread.UncaughtExceptionHandler handler = Thread.getDefaultUncaughtExceptionHandler();
    CompletableFuture<Throwable> uncaught = new CompletableFuture<>();
    Thread.setDefaultUncaughtExceptionHandler((thread, thrown) -> uncaught.complete(thrown));
    try {
      Testing.inDirectory(directory -> {
        try (Disk disk = new Disk(directory, 100_000, new Console(System.out, false), bytes -> { })) {
          disk.submit(() -> {
            throw new OutOfMemoryError("simulated");
          });
          disk.submit(() -> { });
          equal(uncaught.get().getMessage(), "simulated");
        }
      });
    } finally {
      Thread.setDefaultUncaughtExceptionHandler(handler);
    }
  }

  /** Calls that fail at a high rate get a limited number of reports; a call with media always gets one. */
  void testFloodOfFailedCalls() throws Exception {
    FakeSniffer.with(sniffer -> {
      for (int i = 0; i < 6000; i++) {
        String id = "Call-ID: flood-" + i;
        sip(sniffer, A, B, INVITE.replace("Call-ID: 1", id));
        sip(sniffer, B, A, response("404 Not Found").replace("Call-ID: 1", id));
      }
      sip(sniffer, A, B, INVITE);
      sip(sniffer, B, A, response("200 OK"));
      sniffer.udp(A, FakeSniffer.at("10.0.0.1:4000"), FakeSniffer.rtp(8, 0, 0, 0, new byte[160]));
      sniffer.pass(60_000);
      sniffer.recorder.finish();
      int reports = sniffer.table().size();
      that(reports > 2000 && reports < 5000, "reports " + reports);
      that(sniffer.table().get(reports - 1).contains(",1,recording stopped,"), "" + sniffer.table().get(reports - 1));
      that(sniffer.printed().contains(6001 - reports + " calls without media got no report"), sniffer.printed());
    });
  }

  /** The reports of calls that end at once do not take the place of media that waits for the disk. */
  void testFloodOfEndedCalls() throws Exception {
    FakeSniffer.with(sniffer -> {
      String flood = (INVITE.substring(0, INVITE.indexOf("Content-Type")) + "\n").replace("INVITE", "BYE")
          .replace("<sip:b@b>", "<sip:b@b>;tag=b");
      int calls = 1_500;
      for (int i = 0; i <= calls; i++) {
        String id = "Call-ID: " + i;
        String port = "audio " + (5000 + 2 * i);
        sip(sniffer, A, B, INVITE.replace("Call-ID: 1", id).replace("audio 4000", port));
        sip(sniffer, B, A, response("200 OK").replace("Call-ID: 1", id).replace("audio 4000", port));
        sniffer.udp(B, FakeSniffer.at("10.0.0.1:" + (5000 + 2 * i)), FakeSniffer.rtp(8, 1, 1, i, new byte[160]));
      }
      sniffer.pass(2000);
      sniffer.disk("stalled");
      for (int i = 1; i <= calls; i++) {
        String id = "Call-ID: " + i;
        sip(sniffer, A, B, flood.replace("Call-ID: 1", id));
        sip(sniffer, B, A, flood.replace("BYE sip:b@b SIP/2.0", "SIP/2.0 200 OK").replace("Call-ID: 1", id));
      }
      sniffer.udp(B, FakeSniffer.at("10.0.0.1:5000"), FakeSniffer.rtp(8, 2, 161, 0, new byte[160]));
      sniffer.pass(2000);
      long dropped = sniffer.store.disk().droppedBytes();
      sniffer.disk("good");
      for (int i = 0; i < 20; i++) {
        sniffer.pass(200);  // waits for the disk each time
      }
      equal(dropped + " " + sniffer.table().size(), "0 " + calls);
    });
  }

  /** A saved state with a changed byte and a right checksum: the call goes on, and its files stay small. */
  void testChangedState() throws Exception {
    Path name = Path.of("running", "checkpoint");
    for (int i = 0, length = 1; i < length; i += 3) {
      int at = i;
      int[] size = {0};
      FakeSniffer.with(sniffer -> {
        sip(sniffer, A, B, INVITE);
        sip(sniffer, B, A, response("200 OK"));
        for (int n = 0; n < 60; n++) {
          sniffer.udp(B, FakeSniffer.at("10.0.0.1:4000"), FakeSniffer.rtp(8, n, 160 * n, 0, new byte[160]));
          sniffer.pass(20);
        }
        sniffer.restart("stop");
        byte[] state = Files.readAllBytes(sniffer.directory.resolve(name));
        size[0] = ByteBuffer.wrap(state).getInt();
        state[8 + at] ^= 0x7f;
        CRC32 crc = new CRC32();
        crc.update(state, 8, size[0]);
        ByteBuffer.wrap(state).putInt(4, (int) crc.getValue());
        sniffer.restart(state);
        sniffer.udp(B, FakeSniffer.at("10.0.0.1:4000"), FakeSniffer.rtp(8, 60, 9600, 0, new byte[160]));
        sniffer.finish();
        try (Stream<Path> files = Files.walk(sniffer.directory)) {
          long most = files.mapToLong(file -> file.toFile().length()).max().orElseThrow();
          that(most < 16 << 20 && sniffer.table().size() == 1, "byte " + at + ": " + most + sniffer.printed());
        }
      });
      length = size[0];
    }
  }

  /** A paused terminal, or a pipe that is not read, does not stop the recorder. */
  void testOutputThatBlocks() throws Exception {
    CountDownLatch read = new CountDownLatch(1);
    ByteArrayOutputStream shown = new ByteArrayOutputStream();
    Console console = new Console(new PrintStream(new FilterOutputStream(shown) {
      @Override
      public void write(byte[] bytes, int from, int length) throws IOException {
        try {
          read.await();
        } catch (InterruptedException e) {
          throw new IOException(e);
        }
        super.write(bytes, from, length);
      }
    }, true, StandardCharsets.UTF_8), false);
    for (int i = 0; i < 50_000; i++) {
      console.line("line " + i);
    }
    read.countDown();
    console.flush(Long.MAX_VALUE / 1_000_000);
    long lines = shown.toString(StandardCharsets.UTF_8).lines().count();
    that(lines > 500 && lines < 2000 && shown.toString(StandardCharsets.UTF_8).contains(" missing here"), "" + lines);
  }

  void testNamesStayInTheirPlace() {
    for (String name : new String[] {"../../etc/passwd", "..", "", "a/b\\c", "-rf", ".hidden", "x".repeat(5000),
        "\u202egnp.wav", "CON\0"}) {
      String part = Text.fileNamePart(name);
      that(part.matches("[A-Za-z0-9_+@][A-Za-z0-9._+@-]{0,39}"), part);
      equal(Path.of("out").resolve(part).normalize().getNameCount(), 2);
    }
    for (String formula : List.of("=1+1", "+1", "-1", "@1", "\uff1d1+1", "\uff0b1", "\uff0d1", "\uff201", "\ufe661",
        "\u22121", "\u00a0=1", "\ufe0f=1")) {
      equal(Text.csv("\t\r\u0085" + formula), "'" + formula);
      equal(Text.ofCsv(Text.csv(formula)), formula);
    }
    equal(Text.printable("a\u009b2J"), "a 2J");
    equal(Text.csv("a,\"b\"\n\tc"), "\"a,\"\"b\"\"  c\"");
    // Half of a surrogate pair could not be encoded in UTF-8.
    that(StandardCharsets.UTF_8.newEncoder().canEncode(Text.csv("x".repeat(199) + "\ud83d\ude00y")), "cut in two");
  }
}
