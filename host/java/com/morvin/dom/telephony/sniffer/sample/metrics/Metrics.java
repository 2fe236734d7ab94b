package com.morvin.dom.telephony.sniffer.sample.metrics;

import java.util.Locale;

/**
 * Figures in the text format of Prometheus. Samples of the same metric are added one after the other. Belongs to one
 * thread at a time.
 */
public final class Metrics {
  private final String prefix;
  private final StringBuilder text = new StringBuilder();
  private String last = "";

  /**
   * Makes an empty set.
   *
   * @param prefix the beginning of all names, with its underscore
   */
  public Metrics(String prefix) {
    this.prefix = prefix;
  }

  /**
   * Adds a counter, which never decreases while the program runs.
   *
   * @param name ends with "_total"
   * @param labels names and values in turn
   */
  public void counter(String name, String help, double value, String... labels) {
    add(name, "counter", help, value, labels);
  }

  /** Adds a figure that can decrease. See {@link #counter}. */
  public void gauge(String name, String help, double value, String... labels) {
    add(name, "gauge", help, value, labels);
  }

  /** Adds a histogram. */
  public void histogram(String name, String help, Histogram histogram) {
    describe(name, "histogram", help);
    histogram.cumulated((bound, count) -> sample(name + "_bucket", count, "le", bound));
    sample(name + "_sum", histogram.sum());
    sample(name + "_count", histogram.count());
  }

  /** Returns a copy, to which further figures can be added. */
  Metrics copy() {
    Metrics copy = new Metrics(prefix);
    copy.text.append(text);
    return copy;
  }

  private void add(String name, String type, String help, double value, String... labels) {
    if (!name.equals(last)) {
      last = name;
      describe(name, type, help);
    }
    sample(name, value, labels);
  }

  private void describe(String name, String type, String help) {
    text.append("# HELP ").append(prefix).append(name).append(' ').append(help).append("\n# TYPE ").append(prefix)
        .append(name).append(' ').append(type).append('\n');
  }

  private void sample(String name, double value, String... labels) {
    text.append(prefix).append(name);
    for (int i = 0; i + 1 < labels.length; i += 2) {
      text.append(i == 0 ? '{' : ',').append(labels[i]).append("=\"").append(quoted(labels[i + 1])).append('"');
    }
    text.append(labels.length > 0 ? "} " : " ").append(number(value)).append('\n');
  }

  private static String quoted(String value) {
    return value.replace("\\", "\\\\").replace("\"", "\\\"").replace("\n", "\\n");
  }

  private static String number(double value) {
    return value == Math.rint(value) ? Long.toString((long) value) : String.format(Locale.ROOT, "%.3f", value);
  }

  /** Returns all samples. */
  @Override
  public String toString() {
    return text.toString();
  }
}
