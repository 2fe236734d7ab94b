package com.morvin.dom.telephony.sniffer.sample.storage;

import java.io.IOException;
import java.nio.ByteBuffer;
import java.nio.channels.FileChannel;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.StandardCopyOption;
import java.nio.file.StandardOpenOption;

/** File operations that the disk thread can repeat after a failure. */
final class FileOperations {
  private FileOperations() {}

  /** Appends all bytes or none: after a failure the file has its former size. */
  static void append(Path file, byte[] bytes) throws IOException {
    long end = Files.exists(file) ? Files.size(file) : 0;
    try {
      Files.write(file, bytes, StandardOpenOption.CREATE, StandardOpenOption.APPEND);
    } catch (IOException e) {
      truncate(file, end);
      throw e;
    }
  }

  /** Shortens a file to a size in bytes. Does nothing when the file is missing or not longer. */
  static void truncate(Path file, long size) throws IOException {
    if (Files.exists(file) && Files.size(file) > size) {
      try (FileChannel channel = FileChannel.open(file, StandardOpenOption.WRITE)) {
        channel.truncate(size);
      }
    }
  }

  /** Replaces the content of a file by renaming a new file, so that the file is always complete. */
  static void replace(Path file, byte[] content) throws IOException {
    Path replacement = file.resolveSibling(file.getFileName() + ".new");
    Files.write(replacement, content);
    Files.move(replacement, file, StandardCopyOption.ATOMIC_MOVE);
  }

  /** Writes all remaining bytes of the buffer, starting at a position in the file. */
  static void writeAll(FileChannel file, ByteBuffer bytes, long position) throws IOException {
    for (long at = position; bytes.hasRemaining();) {
      at += file.write(bytes, at);
    }
  }
}
