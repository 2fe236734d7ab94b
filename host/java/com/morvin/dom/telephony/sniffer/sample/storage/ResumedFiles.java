package com.morvin.dom.telephony.sniffer.sample.storage;

import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.LinkOption;
import java.nio.file.Path;
import java.util.HashMap;
import java.util.HashSet;
import java.util.List;
import java.util.Map;
import java.util.Objects;
import java.util.Set;
import java.util.regex.Pattern;
import java.util.stream.IntStream;

/** The files of a call that continues after a restart, by their number in the saved list. */
public final class ResumedFiles {
  private static final int MAX_LEFT = 64;
  /** A file of sound in the directory itself, whatever a damaged list says. */
  private static final Pattern NAME = Pattern.compile("[^/\\x00]+\\.(wav|pcap)");

  private final Store store;
  private final List<String> names;
  private final List<long[]> missing;
  private final Map<Integer, WavFile> opened = new HashMap<>();
  private final Set<Integer> continued = new HashSet<>();

  /**
   * Takes the files in the directory of the recordings.
   *
   * @param names the name is empty if a file was not created
   * @param missing what each file lacks, see {@link StoredFile#missing}; empty when that was not saved
   */
  ResumedFiles(Store store, List<String> names, List<long[]> missing) {
    this.store = store;
    this.names = names;
    this.missing = missing;
  }

  /** Returns the path of a file; null when it does not exist. */
  private Path path(int number) {
    String name = number < names.size() ? names.get(number) : "";
    Path path = NAME.matcher(name).matches() ? store.directory().resolve(name) : null;
    return path != null && Files.isRegularFile(path, LinkOption.NOFOLLOW_LINKS) ? path : null;
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
      countMissing(number, file);
      opened.put(number, file);
      continued.add(number);
    }
    return file;
  }

  /** Continues a file as a capture file. */
  public PcapFile pcap(int number, String name) throws IOException {
    Path path = path(number);
    continued.add(number);
    PcapFile file = new PcapFile(store, name, path, path == null ? 0 : Files.size(path));
    countMissing(number, file);
    return file;
  }

  private void countMissing(int number, StoredFile file) {
    for (int channel = 0; number < missing.size() && channel < StoredFile.CHANNELS; channel++) {
      file.countMissing(channel, missing.get(number)[channel]);
    }
  }

  /** Takes all continuations back: the state of the call cannot be read. */
  public void abandon() {
    opened.clear();
    continued.clear();
  }

  /** Returns the files that nothing continues. */
  public List<LeftFile> left() {
    return IntStream.range(0, names.size()).filter(number -> !continued.contains(number)).mapToObj(this::path)
        .filter(Objects::nonNull).limit(MAX_LEFT).map(path -> new LeftFile(store, path)).toList();
  }
}
