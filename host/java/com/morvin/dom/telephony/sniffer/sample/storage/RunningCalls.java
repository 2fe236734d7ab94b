package com.morvin.dom.telephony.sniffer.sample.storage;

import com.morvin.dom.telephony.sniffer.sample.transport.Frame;
import java.io.ByteArrayOutputStream;
import java.io.DataInputStream;
import java.io.DataOutputStream;
import java.io.IOException;
import java.nio.ByteBuffer;
import java.nio.channels.FileChannel;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.StandardCopyOption;
import java.nio.file.StandardOpenOption;
import java.util.ArrayList;
import java.util.HashMap;
import java.util.HashSet;
import java.util.List;
import java.util.Map;
import java.util.Set;
import java.util.stream.Stream;

/**
 * What it takes to go on with running calls after a restart. The signalling of each call is kept as it came, in a
 * journal of its own; how far its media is written, of all calls together, in one file that is replaced as a whole, the
 * checkpoint.
 *
 * <p>When frames are delivered again after a restart, everything goes back to the checkpoint: files are cut, and those
 * that were created later are removed.
 */
public final class RunningCalls {
  private static final int VERSION = 1;
  /** A journal keeps its first frames and the last ones; in between are refreshes of a long call. */
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

  /** A frame of signalling and when it came, in milliseconds since 1970. */
  public record Signalled(long time, Frame frame) {}

  /** A running call as it is saved: how far its files are is asked when all before has been written. */
  public record Saved(Journal journal, byte[] state, List<StoredFile> files) {}

  /** A call as it was saved; the state is null when it began after the checkpoint. */
  public record Loaded(Journal journal, List<Signalled> frames, byte[] state, KeptFiles files) {}

  private final Store store;
  private final CallLog log;
  private final Path checkpoint;
  private final Path created;
  private final boolean goesBack;
  private final List<Path> ended = new ArrayList<>();
  private long lastJournal = System.currentTimeMillis();
  private long savedAt;
  private byte[] position = new byte[0];

  /**
   * In the folder of a store.
   *
   * @param goesBack whether frames are delivered again that came after the checkpoint
   */
  public RunningCalls(Store store, CallLog log, boolean goesBack) {
    this.store = store;
    this.log = log;
    this.goesBack = goesBack;
    checkpoint = store.running().resolve("checkpoint");
    created = store.running().resolve("created");
  }

  /** A journal for a call that begins. */
  public Journal begin() {
    return new Journal(store.running().resolve(++lastJournal + JOURNAL));
  }

  public void append(Journal journal, long time, Frame frame) {
    byte[] record = ByteBuffer.allocate(Long.BYTES + Frame.HEADER + frame.payload().length).putLong(time)
        .put(frame.bytes()).array();
    boolean shorten = ++journal.frames % MAX_FRAMES == 0;
    store.disk().then(() -> {
      long end = Files.exists(journal.file) ? Files.size(journal.file) : 0;
      store.written(journal.file);
      try {
        Files.write(journal.file, record, StandardOpenOption.CREATE, StandardOpenOption.APPEND);
      } catch (IOException e) {
        cut(journal.file, end);
        throw e;
      }
      if (shorten) {
        shorten(journal.file);
      }
    });
  }

  private static void shorten(Path file) throws IOException {
    List<Signalled> frames = read(file);
    if (frames.size() > MAX_FRAMES / 2) {
      ByteArrayOutputStream out = new ByteArrayOutputStream();
      for (int i = 0; i < frames.size(); i++) {
        if (i < FIRST_FRAMES || i >= frames.size() - MAX_FRAMES / 2) {
          out.writeBytes(ByteBuffer.allocate(Long.BYTES).putLong(frames.get(i).time).array());
          out.writeBytes(frames.get(i).frame.bytes());
        }
      }
      replace(file, out.toByteArray());
    }
  }

  private static void replace(Path file, byte[] content) throws IOException {
    Path fresh = file.resolveSibling(file.getFileName() + ".new");
    Files.write(fresh, content);
    Files.move(fresh, file, StandardCopyOption.ATOMIC_MOVE);
  }

  private static void cut(Path file, long size) throws IOException {
    if (Files.exists(file) && Files.size(file) > size) {
      try (FileChannel channel = FileChannel.open(file, StandardOpenOption.WRITE)) {
        channel.truncate(size);
      }
    }
  }

