package com.morvin.dom.telephony.sniffer.sample;

import static com.morvin.dom.telephony.sniffer.sample.Testing.equal;
import static com.morvin.dom.telephony.sniffer.sample.Testing.that;

import com.morvin.dom.telephony.sniffer.sample.signalling.Direction;
import com.morvin.dom.telephony.sniffer.sample.signalling.Share;
import com.morvin.dom.telephony.sniffer.sample.storage.CallReport;
import com.morvin.dom.telephony.sniffer.sample.transport.Address;
import com.morvin.dom.telephony.sniffer.sample.transport.Command;
import com.morvin.dom.telephony.sniffer.sample.transport.Endpoint;
import com.morvin.dom.telephony.sniffer.sample.transport.Frame;
import java.nio.ByteBuffer;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.HashMap;
import java.util.HexFormat;
import java.util.Iterator;
import java.util.List;
import java.util.Map;
import java.util.Set;
import java.util.regex.Matcher;
import java.util.regex.Pattern;
import java.util.stream.Collectors;
import java.util.stream.IntStream;
import java.util.stream.Stream;
import java.util.zip.CRC32;
import javax.sound.sampled.AudioFormat;

/** Runs the cases of tests/data/recorder: traffic and the expected recordings. Their README describes the steps. */
final class ScenarioTest {
  private static final Path CASES = Path.of(System.getProperty("tests.data"), "recorder");
  private static final Map<String, String> HOSTS = Map.of("A", "10.0.0.1", "B", "10.0.0.2", "C", "10.0.0.3", "D",
      "10.0.0.4", "N", "203.0.113.7", "P", "10.0.0.9");
  private static final Path CAPTURES = Path.of(System.getProperty("tests.data"), "captures");
  private static final Pattern DESCRIBED = Pattern.compile("IP4([ _])(" + Address.DOTTED + ")");
  private static final Pattern HOST = Pattern.compile("(\\[.*]|[^:]*)(?::(\\d+))?");
  private static final Pattern REPEATED = Pattern.compile("(?ms)^times (\\d+)\n(.*?)^again\n");
  private static final int SIZE = 160;
  /** The packets that pass before signalling that is held arrives. */
  private static final int HELD_PACKETS = 2;
  private static final Path SAMPLES = Path.of(System.getProperty("samples"));
  private static final Path H323 = Path.of(System.getProperty("tests.data"), "h323");

  private FakeSniffer sniffer;
  private String callId;
  private String header = "";
  /** Recorders that share the calls; those of the last group get signalling in another order. */
  private List<List<FakeSniffer>> groups = List.of();
  private boolean divided;
  private boolean ipv6;
  private boolean joined;
  /** Cases with these steps do not run with a second recorder, which these do not reach. */
  private static final Pattern ALONE =
      Pattern.compile("(?m)^(disk small|command-fails|forgets|misses|redelivers|removes|unmounts|erase|option)");

  void testSip() throws Exception { runAll("sip.txt"); }

  void testLegs() throws Exception { runAll("legs.txt"); }

  void testH323() throws Exception { runAll("h323.txt"); }

  void testMedia() throws Exception { runAll("media.txt"); }

  void testFaults() throws Exception { runAll("faults.txt"); }

  void testForgeries() throws Exception { runAll("forgeries.txt"); }

  void testIpv6() throws Exception { runAll("ipv6.txt"); }

  /** The same calls over IPv6 are recorded in the same way. */
  void testTwins() throws Exception {
    ipv6 = true;
    for (String file : List.of("sip.txt", "legs.txt", "h323.txt", "media.txt", "faults.txt", "forgeries.txt")) {
      runAll(file);
    }
  }

  /** Recorders that share the calls of a case record what a single one does: each call once. */
  void testShares() throws Exception {
    divided = true;
    for (String file : List.of("sip.txt", "legs.txt", "h323.txt", "shares.txt")) {
      runAll(file);
    }
  }

  /** A recorder that writes both voices to one file from the start records what one does that joins them at the end. */
  void testOneFile() throws Exception {
    joined = true;
    for (String file : List.of("sip.txt", "legs.txt", "h323.txt", "media.txt", "faults.txt", "forgeries.txt")) {
      runAll(file);
    }
  }

