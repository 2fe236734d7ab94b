package com.morvin.dom.telephony.sniffer.sample.storage;

import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.Iterator;
import java.util.List;

/** The files of a call that goes on after a restart, in the order in which they were saved. */
public final class KeptFiles {
  private final Store store;
  private final Iterator<String> names;

  /** By name in the folder of the recordings; an empty one was not created yet. */
  KeptFiles(Store store, List<String> names) {
    this.store = store;
    this.names = names.iterator();
  }

  private Path next() {
    String name = names.hasNext() ? names.next() : "";
    Path path = name.isEmpty() ? null : store.directory().resolve(name);
    return path != null && Files.exists(path) ? path : null;
  }

  /** The next one, of which at least so many samples are taken for written. */
  public WavFile wav(String name, int rate, long samples) throws IOException {
    Path path = next();
    long there = path == null ? 0 : WavFile.samplesIn(Files.size(path));
    return store.wav(name, rate, path, Math.max(there, samples));
  }

  public PcapFile pcap(String name) {
    return store.pcap(name, next());
  }
}
