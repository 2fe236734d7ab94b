package com.morvin.dom.telephony.sniffer.sample.storage;

import java.io.IOException;
import java.nio.channels.FileChannel;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.StandardOpenOption;
import java.util.concurrent.atomic.AtomicLong;

/**
 * A file that grows while a call goes on. It is created with its first content, so that none is left empty, and open
 * only while it is written: so there can be any number.
 */
public abstract class StoredFile {
  final Store store;
  private final String name;
  private final String extension;
  private final AtomicLong missing = new AtomicLong();
  private volatile Path path;

  /** A file NAME.EXTENSION, or NAME-2.EXTENSION and so on when there is one already; or one that is there. */
  StoredFile(Store store, String name, String extension, Path path) {
    this.store = store;
    this.name = name;
    this.extension = extension;
    this.path = path;
  }

  /** Hands over what has been collected. */
  public abstract void flush();

  /** Where it is; null before it is created. */
  public Path path() {
    return path;
  }

  /** The name without its folder; empty when nothing was written. */
  public String fileName() {
    return path == null ? "" : path.getFileName().toString();
  }

  /** Bytes that were dropped because the disk could not take them. */
  public long missing() {
    return missing.get();
  }

  /** Its size on disk. */
  public long size() throws IOException {
    return path == null ? 0 : Files.size(path);
  }

  /** Cuts off what came later. */
  public void truncate(long size) throws IOException {
    if (path != null) {
      try (FileChannel file = FileChannel.open(path, StandardOpenOption.WRITE)) {
        file.truncate(size);
      }
    }
  }

  void submit(int bytes, Disk.Job job) {
    store.disk().write(bytes, job, () -> missing.addAndGet(bytes));
  }

  /** On the thread of the disk. */
  FileChannel open() throws IOException {
    if (path == null) {
      path = store.create(name, extension);
    }
    store.written(path);
    return FileChannel.open(path, StandardOpenOption.WRITE);
  }
}
