package com.morvin.dom.telephony.sniffer.sample;

import java.io.ByteArrayInputStream;
import java.io.IOException;
import java.io.UncheckedIOException;
import java.util.Locale;
import java.util.Map;
import javax.sound.sampled.AudioFormat;
import javax.sound.sampled.AudioInputStream;
import javax.sound.sampled.AudioSystem;

/** What an RTP payload holds; a codec with a table can be written as audio. */
final class Codec {
  static final Codec PCMA = new Codec("PCMA", linearTable(AudioFormat.Encoding.ALAW));
  static final Codec PCMU = new Codec("PCMU", linearTable(AudioFormat.Encoding.ULAW));
  static final Codec COMFORT_NOISE = new Codec("CN", null);
  static final Codec TELEPHONE_EVENT = new Codec("telephone-event", null);

  /** The static assignments of RFC 3551 that telephones use. */
  private static final Map<Integer, Codec> STATIC = Map.ofEntries(
      Map.entry(0, PCMU), Map.entry(8, PCMA), Map.entry(13, COMFORT_NOISE), Map.entry(19, COMFORT_NOISE),
      Map.entry(3, new Codec("GSM", null)), Map.entry(4, new Codec("G723", null)),
      Map.entry(9, new Codec("G722", null)), Map.entry(15, new Codec("G728", null)),
      Map.entry(18, new Codec("G729", null)));

  private final String name;
  private final short[] linear;

  private Codec(String name, short[] linear) {
    this.name = name;
    this.linear = linear;
  }

  /** By a payload type number that no SDP explains. */
  static Codec of(int payloadType) {
    Codec known = STATIC.get(payloadType);
    return known != null ? known : new Codec("payload type " + payloadType, null);
  }

  /** By the encoding of an rtpmap attribute, such as "PCMA/8000". */
  static Codec of(String encoding) {
    String[] parts = Text.printable(encoding).split("/", -1);
    boolean narrow = parts.length >= 2 && parts[1].equals("8000") && (parts.length == 2 || parts[2].equals("1"));
    return switch (parts[0].toUpperCase(Locale.ROOT)) {
      case "PCMA" -> narrow ? PCMA : new Codec(encoding, null);
      case "PCMU" -> narrow ? PCMU : new Codec(encoding, null);
      case "CN" -> COMFORT_NOISE;
      case "TELEPHONE-EVENT" -> TELEPHONE_EVENT;
      default -> new Codec(parts[0], null);
    };
  }

  String name() {
    return name;
  }

  boolean isAudio() {
    return linear != null;
  }

  /** Whether it carries no speech by its nature, so that nobody misses it in a recording. */
  boolean isSilent() {
    return this == COMFORT_NOISE || this == TELEPHONE_EVENT;
  }

  /** One byte of G.711 as a 16-bit sample. */
  short linear(byte coded) {
    return linear[coded & 255];
  }

  /** G.711 maps each byte to one sample, so converting all 256 of them once is all the decoding there is. */
  private static short[] linearTable(AudioFormat.Encoding encoding) {
    byte[] coded = new byte[256];
    for (int i = 0; i < coded.length; i++) {
      coded[i] = (byte) i;
    }
    AudioFormat format = new AudioFormat(encoding, WavFile.RATE, 8, 1, 1, WavFile.RATE, false);
    AudioInputStream source = new AudioInputStream(new ByteArrayInputStream(coded), format, coded.length);
    try (AudioInputStream decoded = AudioSystem.getAudioInputStream(WavFile.FORMAT, source)) {
      byte[] bytes = decoded.readAllBytes();
      short[] table = new short[coded.length];
      for (int i = 0; i < table.length; i++) {
        table[i] = (short) (bytes[2 * i] & 255 | bytes[2 * i + 1] << 8);
      }
      return table;
    } catch (IOException e) {
      throw new UncheckedIOException(e);
    }
  }
}
