package com.morvin.dom.telephony.sniffer.sample.storage;

import com.morvin.dom.telephony.sniffer.sample.console.Console;
import com.morvin.dom.telephony.sniffer.sample.memory.HeapShare;
import com.morvin.dom.telephony.sniffer.sample.metrics.Metrics;
import com.sun.management.UnixOperatingSystemMXBean;
import java.io.IOException;
import java.lang.management.ManagementFactory;
import java.nio.channels.FileChannel;
import java.nio.channels.FileLock;
import java.nio.channels.OverlappingFileLockException;
import java.nio.file.FileAlreadyExistsException;
import java.nio.file.Files;
import java.nio.file.NoSuchFileException;
import java.nio.file.Path;
import java.nio.file.StandardCopyOption;
import java.nio.file.StandardOpenOption;
import java.nio.file.attribute.BasicFileAttributes;
import java.util.ArrayDeque;
import java.util.HashMap;
import java.util.LinkedHashSet;
import java.util.List;
import java.util.Map;
import java.util.Objects;
import java.util.Queue;
import java.util.Set;
import java.util.stream.Stream;

/**
 * The directory of the recordings. Creates files with unique names. A lock file ensures that only one recorder uses the
 * directory.
 */
public final class Store implements AutoCloseable {
  private static final int MAX_REMEMBERED = 10_000;
  /** The voices of 8,000 calls. */
  private static final int MAX_OPEN = 16_000;
  private static final int MAX_SPARES = 4096;
  private static final String SPARE = "spare-";
  private static final long LARGE = 1 << 20;
  private static final long RESERVE = 64 << 20;
  /** The directory with the state for a restart. */
  static final String RUNNING = "running";

  /** Another recorder uses the directory. */
  public static final class InUseException extends IOException {
    private static final long serialVersionUID = 1;

    InUseException(String message) {
      super(message);
    }
  }

  /** Is called before a file is created. */
  interface CreationListener {
    void creating(Path path) throws IOException;
  }

  private final Path directory;
  private final Disk disk;
  private final Console console;
  private FileChannel lock;
  /** The identity of the lock file. */
  private Object lockKey;
  private boolean contested;
  /** The identity of the directory, and how often another one has taken its place. */
  private Object directoryKey;
  private volatile long replaced;
  private final Map<String, Integer> lastNumber = new HashMap<>();
  private final OpenFiles open = new OpenFiles(openLimit());
  private final Blocks blocks = new Blocks();
  private final StereoFile.Buffers stereoBuffers = new StereoFile.Buffers();
  private final Set<Path> unsynced = new LinkedHashSet<>();
  private boolean syncs;
  private final Queue<Path> spares = new ArrayDeque<>();
  private int lastSpare;
  private CreationListener creationListener = path -> { };

  /**
   * Opens a directory, and creates it when it is missing.
   *
   * @throws IOException also when another recorder uses it
   */
  public Store(Path directory, Console console) throws IOException {
    this(directory, console, bytes -> admit(directory, bytes));
  }

  /** Opens a directory with a gate for the disk thread; see {@link Disk}. A test simulates a faulty disk with it. */
  public Store(Path directory, Console console, Disk.Gate gate) throws IOException {
    this.directory = directory;
    this.console = console;
    FileOperations.createDirectories(running());
    directoryKey = keyOf(directory);
    lock();
    deleteSpares();
    disk = new Disk(directory, HeapShare.DISK, console, gate);
  }

  /** Large files leave room for the recordings of some minutes. */
  private static void admit(Path directory, long bytes) throws IOException {
    long needed = bytes + Math.min(bytes, RESERVE);
    if (bytes >= LARGE && FileOperations.usableSpace(directory) < needed) {
      throw new Disk.LeftOutException("a file of " + (bytes >> 20) + " MB does not fit on the disk");
    }
  }

