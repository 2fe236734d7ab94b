package com.morvin.dom.telephony.sniffer.sample.signalling;

import com.morvin.dom.telephony.sniffer.sample.transport.Endpoint;
import java.util.ArrayList;
import java.util.HashMap;
import java.util.List;
import java.util.Map;
import java.util.Optional;

/**
 * The audio and fax media of a session description (RFC 4566), without media that is on hold or refused.
 *
 * @param media in the order of the description
 */
public record Sdp(List<Media> media) {
  private static final int MAX_MEDIA = 8;
  private static final int MAX_ALTERNATIVES = 16;
  private static final int MAX_CODECS = 32;
  private static final int MAX_CODEC_NAME = 32;
  private static final int MEDIA_BYTES = 600;
  private static final int CODEC_BYTES = 150;
  private static final int ALTERNATIVE_BYTES = 100;

  /** The kind of media that is sent to the address. */
  public enum Kind {
    /** RTP in clear. */
    RTP,
    /** RTP with an encrypted payload. */
    SECURE_RTP,
    /** T.38 over UDPTL. */
    FAX
  }

  /**
   * One m= line.
   *
   * @param rtp where RTP or T.38 is received
   * @param rtcp where RTCP is received; empty without it
   * @param alternatives where RTP or RTCP may be received instead: the candidates of ICE (RFC 8839), and addresses of
   *     the other family (RFC 6947)
   * @param codecs the rtpmap attributes, such as "PCMA/8000", by payload type
   * @param line the number of the m= line; an answer has the lines of its offer
   */
  public record Media(Optional<Endpoint> rtp, Optional<Endpoint> rtcp, List<Endpoint> alternatives,
      Map<Integer, String> codecs, Kind kind, int line) {
    private int size() {
      return MEDIA_BYTES + CODEC_BYTES * codecs.size() + ALTERNATIVE_BYTES * alternatives.size();
    }

    /** Returns media with known addresses and unknown codecs. */
    static Media at(Endpoint rtp) {
      return new Media(Optional.of(rtp), Optional.of(rtp.next()), List.of(), Map.of(), Kind.RTP, 0);
    }
  }

  /**
   * Returns this offer as the answer has decided on it. An offer of RTP/AVP with keys leaves the choice between clear
   * and encrypted media to the answer (RFC 8643).
   */
  Sdp answeredBy(Sdp answer) {
    return new Sdp(media.stream().map(offered -> answer.media.stream()
        .filter(other -> other.line == offered.line && other.rtp.isPresent() && other.kind != Kind.FAX
            && offered.kind != Kind.FAX)
        .map(other -> new Media(offered.rtp, offered.rtcp, offered.alternatives, offered.codecs, other.kind,
            offered.line))
        .findFirst().orElse(offered)).toList());
  }

  /** Returns the approximate memory of the description in bytes. */
  int size() {
    return media.stream().mapToInt(Media::size).sum();
  }

  /** Parses a description. Skips all lines and media that it does not know. */
  public static Sdp parse(String text) {
    List<Section> sections = new ArrayList<>();
    String sessionAddress = "";
    boolean sessionKeys = false;
    Section section = null;
    for (String line : text.split("\r\n|\n|\r")) {
      if (line.startsWith("m=")) {
        if (sections.size() == MAX_MEDIA) {
          break;
        }
        section = new Section(line.substring(2), sections.size(), sessionAddress, sessionKeys);
        sections.add(section);
      } else if (line.startsWith("c=")) {
        String address = connectionAddress(line.substring(2));
        if (section == null) {
          sessionAddress = address;
        } else {
          section.address = address;
        }
      } else if (line.startsWith("a=") && section != null) {
        section.attribute(line.substring(2));
      } else if (line.startsWith("a=")) {
        sessionKeys |= isKey(line.substring(2));
      } else if (line.startsWith("--")) {
        break;  // the end of a part of a multipart body
      }
    }
    return new Sdp(sections.stream().filter(Section::isKnown).map(Section::media)
        .filter(media -> media.rtp.isPresent()).toList());
  }

