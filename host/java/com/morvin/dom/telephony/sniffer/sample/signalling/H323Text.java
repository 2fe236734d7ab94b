package com.morvin.dom.telephony.sniffer.sample.signalling;

import com.morvin.dom.telephony.sniffer.sample.transport.Address;
import com.morvin.dom.telephony.sniffer.sample.transport.Endpoint;
import java.nio.charset.StandardCharsets;
import java.util.ArrayList;
import java.util.List;
import java.util.Map;
import java.util.regex.Matcher;
import java.util.regex.Pattern;

/**
 * The description of an H.323 message: lines that start with a letter and a colon.
 *
 * @param type the Q.931 message type, or the type of an H.245 message on a separate connection
 * @param callReference decimal, the same in both directions
 * @param callId the call identifier; empty when the message had none
 * @param caller the alias of the caller; empty when the message had none
 * @param callee the alias of the callee; empty when the message had none
 * @param media where the sender of the message receives RTP
 * @param codecs names of codecs other than G.711
 * @param digits dialled during the call; empty when there are none
 */
public record H323Text(int type, String callReference, String callId, String caller, String callee,
    List<Endpoint> media, List<String> codecs, String digits) {
  // Message types.
  public static final int ALERTING = 1;
  public static final int CALL_PROCEEDING = 2;
  public static final int PROGRESS = 3;
  public static final int SETUP = 5;
  public static final int CONNECT = 7;
  public static final int SETUP_ACKNOWLEDGE = 13;
  public static final int RELEASE_COMPLETE = 90;
  public static final int OPEN_LOGICAL_CHANNEL = 130;
  public static final int OPEN_LOGICAL_CHANNEL_ACK = 131;

  private static final Map<Integer, String> LABELS = Map.ofEntries(Map.entry(ALERTING, "Alerting"),
      Map.entry(CALL_PROCEEDING, "CallProceeding"), Map.entry(PROGRESS, "Progress"), Map.entry(SETUP, "Setup"),
      Map.entry(CONNECT, "Connect"), Map.entry(SETUP_ACKNOWLEDGE, "SetupAcknowledge"),
      Map.entry(RELEASE_COMPLETE, "ReleaseComplete"), Map.entry(98, "Facility"), Map.entry(123, "Information"),
      Map.entry(OPEN_LOGICAL_CHANNEL, "OpenLogicalChannel"),
      Map.entry(OPEN_LOGICAL_CHANNEL_ACK, "OpenLogicalChannelAck"));

  private static final int MAX_MEDIA = 16;
  private static final int MAX_NAME = 256;
  private static final String NO_CALL_ID = "00000000-0000-0000-0000-000000000000";
  private static final Pattern ADDRESS =
      Pattern.compile("rtp:(?:([0-9.]{7,15})|\\[(" + Address.COLONS + ")]) (\\d{1,5})");
  private static final Pattern CODEC = Pattern.compile("[fr]codec:(\\w{1,64}) \\d+,");

  /** Parses a description. Returns null when it has no type or no call reference. */
  public static H323Text parse(byte[] payload) {
    int end = payload.length;
    while (end > 0 && payload[end - 1] == 0) {
      end--;
    }
    int type = -1;
    String callReference = "";
    String callId = "";
    String caller = "";
    String callee = "";
    String digits = "";
    List<Endpoint> media = new ArrayList<>();
    List<String> codecs = new ArrayList<>();
    for (String line : new String(payload, 0, end, StandardCharsets.UTF_8).split("\n")) {
      if (line.length() < 2 || line.charAt(1) != ':') {
        continue;
      }
      String value = line.substring(2);
      switch (line.charAt(0)) {
        case 't' -> type = type < 0 && value.matches("\\d{1,3}") ? Integer.parseInt(value) : type;
        case 'r' -> callReference = value.matches("\\d{1,10}") ? value : callReference;
        case 'c' -> callId = value.equals(NO_CALL_ID) || value.length() > MAX_NAME ? "" : value;
        case 's' -> caller = value.substring(0, Math.min(value.length(), MAX_NAME));
        case 'd' -> callee = value.substring(0, Math.min(value.length(), MAX_NAME));
        case 'i' -> digits = value.matches("[0-9A-D*#!]{1,64}") ? value : digits;
        case 'm', 'a' -> describe(value, media, codecs);
        default -> { }  // from a later version of the sniffer
      }
    }
    if (type < 0 || callReference.isEmpty()) {
      return null;
    }
    return new H323Text(type, callReference, callId, caller, callee, List.copyOf(media), List.copyOf(codecs), digits);
  }

  /** Reads a media line. Its forward and reverse parts have no separator, so they are found by their prefixes. */
  private static void describe(String channel, List<Endpoint> media, List<String> codecs) {
    for (Matcher address = ADDRESS.matcher(channel); media.size() < MAX_MEDIA && address.find();) {
      String host = address.group(1) != null ? address.group(1) : address.group(2);
      Endpoint.ofMedia(host, Integer.parseInt(address.group(3))).ifPresent(media::add);
    }
    for (Matcher codec = CODEC.matcher(channel); codecs.size() < MAX_MEDIA && codec.find();) {
      if (!codec.group(1).startsWith("g711")) {
        codecs.add(codec.group(1));
      }
    }
  }

  /** Returns the name of the message: "Setup", "Connect". */
  public String label() {
    return LABELS.getOrDefault(type, "message " + type);
  }

  /** Whether the message was sent on a separate H.245 connection. */
  public boolean isSeparateH245() {
    return type == OPEN_LOGICAL_CHANNEL || type == OPEN_LOGICAL_CHANNEL_ACK;
  }

  /** Whether only the called side sends messages of this type. */
  public boolean isFromCallee() {
    return switch (type) {
      case ALERTING, CALL_PROCEEDING, PROGRESS, CONNECT, SETUP_ACKNOWLEDGE -> true;
      default -> false;
    };
  }
}
