package com.morvin.dom.telephony.sniffer.sample.console;

import java.net.InetSocketAddress;
import java.util.Locale;

/** Text of the network made fit for terminals, file names and tables. */
public final class Text {
  private static final int MAX_PRINTED = 200;
  private static final int MAX_FILE_PART = 40;

  private Text() {}

  public static String of(InetSocketAddress address) {
    return address.getAddress().getHostAddress() + ":" + address.getPort();
  }

  /** Without control characters, so that it can neither break a line nor steer a terminal, and not overlong. */
  public static String printable(String text) {
    String clean = text.replaceAll("[\\p{Cntrl}\\p{Cf}\\p{Co}\\p{Cn}\\p{Cs}\\u2028\\u2029]", " ").strip();
    if (clean.length() <= MAX_PRINTED) {
      return clean;
    }
    // Half of a character outside the basic plane would be none.
    boolean cut = Character.isHighSurrogate(clean.charAt(MAX_PRINTED - 1));
    return clean.substring(0, cut ? MAX_PRINTED - 1 : MAX_PRINTED) + "...";
  }

  /** A part of a file name: only letters, digits and marks that mean nothing to a shell or a file system. */
  public static String fileNamePart(String text) {
    String clean = text.replaceAll("[^A-Za-z0-9._+@-]", "_");
    clean = clean.substring(0, Math.min(clean.length(), MAX_FILE_PART)).replaceAll("^[.-]+", "_");
    return clean.isEmpty() ? "unknown" : clean;
  }

  /** A field of a CSV line; a spreadsheet takes none for a formula. */
  public static String csv(String text) {
    String field = printable(text);
    if (!field.isEmpty() && "=+-@".indexOf(field.charAt(0)) >= 0) {
      field = "'" + field;
    }
    return field.matches("[^\",;]*") ? field : '"' + field.replace("\"", "\"\"") + '"';
  }

  public static String seconds(long millis) {
    return String.format(Locale.ROOT, "%.1f", millis / 1000.0);
  }

  public static String count(long number, String noun) {
    return number + " " + noun + (number == 1 ? "" : "s");
  }
}
