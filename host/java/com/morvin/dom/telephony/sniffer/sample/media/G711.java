package com.morvin.dom.telephony.sniffer.sample.media;

/** The decoding tables of ITU-T G.711: one 16-bit sample for each byte. */
final class G711 {
  static final short[] A_LAW = new short[256];
  static final short[] MU_LAW = new short[256];

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
}
