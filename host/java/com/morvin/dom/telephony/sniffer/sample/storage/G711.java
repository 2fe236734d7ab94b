package com.morvin.dom.telephony.sniffer.sample.storage;

import java.util.SortedMap;
import java.util.TreeMap;

/** The tables of ITU-T G.711: one 16-bit sample for each octet, and the nearest octet for each sample. */
public final class G711 {
  /** The sample of each A-law octet. */
  public static final short[] A_LAW = new short[256];
  /** The sample of each mu-law octet. */
  public static final short[] MU_LAW = new short[256];

  static {
    for (int coded = 0; coded < 256; coded++) {
      A_LAW[coded] = aLaw(coded);
      MU_LAW[coded] = muLaw(coded);
    }
  }

  private G711() {}

  private static short aLaw(int coded) {
    int value = coded ^ 0x55;
    int segment = value >> 4 & 7;
    int magnitude = ((value & 15) << 4) + 8;
    magnitude = segment == 0 ? magnitude : magnitude + 0x100 << segment - 1;
    return (short) ((value & 0x80) != 0 ? magnitude : -magnitude);
  }

  private static short muLaw(int coded) {
    int value = ~coded;
    int magnitude = (((value & 15) << 3) + 0x84 << (value >> 4 & 7)) - 0x84;
    return (short) ((value & 0x80) != 0 ? -magnitude : magnitude);
  }

  /**
   * Returns the octet with the nearest value for each sample, by the sample as an unsigned number.
   *
   * @param law one of the tables above
   */
  static byte[] encoder(short[] law) {
    SortedMap<Short, Integer> byValue = new TreeMap<>();
    for (int coded = 0; coded < 256; coded++) {
      byValue.put(law[coded], coded);
    }
    int[] codes = byValue.values().stream().mapToInt(Integer::intValue).toArray();
    byte[] nearest = new byte[1 << 16];
    int at = 0;
    for (int sample = Short.MIN_VALUE; sample <= Short.MAX_VALUE; sample++) {
      while (at + 1 < codes.length && law[codes[at + 1]] - sample < sample - law[codes[at]]) {
        at++;
      }
      nearest[sample & 0xffff] = (byte) codes[at];
    }
    return nearest;
  }
}
