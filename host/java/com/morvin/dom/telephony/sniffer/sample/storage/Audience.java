package com.morvin.dom.telephony.sniffer.sample.storage;

import java.io.IOException;

/** Hears of calls on the thread of the disk. What throws is told again. */
public interface Audience {
  /** The first media of a call has come: a report without an end and without a name. After a restart it is told anew. */
  default void began(CallReport call) throws IOException {}

  /** A call has ended and all its files are there. When it goes on after all, another report of the same name follows. */
  void ended(CallReport call) throws IOException;
}
