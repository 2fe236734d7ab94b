package com.morvin.dom.telephony.sniffer.sample.storage;

import com.morvin.dom.telephony.sniffer.sample.memory.HeapShare;
import com.morvin.dom.telephony.sniffer.sample.transport.Frame;
import com.morvin.dom.telephony.sniffer.sample.transport.SteadyClock;
import java.io.ByteArrayOutputStream;
import java.io.DataInputStream;
import java.io.DataOutputStream;
import java.io.IOException;
import java.nio.ByteBuffer;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.NoSuchFileException;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.Collection;
import java.util.Comparator;
import java.util.HashMap;
import java.util.HashSet;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;
import java.util.Set;
import java.util.function.Supplier;
import java.util.stream.Stream;

/**
 * Saves the running calls, so that they continue after a restart. Each call has a journal with its signalling frames.
 * The state of the media of all calls is in one file, the checkpoint. What has changed is appended to it; when it has
 * grown, it is replaced as a whole.
 *
 * <p>When the transport redelivers frames, a restart rolls all files back to the checkpoint: it truncates them, and
 * removes the files that were created later. Methods belong to the recorder thread; the writing is done on the disk
 * thread.
 */
public final class RunningCalls {
  /**
   * The version of the states of calls. From version 6 on, the batches around them keep their form: other versions read
   * the names of the files. Before, batches had a shorter time, and before version 3 there were none.
   */
  private static final int VERSION = 7;
  private static final int LAST_WITH_SHORT_TIME = 5;
  private static final int LAST_WITHOUT_BATCHES = 2;
  /** A checkpoint is replaced when it is longer than this and than several whole states. */
  private static final long MIN_COMPACTED = 1 << 20;
  private static final int COMPACTED = 8;
  /** More ended calls than these make the next checkpoint a whole one, which needs no list of them. */
  private static final int MAX_ENDED = 10_000;
  /** A longer journal keeps its first and its last frames. Those between are refreshes of a long call. */
  private static final int MAX_FRAMES = 512;
  private static final int FIRST_FRAMES = 32;
  private static final String JOURNAL = ".call";
  /** Approximate memory of a part of a state in addition to its content, in bytes. */
  private static final int PART_BYTES = 40;

  /** The signalling of one call. */
  public static final class Journal {
    private final Path file;
    private int frames;

    private Journal(Path file) {
      this.file = file;
    }
  }

  /** A signalling frame and its time in milliseconds since 1970. */
  public record TimedFrame(long time, Frame frame) {}

  /**
   * A running call to save. The sizes of its files, and what they lack, are read after all earlier jobs are done.
   *
   * @param whole whether the state replaces the saved one, or is an increment to it
   */
  public record Saved(Journal journal, boolean whole, byte[] state, List<StoredFile> files) {}

  /**
   * A saved call.
   *
   * @param states the whole state and the increments to it, oldest first; empty when the call began after the
   *     checkpoint
   */
  public record Loaded(Journal journal, List<byte[]> states, ResumedFiles files) {
    /**
     * Reads the signalling in the order of its times: the journal of a merged call holds the frames of its legs one
     * after the other.
     */
    public List<TimedFrame> frames() throws IOException {
      List<TimedFrame> frames = read(journal.file);
      journal.frames = frames.size();
      frames.sort(Comparator.comparingLong(TimedFrame::time));
      return frames;
    }

    /** Returns the call with a state that nothing is restored from any more. */
    public Loaded withoutStates() {
      return new Loaded(journal, List.of(), files);
    }
  }

  /** The last state of a call in the checkpoint. */
  private static final class State {
    private final List<byte[]> parts = new ArrayList<>();
    private long bytes;
    /** Whether increments have no state that they belong to. */
    private boolean isForgotten;
    private final Map<String, Long> sizes = new LinkedHashMap<>();
    private final List<String> names = new ArrayList<>();
    private final List<long[]> missing = new ArrayList<>();
    private long journalSize;

