package com.morvin.dom.telephony.sniffer.sample.storage;

import com.morvin.dom.telephony.sniffer.sample.transport.Frame;
import java.io.ByteArrayInputStream;
import java.io.ByteArrayOutputStream;
import java.io.DataInputStream;
import java.io.DataOutputStream;
import java.io.EOFException;
import java.io.IOException;
import java.nio.ByteBuffer;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.HashMap;
import java.util.HashSet;
import java.util.List;
import java.util.Map;
import java.util.Set;
import java.util.stream.Stream;

/**
 * Saves the running calls, so that they continue after a restart. Each call has a journal with its signalling frames.
 * The state of the media of all calls is in one file, the checkpoint, which is always replaced as a whole.
 *
 * <p>When the transport redelivers frames, a restart rolls all files back to the checkpoint: it truncates them, and
 * removes the files that were created later. Methods belong to the recorder thread; the writing is done on the disk
 * thread.
 */
public final class RunningCalls {
  private static final int VERSION = 2;
  /** A longer journal keeps its first and its last frames. Those between are refreshes of a long call. */
  private static final int MAX_FRAMES = 512;
  private static final int FIRST_FRAMES = 32;
  private static final String JOURNAL = ".call";

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

  /** A running call to save. The sizes of its files are read after all earlier jobs are done. */
  public record Saved(Journal journal, byte[] state, List<StoredFile> files) {}

  /** A saved call. Its state is null when it began after the checkpoint. */
  public record Loaded(Journal journal, List<TimedFrame> frames, byte[] state, ResumedFiles files) {}

  private final Store store;
  private final CallLog log;
  private final Path checkpoint;
  private final Path created;
  private final boolean rollsBack;
  private final List<Path> ended = new ArrayList<>();
  private long lastJournal = System.currentTimeMillis();
  private long savedAt;
  private String fault;
  private byte[] position = new byte[0];

  /**
   * Saves into the directory of a store.
   *
   * @param rollsBack whether frames after the checkpoint are delivered again
   */
  public RunningCalls(Store store, CallLog log, boolean rollsBack) {
    this.store = store;
    this.log = log;
    this.rollsBack = rollsBack;
    checkpoint = store.running().resolve("checkpoint");
    created = store.running().resolve("created");
  }

  /** Makes the journal of a new call. */
  public Journal begin() {
    return new Journal(store.running().resolve(++lastJournal + JOURNAL));
  }

  /** Queues a frame for a journal. */
  public void append(Journal journal, long time, Frame frame) {
    byte[] record = ByteBuffer.allocate(Long.BYTES + Frame.HEADER + frame.payload().length).putLong(time)
        .put(frame.bytes()).array();
    boolean shorten = ++journal.frames % MAX_FRAMES == 0;
    store.disk().submit(record.length, List.of(() -> {
      store.written(journal.file);
      FileOperations.append(journal.file, record);
      if (shorten) {
        shorten(journal.file);
      }
    }), () -> { });
  }

  private static void shorten(Path file) throws IOException {
    List<TimedFrame> frames = read(file);
    if (frames.size() > MAX_FRAMES / 2) {
      ByteArrayOutputStream out = new ByteArrayOutputStream();
      for (int i = 0; i < frames.size(); i++) {
        if (i < FIRST_FRAMES || i >= frames.size() - MAX_FRAMES / 2) {
          out.writeBytes(ByteBuffer.allocate(Long.BYTES).putLong(frames.get(i).time).array());
          out.writeBytes(frames.get(i).frame.bytes());
        }
      }
      FileOperations.replace(file, out.toByteArray());
    }
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
    end(other);
  }

  /**
   * Removes the journal of an ended call. If a restart can roll back the end of the call, the journal is kept until the
   * next checkpoint.
   */
  public void end(Journal journal) {
    store.disk().submit(() -> {
      if (rollsBack) {
        ended.add(journal.file);
      } else {
        Files.deleteIfExists(journal.file);
      }
    });
  }

  /**
   * Queues a checkpoint of all running calls after all earlier jobs.
   *
   * @param now milliseconds since 1970
   * @param position the position of the transport; see Transport
   * @param done runs on the disk thread after the checkpoint is written
   * @param failed runs instead when the checkpoint is given up
   */
  public void save(List<Saved> calls, long now, byte[] position, Runnable done, Runnable failed) {
    int size = calls.stream().mapToInt(call -> call.state.length).sum();
    store.disk().submit(size, List.of(() -> {
      if (rollsBack) {
        store.sync();
      } else {
        store.forgetUnsynced();
      }
      ByteArrayOutputStream bytes = new ByteArrayOutputStream();
      DataOutputStream out = new DataOutputStream(bytes);
      out.writeInt(VERSION);
      out.writeLong(now);
      out.writeLong(Files.size(log.file()));
      out.writeInt(position.length);
      out.write(position);
      out.writeInt(calls.size());
      for (Saved call : calls) {
        write(call, out);
      }
      FileOperations.replace(checkpoint, bytes.toByteArray());
      FileOperations.syncNames(store.running());
      if (rollsBack) {
        Files.deleteIfExists(created);
        for (Path journal : ended) {
          Files.deleteIfExists(journal);
        }
        ended.clear();
      }
      done.run();
    }), failed);
  }

