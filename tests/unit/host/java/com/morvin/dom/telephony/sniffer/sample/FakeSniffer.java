package com.morvin.dom.telephony.sniffer.sample;

import com.morvin.dom.telephony.sniffer.sample.console.Console;
import com.morvin.dom.telephony.sniffer.sample.media.Track;
import com.morvin.dom.telephony.sniffer.sample.page.CallPages;
import com.morvin.dom.telephony.sniffer.sample.recording.Recorder;
import com.morvin.dom.telephony.sniffer.sample.service.Service;
import com.morvin.dom.telephony.sniffer.sample.signalling.CallFollower;
import com.morvin.dom.telephony.sniffer.sample.signalling.Share;
import com.morvin.dom.telephony.sniffer.sample.storage.CallReport;
import com.morvin.dom.telephony.sniffer.sample.storage.Disk;
import com.morvin.dom.telephony.sniffer.sample.storage.EraseRequests;
import com.morvin.dom.telephony.sniffer.sample.storage.ReportListener;
import com.morvin.dom.telephony.sniffer.sample.storage.Store;
import com.morvin.dom.telephony.sniffer.sample.transport.Command;
import com.morvin.dom.telephony.sniffer.sample.transport.Endpoint;
import com.morvin.dom.telephony.sniffer.sample.transport.Frame;
import com.morvin.dom.telephony.sniffer.sample.transport.FrameBlock;
import com.morvin.dom.telephony.sniffer.sample.transport.SteadyClock;
import com.morvin.dom.telephony.sniffer.sample.transport.Transport;
import java.io.ByteArrayInputStream;
import java.io.ByteArrayOutputStream;
import java.io.File;
import java.io.IOException;
import java.io.PrintStream;
import java.io.UncheckedIOException;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.attribute.FileTime;
import java.nio.file.attribute.PosixFilePermissions;
import java.time.Instant;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.Comparator;
import java.util.HashMap;
import java.util.Iterator;
import java.util.List;
import java.util.Map;
import java.util.Set;
import java.util.concurrent.CompletableFuture;
import java.util.concurrent.ConcurrentHashMap;
import java.util.concurrent.CopyOnWriteArrayList;
import java.util.concurrent.CountDownLatch;
import java.util.stream.IntStream;
import java.util.stream.Stream;
import java.util.zip.CRC32;
import javax.sound.sampled.AudioFormat;
import javax.sound.sampled.AudioInputStream;
import javax.sound.sampled.AudioSystem;
import javax.sound.sampled.UnsupportedAudioFileException;

/** A recorder, and a sniffer that classifies traffic as the real one does. The test moves their clock. */
final class FakeSniffer implements Transport {
  private static final AudioFormat FORMAT = new AudioFormat(8000, 16, 1, true, false);

  private static final int MAX_COMPARED = 1 << 22;
  private static final Map<String, Short> LINEAR = new ConcurrentHashMap<>();

  /** The list of destinations, in order and with duplicates, like the real list. */
  final List<Endpoint> list = new ArrayList<>();
  final List<Command> commands = new ArrayList<>();
  /** All datagrams of the network, forwarded or not. */
  final List<Frame> passed = new ArrayList<>();
  final ByteArrayOutputStream printed = new ByteArrayOutputStream();
  final List<CallReport> reports = new CopyOnWriteArrayList<>();
  private final Console console = new Console(new PrintStream(printed, true, StandardCharsets.UTF_8), false);
  private final List<FrameBlock> unsafe = new CopyOnWriteArrayList<>();
  private final Map<Short, Character> letters = new HashMap<>();
  private volatile CountDownLatch stalled = new CountDownLatch(0);
  private volatile long fits = Long.MAX_VALUE;
  private volatile boolean broken;
  private volatile CountDownLatch refusals = new CountDownLatch(2);
  /** Further sniffers, each with a recorder that has a share of the calls: they see the same network. */
  final List<FakeSniffer> shares = new ArrayList<>();
  private Share share;
  /** Signalling that arrives when time passes, after that of other Call-IDs. */
  private final List<Runnable> held = new ArrayList<>();
  boolean holds;
  Store store;
  Recorder recorder;
  final Path directory;
  private long now = Instant.parse("2026-01-02T03:04:05Z").toEpochMilli();
  private int sessions = 1;
  private int current = 1;
  private long number;
  private SteadyClock clock;
  private long keepMillis;
  private boolean assumesIpv6;
  private Track.Options options;
  /** By how much the time of day was set forward. */
  long setForward;
  long lateMillis;
  boolean losesCommands;
  boolean refusesCommand;
  boolean redelivers;
  /** Whether the sniffer has the setting IPv6=yes. */
  boolean ipv6 = true;

