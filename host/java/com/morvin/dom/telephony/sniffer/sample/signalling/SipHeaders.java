package com.morvin.dom.telephony.sniffer.sample.signalling;

import java.util.ArrayList;
import java.util.HashMap;
import java.util.List;
import java.util.Locale;
import java.util.Map;

/** The headers of a SIP message (RFC 3261, 7.3) by lower-case full name. */
final class SipHeaders {
  private static final Map<String, String> COMPACT = Map.of("i", "call-id", "f", "from", "t", "to", "v", "via", "l",
      "content-length", "c", "content-type", "m", "contact", "r", "refer-to", "b", "referred-by");

  private final Map<String, List<StringBuilder>> values = new HashMap<>();

  /** Reads the lines after the first one up to an empty line. */
  SipHeaders(String[] lines) {
    StringBuilder last = new StringBuilder();
    for (int i = 1; i < lines.length && !lines[i].isEmpty(); i++) {
      String line = lines[i];
      int colon = line.indexOf(':');
      if (line.charAt(0) == ' ' || line.charAt(0) == '\t') {
        last.append(' ').append(line.strip());  // continues a folded header
      } else if (colon > 0) {
        String name = line.substring(0, colon).strip().toLowerCase(Locale.ROOT);
        last = new StringBuilder(line.substring(colon + 1).strip());
        values.computeIfAbsent(COMPACT.getOrDefault(name, name), any -> new ArrayList<>(1)).add(last);
      }
    }
  }

  /** Returns the value of the first header with a name; an empty text when there is none. */
  String first(String name) {
    List<StringBuilder> all = values.get(name);
    return all == null ? "" : all.get(0).toString().strip();
  }

  /** Returns the values of all headers with a name. */
  List<String> all(String name) {
    return values.getOrDefault(name, List.of()).stream().map(StringBuilder::toString).toList();
  }

  /** Returns the values of all headers that no standard defines. */
  List<String> extensions() {
    return values.entrySet().stream().filter(header -> header.getKey().startsWith("x-"))
        .flatMap(header -> header.getValue().stream()).map(value -> value.toString().strip()).toList();
  }
}