  private void write(Saved call, DataOutputStream out) throws IOException {
    out.writeUTF(call.journal.file.getFileName().toString());
    out.writeLong(Files.exists(call.journal.file) ? Files.size(call.journal.file) : 0);
    out.writeInt(call.state.length);
    out.write(call.state);
    out.writeInt(call.files.size());
    for (StoredFile file : call.files) {
      out.writeUTF(file.path() == null ? "" : store.directory().relativize(file.path()).toString());
      out.writeLong(file.size());
    }
  }

  /** Returns the time of the loaded checkpoint in milliseconds since 1970; 0 when there was none. */
  public long savedAt() {
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

  /** Loads the saved calls, oldest first. Called once, before all other methods. */
  public List<Loaded> load() throws IOException {
    Map<String, Loaded> saved = new HashMap<>();
    Set<String> files = new HashSet<>();
    try {
      readCheckpoint(saved, files);
    } catch (IOException | RuntimeException e) {
      // The journals are enough to follow the calls. Nothing can be rolled back.
      fault = e.toString();
      saved.clear();
      savedAt = 0;
      position = new byte[0];
    }
    if (rollsBack) {
      if (fault == null) {
        removeCreated(files);
      }
      store.onCreate(this::remember);
    }
    return journals(saved);
  }

  private void readCheckpoint(Map<String, Loaded> saved, Set<String> files) throws IOException {
    if (!Files.exists(checkpoint)) {
      return;
    }
    byte[] bytes = Files.readAllBytes(checkpoint);
    DataInputStream in = new DataInputStream(new ByteArrayInputStream(bytes));
    if (in.readInt() != VERSION) {
      throw new IOException(checkpoint + " is of another version of this program");
    }
    savedAt = in.readLong();
    long logged = in.readLong();
    position = readBytes(in);
    if (rollsBack) {
      FileOperations.truncate(log.file(), logged);
    }
    for (int count = in.readInt(); count > 0; count--) {
      Loaded call = read(in, files);
      saved.put(call.journal.file.getFileName().toString(), call);
    }
  }

  private static byte[] readBytes(DataInputStream in) throws IOException {
    int length = in.readInt();
    if (length < 0 || length > in.available()) {
      throw new EOFException();
    }
    return in.readNBytes(length);
  }

  private Loaded read(DataInputStream in, Set<String> all) throws IOException {
    Path file = store.running().resolve(Path.of(in.readUTF()).getFileName());
    long size = in.readLong();
    if (rollsBack) {
      FileOperations.truncate(file, size);
    }
    byte[] state = readBytes(in);
    List<String> names = new ArrayList<>();
    for (int count = in.readInt(); count > 0; count--) {
      String name = in.readUTF();
      long length = in.readLong();
      names.add(name);
      all.add(name);
      if (rollsBack && !name.isEmpty()) {
        FileOperations.truncate(store.directory().resolve(name), length);
      }
    }
    return new Loaded(new Journal(file), List.of(), state, new ResumedFiles(store, names));
  }

  private List<Loaded> journals(Map<String, Loaded> saved) throws IOException {
    List<Path> paths;
    try (Stream<Path> all = Files.list(store.running())) {
      paths = all.filter(path -> path.toString().endsWith(JOURNAL)).sorted().toList();
    }
    List<Loaded> loaded = new ArrayList<>();
    for (Path path : paths) {
      Loaded call = saved.get(path.getFileName().toString());
      if (call == null && rollsBack && fault == null) {
        Files.deleteIfExists(path);
      } else {
        Journal journal = new Journal(path);
        List<TimedFrame> frames = read(path);
        journal.frames = frames.size();
        lastJournal = Math.max(lastJournal, Long.parseLong(path.getFileName().toString().replaceAll("\\D", "")));
        loaded.add(call == null ? new Loaded(journal, frames, null, new ResumedFiles(store, List.of()))
            : new Loaded(journal, frames, call.state, call.files));
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

  private static Frame nextFrame(ByteBuffer in) {
    try {
      return Frame.take(in);
    } catch (IOException e) {
      return null;
    }
  }

  /** Notes a file before it is created, so that a rollback removes it. */
  private void remember(Path path) throws IOException {
    FileOperations.append(created, (store.directory().relativize(path) + "\n").getBytes(StandardCharsets.UTF_8));
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
