package com.morvin.dom.telephony.sniffer.sample;

import com.morvin.dom.telephony.sniffer.sample.console.Console;
import com.morvin.dom.telephony.sniffer.sample.console.Text;
import com.morvin.dom.telephony.sniffer.sample.media.Track;
import com.morvin.dom.telephony.sniffer.sample.metrics.MetricsFile;
import com.morvin.dom.telephony.sniffer.sample.page.CallPages;
import com.morvin.dom.telephony.sniffer.sample.page.PageIndex;
import com.morvin.dom.telephony.sniffer.sample.recording.Recorder;
import com.morvin.dom.telephony.sniffer.sample.service.Service;
import com.morvin.dom.telephony.sniffer.sample.signalling.CallFollower;
import com.morvin.dom.telephony.sniffer.sample.storage.EraseRequests;
import com.morvin.dom.telephony.sniffer.sample.storage.Store;
import com.morvin.dom.telephony.sniffer.sample.transport.EmbeddedTransport;
import com.morvin.dom.telephony.sniffer.sample.transport.SteadyClock;
import com.morvin.dom.telephony.sniffer.sample.transport.TcpTransport;
import com.morvin.dom.telephony.sniffer.sample.transport.Transport;
import com.morvin.dom.telephony.sniffer.sample.transport.UdpTransport;
import java.io.IOException;
import java.net.BindException;
import java.nio.charset.StandardCharsets;
import java.nio.file.FileSystemException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.time.InstantSource;
import java.util.LinkedHashMap;
import java.util.Map;
import java.util.concurrent.CountDownLatch;
import java.util.concurrent.TimeUnit;
import java.util.stream.Stream;

/** The sample recorder as a program. */
public final class RecorderMain {
  private static final long FINISH_SECONDS = 60;
  private static final int FAILED = 3;
  private static final long PRINT_MILLIS = 1000;
  private static final long ERASE_SECONDS = 60;

  /** The settings of the sniffer in this process, for a site that records calls. */
  private static final String SETTINGS = """
      LookBack=2000
      LookBackMemory=64
      CaptureTime=yes
      ReassembleFragments=yes
      ReassembleTcp=yes
      Decapsulate=yes
      DropDuplicates=yes
      SipAnyUri=yes
      IPv6=yes
      QueueLimit=1024
      ReopenDevices=yes
      StatisticsInterval=60
      """;

  /** Made at the start, because the text of an exhausted heap cannot be made. */
  private static volatile byte[] noMemory = {};
  /** Freed when a thread has failed: the report of an exhausted heap needs memory. */
  private static byte[] reserve = new byte[1 << 20];

  private RecorderMain() {}

  /**
   * Records until it is interrupted or a limit of the command line is reached.
   *
   * @param arguments see {@code --help}
   */
  public static void main(String[] arguments) {
    System.exit(run(arguments));
  }

  /** Returns the exit status. */
  static int run(String... arguments) {
    try {
      Options options = Options.parse(arguments);
      if (options.help) {
        System.out.print(Options.HELP);
        return 0;
      }
      return !options.index.isEmpty() ? index(options) : options.erase != null ? erase(options) : record(options);
    } catch (Options.UsageException e) {
      System.err.println("voip-sniffer: " + e.getMessage() + "\nTry --help.");
      return 2;
    } catch (IOException | UnsatisfiedLinkError e) {
      String what = e instanceof BindException ? "cannot listen there: " : "";
      System.err.println("voip-sniffer: " + what
          + (e instanceof FileSystemException file ? Text.reason(file) : e.getMessage()));
      return 1;
    } catch (InterruptedException e) {
      return 1;
    }
  }

  private static int index(Options options) throws IOException {
    Path page = PageIndex.write(options.out, options.index);
    System.out.println("the calls of " + Text.count(options.index.size(), "recorder") + ": "
        + page.toAbsolutePath().normalize().toUri());
    return 0;
  }

  /** Erases a call. Returns the exit status, 1 when there is no such call. */
  private static int erase(Options options) throws IOException, InterruptedException {
    if (!Files.isDirectory(options.out)) {
      throw new IOException("no such directory: " + options.out);
    }
    int erased;
    try (Store store = new Store(options.out, new Console(System.out, false))) {
      erased = Retention.erase(store.directory(), options.erase, System.currentTimeMillis());
    } catch (Store.InUseException e) {
      erased = new EraseRequests(options.out).request(options.erase, ERASE_SECONDS);
    }
    System.out.println(erased > 0 ? "erased " + Text.count(erased, "call")
        : erased == 0 ? "no ended call has this identifier"
        : "the recorder that uses the directory does not reply: nothing was erased");
    return erased > 0 ? 0 : 1;
  }

