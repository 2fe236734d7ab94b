package com.morvin.dom.telephony.sniffer.sample.storage;

import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.Iterator;
import java.util.List;

/** The files of a call that continues after a restart, in the order in which they were saved. */
public final class ResumedFiles {
  private final Store store;
  private final Iterator<String> names;

  /** Takes the names of the files in the directory of the recordings. The name is empty if a file was not created. */
  ResumedFiles(Store store, List<String> names) {
    this.store = store;
    this.names = names.iterator();
  }

  private Path next() {
    String name = names.hasNext() ? names.next() : "";
    Path path = name.isEmpty() ? null : store.directory().resolve(name);
    return path != null && Files.exists(path) ? path : null;
  }

  /**
   * Continues the next file as a WAV file.
   *
   * @param samples the least number of samples that the file counts as
   */
  public WavFile wav(String name, WavFile.Format format, long samples) throws IOException {
    Path path = next();
    long size = path == null ? 0 : Files.size(path);
    return new WavFile(store, name, format, path, Math.max(format.samplesIn(size), samples), size);
  }

  /** Continues the next file as a capture file. */
  public PcapFile pcap(String name) throws IOException {
    Path path = next();
    return new PcapFile(store, name, path, path == null ? 0 : Files.size(path));
  }
}
