package com.morvin.dom.telephony.sniffer.sample.page;

import java.io.IOException;
import java.nio.file.Path;
import javax.sound.sampled.AudioFormat;
import javax.sound.sampled.AudioInputStream;
import javax.sound.sampled.AudioSystem;
import javax.sound.sampled.UnsupportedAudioFileException;

/** The loudness of a recording over time, as a short text. */
final class Waveform {
  /** The most bytes that are read for one point, so that a long recording takes no longer than a short one. */
  private static final int MAX_BYTES_OF_POINT = 64 << 10;
  private static final int LEVELS = 64;
  private static final String ALPHABET = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";

  private Waveform() {}

  /**
   * Returns one character for the peak of each part of a file: {@code A} is silence, {@code _} full scale. The scale is
   * the square root, so that quiet speech is visible. Returns an empty text when the file is not a 16-bit WAV file.
   *
   * @param maxPoints the most characters
   */
  static String of(Path wav, int maxPoints) throws IOException {
    try (AudioInputStream sound = AudioSystem.getAudioInputStream(wav.toFile())) {
      AudioFormat format = sound.getFormat();
      if (format.getSampleSizeInBits() != 16 || format.isBigEndian()) {
        return "";
      }
      long length = sound.getFrameLength() * format.getFrameSize();
      int points = (int) Math.min(maxPoints, length / 2);
      StringBuilder peaks = new StringBuilder(points);
      byte[] bytes = new byte[MAX_BYTES_OF_POINT];
      long position = 0;
      for (int point = 1; point <= points; point++) {
        long end = length / 2 * point / points * 2;
        int read = sound.readNBytes(bytes, 0, (int) Math.min(bytes.length, end - position));
        peaks.append(ALPHABET.charAt(level(peak(bytes, read))));
        sound.skipNBytes(Math.max(0, end - position - read));
        position = end;
      }
      return peaks.toString();
    } catch (UnsupportedAudioFileException e) {
      return "";
    }
  }

  private static int peak(byte[] bytes, int length) {
    int peak = 0;
    for (int i = 0; i + 1 < length; i += 2) {
      peak = Math.max(peak, Math.abs((short) (bytes[i] & 255 | bytes[i + 1] << 8)));
    }
    return peak;
  }

  private static int level(int peak) {
    return Math.min(LEVELS - 1, (int) (LEVELS * Math.sqrt(peak / 32768.0)));
  }
}
