package com.morvin.dom.telephony.sniffer.sample.storage;

import com.morvin.dom.telephony.sniffer.sample.storage.RunningCalls.TimedFrame;
import com.morvin.dom.telephony.sniffer.sample.transport.Frame;
import java.io.ByteArrayOutputStream;
import java.io.IOException;
import java.nio.ByteBuffer;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;
import java.util.function.Supplier;

/**
 * Saves the signalling of the calls of other shares, so that a restarted recorder follows them on. All calls are in one
 * file, to which new messages and the ends of calls are appended. When it has grown, it is replaced as a whole. Methods
 * belong to the recorder thread; the writing is done on the disk thread.
 */
public final class FollowedCalls {
  /** The length of a record without its frame: the number of the call and the time of the message. */
  private static final int RECORD_HEADER = Integer.BYTES + Long.BYTES;
  private static final long END = Long.MIN_VALUE;
  private static final long MIN_COMPACTED = 1 << 20;
  private static final int COMPACTED = 2;

  private final Store store;
  private final Path file;
  private ByteArrayOutputStream unsaved = new ByteArrayOutputStream();
  private volatile boolean wantsAll = true;
  private long wholeSize;
  private long appended;

  /** Saves into the directory of a store. */
  public FollowedCalls(Store store) {
    this.store = store;
    file = store.running().resolve("others");
  }

  /** Returns the messages of each call of a former recorder. Called once, before all other methods. */
  public List<List<TimedFrame>> load() throws IOException {
    Map<Integer, List<TimedFrame>> calls = new LinkedHashMap<>();
    ByteBuffer in = ByteBuffer.wrap(Files.exists(file) ? Files.readAllBytes(file) : new byte[0]);
    while (in.remaining() >= RECORD_HEADER) {
      int call = in.getInt();
      long time = in.getLong();
      Frame frame = time == END ? null : RunningCalls.nextFrame(in);
      if (frame != null) {
        calls.computeIfAbsent(call, any -> new ArrayList<>()).add(new TimedFrame(time, frame));
      } else if (time == END) {
        calls.remove(call);
      } else {
        break;  // the last record is incomplete
      }
    }
    return List.copyOf(calls.values());
  }

  /** Adds a message of a call. */
  public void add(int call, TimedFrame message) {
    write(call, message.time(), message.frame().bytes(), unsaved);
  }

  /** Removes a call. */
  public void end(int call) {
    write(call, END, new byte[0], unsaved);
  }

  private static void write(int call, long time, byte[] frame, ByteArrayOutputStream out) {
    out.writeBytes(ByteBuffer.allocate(RECORD_HEADER).putInt(call).putLong(time).array());
    out.writeBytes(frame);
  }

  /**
   * Queues what is not saved yet for the disk thread.
   *
   * @param all returns the messages of all calls
   */
  public void save(Supplier<Map<Integer, List<TimedFrame>>> all) {
    if (wantsAll || appended > Math.max(MIN_COMPACTED, COMPACTED * wholeSize)) {
      replace(all.get());
    } else if (unsaved.size() > 0) {
      byte[] records = unsaved.toByteArray();
      appended += records.length;
      submit(records.length, () -> FileOperations.append(file, records));
    }
    unsaved = new ByteArrayOutputStream();
  }

  private void replace(Map<Integer, List<TimedFrame>> calls) {
    wantsAll = false;
    appended = 0;
    wholeSize = calls.values().stream().flatMap(List::stream)
        .mapToLong(message -> RECORD_HEADER + Frame.HEADER + message.frame().payload().length).sum();
    if (calls.isEmpty()) {
      submit(0, () -> Files.deleteIfExists(file));
      return;
    }
    submit(0, () -> FileOperations.replace(file, channel -> {
      for (Map.Entry<Integer, List<TimedFrame>> call : calls.entrySet()) {
        ByteArrayOutputStream records = new ByteArrayOutputStream();
        call.getValue().forEach(message -> write(call.getKey(), message.time(), message.frame().bytes(), records));
        FileOperations.writeAll(channel, ByteBuffer.wrap(records.toByteArray()), channel.size());
      }
    }));
  }

  private void submit(int bytes, Disk.Job job) {
    store.disk().submit(bytes, List.of(() -> {
      store.ensureRunning();
      job.run();
    }), () -> wantsAll = true);
  }
}
