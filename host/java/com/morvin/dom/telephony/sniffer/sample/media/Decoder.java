package com.morvin.dom.telephony.sniffer.sample.media;

/** Decodes the payloads of one RTP source into 16-bit samples. It keeps state between packets. */
final class Decoder {
  private final G722 g722 = new G722();

  short[] decode(RtpPacket packet, Codec codec) {
    return switch (codec.kind()) {
      case PCMA -> lookUp(G711.A_LAW, packet);
      case PCMU -> lookUp(G711.MU_LAW, packet);
      case G722 -> g722.decode(packet.bytes(), packet.offset(), packet.length());
      default -> new short[0];
    };
  }

  private static short[] lookUp(short[] table, RtpPacket packet) {
    short[] samples = new short[packet.length()];
    for (int i = 0; i < samples.length; i++) {
      samples[i] = table[packet.bytes()[packet.offset() + i] & 255];
    }
    return samples;
  }
}
