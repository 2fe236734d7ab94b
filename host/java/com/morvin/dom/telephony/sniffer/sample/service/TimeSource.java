package com.morvin.dom.telephony.sniffer.sample.service;

/** The clocks of a service. A test implements its own. */
public interface TimeSource {
  /** Returns the time of day in milliseconds since 1970. It steps when somebody sets the clock. */
  long millis();

  /** Returns the milliseconds of a clock that never steps; its zero has no meaning. */
  long steadyMillis();

  /** Returns the clocks of this machine. */
  static TimeSource system() {
    return new TimeSource() {
      @Override
      public long millis() {
        return System.currentTimeMillis();
      }

      @Override
      public long steadyMillis() {
        return System.nanoTime() / 1_000_000;
      }
    };
  }
}