  /** Runs the body with a new recorder in a new directory. */
  static void with(Testing.Body<FakeSniffer> body) throws Exception {
    Testing.inDirectory(directory -> {
      try (FakeSniffer sniffer = new FakeSniffer(directory, Share.ALL, new Track.Options(true, false, true))) {
        body.run(sniffer);
        sniffer.shares.forEach(FakeSniffer::close);
      }
    });
  }

  private FakeSniffer(Path directory, Share share, Track.Options options) throws IOException {
    this.directory = directory;
    this.share = share;
    this.options = options;
    start();
  }

  /** Adds a recorder with a share of the calls. */
  FakeSniffer addShare(int number, int count) throws IOException {
    return add(new Share(number, count), options);
  }

  /** Adds a recorder that keeps no file for each voice. */
  FakeSniffer addOneFile() throws IOException {
    return add(Share.ALL, new Track.Options(true, false, false));
  }

  private FakeSniffer add(Share part, Track.Options how) throws IOException {
    Path folder = Files.createDirectory(directory.resolve("share-" + shares.size()));
    FakeSniffer other = new FakeSniffer(folder, part, how);
    shares.add(other);
    return other;
  }

  /** Restarts the recorder with another share. */
  void become(Share other) throws IOException {
    share = other;
    restart("stop");
  }

  private void start() throws IOException {
    store = new Store(directory, console, bytes -> {
      try {
        stalled.await();
      } catch (InterruptedException e) {
        throw new IOException(e);
      }
      if (broken) {
        throw new IllegalStateException("broken");
      }
      if (bytes > fits) {
        refusals.countDown();
        throw bytes > 1 << 20 ? new Disk.LeftOutException("too large") : new IOException("No space left on device");
      }
    });
    clock = new SteadyClock(() -> Instant.ofEpochMilli(now + setForward), () -> 1_000_000 * now);
    CallPages pages = new CallPages(directory, () -> Instant.ofEpochMilli(now));
    Retention retention = new Retention(directory, pages, clock, keepMillis, console);
    Service.Limits limits =
        new Service.Limits(false, Long.MAX_VALUE, CallFollower.Limits.DEFAULT.withShare(share));
    recorder = new Recorder(store, options, limits, console, clock, new ReportListener() {
      @Override
      public void began(CallReport call) throws IOException {
        retention.began(call);
      }

      @Override
      public void merged(CallReport call) throws IOException {
        retention.merged(call);
      }

      @Override
      public void ended(CallReport call, long firstMessage) throws IOException {
        reports.add(call);
        retention.ended(call, firstMessage);
      }

      @Override
      public void tick() {
        retention.tick();
      }
    });
    recorder.assumeIpv6(assumesIpv6);
    recorder.attach(this);
  }

  /** Ends all recordings. */
  void finish() {
    shares.forEach(FakeSniffer::finish);
    recorder.finish();
    awaitDisk();
  }

  /** Removes a file or a folder of the recordings, as an operator may. */
  void remove(String name) throws IOException {
    awaitDisk();
    try (Stream<Path> all = Files.walk(directory.resolve(name))) {
      all.sorted(Comparator.reverseOrder()).map(Path::toFile).forEach(File::delete);
    }
  }

  /** Puts an empty folder in the place of that of the recordings, as the end of a mount does. */
  void unmount() throws IOException {
    awaitDisk();
    Path before = directory.resolveSibling(directory.getFileName() + "-before");
    Path empty = Files.createDirectory(directory.resolveSibling(directory.getFileName() + "-empty"));
    Files.move(directory, before);
    Files.move(empty, directory);
    remove("../" + before.getFileName());
  }

