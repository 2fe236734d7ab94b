package com.morvin.dom.telephony.sniffer.sample.transport;

/** The size of a socket's receive buffer. The kernel silently gives less than requested when its limit is lower. */
public final class ReceiveBuffer {
  private ReceiveBuffer() {}

  /**
   * Returns the warning for the operator, or an empty text when the buffer is large enough.
   *
   * @param wanted the requested size in bytes
   * @param given the size that the socket reports
   */
  public static String warning(int wanted, int given) {
    return given >= wanted ? ""
        : "the kernel limits the receive buffer to " + (given >> 10) + " KB instead of " + (wanted >> 10)
            + ", which a burst can exceed: run sysctl -w net.core.rmem_max=" + wanted
            + " as root, and write the setting to /etc/sysctl.d/";
  }
}