  /** Adds recorders that divide the calls. When they differ in order, every second one gets some legs later. */
  private List<FakeSniffer> divide(int count, boolean differ) throws Exception {
    List<FakeSniffer> shares = new ArrayList<>();
    for (int number = 1; number <= count; number++) {
      FakeSniffer share = sniffer.addShare(number, count);
      share.holds = differ && number % 2 == 1;
      shares.add(share);
    }
    return shares;
  }

  /** Adds a share to each group, or ends the newest one, in the order that docs/scaling.md describes. */
  private void changeShares(int more) throws Exception {
    for (List<FakeSniffer> group : groups) {
      int count = group.size() + more;
      if (more > 0) {
        group.add(sniffer.addShare(count, count));
      }
      for (FakeSniffer share : group) {
        int number = group.indexOf(share) + 1;
        share.become(new Share(number > count ? 0 : number, count));
      }
    }
  }

  /** Compares the reports of recorders that share the calls with those of the single one. */
  private void compare(List<FakeSniffer> shares, boolean inOrder) throws Exception {
    List<CallReport> reports = shares.stream().flatMap(share -> share.reports.stream()).toList();
    String what = "share of " + shares.size() + (inOrder ? "" : ", other order");
    if (inOrder) {
      equal(what + calls(reports), what + calls(sniffer.reports));
    }
    that(ids(reports).containsAll(ids(sniffer.reports)), what + ids(reports) + ids(sniffer.reports));
    that(packets(reports) >= packets(sniffer.reports) - (inOrder ? 0 : HELD_PACKETS),
        what + ": " + packets(reports) + " packets of " + packets(sniffer.reports));
  }

  /** Returns the whole calls; one that another share has taken over is reported there. */
  private static List<String> calls(List<CallReport> reports) {
    return reports.stream().filter(report -> !report.endReason().contains("another share"))
        .map(report -> report.id() + " " + report.endReason() + " " + report.legs()).sorted().toList();
  }

  private static long packets(List<CallReport> reports) {
    return reports.stream().mapToLong(report -> report.fromCaller().packets() + report.fromCallee().packets()).sum();
  }

  private static Set<String> ids(List<CallReport> reports) {
    return reports.stream().flatMap(report ->
        Stream.concat(Stream.of(report.id()), report.legs().stream().map(CallReport.Leg::id)))
        .collect(Collectors.toSet());
  }

  /** Returns a case with IPv6 addresses: in brackets, except in session descriptions. */
  private static String overIpv6(String text) {
    String described = DESCRIBED.matcher(text).replaceAll(found -> "IP6" + found.group(1) + twin(found.group(2)));
    return Address.DOTTED.matcher(described).replaceAll(found -> "[" + twin(found.group()) + "]");
  }

  private static String twin(String dotted) {
    return dotted.equals("0.0.0.0") ? "::" : Address.parse("2001:db8::1:" + dotted).orElseThrow().toString();
  }

  /** Each case has a new recorder. */
  private void runAll(String file) throws Exception {
    String[] cases = Files.readString(CASES.resolve(file)).split("(?m)^== ");
    for (String one : Arrays.asList(cases).subList(1, cases.length)) {
      if (ipv6 && one.contains("\nreplay ") || joined && ALONE.matcher(one).find()) {
        continue; // the captures have IPv4
      }
      FakeSniffer.with(fake -> {
        sniffer = fake;
        callId = "call-1";
        if (ipv6) {
          sniffer.assumeIpv6();
        }
        Iterator<String> lines = repeated(ipv6 ? overIpv6(one) : one).lines().iterator();
        String name = lines.next();
        if (joined) {
          fake.addOneFile();
        }
        groups = divided ? List.of(divide(2, false), divide(3, false), divide(7, false), divide(3, true)) : List.of();
        while (lines.hasNext()) {
          String line = lines.next();
          try {
            step(line.split("#")[0].strip(), lines);
          } catch (Exception | AssertionError e) {
            throw new AssertionError(file + ", " + name + ", " + line + "\n" + e.getMessage() + "\n"
                + sniffer.printed(), e);
          }
        }
        fake.pass(groups.isEmpty() ? 0 : 40_000);
        if (divided) {
          fake.finish();
        }
        if (joined) {
          fake.finish();
          equal(name + fake.sounds(), name + fake.shares.get(0).sounds());
        }
        for (List<FakeSniffer> group : groups) {
          try {
            compare(group, group != groups.get(groups.size() - 1));
          } catch (AssertionError e) {
            throw new AssertionError(file + ", " + name + "\n" + e.getMessage() + "\n"
                + group.stream().map(FakeSniffer::printed).collect(Collectors.joining("\n--\n")), e);
          }
        }
      });
    }
  }