  /** Whether no other recorder can use the directory. */
  boolean isLocked() throws IOException {
    awaitDisk();
    try {
      new Store(directory, console).close();
      return false;
    } catch (Store.InUseException e) {
      return true;
    }
  }

  /** Sets the state of the disk: "full", "small", "broken", "stalled" or "good". */
  void disk(String state) {
    shares.forEach(other -> other.disk(state));
    if (fits > 0 && stalled.getCount() == 0) {
      awaitDisk();
    }
    refusals = new CountDownLatch(2);
    broken = state.equals("broken");
    fits = state.equals("full") ? 0 : state.equals("small") ? 1 << 20 : Long.MAX_VALUE;
    stalled.countDown();
    stalled = new CountDownLatch(state.equals("stalled") ? 1 : 0);
  }

  /**
   * Stops or kills the recorder and starts another one; "damaged" also empties the checkpoint, "upgraded" makes it that
   * of another version. Frames that were not acknowledged are delivered again.
   */
  void restart(String how) throws IOException {
    restart(how, how.equals("damaged") ? new byte[0] : null);
  }

  /** Gives the checkpoint the number of a later version. */
  private void upgrade() throws IOException {
    Path file = directory.resolve("running").resolve("checkpoint");
    ByteBuffer state = ByteBuffer.wrap(Files.readAllBytes(file));
    for (int at = 0; at < state.limit(); at += 8 + state.getInt(at)) {
      CRC32 crc = new CRC32();
      crc.update(state.putInt(at + 8, 99).array(), at + 8, state.getInt(at));
      state.putInt(at + 4, (int) crc.getValue());
    }
    Files.write(file, state.array());
  }

  /** Kills the recorder and starts another one with a checkpoint. */
  void restart(byte[] checkpoint) throws IOException {
    restart("kill", checkpoint);
  }

  private void restart(String how, byte[] checkpoint) throws IOException {
    for (FakeSniffer other : shares) {
      other.restart(how);
    }
    if (how.equals("stop")) {
      recorder.stop();
      recorder.finish();
    }
    store.close();
    if (how.equals("upgraded")) {
      upgrade();
    }
    if (checkpoint != null) {
      Files.write(directory.resolve("running").resolve("checkpoint"), checkpoint);
    }
    list.clear();
    current = ++sessions;
    start();
    List<FrameBlock> again = List.copyOf(unsafe);
    unsafe.clear();
    again.forEach(this::deliver);
  }

  /** Stops the recorder and starts it with an option of its command line. */
  void option(String option) throws IOException {
    options = new Track.Options(options.keepsDigits() && !option.equals("no-digits"),
        options.linear() || option.equals("pcm"), options.keepsVoices() && !option.equals("no-mono"));
    if (option.startsWith("keep=")) {
      keepMillis = 86_400_000L * Long.parseLong(option.substring(5));
      try (Stream<Path> all = Files.walk(directory)) {
        for (Path path : all.toList()) {
          Files.setLastModifiedTime(path, FileTime.fromMillis(now)); // the clock of the test is not that of the disk
        }
      }
    }
    restart("stop");
  }

  /** Asks the recorder to erase a call. Returns the number of erased calls. */
  int erase(String call) throws Exception {
    CompletableFuture<Integer> erased = new CompletableFuture<>();
    Thread other = new Thread(() -> {
      try {
        erased.complete(new EraseRequests(directory).request(call, 60));
      } catch (IOException | InterruptedException e) {
        erased.completeExceptionally(e);
      }
    });
    other.start();
    while (!erased.isDone()) {
      pass(1000);
    }
    return erased.get();
  }

  /** Returns the number of lines of the page that contain a text. */
  long shown(String text) throws IOException {
    awaitDisk();
    try (Stream<String> lines = Files.lines(directory.resolve("index.html"))) {
      return lines.filter(line -> line.startsWith("{") && line.contains(text)).count();
    }
  }

  /** Starts the recorder's option --ipv6. */
  void assumeIpv6() throws IOException {
    assumesIpv6 = true;
    recorder.assumeIpv6(true);
    recorder.attach(this);
  }