  /** Returns the address of "IN IP4 10.0.0.1/127" or "IN IP6 2001:db8::1"; of any other text an empty one. */
  private static String connectionAddress(String value) {
    String[] words = value.trim().split("\\s+");
    return words.length >= 3 && words[0].equals("IN") && words[1].matches("IP[46]") ? words[2].split("[/%]", 2)[0] : "";
  }

  /** Whether an attribute offers a key for SRTP (RFC 4568) or DTLS-SRTP (RFC 5763). */
  private static boolean isKey(String attribute) {
    return attribute.startsWith("crypto:") || attribute.startsWith("fingerprint:");
  }

  private static int number(String digits) {
    return digits.matches("\\d{1,5}") ? Integer.parseInt(digits) : 0;
  }

  /** An m= line and its attributes. */
  private static final class Section {
    private final String[] words;
    private final int line;
    private final Map<Integer, String> codecs = new HashMap<>();
    private final List<Endpoint> alternatives = new ArrayList<>();
    private String address;
    private String rtcpAddress = "";
    private int rtcpPort;
    private boolean keys;

    /** Reads "audio 49170 RTP/AVP 8 0" or, with a number of ports, "audio 49170/2 RTP/AVP 8". */
    Section(String text, int line, String address, boolean keys) {
      words = text.trim().split("\\s+");
      this.line = line;
      this.address = address;
      this.keys = keys;
    }

    void attribute(String attribute) {
      keys |= isKey(attribute);
      if (attribute.startsWith("rtpmap:")) {
        String[] map = attribute.substring(7).trim().split("\\s+", 2);
        if (map.length == 2 && map[0].matches("\\d{1,3}") && codecs.size() < MAX_CODECS
            && map[1].length() <= MAX_CODEC_NAME) {
          codecs.put(Integer.parseInt(map[0]), map[1].trim());
        }
      } else if (attribute.startsWith("rtcp:")) {  // RFC 3605
        String[] rtcp = attribute.substring(5).trim().split("\\s+", 2);
        rtcpPort = number(rtcp[0]);
        rtcpAddress = rtcp.length == 2 ? connectionAddress(rtcp[1]) : "";
      } else if (alternatives.size() < MAX_ALTERNATIVES) {
        alternative(attribute.split("\\s+"));
      }
    }

    /** Reads "candidate:1 1 UDP 2130706431 10.0.0.1 49170 typ host" or "altc:1 IP6 2001:db8::1 49170". */
    private void alternative(String... words) {
      if (words.length >= 6 && words[0].startsWith("candidate:") && words[2].equalsIgnoreCase("UDP")) {
        Endpoint.ofMedia(words[4], number(words[5])).ifPresent(alternatives::add);
      } else if (words.length >= 4 && words[0].startsWith("altc:")) {
        Endpoint.ofMedia(words[2], number(words[3])).ifPresent(alternatives::add);
      }
    }

    boolean isKnown() {
      return words.length >= 3 && kind() != null;
    }

    private Kind kind() {
      String transport = words[2];
      if (words[0].equals("audio")) {
        return transport.matches("(UDP/TLS/)?RTP/SAVPF?") || keys && transport.matches("RTP/AVPF?") ? Kind.SECURE_RTP
            : transport.matches("RTP/AVPF?") ? Kind.RTP : null;
      }
      return words[0].equals("image") && transport.equalsIgnoreCase("udptl") ? Kind.FAX : null;
    }

    Media media() {
      Optional<Endpoint> rtp = Endpoint.ofMedia(address, number(words[1].split("/", 2)[0]));
      Optional<Endpoint> rtcp = kind() == Kind.FAX ? Optional.empty() : rtcpPort == 0
          ? rtp.map(Endpoint::next)
          : Endpoint.ofMedia(rtcpAddress.isEmpty() ? address : rtcpAddress, rtcpPort);
      return new Media(rtp, rtp.isPresent() ? rtcp : Optional.empty(), List.copyOf(alternatives), Map.copyOf(codecs),
          kind(), line);
    }
  }
}
