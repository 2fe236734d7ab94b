package com.morvin.dom.telephony.sniffer.sample.cluster;

import java.util.regex.Matcher;
import java.util.regex.Pattern;

/**
 * Which message it is: so one that comes twice is known, and one that is missing.
 *
 * @param call that it belongs to; see {@link Stream}
 * @param sequence counts the messages of the call, from 0
 */
record MessageId(Stream call, long sequence) {
  private static final Pattern FORM = Pattern.compile("([A-Za-z0-9-]{1,64})/(\\d{1,18})/(\\d{1,18})");

  /** A call as one run of a front numbered it. Two fronts that see the same call publish two streams under one key. */
  record Stream(String session, long number) {
    @Override
    public String toString() {
      return session + "/" + number;
    }
  }

  /** Null when the text is none. */
  static MessageId parse(String text) {
    Matcher parts = text == null ? null : FORM.matcher(text);
    return parts == null || !parts.matches() ? null
        : new MessageId(new Stream(parts.group(1), Long.parseLong(parts.group(2))), Long.parseLong(parts.group(3)));
  }

  @Override
  public String toString() {
    return call + "/" + sequence;
  }
}