    private void add(byte[] part, boolean whole) {
      if (whole) {
        parts.clear();
        bytes = 0;
        isForgotten = false;
      }
      if (!isForgotten) {
        parts.add(part);
        bytes += part.length + PART_BYTES;
      }
    }

    private void forget() {
      parts.clear();
      bytes = 0;
      isForgotten = true;
    }
  }

  private final Store store;
  private final CallLog log;
  private final Checkpoint checkpoint;
  private final Path created;
  private final boolean rollsBack;
  private final List<String> endedNames = new ArrayList<>();
  private final List<Disk.Job> removals = new ArrayList<>();
  private volatile boolean wantsAll = true;
  private long wholeSize;
  private long lastJournal = System.currentTimeMillis();
  private SteadyClock.Reading savedAt;
  private long savedLog;
  private String fault;
  private boolean isOfOtherVersion;
  private byte[] position = new byte[0];
  private final long maxStateBytes;
  private long stateBytes;
  private int forgotten;

  /**
   * Saves into the directory of a store.
   *
   * @param rollsBack whether frames after the checkpoint are delivered again
   */
  public RunningCalls(Store store, CallLog log, boolean rollsBack) {
    this(store, log, rollsBack, HeapShare.LOADED_STATES);
  }

  /** The same with the most memory that the loaded states take, in bytes. */
  RunningCalls(Store store, CallLog log, boolean rollsBack, long maxStateBytes) {
    this.maxStateBytes = maxStateBytes;
    this.store = store;
    this.log = log;
    this.rollsBack = rollsBack;
    checkpoint = new Checkpoint(store.running().resolve("checkpoint"));
    created = store.running().resolve("created");
  }

  /** Saves into the directory of a store without a table of calls. Frames are not delivered again. */
  public RunningCalls(Store store) {
    this(store, null, false);
  }

  /** Makes the journal of a new call. */
  public Journal begin() {
    return new Journal(store.running().resolve(++lastJournal + JOURNAL));
  }

  /** Queues frames for a journal. */
  public void append(Journal journal, List<TimedFrame> frames) {
    byte[] records = bytes(frames);
    boolean shorten = journal.frames / MAX_FRAMES < (journal.frames + frames.size()) / MAX_FRAMES;
    boolean first = journal.frames == 0;
    journal.frames += frames.size();
    store.disk().submit(records.length, List.of(() -> {
      store.ensureRunning();
      store.written(journal.file);
      if (first && !journal.file.toFile().exists()) {
        store.create(journal.file);
      }
      FileOperations.append(journal.file, records);
      if (shorten) {
        shorten(journal.file);
      }
    }), () -> { });
  }

  private static void shorten(Path file) throws IOException {
    List<TimedFrame> frames = read(file);
    if (frames.size() > FIRST_FRAMES + MAX_FRAMES / 2) {
      List<TimedFrame> kept = new ArrayList<>(frames.subList(0, FIRST_FRAMES));
      kept.addAll(frames.subList(frames.size() - MAX_FRAMES / 2, frames.size()));
      FileOperations.replace(file, bytes(kept));
    }
  }

  private static byte[] bytes(List<TimedFrame> frames) {
    ByteArrayOutputStream out = new ByteArrayOutputStream();
    for (TimedFrame frame : frames) {
      out.writeBytes(ByteBuffer.allocate(Long.BYTES).putLong(frame.time).array());
      out.writeBytes(frame.frame.bytes());
    }
    return out.toByteArray();
  }

  /** Adds the frames of another journal to a journal, and ends the other one. */
  public void merge(Journal journal, Journal other) {
    journal.frames += other.frames;
    store.disk().submit(() -> {
      if (Files.exists(other.file)) {
        store.written(journal.file);
        FileOperations.append(journal.file, Files.readAllBytes(other.file));
      }
    });
    end(other, List::of);
  }

