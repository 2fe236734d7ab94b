package com.morvin.dom.telephony.sniffer.sample.page;

import com.morvin.dom.telephony.sniffer.sample.storage.WavReader;
import java.io.IOException;
import java.nio.file.Path;

/** The loudness of a recording over time, as a short text. */
final class Waveform {
  /** The most samples that are read for one point, so that a long recording takes no longer than a short one. */
  private static final int MAX_SAMPLES = 128;
  private static final int LEVELS = 64;
  private static final String ALPHABET = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";

  private Waveform() {}

  /** Returns the waveform of one channel of a whole file; see {@link #of(Path, int, double, double, int)}. */
  static String of(Path wav, int maxPoints) throws IOException {
    return of(wav, 0, 0, Double.MAX_VALUE, maxPoints);
  }

  /**
   * Returns one character for the peak of each part of the sound: {@code A} is silence, {@code _} full scale. The scale
   * is the square root, so that quiet speech is visible.
   *
   * @param from the beginning in seconds
   * @param seconds the length
   * @param maxPoints the most characters
   */
  static String of(Path wav, int channel, double from, double seconds, int maxPoints) throws IOException {
    try (WavReader sound = new WavReader(wav)) {
      long first = Math.min(sound.frames(), Math.max(0, Math.round(from * sound.rate())));
      long count = (long) Math.min(sound.frames() - first, seconds * sound.rate());
      int points = (int) Math.min(maxPoints, count);
      StringBuilder peaks = new StringBuilder(points);
      for (int point = 0; point < points; point++) {
        long start = first + count * point / points;
        peaks.append(ALPHABET.charAt(level(peak(sound, channel, start, first + count * (point + 1) / points))));
      }
      return peaks.toString();
    }
  }

  private static int peak(WavReader sound, int channel, long from, long to) throws IOException {
    int peak = 0;
    long step = Math.max(1, (to - from) / MAX_SAMPLES);
    for (long frame = from; frame < to; frame += step) {
      peak = Math.max(peak, Math.abs(sound.sample(frame, channel)));
    }
    return peak;
  }

  private static int level(int peak) {
    return Math.min(LEVELS - 1, (int) (LEVELS * Math.sqrt(peak / 32768.0)));
  }
}
