package com.morvin.dom.telephony.sniffer.sample;

import com.morvin.dom.telephony.sniffer.sample.memory.HeapShare;
import com.morvin.dom.telephony.sniffer.sample.signalling.Share;
import java.io.IOException;
import java.net.InetSocketAddress;
import java.net.URI;
import java.net.URISyntaxException;
import java.net.URLEncoder;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.InvalidPathException;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.Collections;
import java.util.Iterator;
import java.util.List;
import java.util.Set;

/** The options of the command line, and their default values. */
final class Options {
  static final String HELP = """
      Records the calls that the sniffer sees: a stereo WAV file of each call, and a table of calls.

      usage: java -jar voip-sniffer.jar [--embedded DEVICES | --tcp [HOST:]PORT | --udp [HOST:]PORT |
                                     --consume BROKER --queue NAME] [OPTION]...

      Where the sniffer is (without any of these: --tcp 6000):
        --embedded DEVICES     in this process, on these devices (eth0, or eth0;eth1), or on capture files at their own
                               pace (file:PATH). May be given several times: one run after another, each up to
                               --idle-exit. Java must find libsniffer.so: -Djava.library.path=DIRECTORY
        --tcp [HOST:]PORT      it connects to this address; HOST is 127.0.0.1 unless given
        --udp [HOST:]PORT      it sends datagrams to this address
        --consume amqp://USER@HOST:PORT/VHOST --queue NAME
                               it gets what fronts published, from this queue of a broker; see docs/scaling.md

      Options:
        --settings FILE        read options from a file: lines such as out=/calls, and mono=yes for an option without
                               a value. Options that follow on the command line override it
        --publish amqp://USER@HOST:PORT/VHOST
                               record nothing: pass the calls on, by a broker, to recorders that consume
        --password-file FILE   the password for the broker, in one line; without this it is taken from the environment
                               variable VOIP_BROKER_PASSWORD, if that is set
        --buffer MB            with --publish: what is kept while the broker is slow or away (default: a quarter of
                               Java's memory)
        --spool DIRECTORY      with --publish: where a restarted front finds its running calls, and what the broker had
                               not taken when it was stopped (default: nothing is kept)
        --filter EXPRESSION    with --embedded: the capture filter (default: udp or tcp)
        --set KEY=VALUE        with --embedded: a further setting of the sniffer; may be given several times
        --trace                with --embedded: log decoded H.323 messages
        --share K/N            record, or publish, only the K-th of N shares of the calls. Each of the N gets the
                               signalling of all calls; 0/N takes no new calls; see docs/scaling.md
        --ipv6                 the sniffers have the setting IPv6=yes: ask for media over IPv6 before one of them has
                               sent anything of IPv6
        --out DIRECTORY        where recordings go (default: recordings)
        --keep DAYS            delete calls that are older: their files, their lines in the table and on the pages
        --mono                 keep the voices as files of their own, too
        --pcm                  write 16-bit samples instead of A-law and mu-law
        --no-digits            do not record pressed keys, which can be card numbers
        --erase CALL           record nothing: erase the calls with this call ID, also while a recorder runs
        --index DIRECTORY...   record nothing: write a page with the calls of several recorders to --out. It reads the
                               pages in these directories of recordings
        --metrics FILE         keep figures for Prometheus in this file, for the textfile collector of node_exporter
        --until-disconnect     with --tcp: end when the sniffer disconnects
        --idle-exit SECONDS    end when nothing has been captured for so long
        --call-timeout MINUTES give up a call without signalling or media after so long (default: 60)
        --help                 this text
      """;

  /** The command line is wrong. The message says what to change. */
  static final class UsageException extends Exception {
    private static final long serialVersionUID = 1;

    UsageException(String message) {
      super(message);
    }
  }

  /** The password for the broker, unless it is in a file. */
  static final String PASSWORD_VARIABLE = "VOIP_BROKER_PASSWORD";

  /** The options without a value. */
  private static final Set<String> FLAGS =
      Set.of("--trace", "--ipv6", "--mono", "--pcm", "--no-digits", "--until-disconnect", "--help");
  /** A line of a settings file that the script voip-recorder reads: the memory for Java. */
  private static final String HEAP = "--heap";

  private static final int DEFAULT_PORT = 6000;
  private static final int MAX_PORT = 65_535;
  private static final int MAX_NUMBER = 1_000_000;
  private static final int MAX_SHARES = 1000;

