package com.morvin.dom.telephony.sniffer.sample.transport;

import java.io.IOException;

/** What this program can be to its sniffers: a recorder, or something that passes frames on. */
public interface Service {
  /** Takes what the transport delivers until {@link #stop} or until the end of it. */
  void run(Transport link) throws IOException, InterruptedException;

  /** Makes {@link #run} return soon. Any thread may call it. */
  void stop();

  boolean stopped();

  /** Tells, for the end, what has been done. */
  void summarize();
}
