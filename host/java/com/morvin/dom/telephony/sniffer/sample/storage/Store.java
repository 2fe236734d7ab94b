package com.morvin.dom.telephony.sniffer.sample.storage;

import com.morvin.dom.telephony.sniffer.sample.console.Console;
import java.io.IOException;
import java.nio.channels.FileChannel;
import java.nio.channels.FileLock;
import java.nio.channels.OverlappingFileLockException;
import java.nio.file.FileAlreadyExistsException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.StandardOpenOption;
import java.util.HashMap;
import java.util.LinkedHashSet;
import java.util.List;
import java.util.Map;
import java.util.Set;

/** The folder of the recordings: makes its files, each with a name of its own. One recorder uses it at a time. */
public final class Store implements AutoCloseable {
  private static final int MAX_REMEMBERED = 10_000;
  private static final long MAX_WAITING = 256L << 20;
  /** What the recorder needs to go on after a restart. */
  static final String RUNNING = "running";

  /** Hears of files before they are created. */
  interface Creation {
    void about(Path path) throws IOException;
  }

  private final Path directory;
  private final Disk disk;
  private final FileChannel lock;
  private final Map<String, Integer> lastNumber = new HashMap<>();
  private final Set<Path> unsynced = new LinkedHashSet<>();
  private Creation created = path -> { };

  public Store(Path directory, Console console) throws IOException {
    this(directory, console, () -> { });
  }

  /** With a gate for the disk: see {@link Disk}. */
  public Store(Path directory, Console console, Disk.Job gate) throws IOException {
    this.directory = directory;
    Files.createDirectories(running());
    lock = lock(running().resolve("lock"));
    disk = new Disk(directory, Math.min(MAX_WAITING, Runtime.getRuntime().maxMemory() / 4), console, gate);
  }

  private FileChannel lock(Path file) throws IOException {
    FileChannel channel = FileChannel.open(file, StandardOpenOption.CREATE, StandardOpenOption.WRITE);
    FileLock held = null;
    try {
      held = channel.tryLock();
    } catch (OverlappingFileLockException e) {
      // Another one in this process.
    } finally {
      if (held == null) {
        channel.close();
      }
    }
    if (held == null) {
      throw new IOException("another recorder writes to " + directory + ": give this one another --out");
    }
    return channel;
  }

  public Path directory() {
    return directory;
  }

  Path running() {
    return directory.resolve(RUNNING);
  }

  public Disk disk() {
    return disk;
  }

  /** A new WAV file; it is created when something is written. */
  public WavFile wav(String name, int rate) {
    return new WavFile(this, name, rate, null, 0);
  }

  /** A WAV file that goes on. */
  public WavFile wav(String name, int rate, Path path, long samples) {
    return new WavFile(this, name, rate, path, samples);
  }

  /** A capture file; one that goes on when there is a path. */
  public PcapFile pcap(String name, Path path) {
    return new PcapFile(this, name, path);
  }

  /** Each file that is created from now on is told before it is used, on the thread of the disk. */
  void onCreate(Creation listener) {
    created = listener;
  }

  /** Creates NAME.EXTENSION, or NAME-2.EXTENSION and so on when there is one already. On the thread of the disk. */
  Path create(String name, String extension) throws IOException {
    String key = name + "." + extension;
    for (int number = lastNumber.getOrDefault(key, 0) + 1;; number++) {
      Path path = numbered(name, extension, number);
      if (!Files.exists(path)) {
        try {
          created.about(path);
          Files.createDirectories(path.getParent());
          Files.createFile(path);
          remember(key, number);
          return path;
        } catch (FileAlreadyExistsException e) {
          // The next free number, then.
        }
      }
      number = lastTaken(name, extension, number);
    }
  }

  private void remember(String key, int number) {
    if (lastNumber.size() >= MAX_REMEMBERED) {
      lastNumber.clear();
    }
    lastNumber.put(key, number);
  }

  /** A number that is taken and whose successor is free, in a logarithmic number of tries. */
  private int lastTaken(String name, String extension, int taken) {
    int low = taken;
    int high = taken + 1;
    while (Files.exists(numbered(name, extension, high))) {
      low = high;
      high *= 2;
    }
    while (high - low > 1) {
      int middle = (low + high) >>> 1;
      if (Files.exists(numbered(name, extension, middle))) {
        low = middle;
      } else {
        high = middle;
      }
    }
    return low;
  }

  private Path numbered(String name, String extension, int number) {
    return directory.resolve(name + (number == 1 ? "" : "-" + number) + "." + extension);
  }

  void written(Path path) {
    unsynced.add(path);
  }

  /** Makes what has been written survive a crash of the machine. On the thread of the disk. */
  void sync() throws IOException {
    for (Path path : List.copyOf(unsynced)) {
      if (Files.exists(path)) {
        try (FileChannel file = FileChannel.open(path, StandardOpenOption.WRITE)) {
          file.force(true);
        }
      }
      unsynced.remove(path);
    }
  }

  /** What need not survive is forgotten, or the list would grow. On the thread of the disk. */
  void forgetUnsynced() {
    unsynced.clear();
  }

  @Override
  public void close() {
    disk.close();
    try {
      lock.close();
    } catch (IOException ignored) {
      // The system frees it with the process.
    }
  }
}