  final List<String> embedded = new ArrayList<>();
  InetSocketAddress tcp;
  InetSocketAddress udp;
  URI consume;
  String queue;
  URI publish;
  long bufferBytes = HeapShare.MESSAGES;
  Path spool;
  String filter = "udp or tcp";
  boolean trace;
  boolean ipv6;
  final List<String> settings = new ArrayList<>();
  Share share = Share.ALL;
  Path out = Path.of("recordings");
  long keepMillis;
  boolean mono;
  boolean pcm;
  boolean digits = true;
  String erase;
  final List<Path> index = new ArrayList<>();
  Path metrics;
  private Path passwordFile;
  boolean untilDisconnect;
  long idleExitMillis = Long.MAX_VALUE;
  long callTimeoutMillis = 3_600_000;
  boolean help;

  static Options parse(String... arguments) throws UsageException {
    Options options = new Options();
    for (Iterator<String> words = List.of(arguments).iterator(); words.hasNext();) {
      options.take(words.next(), words);
    }
    options.check();
    options.addPassword();
    return options;
  }

  /** Takes the options of a file, each in a line. Lines that are empty or begin with # are comments. */
  private void takeFile(Path file) throws UsageException {
    try {
      int number = 0;
      for (String line : Files.readAllLines(file)) {
        number++;
        String text = line.strip();
        if (!text.isEmpty() && !text.startsWith("#")) {
          try {
            takeLine(text);
          } catch (UsageException e) {
            throw new UsageException(file + ", line " + number + ": " + e.getMessage());
          }
        }
      }
    } catch (IOException e) {
      throw new UsageException("cannot read the settings: " + e);
    }
  }

  private void takeLine(String line) throws UsageException {
    int equals = line.indexOf('=');
    String option = "--" + (equals < 0 ? line : line.substring(0, equals)).strip();
    String value = equals < 0 ? "yes" : line.substring(equals + 1).strip();
    if (FLAGS.contains(option)) {
      if (!List.of("yes", "no").contains(value)) {
        throw new UsageException(option.substring(2) + " is yes or no, not " + value);
      }
      if (value.equals("yes")) {
        take(option, Collections.emptyIterator());
      }
    } else if (option.equals(HEAP)) {
      if (!value.matches("\\d{1,6}[kmgKMG]")) {
        throw new UsageException("heap is a size such as 2g, not " + value);
      }
    } else if (option.equals("--settings")) {
      throw new UsageException("a file of settings cannot include another one");
    } else {
      take(option, (equals < 0 ? List.<String>of() : List.of(value)).iterator());
    }
  }

  /** Puts the password into the address of the broker. It need not stand on the command line, which all users see. */
  private void addPassword() throws UsageException {
    URI broker = publish != null ? publish : consume;
    String password = passwordFile == null ? System.getenv(PASSWORD_VARIABLE) : readPassword();
    if (broker == null || password == null || password.isEmpty()) {
      return;
    }
    String user = broker.getRawUserInfo();
    if (user == null || user.contains(":")) {
      throw new UsageException("with --password-file or " + PASSWORD_VARIABLE + " the broker's address has a user and "
          + "no password, as in amqp://USER@HOST");
    }
    String quoted = URLEncoder.encode(password, StandardCharsets.UTF_8).replace("+", "%20");
    URI complete = URI.create(broker.toString().replaceFirst("@", ":" + quoted + "@"));
    publish = publish == null ? null : complete;
    consume = consume == null ? null : complete;
  }

  private String readPassword() throws UsageException {
    try {
      return Files.readString(passwordFile).lines().findFirst().orElse("");
    } catch (IOException e) {
      throw new UsageException("cannot read the password for the broker: " + e);
    }
  }

  private void take(String option, Iterator<String> words) throws UsageException {
    switch (option) {
      case "--embedded" -> embedded.add(value(option, words));
      case "--tcp" -> tcp = address(option, value(option, words));
      case "--udp" -> udp = address(option, value(option, words));
      case "--consume" -> consume = broker(option, value(option, words));
      case "--queue" -> queue = value(option, words);
      case "--publish" -> publish = broker(option, value(option, words));
      case "--buffer" -> bufferBytes = (long) number(option, value(option, words), MAX_NUMBER) << 20;
      case "--spool" -> spool = path(option, value(option, words));
      case "--filter" -> filter = value(option, words);
      case "--set" -> settings.add(value(option, words));
      case "--trace" -> trace = true;
      case "--ipv6" -> ipv6 = true;
      case "--share" -> share = share(option, value(option, words));
      case "--settings" -> takeFile(path(option, value(option, words)));
      case "--password-file" -> passwordFile = path(option, value(option, words));
      case "--metrics" -> metrics = path(option, value(option, words));
      case "--index" -> index.add(path(option, value(option, words)));
      case "--out" -> out = path(option, value(option, words));
      case "--keep" -> keepMillis = 86_400_000L * number(option, value(option, words), MAX_NUMBER);
      case "--mono" -> mono = true;
      case "--pcm" -> pcm = true;
      case "--no-digits" -> digits = false;
      case "--erase" -> erase = value(option, words);
      case "--until-disconnect" -> untilDisconnect = true;
      case "--idle-exit" -> idleExitMillis = 1000L * number(option, value(option, words), MAX_NUMBER);
      case "--call-timeout" -> callTimeoutMillis = 60_000L * number(option, value(option, words), MAX_NUMBER);
      case "--help", "-h" -> help = true;
      default -> takeWord(option);
    }
  }

