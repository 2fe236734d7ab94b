package com.morvin.dom.telephony.sniffer.sample.storage;

import java.io.IOException;
import java.nio.file.Path;
import java.util.List;

/**
 * A file of a call that was recorded before a restart, but whose saved state cannot be read: that of another version of
 * the recorder, for example. Nothing is added to it. The call lists it, so that it is found and erased with the call.
 */
public final class LeftFile extends StoredFile {
  LeftFile(Store store, Path path) {
    super(store, "", "", path);
  }

  @Override
  public void flush() {
    // There is nothing to write.
  }

  @Override
  long size() {
    return path().toFile().length();
  }

  /**
   * Returns the file as a part of a voice. When its sound begins is not known.
   *
   * @param offset from the start of the call to its first message, in seconds
   */
  public CallReport.Part part(double offset) {
    double seconds = 0;
    try (WavReader sound = new WavReader(path())) {
      seconds = (double) sound.frames() / sound.rate();
    } catch (IOException e) {
      // It is a capture file, or damaged.
    }
    return new CallReport.Part(fileName(), "", offset, seconds, List.of());
  }
}