  /** Returns how many files may be open: sockets and short-lived files need the others. */
  private static int openLimit() {
    long allowed = ManagementFactory.getOperatingSystemMXBean() instanceof UnixOperatingSystemMXBean system
        ? system.getMaxFileDescriptorCount() : 1024;
    return (int) Math.max(64, Math.min(MAX_OPEN, allowed / 2));
  }

  private Path lockFile() {
    return running().resolve("lock");
  }

  private void lock() throws IOException {
    lock = acquire(lockFile());
    lockKey = keyOf(lockFile());
  }

  /** Returns the identity of a file; null when it does not exist. */
  private static Object keyOf(Path file) throws IOException {
    try {
      return Files.readAttributes(file, BasicFileAttributes.class).fileKey();
    } catch (NoSuchFileException e) {
      return null;
    }
  }

  private FileChannel acquire(Path file) throws IOException {
    FileChannel channel = FileOperations.open(file, StandardOpenOption.CREATE, StandardOpenOption.WRITE);
    FileLock held = null;
    try {
      held = channel.tryLock();
    } catch (OverlappingFileLockException e) {
      // Another recorder in this process holds the lock.
    } finally {
      if (held == null) {
        channel.close();
      }
    }
    if (held == null) {
      throw new InUseException("another " + console.program() + " writes to " + directory + ": give this one another "
          + (console.program().equals("front") ? "--spool" : "--out"));
    }
    return channel;
  }

  /** Returns the directory. */
  public Path directory() {
    return directory;
  }

  Path running() {
    return directory.resolve(RUNNING);
  }

  /**
   * Makes the directory of the state and its lock file again when they were removed, so that no other recorder starts.
   * Called on the disk thread.
   */
  void ensureRunning() throws IOException {
    if (Objects.equals(keyOf(lockFile()), lockKey)) {
      return;
    }
    if (!exists(running())) {
      spares.clear();
      FileOperations.createDirectories(running());
    }
    reportReplacement();
    FileChannel before = lock;
    try {
      lock();
      before.close();
    } catch (InUseException e) {
      if (!contested) {
        contested = true;
        console.line("another " + console.program() + " has begun to write to " + directory + ": stop one of them");
      }
    }
  }

  /** The files of running calls stay open, and are written to where nobody finds them. */
  private void reportReplacement() throws IOException {
    Object key = keyOf(directory);
    if (!Objects.equals(key, directoryKey)) {
      directoryKey = key;
      replaced++;
      console.line(directory + " is another folder than before: it was moved or unmounted. What was written there, and"
          + " what the files of the calls that run now get, is not in it");
    }
  }

  /** Adds the figures of the directory and its disk. Any thread may call it. */
  public void measure(Metrics figures) {
    disk.measure(figures);
    figures.counter("folder_replaced_total", "Times that the folder of the recordings was moved or unmounted.",
        replaced);
  }

  /** Returns the disk thread that writes into the directory. */
  public Disk disk() {
    return disk;
  }

  /** Returns where faults are printed. */
  Console console() {
    return console;
  }

  /** Returns the files that are held open. They belong to the disk thread. */
  OpenFiles open() {
    return open;
  }

  /** Returns the arrays for sound that waits for the disk. */
  Blocks blocks() {
    return blocks;
  }

  /** Returns the arrays for stereo files. They belong to the disk thread. */
  StereoFile.Buffers stereoBuffers() {
    return stereoBuffers;
  }

  /** Makes a WAV file, which is created with its first samples; see {@link WavFile}. */
  public WavFile wav(String name, WavFile.Format format, long begin) {
    return new WavFile(this, name, format, begin, null, 0);
  }

  /** Makes a capture file, which is created with its first datagrams. */
  public PcapFile pcap(String name) {
    return new PcapFile(this, name, null, 0);
  }

  /** Sets the listener for the files created from now on. It is called on the disk thread. */
  void onCreate(CreationListener listener) {
    creationListener = listener;
  }

