package com.morvin.dom.telephony.sniffer.sample;

import static com.morvin.dom.telephony.sniffer.sample.Testing.equal;
import static com.morvin.dom.telephony.sniffer.sample.Testing.that;

import java.nio.file.Files;
import java.nio.file.Path;
import java.util.List;

/** H.323 calls by the descriptions of their messages. */
final class H323CallsTest {
  private static final String A = "10.20.0.1:40000";
  private static final String B = "10.20.0.2:1720";
  private static final String GATEKEEPER = "10.20.0.9:1720";
  private static final Path DATA = Path.of(System.getProperty("tests.data"), "h323");

  /** The descriptions of real calls, of every way to open media: before the release all four addresses are known. */
  void testRealCalls() throws Exception {
    for (String name : List.of("fast-start-tunnelled", "fast-start-separate", "h245-tunnelled", "h245-separate")) {
      FakeSniffer.with(sniffer -> {
        int released = 0;
        boolean fromCaller = true;
        for (String line : Files.readAllLines(DATA.resolve("h323-" + name + ".expected"))) {
          String[] columns = line.split("\t");
          String text = columns[1].replace("\\n", "\n");
          if (columns[0].equals("false")) {
            continue;
          }
          if (text.startsWith("t:90") && released++ == 0) {
            equal(sniffer.listed(), "10.20.0.1:5000 10.20.0.1:5001 10.20.0.2:5000 10.20.0.2:5001");
          }
          // Setup comes from the caller, answers from the callee; an address comes from whom it belongs to.
          fromCaller = text.startsWith("t:5") || text.contains("a:101:rtp:10.20.0.1")
              || text.startsWith("t:90") && released == 1;
          boolean separate = text.startsWith("t:13") && !text.startsWith("t:13\n");
          String caller = separate ? "10.20.0.1:39486" : A;
          String callee = separate ? "10.20.0.2:37909" : B;
          sniffer.h323(fromCaller ? caller : callee, fromCaller ? callee : caller, text);
        }
        equal(released, 2);
        equal(sniffer.list.size(), 0);
        equal(sniffer.table().size(), 1);
        that(sniffer.table().get(0).contains(",H.323,alice,10.20.0.2,"), sniffer.table().get(0));
        that(sniffer.table().get(0).contains(",hung up by caller,0,"), sniffer.table().get(0));
      });
    }
  }

  void testCallReferencesThatCollide() throws Exception {
    FakeSniffer.with(sniffer -> {
      String setup = "t:5\nr:7\nc:%s\ns:%s\nd:\nm:1:rcodec:g711Alaw64k 20,rtp:10.20.0.%d 500%d\n";
      sniffer.h323(A, B, setup.formatted("id-1", "a", 1, 0));
      sniffer.h323("10.20.0.3:40000", B, setup.formatted("id-2", "c", 3, 0));
      // Both ends of one pair of hosts may have chosen the same reference.
      sniffer.h323("10.20.0.2:40000", "10.20.0.1:1720", setup.formatted("id-3", "b", 2, 2));
      equal(sniffer.list.size(), 6);
      // H.245 of its own between the hosts of one of them.
      sniffer.h323("10.20.0.2:3333", "10.20.0.3:4444", "t:131\nr:7\na:1:rtp:10.20.0.2 6000\n");
      sniffer.h323("10.20.0.3:40000", B, "t:98\nr:7\n");
      equal(sniffer.list.size(), 8);
      // A Setup that takes the place of a call whose end was missed.
      sniffer.h323(A, B, setup.formatted("id-4", "a", 1, 6));
      equal(sniffer.listed(),
          "10.20.0.1:5006 10.20.0.1:5007 10.20.0.2:5002 10.20.0.2:5003"
          + " 10.20.0.2:6000 10.20.0.2:6001 10.20.0.3:5000 10.20.0.3:5001");
      sniffer.h323(B, "10.20.0.3:40000", "t:90\nr:7\n");
      sniffer.h323("10.20.0.3:40000", B, "t:90\nr:7\nc:id-2\n");
      equal(sniffer.listed(), "10.20.0.1:5006 10.20.0.1:5007 10.20.0.2:5002 10.20.0.2:5003");
      sniffer.h323(A, B, "t:90\nr:8\n");
      equal(sniffer.list.size(), 4);
    });
  }

  void testCallThroughGatekeeperIsOneCall() throws Exception {
    FakeSniffer.with(sniffer -> {
      sniffer.h323(A, GATEKEEPER, "t:5\nr:1\nc:id\ns:E164:123\nd:bob\n");
      sniffer.h323("10.20.0.9:41000", B, "t:5\nr:2\nc:id\ns:E164:123\nd:bob\n");
      sniffer.h323("10.20.0.9:41001", "10.20.0.4:1720", "t:5\nr:3\nc:id\ns:E164:123\nd:bob\n");
      sniffer.h323("10.20.0.4:1720", "10.20.0.9:41001", "t:90\nr:3\nc:id\n"); // the other callee is busy
      sniffer.h323(B, "10.20.0.9:41000", "t:7\nr:2\nc:id\n");
      sniffer.h323(B, "10.20.0.9:41000",
          "t:98\nr:2\nm:9:fcodec:g7231 0,rtp:10.20.0.2 6000rcodec:g711Ulaw64k 20,rtp:10.20.0.2 6002\ni:5\nz:?\n");
      equal(sniffer.listed(), "10.20.0.2:6000 10.20.0.2:6001 10.20.0.2:6002 10.20.0.2:6003");
      sniffer.udp(FakeSniffer.at("10.20.0.1:5000"), FakeSniffer.at("10.20.0.2:6002"),
          FakeSniffer.rtp(0, 1, 1, 1, new byte[80]));
      sniffer.h323(GATEKEEPER, A, "t:90\nr:1\nc:id\n");
      equal(sniffer.list.size(), 0);
      equal(sniffer.samples("-E164_123-bob-from-caller.wav").length, 80);
      that(sniffer.table().get(0).endsWith(",offers g7231,,5,"), sniffer.table().get(0));
      equal(sniffer.table().size(), 1);
    });
  }
}
