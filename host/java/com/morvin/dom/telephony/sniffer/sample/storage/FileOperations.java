package com.morvin.dom.telephony.sniffer.sample.storage;

import java.io.BufferedReader;
import java.io.IOException;
import java.io.InputStream;
import java.io.InputStreamReader;
import java.nio.ByteBuffer;
import java.nio.channels.FileChannel;
import java.nio.charset.StandardCharsets;
import java.nio.file.FileSystems;
import java.nio.file.Files;
import java.nio.file.NoSuchFileException;
import java.nio.file.OpenOption;
import java.nio.file.Path;
import java.nio.file.StandardCopyOption;
import java.nio.file.StandardOpenOption;
import java.nio.file.attribute.FileAttribute;
import java.nio.file.attribute.PosixFilePermissions;
import java.util.Set;

/**
 * File operations that the disk thread can repeat after a failure. Recordings are personal data, so new files have mode
 * 0640 and new directories 0750, or fewer rights if the umask takes some away.
 */
public final class FileOperations {
  private static final FileAttribute<?>[] FILE = mode("rw-r-----");
  private static final FileAttribute<?>[] DIRECTORY = mode("rwxr-x---");

  private FileOperations() {}

  private static FileAttribute<?>[] mode(String permissions) {
    boolean posix = FileSystems.getDefault().supportedFileAttributeViews().contains("posix");
    return posix
        ? new FileAttribute<?>[] {PosixFilePermissions.asFileAttribute(PosixFilePermissions.fromString(permissions))}
        : new FileAttribute<?>[0];
  }

  /** Opens a file, and creates it if an option says so. */
  public static FileChannel open(Path file, OpenOption... options) throws IOException {
    return FileChannel.open(file, Set.of(options), FILE);
  }

  /** Opens a text file in UTF-8. Damaged characters are replaced, so that no file stops the reader. */
  public static BufferedReader lines(Path file) throws IOException {
    return new BufferedReader(new InputStreamReader(Files.newInputStream(file), StandardCharsets.UTF_8));
  }

  /** Creates an empty file, which must not exist. */
  static void create(Path file) throws IOException {
    Files.createFile(file, FILE);
  }

  /** Creates a directory and the missing ones above it. */
  public static void createDirectories(Path directory) throws IOException {
    Files.createDirectories(directory, DIRECTORY);
  }

  /** Writes to a file that has content already. */
  interface Addition {
    /** Writes from the end of the content, a place in bytes. */
    void writeTo(FileChannel file, long end) throws IOException;
  }

  /** Appends all bytes or none: after a failure the file has its former size. */
  static void append(Path file, byte[] bytes) throws IOException {
    append(file, (channel, end) -> writeAll(channel, ByteBuffer.wrap(bytes), end));
  }

  /** Appends all of an addition or nothing. */
  static void append(Path file, Addition addition) throws IOException {
    try (FileChannel channel = open(file, StandardOpenOption.CREATE, StandardOpenOption.WRITE)) {
      long end = channel.size();
      try {
        addition.writeTo(channel, end);
      } catch (IOException e) {
        channel.truncate(end);
        throw e;
      }
    }
  }

  /** Returns the last bytes of a file, at most so many; none when it does not exist. */
  static byte[] readEnd(Path file, int atMost) throws IOException {
    if (!Files.exists(file)) {
      return new byte[0];
    }
    try (InputStream in = Files.newInputStream(file)) {
      in.skipNBytes(Math.max(0, Files.size(file) - atMost));
      return in.readNBytes(atMost);
    }
  }

  /**
   * Returns the free space for a directory in bytes. Unlike a FileStore, it needs no entry in /proc/mounts, which may
   * be missing in a container.
   */
  static long usableSpace(Path directory) throws IOException {
    if (!Files.isDirectory(directory)) {
      throw new NoSuchFileException(directory.toString());
    }
    return directory.toFile().getUsableSpace();
  }

  /** Shortens a file to a size in bytes. Does nothing when the file is missing or not longer. */
  static void truncate(Path file, long size) throws IOException {
    if (Files.exists(file) && Files.size(file) > size) {
      try (FileChannel channel = FileChannel.open(file, StandardOpenOption.WRITE)) {
        channel.truncate(size);
      }
    }
  }

  /** Writes the content of a new file. */
  public interface Content {
    /** Writes from the start of the file. */
    void writeTo(FileChannel file) throws IOException;
  }

  /** Replaces the content of a file, see {@link #replace(Path, Content)}. */
  static void replace(Path file, byte[] content) throws IOException {
    replace(file, channel -> writeAll(channel, ByteBuffer.wrap(content), 0));
  }

  /**
   * Writes the content of a file that is empty, without waiting for the disk, which takes up to 40 ms. The file may be
   * empty after a crash of the machine.
   */
  static void write(Path file, byte[] content) throws IOException {
    try (FileChannel channel = FileChannel.open(file, StandardOpenOption.WRITE)) {
      writeAll(channel, ByteBuffer.wrap(content), 0);
    }
  }

  /**
   * Replaces the content of a file by renaming a new file, which is on the disk before. So the file is complete at any
   * time and after a crash of the machine.
   */
  public static void replace(Path file, Content content) throws IOException {
    Path replacement = file.resolveSibling(file.getFileName() + ".new");
    try (FileChannel channel = open(replacement, StandardOpenOption.CREATE, StandardOpenOption.WRITE,
        StandardOpenOption.TRUNCATE_EXISTING)) {
      content.writeTo(channel);
      channel.force(true);
    }
    Files.move(replacement, file, StandardCopyOption.ATOMIC_MOVE);
  }

  /** Forces new names in a directory to the disk. */
  public static void syncNames(Path directory) throws IOException {
    try (FileChannel channel = FileChannel.open(directory, StandardOpenOption.READ)) {
      channel.force(true);
    }
  }

  /** Writes all remaining bytes of the buffer, starting at a position in the file. */
  static void writeAll(FileChannel file, ByteBuffer bytes, long position) throws IOException {
    for (long at = position; bytes.hasRemaining();) {
      at += file.write(bytes, at);
    }
  }

  /** Reads from a position in the file until the buffer is full or the file ends. Returns the number of bytes. */
  static int readAll(FileChannel file, ByteBuffer bytes, long position) throws IOException {
    int length = 0;
    while (bytes.hasRemaining()) {
      int count = file.read(bytes, position + length);
      if (count < 0) {
        break;
      }
      length += count;
    }
    return length;
  }
}
