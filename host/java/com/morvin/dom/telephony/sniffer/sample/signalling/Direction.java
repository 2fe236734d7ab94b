package com.morvin.dom.telephony.sniffer.sample.signalling;

/** Whose voice it is. */
public enum Direction {
  FROM_CALLER("from-caller"),
  FROM_CALLEE("from-callee");

  private final String label;

  Direction(String label) {
    this.label = label;
  }

  /** What is sent to an address of one party is spoken by the other. */
  public static Direction to(boolean caller) {
    return caller ? FROM_CALLEE : FROM_CALLER;
  }

  public Direction opposite() {
    return this == FROM_CALLER ? FROM_CALLEE : FROM_CALLER;
  }

  @Override
  public String toString() {
    return label;
  }
}