  /** Repeats the lines between "times N" and "again"; "%" in them is the number of the repetition. */
  private static String repeated(String text) {
    return REPEATED.matcher(text).replaceAll(found -> Matcher.quoteReplacement(
        IntStream.rangeClosed(1, Integer.parseInt(found.group(1)))
            .mapToObj(i -> found.group(2).replace("%", "" + i)).collect(Collectors.joining())));
  }

  private void step(String line, Iterator<String> lines) throws Exception {
    String[] words = line.split("\\s+");
    String rest = words.length > 1 ? line.substring(line.indexOf(words[1], words[0].length())) : "";
    switch (words[0]) {
      case "" -> { }
      case "id" -> callId = words[1];
      case "with" -> header = rest + "\n";
      case "sip" -> sip(words);
      case "raw" -> raw(words, lines);
      case "h323" -> sniffer.h323(host(words[1]), host(words[2]), words[3].replace('|', '\n').replace('_', ' ') + "\n");
      case "rtp" -> rtp(words);
      case "udp" -> sniffer.udp(at(words[1]), at(words[2]), HexFormat.of().parseHex(words[3]));
      case "replay" -> replay(words[1]);
      case "pass" -> sniffer.pass(Long.parseLong(words[1]));
      case "sniffer" -> sniffer.session(Integer.parseInt(words[1]));
      case "late" -> sniffer.lateMillis = Long.parseLong(words[1]);
      case "clock" -> sniffer.setForward += Long.parseLong(words[1]);
      case "option" -> sniffer.option(words[1]);
      case "erase" -> equal(sniffer.erase(words[1]), Integer.parseInt(words[2]));
      case "shown" -> equal(sniffer.shown(words[1]), Long.parseLong(words[2]));
      case "assumes-ipv6" -> sniffer.assumeIpv6();
      case "without-ipv6" -> sniffer.ipv6 = false;
      case "forgets" -> sniffer.list.clear();
      case "misses" -> sniffer.list.remove(at(words[1]));
      case "commands-get-lost" -> sniffer.losesCommands = true;
      case "command-fails" -> sniffer.refusesCommand = true;
      case "removes" -> sniffer.remove(words[1]);
      case "unmounts" -> sniffer.unmount();
      case "locked" -> that(sniffer.isLocked(), "another recorder can begin");
      case "disk" -> sniffer.disk(words[1]);
      case "redelivers" -> sniffer.redeliver();
      case "shares" -> changeShares(Integer.parseInt(words[1]));
      case "restart" -> sniffer.restart(words[1]);
      case "list" -> equal(sniffer.listed(), String.join(" ",
          Stream.of(words).skip(1).flatMap(this::endpoints).sorted().toList()));
      case "listed" -> equal(sniffer.list.size(), Integer.parseInt(words[1]));
      case "adds" -> that(count(Command.ADD) <= Long.parseLong(words[1]), "adds: " + count(Command.ADD));
      case "heartbeats" -> that(count(Command.HEARTBEAT) >= Long.parseLong(words[1]), "" + count(Command.HEARTBEAT));
      case "calls" -> equal(sniffer.table().size(), Integer.parseInt(words[1]));
      case "line" -> contains(sniffer.table().get(Integer.parseInt(words[1]) - 1),
          rest.substring(words[1].length()).strip());
      case "files" -> equal(sniffer.files(words[1]).size(), Integer.parseInt(words[2]));
      case "heard" -> equal(heard(words[1]), spell(words[2]));
      case "tone" -> tone(words[1], Integer.parseInt(words[2]));
      case "captured" -> captured(words[1], rest.substring(words[1].length()).strip().split("\\|"));
      case "lacks" -> that(!content(words[1]).contains(rest.substring(words[1].length()).strip()), line);
      case "packets" -> packets(words[1], Integer.parseInt(words[2]), Integer.parseInt(words[3]));
      case "crc" -> equal(crc(sniffer.samples(words[1])), words[2]);
      case "stereo" -> stereo(Integer.parseInt(words[1]), words[2], words[3], words.length > 4 ? words[4] : "");
      case "report" -> contains(sniffer.report(), rest);
      case "silent" -> that(!sniffer.printed().contains(rest), rest + " was printed");
      case "printed" -> contains(sniffer.printed(), rest);
      default -> throw new IllegalArgumentException("no such step");
    }
  }

