package com.morvin.dom.telephony.sniffer.sample.storage;

import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.HashMap;
import java.util.List;
import java.util.Map;

/** The files of a call that continues after a restart, by their number in the saved list. */
public final class ResumedFiles {
  private final Store store;
  private final List<String> names;
  private final Map<Integer, WavFile> opened = new HashMap<>();

  /** Takes the names of the files in the directory of the recordings. The name is empty if a file was not created. */
  ResumedFiles(Store store, List<String> names) {
    this.store = store;
    this.names = names;
  }

  /** Returns the path of a file; null when it does not exist. */
  private Path path(int number) {
    String name = number < names.size() ? names.get(number) : "";
    Path path = name.isEmpty() ? null : store.directory().resolve(name);
    return path != null && Files.exists(path) ? path : null;
  }

  /**
   * Continues a file as a WAV file. A file that several voices share is opened once.
   *
   * @param name its name without an extension, if it was not created
   * @param begin see {@link Store#wav}
   */
  public WavFile wav(int number, String name, WavFile.Format format, long begin) throws IOException {
    WavFile file = opened.get(number);
    if (file == null) {
      Path path = path(number);
      file = new WavFile(store, name, format, begin, path, path == null ? 0 : Files.size(path));
      opened.put(number, file);
    }
    return file;
  }

  /** Continues a file as a capture file. */
  public PcapFile pcap(int number, String name) throws IOException {
    Path path = path(number);
    return new PcapFile(store, name, path, path == null ? 0 : Files.size(path));
  }
}
