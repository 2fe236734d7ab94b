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
import java.io.IOException;
import java.io.OutputStream;
import java.io.PrintStream;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayDeque;
import java.util.Comparator;
import java.util.Queue;
import java.util.Set;
import java.util.stream.Stream;

/**
 * Records two invented calls into a temporary directory, so that the virtual machine loads and links the classes that
 * the first real call needs. Without it, the command for the media of that call would be about 100 ms late, and the
 * media in between would be missing.
 */
final class WarmUp implements Transport {
  private static final String INVITE = """
      INVITE sip:b@127.0.0.1 SIP/2.0
      Via: SIP/2.0/UDP 127.0.0.1;branch=1
      From: "A" <sip:a@127.0.0.1>;tag=1
      To: <sip:b@127.0.0.1>
      Call-ID: 1
      CSeq: 1 INVITE
      Content-Type: application/sdp

      v=0
      c=IN IP4 127.0.0.1
      m=audio 9 RTP/AVP 8
      a=rtpmap:8 PCMA/8000
      """;
  private static final String SETUP = "t:5\nr:1\nc:1\ns:a\nd:b\nm:1:rcodec:g711Alaw64k 20,rtp:127.0.0.1 9\n";

  private static final Endpoint ENDPOINT = new Endpoint(0x7f000001, 9);
  private static final byte[] SPEECH = {(byte) 0x80, 8, 0, 1, 0, 0, 0, 0, 0, 0, 0, 1, 0x55};

  private final Queue<FrameBlock> frames = new ArrayDeque<>();

  private WarmUp() {
    add(Frame.SIP, INVITE.getBytes(StandardCharsets.UTF_8));
    add(Frame.H323, SETUP.getBytes(StandardCharsets.UTF_8));
    add(Frame.RTP, SPEECH);
  }

  private void add(int protocol, byte[] payload) {
    frames.add(FrameBlock.of(new Frame(protocol, ENDPOINT, ENDPOINT, payload), 0, 0));
  }

  /**
   * Returns after the calls are recorded and removed. Logs a failure, which costs little.
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
      new Recorder(store, new Track.Options(true, false, false), limits, console, SteadyClock.system(), report -> { }).run(new WarmUp());
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
