package com.morvin.dom.telephony.sniffer.sample.cluster;

import java.util.ArrayList;
import java.util.List;
import java.util.regex.Matcher;
import java.util.regex.Pattern;
import java.util.stream.Collectors;

/**
 * The signalling of a call that is repeated for recorders that have not seen its beginning.
 *
 * @param call the number of the call in the session of the front
 * @param since the sequence number of the message that the call begins in; -1 when the call began before the session
 * @param bytes the length of the frames in the body
 */
record Recap(long call, long since, int bytes) {
  private static final Pattern FORM = Pattern.compile("(\\d{1,18}):(-1|\\d{1,18}):(\\d{1,9})");

  /** Returns the total length of recaps in bytes. */
  static int bytes(List<Recap> recaps) {
    return recaps.stream().mapToInt(Recap::bytes).sum();
  }

  /** Returns the text form: CALL:SINCE:BYTES, separated by blanks. */
  static String text(List<Recap> recaps) {
    return recaps.stream().map(recap -> recap.call + ":" + recap.since + ":" + recap.bytes)
        .collect(Collectors.joining(" "));
  }

  /** Parses the text form. Returns null when the text has another form, or the recaps are longer than the body. */
  static List<Recap> parse(String text, int body) {
    List<Recap> recaps = new ArrayList<>();
    int left = body;
    for (String word : text.isEmpty() ? new String[0] : text.split(" ")) {
      Matcher parts = FORM.matcher(word);
      int bytes = parts.matches() ? Integer.parseInt(parts.group(3)) : Integer.MAX_VALUE;
      if (bytes > left) {
        return null;
      }
      left -= bytes;
      recaps.add(new Recap(Long.parseLong(parts.group(1)), Long.parseLong(parts.group(2)), bytes));
    }
    return recaps;
  }
}
