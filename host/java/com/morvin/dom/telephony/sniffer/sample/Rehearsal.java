package com.morvin.dom.telephony.sniffer.sample;

import com.morvin.dom.telephony.sniffer.sample.console.Console;
import com.morvin.dom.telephony.sniffer.sample.recording.Recorder;
import com.morvin.dom.telephony.sniffer.sample.signalling.Call;
import com.morvin.dom.telephony.sniffer.sample.transport.Command;
import com.morvin.dom.telephony.sniffer.sample.transport.Endpoint;
import com.morvin.dom.telephony.sniffer.sample.transport.Frame;
import com.morvin.dom.telephony.sniffer.sample.transport.Received;
import com.morvin.dom.telephony.sniffer.sample.transport.Transport;
import java.io.IOException;
import java.io.OutputStream;
import java.io.PrintStream;
import java.nio.charset.StandardCharsets;
import java.nio.file.Path;
import java.time.Clock;
import java.util.Set;

/**
 * Two calls that do not exist, signalled to a recorder without an audience, so that the virtual machine loads and links
 * what the first real call needs. Else that call would pay a tenth of a second between its signalling and the command
 * that asks for its media, and media does not wait.
 */
final class Rehearsal implements Transport {
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

  private Rehearsal() {}

  /** Leaves nothing behind: a call without media has no files, and none of these ends. */
  static void play(Path directory) throws IOException {
    Console silence = new Console(new PrintStream(OutputStream.nullOutputStream()), false);
    Recorder recorder = new Recorder(directory, Recorder.Limits.NONE, silence, Clock.systemUTC());
    recorder.attach(new Rehearsal());
    recorder.step(frame(Frame.SIP, INVITE));
    recorder.step(frame(Frame.H323, SETUP));
  }

  private static Received frame(int protocol, String text) {
    Endpoint nobody = new Endpoint(0, 0);
    return new Received(new Frame(protocol, nobody, nobody, text.getBytes(StandardCharsets.UTF_8)), 0, 0, 0);
  }

  @Override
  public Received receive(long timeoutMillis) {
    return null;
  }

  @Override
  public void send(int sniffer, Command command) {
    command.bytes();
  }

  @Override
  public int sessions() {
    return 0;
  }

  @Override
  public Set<Integer> sniffers() {
    return Set.of();
  }

  @Override
  public void close() {}
}