  private static void contains(String text, String part) { that(text.contains(part), part + " is not in " + text); }

  private long count(int code) {
    return sniffer.commands.stream().filter(command -> command.code() == code).count();
  }

  private String host(String text) {
    Matcher parts = HOST.matcher(text);
    that(parts.matches(), text);
    String dotted = HOSTS.get(parts.group(1));
    String address = dotted == null ? parts.group(1) : ipv6 ? overIpv6(dotted) : dotted;
    return address + ":" + (parts.group(2) == null ? "5060" : parts.group(2));
  }

  private Endpoint at(String text) { return FakeSniffer.at(host(text)); }

  /** Returns the endpoints of "A:4000"; "A:4000+" stands for two. */
  private Stream<String> endpoints(String text) {
    String first = host(text.replace("+", ""));
    return text.endsWith("+") ? Stream.of(first, at(first).next().toString()) : Stream.of(first);
  }

  /** Returns "aaab" for "a*3b". */
  private static String spell(String text) {
    StringBuilder spelled = new StringBuilder();
    for (String part : text.split("(?<=\\d)(?=\\D)|(?<=[^*\\d])(?=[^*\\d])")) {
      String[] times = part.split("\\*");
      spelled.append(times[0].repeat(times.length > 1 ? Integer.parseInt(times[1]) : 1));
    }
    return spelled.toString();
  }

  /** Sends sip FROM TO METHOD CSEQ TAGS BRANCH [SDP]; a response has STATUS REASON METHOD instead of METHOD. */
  private void sip(String[] words) {
    boolean response = Character.isDigit(words[3].charAt(0));
    int at = response ? 5 : 3;
    String start = response ? "SIP/2.0 " + words[3] + " " + words[4].replace('_', ' ') : words[3] + " sip:x@y SIP/2.0";
    String[] tags = words[at + 2].split("-", 2);
    String body = words.length > at + 4 ? sdp(words[at + 4].split(";")) : "";
    sniffer.sip(host(words[1]), host(words[2]), start + "\nVia: SIP/2.0/UDP x:5060;branch=" + words[at + 3]
        + "\nVia: SIP/2.0/UDP y;branch=other\nFrom: \"Alice; <tag=no>\" <sip:alice@a.example>;tag=" + tags[0]
        + "\nTo: <sip:bob@b.example>" + (tags[1].isEmpty() ? "" : ";tag=" + tags[1]) + "\nCall-ID: " + callId
        + "\nCSeq: " + words[at + 1] + " " + words[at] + "\n" + header
        + (body.isEmpty() ? "" : "Content-Type: application/sdp\n") + "\n" + body);
    header = "";
  }

