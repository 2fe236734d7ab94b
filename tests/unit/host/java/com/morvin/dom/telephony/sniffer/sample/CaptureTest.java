package com.morvin.dom.telephony.sniffer.sample;

import static com.morvin.dom.telephony.sniffer.sample.Testing.equal;
import static com.morvin.dom.telephony.sniffer.sample.Testing.that;

import com.morvin.dom.telephony.sniffer.sample.signalling.Direction;
import com.morvin.dom.telephony.sniffer.sample.transport.Endpoint;
import com.morvin.dom.telephony.sniffer.sample.transport.Frame;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.Arrays;
import java.util.List;

/** The calls of samples/, recorded: the files hold what was said, sample by sample. */
final class CaptureTest {
  private static final Path SAMPLES = Path.of(System.getProperty("samples"));
  private static final Path DATA = Path.of(System.getProperty("tests.data"), "h323");

  void testSip() throws Exception {
    check("sip-g711a-call", List.of(), 0, FakeSniffer.at("10.20.0.2:40000"), FakeSniffer.at("10.20.0.1:30000"));
  }

  void testH323() throws Exception {
    for (String name : List.of("h323-fast-start-tunnelled", "h323-h245-separate")) {
      check(name, Files.readAllLines(DATA.resolve(name + ".expected")), 2, FakeSniffer.at("10.20.0.2:5000"),
          FakeSniffer.at("10.20.0.1:5000"));
    }
  }

  /** At most so many packets may pass before the recorder has heard where they go. */
  private static void check(String name, List<String> texts, int early, Endpoint callee, Endpoint caller)
      throws Exception {
    FakeSniffer.with(sniffer -> {
      sniffer.replay(SAMPLES.resolve(name + ".pcap"), texts);
      equal(sniffer.list.size(), 0);
      for (Direction direction : Direction.values()) {
        short[] spoken = spoken(sniffer, direction == Direction.FROM_CALLER ? callee : caller);
        short[] recorded = sniffer.samples("-" + direction + ".wav");
        that(recorded.length >= spoken.length - early * 160, name + " misses " + (spoken.length - recorded.length));
        equal(
            Arrays.mismatch(recorded, Arrays.copyOfRange(spoken, spoken.length - recorded.length, spoken.length)), -1);
      }
      that(sniffer.table().get(0).contains("hung up by caller"), sniffer.table().get(0));
    });
  }

  /** The A-law payloads sent to an address, in the order of capture, by the formula of G.711. */
  private static short[] spoken(FakeSniffer sniffer, Endpoint destination) {
    short[] samples = new short[1 << 20];
    int count = 0;
    for (Frame frame : sniffer.passed) {
      for (int i = 12; frame.destination().equals(destination) && i < frame.payload().length; i++) {
        samples[count++] = decode(frame.payload()[i]);
      }
    }
    return Arrays.copyOf(samples, count);
  }

  private static short decode(byte coded) {
    int value = coded ^ 0x55;
    int segment = value >> 4 & 7;
    int magnitude = ((value & 15) << 4) + 8;
    magnitude = segment == 0 ? magnitude : magnitude + 0x100 << segment - 1;
    return (short) ((value & 0x80) != 0 ? magnitude : -magnitude);
  }
}