  /**
   * Removes the journal of an ended call and the files that it does not need any more. If a restart can roll back the
   * end of the call, they are kept until the next checkpoint.
   *
   * @param obsolete returns the files; called on the disk thread
   */
  public void end(Journal journal, Supplier<List<StoredFile>> obsolete) {
    endedNames.add(nameOf(journal));
    if (endedNames.size() > MAX_ENDED) {
      endedNames.clear();
      wantsAll = true;
    }
    store.disk().submit(() -> {
      List<StoredFile> files = obsolete.get();
      Disk.Job removal = () -> {
        store.remove(journal.file);
        for (StoredFile file : files) {
          file.delete();
        }
      };
      if (rollsBack) {
        removals.add(removal);
      } else {
        removal.run();
      }
    });
  }

  private static String nameOf(Journal journal) {
    return journal.file.getFileName().toString();
  }

  /** Whether the next checkpoint must have the whole state of all calls. */
  public boolean wantsAll() {
    return wantsAll;
  }

  /**
   * Queues a checkpoint after all earlier jobs.
   *
   * @param calls those that have changed, or all running calls
   * @param all whether these are all
   * @param now the time of the checkpoint
   * @param position the position of the transport; see Transport
   * @param done runs on the disk thread after the checkpoint is written
   * @param failed runs instead when the checkpoint is given up
   */
  public void save(List<Saved> calls, boolean all, SteadyClock.Reading now, byte[] position, Runnable done,
      Runnable failed) {
    int size = calls.stream().mapToInt(call -> call.state.length).sum();
    List<String> over = List.copyOf(endedNames);
    endedNames.clear();
    wantsAll = false;
    store.disk().submit(size, List.of(() -> {
      store.ensureRunning();
      if (!all && !checkpoint.exists()) {
        wantsAll = true;  // an increment to a removed checkpoint is useless
        failed.run();
        return;
      }
      store.sync();
      if (all) {
        checkpoint.replace(out -> write(calls, over, now, position, out));
        wholeSize = checkpoint.size();
      } else {
        checkpoint.append(out -> write(calls, over, now, position, out));
        wantsAll |= checkpoint.size() > Math.max(MIN_COMPACTED, COMPACTED * wholeSize);
      }
      if (rollsBack) {
        Files.deleteIfExists(created);
      }
      while (!removals.isEmpty()) {
        removals.get(0).run();
        removals.remove(0);
      }
      done.run();
    }), () -> {
      wantsAll = true;  // what the failed one should have saved is in no other
      failed.run();
    });
  }

  private void write(List<Saved> calls, List<String> over, SteadyClock.Reading now, byte[] position,
      DataOutputStream out) throws IOException {
    out.writeInt(VERSION);
    out.writeLong(now.timeOfDay());
    out.writeLong(now.sinceBoot());
    out.writeInt(now.boot());
    out.writeLong(log == null ? 0 : log.size());
    out.writeInt(position.length);
    out.write(position);
    out.writeInt(over.size());
    for (String journal : over) {
      out.writeUTF(journal);
    }
    out.writeInt(calls.size());
    for (Saved call : calls) {
      write(call, out);
    }
    for (Saved call : calls) {
      writeMissing(call.files, out);
    }
  }

  private void write(Saved call, DataOutputStream out) throws IOException {
    out.writeUTF(nameOf(call.journal));
    out.writeLong(rollsBack && Files.exists(call.journal.file) ? Files.size(call.journal.file) : 0);
    out.writeBoolean(call.whole);
    out.writeInt(call.state.length);
    out.write(call.state);
    out.writeInt(call.files.size());
    for (StoredFile file : call.files) {
      out.writeUTF(file.fileName());
      out.writeLong(file.size());
    }
  }