  /** Returns the description for ADDRESS:PORT;ATTRIBUTE... where "_" is a blank and "m=..." is a line without "a=". */
  private String sdp(String[] parts) {
    Matcher host = HOST.matcher(host(parts[0]));
    that(host.matches(), parts[0]);
    String address = host.group(1).startsWith("[") ? "IN IP6 " + host.group(1).replaceAll("[\\[\\]]", "")
        : "IN IP4 " + host.group(1);
    StringBuilder sdp = new StringBuilder("v=0\no=- 1 1 " + address + "\ns=-\nc=" + address + "\nt=0 0\n"
        + "m=audio " + host.group(2) + " RTP/AVP 8 0 9 97 98 101\na=rtpmap:97 pcmu/8000/1\na=rtpmap:98 iLBC/8000\n"
        + "a=rtpmap:101 telephone-event/8000\n");
    for (String part : Arrays.asList(parts).subList(1, parts.length)) {
      sdp.append(part.startsWith("m=") ? "" : "a=").append(part.replace('_', ' ')).append('\n');
    }
    return sdp.toString();
  }

  /** Sends the SIP message in the following lines, up to a line "end". */
  private void raw(String[] words, Iterator<String> lines) {
    StringBuilder message = new StringBuilder();
    for (String line = lines.next(); !line.equals("end"); line = lines.next()) {
      message.append(line.replace("\\t", "\t")).append('\n');
    }
    sniffer.sip(host(words[1]), host(words[2]), message.toString());
  }

  /** Sends a packet for each letter of rtp FROM TO LETTERS [pt= ssrc= ... by=letter]; "." is a lost one. */
  private void rtp(String[] words) {
    Map<String, Integer> options =
        new HashMap<>(Map.of("pt", 8, "ssrc", 7, "seq", 0, "ts", 0, "every", 20, "size", SIZE, "late", 0, "slow", 0));
    boolean byLetter = words[words.length - 1].equals("by=letter");
    for (int i = 4; i < words.length - (byLetter ? 1 : 0); i++) {
      options.put(words[i].split("=")[0], number(words[i].split("=")[1]));
    }
    String letters = spell(words[3]);
    for (int i = 0; i < letters.length(); i++) {
      char letter = letters.charAt(i);
      int index = byLetter ? letter - 'a' : i;
      byte[] payload = new byte[options.get("size")];
      Arrays.fill(payload, (byte) letter);
      sniffer.lateMillis = Math.max(0, options.get("late") - i * 20);
      if (letter != '.') {
        sniffer.udp(at(words[1]), at(words[2]), FakeSniffer.rtp(options.get("pt"), options.get("seq") + index & 0xffff,
            options.get("ts") + index * SIZE, options.get("ssrc"), payload));
      }
      sniffer.pass(options.get("every") + (options.get("slow") > 0 && i % options.get("slow") == 0 ? 1 : 0));
    }
  }

  /** Returns the value of "3", "0xff" or "3*160+5". */
  private static int number(String text) {
    return Stream.of(text.split("\\+")).mapToInt(term ->
        Stream.of(term.split("\\*")).mapToInt(Integer::decode).reduce(1, (a, b) -> a * b)).sum();
  }

  /** Returns a letter for each 160 samples: that of their packet, '.' for silence, '!' for a mixture. */
  private String heard(String nameEnd) throws Exception {
    short[] samples = sniffer.samples(nameEnd);
    StringBuilder heard = new StringBuilder();
    for (int start = 0; start < samples.length; start += SIZE) {
      short first = samples[start];
      boolean uniform = true;
      for (int i = start; i < Math.min(start + SIZE, samples.length); i++) {
        uniform &= samples[i] == first;
      }
      heard.append(uniform ? sniffer.letter(first) : '!');
    }
    return heard.toString();
  }

  private static String crc(short[] samples) {
    CRC32 crc = new CRC32();
    for (short sample : samples) {
      crc.update(sample);
      crc.update(sample >> 8);
    }
    return Long.toHexString(crc.getValue());
  }

  private void replay(String name) throws Exception {
    sniffer.replay(CAPTURES.resolve(name + ".pcap"), List.of());
    sniffer.pass(1100);
  }

  private String content(String nameEnd) throws Exception {
    return Files.readString(sniffer.files(nameEnd).get(0), StandardCharsets.ISO_8859_1);
  }

  private void captured(String nameEnd, String[] texts) throws Exception {
    String content = content(nameEnd);
    int at = 0;
    for (String text : texts) {
      at = content.indexOf(text, at) + 1;
      that(at > 0, text + " is missing or out of order");
    }
  }

