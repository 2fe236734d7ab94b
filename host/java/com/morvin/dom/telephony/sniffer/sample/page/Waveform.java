package com.morvin.dom.telephony.sniffer.sample.page;

import com.morvin.dom.telephony.sniffer.sample.storage.WavReader;
import java.io.IOException;
import java.nio.file.Path;

/** The loudness of a recording over time, as a short text. */
final class Waveform {
  /** The most samples that are read for one point, so that a long recording takes no longer than a short one. */
  private static final int MAX_SAMPLES = 64;
  private static final int LEVELS = 64;
  private static final String ALPHABET = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";

  private Waveform() {}

  /** Returns the waveform of one channel of a whole file; see {@link #of(WavReader, int, double, double, int)}. */
  static String of(Path wav, int maxPoints) throws IOException {
    try (WavReader sound = new WavReader(wav)) {
      return of(sound, 0, 0, Double.MAX_VALUE, maxPoints);
    }
  }

  /**
   * Returns one character for the peak of each part of the sound: {@code A} is silence, {@code _} full scale. The scale
   * is the square root, so that quiet speech is visible.
   *
   * @param from the beginning in seconds
   * @param seconds the length
   * @param maxPoints the most characters
   */
  static String of(WavReader sound, int channel, double from, double seconds, int maxPoints) throws IOException {
    long first = Math.min(sound.frames(), Math.max(0, Math.round(from * sound.rate())));
    long count = (long) Math.min(sound.frames() - first, seconds * sound.rate());
    int points = (int) Math.min(maxPoints, count);
    StringBuilder peaks = new StringBuilder(points);
    for (int point = 0; point < points; point++) {
      long start = first + count * point / points;
      long end = first + count * (point + 1) / points;
      int step = (int) Math.max(1, (end - start) / MAX_SAMPLES);
      peaks.append(ALPHABET.charAt(level(sound.peak(channel, start, end, step))));
    }
    return peaks.toString();
  }

  private static int level(int peak) {
    return Math.min(LEVELS - 1, (int) (LEVELS * Math.sqrt(peak / 32768.0)));
  }
}
