package com.morvin.dom.telephony.sniffer.sample;

import static com.morvin.dom.telephony.sniffer.sample.Testing.equal;
import static com.morvin.dom.telephony.sniffer.sample.Testing.that;

import com.morvin.dom.telephony.sniffer.sample.transport.Endpoint;
import java.nio.ByteBuffer;
import java.util.Arrays;
import java.util.Random;
import javax.sound.sampled.AudioFormat;

/** RTP as networks and attackers deliver it, and the samples that end up in the file. */
final class RtpRecordingTest {
  private static final Endpoint ALICE = FakeSniffer.at("10.0.0.1:4000");
  private static final Endpoint BOB = FakeSniffer.at("10.0.0.2:6000");
  private static final int SIZE = 160;

  private FakeSniffer sniffer;

  private void recording(Testing.Body body) throws Exception {
    FakeSniffer.with(fake -> {
      sniffer = fake;
      String headers = "\nVia: x;branch=1\nFrom: <sip:a@a>;tag=a\nTo: <sip:b@b>%s\nCall-ID: 1\nCSeq: 1 INVITE\n"
          + "Content-Type: application/sdp\n\n";
      String sdp =
          "v=0\nc=IN IP4 %s\nm=audio %d RTP/AVP 8 0 97 98 101\na=rtpmap:97 pcmu/8000/1\na=rtpmap:98 iLBC/8000\n"
          + "a=rtpmap:101 telephone-event/8000\n";
      sniffer.sip("10.0.0.1:5060", "10.0.0.2:5060",
          "INVITE sip:b@b SIP/2.0" + headers.formatted("") + sdp.formatted("10.0.0.1", 4000));
      sniffer.sip("10.0.0.2:5060", "10.0.0.1:5060",
          "SIP/2.0 200 OK" + headers.formatted(";tag=b") + sdp.formatted("10.0.0.2", 6000));
      body.run();
    });
  }

  private void end() {
    String bye = "\nFrom: <sip:a@a>;tag=a\nTo: <sip:b@b>;tag=b\nCall-ID: 1\nCSeq: 2 BYE\n\n";
    sniffer.sip("10.0.0.1:5060", "10.0.0.2:5060", "BYE sip:b@b SIP/2.0" + bye);
    sniffer.sip("10.0.0.2:5060", "10.0.0.1:5060", "SIP/2.0 200 OK" + bye);
  }

  private void send(int payloadType, int sequence, int timestamp, int ssrc, int value) {
    byte[] payload = new byte[SIZE];
    Arrays.fill(payload, (byte) value);
    sniffer.udp(ALICE, BOB, FakeSniffer.rtp(payloadType, sequence, timestamp, ssrc, payload));
  }

  /** So many packets at the pace of speech. */
  private void talk(int packets, int sequence, int ssrc, int value) {
    for (int i = sequence; i < sequence + packets; i++, sniffer.pass(20)) {
      send(8, i, i * SIZE, ssrc, value);
    }
  }

  /** One letter for each 160 samples: that of the packet they came from, '.' for silence, '!' for a mixture. */
  private String heard(String nameEnd, AudioFormat.Encoding codec) throws Exception {
    short[] samples = sniffer.samples(nameEnd);
    StringBuilder heard = new StringBuilder();
    for (int start = 0; start < samples.length; start += SIZE) {
      short first = samples[start];
      boolean uniform = true;
      for (int i = start; i < Math.min(start + SIZE, samples.length); i++) {
        uniform &= samples[i] == first;
      }
      char letter = first == 0 ? '.' : '?';
      for (char c = 'a'; c <= 'z'; c++) {
        letter = FakeSniffer.linear(codec, c) == first ? c : letter;
      }
      heard.append(uniform ? letter : '!');
    }
    return heard.toString();
  }

  private String table(int column) throws Exception { return sniffer.table().get(0).split(",")[column]; }

  void testDisorderIsPutRightAndLossIsSilence() throws Exception {
    recording(() -> {
      // Across the wrap of sequence numbers and of timestamps; "d" is late, "b" comes twice, "f" and "g" never come.
      int timestamp = -2 * SIZE;
      for (char c : "abcedbhijklm".toCharArray()) {
        send(8, 0xfffe + (c - 'a') & 0xffff, timestamp + (c - 'a') * SIZE, 7, c);
        sniffer.pass(20);
      }
      end();
      equal(heard("from-caller.wav", AudioFormat.Encoding.ALAW), "abcde..hijklm");
      equal(table(8), "11");
      equal(table(9), "2");
    });
  }