  /** Records until the end. Returns the exit status. Package-private for tests. */
  static int record(Options options) throws IOException, InterruptedException {
    Console console = new Console(System.out, System.console() != null, options.publish == null ? "recorder" : "front");
    noMemory = ("the " + console.program() + " ends, because the heap is full\n").getBytes(StandardCharsets.US_ASCII);
    Thread.setDefaultUncaughtExceptionHandler((thread, thrown) -> fail(console, thread, thrown));
    Service.Limits limits = new Service.Limits(options.untilDisconnect, options.idleExitMillis,
        CallFollower.Limits.DEFAULT.withIdle(options.callTimeoutMillis).withShare(options.share));
    if (options.share.isPart()) {
      console.line(options.share + (options.share.number() == 0 ? ": no new calls" : ""));
    }
    if (options.publish != null) {
      Cluster cluster = Cluster.load();
      serve(options, cluster.front(options.publish, options.bufferBytes, options.spool, limits, console), console);
      return 0;
    }
    try (Store store = new Store(options.out, console)) {
      CallPages pages = new CallPages(options.out, InstantSource.system());
      store.disk().submit(pages::open);
      console.line("calls can be seen and heard at " + pages.address());
      SteadyClock clock = SteadyClock.system();
      Retention retention = new Retention(options.out, pages, clock, options.keepMillis, console);
      Track.Options media = new Track.Options(options.digits, options.pcm, options.mono);
      serve(options, new Recorder(store, media, limits, console, clock, retention), console);
    }
    return 0;
  }

  /** Ends the process when a thread has failed. The files are completed if possible. */
  private static void fail(Console console, Thread thread, Throwable thrown) {
    reserve = null;
    try {
      console.line("the " + console.program() + " ends, because its thread " + thread.getName() + " has failed: "
          + thrown);
      console.flush(PRINT_MILLIS);
      System.exit(FAILED);
    } catch (OutOfMemoryError e) {
      System.out.write(noMemory, 0, noMemory.length);
      System.out.flush();
    } finally {
      Runtime.getRuntime().halt(FAILED);  // not even that was possible
    }
  }

  private static void serve(Options options, Service service, Console console)
      throws IOException, InterruptedException {
    CountDownLatch finished = new CountDownLatch(1);
    finishOnShutdown(service, finished, console);
    Path folder = options.publish == null ? options.out : null;
    MetricsFile metrics = options.metrics == null ? null : new MetricsFile(options.metrics, folder, console);
    service.writeMetrics(metrics);
    try (metrics) {
      try {
        serveAll(options, service, console);
      } finally {
        service.summarize();
      }
    } finally {
      console.flush(PRINT_MILLIS);
      finished.countDown();
    }
  }

  private static void serveAll(Options options, Service service, Console console)
      throws IOException, InterruptedException {
    if (options.embedded.isEmpty()) {
      try (Transport link = transport(options, console)) {
        if (options.consume == null) {
          service.listen(link);
        }
        warmUp(console);
        service.assumeIpv6(options.ipv6);
        service.run(link);
      }
    } else {
      warmUp(console);
      service.assumeIpv6(settings(options).lines().anyMatch(line -> line.replaceAll("\\s", "").equals("IPv6=yes")));
    }
    for (String devices : options.embedded) {
      if (!service.stopped()) {
        try (Transport link =
            EmbeddedTransport.on(devices, options.filter, options.trace, settings(options), console)) {
          service.run(link);
        }
      }
    }
  }

  private static void warmUp(Console console) throws InterruptedException {
    WarmUp.run(Path.of(System.getProperty("java.io.tmpdir")), console);
  }

  /** Returns the settings of the sniffer: those of the command line override those of this class. */
  private static String settings(Options options) {
    Map<String, String> byKey = new LinkedHashMap<>();
    Stream.concat(SETTINGS.lines(), options.settings.stream())
        .forEach(line -> byKey.put(line.split("=", 2)[0].strip(), line));
    return String.join("\n", byKey.values());
  }

  private static Transport transport(Options options, Console console) throws IOException {
    if (options.consume != null) {
      return Cluster.load().queue(options.consume, options.queue, console);
    }
    return options.udp != null ? new UdpTransport(options.udp, console) : new TcpTransport(options.tcp, console);
  }

  /** Completes the files before the process ends on a signal. */
  private static void finishOnShutdown(Service service, CountDownLatch finished, Console console) {
    Runtime.getRuntime().addShutdownHook(new Thread(() -> {
      service.stop();
      try {
        if (!finished.await(FINISH_SECONDS, TimeUnit.SECONDS)) {
          console.line("the " + console.program() + " ends before all is written, because the disk takes more than "
              + FINISH_SECONDS + " s");
          console.flush(PRINT_MILLIS);
        }
      } catch (InterruptedException e) {
        Thread.currentThread().interrupt();
      }
    }));
  }
}
