package com.morvin.dom.telephony.sniffer.sample.storage;

import java.io.IOException;

/** Is called for the calls of a recorder, on the disk thread. A method that throws is called again. */
public interface ReportListener {
  /**
   * The first media of a call was received. The report has no end and no name. It is repeated after a restart.
   */
  default void began(CallReport call) throws IOException {}

  /** A call that has begun is a leg of another one. It has no report of its own. */
  default void merged(CallReport call) throws IOException {}

  /**
   * A call has ended and all its files are written.
   *
   * @param firstMessage the start of the running call; that of the ended one can be earlier
   */
  void ended(CallReport call, long firstMessage) throws IOException;

  /** Called about every second. */
  default void tick() throws IOException {}

  /** The recorder ends; another one continues the calls that are running, and reports them again. */
  default void stopped() throws IOException {}
}
