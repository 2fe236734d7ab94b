package com.morvin.dom.telephony.sniffer.sample.storage;

import java.io.IOException;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.List;
import java.util.concurrent.TimeUnit;
import java.util.stream.Stream;

/**
 * Passes requests to erase calls from the program that the operator starts to the recorder that uses the directory. A
 * request and its result are files in a directory of their own.
 */
public final class EraseRequests {
  private static final String REQUEST = ".request";
  private static final String RESULT = ".result";
  private static final long POLL_MILLIS = 100;

  /** Erases calls. */
  public interface Eraser {
    /** Erases the calls with an identifier. Returns their number. */
    int erase(String call) throws IOException;
  }

  private final Path directory;

  /** Uses the directory of the recordings. */
  public EraseRequests(Path directory) {
    this.directory = directory.resolve(Store.RUNNING).resolve("erase");
  }

  /** Serves the waiting requests. Called by the recorder, on the disk thread. */
  public void serve(Eraser eraser) throws IOException {
    if (!Files.isDirectory(directory)) {
      return;
    }
    List<Path> requests;
    try (Stream<Path> all = Files.list(directory)) {
      requests = all.filter(file -> file.toString().endsWith(REQUEST)).toList();
    }
    for (Path request : requests) {
      int erased = eraser.erase(Files.readString(request));
      FileOperations.replace(result(request), Integer.toString(erased).getBytes(StandardCharsets.US_ASCII));
      Files.deleteIfExists(request);
    }
  }

  private static Path result(Path request) {
    return request.resolveSibling(request.getFileName().toString().replace(REQUEST, RESULT));
  }

  /**
   * Makes a request and waits for its result.
   *
   * @return the number of erased calls; -1 when no recorder has served the request in time, and it is withdrawn
   */
  public int request(String call, long seconds) throws IOException, InterruptedException {
    FileOperations.createDirectories(directory);
    Path request = directory.resolve(ProcessHandle.current().pid() + "-" + System.nanoTime() + REQUEST);
    FileOperations.replace(request, call.getBytes(StandardCharsets.UTF_8));
    long deadline = System.nanoTime() + TimeUnit.SECONDS.toNanos(seconds);
    while (System.nanoTime() - deadline < 0) {
      if (Files.exists(result(request))) {
        int erased = Integer.parseInt(Files.readString(result(request)));
        Files.delete(result(request));
        return erased;
      }
      Thread.sleep(POLL_MILLIS);
    }
    Files.deleteIfExists(request);
    return -1;
  }
}