  private void takeWord(String word) throws UsageException {
    if (index.isEmpty() || word.startsWith("-")) {
      throw new UsageException("unknown option " + word);
    }
    index.add(path("--index", word));
  }

  private void check() throws UsageException {
    int transports = (embedded.isEmpty() ? 0 : 1) + (tcp == null ? 0 : 1) + (udp == null ? 0 : 1)
        + (consume == null ? 0 : 1);
    if (transports > 1) {
      throw new UsageException("--embedded, --tcp, --udp and --consume exclude each other");
    }
    checkCluster();
    if (embedded.size() > 1 && idleExitMillis == Long.MAX_VALUE) {
      throw new UsageException("several --embedded need --idle-exit, or the first would never end");
    }
    if (transports == 0) {
      tcp = new InetSocketAddress("127.0.0.1", DEFAULT_PORT);
    }
    if (untilDisconnect && tcp == null) {
      throw new UsageException("--until-disconnect is for --tcp; use --idle-exit SECONDS");
    }
  }

  private void checkCluster() throws UsageException {
    if ((consume == null) != (queue == null)) {
      throw new UsageException("--consume and --queue go together: which queue of which broker");
    }
    if (publish != null && consume != null) {
      throw new UsageException("--publish and --consume exclude each other: what consumes records");
    }
    if (share.isPart() && consume != null) {
      throw new UsageException("--share is for what sniffers send: a queue has its share of the calls already");
    }
    if (bufferBytes > Runtime.getRuntime().maxMemory() / 2) {
      throw new UsageException("--buffer " + (bufferBytes >> 20) + " is more than half of Java's memory: give it more, "
          + "as in java -Xmx" + (bufferBytes >> 19) + "m -jar ...");
    }
  }

  private static String value(String option, Iterator<String> words) throws UsageException {
    if (!words.hasNext()) {
      throw new UsageException(option + " needs a value");
    }
    return words.next();
  }

  private static int number(String option, String value, int max) throws UsageException {
    if (!value.matches("\\d{1,7}") || Integer.parseInt(value) < 1 || Integer.parseInt(value) > max) {
      throw new UsageException(option + " needs a number from 1 to " + max + ", not " + value);
    }
    return Integer.parseInt(value);
  }

  private static Share share(String option, String value) throws UsageException {
    String[] parts = value.split("/", -1);
    if (parts.length != 2) {
      throw new UsageException(option + " needs K/N, such as 2/4, not " + value);
    }
    int count = number(option, parts[1], MAX_SHARES);
    return new Share(parts[0].equals("0") ? 0 : number(option, parts[0], count), count);
  }

  private static InetSocketAddress address(String option, String value) throws UsageException {
    int colon = value.lastIndexOf(':');
    int port = number(option, value.substring(colon + 1), MAX_PORT);
    InetSocketAddress address = new InetSocketAddress(colon < 0 ? "127.0.0.1" : value.substring(0, colon), port);
    if (address.isUnresolved()) {
      throw new UsageException(option + ": no such host: " + value.substring(0, colon));
    }
    return address;
  }

  private static URI broker(String option, String value) throws UsageException {
    try {
      URI uri = new URI(value);
      boolean hasPort = uri.getPort() == -1 || uri.getPort() >= 1 && uri.getPort() <= MAX_PORT;  // -1: the usual one
      if (uri.getHost() != null && List.of("amqp", "amqps").contains(uri.getScheme()) && hasPort) {
        checkVirtualHost(option, uri);
        return uri;
      }
    } catch (URISyntaxException e) {
      // Reported below.
    }
    throw new UsageException(option + " needs an address like amqp://USER@HOST:5672/VHOST");
  }

  /** No broker has a virtual host without a name: a client would try again for ever. */
  private static void checkVirtualHost(String option, URI broker) throws UsageException {
    String path = broker.getRawPath();
    String address = broker.getScheme() + "://" + broker.getHost();
    if (path.equals("/")) {
      throw new UsageException(option + " ends with /, which is a virtual host without a name: write " + address
          + " or " + address + "/%2F for the virtual host /");
    }
    if (path.lastIndexOf('/') > 0) {
      throw new UsageException(option + " has several / after the host: write %2F for those of the virtual host, as in "
          + address + "/" + path.substring(1).replace("/", "%2F"));
    }
  }

  private static Path path(String option, String value) throws UsageException {
    try {
      return Path.of(value);
    } catch (InvalidPathException e) {
      throw new UsageException(option + ": " + e.getMessage());
    }
  }
}
