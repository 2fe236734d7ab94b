package com.morvin.dom.telephony.sniffer.sample.signalling;

import com.morvin.dom.telephony.sniffer.sample.transport.Address;
import java.net.URLDecoder;
import java.nio.charset.StandardCharsets;
import java.util.HashSet;
import java.util.List;
import java.util.Locale;
import java.util.Optional;
import java.util.Set;
import java.util.regex.Matcher;
import java.util.regex.Pattern;

/**
 * The parts of a SIP message (RFC 3261) that are needed to follow calls.
 *
 * @param status the status code of a response; 0 for a request
 * @param reason the reason phrase of a response
 * @param method the method of the request, also in a response
 * @param branch the branch of the topmost Via header, which identifies the transaction on this hop
 * @param sdp the session description; empty when the message has none
 * @param digits the pressed keys of an INFO; empty when it has none
 */
record SipMessage(int status, String reason, String method, long cseq, String callId, String branch, Party from,
    Party to, Optional<Sdp> sdp, String digits,
    SipHeaders headers) {
  /** The URI and the tag of a From or To header. */
  record Party(String uri, String tag) {
    private static final Pattern TAG = Pattern.compile(";\\s*tag\\s*=\\s*([^;,\\s]{1,256})", Pattern.CASE_INSENSITIVE);
    private static final Pattern QUOTED = Pattern.compile("^\\s*\"(?:[^\"\\\\]|\\\\.)*+\"");

    static Party parse(String header) {
      String value = QUOTED.matcher(header).replaceFirst("");
      int open = value.indexOf('<');
      int close = value.indexOf('>', open + 1);
      String uri = open >= 0 && close > open ? value.substring(open + 1, close) : value.split(";", 2)[0];
      Matcher tag = TAG.matcher(open >= 0 && close > open ? value.substring(close + 1) : value);
      return new Party(shortened(uri.strip()), tag.find() ? tag.group(1) : "");
    }

    /** Whether the party has withheld its name. */
    boolean isAnonymous() {
      return name().equalsIgnoreCase("anonymous") || uri.toLowerCase(Locale.ROOT).contains("@anonymous.invalid");
    }

    /** Returns "alice" for "sip:alice@10.0.0.1;user=phone"; returns the host when there is no user. */
    String name() {
      String address = uri.replaceFirst("^(?i)(sips?|tel):", "");
      String user = address.split("[@;?]", 2)[0];
      return user.isEmpty() ? address : user;
    }
  }

  /** A dialog as Replaces names it (RFC 3891). The tags are as the receiver of the header sees them. */
  record DialogId(String callId, String toTag, String fromTag) {
    private static final Pattern PARAMETER = Pattern.compile(";\\s*(to|from)-tag\\s*=\\s*([^;,\\s]{1,256})",
        Pattern.CASE_INSENSITIVE);

    static DialogId parse(String value) {
      String to = "";
      String from = "";
      for (Matcher parameter = PARAMETER.matcher(value); parameter.find();) {
        if (parameter.group(1).equalsIgnoreCase("to")) {
          to = parameter.group(2);
        } else {
          from = parameter.group(2);
        }
      }
      return new DialogId(value.split(";", 2)[0].strip(), to, from);
    }
  }

  private static final int MAX_CALL_ID = 256;
  private static final int MAX_HEADER_LINES = 256;
  private static final int MAX_TEXT = 512;
  private static final int MAX_HOSTS = 8;
  /** An address: dotted, in brackets, or in a received parameter, where IPv6 needs no brackets (RFC 5118, 4.5). */
  private static final Pattern HOST =
      Pattern.compile("(?i)(?:\\[|received\\s*=\\s*\\[?)(" + Address.COLONS + ")|" + Address.DOTTED);
  private static final List<String> ROUTE = List.of("via", "route", "record-route", "contact");
  private static final Pattern SIGNAL = Pattern.compile("(?im)^Signal\\s*=\\s*(1[0-5]|[0-9A-D*#])\\s*$");
  private static final Pattern KEY = Pattern.compile("(?i)^\\s*(1[0-5]|[0-9A-D*#])\\s*$");
  private static final Pattern REPLACES = Pattern.compile("(?i)[?&]Replaces=([^&>\\s]{1,1024})");
  private static final Pattern STATUS_LINE = Pattern.compile("(?i)SIP/2\\.0\\s+([1-6]\\d\\d)(?:\\s+(.*))?");
  private static final Pattern CSEQ = Pattern.compile("(\\d{1,10})\\s+([A-Za-z]{1,32})");
  private static final Pattern BRANCH =
      Pattern.compile(";\\s*branch\\s*=\\s*([^;,\\s]{1,256})", Pattern.CASE_INSENSITIVE);

  /** Whether the message is a request. */
  boolean isRequest() {
    return status == 0;
  }

  /** Whether the message is a request with a method. */
  boolean isRequest(String name) {
    return status == 0 && method.equals(name);
  }

  /** Whether the message is a response with a status of 200 to 299. */
  boolean isSuccess() {
    return status >= 200 && status < 300;
  }

  /** Whether the message is a response with a status from 300. */
  boolean isFailure() {
    return status >= 300;
  }

  /** Returns "INVITE" or "180 Ringing". */
  String label() {
    return isRequest() ? method : status + " " + reason;
  }

  /**
   * Returns the caller of an INVITE or of a response to it. When the caller of an INVITE is anonymous, the network may
   * have added its identity (RFC 3325) for trusted hosts.
   */
  Party caller() {
    String asserted = headers.first("p-asserted-identity");
    String remote = headers.first("remote-party-id");
    String identity = asserted.isEmpty() && !remote.contains("party=called") ? remote : asserted;
    return isRequest() && from.isAnonymous() && !identity.isEmpty() ? Party.parse(identity) : from;
  }

  /** Returns the dialog that an INVITE replaces. */
  Optional<DialogId> replaces() {
    return Optional.of(headers.first("replaces")).filter(value -> !value.isEmpty()).map(DialogId::parse);
  }

  /** Returns the target of a REFER (RFC 3515). */
  Party referTo() {
    return Party.parse(headers.first("refer-to"));
  }

  /** Returns the dialog that the target of a REFER is to give up. */
  Optional<DialogId> referredReplaces() {
    Matcher replaces = REPLACES.matcher(headers.first("refer-to"));
    if (!replaces.find()) {
      return Optional.empty();
    }
    try {
      String escaped = replaces.group(1).replace("+", "%2B");  // the decoder is made for forms
      return Optional.of(DialogId.parse(URLDecoder.decode(escaped, StandardCharsets.UTF_8)));
    } catch (IllegalArgumentException e) {
      return Optional.empty();
    }
  }

  /** Returns the identity of the session on the side of the sender (RFC 7989); empty when there is none. */
  String sessionId() {
    String id = headers.first("session-id").split(";", 2)[0].strip();
    return id.matches("[0-9a-fA-F]{32}") && !id.matches("0+") ? id : "";
  }

  /** Returns the values of the headers that no standard defines. Call managers name other Call-IDs there. */
  List<String> extensions() {
    return headers.extensions();
  }

  /** Returns the addresses that messages of the dialog take: those of the hops so far and of the sender. */
  Set<Address> route() {
    Set<Address> hosts = new HashSet<>();
    for (String name : ROUTE) {
      for (String value : headers.all(name)) {
        HOST.matcher(value).results().limit(MAX_HOSTS)
            .map(host -> host.group(1) == null ? host.group() : host.group(1))
            .forEach(host -> Address.parse(host).filter(Address::isUnicast).ifPresent(hosts::add));
      }
    }
    return hosts;
  }

  /** Parses a message. Returns empty when it has no valid Call-ID and CSeq. */
  static Optional<SipMessage> parse(byte[] bytes) {
    int bodyStart = bodyStart(bytes);
    String[] lines = new String(bytes, 0, bodyStart, StandardCharsets.UTF_8).split("\r?\n", MAX_HEADER_LINES);
    SipHeaders headers = new SipHeaders(lines);
    Matcher cseq = CSEQ.matcher(headers.first("cseq"));
    String callId = headers.first("call-id");
    if (!cseq.lookingAt() || callId.isEmpty() || callId.length() > MAX_CALL_ID) {
      return Optional.empty();
    }
    String type = headers.first("content-type").toLowerCase(Locale.ROOT);
    String body = body(bytes, bodyStart, headers.first("content-length"));
    Matcher statusLine = STATUS_LINE.matcher(lines[0]);
    boolean response = statusLine.matches();
    Matcher branch = BRANCH.matcher(headers.first("via"));
    return Optional.of(new SipMessage(
        response ? Integer.parseInt(statusLine.group(1)) : 0,
        response && statusLine.group(2) != null ? shortened(statusLine.group(2)) : "",
        cseq.group(2).toUpperCase(Locale.ROOT),
        Long.parseLong(cseq.group(1)),
        callId,
        branch.find() ? branch.group(1) : "",
        Party.parse(headers.first("from")),
        Party.parse(headers.first("to")),
        sdp(type, body),
        digits(type, body),
        headers));
  }

  private static String shortened(String text) {
    return text.substring(0, Math.min(text.length(), MAX_TEXT));
  }

  /** Returns the index after the first empty line. */
  private static int bodyStart(byte[] bytes) {
    for (int i = 0; i + 1 < bytes.length; i++) {
      if (bytes[i] == '\n' && bytes[i + 1] == '\n') {
        return i + 2;
      }
      if (bytes[i] == '\n' && bytes[i + 1] == '\r' && i + 2 < bytes.length && bytes[i + 2] == '\n') {
        return i + 3;
      }
    }
    return bytes.length;
  }

  /** Returns the body without padding after it. */
  private static String body(byte[] bytes, int start, String contentLength) {
    int length = bytes.length - start;
    if (contentLength.matches("\\d{1,5}")) {
      length = Math.min(length, Integer.parseInt(contentLength));
    }
    return new String(bytes, start, length, StandardCharsets.UTF_8);
  }

  /** Returns the session description: the body or a part of it. */
  private static Optional<Sdp> sdp(String type, String body) {
    if (!type.startsWith("application/sdp") && !type.startsWith("multipart/")) {
      return Optional.empty();
    }
    Matcher version = Pattern.compile("(?m)^v=0").matcher(body);
    return version.find() ? Optional.of(Sdp.parse(body.substring(version.start()))) : Optional.empty();
  }

  /** Returns the keys of "Signal=5" (application/dtmf-relay) or "5" (application/dtmf). */
  private static String digits(String type, String body) {
    if (!type.startsWith("application/dtmf")) {
      return "";
    }
    Matcher key = (type.startsWith("application/dtmf-relay") ? SIGNAL : KEY).matcher(body);
    if (!key.find()) {
      return "";
    }
    String pressed = key.group(1).toUpperCase(Locale.ROOT);
    // Some telephones send the number of the event (RFC 4733).
    return pressed.length() == 1 ? pressed : String.valueOf("*#ABCD".charAt(Integer.parseInt(pressed) - 10));
  }
}
