package com.morvin.dom.telephony.sniffer.sample.storage;

import java.util.ArrayList;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;

/**
 * Writes and reads JSON (RFC 8259): maps, lists, texts, numbers and booleans. The output is safe inside a script
 * element of a page: it holds no angle bracket, no ampersand and no line separator.
 */
public final class Json {
  private static final int MAX_DEPTH = 32;

  private Json() {}

  /** Returns a value as JSON. Floating-point numbers have three decimals. */
  public static String write(Object value) {
    StringBuilder out = new StringBuilder();
    write(value, out);
    return out.toString();
  }

  private static void write(Object value, StringBuilder out) {
    if (value instanceof Map<?, ?> map) {
      String separator = "{";
      for (Map.Entry<?, ?> entry : map.entrySet()) {
        out.append(separator);
        text(entry.getKey().toString(), out);
        out.append(':');
        write(entry.getValue(), out);
        separator = ",";
      }
      out.append(map.isEmpty() ? "{}" : "}");
    } else if (value instanceof List<?> list) {
      String separator = "[";
      for (Object element : list) {
        out.append(separator);
        write(element, out);
        separator = ",";
      }
      out.append(list.isEmpty() ? "[]" : "]");
    } else if (value instanceof Double || value instanceof Float) {
      decimal(((Number) value).doubleValue(), out);
    } else if (value instanceof String text) {
      text(text, out);
    } else {
      out.append(value);
    }
  }

  /** Writes a number with three decimals. A report has many of them, and a formatter takes long. */
  private static void decimal(double value, StringBuilder out) {
    long thousandths = Math.round(Math.abs(value) * 1000);
    out.append(value < 0 && thousandths > 0 ? "-" : "").append(thousandths / 1000).append('.');
    String decimals = Long.toString(1000 + thousandths % 1000);
    out.append(decimals, 1, decimals.length());
  }

  private static void text(String text, StringBuilder out) {
    out.append('"');
    for (int i = 0; i < text.length(); i++) {
      char c = text.charAt(i);
      if (c == '"' || c == '\\') {
        out.append('\\').append(c);
      } else if (c < ' ' || c == '<' || c == '>' || c == '&' || c == '\u2028' || c == '\u2029'
          || Character.isSurrogate(c)) {
        out.append(String.format("\\u%04x", (int) c));
      } else {
        out.append(c);
      }
    }
    out.append('"');
  }

  /**
   * Parses the output of {@link #write}: objects become maps, arrays lists, and all numbers doubles.
   *
   * @throws IllegalArgumentException when the text is not JSON
   */
  public static Object read(String text) {
    Reader reader = new Reader(text);
    Object value = reader.value(0);
    reader.skipBlanks();
    if (reader.at != text.length()) {
      throw reader.wrong();
    }
    return value;
  }

  private static final class Reader {
    private final String text;
    private int at;

    Reader(String text) {
      this.text = text;
    }

    IllegalArgumentException wrong() {
      return new IllegalArgumentException("no JSON at character " + at);
    }

    void skipBlanks() {
      while (at < text.length() && " \t\r\n".indexOf(text.charAt(at)) >= 0) {
        at++;
      }
    }

    private char peek() {
      skipBlanks();
      if (at == text.length()) {
        throw wrong();
      }
      return text.charAt(at);
    }

    private boolean take(char c) {
      boolean there = peek() == c;
      at += there ? 1 : 0;
      return there;
    }

    private void expect(char c) {
      if (!take(c)) {
        throw wrong();
      }
    }

    Object value(int depth) {
      if (depth > MAX_DEPTH) {
        throw wrong();
      }
      return switch (peek()) {
        case '{' -> object(depth);
        case '[' -> list(depth);
        case '"' -> string();
        default -> word();
      };
    }

    private Map<String, Object> object(int depth) {
      Map<String, Object> map = new LinkedHashMap<>();
      expect('{');
      if (take('}')) {
        return map;
      }
      do {
        peek();
        String key = string();
        expect(':');
        map.put(key, value(depth + 1));
      } while (take(','));
      expect('}');
      return map;
    }

    private List<Object> list(int depth) {
      List<Object> list = new ArrayList<>();
      expect('[');
      if (take(']')) {
        return list;
      }
      do {
        list.add(value(depth + 1));
      } while (take(','));
      expect(']');
      return list;
    }

    private String string() {
      expect('"');
      StringBuilder out = new StringBuilder();
      while (at < text.length() && text.charAt(at) != '"') {
        char c = text.charAt(at++);
        if (c == '\\' && at < text.length()) {
          c = text.charAt(at++);
          if (c == 'u' && at + 4 <= text.length()) {
            c = (char) Integer.parseInt(text.substring(at, at + 4), 16);
            at += 4;
          } else {
            int index = "bfnrt".indexOf(c);
            c = index < 0 ? c : "\b\f\n\r\t".charAt(index);
          }
        }
        out.append(c);
      }
      if (at++ >= text.length()) {
        throw wrong();
      }
      return out.toString();
    }

    private Object word() {
      int start = at;
      while (at < text.length() && ",]} \t\r\n".indexOf(text.charAt(at)) < 0) {
        at++;
      }
      String word = text.substring(start, at);
      return switch (word) {
        case "true" -> Boolean.TRUE;
        case "false" -> Boolean.FALSE;
        case "null" -> null;
        default -> Double.valueOf(word);
      };
    }
  }
}
