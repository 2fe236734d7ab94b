package com.morvin.dom.telephony.sniffer.sample.storage;

/** How the samples of a WAV file are written. */
public enum Encoding {
  /** 16-bit numbers, the lower octet first. */
  LINEAR(1, 2, 0, 0),
  /** A-law octets of G.711, as a telephone sends them. */
  A_LAW(6, 1, 0xd5, 0x55),
  /** Mu-law octets of G.711. */
  MU_LAW(7, 1, 0xff, 0x7f);

  /** The format tag of the file. */
  final int tag;
  /** The length of a sample in bytes. */
  final int bytes;
  /** A byte of silence. */
  final byte silence;
  /** The bits of an octet of G.711 that are inverted. */
  final int inverted;

  Encoding(int tag, int bytes, int silence, int inverted) {
    this.tag = tag;
    this.bytes = bytes;
    this.silence = (byte) silence;
    this.inverted = inverted;
  }

  /** Returns a byte of silence. */
  public byte silence() {
    return silence;
  }

  /** Returns the sample of each octet. */
  short[] samples() {
    return this == A_LAW ? G711.A_LAW : G711.MU_LAW;
  }

  /** Returns the octet of each sample, by the sample as an unsigned number. */
  byte[] octets() {
    return this == A_LAW ? Octets.A_LAW : Octets.MU_LAW;
  }

  /** The tables for sound that is mixed, stretched or changes its law, which most calls do not need. */
  private static final class Octets {
    static final byte[] A_LAW = G711.encoder(G711.A_LAW);
    static final byte[] MU_LAW = G711.encoder(G711.MU_LAW);
  }
}
