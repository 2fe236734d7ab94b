package com.morvin.dom.telephony.sniffer.sample.cluster;

import java.util.regex.Matcher;
import java.util.regex.Pattern;

/**
 * Identifies a message, so that the recorder notices repeated and missing messages.
 *
 * @param stream the stream; see {@link Stream}
 * @param sequence counts the messages of the stream from 0
 */
record MessageId(Stream stream, long sequence) {
  private static final Pattern FORM = Pattern.compile("([A-Za-z0-9-]{1,64})/(\\d{1,18})/(\\d{1,18})");

  /** The messages of one partition by one run of a front, in the order of the frames. */
  record Stream(String session, long number) {
    @Override
    public String toString() {
      return session + "/" + number;
    }
  }

  /** Parses the text form. Returns null when the text has another form. */
  static MessageId parse(String text) {
    Matcher parts = text == null ? null : FORM.matcher(text);
    return parts == null || !parts.matches() ? null
        : new MessageId(new Stream(parts.group(1), Long.parseLong(parts.group(2))), Long.parseLong(parts.group(3)));
  }

  @Override
  public String toString() {
    return stream + "/" + sequence;
  }
}
