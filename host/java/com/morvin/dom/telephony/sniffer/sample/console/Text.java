package com.morvin.dom.telephony.sniffer.sample.console;

import java.nio.file.AccessDeniedException;
import java.nio.file.FileAlreadyExistsException;
import java.nio.file.FileSystemException;
import java.nio.file.NoSuchFileException;
import java.text.Normalizer;
import java.util.regex.Matcher;
import java.util.regex.Pattern;

/** Makes text from the network safe for terminals, file names and tables. All methods are pure functions. */
public final class Text {
  private static final int MAX_PRINTED = 200;
  private static final int MAX_FILE_PART = 40;
  private static final Pattern NOT_PRINTABLE =
      Pattern.compile("[\\p{Cc}\\p{Cf}\\p{Co}\\p{Cn}\\p{Cs}\\u2028\\u2029]");
  private static final Pattern NOT_IN_FILE_NAMES = Pattern.compile("[^A-Za-z0-9._+@-]");
  private static final Pattern IPV6 = Pattern.compile("\\[?((?:[0-9A-Fa-f]{0,4}:){2,7}[0-9A-Fa-f.]{0,15})(?:]|$)");
  /** What spreadsheets may take for the beginning of a formula, in the normal form NFKC. */
  private static final Pattern FORMULA = Pattern.compile("^[\\p{Z}\\p{M}]*[=+@\u2212-]");
  private static final Pattern FIRST_MARKS = Pattern.compile("^[.-]+");

  private Text() {}

  /**
   * Replaces control characters by blanks and shortens the text to 200 characters, so that it can neither break a line
   * nor control a terminal.
   */
  public static String printable(String text) {
    String clean = (isPlain(text) ? text : NOT_PRINTABLE.matcher(text).replaceAll(" ")).strip();
    if (clean.length() <= MAX_PRINTED) {
      return clean;
    }
    // A surrogate pair must not be cut in two.
    boolean cut = Character.isHighSurrogate(clean.charAt(MAX_PRINTED - 1));
    return clean.substring(0, cut ? MAX_PRINTED - 1 : MAX_PRINTED) + "...";
  }

  /** Whether all characters are those of ASCII that can be printed, the usual case. */
  private static boolean isPlain(String text) {
    for (int i = 0; i < text.length(); i++) {
      if (text.charAt(i) < ' ' || text.charAt(i) > '~') {
        return false;
      }
    }
    return true;
  }

  /**
   * Returns a part of a file name, at most 40 characters long. It holds only letters, digits and marks without a
   * meaning for shells and file systems. It is never empty. The colons of an IPv6 address become hyphens, because
   * Windows allows none in names.
   */
  public static String fileNamePart(String text) {
    Matcher ipv6 = IPV6.matcher(text);
    String name = ipv6.lookingAt() ? ipv6.group(1).replace(':', '-') + text.substring(ipv6.end()) : text;
    String clean = NOT_IN_FILE_NAMES.matcher(name).replaceAll("_");
    clean = FIRST_MARKS.matcher(clean.substring(0, Math.min(clean.length(), MAX_FILE_PART))).replaceAll("_");
    return clean.isEmpty() ? "unknown" : clean;
  }

  /** Returns a field of a CSV line. The quote before a formula keeps spreadsheets from computing it. */
  public static String csv(String text) {
    String field = printable(text);
    if (isFormula(field)) {
      field = "'" + field;
    }
    boolean plain = field.chars().noneMatch(c -> c == '"' || c == ',' || c == ';');
    return plain ? field : '"' + field.replace("\"", "\"\"") + '"';
  }

  /** Returns the text of a field of a CSV line as {@link #csv} makes it, without control characters. */
  public static String ofCsv(String field) {
    String text = field.startsWith("\"") ? field.substring(1, field.length() - 1).replace("\"\"", "\"") : field;
    return text.startsWith("'") && isFormula(text.substring(1)) ? text.substring(1) : text;
  }

  /** Whether a text begins like a formula, also with the full-width, small and raised forms of the characters. */
  private static boolean isFormula(String text) {
    return FORMULA.matcher(isPlain(text) ? text : Normalizer.normalize(text, Normalizer.Form.NFKC)).find();
  }

  /** Returns seconds with one decimal, such as "1.5". */
  public static String seconds(long millis) {
    long tenths = (Math.abs(millis) + 50) / 100;
    return (millis < 0 && tenths > 0 ? "-" : "") + tenths / 10 + "." + tenths % 10;
  }

  /** Returns the file and the reason of a failure, such as "/calls: Permission denied". */
  public static String reason(FileSystemException failure) {
    String reason = failure instanceof NoSuchFileException ? "No such file or directory"
        : failure instanceof AccessDeniedException ? "Permission denied"
        : failure instanceof FileAlreadyExistsException ? "File exists, and is no directory"
        : null;
    return failure.getMessage() + (reason == null || failure.getReason() != null ? "" : ": " + reason);
  }

  /** Returns "1 call" or "2 calls". */
  public static String count(long number, String noun) {
    return number + " " + noun + (number == 1 ? "" : "s");
  }
}
