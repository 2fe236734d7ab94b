package com.morvin.dom.telephony.sniffer.sample.cluster;

import com.morvin.dom.telephony.sniffer.sample.console.Console;
import com.morvin.dom.telephony.sniffer.sample.console.Text;
import com.morvin.dom.telephony.sniffer.sample.storage.RunningCalls;
import com.morvin.dom.telephony.sniffer.sample.storage.Store;
import com.morvin.dom.telephony.sniffer.sample.transport.Frame;
import com.morvin.dom.telephony.sniffer.sample.transport.SteadyClock;
import java.io.IOException;
import java.nio.ByteBuffer;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayDeque;
import java.util.ArrayList;
import java.util.Collection;
import java.util.LinkedHashSet;
import java.util.List;
import java.util.Queue;
import java.util.Set;
import java.util.concurrent.TimeUnit;
import java.util.function.Consumer;

/**
 * What a front keeps in its directory: the signalling and the partition of its running calls, so that a restarted front
 * goes on with them, and after a stop the messages that the broker did not take. Belongs to the thread of the front;
 * the writing is done on the disk thread.
 */
final class FrontState implements AutoCloseable {
  /** How long a stop waits for a slow disk: a service manager kills a program that takes longer. */
  private static final long STOP_MILLIS = 30_000;
  /** What is older than this was not saved: the disk is full or slow. */
  private static final long SAVED_NANOS = TimeUnit.SECONDS.toNanos(5);

  private final Console console;
  private final Store store;
  private final RunningCalls running;
  private final Spool spool;
  private final BlockKeeper blocks;
  private final Path checkpoint;
  private final String session;
  /** The calls whose partition is not saved yet. */
  private final Set<CallStream> unsaved = new LinkedHashSet<>();
  /** The calls whose signalling is to be saved again, because it was removed. */
  private final Queue<CallStream> removed = new ArrayDeque<>();
  private volatile boolean saving;
  /** Whether the checkpoint has been found to be removed since {@link #takeRemoval}. */
  private volatile boolean isRemoved;
  /** Whether the signalling and the checkpoint of all calls were on the disk, and the System.nanoTime of that. */
  private volatile boolean complete;
  private volatile long completeAt;

  /**
   * Opens a directory, and creates it when it is missing.
   *
   * @param bufferBytes the most bytes of frames that are kept for the case that the front is killed
   */
  FrontState(Path directory, long bufferBytes, String session, Console console) throws IOException {
    this.console = console;
    this.session = session;
    store = new Store(directory, console);
    running = new RunningCalls(store);
    spool = new Spool(directory.resolve("messages"));
    blocks = new BlockKeeper(new BlockLog(directory, bufferBytes), console);
    checkpoint = directory.resolve("running").resolve("checkpoint");
  }

  /** Returns the store of the directory, which {@link #close} closes. */
  Store store() {
    return store;
  }

  /** Returns the calls that were running. Called once, before all other methods. */
  List<RunningCalls.Loaded> load() throws IOException {
    List<RunningCalls.Loaded> loaded = running.load();
    if (running.fault() != null) {
      console.line("the state of the calls is damaged; they go on by their signalling: " + running.fault());
    }
    return loaded;
  }

  /** Returns the session of the front that wrote the state; empty when there was none. */
  String continued() {
    return new String(running.position(), StandardCharsets.ISO_8859_1);
  }

  /** Returns the time of the state in milliseconds since 1970; 0 when there was none. */
  long savedAt() {
    return running.savedAt() == null ? 0 : running.savedAt().timeOfDay();
  }

  /** Returns the partition of a call that was running; null when it was not saved. */
  static Partition partition(RunningCalls.Loaded call) {
    if (call.states().isEmpty() || call.states().get(0).length != 2 * Integer.BYTES) {
      return null;
    }
    ByteBuffer state = ByteBuffer.wrap(call.states().get(0));
    return Partition.restored(state.getInt(), state.getInt());
  }

  /** Makes the journal of a new call. */
  RunningCalls.Journal begin() {
    return running.begin();
  }

  /** Saves the partition of a call with the next {@link #save}. */
  void add(CallStream call) {
    unsaved.add(call);
  }

  /** Saves a signalling frame of a call and its time in milliseconds since 1970. */
  void append(CallStream call, Frame frame, long captured) {
    running.append(call.journal, List.of(new RunningCalls.TimedFrame(captured, frame)));
  }

  /** Adds the signalling of a leg to that of a call. */
  void merge(CallStream call, CallStream leg) {
    if (leg.journal != call.journal) {
      running.merge(call.journal, leg.journal);
    }
    unsaved.remove(leg);
  }

  /** Forgets an ended call, or one that does not go on. */
  void end(RunningCalls.Journal journal) {
    running.end(journal, List::of);
  }

