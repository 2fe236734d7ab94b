package com.morvin.dom.telephony.sniffer.sample.storage;

import java.io.IOException;
import java.nio.channels.FileChannel;
import java.nio.file.StandardOpenOption;
import java.util.Iterator;
import java.util.LinkedHashMap;
import java.util.Map;

/**
 * The files that are written at present, held open so that a write is one system call. When there are too many, the one
 * that was not written for the longest time is closed. Belongs to the disk thread.
 */
final class OpenFiles {
  private final int limit;
  private final Map<StoredFile, FileChannel> channels = new LinkedHashMap<>(16, 0.75f, true);

  OpenFiles(int limit) {
    this.limit = limit;
  }

  /** Returns the channel of a file that exists. */
  FileChannel channel(StoredFile file) throws IOException {
    FileChannel channel = channels.get(file);
    if (channel == null) {
      if (channels.size() >= limit) {
        closeOldest();
      }
      channel = FileChannel.open(file.path(), StandardOpenOption.READ, StandardOpenOption.WRITE);
      channels.put(file, channel);
    }
    return channel;
  }

  private void closeOldest() throws IOException {
    Iterator<FileChannel> oldest = channels.values().iterator();
    FileChannel channel = oldest.next();
    oldest.remove();
    channel.close();
  }

  void close(StoredFile file) throws IOException {
    FileChannel channel = channels.remove(file);
    if (channel != null) {
      channel.close();
    }
  }

  void closeAll() throws IOException {
    while (!channels.isEmpty()) {
      closeOldest();
    }
  }
}