  void testPausesOtherPayloadsAndHeaderForms() throws Exception {
    recording(() -> {
      send(97, 1, 0, 7, 'a');
      send(13, 2, SIZE, 7, 'x'); // comfort noise opens a pause of 5 packets
      sniffer.pass(120);
      send(0, 3, 6 * SIZE, 7, 'b');
      send(101, 4, 7 * SIZE, 7, 'x'); // a key pressed for 2 packets
      send(101, 5, 7 * SIZE, 7, 'x');
      sniffer.udp(ALICE, BOB, new byte[] {(byte) 0x80, (byte) 200, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0}); // RTCP here, too
      sniffer.pass(60);
      byte[] payload = new byte[SIZE];
      Arrays.fill(payload, (byte) 'c');
      ByteBuffer full = ByteBuffer.allocate(12 + 4 + 8 + SIZE + 3)
                            .put((byte) 0xb1)
                            .put((byte) 0)
                            .putShort((short) 6)
                            .putInt(9 * SIZE)
                            .putInt(7)
                            .putInt(0xc5c5)
                            .putInt(0xbede0001)
                            .putInt(0)
                            .put(payload)
                            .put(new byte[] {9, 9, 3});
      sniffer.udp(ALICE, BOB, full.array());
      send(98, 7, 10 * SIZE, 7, 'x');
      end();
      equal(heard("from-caller.wav", AudioFormat.Encoding.ULAW), "a.....b..c");
      equal(table(8), "7");
      equal(table(9), "0");
      that(sniffer.table().get(0).contains("from-caller: iLBC is not decoded: kept as a pcap file"), sniffer.table().get(0));
    });
  }

  void testAnotherSourceGoesOnInTheFileAndTwoAtOnceGetTwo() throws Exception {
    recording(() -> {
      talk(20, 0, 1, 'a');
      sniffer.pass(100);
      talk(20, 40_000, 2, 'b');
      for (int i = 0; i < 30; i++, sniffer.pass(20)) {
        send(8, 40_020 + i, (40_020 + i) * SIZE, 2, 'c');
        send(8, 500 + i, 77 + i * SIZE, 3, 'd');
      }
      end();
      equal(heard("from-caller.wav", AudioFormat.Encoding.ALAW),
          "a".repeat(20) + "....."
              + "b".repeat(20) + "c".repeat(30));
      equal(heard("from-caller-2.wav", AudioFormat.Encoding.ALAW), "d".repeat(30));
      equal(table(8), "100");
    });
  }

  void testForgedNumbersCostNeitherDiskNorSpeech() throws Exception {
    recording(() -> {
      Random random = new Random(1);
      for (int i = 0; i < 200; i++, sniffer.pass(20)) {
        send(8, i, i * SIZE, 1, 'a');
        send(8, random.nextInt(), random.nextInt(), random.nextInt(), 'x'); // any source
        send(8, random.nextInt() | 0x8000, random.nextInt(), 1, 'x'); // the same source, any number
        sniffer.udp(ALICE, BOB, FakeSniffer.rtp(8, i, 0, random.nextInt(), new byte[60_000]));
      }
      // From here on it is the source itself that jumps about.
      for (int i = 0; i < 50; i++, sniffer.pass(20)) {
        send(8, 200 + i, random.nextInt(), 1, 'b');
      }
      end();
      String heard = heard("from-caller.wav", AudioFormat.Encoding.ALAW);
      that(heard.startsWith("a".repeat(200)), heard);
      equal(heard.chars().filter(c -> c == 'b').count(), 50L);
      that(heard.length() < 250 + 600, "more than the clock and ten seconds: " + heard.length());
      that(sniffer.wavFiles().size() <= 8, "files " + sniffer.wavFiles());
      that(sniffer.table().get(0).contains("timestamp jumps"), sniffer.table().get(0));
    });
  }

  void testASenderThatStartsOverIsFollowed() throws Exception {
    recording(() -> {
      talk(10, 0, 1, 'a');
      talk(10, 30_000, 1, 'b');
      for (int i = 30_010; i < 31_010; i++) { // a burst, faster than it was spoken, is nothing to mend
        send(8, i, i * SIZE, 1, 'c');
      }
      end();
      equal(heard("from-caller.wav", AudioFormat.Encoding.ALAW), "aaaaaaaaaabbbbbbbbbb" + "c".repeat(1000));
      equal(table(9), "0");
    });
  }
}