  void redeliver() throws IOException {
    redelivers = true;
    restart("kill");
  }

  private void deliver(FrameBlock block) {
    if (redelivers) {
      unsafe.add(block);
    }
    recorder.step(block);
  }

  /** Sends the following frames as another sniffer. */
  void session(int number) {
    shares.forEach(other -> other.session(number));
    current = number;
    sessions = Math.max(sessions, number);
  }

  @Override
  public boolean redelivers() {
    return redelivers;
  }

  @Override
  public void acknowledge(long number) {
    unsafe.removeIf(block -> block.number() <= number);
  }

  /** Returns the letter of the packet that a recorded sample comes from. */
  char letter(short sample) {
    if (letters.isEmpty()) {
      for (char c = 'a'; c <= 'z'; c++) {
        letters.put(linear(AudioFormat.Encoding.ULAW, c), Character.toUpperCase(c));
        letters.put(linear(AudioFormat.Encoding.ALAW, c), c);
      }
      for (short silence = -8; silence <= 8; silence += 8) {
        letters.put(silence, '.');
      }
    }
    return letters.getOrDefault(sample, '?');
  }

  // The methods below are events of the network.

  void sip(String source, String destination, String message) {
    frame(Frame.SIP, at(source), at(destination), message.replace("\n", "\r\n").getBytes(StandardCharsets.UTF_8));
  }

  void h323(String source, String destination, String text) {
    byte[] payload = text.getBytes(StandardCharsets.UTF_8);
    payload[payload.length - 1] = 0;
    frame(Frame.H323, at(source), at(destination), payload);
  }

  /** Sends a datagram. Returns whether the sniffer forwarded it. */
  boolean udp(Endpoint source, Endpoint destination, byte[] payload) {
    shares.forEach(other -> other.following(this).udp(source, destination, payload));
    passed.add(new Frame(Frame.RTP, destination, source, payload));
    boolean listed = list.contains(destination) && (ipv6 || !destination.isIpv6());
    if (listed) {
      forward(Frame.RTP, source, destination, payload);
    }
    return listed;
  }

  void frame(int protocol, Endpoint source, Endpoint destination, byte[] payload) {
    shares.forEach(other -> other.following(this).frame(protocol, source, destination, payload));
    if (holds && new String(payload, StandardCharsets.UTF_8).matches("(?s).*Call-ID: (call-1|in|first)\\R.*")) {
      held.add(() -> forward(protocol, source, destination, payload));
    } else {
      forward(protocol, source, destination, payload);
    }
  }

  private void forward(int protocol, Endpoint source, Endpoint destination, byte[] payload) {
    byte[] frame = new Frame(protocol, destination, source, payload).bytes();
    byte[] time = ByteBuffer.allocate(Long.BYTES).putLong(1000 * (now + setForward - lateMillis)).array();
    byte[] before = lateMillis == 0 && !redelivers ? new byte[0]
        : new Frame(Frame.CAPTURE_TIME, destination, source, time).bytes();
    byte[] bytes = ByteBuffer.allocate(before.length + frame.length).put(before).put(frame).array();
    FrameBlock block = new FrameBlock(bytes, 0, bytes.length, current, ++number);
    deliver(redelivers ? block : block.readBy(clock));
  }

  private FakeSniffer following(FakeSniffer first) {
    lateMillis = first.lateMillis;
    setForward = first.setForward;
    return this;
  }

  /** Moves the clock. */
  void pass(long millis) {
    shares.forEach(other -> other.following(this).pass(millis));
    held.forEach(Runnable::run);
    held.clear();
    if (fits > 0 && stalled.getCount() == 0) {
      awaitDisk(); // the clock of the test is faster than the disk
    }
    for (long end = now + millis; now < end;) {
      now = Math.min(end, now + Math.max(100, millis / 1000));
      recorder.step(null);
    }
  }

