package com.morvin.dom.telephony.sniffer.sample.media;

import com.morvin.dom.telephony.sniffer.sample.console.Text;
import java.util.Locale;
import java.util.Map;

/**
 * The codec of an RTP payload.
 *
 * @param name as SDP names it: "PCMA"
 */
public record Codec(String name, Kind kind) {
  /** How the payload is handled. */
  public enum Kind {
    /** Decoded as G.711 A-law. */
    PCMA,
    /** Decoded as G.711 mu-law. */
    PCMU,
    /** Decoded as G.722. */
    G722,
    /** Not decoded: kept in a capture file. */
    OTHER,
    /** Comfort noise (RFC 3389): ignored. */
    COMFORT_NOISE,
    /** Pressed keys (RFC 4733): listed in the report. */
    TELEPHONE_EVENT
  }

  static final Codec PCMA = new Codec("PCMA", Kind.PCMA);
  static final Codec PCMU = new Codec("PCMU", Kind.PCMU);
  private static final Codec G722 = new Codec("G722", Kind.G722);
  private static final Codec COMFORT_NOISE = new Codec("CN", Kind.COMFORT_NOISE);
  private static final Codec TELEPHONE_EVENT = new Codec("telephone-event", Kind.TELEPHONE_EVENT);

  /** The audio payload types that RFC 3551 assigns. An rtpmap cannot change them. */
  private static final Map<Integer, Codec> STATIC = Map.ofEntries(
      Map.entry(0, PCMU), Map.entry(3, other("GSM")), Map.entry(4, other("G723")), Map.entry(5, other("DVI4")),
      Map.entry(6, other("DVI4")), Map.entry(7, other("LPC")), Map.entry(8, PCMA), Map.entry(9, G722),
      Map.entry(10, other("L16")), Map.entry(11, other("L16")), Map.entry(12, other("QCELP")),
      Map.entry(13, COMFORT_NOISE), Map.entry(14, other("MPA")), Map.entry(15, other("G728")),
      Map.entry(16, other("DVI4")), Map.entry(17, other("DVI4")), Map.entry(18, other("G729")));
  /** The type of comfort noise before RFC 3389, which is reserved now. An rtpmap can change it. */
  private static final int OLD_COMFORT_NOISE = 19;

  /** Encrypted payload. */
  public static final Codec SRTP = other("SRTP");

  static Codec other(String name) {
    return new Codec(name, Kind.OTHER);
  }

  /**
   * Returns the codec of a payload type. A static type keeps its meaning whatever a description says: telephones send
   * what RFC 3551 says, and descriptions can be forged.
   *
   * @param encoding the value of the rtpmap attribute, such as "PCMA/8000"; null when there is none
   */
  public static Codec of(int payloadType, String encoding) {
    Codec known = STATIC.get(payloadType);
    if (known != null) {
      return known;
    }
    if (encoding == null) {
      return payloadType == OLD_COMFORT_NOISE ? COMFORT_NOISE : other("payload type " + payloadType);
    }
    String[] parts = Text.printable(encoding).split("/", -1);
    boolean narrow = parts.length >= 2 && parts[1].equals("8000") && (parts.length == 2 || parts[2].equals("1"));
    Codec codec = switch (parts[0].toUpperCase(Locale.ROOT)) {
      case "PCMA" -> PCMA;
      case "PCMU" -> PCMU;
      case "G722" -> G722;
      case "CN" -> COMFORT_NOISE;
      case "TELEPHONE-EVENT" -> TELEPHONE_EVENT;
      default -> other(parts[0]);
    };
    return codec.isAudio() && !narrow ? other(Text.printable(encoding)) : codec;
  }

  /** Whether it is decoded into a WAV file. */
  public boolean isAudio() {
    return kind == Kind.PCMA || kind == Kind.PCMU || kind == Kind.G722;
  }

  /** Whether it is heard or listed: audio that is decoded, and pressed keys. */
  public boolean isPlayed() {
    return isAudio() || kind == Kind.TELEPHONE_EVENT;
  }

  /** Returns the sample rate of the WAV file in Hz. */
  int rate() {
    return kind == Kind.G722 ? 16_000 : 8_000;
  }
}