  /** Creates NAME.EXTENSION, or NAME-2.EXTENSION and so on when the file exists. Called on the disk thread. */
  Path create(String name, String extension) throws IOException {
    String key = name + "." + extension;
    for (int number = lastNumber.getOrDefault(key, 0) + 1;; number++) {
      Path path = numbered(name, extension, number);
      if (!exists(path)) {
        try {
          creationListener.creating(path);
          create(path);
          remember(key, number);
          return path;
        } catch (FileAlreadyExistsException e) {
          // Continue with the next free number.
        }
      }
      number = lastTaken(name, extension, number);
    }
  }

  /** As Files.exists does, which makes an exception for each missing file. */
  private static boolean exists(Path path) {
    return path.toFile().exists();
  }

  /** Creates a file to be renamed when it is complete. A later recorder deletes it. Called on the disk thread. */
  Path createDraft() throws IOException {
    Path draft = running().resolve(SPARE + ++lastSpare);
    create(draft);
    return draft;
  }

  /** Creates a file that does not exist, from a spare one if there is any. Called on the disk thread. */
  void create(Path path) throws IOException {
    try {
      createIn(path);
    } catch (NoSuchFileException e) {
      // Somebody has removed a directory or a spare file.
      ensureRunning();
      FileOperations.createDirectories(path.getParent());
      spares.clear();
      createIn(path);
    }
  }

  private void createIn(Path path) throws IOException {
    if (spares.isEmpty()) {
      FileOperations.create(path);
    } else {
      Files.move(spares.element(), path, StandardCopyOption.ATOMIC_MOVE);
      spares.remove();
    }
  }

  /**
   * Removes a file if it is there. It is emptied and kept for {@link #create}, because a file system slows down when
   * each call creates and deletes files. Called on the disk thread.
   */
  void remove(Path path) throws IOException {
    try (FileChannel file = FileChannel.open(path, StandardOpenOption.WRITE)) {
      remove(path, file);
    } catch (NoSuchFileException e) {
      // It is not there.
    }
  }

  /** Removes an open file. The caller closes it. */
  void remove(Path path, FileChannel file) throws IOException {
    if (spares.size() >= MAX_SPARES) {
      Files.deleteIfExists(path);
      return;
    }
    file.truncate(0);
    Path spare = running().resolve(SPARE + ++lastSpare);
    try {
      Files.move(path, spare, StandardCopyOption.ATOMIC_MOVE);
      spares.add(spare);
    } catch (NoSuchFileException e) {
      Files.deleteIfExists(path);  // it is not there, or the directory of the state is not
    }
  }

  private void deleteSpares() throws IOException {
    try (Stream<Path> all = Files.list(running())) {
      for (Path spare : all.filter(path -> path.getFileName().toString().startsWith(SPARE)).toList()) {
        Files.delete(spare);
      }
    }
  }

  private void remember(String key, int number) {
    if (lastNumber.size() >= MAX_REMEMBERED) {
      lastNumber.clear();
    }
    lastNumber.put(key, number);
  }

  /** Returns a number that is taken, while the next one is free, in a logarithmic number of tries. */
  private int lastTaken(String name, String extension, int taken) {
    int low = taken;
    int high = taken + 1;
    while (exists(numbered(name, extension, high))) {
      low = high;
      high *= 2;
    }
    while (high - low > 1) {
      int middle = (low + high) >>> 1;
      if (exists(numbered(name, extension, middle))) {
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

  /** Makes {@link #sync} write all files to the disk that are written from now on. */
  void beginSyncing() {
    syncs = true;
  }

  /** Notes a file that {@link #sync} must write to the disk. */
  void written(Path path) {
    if (syncs) {
      unsynced.add(path);
    }
  }

  /** Forces the noted files to the disk, so that they survive a crash of the machine. Called on the disk thread. */
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

  @Override
  public void close() {
    disk.close();
    try {
      open.closeAll();
      deleteSpares();
      lock.close();
    } catch (IOException ignored) {
      // The system releases the lock when the process ends.
    }
  }
}