  /** Replays a capture at the pace of its time stamps. Each TCP segment with payload yields the next description. */
  void replay(Path capture, List<String> descriptions) throws IOException {
    ByteBuffer in = ByteBuffer.wrap(Files.readAllBytes(capture)).order(ByteOrder.LITTLE_ENDIAN);
    Iterator<String> texts = descriptions.iterator();
    long last = Long.MAX_VALUE;
    for (in.position(24); in.hasRemaining();) {
      long millis = 1000L * in.getInt() + in.getInt() / 1000;
      byte[] packet = new byte[in.getInt()];
      in.position(in.position() + 4).get(packet);
      pass(Math.max(0, millis - last));
      last = millis;
      classify(ByteBuffer.wrap(packet), texts);
    }
  }

  private void classify(ByteBuffer packet, Iterator<String> texts) {
    if (packet.getShort(12) != 0x0800) {
      return;
    }
    int transport = 14 + 4 * (packet.get(14) & 15);
    Endpoint source = new Endpoint(packet.getInt(26), packet.getShort(transport) & 0xffff);
    Endpoint destination = new Endpoint(packet.getInt(30), packet.getShort(transport + 2) & 0xffff);
    boolean tcp = packet.get(23) == 6;
    int start = transport + (tcp ? (packet.get(transport + 12) >> 4 & 15) * 4 : 8);
    int end = Math.min(packet.limit(), 14 + packet.getShort(16));
    if (start >= end) {
      return;
    }
    byte[] payload = new byte[end - start];
    packet.get(start, payload);
    if (tcp) {
      String[] expected = texts.next().split("\t");
      if (expected[0].equals("true")) {
        h323(source.toString(), destination.toString(), expected[1].replace("\\n", "\n"));
      }
    } else if (source.port() == 5060 || new String(payload, 0, 7, StandardCharsets.US_ASCII).equals("SIP/2.0")) {
      frame(Frame.SIP, source, destination, payload);
    } else {
      udp(source, destination, payload);
    }
  }

  /** Returns an RTP packet. */
  static byte[] rtp(int payloadType, int sequence, int timestamp, int ssrc, byte[] payload) {
    return ByteBuffer.allocate(12 + payload.length)
        .put((byte) 0x80)
        .put((byte) payloadType)
        .putShort((short) sequence)
        .putInt(timestamp)
        .putInt(ssrc)
        .put(payload)
        .array();
  }

  /** Decodes a byte of G.711, with another decoder than that of the recorder. */
  static short linear(AudioFormat.Encoding encoding, int coded) {
    return LINEAR.computeIfAbsent(encoding + " " + (coded & 255), key -> {
      AudioFormat format = new AudioFormat(encoding, 8000, 8, 1, 1, 8000, false);
      AudioInputStream source = new AudioInputStream(new ByteArrayInputStream(new byte[] {(byte) coded}), format, 1);
      try {
        byte[] sample = AudioSystem.getAudioInputStream(FORMAT, source).readAllBytes();
        return (short) (sample[0] & 255 | sample[1] << 8);
      } catch (IOException e) {
        throw new UncheckedIOException(e);
      }
    });
  }

  /** Returns the endpoint of "10.0.0.1:4000" or "[2001:db8::1]:4000". */
  static Endpoint at(String text) {
    int colon = text.lastIndexOf(':');
    String address = text.substring(0, colon).replaceAll("[\\[\\]]", "");
    return Endpoint.ofMedia(address, Integer.parseInt(text.substring(colon + 1))).orElseThrow();
  }

  // The methods below return the results of the recorder.

  /** Returns the samples of the only file whose name has this end. */
  short[] samples(String nameEnd) throws IOException, UnsupportedAudioFileException {
    List<Path> found = files(nameEnd);
    Testing.equal(found.size(), 1);
    try (AudioInputStream wav = AudioSystem.getAudioInputStream(found.get(0).toFile());
         AudioInputStream decoded = AudioSystem.getAudioInputStream(AudioFormat.Encoding.PCM_SIGNED, wav)) {
      byte[] bytes = decoded.readAllBytes();
      Testing.equal(wav.getFrameLength() * decoded.getFormat().getFrameSize(), (long) bytes.length);
      short[] samples = new short[bytes.length / 2];
      ByteBuffer.wrap(bytes).order(ByteOrder.LITTLE_ENDIAN).asShortBuffer().get(samples);
      return samples;
    }
  }

