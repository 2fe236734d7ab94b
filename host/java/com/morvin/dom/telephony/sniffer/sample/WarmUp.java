package com.morvin.dom.telephony.sniffer.sample;

import com.morvin.dom.telephony.sniffer.sample.console.Console;
import com.morvin.dom.telephony.sniffer.sample.media.Track;
import com.morvin.dom.telephony.sniffer.sample.recording.Recorder;
import com.morvin.dom.telephony.sniffer.sample.service.Service;
import com.morvin.dom.telephony.sniffer.sample.storage.Store;
import com.morvin.dom.telephony.sniffer.sample.transport.Command;
import com.morvin.dom.telephony.sniffer.sample.transport.Endpoint;
import com.morvin.dom.telephony.sniffer.sample.transport.Frame;
import com.morvin.dom.telephony.sniffer.sample.transport.FrameBlock;
import com.morvin.dom.telephony.sniffer.sample.transport.SteadyClock;
import com.morvin.dom.telephony.sniffer.sample.transport.Transport;
import java.io.ByteArrayOutputStream;
import java.io.IOException;
import java.io.OutputStream;
import java.io.PrintStream;
import java.nio.ByteBuffer;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayDeque;
import java.util.Comparator;
import java.util.Queue;
import java.util.Set;
import java.util.stream.Stream;

/**
 * Records some invented calls into a temporary directory, so that the virtual machine loads and links the classes that
 * the first real call needs, and compiles what each packet goes through. Without it, the command for the media of that
 * call would be about 100 ms late, and the media of many calls at once would wait too long.
 */
final class WarmUp implements Transport {
  private static final String INVITE = """
      INVITE sip:b@127.0.0.1 SIP/2.0
      Via: SIP/2.0/UDP 127.0.0.1;branch=1
      From: "A" <sip:a@127.0.0.1>;tag=1
      To: <sip:b@127.0.0.1>
      Call-ID: PORT
      CSeq: 1 INVITE
      Content-Type: application/sdp

      v=0
      c=IN IP4 127.0.0.1
      m=audio PORT RTP/AVP 8
      a=rtpmap:8 PCMA/8000
      """;
  private static final String SETUP = "t:5\nr:1\nc:1\ns:a\nd:b\nm:1:rcodec:g711Alaw64k 20,rtp:127.0.0.1 9\n";

  private static final Endpoint ENDPOINT = new Endpoint(0x7f000001, 9);
  private static final int CALLS = 4;
  /** A method is compiled after it was called some 10,000 times. */
  private static final int BLOCKS = 30;
  private static final int PACKETS_OF_BLOCK = 200;
  private static final int SAMPLES = 160;

  private final Queue<FrameBlock> frames = new ArrayDeque<>();

  private WarmUp() {
    add(new Frame(Frame.H323, ENDPOINT, ENDPOINT, SETUP.getBytes(StandardCharsets.UTF_8)).bytes());
    for (int call = 0; call < CALLS; call++) {
      String invite = INVITE.replace("PORT", Integer.toString(port(call)));
      add(new Frame(Frame.SIP, ENDPOINT, ENDPOINT, invite.getBytes(StandardCharsets.UTF_8)).bytes());
    }
    long begin = System.currentTimeMillis() - 20 * BLOCKS * PACKETS_OF_BLOCK;
    for (int block = 0; block < BLOCKS; block++) {
      for (int call = 0; call < CALLS; call++) {
        add(speech(new Endpoint(ENDPOINT.address(), port(call)), block * PACKETS_OF_BLOCK, begin));
      }
    }
  }

  private static int port(int call) {
    return 1000 + 2 * call;
  }

  /** Returns packets with their times of capture. */
  private static byte[] speech(Endpoint destination, int first, long begin) {
    ByteArrayOutputStream frames = new ByteArrayOutputStream();
    for (int i = first; i < first + PACKETS_OF_BLOCK; i++) {
      byte[] time = ByteBuffer.allocate(Long.BYTES).putLong(1000 * (begin + 20L * i)).array();
      byte[] packet = ByteBuffer.allocate(12 + SAMPLES).putShort((short) 0x8008).putShort((short) i)
          .putInt(i * SAMPLES).putInt(1).array();
      frames.writeBytes(new Frame(Frame.CAPTURE_TIME, destination, ENDPOINT, time).bytes());
      frames.writeBytes(new Frame(Frame.RTP, destination, ENDPOINT, packet).bytes());
    }
    return frames.toByteArray();
  }

  private void add(byte[] bytes) {
    frames.add(new FrameBlock(bytes, 0, bytes.length, 0, 0));
  }

  /**
   * Returns after the calls are recorded and removed. Logs a failure, after which the first call may lose 100 ms.
   *
   * @param parent the directory in which the temporary directory is made
   */
  static void run(Path parent, Console operator) throws InterruptedException {
    try {
      rehearse(parent);
    } catch (IOException e) {
      operator.line("the first call may lose its first 100 ms, because the rehearsal failed: " + e);
    }
  }

  private static void rehearse(Path parent) throws IOException, InterruptedException {
    Path directory = Files.createTempDirectory(parent, "rehearsal");
    Console console = new Console(new PrintStream(OutputStream.nullOutputStream()), false);
    try (Store store = new Store(directory, console)) {
      Service.Limits limits = new Service.Limits(false, 0, Service.Limits.NONE.calls());
      Track.Options options = new Track.Options(true, false, false);
      new Recorder(store, options, limits, console, SteadyClock.system(), (report, firstMessage) -> { })
          .run(new WarmUp());
    } finally {
      try (Stream<Path> all = Files.walk(directory)) {
        for (Path path : all.sorted(Comparator.reverseOrder()).toList()) {
          Files.deleteIfExists(path);
        }
      }
    }
  }

  @Override
  public FrameBlock receive(long timeoutMillis) throws InterruptedException {
    FrameBlock next = frames.poll();
    if (next == null) {
      Thread.sleep(timeoutMillis);
    }
    return next;
  }

  @Override
  public void send(int sniffer, Command command) {
    command.bytes();
  }

  @Override
  public Set<Integer> sniffers() {
    return Set.of();
  }

  @Override
  public int sessions() {
    return 0;
  }

  @Override
  public void close() {}
}