  /** Checks the numbers of IPv4 and of IPv6 packets in a capture file, and the UDP checksums of the latter. */
  private void packets(String nameEnd, int ipv4, int ipv6) throws Exception {
    ByteBuffer file = ByteBuffer.wrap(Files.readAllBytes(sniffer.files(nameEnd).get(0)));
    equal(file.getInt(20), 101); // raw IP packets
    int[] counts = new int[16];
    for (file.position(24); file.hasRemaining();) {
      byte[] packet = new byte[file.getInt(file.position() + 8)];
      file.position(file.position() + 16).get(packet);
      counts[packet[0] >> 4]++;
      if (packet[0] >> 4 == 6) {
        equal(packet.length, 40 + ByteBuffer.wrap(packet).getShort(4));
        equal(ByteBuffer.wrap(packet).getShort(4), ByteBuffer.wrap(packet).getShort(44));
        long sum = 17 + packet.length - 40;
        for (int i = 8; i < packet.length; i++) {
          sum += (packet[i] & 0xff) << (i % 2 == 0 ? 8 : 0);
        }
        equal(sum % 0xffff, 0L);
      }
    }
    equal(counts[4] + " " + counts[6], ipv4 + " " + ipv6);
  }

  /** Checks that nearly all energy of a file is at one frequency: its correlation with the tone. */
  private void tone(String nameEnd, int hertz) throws Exception {
    short[] samples = sniffer.samples(nameEnd);
    double step = 2 * Math.PI * hertz / sniffer.rate(nameEnd);
    double real = 0;
    double imaginary = 0;
    double energy = 0;
    for (int i = 0; i < samples.length; i++) {
      real += samples[i] * Math.cos(step * i);
      imaginary += samples[i] * Math.sin(step * i);
      energy += (double) samples[i] * samples[i];
    }
    double correlation = Math.hypot(real, imaginary) / Math.sqrt(energy * samples.length / 2);
    that(samples.length > 20_000 && correlation > 0.98, samples.length + " samples, correlation " + correlation);
  }

  /** Checks the letters at a time of the stereo file, left and right. */
  private void stereo(int millis, String left, String right, String name) throws Exception {
    short[] samples = sniffer.samples(name + "-stereo.wav");
    int frame = 2 * 8 * millis;
    equal(sniffer.letter(samples[frame]) + "" + sniffer.letter(samples[frame + 1]), left + right);
  }

  // The calls of samples/ are recorded sample by sample.

  void testSampleSip() throws Exception {
    check("sip-g711a-call", List.of(), 0, FakeSniffer.at("10.20.0.2:40000"), FakeSniffer.at("10.20.0.1:30000"));
  }

  void testSamplesH323() throws Exception {
    for (String name : List.of("h323-fast-start-tunnelled", "h323-h245-separate")) {
      check(name, Files.readAllLines(H323.resolve(name + ".expected")), 2, FakeSniffer.at("10.20.0.2:5000"),
          FakeSniffer.at("10.20.0.1:5000"));
    }
  }

  /**
   * Replays a sample call and compares its recordings.
   *
   * @param early the most packets that may pass before the recorder knows their destination
   */
  private static void check(String name, List<String> texts, int early, Endpoint callee, Endpoint caller)
      throws Exception {
    FakeSniffer.with(sniffer -> {
      sniffer.replay(SAMPLES.resolve(name + ".pcap"), texts);
      sniffer.pass(61_100);
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

  /** Returns the decoded A-law payloads sent to an address, in the order of capture. */
  private static short[] spoken(FakeSniffer sniffer, Endpoint destination) {
    short[] samples = new short[1 << 20];
    int count = 0;
    for (Frame frame : sniffer.passed) {
      for (int i = 12; frame.destination().equals(destination) && i < frame.payload().length; i++) {
        samples[count++] = FakeSniffer.linear(AudioFormat.Encoding.ALAW, frame.payload()[i]);
      }
    }
    return Arrays.copyOf(samples, count);
  }
}