  /** Returns the sample rate of the only file whose name has this end. */
  float rate(String nameEnd) throws IOException, UnsupportedAudioFileException {
    return AudioSystem.getAudioFileFormat(files(nameEnd).get(0).toFile()).getFormat().getSampleRate();
  }

  /** Waits until the disk thread has done all jobs so far; on a full disk, until it has reported the failure. */
  private void awaitDisk() {
    CountDownLatch done = fits == 0 ? refusals : new CountDownLatch(1);
    if (fits > 0) {
      // The jobs so far may queue further ones, so the last job is queued after them.
      store.disk().submit(1, List.of(() -> store.disk().submit(1, List.of(done::countDown), done::countDown)),
          done::countDown);
    }
    try {
      done.await();
    } catch (InterruptedException e) {
      throw new AssertionError(e);
    }
  }

  /** Returns the lines of the table of calls. */
  List<String> table() throws IOException {
    awaitDisk();
    List<String> lines = Files.readAllLines(directory.resolve("calls.csv"));
    return lines.subList(1, lines.size());
  }

  /** Returns the last report as JSON. */
  String report() throws IOException {
    awaitDisk();
    CallReport last = reports.get(reports.size() - 1);
    Path file = directory.resolve(CallReport.FOLDER).resolve(last.name() + ".json");
    Testing.equal(CallReport.read(file), last);
    return last.json();
  }

  /** Returns what the reports say of the sound, and the content of the stereo files, without names of files. */
  String sounds() throws IOException {
    StringBuilder sounds = new StringBuilder();
    for (CallReport report : reports) {
      sounds.append('\n').append(List.of(report.fromCaller(), report.fromCallee(), report.notes()).toString()
          .replaceAll("file=[^,]*", ""));
      List<String> names = new ArrayList<>(report.moreStereo().stream().map(CallReport.Part::file).toList());
      names.add(0, report.stereo());
      for (String name : names) {
        if (!name.isEmpty()) {
          byte[] start = Files.newInputStream(directory.resolve(name)).readNBytes(MAX_COMPARED);
          sounds.append(' ').append(Files.size(directory.resolve(name))).append(' ').append(Arrays.hashCode(start));
        }
      }
    }
    return sounds.toString();
  }

  /** Returns the files whose names have this end. */
  List<Path> files(String nameEnd) throws IOException {
    awaitDisk();
    try (Stream<Path> files = Files.list(directory)) {
      List<Path> found = files.filter(file -> file.toString().endsWith(nameEnd)).sorted().toList();
      for (Path file : found) {
        Testing.that(!PosixFilePermissions.toString(Files.getPosixFilePermissions(file)).endsWith("r--"), "" + file);
      }
      return found;
    }
  }

  /** Returns the list of destinations, sorted, with duplicates. */
  String listed() {
    return String.join(" ", list.stream().map(Endpoint::toString).sorted().toList());
  }

  String printed() {
    console.flush(Long.MAX_VALUE / 1_000_000);
    return printed.toString(StandardCharsets.UTF_8);
  }

  // The methods below are the transport of the recorder.

  @Override
  public void send(int sniffer, Command command) {
    if (sniffer < sessions && command.code() != Command.HEARTBEAT) {
      return; // all sniffers share one list
    }
    Testing.that(ipv6 || !command.isIpv6(), "the sniffer reads " + command + " as several commands");
    if (refusesCommand) {
      refusesCommand = false;
      throw new IllegalStateException("refused");
    }
    commands.add(command);
    switch (command.code()) {
      case Command.ADD -> list.add(command.destination());
      case Command.REMOVE -> list.removeIf(command.destination()::equals);
      default -> { }
    }
  }

  @Override
  public FrameBlock receive(long timeoutMillis) {
    return null;
  }

  @Override
  public int sessions() {
    return sessions;
  }

  @Override
  public Set<Integer> sniffers() {
    return Set.copyOf(IntStream.rangeClosed(1, sessions).boxed().toList());
  }

  @Override
  public boolean losesCommands() {
    return losesCommands;
  }

  @Override
  public void close() {
    store.close();
  }
}