  /** Writes what each file lacks. It is at the end of a batch, where earlier versions do not read it. */
  private static void writeMissing(List<StoredFile> files, DataOutputStream out) throws IOException {
    out.writeInt(files.size());
    for (StoredFile file : files) {
      for (int channel = 0; channel < StoredFile.CHANNELS; channel++) {
        out.writeLong(file.missing(channel));
      }
    }
  }

  /** Returns the time of the loaded checkpoint; null when there was none. */
  public SteadyClock.Reading savedAt() {
    return savedAt;
  }

  /** Returns the saved position of the transport; empty when there was none. */
  public byte[] position() {
    return position;
  }

  /** Returns why the checkpoint could not be read; null when it could. The calls then continue in new files. */
  public String fault() {
    return fault;
  }

  /** Whether {@link #fault} is that another version of this program has written the checkpoint. */
  public boolean isOfOtherVersion() {
    return isOfOtherVersion;
  }

  /** Returns the number of calls whose state did not fit into the memory. They continue in new files. */
  public int forgotten() {
    return forgotten;
  }

  /** Loads the saved calls, oldest first. Called once, before all other methods. */
  public List<Loaded> load() throws IOException {
    Map<String, State> saved = new HashMap<>();
    Set<String> files = new HashSet<>();
    try {
      readCheckpoint(saved);
      if (isOfOtherVersion) {
        forgetStates(saved, checkpoint + " is of another version of this program");
      }
      saved.values().forEach(state -> files.addAll(state.names));
      forgotten = (int) saved.values().stream().filter(state -> state.isForgotten).count();
      if (rollsBack && fault == null) {
        rollBack(saved);
      }
    } catch (IOException | RuntimeException e) {
      // The journals are enough to follow the calls. Nothing can be rolled back.
      saved.clear();
      isOfOtherVersion = false;
      forgetStates(saved, e.toString());
    }
    if (rollsBack) {
      if (fault == null) {
        removeCreated(files);
      }
      store.onCreate(this::remember);
      store.beginSyncing();
    }
    return journals(saved);
  }

  /** Keeps only the names of the files. */
  private void forgetStates(Map<String, State> saved, String why) {
    fault = why;
    saved.values().forEach(state -> state.parts.clear());
    savedAt = null;
    position = new byte[0];
  }

  private void readCheckpoint(Map<String, State> saved) throws IOException {
    if (checkpoint.exists() && !checkpoint.read(LAST_WITHOUT_BATCHES, in -> readBatch(in, saved))) {
      isOfOtherVersion = true;
    }
  }

  private void readBatch(DataInputStream in, Map<String, State> saved) throws IOException {
    int version = in.readInt();
    isOfOtherVersion |= version != VERSION;
    savedAt = version <= LAST_WITH_SHORT_TIME ? new SteadyClock.Reading(in.readLong(), 0, 0)
        : new SteadyClock.Reading(in.readLong(), in.readLong(), in.readInt());
    savedLog = in.readLong();
    position = in.readNBytes(in.readInt());
    for (int count = in.readInt(); count > 0; count--) {
      State over = saved.remove(in.readUTF());
      stateBytes -= over == null ? 0 : over.bytes;
    }
    List<State> calls = new ArrayList<>();
    for (int count = in.readInt(); count > 0; count--) {
      calls.add(saved.computeIfAbsent(in.readUTF(), name -> new State()));
      readCall(calls.get(calls.size() - 1), in);
      if (stateBytes > maxStateBytes) {
        forgetLargest(saved.values());
      }
    }
    for (State call : in.available() > 0 ? calls : List.<State>of()) {
      readMissing(call, in);
    }
  }

  private static void readMissing(State state, DataInputStream in) throws IOException {
    state.missing.clear();
    for (int count = in.readInt(); count > 0; count--) {
      long[] channels = new long[StoredFile.CHANNELS];
      for (int channel = 0; channel < channels.length; channel++) {
        channels[channel] = in.readLong();
      }
      state.missing.add(channels);
    }
  }

