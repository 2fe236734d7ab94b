package com.morvin.dom.telephony.sniffer.sample.storage;

import java.io.IOException;
import java.nio.channels.FileChannel;
import java.nio.file.NoSuchFileException;
import java.nio.file.Path;
import java.util.concurrent.atomic.AtomicLongArray;

/** A file that grows during a call. It is created with its first content, so that no empty file is left. */
public abstract class StoredFile {
  /** The most channels of a file: caller, callee. */
  static final int CHANNELS = 2;

  final Store store;
  private final String name;
  private final String extension;
  private volatile Path path;
  private volatile String fileName = "";
  /** The bytes of each channel that were dropped because too much waited for the disk. */
  private final AtomicLongArray missing = new AtomicLongArray(CHANNELS);

  /** Makes the file NAME.EXTENSION, see {@link Store#create}, or continues the file of a path that is not null. */
  StoredFile(Store store, String name, String extension, Path path) {
    this.store = store;
    this.name = name;
    this.extension = extension;
    if (path != null) {
      setPath(path);
    }
  }

  private void setPath(Path created) {
    path = created;
    fileName = created.getFileName().toString();
  }

  /** Passes the collected content to the disk thread. */
  public abstract void flush();

  /** Returns the path; null before the file is created. Any thread may call it. */
  public Path path() {
    return path;
  }

  /** Returns the name without the directory; empty when nothing was written. */
  public String fileName() {
    return fileName;
  }

  /** Returns the size on disk in bytes. Called on the disk thread. */
  abstract long size();

  /** Counts bytes of a channel that were dropped because too much waited for the disk. Any thread may call it. */
  void countMissing(int channel, long bytes) {
    missing.addAndGet(channel, bytes);
  }

  /** Returns the number of bytes of a channel that {@link #countMissing} has counted. Any thread may call it. */
  long missing(int channel) {
    return missing.get(channel);
  }

  /**
   * Queues a job that writes a number of bytes.
   *
   * @param dropped runs instead when too much waits for the disk, on any thread
   */
  void submit(int bytes, Disk.Job job, Runnable dropped) {
    store.disk().write(bytes, job, dropped);
  }

  /** Returns the open file, which is created when it is new. Called on the disk thread. */
  FileChannel open() throws IOException {
    if (path == null) {
      setPath(store.create(name, extension));
    }
    store.written(path);
    return store.open().channel(this);
  }

  /** Closes the file. Called on the disk thread. */
  void close() throws IOException {
    store.open().close(this);
  }

  /** Closes and removes the file. Called on the disk thread. */
  void delete() throws IOException {
    if (path != null) {
      try {
        store.remove(path, store.open().channel(this));
      } catch (NoSuchFileException e) {
        // It is not there.
      }
      close();
    }
  }
}
