package com.morvin.dom.telephony.sniffer.sample.signalling;

/** The direction of media: which party sends it. */
public enum Direction {
  /** Sent by the caller. */
  FROM_CALLER("from-caller"),
  /** Sent by the callee. */
  FROM_CALLEE("from-callee");

  private final String label;

  Direction(String label) {
    this.label = label;
  }

  /** Returns the direction of media sent to the caller or to the callee: the other party sends it. */
  public static Direction to(boolean caller) {
    return caller ? FROM_CALLEE : FROM_CALLER;
  }

  /** Returns the other direction. */
  public Direction opposite() {
    return this == FROM_CALLER ? FROM_CALLEE : FROM_CALLER;
  }

  /** Returns the other direction if the sides are exchanged. */
  public Direction turned(boolean exchanged) {
    return exchanged ? opposite() : this;
  }

  @Override
  public String toString() {
    return label;
  }
}