  /**
   * Saves the partitions of the calls, unless the previous ones are not on disk yet. To be called regularly: it also
   * notices when the state was removed from the disk, and lets the keeper of the blocks try again after a failure.
   *
   * @param calls all running calls
   * @param publisher knows the generation of their partitions
   */
  void save(Iterable<CallStream> calls, Publisher publisher, long now) {
    blocks.retry();
    if (saving) {
      return;
    }
    saving = true;
    saveRemoved();
    boolean isLast = removed.isEmpty();
    boolean all = running.wantsAll();
    if (all) {
      calls.forEach(unsaved::add);
    }
    List<RunningCalls.Saved> saved = new ArrayList<>();
    for (CallStream call : List.copyOf(unsaved)) {
      Partition partition = publisher.resolve(call.batch.partition);
      if (!call.isOver() && partition.generation() > 0) {
        byte[] state = ByteBuffer.allocate(2 * Integer.BYTES).putInt(partition.generation())
            .putInt(partition.number()).array();
        saved.add(new RunningCalls.Saved(call.journal, true, state, List.of()));
      }
      if (call.isOver() || partition.generation() > 0) {
        unsaved.remove(call);
      }
    }
    SteadyClock.Reading time = new SteadyClock.Reading(now, 0, 0);
    store.disk().submit(this::noticeRemoval);
    running.save(saved, all, time, session.getBytes(StandardCharsets.ISO_8859_1), () -> saved(isLast),
        () -> saving = false);
  }

  /** Called on the disk thread. */
  private void noticeRemoval() {
    if (complete && Files.notExists(checkpoint)) {
      complete = false;
      isRemoved = true;
      console.line("the state in " + store.directory() + " was removed: until it is written again, a restart loses the "
          + "running calls");
    }
  }

  /** Called on the disk thread after a checkpoint. */
  private void saved(boolean isLast) {
    if (isLast && !isRemoved) {
      if (completeAt != 0 && !complete) {
        console.line("the state in " + store.directory() + " is written again");
      }
      complete = true;
      completeAt = System.nanoTime();
    }
    saving = false;
  }

  /** Whether the state was removed from the disk since the last time that this method returned true. */
  boolean takeRemoval() {
    boolean taken = isRemoved && !saving;
    isRemoved &= !taken;
    return taken;
  }

  /** Saves the signalling of calls again with the next {@link #save}, or with several when it is much. */
  void addAgain(Collection<CallStream> calls) {
    removed.clear();
    removed.addAll(calls);
  }

  /** Saves again what was removed, until so much waits that the disk thread would drop some of it. */
  private void saveRemoved() {
    while (!removed.isEmpty() && !store.disk().isBehind()) {
      CallStream call = removed.remove();
      if (!call.isOver()) {
        running.append(call.journal, call.messages());
        unsaved.add(call);
      }
    }
  }

  /** Whether a front that is killed now and started again goes on with all calls. Any thread may call it. */
  boolean isSafe() {
    return complete && System.nanoTime() - completeAt < SAVED_NANOS && !blocks.isFailing();
  }

  /** Reads the messages that an earlier front could not publish. Returns their number. */
  int messages(Consumer<Message> out) {
    try {
      return spool.read(out);
    } catch (IOException e) {
      console.line("the messages from before the restart cannot be read: " + e);
      return 0;
    }
  }

  /** Removes the messages of an earlier front after they are published. */
  void published() {
    store.disk().submit(spool::remove);
  }

  /** Returns what keeps the blocks that are read, for the case that the front is killed. */
  BlockKeeper blocks() {
    return blocks;
  }

  /** Keeps messages for the next front, and reports how much. Returns the number of messages that are kept. */
  int keep(List<Message> messages) {
    if (!messages.isEmpty()) {
      console.line(Text.count(messages.size(), "message") + " that the broker did not take are written to "
          + store.directory());
    }
    store.disk().drain(STOP_MILLIS);
    store.disk().hurry();
    try {
      int kept = messages.isEmpty() ? 0 : spool.write(messages);
      if (kept < messages.size()) {
        // The disk is full. The blocks have the same frames as the messages, which then have the space of both.
        spool.remove();
        blocks.clear();
        kept = spool.write(messages);
      }
      if (messages.isEmpty()) {
        spool.remove();
      } else {
        console.line(Text.count(kept, "message") + " that the broker did not take are in " + store.directory()
            + ": the next front publishes them");
        if (kept < messages.size()) {
          console.line(Text.count(messages.size() - kept, "message") + " more do not fit on the disk, and are lost");
        }
      }
      blocks.clear();
      return kept;
    } catch (IOException e) {
      console.line("the messages that the broker did not take cannot be kept: " + e);
      return 0;
    }
  }

  @Override
  public void close() {
    store.close();
  }
}