  /** The call has ended: there is nothing to go on with. Until the next checkpoint it may have to end once more. */
  public void end(Journal journal) {
    store.disk().then(() -> {
      if (goesBack) {
        ended.add(journal.file);
      } else {
        Files.deleteIfExists(journal.file);
      }
    });
  }

  /**
   * Saves how far all running calls are, behind all that was written before.
   *
   * @param now milliseconds since 1970
   * @param position what the transport needs to go on from there
   * @param done is run on the thread of the disk
   */
  public void save(List<Saved> calls, long now, byte[] position, Runnable done) {
    store.disk().then(() -> {
      if (goesBack) {
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
      replace(checkpoint, bytes.toByteArray());
      if (goesBack) {
        store.written(checkpoint);
        store.sync();
        Files.deleteIfExists(created);
        for (Path journal : ended) {
          Files.deleteIfExists(journal);
        }
        ended.clear();
      }
      done.run();
    });
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

  /** When the checkpoint that was loaded had been saved, in milliseconds since 1970; 0 when there was none. */
  public long savedAt() {
    return savedAt;
  }

  /** As it was saved; empty when nothing was. */
  public byte[] position() {
    return position;
  }

  /** The calls that were running, oldest first. To be called once, before anything else. */
  public List<Loaded> load() throws IOException {
    Map<String, Loaded> saved = new HashMap<>();
    Set<String> files = new HashSet<>();
    if (Files.exists(checkpoint)) {
      try (DataInputStream in = new DataInputStream(Files.newInputStream(checkpoint))) {
        if (in.readInt() != VERSION) {
          throw new IOException(checkpoint + " is of another version of this program");
        }
        savedAt = in.readLong();
        long logged = in.readLong();
        position = new byte[in.readInt()];
        in.readFully(position);
        if (goesBack) {
          log.truncate(logged);
        }
        for (int count = in.readInt(); count > 0; count--) {
          Loaded call = read(in, files);
          saved.put(call.journal.file.getFileName().toString(), call);
        }
      }
    }
    if (goesBack) {
      removeCreated(files);
      store.onCreate(this::remember);
    }
    return journals(saved);
  }

  private Loaded read(DataInputStream in, Set<String> all) throws IOException {
    Path file = store.running().resolve(Path.of(in.readUTF()).getFileName());
    long size = in.readLong();
    if (goesBack) {
      cut(file, size);
    }
    byte[] state = new byte[in.readInt()];
    in.readFully(state);
    List<String> names = new ArrayList<>();
    for (int count = in.readInt(); count > 0; count--) {
      String name = in.readUTF();
      long length = in.readLong();
      names.add(name);
      all.add(name);
      if (goesBack && !name.isEmpty()) {
        cut(store.directory().resolve(name), length);
      }
    }
    return new Loaded(new Journal(file), List.of(), state, new KeptFiles(store, names));
  }

  private List<Loaded> journals(Map<String, Loaded> saved) throws IOException {
    List<Path> paths;
    try (Stream<Path> all = Files.list(store.running())) {
      paths = all.filter(path -> path.toString().endsWith(JOURNAL)).sorted().toList();
    }
    List<Loaded> loaded = new ArrayList<>();
    for (Path path : paths) {
      Loaded call = saved.get(path.getFileName().toString());
      if (call == null && goesBack) {
        Files.deleteIfExists(path);
      } else {
        Journal journal = new Journal(path);
        List<Signalled> frames = read(path);
        journal.frames = frames.size();
        lastJournal = Math.max(lastJournal, Long.parseLong(path.getFileName().toString().replaceAll("\\D", "")));
        loaded.add(call == null ? new Loaded(journal, frames, null, new KeptFiles(store, List.of()))
            : new Loaded(journal, frames, call.state, call.files));
      }
    }
    return loaded;
  }

  private static List<Signalled> read(Path journal) throws IOException {
    List<Signalled> frames = new ArrayList<>();
    ByteBuffer in = ByteBuffer.wrap(Files.readAllBytes(journal));
    while (in.remaining() >= Long.BYTES) {
      long time = in.getLong();
      Frame frame = Frame.take(in);
      if (frame == null) {
        break;  // the end of it was not written any more
      }
      frames.add(new Signalled(time, frame));
    }
    return frames;
  }

  /** A file is about to be created: going back to the checkpoint removes it. */
  private void remember(Path path) throws IOException {
    Files.writeString(created, store.directory().relativize(path) + "\n", StandardOpenOption.CREATE,
        StandardOpenOption.APPEND);
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