  /** Forgets the largest states until a half is left: the program had more memory before it was restarted. */
  private void forgetLargest(Collection<State> states) {
    for (State state : states.stream().sorted(Comparator.comparingLong((State one) -> one.bytes).reversed()).toList()) {
      if (stateBytes <= maxStateBytes / 2) {
        return;
      }
      stateBytes -= state.bytes;
      state.forget();
    }
  }

  private void readCall(State state, DataInputStream in) throws IOException {
    state.journalSize = in.readLong();
    long before = state.bytes;
    boolean whole = in.readBoolean();
    state.add(in.readNBytes(in.readInt()), whole);
    stateBytes += state.bytes - before;
    state.names.clear();
    state.sizes.clear();
    for (int count = in.readInt(); count > 0; count--) {
      String name = in.readUTF();
      state.names.add(name);
      state.sizes.put(name, in.readLong());
    }
  }

  private void rollBack(Map<String, State> saved) throws IOException {
    if (savedAt != null) {
      FileOperations.truncate(log.file(), savedLog);
    }
    for (Map.Entry<String, State> call : saved.entrySet()) {
      FileOperations.truncate(store.running().resolve(Path.of(call.getKey()).getFileName()),
          call.getValue().journalSize);
      for (Map.Entry<String, Long> file : call.getValue().sizes.entrySet()) {
        if (!file.getKey().isEmpty()) {
          FileOperations.truncate(store.directory().resolve(file.getKey()), file.getValue());
        }
      }
    }
  }

  private List<Loaded> journals(Map<String, State> saved) throws IOException {
    List<Path> paths;
    try (Stream<Path> all = Files.list(store.running())) {
      paths = all.filter(path -> path.toString().endsWith(JOURNAL)).sorted().toList();
    }
    List<Loaded> loaded = new ArrayList<>();
    for (Path path : paths) {
      State call = saved.get(path.getFileName().toString());
      if (call == null && rollsBack && fault == null) {
        Files.deleteIfExists(path);
      } else {
        Journal journal = new Journal(path);
        lastJournal = Math.max(lastJournal, Long.parseLong(path.getFileName().toString().replaceAll("\\D", "")));
        loaded.add(call == null ? new Loaded(journal, List.of(), new ResumedFiles(store, List.of(), List.of()))
            : new Loaded(journal, call.parts, new ResumedFiles(store, call.names, call.missing)));
      }
    }
    return loaded;
  }

  private static List<TimedFrame> read(Path journal) throws IOException {
    List<TimedFrame> frames = new ArrayList<>();
    ByteBuffer in = ByteBuffer.wrap(Files.readAllBytes(journal));
    while (in.remaining() >= Long.BYTES) {
      long time = in.getLong();
      Frame frame = nextFrame(in);
      if (frame == null) {
        break;  // the last frame is incomplete or damaged
      }
      frames.add(new TimedFrame(time, frame));
    }
    return frames;
  }

  /** Takes a frame from a buffer. Returns null when it is incomplete or damaged. */
  static Frame nextFrame(ByteBuffer in) {
    try {
      return Frame.take(in);
    } catch (IOException e) {
      return null;
    }
  }

  /** Notes a file before it is created, so that a rollback removes it. */
  private void remember(Path path) throws IOException {
    byte[] line = (store.directory().relativize(path) + "\n").getBytes(StandardCharsets.UTF_8);
    try {
      FileOperations.append(created, line);
    } catch (NoSuchFileException e) {
      store.ensureRunning();  // somebody has removed the directory
      FileOperations.append(created, line);
    }
  }

  private void removeCreated(Set<String> keep) throws IOException {
    if (Files.exists(created)) {
      for (String name : Files.readAllLines(created)) {
        if (!name.isEmpty() && !keep.contains(name)) {
          Files.deleteIfExists(store.directory().resolve(name));
        }
      }
      Files.deleteIfExists(created);
    }
  }
}
